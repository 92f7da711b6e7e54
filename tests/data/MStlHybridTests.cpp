#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

#if defined(__linux__)
#include <dirent.h>
#include <unistd.h>
#endif

using namespace KelSDK::Triangles::Data;

namespace
{
// A small mesh with a shared edge, a repeated corner position, a degenerate triangle, two
// surfaces and some colours, as the uniform interface sees it.
struct Sample
{
    std::vector<std::array<int, 3>> vertices{
        {0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {10, 10, -3}, {-7, 2, 2147483647}};
    std::vector<std::array<unsigned, 3>> triangles{{0, 1, 2}, {1, 3, 2}, {2, 2, 4}, {4, 3, 0}};
    std::vector<int> surface{0, 0, 1, 1}; // position in the surface list
    std::vector<MStlColor> colors{MStlColor(0xFF), MStlColor(), MStlColor(0x00FF00), MStlColor(0)};
};

// Builds the sample through MStlHybrid only.
void BuildThroughHybrid(MStlBase& stl, MStlHybridState state)
{
    const Sample s;
    MStlHybrid& h = stl.GetStlHybrid();
    ASSERT_TRUE(h.SetState(state));
    MStlSurface* second = stl.AddSurface();
    second->SetName(L"second");
    ASSERT_TRUE(h.StartAddingVertices());
    for (size_t i = 0; i < s.vertices.size(); ++i)
        ASSERT_EQ(i, h.AddVertex(s.vertices[i][0], s.vertices[i][1], s.vertices[i][2]));
    for (int surface = 0; surface < 2; ++surface)
    {
        ASSERT_TRUE(h.StartAddingTriangles(stl.GetSurfaceList().GetSurface(surface)));
        for (size_t t = 0; t < s.triangles.size(); ++t)
        {
            if (s.surface[t] == surface)
            {
                ASSERT_EQ(t, h.AddTriangle(s.triangles[t][0], s.triangles[t][1], s.triangles[t][2]));
            }
        }
    }
    ASSERT_TRUE(h.StartAddingTriangleColors());
    for (const MStlColor& c : s.colors)
        ASSERT_TRUE(h.AddColor(c));
    EXPECT_TRUE(h.Close());
    h.UpdateParentBoundingBox();
}

// Reads the mesh back through MStlHybrid and checks it against the sample.
void ExpectSample(const MStlBase& stl)
{
    const Sample s;
    const MStlHybrid& h = stl.GetStlHybrid();
    ASSERT_TRUE(h.OpenRead());
    ASSERT_EQ(s.vertices.size(), h.GetNumVertices());
    ASSERT_EQ(s.triangles.size(), h.GetNumTriangles());
    for (size_t i = 0; i < s.vertices.size(); ++i)
    {
        int x = 0, y = 0, z = 0;
        ASSERT_TRUE(h.GetVertex(i, x, y, z));
        EXPECT_EQ(s.vertices[i], (std::array<int, 3>{x, y, z})) << i;
    }
    int x, y, z;
    EXPECT_FALSE(h.GetVertex(s.vertices.size(), x, y, z));
    ASSERT_TRUE(h.StartGettingTriangleColors());
    for (size_t t = 0; t < s.triangles.size(); ++t)
    {
        unsigned a = 0, b = 0, c = 0;
        ASSERT_TRUE(h.GetTriangle(t, a, b, c));
        EXPECT_EQ(s.triangles[t], (std::array<unsigned, 3>{a, b, c})) << t;
        EXPECT_EQ(s.colors[t], h.GetColor(t)) << t;
        EXPECT_EQ(stl.GetSurfaceList().GetSurface(size_t(s.surface[t])), h.GetTriangleSurface(t)) << t;
    }
    unsigned a, b, c;
    EXPECT_FALSE(h.GetTriangle(s.triangles.size(), a, b, c));
    EXPECT_FALSE(h.GetColor(s.triangles.size()).IsDefined());
    int e[6];
    ASSERT_TRUE(stl.GetProperties().CalculateExtremes(e[0], e[1], e[2], e[3], e[4], e[5]));
    EXPECT_EQ((std::vector<int>{-7, 10, 0, 10, -3, 2147483647}), std::vector<int>(e, e + 6));
    EXPECT_EQ(2147483647, stl.GetBoundingBox().GetMax()[2]);
    EXPECT_TRUE(h.Close());
}

class HybridKinds : public ::testing::TestWithParam<MStlHybridState>
{
};

#if defined(__linux__)
int CountOpenFiles()
{
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd"))
    {
        while (readdir(d))
            ++n;
        closedir(d);
    }
    return n;
}
#endif
} // namespace

TEST_P(HybridKinds, SameMeshReadsBackTheSame)
{
    MStlBase stl;
    BuildThroughHybrid(stl, GetParam());
    EXPECT_EQ(GetParam(), stl.GetStlHybrid().GetState());
    ExpectSample(stl);
    // A second read pass gives the same (OnDisk reopens its files).
    ExpectSample(stl);
}

TEST_P(HybridKinds, AllKindsCompareEqualToEachOther)
{
    MStlBase reference;
    BuildThroughHybrid(reference, eStlStandard);
    MStlBase stl;
    BuildThroughHybrid(stl, GetParam());
    EXPECT_EQ("", CompareMeshes(reference, stl));
    MStlCompareOptions strict;
    strict.storageKind = true;
    EXPECT_EQ(GetParam() == eStlStandard, CompareMeshes(reference, stl, strict).empty());
    // One changed vertex is reported with its index.
    MStlBase changed;
    BuildThroughHybrid(changed, GetParam());
    changed.GetStlHybrid().StartAddingVertices();
    changed.GetStlHybrid().AddVertex(1, 1, 1);
    changed.GetStlHybrid().Close();
    EXPECT_EQ("vertex count 5 != 6", CompareMeshes(stl, changed));
}

TEST_P(HybridKinds, OutOfRangeIndicesAreRefused)
{
    MStlBase stl;
    BuildThroughHybrid(stl, GetParam());
    MStlHybrid& h = stl.GetStlHybrid();
    h.StartAddingTriangles(nullptr);
    EXPECT_EQ(MStlInvalidIndex, h.AddTriangle(0, 1, 5));
    EXPECT_EQ(MStlInvalidIndex, h.AddTriangle(0xFFFFFFFFu, 1, 2));
    h.Close();
    EXPECT_EQ(4u, h.GetNumTriangles());
    MStlBase other;
    EXPECT_FALSE(h.StartAddingTriangles(other.GetMainSurface()));
}

TEST_P(HybridKinds, SwitchingKindEmptiesTheMesh)
{
    MStlBase stl;
    BuildThroughHybrid(stl, GetParam());
    stl._CreateFaceGroupInfo();
    const MStlHybridState next = GetParam() == eStlOnDisk ? eStlStandard : MStlHybridState(GetParam() + 1);
    ASSERT_TRUE(stl.GetStlHybrid().SetState(next));
    EXPECT_EQ(0u, stl.GetStlHybrid().GetNumVertices());
    EXPECT_EQ(0u, stl.GetStlHybrid().GetNumTriangles());
    EXPECT_EQ(nullptr, stl.GetFaceGroupInfo());
    EXPECT_EQ(next == eStlCompact, stl.GetStlHybrid().GetStlCompact() != nullptr);
    EXPECT_EQ(next == eStlOnDisk, stl.GetStlHybrid().GetStlOnDisk() != nullptr);
    EXPECT_FALSE(stl.GetStlHybrid().SetState(MStlHybridState(3)));
    EXPECT_EQ(next, stl.GetStlHybrid().GetState());
    // Usable after the switch.
    BuildThroughHybrid(stl, next);
    ExpectSample(stl);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, HybridKinds, ::testing::Values(eStlStandard, eStlCompact, eStlOnDisk),
                         [](const ::testing::TestParamInfo<MStlHybridState>& info) {
                             return info.param == eStlStandard
                                        ? "Standard"
                                        : (info.param == eStlCompact ? "Compact" : "OnDisk");
                         });

TEST(MStlCompact, VertexSharingAndColourMask)
{
    MStlBase stl;
    ASSERT_TRUE(stl.GetStlHybrid().SetState(eStlCompact));
    MStlCompactHybrid* c = stl.GetStlHybrid().GetStlCompact();
    ASSERT_NE(nullptr, c);
    c->EnableVertexSharing(false);
    c->BeginAdding();
    c->SetCurrentSurface(stl.GetSurfaceList().GetSurface(0));
    // AddVertexIE always finds an existing position; AddVertex appends while sharing is off.
    EXPECT_EQ(0u, c->AddVertexIE(1, 2, 3));
    EXPECT_EQ(1u, c->AddVertexIE(3, 2, 1));
    EXPECT_EQ(0u, c->AddVertexIE(1, 2, 3));
    EXPECT_EQ(2u, c->AddVertex(1, 2, 3));
    EXPECT_EQ(0u, c->AddVertexIE(1, 2, 3));
    c->EnableVertexSharing(true);
    EXPECT_EQ(1u, c->AddVertex(3, 2, 1));
    EXPECT_TRUE(stl.GetStlHybrid().GetVerticesShared());
    EXPECT_EQ(0u, c->AddTriangle(0, 1, 2));
    EXPECT_EQ(1u, c->AddTriangle(0, 0, 0)); // degenerate triangles are kept
    EXPECT_EQ(MStlInvalidIndex, c->AddTriangle(0, 1, 3));
    EXPECT_EQ(3, c->GetVertex(1).GetX());
    EXPECT_EQ(0, c->GetVertex(99).GetX());
    EXPECT_EQ(stl.GetMainSurface(), c->GetTriangleSurface(1));
    // Colours through the mask: created on demand, undefined where never set.
    EXPECT_EQ(nullptr, stl.GetColorMasks().GetMainTriangleColorMask());
    EXPECT_FALSE(stl.GetStlHybrid().StartGettingTriangleColors());
    MStlTriangleColorMask* mask = stl.GetColorMasks().CreateMainTriangleColorMask();
    EXPECT_EQ(mask, stl.GetColorMasks().CreateMainTriangleColorMask());
    mask->SetInfo(1, MStlColor(0xABCDEF));
    EXPECT_TRUE(stl.GetStlHybrid().StartGettingTriangleColors());
    EXPECT_FALSE(stl.GetStlHybrid().GetColor(0).IsDefined());
    EXPECT_EQ(MStlColor(0xABCDEF), stl.GetStlHybrid().GetColor(1));
    // Graph edges by index.
    EXPECT_EQ(0u, c->AddEdge(0, 1));
    EXPECT_EQ(MStlInvalidIndex, c->AddEdge(0, 7));
    EXPECT_EQ(1u, stl.GetStlHybrid().GetNumberOfEdges());
    // Many distinct positions, then every one found again.
    for (int i = 0; i < 50000; ++i)
        ASSERT_EQ(3u + unsigned(i), c->AddVertexIE(i, -i, i * 7));
    for (int i = 0; i < 50000; i += 13)
        ASSERT_EQ(3u + unsigned(i), c->AddVertexIE(i, -i, i * 7));
}

TEST(MStlOnDisk, WritingProtocolSharingAndColours)
{
    MStlBase stl;
    ASSERT_TRUE(stl.GetStlHybrid().SetState(eStlOnDisk));
    MStlOnDisk* d = stl.GetStlHybrid().GetStlOnDisk();
    ASSERT_NE(nullptr, d);
    // Nothing can be added before OpenWrite, nothing read while closed.
    EXPECT_EQ(MStlInvalidVertex, d->AddVertex(1, 2, 3));
    ASSERT_TRUE(d->OpenWrite(false));
    d->StartAddingVertices();
    EXPECT_EQ(0u, d->AddVertex(1, 2, 3));
    EXPECT_EQ(1u, d->AddVertex(4, 5, 6));
    EXPECT_EQ(0u, d->AddVertex(1, 2, 3)); // shared on its own
    EXPECT_EQ(2u, d->AddVertex(7, 8, 9));
    d->StartAddingSurfaceTriangles(stl.GetMainSurface());
    d->StartAddingTriangleColors();
    EXPECT_EQ(0u, d->AddSurfaceTriangle(0, 1, 2));
    EXPECT_TRUE(d->AddColor(MStlColor::ConvertFrom16BitValue(0x001F)));
    EXPECT_EQ(1u, d->AddSurfaceTriangle(2, 2, 2));
    EXPECT_TRUE(d->AddColor(MStlColor()));
    EXPECT_EQ(MStlInvalidIndex, d->AddSurfaceTriangle(0, 1, 3));
    d->UpdateParentBoundingBox();
    EXPECT_TRUE(d->Close());
    int x, y, z;
    EXPECT_FALSE(d->GetVertex(0, x, y, z, true));
    EXPECT_EQ(9, stl.GetBoundingBox().GetMax()[2]);

    ASSERT_TRUE(d->OpenRead());
    EXPECT_EQ(3u, d->GetNumVertices());
    ASSERT_TRUE(d->GetVertex(2, x, y, z, true));
    EXPECT_EQ(8, y);
    unsigned a, b, c;
    ASSERT_TRUE(d->GetTriangle(1, a, b, c));
    EXPECT_EQ(2u, c);
    EXPECT_EQ(MStlColor(0xFF), d->GetColor(0));
    EXPECT_FALSE(d->GetColor(1).IsDefined());
    EXPECT_EQ(MStlInvalidVertex, d->AddVertex(0, 0, 0)); // not open for writing
    EXPECT_TRUE(d->Close());

    // Appending keeps what was there; OpenWrite(false) starts over.
    ASSERT_TRUE(d->OpenWrite(true));
    EXPECT_EQ(1u, d->AddVertex(4, 5, 6));
    EXPECT_EQ(3u, d->AddVertex(0, 0, 1));
    EXPECT_TRUE(d->Close());
    ASSERT_TRUE(d->OpenWrite(false));
    EXPECT_EQ(0u, d->GetNumVertices());
    EXPECT_EQ(0u, d->AddVertex(4, 5, 6));
    d->EnableVertexSharing(false);
    EXPECT_EQ(1u, d->AddVertex(4, 5, 6));
    EXPECT_TRUE(d->Close());
}

TEST(MStlOnDisk, ManyElementsAcrossBufferAndCacheBoundaries)
{
    MStlBase stl;
    ASSERT_TRUE(stl.GetStlHybrid().SetState(eStlOnDisk));
    MStlOnDisk* d = stl.GetStlHybrid().GetStlOnDisk();
    ASSERT_TRUE(d->OpenWrite(false));
    const unsigned n = 300000; // 3.6 MB of vertices: several write buffers and cache blocks
    for (unsigned i = 0; i < n; ++i)
        ASSERT_EQ(i, d->AddVertex(int(i), -int(i), int(i % 1000)));
    for (unsigned i = 0; i + 2 < n; i += 3)
    {
        ASSERT_NE(MStlInvalidIndex, d->AddSurfaceTriangle(i, i + 1, i + 2));
        ASSERT_TRUE(d->AddColor(MStlColor(i & 0xFFFFFF)));
    }
    // Reads while still writing see the buffered tail as well.
    int x, y, z;
    ASSERT_TRUE(d->GetVertex(n - 1, x, y, z, false));
    EXPECT_EQ(int(n - 1), x);
    ASSERT_TRUE(d->OpenRead());
    // Backwards and strided access exercise the cache.
    for (size_t i = n; i-- > 0;)
    {
        if (i % 7 == 0)
        {
            ASSERT_TRUE(d->GetVertex(i, x, y, z, false));
            ASSERT_EQ(-int(i), y);
        }
    }
    unsigned a, b, c;
    ASSERT_TRUE(d->GetTriangle(n / 3 - 1, a, b, c));
    EXPECT_EQ(n - 1, c);
    EXPECT_EQ(MStlColor((n - 3) & 0xFFFFFF), d->GetColor(n / 3 - 1));
    EXPECT_TRUE(d->Close());
}

#if defined(__linux__)
TEST(MStlOnDisk, TemporaryFilesAreUnlinkedAndClosedWithTheMesh)
{
    const int before = CountOpenFiles();
    {
        MStlBase stl;
        ASSERT_TRUE(stl.GetStlHybrid().SetState(eStlOnDisk));
        MStlOnDisk* d = stl.GetStlHybrid().GetStlOnDisk();
        ASSERT_TRUE(d->OpenWrite(false));
        for (int i = 0; i < 200000; ++i)
            d->AddVertex(i, i, i);
        d->AddSurfaceTriangle(0, 1, 2);
        d->AddColor(MStlColor(1));
        ASSERT_TRUE(d->Close());
        EXPECT_EQ(before + 3, CountOpenFiles());
        // Every file the store holds is already gone from the directory tree.
        int deleted = 0;
        if (DIR* dir = opendir("/proc/self/fd"))
        {
            while (dirent* e = readdir(dir))
            {
                char target[512] = {};
                const std::string link = std::string("/proc/self/fd/") + e->d_name;
                const ssize_t len = readlink(link.c_str(), target, sizeof target - 1);
                if (len > 0 && std::string(target, size_t(len)).find("(deleted)") != std::string::npos)
                    ++deleted;
            }
            closedir(dir);
        }
        EXPECT_GE(deleted, 3);
    }
    EXPECT_EQ(before, CountOpenFiles());
}
#endif

TEST_P(HybridKinds, SurfacesInUseStayAndFaceGroupsFollowTheStore)
{
    MStlBase stl;
    BuildThroughHybrid(stl, GetParam());
    MStlHybrid& h = stl.GetStlHybrid();
    MStlSurface* second = stl.GetSurfaceList().GetSurface(1);
    EXPECT_FALSE(stl.GetSurfaceList().RemoveSurface(second));
    // A surface that is current for adding but holds nothing can go; adding falls back to the
    // main surface.
    MStlSurface* third = stl.AddSurface();
    ASSERT_TRUE(h.StartAddingTriangles(third));
    EXPECT_TRUE(stl.GetSurfaceList().RemoveSurface(third));
    ASSERT_EQ(4u, h.AddTriangle(0, 1, 4));
    EXPECT_TRUE(h.Close());
    ASSERT_TRUE(h.OpenRead());
    EXPECT_EQ(stl.GetMainSurface(), h.GetTriangleSurface(4));
    h.Close();

    MStlBaseFaceGroupInfo* groups = stl._CreateFaceGroupInfo();
    groups->SetFaceID(size_t(3), 9);
    EXPECT_EQ(9u, groups->GetFaceID(size_t(3)));
    EXPECT_EQ(0u, groups->GetFaceID(size_t(4)));
    // Triangles added after the face groups were created take identifiers too.
    h.StartAddingTriangles(nullptr);
    ASSERT_EQ(5u, h.AddTriangle(1, 2, 3));
    h.Close();
    groups->SetFaceID(size_t(5), 77);
    EXPECT_EQ(77u, groups->GetFaceID(size_t(5)));
    groups->SetFaceID(size_t(6), 1); // no such triangle
    EXPECT_EQ(0u, groups->GetFaceID(size_t(6)));
    EXPECT_EQ(6u, groups->GetSize());
}
