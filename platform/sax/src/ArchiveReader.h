// Reads the entries of a tag-stream archive (libzip over memory) within the bounds that keep a
// hostile archive from exhausting memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSAX::Detail
{
// An archive held in memory. Every entry must be stored or deflated, unencrypted, with a declared
// size that its compressed size can justify (deflate expands at most 1032 times); the compressed
// sizes together may not exceed the archive (no entries sharing data), and the declared sizes
// together, like the bytes actually decompressed, may not exceed maxExpansion times the archive
// size plus allowance. Violations throw MSAXError::MGenericRead.
class ArchiveReader
{
public:
    // data must stay valid while the reader exists. Throws MSAXError::MGenericRead.
    ArchiveReader(const uint8_t* data, size_t size, uint64_t maxExpansion, uint64_t allowance);
    ~ArchiveReader();
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    // The declared size of the entry called name; false if there is none.
    bool EntrySize(const std::string& name, uint64_t& size) const;
    // Decompresses the entry called name into exactly bytes bytes at out, checking its declared
    // size and checksum and the decompression budget. Throws MSAXError::MGenericRead.
    void ReadEntry(const std::string& name, uint8_t* out, size_t bytes);

private:
    struct Zip;
    std::unique_ptr<Zip> zip_;
    uint64_t budget_ = 0;
};
} // namespace KelSAX::Detail
