// Byte-exact layouts of native files, written out by hand from the format description.
#include "NativeTestSupport.h"

using namespace NativeTest;

namespace
{
// Properties of a mesh without vertices: flags, six zero extremes, widths 1, counts 0.
ByteBuilder& EmptyProperties(ByteBuilder& b)
{
    b.u8(0).u8(1);
    for (int i = 0; i < 6; ++i)
        b.i32(0);
    return b.u8(1).u64(0).u8(1).u64(0).u8(1);
}
} // namespace

TEST(NativeGolden, EmptyMeshWithAllSwitchesOff)
{
    MStlBase mesh;
    MStlFileIO::MErrorCode code = eStlFileIONoStl;
    const Bytes bytes = SaveToBytes(mesh, Switches::AllOff(), &code);
    EXPECT_EQ(eStlFileIOSuccess, code);

    ByteBuilder expected;
    expected.header().raw({0, 0, 1, 0, 0, 0, 0, 0, 0, 0}); // info block: only "mesh present"
    EmptyProperties(expected);
    expected.u8(2).str("Standard");
    expected.u8(48).u32(0).u8(49); // graph feature, always present
    expected.u8(3);
    expected.raw({202, 0, 203}); // face groups, absent
    expected.pluginBlock();
    EXPECT_EQ(expected.bytes, bytes);
}

TEST(NativeGolden, EmptyMeshWithDefaultSwitches)
{
    MStlBase mesh;
    const Bytes bytes = SaveToBytes(mesh);

    ByteBuilder expected;
    expected.header().raw({1, 1, 1, 1, 1, 1, 0, 0, 0, 1});
    EmptyProperties(expected);
    expected.u8(2).str("Standard");
    expected.u8(1);                      // vertices shared
    expected.u8(8).u64(0).u8(9);         // point list: no coordinates, no user-defined points
    expected.u8(40).u64(0).u8(0).u8(41); // triangle list: no triangles, no colours
    expected.u8(42).u32(1).wstr("");     // surface list: the unnamed main surface
    expected.u32(0);                     // no borders
    expected.u8(60).u32(1).u8(1).u8(61); // surface visibilities
    expected.u8(43);
    expected.u8(44).u32(0).u8(45);                                   // curve list
    expected.u8(48).u32(0).u8(49);                                   // graph feature
    expected.u8(18).u32(0xFF808080u).u32(0).f32(0.0f).u32(0).u8(19); // material
    expected.u8(3);
    expected.u8(52).u32(0).u8(53); // registered points
    expected.raw({54, 0, 0, 55});  // masks: no triangle mask, no vertex mask
    expected.raw({202, 0, 203});
    expected.pluginBlock();
    EXPECT_EQ(expected.bytes, bytes);
}

TEST(NativeGolden, MaterialWordOrder)
{
    MStlBase mesh;
    MStlMaterial material;
    material.SetDiffuse(0x11111111u); // not stored
    material.SetRGB(0x44332211u);
    material.SetSpecular(0x0A0B0C0Du);
    material.SetAmbient(0x01020304u);
    material.SetShininess(2.5f);
    mesh.SetMaterial(material);
    Switches s = Switches::AllOff();
    s.colors = true;
    const Bytes bytes = SaveToBytes(mesh, s);
    ByteBuilder section;
    section.u8(18).u32(0x44332211u).u32(0x01020304u).f32(2.5f).u32(0x0A0B0C0Du).u8(19);
    EXPECT_NE(SIZE_MAX, Find(bytes, section.bytes));

    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    EXPECT_EQ(0u, loaded.GetMaterial().GetDiffuse());
    EXPECT_EQ(0x44332211u, loaded.GetMaterial().GetRGB());
    EXPECT_EQ(0x0A0B0C0Du, loaded.GetMaterial().GetSpecular());
    EXPECT_EQ(0x01020304u, loaded.GetMaterial().GetAmbient());
    EXPECT_EQ(2.5f, loaded.GetMaterial().GetShininess());
    EXPECT_TRUE(loaded.GetMaterial().GetColorIsReadFromFile());
}

namespace
{
struct PointCase
{
    std::array<int, 3> a, b;
    uint8_t width;
    Bytes packed; // both points, relative to the minimum corner
};

// A file of two points only (points switch on, everything else off).
Bytes ExpectedPointFile(const PointCase& c, bool secondUserDefined)
{
    const int ext[6] = {std::min(c.a[0], c.b[0]), std::max(c.a[0], c.b[0]), std::min(c.a[1], c.b[1]),
                        std::max(c.a[1], c.b[1]), std::min(c.a[2], c.b[2]), std::max(c.a[2], c.b[2])};
    ByteBuilder e;
    e.header().raw({0, 0, 1, 0, 1, 0, 0, 0, 0, 0});
    e.u8(0).u8(1);
    for (int v : ext)
        e.i32(v);
    e.u8(c.width).u64(2).u8(1).u64(0).u8(1);
    e.u8(2).str("Standard").u8(1);
    e.u8(8);
    e.bytes.insert(e.bytes.end(), c.packed.begin(), c.packed.end());
    if (secondUserDefined)
        e.u64(1).u64(1);
    else
        e.u64(0);
    e.u8(9);
    e.u8(48).u32(0).u8(49).u8(3);
    e.raw({202, 0, 203});
    e.pluginBlock();
    return e.bytes;
}
} // namespace

TEST(NativeGolden, PointListAtEveryWidth)
{
    const PointCase cases[] = {
        // Extents 3, 198, 0: one byte per coordinate.
        {{1, 2, 3}, {4, 200, 3}, 1, {0, 0, 0, 3, 198, 0}},
        // Extent 305: two bytes.
        {{-5, 0, 7}, {300, 1, 7}, 2, {0, 0, 0, 0, 0, 0, 0x31, 0x01, 0x01, 0x00, 0x00, 0x00}},
        // Extent 70000 = 0x011170: three bytes.
        {{0, 0, 0}, {70000, 0, 5}, 3, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x70, 0x11, 0x01, 0, 0, 0, 5, 0, 0}},
        // Extent 4000000000 = 0xEE6B2800 does not fit a signed int but its four bytes do.
        {{-2000000000, 0, 0}, {2000000000, 0, 0}, 4, {0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0,
                                                      0x00, 0x28, 0x6B, 0xEE, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    Switches pointsOnly = Switches::AllOff();
    pointsOnly.points = true;
    for (const PointCase& c : cases)
    {
        for (bool userDefined : {false, true})
        {
            SCOPED_TRACE(testing::Message() << "width " << int(c.width) << ", user-defined " << userDefined);
            MStlBase mesh;
            std::vector<MStlPoint*> created;
            ASSERT_TRUE(mesh.CreatePoints({c.a, c.b}, &created));
            created[1]->SetUserDefined(userDefined);
            const Bytes bytes = SaveToBytes(mesh, pointsOnly);
            EXPECT_EQ(ExpectedPointFile(c, userDefined), bytes);

            MStlBase loaded;
            ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
            ASSERT_EQ(2u, loaded.GetPointList().GetNumPoints());
            const MStlPoint* p = loaded.GetPointList().GetFirstPoint();
            EXPECT_EQ(c.a, (std::array<int, 3>{p->GetX(), p->GetY(), p->GetZ()}));
            EXPECT_FALSE(p->IsUserDefined(false));
            p = p->GetNext();
            EXPECT_EQ(c.b, (std::array<int, 3>{p->GetX(), p->GetY(), p->GetZ()}));
            EXPECT_EQ(userDefined, p->IsUserDefined(false));
            EXPECT_EQ(p, loaded.GetPointList().FindPoint(c.b[0], c.b[1], c.b[2]));
        }
    }
}

TEST(NativeGolden, CompactPointsAlwaysTakeFourBytesAndNoUserDefinedCount)
{
    MStlBase mesh;
    MStlHybrid& h = mesh.GetStlHybrid();
    ASSERT_TRUE(h.SetState(eStlCompact));
    ASSERT_TRUE(h.StartAddingVertices());
    h.AddVertex(1, 2, 3);
    h.AddVertex(4, 5, 3);
    h.Close();
    Switches pointsOnly = Switches::AllOff();
    pointsOnly.points = true;
    const Bytes bytes = SaveToBytes(mesh, pointsOnly);
    ByteBuilder e;
    e.u8(2).str("Compact").u8(1).u8(8);
    e.u32(0).u32(0).u32(0).u32(3).u32(3).u32(0);
    e.u8(9).u8(48).u32(0).u8(49).u8(3);
    EXPECT_NE(SIZE_MAX, Find(bytes, e.bytes));
}

TEST(NativeGolden, TriangleListPackedWithTheVertexIndexWidth)
{
    MStlBase mesh;
    std::vector<MStlTriangle*> triangles;
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{{0, 1, 2}, {1, 3, 2}}}, nullptr,
                            nullptr, &triangles));
    triangles[1]->SetColor(MStlColor(0x00123456u));
    Switches s = Switches::AllOff();
    s.points = s.triangles = s.colors = true;
    const Bytes bytes = SaveToBytes(mesh, s);
    ByteBuilder e;
    e.u8(40).u64(2).raw({0, 1, 2, 1, 3, 2}); // four vertices: one byte per index
    e.u8(1).u32(0).u32(0x01123456u);         // colours: undefined, then defined
    e.u8(41);
    e.u8(42).u32(1).wstr("").u32(0).u8(60).u32(1).u8(1).u8(61).u8(43);
    EXPECT_NE(SIZE_MAX, Find(bytes, e.bytes));
}

TEST(NativeGolden, FaceGroupsPresentAndAbsent)
{
    MStlBase mesh;
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{{0, 1, 2}, {1, 3, 2}}}, nullptr,
                            nullptr, nullptr));
    const size_t block = PluginBlockSize();
    {
        const Bytes bytes = SaveToBytes(mesh, Switches::AllOff());
        ASSERT_GT(bytes.size(), block + 3);
        EXPECT_EQ((Bytes{202, 0, 203}), Bytes(bytes.end() - static_cast<std::ptrdiff_t>(block + 3),
                                              bytes.end() - static_cast<std::ptrdiff_t>(block)));
    }
    MStlBaseFaceGroupInfo* groups = mesh._CreateFaceGroupInfo();
    groups->SetFaceID(*mesh.GetTriangleWithIndex(0), 7);
    groups->SetFaceID(*mesh.GetTriangleWithIndex(1), 0x01020304u);
    const Bytes bytes = SaveToBytes(mesh, Switches::AllOff());
    const Bytes expected{202, 1, 7, 0, 0, 0, 4, 3, 2, 1, 203}; // 3 + 4n bytes
    ASSERT_GT(bytes.size(), block + expected.size());
    EXPECT_EQ(expected, Bytes(bytes.end() - static_cast<std::ptrdiff_t>(block + expected.size()),
                              bytes.end() - static_cast<std::ptrdiff_t>(block)));

    // The identifiers need the triangles in the same file; a file without face groups then
    // removes those of the mesh it is loaded into.
    MStlBase target;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), target));
    ASSERT_NE(nullptr, target.GetFaceGroupInfo());
    EXPECT_EQ(0x01020304u, target.GetFaceGroupInfo()->GetFaceID(*target.GetTriangleWithIndex(1)));
    mesh.DeleteFaceGroupInfo();
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(SaveToBytes(mesh), target));
    EXPECT_EQ(nullptr, target.GetFaceGroupInfo());
}
