// Conversions between narrow text (locale, UTF-8), UTF-16 and the native wide strings.
//
// Native wide strings hold UTF-32 where wchar_t has 32 bits (Linux, macOS) and UTF-16 where it has
// 16 bits (Windows). Locale text is UTF-8 on POSIX systems and the ANSI code page on Windows.
//
// Bytes that are not valid UTF-8 are never lost or rejected: each such byte b (always 0x80..0xFF)
// becomes the lone low surrogate U+DC00 + b in the wide string ("surrogate escape"), and converting
// back turns exactly those code points into the raw byte again. Valid UTF-8 never decodes to a lone
// surrogate, so the escape cannot collide with real text: any byte string converts to wide and back
// to the same bytes. Invalid means: a stray continuation byte, a truncated sequence, an overlong form
// (C0 80, E0 80 80, ...), an encoded surrogate (ED A0 80 ...) or a value above U+10FFFF. An invalid
// sequence escapes its first byte only; decoding resumes at the next byte.
//
// Wide text that cannot be written as UTF-8 (a lone surrogate outside U+DC80..U+DCFF, a value above
// U+10FFFF) becomes U+FFFD, the replacement character.
#pragma once

#include <KelSDK/Common/Export.h>

#include <string>

namespace KelSDK::Common::StringConversion
{
// Locale text to a native wide string (invalid bytes escaped as above); never fails.
KELSDK_COMMON_EXPORT std::wstring LocaleToNative(const char* text);
// Locale text to a native wide string (invalid bytes escaped as above); never fails.
KELSDK_COMMON_EXPORT std::wstring LocaleToNative(const std::string& text);
// A native wide string to locale text (escaped bytes restored); never fails. Null gives "".
KELSDK_COMMON_EXPORT std::string NativeToLocale(const wchar_t* text);
// A native wide string to locale text (escaped bytes restored); never fails.
KELSDK_COMMON_EXPORT std::string NativeToLocale(const std::wstring& text);

// A native wide string to UTF-8 (escaped bytes restored, so the result may be invalid UTF-8 exactly
// where the original bytes were); never fails.
KELSDK_COMMON_EXPORT std::string NativeToUtf8(const std::wstring& text);
// UTF-8 to a native wide string (invalid bytes escaped); never fails.
KELSDK_COMMON_EXPORT std::wstring Utf8ToNative(const std::string& text);

// A native wide string to UTF-16 code units (what binary files store); lone surrogates are kept.
KELSDK_COMMON_EXPORT std::u16string NativeToUtf16(const std::wstring& text);
// UTF-16 code units to a native wide string; lone surrogates are kept as they are.
KELSDK_COMMON_EXPORT std::wstring Utf16ToNative(const std::u16string& text);
// UTF-8 to UTF-16 (invalid bytes escaped as above); never fails.
KELSDK_COMMON_EXPORT std::u16string Utf8ToUtf16(const std::string& text);
// UTF-16 to UTF-8 (escaped bytes restored, other lone surrogates become U+FFFD); never fails.
KELSDK_COMMON_EXPORT std::string Utf16ToUtf8(const std::u16string& text);
} // namespace KelSDK::Common::StringConversion
