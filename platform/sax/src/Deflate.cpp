#include "Deflate.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <zlib.h>

namespace KelSAX::Detail
{
namespace
{
constexpr size_t kChunk = size_t(1) << 20;
constexpr size_t kWindow = size_t(32) << 10;

// CRC-32 of any length (zlib takes uInt lengths).
uint32_t Crc32(const uint8_t* data, size_t bytes)
{
    uLong crc = crc32(0L, Z_NULL, 0);
    while (bytes != 0)
    {
        const uInt n = static_cast<uInt>(std::min<size_t>(bytes, std::numeric_limits<uInt>::max()));
        crc = crc32(crc, data, n);
        data += n;
        bytes -= n;
    }
    return static_cast<uint32_t>(crc);
}

struct Chunk
{
    std::vector<uint8_t> out;
    uint32_t crc = 0;
    bool ok = false;
};

// Deflates one chunk; the last one finishes the stream, the others end on a byte boundary.
void DeflateChunk(const uint8_t* input, size_t begin, size_t end, bool last, int level, Chunk& chunk)
{
    z_stream z{};
    if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return;
    if (begin != 0)
    {
        const size_t dict = std::min(begin, kWindow);
        deflateSetDictionary(&z, input + begin - dict, static_cast<uInt>(dict));
    }
    const size_t size = end - begin;
    chunk.out.resize(deflateBound(&z, static_cast<uLong>(size)) + 16);
    z.next_in = const_cast<Bytef*>(input + begin);
    z.avail_in = static_cast<uInt>(size);
    z.next_out = chunk.out.data();
    z.avail_out = static_cast<uInt>(chunk.out.size());
    const int status = deflate(&z, last ? Z_FINISH : Z_SYNC_FLUSH);
    chunk.ok = last ? status == Z_STREAM_END : (status == Z_OK && z.avail_in == 0);
    chunk.out.resize(z.total_out);
    deflateEnd(&z);
    chunk.crc = Crc32(input + begin, size);
}
} // namespace

bool MakeEntryData(const void* data, size_t bytes, int level, EntryData& out, std::string& error)
{
    const auto* input = static_cast<const uint8_t*>(data);
    out.size = bytes;
    if (level == 0)
    {
        out.deflated = false;
        out.bytes.assign(input, input + bytes);
        out.crc = Crc32(input, bytes);
        return true;
    }
    out.deflated = true;
    const size_t chunks = std::max<size_t>(1, (bytes + kChunk - 1) / kChunk);
    std::vector<Chunk> parts(chunks);
    auto one = [&](size_t i)
    {
        const size_t begin = i * kChunk;
        const size_t end = std::min(bytes, begin + kChunk);
        DeflateChunk(input, begin, end, i + 1 == chunks, level, parts[i]);
    };
    if (chunks == 1)
        one(0);
    else
        tbb::parallel_for(size_t(0), chunks, one);
    size_t total = 0;
    for (const Chunk& part : parts)
    {
        if (!part.ok)
        {
            error = "zlib could not compress a value";
            return false;
        }
        total += part.out.size();
    }
    out.bytes.clear();
    out.bytes.reserve(total);
    uLong crc = parts[0].crc;
    for (size_t i = 0; i < chunks; ++i)
    {
        out.bytes.insert(out.bytes.end(), parts[i].out.begin(), parts[i].out.end());
        if (i != 0)
        {
            const size_t len = std::min(bytes, (i + 1) * kChunk) - i * kChunk;
            crc = crc32_combine(crc, parts[i].crc, static_cast<z_off_t>(len));
        }
        std::vector<uint8_t>().swap(parts[i].out);
    }
    out.crc = static_cast<uint32_t>(crc);
    return true;
}
} // namespace KelSAX::Detail
