// The "RevisionInfo" section: the card record with parents and their histories, what loading
// replaces and registers, identifiers that are not identifiers, and nesting without bound.
#include "PluginTestSupport.h"

#include <KelSDK/Triangles/IO/MStlRevisionFileIO.h>

using namespace PluginTest;
using KelSDK::Triangles::IO::MStlRevisionSystem::MIDCardBinaryDumper;

namespace
{
MGuid Guid(uint8_t fill)
{
    MGuid guid;
    std::array<uint8_t, 16> bytes;
    bytes.fill(fill);
    guid.SetBytes(bytes);
    return guid;
}

MIDCard Card(uint8_t fill, uint32_t revision, bool upToDate)
{
    MIDCard card;
    card.SetGlobalID(MGlobalGuid(Guid(fill)));
    card.SetRevision(MRevGuid(Guid(static_cast<uint8_t>(fill + 1)), revision), upToDate, false);
    return card;
}

// The first part of a card record: version, identifiers, switches, committed number.
ByteBuilder& CardHead(ByteBuilder& b, uint8_t fill, uint32_t revision, bool upToDate)
{
    const MIDCard card = Card(fill, revision, upToDate);
    b.i32(1).u32(0).wstr(ByteBuilder::Narrow(card.GetGlobalID().GetString(true, true)));
    b.u32(revision).wstr(ByteBuilder::Narrow(card.GetRevision().GetString(true, true)));
    return b.u8(upToDate).u8(0).u32(0);
}
} // namespace

TEST(RevisionInfoPlugin, OwnCardWithoutHistoryParentsWithTheirs)
{
    MStlBase mesh;
    BuildStandard(mesh);
    MIDCard& card = *GetIDCard(&mesh);
    card = Card(0x11, 3, false);
    card.CreateHistory().AddEntry(MHistoryEntry{L"not", L"written", 1, L""});
    MIDCard parent = Card(0x22, 1, true);
    parent.CreateHistory().AddEntry(MHistoryEntry{L"Op", L"p", -2, L"u"});
    parent.AddParentIDCard(Card(0x33, 9, true));
    card.AddParentIDCard(parent);
    card.AddParentIDCard(Card(0x44, 2, false));

    ByteBuilder e;
    CardHead(e, 0x11, 3, false).u32(2);
    CardHead(e, 0x22, 1, true).u8(50).u32(1).wstr("Op").wstr("p").le(uint64_t(-2), 8).wstr("u").u8(51).u32(1);
    CardHead(e, 0x33, 9, true).u8(50).u32(0).u8(51).u32(0);
    CardHead(e, 0x44, 2, false).u8(50).u32(0).u8(51).u32(0);
    const Bytes bytes = SaveToBytes(mesh);
    EXPECT_EQ(e.bytes, SplitPluginBlock(bytes).Payload(L"RevisionInfo"));

    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    const MIDCard* back = FindIDCard(&loaded);
    ASSERT_NE(nullptr, back);
    EXPECT_EQ(nullptr, back->GetHistory());
    card.RemoveHistory();
    EXPECT_TRUE(card == *back);
}

TEST(RevisionInfoPlugin, LoadingReplacesParentsAndRegistersCommittedRevisions)
{
    MStlBase source, target;
    BuildStandard(source);
    BuildStandard(target);
    const MRevGuid committed(MGuid::Generate(), 4), uncommitted(MGuid::Generate(), 5);
    GetIDCard(&source)->SetRevision(committed, true, false);
    Bytes bytes = SaveToBytes(source);
    // Mark the revision committed under number 77 in the file only.
    const size_t switches =
        Find(bytes, ByteBuilder().wstr(ByteBuilder::Narrow(committed.GetString(true, true))).bytes);
    ASSERT_NE(SIZE_MAX, switches);
    const size_t at = switches + 4 + 76;
    bytes[at + 1] = 1;
    bytes[at + 2] = 77;
    GetIDCard(&target)->AddParentIDCard(MIDCard::CreateNew());
    ASSERT_FALSE(MRevDatabase::IsCommitted(committed));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, target));
    EXPECT_EQ(0u, GetIDCard(&target)->GetNumParentIDCards());
    EXPECT_EQ(committed, GetIDCard(&target)->GetRevision());
    EXPECT_EQ(GetIDCard(&source)->GetGlobalID(), GetIDCard(&target)->GetGlobalID());
    EXPECT_EQ(77u, MRevDatabase::GetCommittedID(committed));

    GetIDCard(&source)->SetRevision(uncommitted, true, false);
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(source), target));
    EXPECT_FALSE(MRevDatabase::IsCommitted(uncommitted));
}

TEST(RevisionInfoPlugin, ATextThatIsNoIdentifierEndsTheRecord)
{
    MStlBase mesh, target;
    BuildStandard(mesh);
    BuildStandard(target);
    *GetIDCard(&mesh) = Card(0x55, 6, true);
    GetIDCard(&mesh)->AddParentIDCard(Card(0x66, 1, true));
    const MIDCard before = *GetIDCard(&target);
    Bytes bytes = SaveToBytes(mesh);
    // The revision identifier loses its form: the global identifier before it is taken, the
    // revision and the parents after it are not.
    const size_t revision =
        Find(bytes, ByteBuilder().wstr(ByteBuilder::Narrow(Guid(0x56).GetString(true, true))).bytes);
    ASSERT_NE(SIZE_MAX, revision);
    bytes[revision + 6] = 'f'; // "{56..." becomes "{f6...": lower case is not the text form
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, target));
    const MIDCard& card = *GetIDCard(&target);
    EXPECT_EQ(MGlobalGuid(Guid(0x55)), card.GetGlobalID());
    EXPECT_EQ(before.GetRevision(), card.GetRevision());
    EXPECT_EQ(0u, card.GetNumParentIDCards());
}

TEST(RevisionInfoPlugin, NestingIsBoundedWhenWrittenAndWhenRead)
{
    // A chain of parents deeper than the record keeps.
    MStlBase mesh;
    BuildStandard(mesh);
    MIDCard* link = GetIDCard(&mesh);
    for (int depth = 0; depth < MIDCardBinaryDumper::kMaxDepth + 20; ++depth)
        link = link->AddParentIDCard(Card(static_cast<uint8_t>(depth), 1, true));
    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), loaded));
    int depth = 0;
    for (const MIDCard* c = FindIDCard(&loaded); c->GetNumParentIDCards() > 0; c = c->GetParentIDCard(0))
        ++depth;
    EXPECT_EQ(MIDCardBinaryDumper::kMaxDepth, depth);

    // A hand-made record nesting 5000 levels loads as far as the bound and stops.
    ByteBuilder deep;
    for (int level = 0; level < 5000; ++level)
    {
        CardHead(deep, 0x12, 1, true);
        if (level > 0)
            deep.u8(50).u32(0).u8(51);
        deep.u32(1);
    }
    MStlBase target;
    ASSERT_EQ(eStlFileIOSuccess,
              LoadFromBytes(WithPayload(SaveToBytes(mesh), L"RevisionInfo", deep.bytes), target));
    depth = 0;
    for (const MIDCard* c = FindIDCard(&target); c->GetNumParentIDCards() > 0; c = c->GetParentIDCard(0))
        ++depth;
    EXPECT_EQ(MIDCardBinaryDumper::kMaxDepth, depth);
}
