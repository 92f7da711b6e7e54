#include "NativeFile.h"

#include <KelSDK/FileIO/MFile.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace KelSDK::FileIO
{
namespace
{
constexpr int64_t kDefaultBufferSize = int64_t{1} << 16;
constexpr int64_t kLargestBufferSize = int64_t{1} << 30;
// Written bytes go to the operating system in blocks of at most this size, whatever the buffer
// size: the kernel then copies them while they are still in the CPU's cache (with a 256 KiB
// block the STL writer measured a third slower than with 64 KiB).
constexpr size_t kWriteBlock = size_t{1} << 16;
} // namespace

MFile::MFile(int64_t bufferSize)
    : bufferSize_(static_cast<size_t>(bufferSize <= 0 ? kDefaultBufferSize
                                                      : std::min(bufferSize, kLargestBufferSize)))
{
}

MFile::~MFile()
{
    if (mode_ == Mode::Write && failed_)
    {
        MFile::Abandon();
    }
    else if (mode_ != Mode::Closed)
    {
        MFile::Close();
    }
}

bool MFile::OPEN_READ(const wchar_t* name)
{
    return _Open(name, Mode::Read, false);
}
bool MFile::OPEN_READ(const std::wstring& name)
{
    return _Open(name.c_str(), Mode::Read, false);
}
bool MFile::OPEN_WRITE(const wchar_t* name)
{
    return _Open(name, Mode::Write, false);
}
bool MFile::OPEN_WRITE(const std::wstring& name)
{
    return _Open(name.c_str(), Mode::Write, false);
}
bool MFile::OPEN_ASCII_WRITE(const wchar_t* name)
{
    return _Open(name, Mode::Write, true);
}
bool MFile::OPEN_ASCII_WRITE(const std::wstring& name)
{
    return _Open(name.c_str(), Mode::Write, true);
}

bool MFile::_Open(const wchar_t* name, Mode mode, bool text)
{
    if (mode_ != Mode::Closed)
    {
        Close();
    }
    name_ = name ? name : L"";
    status_ = StatusOk;
    systemError_.clear();
    failed_ = false;
    errno = 0;
    native_ =
        mode == Mode::Read ? Detail::NativeFile::OpenRead(name_) : Detail::NativeFile::OpenWrite(name_, text);
    if (!native_)
    {
        _SetSystemError(StatusOpenFailed);
        return false;
    }
    // Writing only ever fills one block of the buffer; reading uses all of it.
    const size_t needed = mode == Mode::Write ? std::min(bufferSize_, kWriteBlock) : bufferSize_;
    if (storageSize_ < needed)
    {
        storage_.reset(new unsigned char[needed]);
        storageSize_ = needed;
    }
    _ResetBuffer();
    buffer_ = storage_.get();
    mode_ = mode;
    if (mode == Mode::Write)
    {
        writeEnd_ = std::min(bufferSize_, kWriteBlock);
    }
    else
    {
        size_ = native_->Size();
    }
    return true;
}

void MFile::_ResetBuffer()
{
    buffer_ = nullptr;
    pos_ = 0;
    readEnd_ = 0;
    writeEnd_ = 0;
    bufferOffset_ = 0;
    size_ = 0;
    mode_ = Mode::Closed;
}

void MFile::_SetError(int status)
{
    if (status_ == StatusOk)
    {
        status_ = status;
    }
    failed_ = true;
}

void MFile::_SetSystemError(int status)
{
    const int error = errno;
    if (status_ == StatusOk && error != 0)
    {
        systemError_ = std::error_code(error, std::generic_category());
    }
    _SetError(status);
}

bool MFile::_ReadBytes(void* dst, size_t count, size_t size)
{
    if (mode_ != Mode::Read)
    {
        if (count <= std::numeric_limits<size_t>::max() / size && count != 0)
        {
            std::memset(dst, 0, count * size);
        }
        _SetError(StatusNotOpen);
        return false;
    }
    if (count > std::numeric_limits<size_t>::max() / size)
    {
        // No file and no destination can hold this much.
        _SetError(StatusReadPastEnd);
        return false;
    }
    const size_t bytes = count * size;
    if (bytes == 0)
    {
        return true;
    }
    unsigned char* out = static_cast<unsigned char*>(dst);
    const size_t got = _ReadSlow(out, bytes);
    if (got == bytes)
    {
        return true;
    }
    std::memset(out + got, 0, bytes - got);
    _SetError(StatusReadPastEnd);
    return false;
}

// Reading keeps the operating system's position at bufferOffset_ + readEnd_, the end of what the
// buffer holds, so that a refill or a direct read continues right there.
size_t MFile::_ReadSlow(unsigned char* dst, size_t bytes)
{
    size_t done = std::min(bytes, readEnd_ - pos_);
    if (done != 0)
    {
        std::memcpy(dst, buffer_ + pos_, done);
        pos_ += done;
    }
    while (done < bytes)
    {
        const size_t wanted = bytes - done;
        const int64_t filePosition = bufferOffset_ + static_cast<int64_t>(readEnd_);
        if (wanted >= bufferSize_)
        {
            // Large requests go straight into the caller's memory.
            const size_t n = native_->Read(dst + done, wanted);
            bufferOffset_ = filePosition + static_cast<int64_t>(n);
            pos_ = readEnd_ = 0;
            done += n;
            if (n < wanted)
            {
                break;
            }
        }
        else
        {
            const size_t n = native_->Read(buffer_, bufferSize_);
            bufferOffset_ = filePosition;
            readEnd_ = n;
            pos_ = std::min(n, wanted);
            std::memcpy(dst + done, buffer_, pos_);
            done += pos_;
            if (n < bufferSize_ && done < bytes)
            {
                break;
            }
        }
    }
    if (done < bytes && native_->Failed())
    {
        _SetSystemError(StatusReadFailed);
    }
    return done;
}

bool MFile::_WriteBytes(const void* src, size_t count, size_t size)
{
    if (mode_ != Mode::Write)
    {
        _SetError(StatusNotOpen);
        return false;
    }
    if (count > std::numeric_limits<size_t>::max() / size)
    {
        _SetError(StatusWriteFailed);
        return false;
    }
    if (count == 0)
    {
        return true;
    }
    return _WriteSlow(static_cast<const unsigned char*>(src), count * size);
}

bool MFile::_WriteSwapped(const void* src, size_t count, size_t size)
{
    unsigned char block[4096];
    const size_t perBlock = sizeof(block) / size;
    const unsigned char* in = static_cast<const unsigned char*>(src);
    bool ok = count != 0 || _WriteBytes(src, 0, size);
    while (ok && count != 0)
    {
        const size_t n = std::min(count, perBlock);
        std::memcpy(block, in, n * size);
        Detail::ReverseEach(block, n, size);
        ok = _WriteBytes(block, n, size);
        in += n * size;
        count -= n;
    }
    return ok;
}

// Writing keeps the operating system's position at bufferOffset_, where buffer_[0] belongs.
bool MFile::_FlushBuffer()
{
    if (pos_ == 0)
    {
        return true;
    }
    const bool ok = native_->Write(buffer_, pos_);
    bufferOffset_ += static_cast<int64_t>(pos_);
    size_ = std::max(size_, bufferOffset_);
    pos_ = 0;
    if (!ok)
    {
        _SetSystemError(StatusWriteFailed);
    }
    return ok;
}

bool MFile::_WriteSlow(const unsigned char* src, size_t bytes)
{
    const size_t fits = std::min(bytes, writeEnd_ - pos_);
    std::memcpy(buffer_ + pos_, src, fits);
    pos_ += fits;
    src += fits;
    bytes -= fits;
    if (bytes == 0)
    {
        return true;
    }
    if (!_FlushBuffer())
    {
        return false;
    }
    if (bytes >= writeEnd_)
    {
        const bool ok = native_->Write(src, bytes);
        bufferOffset_ += static_cast<int64_t>(bytes);
        size_ = std::max(size_, bufferOffset_);
        if (!ok)
        {
            _SetSystemError(StatusWriteFailed);
        }
        return ok;
    }
    std::memcpy(buffer_, src, bytes);
    pos_ = bytes;
    return true;
}

int64_t MFile::GetSize() const
{
    if (mode_ == Mode::Write)
    {
        return std::max(size_, bufferOffset_ + static_cast<int64_t>(pos_));
    }
    return size_;
}

int64_t MFile::GetRemaining() const
{
    if (mode_ != Mode::Read)
    {
        return 0;
    }
    const int64_t position = bufferOffset_ + static_cast<int64_t>(pos_);
    return position < size_ ? size_ - position : 0;
}

int64_t MFile::Tell()
{
    return bufferOffset_ + static_cast<int64_t>(pos_);
}

bool MFile::_CanSeek(int64_t absolutePosition)
{
    if (mode_ == Mode::Closed)
    {
        _SetError(StatusNotOpen);
        return false;
    }
    if (absolutePosition < 0 || absolutePosition > GetSize())
    {
        _SetError(StatusSeekFailed);
        return false;
    }
    return true;
}

bool MFile::Seek(int64_t absolutePosition)
{
    if (!_CanSeek(absolutePosition))
    {
        return false;
    }
    if (mode_ == Mode::Read)
    {
        // Inside the buffer only the cursor moves.
        if (absolutePosition >= bufferOffset_ &&
            absolutePosition - bufferOffset_ <= static_cast<int64_t>(readEnd_))
        {
            pos_ = static_cast<size_t>(absolutePosition - bufferOffset_);
            return true;
        }
        pos_ = readEnd_ = 0;
        bufferOffset_ = absolutePosition;
        if (!native_->Seek(absolutePosition))
        {
            _SetSystemError(StatusSeekFailed);
            return false;
        }
        return true;
    }
    if (!_FlushBuffer())
    {
        return false;
    }
    if (absolutePosition != bufferOffset_)
    {
        if (!native_->Seek(absolutePosition))
        {
            _SetSystemError(StatusSeekFailed);
            return false;
        }
        bufferOffset_ = absolutePosition;
    }
    return true;
}

bool MFile::Flush()
{
    if (mode_ != Mode::Write)
    {
        return mode_ == Mode::Read;
    }
    const bool ok = _FlushBuffer();
    if (ok && !native_->Flush())
    {
        _SetSystemError(StatusWriteFailed);
        return false;
    }
    return ok;
}

bool MFile::_CloseNative(bool commit)
{
    bool ok = true;
    if (mode_ == Mode::Write && commit)
    {
        ok = _FlushBuffer() && !failed_;
    }
    const bool writing = mode_ == Mode::Write;
    const bool closed = native_->Close(commit && ok);
    native_.reset();
    _ResetBuffer();
    if (commit && ok && !closed)
    {
        _SetSystemError(writing ? StatusCommitFailed : StatusReadFailed);
        ok = false;
    }
    return ok;
}

bool MFile::Close()
{
    if (mode_ == Mode::Closed)
    {
        return !failed_;
    }
    _CloseNative(!failed_);
    return !failed_;
}

void MFile::Abandon()
{
    if (mode_ != Mode::Closed)
    {
        _CloseNative(false);
    }
}

bool MFile::WRITE_STRING(const char* text)
{
    if (!text)
    {
        return _WriteBytes(text, 0, 1);
    }
    const size_t length = std::strlen(text);
    return length == 0 ? _WriteBytes(text, 0, 1) : WRITE(text, length);
}

// Narrow string data: uint32 byte count, then the bytes; no terminator.
bool MFile::WRITE_STRING_DATA(const std::string& text)
{
    if (text.size() > std::numeric_limits<uint32_t>::max())
    {
        _SetError(StatusWriteFailed);
        return false;
    }
    const uint32_t count = static_cast<uint32_t>(text.size());
    return WRITE(&count, 1) && (count == 0 || WRITE(text.data(), count));
}

bool MFile::READ_STRING_DATA(std::string& text)
{
    text.clear();
    uint32_t count = 0;
    if (!READ(&count, 1))
    {
        return false;
    }
    // The count sizes an allocation: it must fit in what the file still holds.
    if (count > GetRemaining())
    {
        _SetError(StatusBadData);
        return false;
    }
    text.resize(count);
    return count == 0 || READ(&text[0], count);
}

namespace
{
// Appends the UTF-16 units of one native wide character; returns how many (1 or 2).
size_t EncodeUtf16(wchar_t c, uint16_t* out)
{
    if constexpr (sizeof(wchar_t) == 2)
    {
        out[0] = static_cast<uint16_t>(c);
        return 1;
    }
    else
    {
        const uint32_t cp = static_cast<uint32_t>(c);
        if (cp < 0x10000)
        {
            // Lone surrogates stay as they are, so that what was read comes back unchanged.
            out[0] = static_cast<uint16_t>(cp);
            return 1;
        }
        if (cp > 0x10FFFF)
        {
            out[0] = 0xFFFD;
            return 1;
        }
        const uint32_t v = cp - 0x10000;
        out[0] = static_cast<uint16_t>(0xD800 + (v >> 10));
        out[1] = static_cast<uint16_t>(0xDC00 + (v & 0x3FF));
        return 2;
    }
}
} // namespace

// Wide string: uint32 count of UTF-16 code units, then the units little-endian; no terminator.
// Characters above U+FFFF become surrogate pairs where wchar_t holds UTF-32.
bool MFile::WRITE_STRING_RAW(const wchar_t* zeroTerminated)
{
    if (!zeroTerminated)
    {
        zeroTerminated = L"";
    }
    uint64_t units = 0;
    uint16_t pair[2];
    const wchar_t* end = zeroTerminated;
    for (; *end; ++end)
    {
        units += EncodeUtf16(*end, pair);
    }
    if (units > std::numeric_limits<uint32_t>::max())
    {
        _SetError(StatusWriteFailed);
        return false;
    }
    const uint32_t count = static_cast<uint32_t>(units);
    if (!WRITE(&count, 1))
    {
        return false;
    }
    uint16_t block[1024];
    size_t used = 0;
    for (const wchar_t* c = zeroTerminated; c != end; ++c)
    {
        if (used + 2 > sizeof(block) / sizeof(block[0]))
        {
            if (!WRITE(block, used))
            {
                return false;
            }
            used = 0;
        }
        used += EncodeUtf16(*c, block + used);
    }
    return used == 0 || WRITE(block, used);
}

bool MFile::READ_STRING_RAW(std::wstring& text)
{
    text.clear();
    uint32_t count = 0;
    if (!READ(&count, 1))
    {
        return false;
    }
    if (count > GetRemaining() / 2)
    {
        _SetError(StatusBadData);
        return false;
    }
    text.reserve(count);
    uint16_t block[1024];
    uint16_t pendingHigh = 0; // a high surrogate waiting for its low half (UTF-32 wchar_t only)
    size_t left = count;
    while (left != 0)
    {
        const size_t n = std::min(left, sizeof(block) / sizeof(block[0]));
        if (!READ(block, n))
        {
            text.clear();
            return false;
        }
        left -= n;
        for (size_t i = 0; i < n; ++i)
        {
            const uint16_t unit = block[i];
            if constexpr (sizeof(wchar_t) == 2)
            {
                text.push_back(static_cast<wchar_t>(unit));
            }
            else
            {
                if (pendingHigh != 0)
                {
                    if (unit >= 0xDC00 && unit <= 0xDFFF)
                    {
                        const uint32_t cp =
                            0x10000 + ((uint32_t{pendingHigh} - 0xD800) << 10) + (unit - 0xDC00u);
                        text.push_back(static_cast<wchar_t>(cp));
                        pendingHigh = 0;
                        continue;
                    }
                    text.push_back(static_cast<wchar_t>(pendingHigh));
                    pendingHigh = 0;
                }
                if (unit >= 0xD800 && unit <= 0xDBFF)
                {
                    pendingHigh = unit;
                }
                else
                {
                    text.push_back(static_cast<wchar_t>(unit));
                }
            }
        }
    }
    if (pendingHigh != 0)
    {
        text.push_back(static_cast<wchar_t>(pendingHigh));
    }
    return true;
}

// Byte array of 32-bit values: one byte w (1..4, the fewest bytes that hold the largest value,
// 1 for an empty or all-zero array), then each value in w bytes, little-endian. No count.
bool MFile::WRITE_AS_BYTE_ARRAY(const uint32_t* values, size_t count)
{
    uint32_t largest = 0;
    for (size_t i = 0; i < count; ++i)
    {
        largest = std::max(largest, values[i]);
    }
    const unsigned char width = largest > 0xFFFFFFu ? 4 : largest > 0xFFFFu ? 3 : largest > 0xFFu ? 2 : 1;
    if (!WRITE(&width, 1))
    {
        return false;
    }
    if (width == 4 || count == 0)
    {
        return count == 0 || WRITE(values, count);
    }
    unsigned char block[3 * 1024];
    while (count != 0)
    {
        const size_t n = std::min(count, sizeof(block) / width);
        unsigned char* out = block;
        for (size_t i = 0; i < n; ++i)
        {
            const uint32_t v = values[i];
            for (unsigned b = 0; b < width; ++b)
            {
                *out++ = static_cast<unsigned char>(v >> (8 * b));
            }
        }
        if (!WRITE(block, n * width))
        {
            return false;
        }
        values += n;
        count -= n;
    }
    return true;
}

bool MFile::READ_AS_BYTE_ARRAY(uint32_t* values, size_t count)
{
    unsigned char width = 0;
    const bool gotWidth = READ(&width, 1);
    if (!gotWidth || width < 1 || width > 4)
    {
        if (count != 0)
        {
            std::memset(values, 0, count * sizeof(uint32_t));
        }
        if (gotWidth)
        {
            _SetError(StatusBadData);
        }
        return false;
    }
    if (width == 4)
    {
        return READ(values, count);
    }
    unsigned char block[3 * 1024];
    bool ok = true;
    while (count != 0)
    {
        const size_t n = std::min(count, sizeof(block) / width);
        // A short read zero-fills the block, so the missing values come out as 0.
        ok = READ(block, n * width) && ok;
        const unsigned char* in = block;
        for (size_t i = 0; i < n; ++i)
        {
            uint32_t v = 0;
            for (unsigned b = 0; b < width; ++b)
            {
                v |= uint32_t{*in++} << (8 * b);
            }
            values[i] = v;
        }
        values += n;
        count -= n;
    }
    return ok;
}
} // namespace KelSDK::FileIO
