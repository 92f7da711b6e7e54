// The wide name of a path as the library takes file names: converted from the system's narrow
// encoding (UTF-8 on POSIX) rather than widened byte by byte, so that non-ASCII names stay intact.
#pragma once

#include <KelSDK/Common/StringConversion.h>

#include <filesystem>
#include <string>

namespace KelTestSupport
{
inline std::wstring WidePath(const std::filesystem::path& path)
{
#if defined(_WIN32)
    return path.wstring();
#else
    return KelSDK::Common::StringConversion::Utf8ToNative(path.string());
#endif
}
} // namespace KelTestSupport
