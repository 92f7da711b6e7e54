// UV maps: the list on its mesh, which textures a map takes, and textures leaving the mesh.
#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/Data.h>

#include <gtest/gtest.h>

using namespace KelSDK::Triangles::Data;
using KelSDK::UVMap;
using KelSDK::UVMapList;

TEST(UVMapList, ListOnDemandAndMapDefaults)
{
    MStlBase stl;
    EXPECT_EQ(nullptr, UVMapList::Get(&stl, false));
    UVMapList* list = UVMapList::Get(&stl, true);
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(list, UVMapList::Get(&stl, false));
    UVMap* map = list->AddMap();
    EXPECT_EQ(1u, list->GetNumberOfMaps());
    EXPECT_EQ(map, list->GetMap(0));
    EXPECT_EQ(nullptr, list->GetMap(1));
    EXPECT_EQ(1.0, map->GetXYZToUFactor());
    EXPECT_TRUE(map->GetKeepUVAspectRatio());
    EXPECT_TRUE(map->GetVisibility());
    EXPECT_TRUE(map->GetBitmapVisibility());
    EXPECT_EQ(nullptr, map->GetSharedBitmap());
    map->SetBitmapVisibility(false);
    map->SetSharedBitmap(KelSDK::Common::ImageBitmap::Create(2, 2), false);
    EXPECT_FALSE(map->GetBitmapVisibility());
    map->SetSharedBitmap(nullptr, true);
    EXPECT_TRUE(map->GetBitmapVisibility());
    EXPECT_TRUE(list->RemoveMap(map));
    EXPECT_FALSE(list->RemoveMap(map));
    UVMapList::Destroy(&stl);
    EXPECT_EQ(nullptr, UVMapList::Get(&stl, false));
}

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
}
