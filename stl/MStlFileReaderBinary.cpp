#include "MStlFacetLists.h"
#include "MStlFileTriangleBinary.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/IO/MStlFileReaderBinary.h>

#include <algorithm>
#include <cstring>
#include <istream>

namespace KelSDK::Triangles::IO
{
namespace
{
constexpr uint64_t kFacetSize = MStlFileTriangle::BINARY_SIZE;
// Facets fetched with one istream::read: 4096 * 50 bytes = 200 KiB.
constexpr uint64_t kFacetsPerRead = 4096;

enum class WordRead
{
    Ok,
    End,
    Failed
};

// Reads a little-endian 32-bit count; tells the end of the input apart from other failures.
WordRead ReadCount(std::istream& stream, uint64_t& count)
{
    unsigned char word[4];
    stream.read(reinterpret_cast<char*>(word), 4);
    if (stream.gcount() != 4)
        return stream.eof() ? WordRead::End : WordRead::Failed;
    count = Detail::LoadU32(word);
    return WordRead::Ok;
}

// Reads n facets of one block and appends them to a solid of the sink, keeping the complete ones when
// the input ends early (result 1).
MStlFileReaderBinary::ErrorCode ReadBlock(std::istream& stream, Detail::BinaryFacetSink& sink, size_t solid,
                                          uint64_t n, KelSDK::Common::IncrementalProgressReporter& progress,
                                          std::vector<unsigned char>& buffer)
{
    uint64_t done = 0;
    while (done < n)
    {
        const uint64_t want = std::min(n - done, kFacetsPerRead);
        const std::size_t bytes = static_cast<std::size_t>(want * kFacetSize);
        if (buffer.size() < bytes)
            buffer.resize(bytes);
        stream.read(reinterpret_cast<char*>(buffer.data()), static_cast<std::streamsize>(bytes));
        const std::size_t got = static_cast<std::size_t>(stream.gcount());
        const std::size_t complete = got / kFacetSize;
        sink.AppendBinary(solid, buffer.data(), complete);
        for (std::size_t i = 0; i < complete; ++i)
            ++progress;
        if (got != bytes)
            return MStlFileReaderBinary::StreamError;
        done += want;
    }
    return MStlFileReaderBinary::Ok;
}

bool Matches(const unsigned char* header, std::size_t at, const char* literal)
{
    const std::size_t n = std::strlen(literal);
    return at <= MStlFileReaderBinary::HEADER_SIZE && n <= MStlFileReaderBinary::HEADER_SIZE - at &&
           std::memcmp(header + at, literal, n) == 0;
}
} // namespace

MStlFileReaderBinary::MStlFileReaderBinary(std::istream& stream) : stream_(stream) {}

void MStlFileReaderBinary::SetOptions(const Options& options)
{
    options_ = options;
}

// Establishes the facet count of every block by seeking, without reading facets. The stream is
// just after the header, and is left just after the first count. rest (R) receives the number of
// bytes after the first count.
MStlFileReaderBinary::ErrorCode MStlFileReaderBinary::_DetermineCounts(std::vector<uint64_t>& counts,
                                                                       uint64_t& rest)
{
    counts.clear();
    uint64_t count = 0;
    switch (ReadCount(stream_, count))
    {
    case WordRead::End:
        return HeaderTruncated;
    case WordRead::Failed:
        return StreamError;
    case WordRead::Ok:
        break;
    }
    counts.push_back(count);

    const std::streampos here = stream_.tellg();
    stream_.seekg(0, std::ios::end);
    const std::streampos end = stream_.tellg();
    stream_.seekg(here);
    if (!stream_.good() || here == std::streampos(-1) || end == std::streampos(-1))
        return StreamError;
    const std::streamoff hereOffset = here;
    const std::streamoff endOffset = end;
    rest = endOffset > hereOffset ? static_cast<uint64_t>(endOffset - hereOffset) : 0;

    uint64_t r = rest;
    uint64_t last = counts.back();
    if (options_.readMultipleBlocks)
    {
        // Each further block is a 4-byte count followed by its facets; every step moves on by at least
        // the 4 bytes of a count, so the walk ends.
        while (r > kFacetSize * last)
        {
            if (last != 0)
                stream_.seekg(static_cast<std::streamoff>(kFacetSize * last), std::ios::cur);
            r -= kFacetSize * last;
            if (!stream_.good() || ReadCount(stream_, count) != WordRead::Ok || r < 4)
                return StreamError;
            r -= 4;
            counts.push_back(count);
            last = count;
        }
        stream_.seekg(here);
        if (!stream_.good())
            return StreamError;
    }
    if (r == kFacetSize * last)
        return Ok;

    counts.resize(1);
    if (!options_.countFromFileSize)
    {
        if (rest / kFacetSize < counts[0])
            return StreamTooShort;
        return options_.allowTrailingBytes ? Ok : SizeMismatch;
    }
    if (rest % kFacetSize != 0 && !options_.allowTrailingBytes)
        return SizeMismatch;
    counts[0] = rest / kFacetSize;
    return Ok;
}

MStlFileReaderBinary::ErrorCode
MStlFileReaderBinary::Read(FileHeader& header, std::vector<std::vector<MStlFileTriangle>>& facets,
                           std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    Detail::ListSink sink(facets);
    return _Read(header, sink, std::move(progress));
}

MStlFileReaderBinary::ErrorCode MStlFileReaderBinary::_Read(FileHeader& header, Detail::BinaryFacetSink& sink,
                                                            std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    stream_.read(reinterpret_cast<char*>(header.data()), static_cast<std::streamsize>(HEADER_SIZE));
    if (stream_.gcount() != static_cast<std::streamsize>(HEADER_SIZE))
        return stream_.eof() ? HeaderTruncated : StreamError;

    std::vector<uint64_t> counts;
    uint64_t remaining = 0;
    const ErrorCode determined = _DetermineCounts(counts, remaining);
    if (determined != Ok)
        return determined;

    uint64_t total = 0;
    for (uint64_t c : counts)
        total += c;
    KelSDK::Common::IncrementalProgressReporter reporter(
        progress, "KelSDK.Triangles.IO.MStlBinaryFileReader.Read", total, false);
    sink.SetSolidCount(counts.size());

    // The counts were checked against the bytes after the first count, so every reservation is backed
    // by bytes of the stream; the bound by the bytes that remain is kept as a second guard.
    std::vector<unsigned char> buffer;
    for (std::size_t block = 0; block < counts.size(); ++block)
    {
        if (block > 0)
        {
            uint64_t count = 0;
            if (ReadCount(stream_, count) != WordRead::Ok || count != counts[block])
                return StreamError;
            remaining = remaining >= 4 ? remaining - 4 : 0;
        }
        const uint64_t n = counts[block];
        sink.Reserve(block, std::min(n, remaining / kFacetSize));
        const ErrorCode result = ReadBlock(stream_, sink, block, n, reporter, buffer);
        if (result != Ok)
            return result;
        remaining -= std::min(remaining, n * kFacetSize);
    }
    return Ok;
}

// The coloured header, matched byte for byte (case-sensitive):
//   [free text] "COLOR=" R G B A [",MATERIAL=" 4 x uint32] [";ISSUP"] [";SOLID" | ";FACES"] tail
// where the tail is empty or a NUL or blank followed only by blanks up to byte 80. The older form
// "Kelvinstone Coloured STL File_COLOR=" RGBA followed by 40 blanks is recognised first. Anything off
// the grammar after the colour drops all colour information (the default record).
MStlReadResults MStlFileReaderBinary::ExtractHeaderInfo(const FileHeader& header)
{
    const unsigned char* h = header.data();
    const MStlReadResults defaults;
    MStlReadResults result;

    static const char kPrefix[] = "Kelvinstone Coloured STL File_COLOR=";
    constexpr std::size_t kPrefixSize = sizeof kPrefix - 1;
    static_assert(kPrefixSize == 36, "the prefix is 36 bytes");
    if (std::memcmp(h, kPrefix, kPrefixSize) == 0)
    {
        result.hasColor = true;
        result.material.SetRGB(Detail::LoadU32(h + kPrefixSize));
        result.material.SetColorIsReadFromFile(true);
        for (std::size_t i = kPrefixSize + 4; i < HEADER_SIZE; ++i)
        {
            if (h[i] != ' ')
                return defaults;
        }
        return result;
    }

    std::size_t p = 0;
    std::size_t colorAt = HEADER_SIZE;
    for (std::size_t i = 0; i + 6 <= HEADER_SIZE; ++i)
    {
        if (std::memcmp(h + i, "COLOR=", 6) == 0)
        {
            colorAt = i;
            break;
        }
    }
    if (colorAt == HEADER_SIZE)
    {
        result.material.SetColorIsReadFromFile(false);
    }
    else
    {
        result.hasColor = true;
        if (colorAt + 6 > 76)
            return defaults;
        result.material.SetRGB(Detail::LoadU32(h + colorAt + 6));
        p = colorAt + 10;
        if (Matches(h, p, ",MATERIAL=") && p + 10 < 65)
        {
            // Diffuse, specular, ambient and shininess: the material's fields other than the colour.
            result.material.SetDiffuse(Detail::LoadU32(h + p + 10));
            result.material.SetSpecular(Detail::LoadU32(h + p + 14));
            result.material.SetAmbient(Detail::LoadU32(h + p + 18));
            const uint32_t bits = Detail::LoadU32(h + p + 22);
            float shininess;
            std::memcpy(&shininess, &bits, 4);
            result.material.SetShininess(shininess);
            p += 26;
        }
        result.material.SetColorIsReadFromFile(result.hasColor);
    }

    if (Matches(h, p, ";ISSUP"))
    {
        result.isSupport = true;
        p += 6;
    }
    if (Matches(h, p, ";SOLID"))
    {
        result.isSupposedSolid = true;
        p += 6;
    }
    else if (Matches(h, p, ";FACES"))
    {
        result.isSupposedSolid = false;
        p += 6;
    }

    if (p == HEADER_SIZE)
        return result;
    if (h[p] != '\0' && h[p] != ' ')
        return defaults;
    for (std::size_t i = p + 1; i < HEADER_SIZE; ++i)
    {
        if (h[i] != ' ')
            return defaults;
    }
    return result;
}
} // namespace KelSDK::Triangles::IO
