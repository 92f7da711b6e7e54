// Builds a ZIP archive in memory from entries that are already deflated (or stored).
#pragma once

#include "Deflate.h"

#include <string>
#include <utility>
#include <vector>

namespace KelSAX::Detail
{
// Writes the entries, in order, into a ZIP archive (libzip) in out. The entries' data are copied
// as they are: libzip neither compresses nor decompresses them. False (error set) on failure.
bool BuildArchive(const std::vector<std::pair<std::string, const EntryData*>>& entries,
                  std::vector<uint8_t>& out, std::string& error);
} // namespace KelSAX::Detail
