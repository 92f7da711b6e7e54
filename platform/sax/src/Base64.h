// Base64 (RFC 4648, standard alphabet, padded) for binary values and strings in XML text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace KelSAX::Detail
{
// Appends the base64 text of bytes bytes at data to out (one line, no breaks).
void AppendBase64(std::string& out, const void* data, size_t bytes);
// Decoded size of text (blanks ignored); false when text cannot be base64 (its length or padding).
bool Base64DecodedSize(std::string_view text, uint64_t& bytes);
// Decodes text into exactly bytes bytes at out (bytes from Base64DecodedSize); false on a character
// outside the alphabet, misplaced padding or non-zero padding bits.
bool DecodeBase64(std::string_view text, uint8_t* out, size_t bytes);
} // namespace KelSAX::Detail
