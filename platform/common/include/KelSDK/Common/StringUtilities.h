// Locale-independent number parsing and ASCII case-insensitive comparison of tokens.
#pragma once

#include <KelSDK/Common/Export.h>

#include <cstddef>
#include <string_view>

namespace KelSDK::Common::StringUtilities
{
// Parses a whole token as a double the way strtod does in the "C" locale, whatever the process locale:
// an optional sign, digits with an optional '.', an optional exponent, "inf", "infinity", "nan" or
// "nan(chars)" in any case, and hexadecimal floats after "0x"/"0X" ("0x1.8p3"). The whole token must be
// the number: empty tokens, leading or trailing whitespace, a comma as decimal separator or trailing
// characters give false and leave value untouched. Magnitudes beyond the double range give true and
// +-infinity; magnitudes below the smallest denormal give true and +-0 (strtod's values).
KELSDK_COMMON_EXPORT bool ExtractFloat(std::string_view token, double& value);
// The same for length characters at text (text may be null when length is 0).
KELSDK_COMMON_EXPORT bool ExtractFloat(const char* text, std::size_t length, double& value);

// True when a and b have the same length and equal bytes, ASCII letters compared case-insensitively.
KELSDK_COMMON_EXPORT bool EqualsNoCase(std::string_view a, std::string_view b);
// True when text begins with prefix, ASCII letters compared case-insensitively.
KELSDK_COMMON_EXPORT bool StartsWithNoCase(std::string_view text, std::string_view prefix);
} // namespace KelSDK::Common::StringUtilities
