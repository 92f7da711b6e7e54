// The "StlTextures" section: bitmaps written once however many textures share them, what loading
// replaces and skips, and bitmaps larger than the payload.
#include "PluginTestSupport.h"

using namespace PluginTest;

namespace
{
// The record of a bitmap made by Bitmap(width, height, seed).
ByteBuilder& BitmapRecord(ByteBuilder& b, uint32_t width, uint32_t height, uint8_t seed)
{
    b.u32(width).u32(height);
    for (uint32_t i = 0; i < width * height; ++i)
        b.u32(seed * 0x01010101u + i);
    b.u32(5).raw({0x89, 'P', 'N', 'G', seed});
    return b.wstr("tex" + std::to_string(seed) + ".png")
        .wstr("png")
        .wstr("d\xE9"
              "cor")
        .wstr("anna");
}
} // namespace

TEST(TexturePlugin, SharedBitmapsAreWrittenOnceAndComeBackShared)
{
    MStlBase mesh;
    BuildStandard(mesh);
    AttachEverything(mesh);
    ByteBuilder e;
    e.u32(2).u8(1);
    BitmapRecord(e, 2, 2, 1).u8(0);
    BitmapRecord(e, 1, 3, 2).u32(4);
    e.wstr("texture 0").u32(0).u8(0).f64(0).u8(0).u8(0).wstr("").wstr("").f64(0).u32(2);
    e.u64(1)
        .f32(0)
        .f32(1)
        .f32(0.5f)
        .f32(0.25f)
        .f32(0.75f)
        .f32(1)
        .u64(3)
        .f32(-1)
        .f32(2)
        .f32(3)
        .f32(4)
        .f32(5)
        .f32(6);
    e.wstr("texture 1").u32(0).u8(1).f64(12.5).u8(1).u8(0).wstr("").wstr("").f64(0).u32(0);
    e.wstr("texture 2").u32(1).u8(0).f64(0).u8(0).u8(1).wstr("KelSDK").wstr("Sans").f64(40).u32(0);
    e.wstr("texture 3").u32(0xFFFFFFFFu).u8(0).f64(0).u8(0).u8(0).wstr("").wstr("").f64(0).u32(0);
    const Bytes bytes = SaveToBytes(mesh);
    EXPECT_EQ(e.bytes, SplitPluginBlock(bytes).Payload(L"StlTextures"));

    MStlBase loaded;
    ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(bytes, loaded));
    EXPECT_EQ("", Differences(mesh, loaded));
    const MStlTextureList& textures = loaded.GetTextures();
    ASSERT_EQ(4u, textures.GetNumTextures());
    EXPECT_EQ(textures.GetTexture(0)->GetSharedBitmap(), textures.GetTexture(1)->GetSharedBitmap());
    EXPECT_FALSE(textures.GetTexture(2)->GetSharedBitmap()->HasAlpha());
    EXPECT_EQ(nullptr, textures.GetTexture(3)->GetSharedBitmap());
}

TEST(TexturePlugin, LoadingReplacesTheListAndSkipsWhatPointsOutside)
{
    MStlBase mesh, loaded;
    BuildStandard(mesh); // four triangles
    loaded.GetTextures().AddTexture()->SetName(L"old");
    ByteBuilder p;
    p.u32(0).u32(1).wstr("t").u32(5).u8(0).f64(0).u8(0).u8(0).wstr("").wstr("").f64(0).u32(2);
    p.u64(4).f32(0).f32(0).f32(0).f32(0).f32(0).f32(0).u64(0).f32(1).f32(1).f32(1).f32(1).f32(1).f32(1);
    ASSERT_EQ(eStlFileIOSuccess,
              LoadFromBytes(WithPayload(SaveToBytes(mesh), L"StlTextures", p.bytes), loaded));
    ASSERT_EQ(1u, loaded.GetTextures().GetNumTextures());
    const MStlTexture& texture = *loaded.GetTextures().GetTexture(0);
    EXPECT_EQ(L"t", texture.GetName());
    EXPECT_EQ(nullptr, texture.GetSharedBitmap()); // bitmap 5 of none
    ASSERT_EQ(1u, texture.Coordinates().size());   // triangle 4 of four skipped
    EXPECT_EQ(0u, texture.Coordinates()[0].triangle);
}

TEST(TexturePlugin, ABitmapLargerThanThePayloadEndsIt)
{
    MStlBase mesh;
    BuildStandard(mesh);
    AttachEverything(mesh);
    const Bytes file = SaveToBytes(mesh);
    const struct
    {
        const char* what;
        Bytes payload;
    } rows[] = {
        {"65536 x 65536 pixels", ByteBuilder().u32(1).u8(1).u32(65536).u32(65536).u32(0).bytes},
        {"original data larger than the payload", ByteBuilder().u32(1).u8(1).u32(0).u32(0).u32(1000).bytes},
        {"more bitmaps counted than held", ByteBuilder().u32(0x10000000u).bytes},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.what);
        MStlBase loaded;
        ASSERT_EQ(eStlFileIOSuccess, LoadFromBytes(WithPayload(file, L"StlTextures", row.payload), loaded));
        EXPECT_EQ(0u, loaded.GetTextures().GetNumTextures());
        // The maps that follow find no textures; everything else is as saved.
        EXPECT_EQ(3u, UVMapList::Get(&loaded, false)->GetNumberOfMaps());
        EXPECT_TRUE(UVMapList::Get(&loaded, false)->GetMap(0)->GetTextures().empty());
        EXPECT_EQ(*GetIDCard(&mesh), *GetIDCard(&loaded));
    }
}
