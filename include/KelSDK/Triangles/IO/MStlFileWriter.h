// Writes a mesh as ASCII or binary STL, with the coloured header and per-facet colours.
#pragma once

#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/IO/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace KelSDK::Common
{
class IProgressDelegate;
class IncrementalProgressReporter;
} // namespace KelSDK::Common
namespace KelSDK::FileIO
{
class MFile;
}
namespace KelSDK::Math
{
class MMTransform;
}
namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlMaterial;
class MStlTriangle;
} // namespace KelSDK::Triangles::Data

namespace KelSDK::Triangles::IO
{
class MStlFileTriangle;

// How a mesh is written: coordinate scale, binary or ASCII, colours, one solid per surface.
class KELSDK_TRIANGLES_IO_EXPORT MStlWriteOptions
{
public:
    // Stores the four choices in this order.
    MStlWriteOptions(double scale, bool binary, bool withColors, bool solidPerSurface)
        : scale(scale), binary(binary), withColors(withColors), solidPerSurface(solidPerSurface)
    {
    }

    double scale;         // every vertex coordinate is multiplied by it
    bool binary;          // binary STL, else ASCII
    bool withColors;      // coloured header (binary) and per-facet colour words
    bool solidPerSurface; // ASCII: one solid per surface instead of one for the mesh
};

class KELSDK_TRIANGLES_IO_EXPORT MStlFileWriter
{
public:
    // Copies the options; nothing open yet.
    explicit MStlFileWriter(const MStlWriteOptions& options);
    // Closes an opened file (a binary file gets its facet count patched first).
    ~MStlFileWriter();
    MStlFileWriter(const MStlFileWriter&) = delete;
    MStlFileWriter& operator=(const MStlFileWriter&) = delete;

    // The file that OpenWrite creates.
    void SetFileName(const wchar_t* name);
    // The mesh that Write writes (not owned).
    void SetStlToWrite(const KelSDK::Triangles::Data::MStlBase* stl);
    // Applies a clone of the transformation to every written vertex and normal; null clears it.
    void SetWriteTransformation(const KelSDK::Math::MMTransform* transformation);
    // Lets a large binary export encode on TBB's threads and write from a thread of its own (the
    // bytes are the same). Off by default: all work then stays on the caller's thread.
    void SetParallel(bool parallel) { parallel_ = parallel; }

    // Creates the file; false (and closed) when it cannot be created.
    bool OpenWrite();
    // Binary files: writes the 80-byte header and the count placeholder; false when no file is open
    // or the file reports an error.
    bool WriteHeader(const KelSDK::Triangles::Data::MStlBase* mesh,
                     const KelSDK::Triangles::Data::MStlMaterial* material);
    // Opens and writes the header when not done yet, then every facet; false on any failure. Runs
    // on the caller's thread unless SetParallel(true); progress is reported on the caller's thread.
    bool Write(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
    // Patches a binary file's facet count and closes the file; false when nothing was open or the
    // file reports an error (the previous file then stays in place).
    bool Close();

    // Number of facets written so far.
    uint32_t GetFacetCount() const { return facetCount_; }
    // The operating system's reason why OpenWrite or Close failed (such as "No such file or
    // directory" for a missing folder); empty when the failure was not the operating system's.
    std::error_code GetSystemError() const { return systemError_; }

private:
    bool _WriteStandard(const std::shared_ptr<KelSDK::Common::IProgressDelegate>& progress);
    bool _WriteBinaryBlocks(KelSDK::Common::IncrementalProgressReporter& reporter);
    bool _WriteHybrid();
    bool _WriteTriangle(const KelSDK::Triangles::Data::MStlTriangle& triangle, MStlFileTriangle& facet);
    bool _WriteFacet(MStlFileTriangle& facet, KelSDK::Math::point<double, 3> normal,
                     const KelSDK::Math::point<double, 3> (&corners)[3], uint16_t attribute);

    MStlWriteOptions options_;
    std::unique_ptr<KelSDK::FileIO::MFile> file_;
    std::unique_ptr<KelSDK::Math::MMTransform> transformation_;
    std::wstring fileName_;
    const KelSDK::Triangles::Data::MStlMaterial* material_ = nullptr;
    const KelSDK::Triangles::Data::MStlBase* mesh_ = nullptr;
    uint32_t facetCount_ = 0;
    int32_t state_ = 0;
    bool writing_ = false;
    bool parallel_ = false;
    std::error_code systemError_;
};
} // namespace KelSDK::Triangles::IO
