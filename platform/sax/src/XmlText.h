// The pieces of XML text the writer produces: names, escaped character data, trimmed text.
#pragma once

#include <string>
#include <string_view>

namespace KelSAX::Detail
{
// True for an ASCII XML name: [A-Za-z_][A-Za-z0-9_.-]*.
bool IsElementName(std::string_view name);
// True when text is valid UTF-8 made only of characters that XML text can carry (no control
// characters except tab, LF and CR, no U+FFFE or U+FFFF).
bool IsXmlText(std::string_view text);
// Appends text with &, <, > and CR escaped (CR as a character reference so that it survives the
// line-end normalisation of XML parsers).
void AppendEscaped(std::string& out, std::string_view text);
// text without leading and trailing spaces, tabs, CRs and LFs.
std::string_view TrimBlanks(std::string_view text);
} // namespace KelSAX::Detail
