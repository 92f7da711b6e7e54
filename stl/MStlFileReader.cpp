#include "MStlFacetLists.h"
#include "MStlMeshBuilding.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReader.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <fstream>
#include <istream>
#include <limits>
#include <string>
#include <vector>

namespace KelSDK::Triangles::IO
{
using KelSDK::Math::point;

MStlFileReader::MStlFileReader(const MStlReadOptions& options) : options_(options) {}

void MStlFileReader::SetFileName(const std::wstring& name)
{
    fileName_ = name;
    stream_ = nullptr;
}

void MStlFileReader::SetInputStream(std::istream* stream)
{
    fileName_.clear();
    stream_ = stream;
}

void MStlFileReader::SetTargetStl(KelSDK::Triangles::Data::MStlBase* stl)
{
    target_ = stl;
}

MStlReadResults MStlFileReader::GetResults()
{
    return results_;
}

// The readers fill a lean store rather than lists of MStlFileTriangle: the corners as the file holds
// them (float for binary, double for text) and the attribute words, with the box of all corners
// measured on the way. Mesh building releases the coordinates as it consumes them. The mesh is the
// one the lists would give: a float widens to the same double either way.
bool MStlFileReader::Read(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    // The blocks of the store and of the corner records serve the mesh's own blocks afterwards.
    const KelSDK::Triangles::Data::MStlBlockReuse reuse;
    failure_ = EFailure::NoInput;
    readerCode_ = 0;
    std::ifstream file;
    std::istream* input = stream_;
    if (!fileName_.empty())
    {
        StlFileUtilities::OpenInputFile(file, fileName_);
        input = &file;
    }
    if (input == nullptr || !input->good())
        return false;
    failure_ = EFailure::None;

    const bool ascii =
        fileName_.empty() ? StlFileUtilities::IsAscii(*input) : StlFileUtilities::IsAscii(fileName_);
    std::vector<std::string> names;
    if (ascii && options_.transformationMode != 1 && options_.transformationMode != 2)
    {
        // The transformation does not depend on the box: the corners are mapped as they come.
        const MStlReadTransformation known(point<double, 3>(0.0, 0.0, 0.0), options_.scale);
        Detail::LeanFacets<int32_t> facets;
        Detail::LeanGridSink sink(facets, known);
        if (_Failed(EFailure::AsciiReader, MStlFileReaderAscii(*input)._Read(sink, names, progress)))
            return false;
        return _Build(facets, names, true);
    }
    if (ascii)
    {
        Detail::LeanFacets<double> facets;
        Detail::LeanTextSink sink(facets);
        if (_Failed(EFailure::AsciiReader, MStlFileReaderAscii(*input)._Read(sink, names, progress)))
            return false;
        return _Build(facets, names, true);
    }

    MStlFileReaderBinary reader(*input);
    MStlFileReaderBinary::Options binaryOptions;
    binaryOptions.readMultipleBlocks = true;
    binaryOptions.countFromFileSize = false;
    binaryOptions.allowTrailingBytes = false;
    reader.SetOptions(binaryOptions);
    Detail::LeanFacets<float> facets;
    Detail::LeanBinarySink sink(facets);
    MStlFileReaderBinary::FileHeader header;
    if (_Failed(EFailure::BinaryReader, reader._Read(header, sink, progress)))
        return false;
    names.assign(facets.SolidCount(), std::string());
    results_ = MStlFileReaderBinary::ExtractHeaderInfo(header);
    return _Build(facets, names, false);
}

bool MStlFileReader::_Failed(EFailure step, int code)
{
    failure_ = code != 0 ? step : EFailure::None;
    readerCode_ = code;
    return code != 0;
}

template <class Store> bool MStlFileReader::_Build(Store& facets, const std::vector<std::string>& names, bool ascii)
{
    wasAscii_ = ascii;
    facetCount_ = facets.FacetCount();
    boundingBox_ = facets.CornerBox();
    if (target_ == nullptr)
        return true;

    transformation_ = MStlReadTransformation();
    transformation_.offset = point<double, 3>(0.0, 0.0, 0.0);
    transformation_.scale = options_.scale;
    const point<double, 3>& bmin = boundingBox_.GetMin();
    const point<double, 3>& bmax = boundingBox_.GetMax();
    if (options_.transformationMode == 1)
    {
        for (int a = 0; a < 3; ++a)
            transformation_.offset[a] = options_.referencePoint[a] - (bmin[a] + bmax[a]) * 0.5;
    }
    else if (options_.transformationMode == 2)
    {
        transformation_ = StlFileUtilities::SuggestReadTransformation(boundingBox_, options_.referencePoint,
                                                                      options_.scale);
    }

    // The box test of the grid range, with the bounds that SuggestReadTransformation uses.
    const double lower = -2147483647.0 / transformation_.scale;
    const double upper = 2147483646.0 / transformation_.scale;
    for (int a = 0; a < 3; ++a)
        if (transformation_.offset[a] + bmin[a] < lower || transformation_.offset[a] + bmax[a] > upper)
            results_.isOverflow = true;

    const Detail::BuildResult built =
        Detail::BuildMesh(*target_, facets, names, transformation_, results_.hasColor, &boundingBox_);
    if (built.error)
    {
        failure_ = EFailure::MeshBuilding;
        return false;
    }
    results_.isOverflow = results_.isOverflow || built.overflow;

    if (!ascii)
    {
        if (results_.hasColor)
            target_->SetMaterial(results_.material);
        target_->GetProperties().SetIsSupport(results_.isSupport);
        target_->GetProperties().SetIsSupposedSolid(results_.isSupposedSolid);
    }
    return true;
}
} // namespace KelSDK::Triangles::IO
