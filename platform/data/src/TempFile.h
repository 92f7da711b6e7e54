// An anonymous temporary file with a write buffer and a small read cache, used by the OnDisk
// store. The file is created with std::tmpfile(), which removes it when it is closed or the
// process ends (on POSIX it is already unlinked when it is returned).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace KelSDK::Triangles::Data
{
class TempFile
{
public:
    TempFile() = default;
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    // Appends bytes at the end; false when the file cannot be created or written.
    bool Append(const void* data, size_t size);
    // Writes the buffered bytes to the file.
    bool Flush();
    // Reads bytes at an offset (data still in the write buffer included); false beyond the end.
    bool Read(uint64_t offset, void* out, size_t size) const;
    // Total bytes appended.
    uint64_t Size() const { return flushed_ + buffer_.size(); }
    // Forgets the contents: the file is closed (and so removed) and a new one made on demand.
    void Reset();
    // Releases the write buffer and the read cache (kept closed until used again).
    void ReleaseBuffers();
    bool HasFailed() const { return failed_; }
    // True while an operating-system file exists for this object.
    bool IsCreated() const { return file_ != nullptr; }

private:
    bool Create();
    bool ReadFromFile(uint64_t offset, void* out, size_t size) const;

    static constexpr size_t WriteBufferSize = 1u << 20;
    static constexpr size_t CacheBlockSize = 32u << 10;
    static constexpr size_t CacheBlocks = 256;

    FILE* file_ = nullptr;
    std::vector<unsigned char> buffer_;
    uint64_t flushed_ = 0;
    bool failed_ = false;
    mutable std::vector<unsigned char> cache_;
    mutable std::vector<uint64_t> cacheTags_;  // block number + 1; 0 for an empty slot
    mutable std::vector<uint32_t> cacheValid_; // valid bytes of the cached block
};
} // namespace KelSDK::Triangles::Data
