// The "UVMapList" section: maps that borrow a texture's bitmap, maps with their own, maps without
// textures or bitmap, loading that appends, and positions outside the texture list.
#include "PluginTestSupport.h"

using namespace PluginTest;

TEST(UVMapListPlugin, AbsentIsOneFalseByte)
{
    MStlBase mesh, loaded;
    BuildStandard(mesh);
    const Bytes bytes = SaveToBytes(mesh);
    EXPECT_EQ(Bytes{0}, SplitPluginBlock(bytes).Payload(L"UVMapList"));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    EXPECT_EQ(nullptr, UVMapList::Get(&loaded, false));
}

TEST(UVMapListPlugin, ABitmapOfTheMapsOwnTextureIsWrittenAsItsPosition)
{
    MStlBase mesh;
    BuildStandard(mesh);
    AttachEverything(mesh);
    ByteBuilder e;
    e.u8(1).u32(3);
    // "shared": its bitmap is that of its second texture, so own bitmap false and position 1.
    e.wstr("shared").u32(2).u32(2).u32(0).f64(0.125).f64(-2.5).u8(1).i32(0).u8(1).u8(1).u8(0).u32(1);
    // "own" has no textures and writes its bitmap in full; so does "hidden", whose texture has another.
    e.wstr("own").u32(0).f64(1).f64(1).u8(0).i32(1).u8(1).u8(1).u8(1).u32(3).u32(1);
    e.u32(0x03030303u).u32(0x03030304u).u32(0x03030305u).u32(5).raw({0x89, 'P', 'N', 'G', 3});
    e.wstr("tex3.png")
        .wstr("png")
        .wstr("d\xE9"
              "cor")
        .wstr("anna");
    e.wstr("hidden").u32(1).u32(1).f64(1).f64(1).u8(1).i32(2).u8(0).u8(0).u8(1).u32(1).u32(1);
    e.u32(0x04040404u).u32(5).raw({0x89, 'P', 'N', 'G', 4});
    e.wstr("tex4.png")
        .wstr("png")
        .wstr("d\xE9"
              "cor")
        .wstr("anna");
    const Bytes bytes = SaveToBytes(mesh);
    EXPECT_EQ(e.bytes, SplitPluginBlock(bytes).Payload(L"UVMapList"));

    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    EXPECT_EQ("", Differences(mesh, loaded));
    const UVMap& shared = *UVMapList::Get(&loaded, false)->GetMap(0);
    EXPECT_EQ(loaded.GetTextures().GetTexture(0)->GetSharedBitmap(), shared.GetSharedBitmap());
}

TEST(UVMapListPlugin, AMapWithoutBitmapStaysWithout)
{
    MStlBase mesh, loaded;
    BuildStandard(mesh);
    UVMapList::Get(&mesh, true)->AddMap()->SetName(L"bare");
    const Bytes bytes = SaveToBytes(mesh);
    ByteBuilder e;
    e.u8(1).u32(1).wstr("bare").u32(0).f64(1).f64(1).u8(1).i32(0).u8(1).u8(1).u8(1);
    e.u32(0).u32(0).u32(0).wstr("").wstr("").wstr("").wstr("");
    EXPECT_EQ(e.bytes, SplitPluginBlock(bytes).Payload(L"UVMapList"));
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    EXPECT_EQ(nullptr, UVMapList::Get(&loaded, false)->GetMap(0)->GetSharedBitmap());
}

TEST(UVMapListPlugin, LoadingAppendsMapsAndSkipsPositionsOutsideTheTextureList)
{
    MStlBase mesh;
    BuildStandard(mesh);
    mesh.GetTextures().AddTexture()->SetSharedBitmap(Bitmap(1, 1, 9));
    const Bytes file = SaveToBytes(mesh);
    ByteBuilder p;
    p.u8(1).u32(3);
    // Texture positions 7 and 0: the first is skipped; the bitmap is that of position 0 in the map.
    p.wstr(std::string("a\0z", 3)).u32(2).u32(7).u32(0).f64(2).f64(3).u8(0).i32(9).u8(0).u8(1).u8(0).u32(0);
    // Sharing position 1 of a map with one texture: no bitmap.
    p.wstr("b").u32(1).u32(0).f64(1).f64(1).u8(1).i32(0).u8(1).u8(1).u8(0).u32(1);
    // Cut inside the third map: it is not added.
    p.wstr("c").u32(1);
    MStlBase loaded;
    loaded.GetTextures().AddTexture();
    UVMapList::Get(&loaded, true)->AddMap()->SetName(L"before");
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(WithPayload(file, L"UVMapList", p.bytes), loaded));
    const UVMapList& list = *UVMapList::Get(&loaded, false);
    ASSERT_EQ(3u, list.GetNumberOfMaps());
    EXPECT_EQ(L"before", list.GetMap(0)->GetName());
    const UVMap& a = *list.GetMap(1);
    EXPECT_EQ(L"a", a.GetName()); // a name ends at its first NUL, as it would be written
    ASSERT_EQ(1u, a.GetTextures().size());
    EXPECT_EQ(loaded.GetTextures().GetTexture(0), a.GetTextures()[0]);
    EXPECT_EQ(nullptr, a.GetSharedBitmap()); // position 0 of the map was the skipped texture
    EXPECT_EQ(9, a.GetSizeMethod());
    EXPECT_EQ(nullptr, list.GetMap(2)->GetSharedBitmap());
}
