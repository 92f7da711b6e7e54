// History of a mesh: the operations applied to it, oldest first.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
// One recorded operation.
struct KELSDK_TRIANGLES_DATA_EXPORT MHistoryEntry
{
    std::wstring operation;  // what was done, e.g. L"Import"
    std::wstring parameters; // free text: file name, options
    int64_t time = 0;        // seconds since 1970-01-01 UTC
    std::wstring user;

    friend bool operator==(const MHistoryEntry& a, const MHistoryEntry& b)
    {
        return a.operation == b.operation && a.parameters == b.parameters && a.time == b.time &&
               a.user == b.user;
    }
    friend bool operator!=(const MHistoryEntry& a, const MHistoryEntry& b) { return !(a == b); }
};

// A list of history entries.
class KELSDK_TRIANGLES_DATA_EXPORT MHistory
{
public:
    size_t GetNumEntries() const { return entries_.size(); }
    // The entry at a position (index must be below GetNumEntries()).
    const MHistoryEntry& GetEntry(size_t index) const { return entries_[index]; }
    // Appends an entry.
    void AddEntry(MHistoryEntry entry) { entries_.push_back(std::move(entry)); }
    const std::vector<MHistoryEntry>& Entries() const { return entries_; }
    void Clear() { entries_.clear(); }

    friend bool operator==(const MHistory& a, const MHistory& b) { return a.entries_ == b.entries_; }
    friend bool operator!=(const MHistory& a, const MHistory& b) { return !(a == b); }

private:
    std::vector<MHistoryEntry> entries_;
};
} // namespace KelSDK::Triangles::Data
