// Reads a binary STL stream (header, count, 50-byte facets) and decodes the coloured header.
#pragma once

#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlReadOptions.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

namespace KelSDK::Common
{
class IProgressDelegate;
}

namespace KelSDK::Triangles::IO
{
namespace Detail
{
class BinaryFacetSink;
}
class MStlFileReader;

class KELSDK_TRIANGLES_IO_EXPORT MStlFileReaderBinary
{
public:
    // Bytes of the binary header.
    static constexpr uint64_t HEADER_SIZE = 80;

    // The 80 header bytes exactly as read.
    using FileHeader = std::array<unsigned char, 80>;

    // How a mismatch between the declared count and the stream size is treated (all false).
    struct Options
    {
        // Read further count-and-facets blocks after the first one, each as one solid.
        bool readMultipleBlocks = false;
        // Take the count from the size when the declared count does not match it.
        bool countFromFileSize = false;
        // Tolerate bytes beyond what the count needs.
        bool allowTrailingBytes = false;
    };

    enum ErrorCode : int
    {
        Ok = 0,              // success
        StreamError = 1,     // stream failure, a block that ends early, or an inconsistent further block
        HeaderTruncated = 2, // end of input inside the header or the first count
        StreamTooShort = 3,  // fewer bytes than the declared count needs
        SizeMismatch = 4     // size inconsistent with the count, not tolerated by the options
    };

    // Reads from stream (not owned; must outlive the reader); options all false.
    explicit MStlFileReaderBinary(std::istream& stream);

    // Copies the three options.
    void SetOptions(const Options& options);
    // Reads header and facets into facets (one inner list per block); returns the error code, keeping
    // the complete facets read before a failure.
    ErrorCode Read(FileHeader& header, std::vector<std::vector<MStlFileTriangle>>& facets,
                   std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
    // Decodes "COLOR=", ",MATERIAL=", ";ISSUP", ";SOLID", ";FACES"; the default record when the header
    // does not follow the convention.
    static MStlReadResults ExtractHeaderInfo(const FileHeader& header);

private:
    friend class MStlFileReader;
    // Read into any facet sink (the read driver's lean store).
    ErrorCode _Read(FileHeader& header, Detail::BinaryFacetSink& sink,
                    std::shared_ptr<KelSDK::Common::IProgressDelegate> progress);
    ErrorCode _DetermineCounts(std::vector<uint64_t>& counts, uint64_t& rest);

    std::istream& stream_;
    Options options_;
};
} // namespace KelSDK::Triangles::IO
