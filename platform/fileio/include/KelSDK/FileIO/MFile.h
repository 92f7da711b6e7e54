// MFile: a buffered binary/text file with typed little-endian array I/O, and MMemoryFile, the
// same interface over a byte vector. Every mesh reader and writer of the SDK goes through it.
#pragma once

#include <KelSDK/FileIO/Export.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#if defined(__GNUC__) || defined(__clang__)
#define KELSDK_FILEIO_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define KELSDK_FILEIO_PRINTF_FORMAT(fmt, args)
#endif

namespace KelSDK::FileIO
{
namespace Detail
{
class NativeFile;

// The scalar types that have one size everywhere. wchar_t (2 or 4 bytes) and long (4 or 8 bytes)
// are left out; where int64_t is long (LP64 systems) long passes as int64_t.
template <typename T>
inline constexpr bool kIsFileScalar =
    std::is_same_v<T, bool> || std::is_same_v<T, char> || std::is_same_v<T, signed char> ||
    std::is_same_v<T, unsigned char> || std::is_same_v<T, short> || std::is_same_v<T, unsigned short> ||
    std::is_same_v<T, int> || std::is_same_v<T, unsigned int> || std::is_same_v<T, long long> ||
    std::is_same_v<T, unsigned long long> || std::is_same_v<T, int64_t> || std::is_same_v<T, uint64_t> ||
    std::is_same_v<T, float> || std::is_same_v<T, double>;

#if defined(__BYTE_ORDER__) && defined(__ORDER_BIG_ENDIAN__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
inline constexpr bool kHostBigEndian = true;
#else
inline constexpr bool kHostBigEndian = false;
#endif

// Reverses the bytes of each of count values of size bytes in place.
inline void ReverseEach(unsigned char* bytes, size_t count, size_t size)
{
    for (size_t i = 0; i < count; ++i, bytes += size)
    {
        for (size_t a = 0, b = size - 1; a < b; ++a, --b)
        {
            const unsigned char t = bytes[a];
            bytes[a] = bytes[b];
            bytes[b] = t;
        }
    }
}

// Turns count values just copied from the file into host values: byte order and bool 0/1.
template <typename T> inline void FinishRead(T* dst, size_t count)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        unsigned char* raw = reinterpret_cast<unsigned char*>(dst);
        for (size_t i = 0; i < count; ++i)
        {
            const unsigned char b = raw[i];
            dst[i] = b != 0;
        }
    }
    else if constexpr (kHostBigEndian && sizeof(T) > 1)
    {
        ReverseEach(reinterpret_cast<unsigned char*>(dst), count, sizeof(T));
    }
    else
    {
        (void)dst;
        (void)count;
    }
}

// Stores count host values little-endian at dst.
template <typename T> inline void StoreLittleEndian(unsigned char* dst, const T* src, size_t count)
{
    std::memcpy(dst, src, count * sizeof(T));
    if constexpr (kHostBigEndian && sizeof(T) > 1)
    {
        ReverseEach(dst, count, sizeof(T));
    }
}
} // namespace Detail

// A buffered file. Binary values are little-endian whatever the host. Writing goes to a
// temporary sibling that replaces the target only when the file is closed without an error.
// Errors are sticky: the first one is kept in GetStatus() until ClearError().
class KELSDK_FILEIO_EXPORT MFile
{
public:
    // Status values; 0 means no error.
    enum EStatus : int
    {
        StatusOk = 0,
        StatusNotOpen = 1,      // operation needs a file open in the other direction, or none is open
        StatusOpenFailed = 2,   // the file could not be opened or created
        StatusReadPastEnd = 3,  // a read wanted more bytes than the file holds
        StatusReadFailed = 4,   // the operating system reported a read error
        StatusWriteFailed = 5,  // the operating system reported a write error (disk full, ...)
        StatusSeekFailed = 6,   // seek to a negative position or past the end
        StatusBadData = 7,      // a count or width read from the file is impossible
        StatusBadFormat = 8,    // FPRINTF format string not understood
        StatusCommitFailed = 9, // the temporary could not replace the target on Close
        StatusNotSupported = 10 // the operation does not exist for this kind of file
    };

    // A closed file whose buffer will hold bufferSize bytes (<= 0: the default of 64 KiB).
    explicit MFile(int64_t bufferSize = 1 << 16);
    // Closes the file; a write holding an error is abandoned (the target stays untouched).
    virtual ~MFile();
    MFile(const MFile&) = delete;
    MFile& operator=(const MFile&) = delete;

    // Opens an existing regular file for binary reading; false (status set) if it cannot.
    bool OPEN_READ(const wchar_t* name);
    bool OPEN_READ(const std::wstring& name);
    // Starts a binary write that replaces name on Close; false (status set) if it cannot.
    bool OPEN_WRITE(const wchar_t* name);
    bool OPEN_WRITE(const std::wstring& name);
    // Starts a text write: POSIX writes the bytes as given; Windows writes "\n" as "\r\n", so
    // there Tell and Seek count the bytes before translation. False (status set) if it cannot.
    bool OPEN_ASCII_WRITE(const wchar_t* name);
    bool OPEN_ASCII_WRITE(const std::wstring& name);

    bool IsOpen() const { return mode_ != Mode::Closed; }
    bool IsOpenForReading() const { return mode_ == Mode::Read; }
    bool IsOpenForWriting() const { return mode_ == Mode::Write; }

    // Reads count little-endian values; past the end the rest is zero-filled, status set, false.
    template <typename T> bool READ(T* dst, size_t count)
    {
        static_assert(Detail::kIsFileScalar<T>,
                      "MFile reads bool, char, 8/16/32/64-bit integers, float and double only "
                      "(wchar_t and long differ in size between platforms)");
        bool ok = true;
        // readEnd_ is 0 unless reading, so a write cursor never passes for readable bytes.
        const size_t available = readEnd_ > pos_ ? readEnd_ - pos_ : 0;
        if (count != 0 && count <= available / sizeof(T))
        {
            std::memcpy(dst, buffer_ + pos_, count * sizeof(T));
            pos_ += count * sizeof(T);
        }
        else
        {
            ok = _ReadBytes(dst, count, sizeof(T));
        }
        Detail::FinishRead(dst, count);
        return ok;
    }
    // Writes count values little-endian; false (status set) on failure.
    template <typename T> bool WRITE(const T* src, size_t count)
    {
        static_assert(Detail::kIsFileScalar<T>,
                      "MFile writes bool, char, 8/16/32/64-bit integers, float and double only "
                      "(wchar_t and long differ in size between platforms)");
        const size_t room = writeEnd_ > pos_ ? writeEnd_ - pos_ : 0;
        if (count != 0 && count <= room / sizeof(T))
        {
            Detail::StoreLittleEndian(buffer_ + pos_, src, count);
            pos_ += count * sizeof(T);
            return true;
        }
        if constexpr (Detail::kHostBigEndian && sizeof(T) > 1)
        {
            return _WriteSwapped(src, count, sizeof(T));
        }
        return _WriteBytes(src, count, sizeof(T));
    }

    // 16- and 32-bit little-endian words (the same bytes as READ/WRITE of those types).
    bool ReadInt16(uint16_t* dst, size_t n) { return READ(dst, n); }
    bool ReadInt16(int16_t* dst, size_t n) { return READ(dst, n); }
    bool ReadInt32(uint32_t* dst, size_t n) { return READ(dst, n); }
    bool ReadInt32(int32_t* dst, size_t n) { return READ(dst, n); }
    bool WriteInt16(const uint16_t* src, size_t n) { return WRITE(src, n); }
    bool WriteInt16(const int16_t* src, size_t n) { return WRITE(src, n); }
    bool WriteInt32(const uint32_t* src, size_t n) { return WRITE(src, n); }
    bool WriteInt32(const int32_t* src, size_t n) { return WRITE(src, n); }

    // Writes the bytes of a zero-terminated text (no terminator, no length); null writes nothing.
    bool WRITE_STRING(const char* text);
    // printf-style text with a decimal point whatever the locale; false on a bad format or write.
    bool FPRINTF(const char* format, ...) KELSDK_FILEIO_PRINTF_FORMAT(2, 3);

    // A narrow string as a uint32 byte count and the bytes; false if longer than 4 GiB - 1.
    bool WRITE_STRING_DATA(const std::string& text);
    // Reads a string written by WRITE_STRING_DATA; a count beyond the file end fails (empty text).
    bool READ_STRING_DATA(std::string& text);
    // A wide string as a uint32 count of UTF-16 units and the units little-endian.
    bool WRITE_STRING_RAW(const wchar_t* zeroTerminated);
    // Reads a string written by WRITE_STRING_RAW; a count beyond the file end fails (empty text).
    bool READ_STRING_RAW(std::wstring& text);
    // Writes one width byte w (1..4, the fewest that hold the largest value) and w bytes per value.
    bool WRITE_AS_BYTE_ARRAY(const uint32_t* values, size_t count);
    // Reads count values written by WRITE_AS_BYTE_ARRAY; a bad width zero-fills and fails.
    bool READ_AS_BYTE_ARRAY(uint32_t* values, size_t count);

    // Reading: the file size; writing: the bytes written so far (the largest position reached).
    int64_t GetSize() const;
    // Reading: the bytes between the position and the end of the file; otherwise 0.
    int64_t GetRemaining() const;
    // The current position from the start of the file.
    virtual int64_t Tell();
    // Moves to an absolute position (at most the size); writing flushes first; false on failure.
    virtual bool Seek(int64_t absolutePosition);
    // Hands buffered written bytes to the operating system; false (status set) on failure.
    virtual bool Flush();
    // Closes; a write replaces its target now unless an error occurred. False if any error occurred.
    virtual bool Close();
    // Closes without replacing the target: the temporary of a write is removed.
    virtual void Abandon();
    // The name given to the last open.
    const std::wstring& GetName() const { return name_; }

    // The first error since the last open or ClearError; 0 if none.
    int GetStatus() const { return status_; }
    bool HasError() const { return status_ != StatusOk; }
    // Forgets the status (Close still reports and refuses to commit after a cleared error).
    void ClearError()
    {
        status_ = StatusOk;
        systemError_.clear();
    }
    // The operating system's reason for the first error (the errno of the failing call, such as
    // "No such file or directory"); empty when the error was not the operating system's.
    std::error_code GetSystemError() const { return systemError_; }

protected:
    enum class Mode
    {
        Closed,
        Read,
        Write
    };

    // Common opening path; memory files override it.
    virtual bool _Open(const wchar_t* name, Mode mode, bool text);
    // Delivers bytes once the buffer is exhausted; returns how many it could deliver.
    virtual size_t _ReadSlow(unsigned char* dst, size_t bytes);
    // Takes bytes that do not fit the buffer; false (status set) on failure.
    virtual bool _WriteSlow(const unsigned char* src, size_t bytes);

    // Out-of-line part of READ: checks, calls _ReadSlow, zero-fills what is missing.
    bool _ReadBytes(void* dst, size_t count, size_t size);
    // Out-of-line part of WRITE.
    bool _WriteBytes(const void* src, size_t count, size_t size);
    // WRITE on a big-endian host: swaps through a small block.
    bool _WriteSwapped(const void* src, size_t count, size_t size);
    // Records an error: the status (if none yet) and the close-time failure flag.
    void _SetError(int status);
    // _SetError for a failed call of the operating system, keeping its errno with the first error.
    void _SetSystemError(int status);
    // Resets the buffer state to closed.
    void _ResetBuffer();
    // Seek's checks: false (status set) when the file is closed or the position is outside
    // [0, GetSize()].
    bool _CanSeek(int64_t absolutePosition);

    // The buffer: bytes [0, readEnd_) are valid when reading, [0, writeEnd_) may be filled when
    // writing; pos_ is the cursor. bufferOffset_ is the file position of buffer_[0].
    unsigned char* buffer_ = nullptr;
    size_t pos_ = 0;
    size_t readEnd_ = 0;
    size_t writeEnd_ = 0;
    int64_t bufferOffset_ = 0;
    // Reading: the file size; writing: the largest position flushed or sought so far.
    int64_t size_ = 0;
    Mode mode_ = Mode::Closed;
    int status_ = StatusOk;
    std::error_code systemError_;
    bool failed_ = false;
    size_t bufferSize_;
    std::wstring name_;

private:
    bool _FlushBuffer();
    bool _CloseNative(bool commit);

    std::unique_ptr<unsigned char[]> storage_;
    size_t storageSize_ = 0;
    std::unique_ptr<Detail::NativeFile> native_;
};

// MFile over memory: reads from a copy of given bytes, writes into a growing byte vector.
class KELSDK_FILEIO_EXPORT MMemoryFile : public MFile
{
public:
    MMemoryFile();
    ~MMemoryFile() override;

    // Reads from a copy of size bytes at data; false if data is null and size is not 0.
    bool OpenRead(const void* data, size_t size);
    // Reads from the given bytes (moved in).
    bool OpenRead(std::vector<uint8_t> data);
    // Starts writing into an empty vector.
    bool OpenWrite();
    // Reading: the bytes read from; writing: the bytes written (complete after Flush or Close).
    const std::vector<uint8_t>& GetData() const { return data_; }
    // Moves the data out and leaves the file closed and empty.
    std::vector<uint8_t> TakeData();

    bool Seek(int64_t absolutePosition) override;
    bool Flush() override;
    bool Close() override;
    void Abandon() override;

protected:
    // Named opens: a write becomes OpenWrite() keeping the name; a named read is not supported.
    bool _Open(const wchar_t* name, Mode mode, bool text) override;
    size_t _ReadSlow(unsigned char* dst, size_t bytes) override;
    bool _WriteSlow(const unsigned char* src, size_t bytes) override;

private:
    void _AttachData();

    std::vector<uint8_t> data_;
};
} // namespace KelSDK::FileIO
