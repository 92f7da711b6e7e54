// The STL read driver: detects ASCII or binary, parses, measures, transforms and builds the mesh.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlReadOptions.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Common
{
class IProgressDelegate;
}
namespace KelSDK::Triangles::Data
{
class MStlBase;
}

namespace KelSDK::Triangles::IO
{
class KELSDK_TRIANGLES_IO_EXPORT MStlFileReader
{
public:
    // Keeps a copy of the options; no input, no target yet.
    explicit MStlFileReader(const MStlReadOptions& options);

    // Reads from the named file (and forgets any input stream).
    void SetFileName(const std::wstring& name);
    // Reads from the caller's stream, which must outlive Read (and forgets any file name).
    void SetInputStream(std::istream* stream);
    // The mesh that Read fills; null measures the bounding box only.
    void SetTargetStl(KelSDK::Triangles::Data::MStlBase* stl);

    // Reads the input into the target; false for no input, a failed stream, a parse error or a
    // mesh-building error. "Can't convert double" and "too many neighbours" escape as exceptions.
    bool Read(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);

    // Bounding box of every vertex read, in file coordinates.
    const KelSDK::Math::boundingbox<double, 3>& GetBoundingBox() const { return boundingBox_; }
    // The file-to-grid transformation used by the last Read.
    const MStlReadTransformation& GetReadTransformation() const { return transformation_; }
    // Overflow flag and, for binary files, the colour, material and flags of the header.
    MStlReadResults GetResults();
    // True when the last Read took its input for ASCII STL.
    bool WasAscii() const { return wasAscii_; }
    // Number of facets the last Read parsed, over all solids (before collapsed ones are dropped).
    uint64_t GetNumberOfFacets() const { return facetCount_; }

    // Where the last Read stopped: None after a success.
    enum class EFailure
    {
        None,
        NoInput,      // no file name or stream, or the input could not be opened or read
        AsciiReader,  // MStlFileReaderAscii failed; GetReaderCode() is its EReturnCode
        BinaryReader, // MStlFileReaderBinary failed; GetReaderCode() is its ErrorCode
        MeshBuilding  // the facets could not be made into the target mesh
    };
    EFailure GetFailure() const { return failure_; }
    // The failing reader's own code (0 unless GetFailure() names a reader).
    int GetReaderCode() const { return readerCode_; }

private:
    // Records a reader's result; true when it failed.
    bool _Failed(EFailure step, int code);
    // Measures, transforms and builds the mesh from the facets a reader left in a store.
    template <class Store> bool _Build(Store& facets, const std::vector<std::string>& names, bool ascii);

    std::wstring fileName_;
    std::istream* stream_ = nullptr;
    KelSDK::Triangles::Data::MStlBase* target_ = nullptr;
    MStlReadOptions options_;
    MStlReadResults results_;
    MStlReadTransformation transformation_;
    KelSDK::Math::boundingbox<double, 3> boundingBox_;
    bool wasAscii_ = false;
    uint64_t facetCount_ = 0;
    EFailure failure_ = EFailure::None;
    int readerCode_ = 0;
};
} // namespace KelSDK::Triangles::IO
