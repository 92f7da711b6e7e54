#include "NativeFile.h"

#include <KelSDK/Common/StringConversion.h>

#include <atomic>
#include <cerrno>
#include <chrono>

#if defined(_WIN32)
#include <io.h>
#include <process.h>
#include <share.h>
#include <sys/stat.h>
#include <sys/types.h>
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <cstdlib>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#endif

namespace KelSDK::FileIO::Detail
{
namespace
{
// The directory part of a path, with its trailing separator; empty for a bare file name.
SystemString DirectoryOf(const SystemString& path)
{
#if defined(_WIN32)
    const size_t slash = path.find_last_of(L"/\\");
#else
    const size_t slash = path.find_last_of('/');
#endif
    return slash == SystemString::npos ? SystemString() : path.substr(0, slash + 1);
}

// A name for a temporary beside target: ".kel-<16 hex digits>.tmp". Short, so that it fits
// wherever the target's own name fits; unique enough that the exclusive create rarely retries.
SystemString TemporaryName(const SystemString& target, unsigned attempt)
{
    static std::atomic<uint64_t> counter{0};
#if defined(_WIN32)
    const uint64_t pid = static_cast<uint64_t>(_getpid());
#else
    const uint64_t pid = static_cast<uint64_t>(getpid());
#endif
    const uint64_t now = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    uint64_t value =
        (pid << 40) ^ (counter.fetch_add(1) << 20) ^ now ^ (uint64_t{attempt} * 0x9E3779B97F4A7C15u);
    static const char digits[] = "0123456789abcdef";
    std::string suffix = ".kel-";
    for (int i = 0; i < 16; ++i, value >>= 4)
    {
        suffix += digits[value & 15];
    }
    suffix += ".tmp";
    SystemString name = DirectoryOf(target);
    name.append(suffix.begin(), suffix.end());
    return name;
}

SystemString SystemName(const std::wstring& name)
{
#if defined(_WIN32)
    return name;
#else
    return KelSDK::Common::StringConversion::NativeToUtf8(name);
#endif
}

// The file that a write to name replaces: where name is a symbolic link, the file it points to,
// so that saving through a link updates the linked file instead of replacing the link.
SystemString ReplacedFile(const std::wstring& name)
{
    SystemString path = SystemName(name);
#if !defined(_WIN32)
    struct stat info;
    if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode))
    {
        if (char* resolved = realpath(path.c_str(), nullptr))
        {
            path = resolved;
            std::free(resolved);
        }
    }
#endif
    return path;
}
} // namespace

std::unique_ptr<NativeFile> NativeFile::OpenRead(const std::wstring& name)
{
#if defined(_WIN32)
    // Others may read the file while we do, but not write it.
    std::FILE* file = _wfsopen(name.c_str(), L"rb", _SH_DENYWR);
    if (!file)
    {
        return nullptr;
    }
    struct _stat64 info;
    if (_fstat64(_fileno(file), &info) != 0 || (info.st_mode & _S_IFMT) != _S_IFREG)
    {
        std::fclose(file);
        return nullptr;
    }
#else
    std::FILE* file = std::fopen(SystemName(name).c_str(), "rb");
    if (!file)
    {
        return nullptr;
    }
    struct stat info;
    if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode))
    {
        const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
        std::fclose(file);
        errno = error;
        return nullptr;
    }
#endif
    // MFile has its own buffer; a second one in stdio would only copy the bytes once more.
    std::setvbuf(file, nullptr, _IONBF, 0);
    std::unique_ptr<NativeFile> result(new NativeFile());
    result->file_ = file;
    result->size_ = static_cast<int64_t>(info.st_size);
    return result;
}

std::unique_ptr<NativeFile> NativeFile::OpenWrite(const std::wstring& name, bool text)
{
    if (name.empty())
    {
        return nullptr;
    }
    const SystemString target = ReplacedFile(name);
    std::FILE* file = nullptr;
    SystemString temporary;
    // "x": create exclusively, so that two writers never share a temporary.
    for (unsigned attempt = 0; attempt < 64 && !file; ++attempt)
    {
        temporary = TemporaryName(target, attempt);
#if defined(_WIN32)
        file = _wfopen(temporary.c_str(), text ? L"wtx" : L"wbx");
#else
        (void)text; // POSIX has no text mode: the bytes are written as given.
        file = std::fopen(temporary.c_str(), "wbx");
#endif
        if (!file && errno != EEXIST)
        {
            return nullptr;
        }
    }
    if (!file)
    {
        return nullptr;
    }
#if !defined(_WIN32)
    // The replacement keeps the permission bits of the file it replaces.
    struct stat info;
    if (stat(target.c_str(), &info) == 0 && S_ISREG(info.st_mode))
    {
        (void)fchmod(fileno(file), info.st_mode & 07777);
    }
#endif
    std::setvbuf(file, nullptr, _IONBF, 0);
    std::unique_ptr<NativeFile> result(new NativeFile());
    result->file_ = file;
    result->writing_ = true;
    result->target_ = target;
    result->temporary_ = temporary;
    return result;
}

NativeFile::~NativeFile()
{
    if (file_)
    {
        Close(false);
    }
}

size_t NativeFile::Read(void* dst, size_t bytes)
{
    size_t done = 0;
    while (done < bytes)
    {
        const size_t n = std::fread(static_cast<unsigned char*>(dst) + done, 1, bytes - done, file_);
        done += n;
        if (n == 0)
        {
            if (std::ferror(file_))
            {
                failed_ = true;
            }
            break;
        }
    }
    return done;
}

bool NativeFile::Write(const void* src, size_t bytes)
{
    if (bytes != 0 && std::fwrite(src, 1, bytes, file_) != bytes)
    {
        failed_ = true;
    }
    return !failed_;
}

bool NativeFile::Seek(int64_t position)
{
#if defined(_WIN32)
    const bool ok = _fseeki64(file_, position, SEEK_SET) == 0;
#else
    static_assert(sizeof(off_t) >= 8, "build with 64-bit file offsets (_FILE_OFFSET_BITS=64)");
    const bool ok = fseeko(file_, static_cast<off_t>(position), SEEK_SET) == 0;
#endif
    if (!ok)
    {
        failed_ = true;
    }
    return ok;
}

bool NativeFile::Flush()
{
    if (std::fflush(file_) != 0)
    {
        failed_ = true;
    }
    return !failed_;
}

bool NativeFile::Close(bool commit)
{
    bool ok = !failed_;
    if (std::fclose(file_) != 0)
    {
        ok = false;
    }
    file_ = nullptr;
    if (!writing_)
    {
        return ok;
    }
    if (ok && commit)
    {
#if defined(_WIN32)
        ok = MoveFileExW(temporary_.c_str(), target_.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
#else
        // rename replaces the target in one step: readers see the old or the new file, never a mix.
        ok = std::rename(temporary_.c_str(), target_.c_str()) == 0;
#endif
        if (ok)
        {
            return true;
        }
    }
    // The reason of the failure stays the caller's errno, not that of removing the temporary.
    const int error = errno;
#if defined(_WIN32)
    _wremove(temporary_.c_str());
#else
    std::remove(temporary_.c_str());
#endif
    errno = error;
    return false;
}
} // namespace KelSDK::FileIO::Detail
