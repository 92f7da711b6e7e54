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

// The bytes of a mesh saved with the switches, found at the end of the file before the plug-in block.
Bytes BeforePluginBlock(MStlBase& mesh, unsigned s, size_t length)
{
    const Bytes bytes = SaveToBytes(mesh, s);
    const size_t block = PluginBlockSize();
    EXPECT_GT(bytes.size(), block + length);
    return Bytes(bytes.end() - static_cast<std::ptrdiff_t>(block + length),
                 bytes.end() - static_cast<std::ptrdiff_t>(block));
}
} // namespace

TEST(NativeGolden, EmptyMeshWithAllSwitchesOffAndWithDefaults)
{
    MStlBase mesh;
    MStlFileIO::MErrorCode code = eStlFileIONoStl;
    ByteBuilder off;
    off.header().raw({0, 0, 1, 0, 0, 0, 0, 0, 0, 0}); // info block: only "mesh present"
    EmptyProperties(off).u8(2).str("Standard");
    off.u8(48).u32(0).u8(49).u8(3);       // graph feature, always present
    off.raw({202, 0, 203}).pluginBlock(mesh); // face groups, absent
    EXPECT_EQ(off.bytes, SaveToBytes(mesh, kAllOff, &code));
    EXPECT_EQ(eStlFileIOSuccess, code);

    ByteBuilder defaults;
    defaults.header().raw({1, 1, 1, 1, 1, 1, 0, 0, 0, 1});
    EmptyProperties(defaults).u8(2).str("Standard");
    defaults.u8(1);                                     // vertices shared
    defaults.u8(8).u64(0).u8(9);                        // point list: no coordinates, no user-defined points
    defaults.u8(40).u64(0).u8(0).u8(41);                // triangle list: no triangles, no colours
    defaults.u8(42).u32(1).wstr("").u32(0);             // surface list: the unnamed main surface, no borders
    defaults.u8(60).u32(1).u8(1).u8(61).u8(43);         // surface visibilities
    defaults.u8(44).u32(0).u8(45).u8(48).u32(0).u8(49); // curve list, graph feature
    defaults.u8(18).u32(0xFF808080u).u32(0).f32(0.0f).u32(0).u8(19).u8(3); // material
    defaults.u8(52).u32(0).u8(53).raw({54, 0, 0, 55}); // registered points; no triangle or vertex mask
    defaults.raw({202, 0, 203}).pluginBlock(mesh);
    EXPECT_EQ(defaults.bytes, SaveToBytes(mesh));
}

TEST(NativeGolden, PointListAtEveryWidth)
{
    const struct
    {
        std::array<int, 3> a, b;
        uint8_t width;
        Bytes packed; // both points, relative to the minimum corner
    } cases[] = {
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
    for (const auto& c : cases)
    {
        for (bool userDefined : {false, true})
        {
            SCOPED_TRACE(testing::Message() << "width " << int(c.width) << ", user-defined " << userDefined);
            MStlBase mesh;
            std::vector<MStlPoint*> created;
            ASSERT_TRUE(mesh.CreatePoints({c.a, c.b}, &created));
            created[1]->SetUserDefined(userDefined);
            const Bytes bytes = SaveToBytes(mesh, kPoints);

            ByteBuilder e;
            e.header().raw({0, 0, 1, 0, 1, 0, 0, 0, 0, 0}).u8(0).u8(1);
            for (int axis = 0; axis < 3; ++axis)
                e.i32(std::min(c.a[axis], c.b[axis])).i32(std::max(c.a[axis], c.b[axis]));
            e.u8(c.width).u64(2).u8(1).u64(0).u8(1).u8(2).str("Standard").u8(1).u8(8).raw(c.packed);
            (userDefined ? e.u64(1).u64(1) : e.u64(0)).u8(9);
            e.u8(48).u32(0).u8(49).u8(3).raw({202, 0, 203}).pluginBlock(mesh);
            EXPECT_EQ(e.bytes, bytes);

            MStlBase loaded;
            ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
            std::vector<std::array<int, 4>> points; // x, y, z, user-defined
            for (const MStlPoint* p = loaded.GetPointList().GetFirstPoint(); p; p = p->GetNext())
                points.push_back({p->GetX(), p->GetY(), p->GetZ(), p->IsUserDefined(false)});
            EXPECT_EQ((std::vector<std::array<int, 4>>{{c.a[0], c.a[1], c.a[2], 0},
                                                       {c.b[0], c.b[1], c.b[2], userDefined}}),
                      points);
            EXPECT_EQ(loaded.GetPointList().GetPointWithIndex(1),
                      loaded.GetPointList().FindPoint(c.b[0], c.b[1], c.b[2]));
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
    ByteBuilder e;
    e.u8(2).str("Compact").u8(1).u8(8).u32(0).u32(0).u32(0).u32(3).u32(3).u32(0);
    e.u8(9).u8(48).u32(0).u8(49).u8(3).raw({202, 0, 203});
    EXPECT_EQ(e.bytes, BeforePluginBlock(mesh, kPoints, e.bytes.size()));
}

TEST(NativeGolden, TriangleListPackedWithTheVertexIndexWidthAndMaterialWordOrder)
{
    MStlBase mesh;
    std::vector<MStlTriangle*> triangles;
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{{0, 1, 2}, {1, 3, 2}}}, nullptr,
                            nullptr, &triangles));
    triangles[1]->SetColor(MStlColor(0x00123456u));
    MStlMaterial material;
    material.SetDiffuse(0x11111111u);
    material.SetRGB(0x44332211u);
    material.SetSpecular(0x0A0B0C0Du);
    material.SetAmbient(0x01020304u);
    material.SetShininess(2.5f);
    mesh.SetMaterial(material);
    ByteBuilder e;
    e.u8(40).u64(2).raw({0, 1, 2, 1, 3, 2}); // four vertices: one byte per index
    e.u8(1).u32(0).u32(0x01123456u).u8(41);  // colours: undefined, then defined
    e.u8(42).u32(1).wstr("").u32(0).u8(60).u32(1).u8(1).u8(61).u8(43).u8(48).u32(0).u8(49);
    // Material: colour, ambient, shininess, specular; the diffuse word is not stored.
    e.u8(18).u32(0x44332211u).u32(0x01020304u).f32(2.5f).u32(0x0A0B0C0Du).u8(19);
    const Bytes bytes = SaveToBytes(mesh, kPoints | kTriangles | kColors);
    EXPECT_NE(SIZE_MAX, Find(bytes, e.bytes));

    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    const MStlMaterial& m = loaded.GetMaterial();
    EXPECT_EQ((std::array<uint32_t, 4>{0u, 0x44332211u, 0x0A0B0C0Du, 0x01020304u}),
              (std::array<uint32_t, 4>{m.GetDiffuse(), m.GetRGB(), m.GetSpecular(), m.GetAmbient()}));
    EXPECT_EQ(2.5f, m.GetShininess());
    EXPECT_TRUE(m.GetColorIsReadFromFile());
}

TEST(NativeGolden, FaceGroupsPresentAndAbsent)
{
    MStlBase mesh;
    ASSERT_TRUE(mesh.Create({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{{0, 1, 2}, {1, 3, 2}}}, nullptr,
                            nullptr, nullptr));
    EXPECT_EQ((Bytes{202, 0, 203}), BeforePluginBlock(mesh, kAllOff, 3));
    MStlBaseFaceGroupInfo* groups = mesh._CreateFaceGroupInfo();
    groups->SetFaceID(*mesh.GetTriangleWithIndex(0), 7);
    groups->SetFaceID(*mesh.GetTriangleWithIndex(1), 0x01020304u);
    const Bytes expected{202, 1, 7, 0, 0, 0, 4, 3, 2, 1, 203}; // 3 + 4n bytes
    EXPECT_EQ(expected, BeforePluginBlock(mesh, kAllOff, expected.size()));

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
