// UV maps: which textures a map takes, textures leaving the mesh, and the bitmap switch.
#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

using namespace KelSDK::Triangles::Data;
using KelSDK::UVMap;
using KelSDK::UVMapList;

TEST(UVMapList, MapsTakeTheMeshTexturesOnceAndLoseThemWithTheMesh)
{
    MStlBase stl, other;
    MStlTexture* a = stl.GetTextures().AddTexture();
    MStlTexture* b = stl.GetTextures().AddTexture();
    MStlTexture* c = stl.GetTextures().AddTexture();
    MStlTexture* foreign = other.GetTextures().AddTexture();
    UVMapList& list = *UVMapList::Get(&stl, true);
    UVMap* first = list.AddMap();
    UVMap* second = list.AddMap();
    EXPECT_TRUE(first->AddTexture(b));
    EXPECT_TRUE(first->AddTexture(a));
    EXPECT_FALSE(first->AddTexture(b));
    EXPECT_FALSE(first->AddTexture(foreign));
    EXPECT_FALSE(first->AddTexture(nullptr));
    EXPECT_TRUE(second->AddTexture(b));
    EXPECT_TRUE(second->AddTexture(c));
    EXPECT_EQ((std::vector<MStlTexture*>{b, a}), first->GetTextures());

    ASSERT_TRUE(stl.GetTextures().RemoveTexture(b));
    EXPECT_EQ((std::vector<MStlTexture*>{a}), first->GetTextures());
    EXPECT_EQ((std::vector<MStlTexture*>{c}), second->GetTextures());
    stl.ClearStl(true); // the texture list goes with everything else
    EXPECT_TRUE(first->GetTextures().empty());
    EXPECT_TRUE(second->GetTextures().empty());
    EXPECT_EQ(2u, list.GetNumberOfMaps());
    // A bitmap set to be shown makes the bitmap visible; otherwise the switch stays.
    first->SetBitmapVisibility(false);
    first->SetSharedBitmap(KelSDK::Common::ImageBitmap::Create(2, 2), false);
    EXPECT_FALSE(first->GetBitmapVisibility());
    first->SetSharedBitmap(nullptr, true);
    EXPECT_TRUE(first->GetBitmapVisibility());
    EXPECT_TRUE(list.RemoveMap(second));
    EXPECT_FALSE(list.RemoveMap(second));
}
