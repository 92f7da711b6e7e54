#include <KelSDK/FileIO/MFile.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace KelSDK::FileIO
{
// A memory file uses data_ itself as the buffer: reading sees all bytes at once (the slow path
// only runs at the end), writing grows the vector when the buffer is full. size_ is the file
// size when reading and the largest position written when writing; data_ is cut to it on Flush.

MMemoryFile::MMemoryFile() : MFile(1) {}

MMemoryFile::~MMemoryFile()
{
    if (mode_ != Mode::Closed)
    {
        MMemoryFile::Close();
    }
}

void MMemoryFile::_AttachData()
{
    buffer_ = data_.data();
    bufferOffset_ = 0;
    if (mode_ == Mode::Read)
    {
        readEnd_ = data_.size();
        writeEnd_ = 0;
    }
    else
    {
        readEnd_ = 0;
        writeEnd_ = data_.size();
    }
}

bool MMemoryFile::OpenRead(const void* data, size_t size)
{
    if (!data && size != 0)
    {
        Close();
        status_ = StatusOk;
        failed_ = false;
        _SetError(StatusOpenFailed);
        return false;
    }
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    return OpenRead(size == 0 ? std::vector<uint8_t>() : std::vector<uint8_t>(bytes, bytes + size));
}

bool MMemoryFile::OpenRead(std::vector<uint8_t> data)
{
    Close();
    status_ = StatusOk;
    failed_ = false;
    data_ = std::move(data);
    pos_ = 0;
    mode_ = Mode::Read;
    size_ = static_cast<int64_t>(data_.size());
    _AttachData();
    return true;
}

bool MMemoryFile::OpenWrite()
{
    Close();
    status_ = StatusOk;
    failed_ = false;
    data_.clear();
    pos_ = 0;
    size_ = 0;
    mode_ = Mode::Write;
    _AttachData();
    return true;
}

bool MMemoryFile::_Open(const wchar_t* name, Mode mode, bool text)
{
    (void)text;
    if (mode == Mode::Write)
    {
        OpenWrite();
        name_ = name ? name : L"";
        return true;
    }
    Close();
    name_ = name ? name : L"";
    status_ = StatusOk;
    failed_ = false;
    _SetError(StatusNotSupported);
    return false;
}

std::vector<uint8_t> MMemoryFile::TakeData()
{
    Close();
    std::vector<uint8_t> result = std::move(data_);
    data_.clear();
    return result;
}

size_t MMemoryFile::_ReadSlow(unsigned char* dst, size_t bytes)
{
    const size_t n = std::min(bytes, readEnd_ - pos_);
    if (n != 0)
    {
        std::memcpy(dst, buffer_ + pos_, n);
        pos_ += n;
    }
    return n;
}

bool MMemoryFile::_WriteSlow(const unsigned char* src, size_t bytes)
{
    if (bytes > std::numeric_limits<size_t>::max() / 2 - pos_)
    {
        _SetError(StatusWriteFailed);
        return false;
    }
    const size_t needed = pos_ + bytes;
    if (needed > data_.size())
    {
        // Doubling keeps appends amortised O(1).
        data_.resize(std::max({needed, data_.size() * 2, size_t{256}}));
        _AttachData();
    }
    std::memcpy(buffer_ + pos_, src, bytes);
    pos_ += bytes;
    return true;
}

bool MMemoryFile::Seek(int64_t absolutePosition)
{
    if (!_CanSeek(absolutePosition))
    {
        return false;
    }
    if (mode_ == Mode::Write)
    {
        size_ = std::max(size_, static_cast<int64_t>(pos_));
    }
    pos_ = static_cast<size_t>(absolutePosition);
    return true;
}

bool MMemoryFile::Flush()
{
    if (mode_ != Mode::Write)
    {
        return mode_ == Mode::Read;
    }
    size_ = std::max(size_, static_cast<int64_t>(pos_));
    data_.resize(static_cast<size_t>(size_));
    _AttachData();
    return true;
}

bool MMemoryFile::Close()
{
    if (mode_ == Mode::Write)
    {
        Flush();
    }
    buffer_ = nullptr;
    pos_ = readEnd_ = writeEnd_ = 0;
    mode_ = Mode::Closed;
    return !failed_;
}

void MMemoryFile::Abandon()
{
    if (mode_ == Mode::Write)
    {
        data_.clear();
    }
    buffer_ = nullptr;
    pos_ = readEnd_ = writeEnd_ = 0;
    mode_ = Mode::Closed;
}
} // namespace KelSDK::FileIO
