#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlRevisionSystem.h>

#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace KelSDK::Triangles::Data::MStlRevisionSystem
{
namespace
{
// One generator per thread, seeded from the system's entropy source, the clock and the thread.
std::mt19937_64& Generator()
{
    thread_local std::mt19937_64 generator = []
    {
        std::random_device device;
        const uint64_t now =
            static_cast<uint64_t>(std::chrono::high_resolution_clock::now().time_since_epoch().count());
        const uint64_t thread = std::hash<std::thread::id>()(std::this_thread::get_id());
        std::seed_seq seed{device(),
                           device(),
                           device(),
                           device(),
                           device(),
                           device(),
                           device(),
                           device(),
                           static_cast<unsigned>(now),
                           static_cast<unsigned>(now >> 32),
                           static_cast<unsigned>(thread),
                           static_cast<unsigned>(thread >> 32)};
        return std::mt19937_64(seed);
    }();
    return generator;
}

// Byte groups of the text form: 4-2-2-2-6 bytes.
constexpr size_t kGroupEnds[5] = {4, 6, 8, 10, 16};

int HexValue(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    if (c >= L'A' && c <= L'F')
        return c - L'A' + 10;
    return -1;
}

struct RevisionRecord
{
    std::mutex mutex;
    std::map<MGuid, uint32_t> committed;
};

RevisionRecord& Committed()
{
    static RevisionRecord record;
    return record;
}
} // namespace

MGuid MGuid::Generate()
{
    std::mt19937_64& generator = Generator();
    const uint64_t words[2] = {generator(), generator()};
    MGuid guid;
    std::memcpy(guid.bytes_.data(), words, 16);
    guid.bytes_[6] = static_cast<uint8_t>((guid.bytes_[6] & 0x0Fu) | 0x40u); // version 4
    guid.bytes_[8] = static_cast<uint8_t>((guid.bytes_[8] & 0x3Fu) | 0x80u); // RFC 4122 variant
    return guid;
}

bool MGuid::IsNil() const
{
    for (uint8_t b : bytes_)
        if (b != 0)
            return false;
    return true;
}

std::wstring MGuid::GetString(bool withBraces, bool withHyphens) const
{
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring text;
    text.reserve(38);
    if (withBraces)
        text += L'{';
    size_t group = 0;
    for (size_t i = 0; i < 16; ++i)
    {
        if (i == kGroupEnds[group])
        {
            ++group;
            if (withHyphens)
                text += L'-';
        }
        text += digits[bytes_[i] >> 4];
        text += digits[bytes_[i] & 0x0Fu];
    }
    if (withBraces)
        text += L'}';
    return text;
}

bool MGuid::SetString(const std::wstring& text)
{
    if (text.size() != 38 || text.front() != L'{' || text.back() != L'}')
        return false;
    std::array<uint8_t, 16> bytes{};
    size_t at = 1, group = 0;
    for (size_t i = 0; i < 16; ++i)
    {
        if (i == kGroupEnds[group])
        {
            ++group;
            if (text[at++] != L'-')
                return false;
        }
        const int high = HexValue(text[at]), low = HexValue(text[at + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes[i] = static_cast<uint8_t>(high * 16 + low);
        at += 2;
    }
    bytes_ = bytes;
    return true;
}

bool MRevDatabase::IsCommitted(const MRevGuid& revision)
{
    RevisionRecord& record = Committed();
    std::lock_guard<std::mutex> lock(record.mutex);
    return record.committed.count(revision) != 0;
}

uint32_t MRevDatabase::GetCommittedID(const MRevGuid& revision)
{
    RevisionRecord& record = Committed();
    std::lock_guard<std::mutex> lock(record.mutex);
    const auto it = record.committed.find(revision);
    return it == record.committed.end() ? 0u : it->second;
}

void MRevDatabase::SetCommitted(const MRevGuid& revision, uint32_t committedID)
{
    RevisionRecord& record = Committed();
    std::lock_guard<std::mutex> lock(record.mutex);
    record.committed[revision] = committedID;
}

MIDCard::MIDCard() = default;
MIDCard::~MIDCard() = default;
MIDCard::MIDCard(MIDCard&&) noexcept = default;
MIDCard& MIDCard::operator=(MIDCard&&) noexcept = default;

MIDCard::MIDCard(const MIDCard& other)
    : globalID_(other.globalID_), revision_(other.revision_), upToDate_(other.upToDate_),
      history_(other.history_ ? std::make_unique<MHistory>(*other.history_) : nullptr)
{
    parents_.reserve(other.parents_.size());
    for (const auto& parent : other.parents_)
        parents_.push_back(std::make_unique<MIDCard>(*parent));
}

MIDCard& MIDCard::operator=(const MIDCard& other)
{
    if (this != &other)
    {
        MIDCard copy(other);
        *this = std::move(copy);
    }
    return *this;
}

MIDCard MIDCard::CreateNew()
{
    MIDCard card;
    card.globalID_ = MGlobalGuid(MGuid::Generate());
    card.revision_ = MRevGuid(MGuid::Generate(), 1);
    return card;
}

const MRevGuid& MIDCard::GetRevision(bool renew)
{
    if (renew && !upToDate_)
    {
        revision_ = MRevGuid(MGuid::Generate(), revision_.GetNumber() + 1);
        upToDate_ = true;
    }
    return revision_;
}

void MIDCard::SetRevision(const MRevGuid& revision, bool upToDate, bool commit)
{
    revision_ = revision;
    upToDate_ = upToDate;
    if (commit)
        MRevDatabase::SetCommitted(revision, revision.GetNumber());
}

MHistory& MIDCard::CreateHistory()
{
    if (!history_)
        history_ = std::make_unique<MHistory>();
    return *history_;
}

const MIDCard* MIDCard::GetParentIDCard(size_t index) const
{
    return index < parents_.size() ? parents_[index].get() : nullptr;
}

MIDCard* MIDCard::GetParentIDCard(size_t index)
{
    return index < parents_.size() ? parents_[index].get() : nullptr;
}

MIDCard* MIDCard::AddParentIDCard(const MIDCard& parent)
{
    parents_.push_back(std::make_unique<MIDCard>(parent));
    return parents_.back().get();
}

MIDCard* MIDCard::_AddParentIDCard()
{
    parents_.push_back(std::make_unique<MIDCard>());
    return parents_.back().get();
}

bool operator==(const MIDCard& a, const MIDCard& b)
{
    if (a.GetGlobalID() != b.GetGlobalID() || a.GetRevision() != b.GetRevision() ||
        a.RevisionUpToDate() != b.RevisionUpToDate())
        return false;
    const MHistory* ha = a.GetHistory();
    const MHistory* hb = b.GetHistory();
    if ((ha == nullptr) != (hb == nullptr) || (ha && *ha != *hb))
        return false;
    if (a.GetNumParentIDCards() != b.GetNumParentIDCards())
        return false;
    for (size_t i = 0; i < a.GetNumParentIDCards(); ++i)
        if (*a.GetParentIDCard(i) != *b.GetParentIDCard(i))
            return false;
    return true;
}

namespace
{
// The card as an attachment of the mesh: every change of the mesh's elements outdates the revision.
class MIDCardStlDependency : public MStlDependency
{
public:
    explicit MIDCardStlDependency(MStlBase&) : card(MIDCard::CreateNew()) {}
    static const char* DependencyKey() { return "KelSDK.Triangles.Data.MStlRevisionSystem.MIDCard"; }

    void OnClear(MStlBase&) override { card.InvalidateRevision(); }
    void OnTrianglesAdded(MStlBase&, size_t, size_t) override { card.InvalidateRevision(); }
    void OnPointsAdded(MStlBase&, size_t, size_t) override { card.InvalidateRevision(); }
    void OnGraphEdgesAdded(MStlBase&, size_t, size_t) override { card.InvalidateRevision(); }
    void OnTrianglesChanged(MStlBase&) override { card.InvalidateRevision(); }

    MIDCard card;
};
} // namespace

MIDCard* GetIDCard(const MStlBase* stl)
{
    MIDCardStlDependency* d = GetStlDependency<MIDCardStlDependency>(stl, true);
    return d ? &d->card : nullptr;
}

MIDCard* FindIDCard(const MStlBase* stl)
{
    MIDCardStlDependency* d = GetStlDependency<MIDCardStlDependency>(stl, false);
    return d ? &d->card : nullptr;
}
} // namespace KelSDK::Triangles::Data::MStlRevisionSystem
