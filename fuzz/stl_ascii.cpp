// libFuzzer target: ASCII STL text through flavour detection, the ASCII reader and the per-facet read.
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace KelSDK::Triangles::IO;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    {
        std::istringstream stream(text);
        StlFileUtilities::IsAscii(stream);
    }
    {
        std::istringstream stream(text);
        std::vector<std::vector<MStlFileTriangle>> facets;
        std::vector<std::string> names;
        try
        {
            MStlFileReaderAscii(stream).Read(facets, names, nullptr);
        }
        catch (const std::runtime_error&)
        {
            // "Can't convert double": the documented failure for a malformed number.
        }
        if (facets.size() != names.size())
            __builtin_trap();
        for (const auto& solid : facets)
            for (const MStlFileTriangle& f : solid)
                if (!f.IsValid())
                    __builtin_trap();
    }
    {
        std::istringstream stream(text);
        MStlFileTriangle facet;
        try
        {
            for (int i = 0; i < 64 && stream.good(); ++i)
                facet.ReadAscii(stream, "fuzz");
        }
        catch (const std::runtime_error&)
        {
        }
    }
    return 0;
}
