// Identifiers (random, text form, strict parsing), the committed-revision record under
// concurrent use, and identity cards: revisions, deep copies, and the card that follows its mesh.
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <thread>

using namespace KelSDK::Triangles::Data;
using namespace KelSDK::Triangles::Data::MStlRevisionSystem;

TEST(MGuid, TextFormsAndRoundTrip)
{
    MGuid guid;
    std::array<uint8_t, 16> bytes{};
    for (int i = 0; i < 16; ++i)
        bytes[i] = static_cast<uint8_t>(0x0F + 0x1F * i);
    guid.SetBytes(bytes);
    EXPECT_EQ(L"{0F2E4D6C-8BAA-C9E8-0726-456483A2C1E0}", guid.GetString(true, true));
    EXPECT_EQ(L"0F2E4D6C8BAAC9E80726456483A2C1E0", guid.GetString(false, false));
    EXPECT_EQ(L"0F2E4D6C-8BAA-C9E8-0726-456483A2C1E0", guid.GetString(false, true));
    MGuid back;
    ASSERT_TRUE(back.SetString(guid.GetString(true, true)));
    EXPECT_EQ(guid, back);
    EXPECT_TRUE(MGuid().IsNil());
    EXPECT_EQ(L"{00000000-0000-0000-0000-000000000000}", MGuid().GetString(true, true));
}

TEST(MGuid, OnlyTheOneTextFormIsAccepted)
{
    const MGuid before = MGuid::Generate();
    const wchar_t* rejected[] = {
        L"",
        L"0F2E4D6C-8BAA-C9E8-0726-456483A2C1E0",   // no braces
        L"{0f2e4d6c-8baa-c9e8-0726-45648392b1d0}", // lower case
        L"{0F2E4D6C-8BAA-C9E8-0726-456483A2C1E0 }",
        L"{0F2E4D6C-8BAAC-9E8-0726-456483A2C1E0}", // hyphen misplaced
        L"{0F2E4D6C-8BAA-C9E8-0726-45648392B1DG}", // not a digit
        L"{0F2E4D6C+8BAA-C9E8-0726-456483A2C1E0}",
        L"{0F2E4D6C-8BAA-C9E8-0726-456483A2C1E0}}",
    };
    for (const wchar_t* text : rejected)
    {
        SCOPED_TRACE(testing::Message() << "text of " << std::wstring(text).size() << " characters");
        MGuid guid = before;
        EXPECT_FALSE(guid.SetString(text));
        EXPECT_EQ(before, guid);
    }
}

TEST(MGuid, GeneratedIdentifiersAreDistinctVersionFourAcrossThreads)
{
    std::vector<MGuid> made(4000);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&made, t]
            {
                for (int i = 0; i < 1000; ++i)
                    made[static_cast<size_t>(t * 1000 + i)] = MGuid::Generate();
            });
    for (std::thread& t : threads)
        t.join();
    const std::set<MGuid> distinct(made.begin(), made.end());
    EXPECT_EQ(made.size(), distinct.size());
    std::set<uint8_t> firstBytes;
    for (const MGuid& g : made)
    {
        ASSERT_EQ(0x40, g.GetBytes()[6] & 0xF0);
        ASSERT_EQ(0x80, g.GetBytes()[8] & 0xC0);
        firstBytes.insert(g.GetBytes()[0]);
    }
    EXPECT_GT(firstBytes.size(), 200u); // random bytes, not a counter
}

TEST(MRevDatabase, CommitsFromSeveralThreadsAreAllKept)
{
    std::vector<MRevGuid> revisions;
    for (uint32_t i = 0; i < 400; ++i)
        revisions.emplace_back(MGuid::Generate(), i + 1);
    EXPECT_FALSE(MRevDatabase::IsCommitted(revisions[0]));
    EXPECT_EQ(0u, MRevDatabase::GetCommittedID(revisions[0]));
    std::vector<std::thread> threads;
    for (size_t t = 0; t < 4; ++t)
        threads.emplace_back(
            [&revisions, t]
            {
                for (size_t i = t; i < revisions.size(); i += 4)
                {
                    MRevDatabase::SetCommitted(revisions[i], static_cast<uint32_t>(1000 + i));
                    (void)MRevDatabase::IsCommitted(revisions[(i + 1) % revisions.size()]);
                }
            });
    for (std::thread& t : threads)
        t.join();
    for (size_t i = 0; i < revisions.size(); ++i)
        ASSERT_EQ(1000 + i, MRevDatabase::GetCommittedID(revisions[i])) << "revision " << i;
}

TEST(MIDCard, RevisionsRenewOnlyWhenOutOfDate)
{
    MIDCard card = MIDCard::CreateNew();
    EXPECT_FALSE(card.GetGlobalID().IsNil());
    EXPECT_EQ(1u, card.GetRevision().GetNumber());
    const MRevGuid first = card.GetRevision(true);
    EXPECT_EQ(first, card.GetRevision(true)); // up to date: nothing renewed
    card.InvalidateRevision();
    EXPECT_EQ(first, card.GetRevision(false));
    const MRevGuid second = card.GetRevision(true);
    EXPECT_EQ(2u, second.GetNumber());
    EXPECT_NE(static_cast<const MGuid&>(first), static_cast<const MGuid&>(second));
    EXPECT_TRUE(card.RevisionUpToDate());
    card.SetRevision(first, false, true);
    EXPECT_FALSE(card.RevisionUpToDate());
    EXPECT_EQ(1u, MRevDatabase::GetCommittedID(first));
    EXPECT_FALSE(MRevDatabase::IsCommitted(second));
}

TEST(MIDCard, ParentsAndHistoryAreDeepCopies)
{
    MIDCard grandparent = MIDCard::CreateNew();
    grandparent.CreateHistory().AddEntry(MHistoryEntry{L"Scan", L"", 5, L"x"});
    MIDCard parent = MIDCard::CreateNew();
    parent.AddParentIDCard(grandparent);
    MIDCard card = MIDCard::CreateNew();
    card.AddParentIDCard(parent);
    card.AddParentIDCard(grandparent);
    EXPECT_EQ(2u, card.GetNumParentIDCards());
    EXPECT_EQ(nullptr, card.GetParentIDCard(2));
    MIDCard copy = card;
    EXPECT_EQ(card, copy);
    copy.GetParentIDCard(0)->GetParentIDCard(0)->GetHistory()->AddEntry(MHistoryEntry{});
    EXPECT_NE(card, copy);
    EXPECT_EQ(1u, card.GetParentIDCard(0)->GetParentIDCard(0)->GetHistory()->GetNumEntries());
    copy.ClearParentIDCards();
    EXPECT_EQ(0u, copy.GetNumParentIDCards());
    EXPECT_EQ(MIDCard(), *copy._AddParentIDCard());
}

TEST(MIDCard, EveryMeshHasOneThatChangesOfTheMeshOutdate)
{
    MStlBase stl, other;
    EXPECT_EQ(nullptr, FindIDCard(&stl));
    MIDCard* card = GetIDCard(&stl);
    ASSERT_NE(nullptr, card);
    EXPECT_EQ(card, FindIDCard(&stl));
    EXPECT_NE(card->GetGlobalID(), GetIDCard(&other)->GetGlobalID());
    EXPECT_EQ(nullptr, GetIDCard(nullptr));
    const struct
    {
        const char* what;
        std::function<void()> change;
    } changes[] = {
        {"point added", [&] { stl.CreatePoint(1, 2, 3); }},
        {"graph edge added",
         [&]
         {
             MStlPoint* p = stl.GetPointList().GetFirstPoint();
             stl.CreateGraphEdge(p, p);
         }},
        {"triangle added",
         [&]
         {
             MStlPoint* p = stl.GetPointList().GetFirstPoint();
             stl.CreateTriangle(p, p, p);
         }},
        {"triangles changed", [&] { stl.NotifyTrianglesChanged(); }},
        {"mesh cleared", [&] { stl.ClearStl(true); }},
    };
    for (const auto& c : changes)
    {
        SCOPED_TRACE(c.what);
        card->GetRevision(true);
        ASSERT_TRUE(card->RevisionUpToDate());
        c.change();
        EXPECT_FALSE(card->RevisionUpToDate());
    }
}
