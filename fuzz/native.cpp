// libFuzzer target: the native mesh format reader, and a write-read round trip of whatever it
// accepted (the file written from a loaded mesh must load back to the same mesh).
#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlCompare.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <cstddef>
#include <cstdint>
#include <string>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::IO;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    KelSDK::FileIO::MMemoryFile in;
    in.OpenRead(data, size);
    MStlBase mesh;
    MStlFileIO reader;
    reader.SetStl(&mesh);
    reader.SetFile(in);
    const MStlFileIO::MErrorCode code = reader.Load(nullptr);
    if (code != eStlFileIOSuccess && code != eStlFileIOBadFormat && code != eStlFileIOMarkCountMismatch &&
        code != eStlFileIOVisibilityCountMismatch && code != eStlFileIOUnknownReference)
        __builtin_trap();
    if (code != eStlFileIOSuccess)
        return 0;

    KelSDK::FileIO::MMemoryFile out;
    out.OpenWrite();
    MStlFileIO writer;
    writer.SetStl(&mesh);
    writer.SetFile(out);
    if (writer.Save(nullptr) != eStlFileIOSuccess)
        __builtin_trap();
    out.Close();

    KelSDK::FileIO::MMemoryFile again;
    again.OpenRead(out.GetData().data(), out.GetData().size());
    MStlBase copy;
    MStlFileIO rereader;
    rereader.SetStl(&copy);
    rereader.SetFile(again);
    if (rereader.Load(nullptr) != eStlFileIOSuccess)
        __builtin_trap();
    MStlCompareOptions options;
    options.attributes = false; // the mesh name and colour are not stored
    if (!CompareMeshes(mesh, copy, options).empty())
        __builtin_trap();
    return 0;
}
