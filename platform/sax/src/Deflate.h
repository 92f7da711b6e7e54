// Raw deflate of archive entries, compressed in parallel chunks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KelSAX::Detail
{
// One archive entry's data, ready to be stored: deflated (or stored as it is), with the size and
// CRC-32 of the uncompressed bytes.
struct EntryData
{
    std::vector<uint8_t> bytes;
    uint64_t size = 0;
    uint32_t crc = 0;
    bool deflated = false;
};

// Deflates bytes bytes at data at level (-1..9; 0 stores) into a raw deflate stream. Chunks of
// 1 MiB are compressed in parallel, each primed with the 32 KiB before it, and joined by sync
// flushes, so the result is one ordinary deflate stream. False (error set) only when zlib fails.
bool MakeEntryData(const void* data, size_t bytes, int level, EntryData& out, std::string& error);
} // namespace KelSAX::Detail
