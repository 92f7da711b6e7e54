#include "MStlFacetBox.h"
#include "MStlFileReaderTargetMemory.h"

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

namespace
{
// The facet count of a binary stream's first block, bounded by the bytes that follow the header;
// 0 when the stream cannot be measured. The stream is left where it was.
uint64_t FirstBlockFacets(std::istream& stream)
{
    const std::streampos start = stream.tellg();
    if (start == std::streampos(-1))
        return 0;
    uint64_t facets = 0;
    unsigned char bytes[84];
    if (stream.read(reinterpret_cast<char*>(bytes), sizeof(bytes)) && stream.seekg(0, std::ios::end))
    {
        const std::streampos end = stream.tellg();
        if (end != std::streampos(-1) && end - start >= 84)
        {
            const uint64_t count = static_cast<uint64_t>(bytes[80]) | static_cast<uint64_t>(bytes[81]) << 8 |
                                   static_cast<uint64_t>(bytes[82]) << 16 |
                                   static_cast<uint64_t>(bytes[83]) << 24;
            const uint64_t room = (static_cast<uint64_t>(end - start) - 84) / 50;
            facets = count < room ? count : room;
        }
    }
    stream.clear();
    stream.seekg(start);
    return facets;
}
} // namespace

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

bool MStlFileReader::Read(std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    std::ifstream file;
    std::istream* input = stream_;
    if (!fileName_.empty())
    {
        StlFileUtilities::OpenInputFile(file, fileName_);
        input = &file;
    }
    if (input == nullptr || !input->good())
        return false;

    const bool ascii =
        fileName_.empty() ? StlFileUtilities::IsAscii(*input) : StlFileUtilities::IsAscii(fileName_);
    std::vector<std::vector<MStlFileTriangle>> facets;
    std::vector<std::string> names;
    if (ascii)
    {
        MStlFileReaderAscii reader(*input);
        if (reader.Read(facets, names, progress) != 0)
            return false;
    }
    else
    {
        MStlFileReaderBinary reader(*input);
        MStlFileReaderBinary::Options binaryOptions;
        binaryOptions.readMultipleBlocks = true;
        binaryOptions.countFromFileSize = false;
        binaryOptions.allowTrailingBytes = false;
        reader.SetOptions(binaryOptions);
        // The reader keeps an existing first list and only reserves what it lacks: reserving it here
        // lets the largest buffer of the import be backed by huge pages.
        const uint64_t expected = FirstBlockFacets(*input);
        if (expected > 0)
        {
            facets.resize(1);
            facets[0].reserve(expected);
            Detail::AdviseHugePages(facets[0].data(), expected * sizeof(MStlFileTriangle));
        }
        MStlFileReaderBinary::FileHeader header;
        if (reader.Read(header, facets, progress) != 0)
            return false;
        names.assign(facets.size(), std::string());
        results_ = MStlFileReaderBinary::ExtractHeaderInfo(header);
    }

    wasAscii_ = ascii;
    facetCount_ = 0;
    for (const auto& solid : facets)
        facetCount_ += solid.size();
    boundingBox_ = MeasureFacetCorners(facets);
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

    MStlFileReaderTarget target;
    target.Convert(*target_, facets, names, transformation_, results_.hasColor, boundingBox_);
    if (target.IsError())
        return false;
    results_.isOverflow = results_.isOverflow || target.IsOverflow();

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
