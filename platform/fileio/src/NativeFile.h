// The operating-system file behind MFile: a C stdio stream without its own buffering (MFile
// buffers), opened by wide name, with 64-bit seeks and the temporary-and-rename write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace KelSDK::FileIO::Detail
{
// A file name as the operating system takes it: UTF-16 on Windows, UTF-8 bytes elsewhere.
#if defined(_WIN32)
using SystemString = std::wstring;
#else
using SystemString = std::string;
#endif

class NativeFile
{
public:
    // Opens an existing regular file for binary reading; null if it cannot.
    static std::unique_ptr<NativeFile> OpenRead(const std::wstring& name);
    // Creates a unique temporary beside name; Commit renames it over name. Null if it cannot.
    static std::unique_ptr<NativeFile> OpenWrite(const std::wstring& name, bool text);

    ~NativeFile();
    NativeFile(const NativeFile&) = delete;
    NativeFile& operator=(const NativeFile&) = delete;

    // Reads up to bytes; fewer at the end of the file or on error (Failed() tells which).
    size_t Read(void* dst, size_t bytes);
    // Writes all bytes; false on error.
    bool Write(const void* src, size_t bytes);
    // Moves to an absolute position; false on error.
    bool Seek(int64_t position);
    // The size of the file when it was opened for reading.
    int64_t Size() const { return size_; }
    // True once the stream reported an error.
    bool Failed() const { return failed_; }
    // Hands written bytes to the operating system; false on error.
    bool Flush();
    // Closes; for a write with commit the temporary replaces the target, otherwise it is removed.
    bool Close(bool commit);

private:
    NativeFile() = default;

    std::FILE* file_ = nullptr;
    int64_t size_ = 0;
    bool failed_ = false;
    bool writing_ = false;
    SystemString target_;
    SystemString temporary_;
};
} // namespace KelSDK::FileIO::Detail
