// The revision system: identifiers, the identity card that every mesh carries (who it is, which
// revision, what it was made from) and the process-wide record of committed revisions.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MHistory.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;

namespace MStlRevisionSystem
{
// A 128-bit identifier. Its text form is the one that GetString(true, true) gives: 38
// characters, "{" 8-4-4-4-12 upper-case hexadecimal digits in groups separated by "-" "}", the
// 16 bytes in order, e.g. "{0F1E2D3C-4B5A-4978-8796-A5B4C3D2E1F0}".
class KELSDK_TRIANGLES_DATA_EXPORT MGuid
{
public:
    // The nil identifier (all bits zero).
    MGuid() = default;
    // A new random identifier (RFC 4122 version 4: 122 random bits). Any thread; does not throw.
    static MGuid Generate();

    bool IsNil() const;
    const std::array<uint8_t, 16>& GetBytes() const { return bytes_; }
    void SetBytes(const std::array<uint8_t, 16>& bytes) { bytes_ = bytes; }
    // The identifier as text: braces around and hyphens between the groups when asked for.
    std::wstring GetString(bool withBraces, bool withHyphens) const;
    // Takes the identifier from the text form of GetString(true, true), exactly (upper-case
    // digits, nothing before or after); false and unchanged for any other text.
    bool SetString(const std::wstring& text);

    friend bool operator==(const MGuid& a, const MGuid& b) { return a.bytes_ == b.bytes_; }
    friend bool operator!=(const MGuid& a, const MGuid& b) { return !(a == b); }
    friend bool operator<(const MGuid& a, const MGuid& b) { return a.bytes_ < b.bytes_; }

private:
    std::array<uint8_t, 16> bytes_{};
};

// The identifier of a mesh over all its revisions.
class KELSDK_TRIANGLES_DATA_EXPORT MGlobalGuid : public MGuid
{
public:
    MGlobalGuid() = default;
    explicit MGlobalGuid(const MGuid& guid) : MGuid(guid) {}
};

// The identifier of one revision of a mesh, with the revision's number (1 for the first).
class KELSDK_TRIANGLES_DATA_EXPORT MRevGuid : public MGuid
{
public:
    MRevGuid() = default;
    MRevGuid(const MGuid& guid, uint32_t number) : MGuid(guid), number_(number) {}
    uint32_t GetNumber() const { return number_; }
    void SetNumber(uint32_t number) { number_ = number; }

    friend bool operator==(const MRevGuid& a, const MRevGuid& b)
    {
        return static_cast<const MGuid&>(a) == static_cast<const MGuid&>(b) && a.number_ == b.number_;
    }
    friend bool operator!=(const MRevGuid& a, const MRevGuid& b) { return !(a == b); }

private:
    uint32_t number_ = 0;
};

// The revisions committed in this process (saved into a shared store, say), each with the
// number under which it was committed. Keyed by the revision's identifier. Every operation may
// be called from several threads at once; memory grows by one entry per committed revision.
class KELSDK_TRIANGLES_DATA_EXPORT MRevDatabase
{
public:
    static bool IsCommitted(const MRevGuid& revision);
    // The number the revision was committed under; 0 when it is not committed.
    static uint32_t GetCommittedID(const MRevGuid& revision);
    // Records the revision as committed under the number (a later call replaces the number).
    static void SetCommitted(const MRevGuid& revision, uint32_t committedID);
};

// The identity card of a mesh: its global identifier, its current revision and whether the mesh
// still is that revision (up to date), an optional history, and the cards of the meshes it was
// made from (its parents, each a full card with parents of its own). Copies are deep. Not
// thread-safe; parents are owned.
class KELSDK_TRIANGLES_DATA_EXPORT MIDCard
{
public:
    // A blank card: nil identifiers, revision number 0, up to date, no history, no parents.
    MIDCard();
    // A card for a new mesh: a random global identifier and a random first revision (number 1).
    static MIDCard CreateNew();
    ~MIDCard();
    MIDCard(const MIDCard& other);
    MIDCard& operator=(const MIDCard& other);
    MIDCard(MIDCard&&) noexcept;
    MIDCard& operator=(MIDCard&&) noexcept;

    const MGlobalGuid& GetGlobalID() const { return globalID_; }
    void SetGlobalID(const MGlobalGuid& id) { globalID_ = id; }

    // The current revision.
    const MRevGuid& GetRevision() const { return revision_; }
    // The current revision; with renew, a card that is not up to date first moves to a new
    // revision (a random identifier, the number plus one) and is up to date again.
    const MRevGuid& GetRevision(bool renew);
    // Sets the revision and whether the mesh is that revision; with commit, the revision is also
    // recorded as committed under its own number (MRevDatabase).
    void SetRevision(const MRevGuid& revision, bool upToDate, bool commit);
    bool RevisionUpToDate() const { return upToDate_; }
    // The mesh changed: it is no longer its current revision.
    void InvalidateRevision() { upToDate_ = false; }

    // The history, or null when the card has none.
    const MHistory* GetHistory() const { return history_.get(); }
    MHistory* GetHistory() { return history_.get(); }
    // The history, made empty when the card has none.
    MHistory& CreateHistory();
    void RemoveHistory() { history_.reset(); }

    size_t GetNumParentIDCards() const { return parents_.size(); }
    // The parent at a position, or null when out of range.
    const MIDCard* GetParentIDCard(size_t index) const;
    MIDCard* GetParentIDCard(size_t index);
    // Appends a copy of a card as a parent; returns the copy.
    MIDCard* AddParentIDCard(const MIDCard& parent);
    void ClearParentIDCards() { parents_.clear(); }
    // Appends a blank parent card (for readers that fill it); returns it.
    MIDCard* _AddParentIDCard();

private:
    MGlobalGuid globalID_;
    MRevGuid revision_;
    bool upToDate_ = true;
    std::unique_ptr<MHistory> history_;
    std::vector<std::unique_ptr<MIDCard>> parents_;
};

// Same identifiers, revision, up-to-date flag, history (presence and entries) and parents.
KELSDK_TRIANGLES_DATA_EXPORT bool operator==(const MIDCard& a, const MIDCard& b);
inline bool operator!=(const MIDCard& a, const MIDCard& b)
{
    return !(a == b);
}

// The card of a mesh, made with CreateNew on first use; null only for a null mesh. Any change
// of the mesh's elements (cleared, points, triangles or graph edges added, triangles changed)
// makes the card's revision out of date.
KELSDK_TRIANGLES_DATA_EXPORT MIDCard* GetIDCard(const MStlBase* stl);
// The card of a mesh, or null when none was made yet.
KELSDK_TRIANGLES_DATA_EXPORT MIDCard* FindIDCard(const MStlBase* stl);
} // namespace MStlRevisionSystem
} // namespace KelSDK::Triangles::Data
