// A file size limit for the life of the object: the operating system then refuses writes past it
// (EFBIG), as a full disk would. POSIX only.
#pragma once

#if !defined(_WIN32)
#include <csignal>
#include <sys/resource.h>

namespace KelTestSupport
{
class FileSizeLimit
{
public:
    // Lowers the soft limit to bytes and ignores SIGXFSZ, so that a refused write returns an error.
    explicit FileSizeLimit(rlim_t bytes)
    {
        if (getrlimit(RLIMIT_FSIZE, &previous_) != 0 ||
            (previous_.rlim_max != RLIM_INFINITY && previous_.rlim_max < bytes))
            return;
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limited = previous_;
        limited.rlim_cur = bytes;
        active_ = setrlimit(RLIMIT_FSIZE, &limited) == 0;
        if (!active_)
            std::signal(SIGXFSZ, handler_);
    }
    ~FileSizeLimit()
    {
        if (active_)
        {
            setrlimit(RLIMIT_FSIZE, &previous_);
            std::signal(SIGXFSZ, handler_);
        }
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    // False when the limit could not be set (a hard limit already below it): the test is skipped.
    bool Active() const { return active_; }

private:
    struct rlimit previous_ = {};
    void (*handler_)(int) = SIG_DFL;
    bool active_ = false;
};
} // namespace KelTestSupport
#endif
