#include "TempFile.h"

#include <algorithm>
#include <cstring>

namespace KelSDK::Triangles::Data
{
namespace
{
// 64-bit positioning of stdio streams.
bool SeekAbsolute(FILE* file, uint64_t offset)
{
#if defined(_WIN32)
    return _fseeki64(file, static_cast<__int64>(offset), SEEK_SET) == 0;
#else
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}
} // namespace

TempFile::~TempFile()
{
    if (file_)
        std::fclose(file_);
}

bool TempFile::Create()
{
    if (file_)
        return true;
    file_ = std::tmpfile();
    if (!file_)
        failed_ = true;
    return file_ != nullptr;
}

bool TempFile::Append(const void* data, size_t size)
{
    if (failed_)
        return false;
    if (buffer_.capacity() < WriteBufferSize)
        buffer_.reserve(WriteBufferSize);
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    while (size > 0)
    {
        const size_t room = WriteBufferSize - buffer_.size();
        const size_t n = std::min(room, size);
        buffer_.insert(buffer_.end(), bytes, bytes + n);
        bytes += n;
        size -= n;
        if (buffer_.size() == WriteBufferSize && !Flush())
            return false;
    }
    return true;
}

bool TempFile::Flush()
{
    if (failed_)
        return false;
    if (buffer_.empty())
        return true;
    if (!Create() || !SeekAbsolute(file_, flushed_) ||
        std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size())
    {
        failed_ = true;
        return false;
    }
    // A cached block that ended at the old end of the file is now incomplete; its valid length
    // makes the next read of the new bytes reload it.
    flushed_ += buffer_.size();
    buffer_.clear();
    return true;
}

bool TempFile::ReadFromFile(uint64_t offset, void* out, size_t size) const
{
    return file_ && SeekAbsolute(file_, offset) && std::fread(out, 1, size, file_) == size;
}

bool TempFile::Read(uint64_t offset, void* out, size_t size) const
{
    if (size > Size() || offset > Size() - size)
        return false;
    unsigned char* dst = static_cast<unsigned char*>(out);
    if (cache_.empty())
    {
        cache_.resize(CacheBlockSize * CacheBlocks);
        cacheTags_.assign(CacheBlocks, 0);
        cacheValid_.assign(CacheBlocks, 0);
    }
    while (size > 0)
    {
        if (offset >= flushed_)
        {
            std::memcpy(dst, buffer_.data() + (offset - flushed_), size);
            return true;
        }
        const uint64_t block = offset / CacheBlockSize;
        const size_t within = static_cast<size_t>(offset % CacheBlockSize);
        const size_t slot = static_cast<size_t>(block % CacheBlocks);
        unsigned char* cached = cache_.data() + slot * CacheBlockSize;
        const uint64_t blockStart = block * CacheBlockSize;
        const size_t available =
            static_cast<size_t>(std::min<uint64_t>(CacheBlockSize, flushed_ - blockStart));
        if (cacheTags_[slot] != block + 1 || cacheValid_[slot] < available)
        {
            if (!ReadFromFile(blockStart, cached, available))
                return false;
            cacheTags_[slot] = block + 1;
            cacheValid_[slot] = static_cast<uint32_t>(available);
        }
        const size_t n = std::min(size, available - within);
        std::memcpy(dst, cached + within, n);
        dst += n;
        offset += n;
        size -= n;
    }
    return true;
}

void TempFile::Reset()
{
    if (file_)
        std::fclose(file_);
    file_ = nullptr;
    buffer_.clear();
    flushed_ = 0;
    failed_ = false;
    std::fill(cacheTags_.begin(), cacheTags_.end(), 0);
}

void TempFile::ReleaseBuffers()
{
    Flush();
    buffer_ = std::vector<unsigned char>();
    cache_ = std::vector<unsigned char>();
    cacheTags_ = std::vector<uint64_t>();
    cacheValid_ = std::vector<uint32_t>();
}
} // namespace KelSDK::Triangles::Data
