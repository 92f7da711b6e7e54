// libFuzzer target: binary STL bytes through the binary reader under every option set, the header
// decoding and the per-facet read.
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using namespace KelSDK::Triangles::IO;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (int mask = 0; mask < 8; ++mask)
    {
        std::istringstream stream(bytes);
        MStlFileReaderBinary reader(stream);
        MStlFileReaderBinary::Options options;
        options.readMultipleBlocks = (mask & 1) != 0;
        options.countFromFileSize = (mask & 2) != 0;
        options.allowTrailingBytes = (mask & 4) != 0;
        reader.SetOptions(options);
        MStlFileReaderBinary::FileHeader header;
        std::vector<std::vector<MStlFileTriangle>> facets;
        const int code = reader.Read(header, facets, nullptr);
        if (code < 0 || code > 4)
            __builtin_trap();
        std::size_t total = 0;
        for (const auto& solid : facets)
            total += solid.size();
        if (size >= 84 && total > (size - 84) / MStlFileTriangle::BINARY_SIZE)
            __builtin_trap();
        if (code != MStlFileReaderBinary::HeaderTruncated)
            MStlFileReaderBinary::ExtractHeaderInfo(header);
    }
    std::istringstream stream(bytes);
    MStlFileTriangle facet;
    while (stream.good())
        facet.ReadBinary(stream);
    return 0;
}
