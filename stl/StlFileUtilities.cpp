#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Common/StringUtilities.h>
#include <KelSDK/Triangles/IO/StlFileUtilities.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <istream>

namespace KelSDK::Triangles::IO::StlFileUtilities
{
namespace
{
// Bytes looked at by IsAscii.
constexpr std::size_t kSniffSize = 300;
// Bytes of a binary header.
constexpr std::size_t kHeaderSize = 80;

bool Contains(const char* text, std::size_t length, const char* phrase)
{
    const std::size_t n = std::strlen(phrase);
    return std::search(text, text + length, phrase, phrase + n) != text + length;
}
} // namespace

bool OpenInputFile(std::ifstream& stream, const std::wstring& fileName)
{
#if defined(_WIN32)
    // The wide-name open of the Microsoft library shares reading with other processes.
    stream.open(fileName.c_str(), std::ios::in | std::ios::binary);
#else
    stream.open(KelSDK::Common::StringConversion::NativeToUtf8(fileName), std::ios::in | std::ios::binary);
#endif
    return stream.is_open() && stream.good();
}

bool IsAscii(std::istream& stream)
{
    // The size is the end position, so a stream that is not at its start cannot supply that many bytes
    // and the answer is false.
    const std::streampos start = stream.tellg();
    stream.seekg(0, std::ios::end);
    const std::streampos end = stream.tellg();
    stream.seekg(start);
    if (!stream.good() || start == std::streampos(-1) || end == std::streampos(-1))
        return false;

    char bytes[kSniffSize];
    const std::size_t n = static_cast<std::size_t>(
        std::min<uint64_t>(static_cast<uint64_t>(static_cast<std::streamoff>(end)), kSniffSize));
    stream.read(bytes, static_cast<std::streamsize>(n));
    if (!stream.good())
        return false;
    stream.seekg(start);

    // An ASCII file starts with "solid"; a binary header may too, so the decision rests on the facet
    // phrases. Without "solid" only the bytes after a binary header's 80 are searched.
    std::size_t from = 0;
    const bool startsWithSolid =
        n >= 5 && KelSDK::Common::StringUtilities::StartsWithNoCase(std::string_view(bytes, n), "solid");
    if (!startsWithSolid)
    {
        if (n < kHeaderSize + 1)
            return false;
        from = kHeaderSize;
    }
    for (std::size_t i = from; i < n; ++i)
    {
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c >= 'A' && c <= 'Z')
            bytes[i] = static_cast<char>(c - 'A' + 'a');
    }
    if (Contains(bytes + from, n - from, "facet normal"))
        return true;
    return Contains(bytes + from, n - from, "outer loop");
}

bool IsAscii(const std::wstring& fileName)
{
    std::ifstream stream;
    if (!OpenInputFile(stream, fileName))
        return false;
    return IsAscii(stream);
}

bool VerifyHeaderConsistency(const std::wstring& fileName)
{
    if (IsAscii(fileName))
        return true;
    std::ifstream stream;
    if (!OpenInputFile(stream, fileName))
        return false;
    stream.seekg(0, std::ios::end);
    const std::streamoff endPosition = stream.tellg();
    stream.seekg(0);
    if (!stream.good() || endPosition < 0)
        return false;
    const uint64_t size = static_cast<uint64_t>(endPosition);
    if (size < kHeaderSize + 4)
        return false;

    const auto readCount = [&stream]() -> uint64_t
    {
        unsigned char word[4];
        if (!stream.read(reinterpret_cast<char*>(word), 4))
            return 0;
        return static_cast<uint64_t>(word[0]) | (static_cast<uint64_t>(word[1]) << 8) |
               (static_cast<uint64_t>(word[2]) << 16) | (static_cast<uint64_t>(word[3]) << 24);
    };
    stream.seekg(static_cast<std::streamoff>(kHeaderSize));
    uint64_t expectedEnd = kHeaderSize + 4 + 50 * readCount();
    if (size < expectedEnd)
        return false;
    // Further blocks: a 4-byte count and its facets each. A count that cannot be read counts as 0,
    // so the walk advances at least 4 bytes per step.
    while (expectedEnd < size)
    {
        stream.clear();
        stream.seekg(static_cast<std::streamoff>(expectedEnd));
        expectedEnd += 4 + 50 * readCount();
    }
    return expectedEnd == size;
}

MStlReadTransformation SuggestReadTransformation(const KelSDK::Math::boundingbox<double, 3>& box,
                                                 const KelSDK::Math::point<double, 3>& referencePoint,
                                                 double scale)
{
    MStlReadTransformation result(KelSDK::Math::point<double, 3>(), scale);
    const double upper = 2147483646.0 / scale;
    const double lower = -2147483647.0 / scale;
    const auto& lo = box.GetMin();
    const auto& hi = box.GetMax();
    bool fits = true;
    for (std::size_t axis = 0; axis < 3; ++axis)
    {
        if (!(lo[axis] >= lower && hi[axis] <= upper))
            fits = false;
    }
    if (fits)
        return result;

    double largest = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis)
    {
        result.offset[axis] = referencePoint[axis] - (lo[axis] + hi[axis]) * 0.5;
        largest = std::max(largest, std::fabs((result.offset[axis] + lo[axis]) * scale));
        largest = std::max(largest, std::fabs((result.offset[axis] + hi[axis]) * scale));
    }
    // Ends for every m: an infinite m stops once the factor has underflowed to zero (0 * inf is NaN).
    double factor = 1.0;
    while (factor * largest > 2147483647.0)
        factor /= 10.0;
    result.scale = factor * scale;
    return result;
}
} // namespace KelSDK::Triangles::IO::StlFileUtilities
