// What kelmesh's "info" says about attachments, and what a conversion to STL names as lost.
#include "../../tools/kelmesh/Attachments.h"
#include "../plugins/PluginTestSupport.h"

using namespace PluginTest;

TEST(KelmeshAttachments, OneLinePerAttachmentWithCountsAndBitmapSizes)
{
    MStlBase mesh;
    BuildStandard(mesh);
    EXPECT_TRUE(Kelmesh::DescribeAttachments(mesh).empty());
    EXPECT_TRUE(Kelmesh::AttachmentsStlCannotHold(mesh).empty());
    AttachEverything(mesh);
    const std::string card = ByteBuilder::Narrow(GetIDCard(&mesh)->GetGlobalID().GetString(true, true));
    const std::vector<std::string> expected = {
        "element info: edge thickness (2 values), edge tolerance (2 values), edge caps (2 values), "
        "vertex radius (6 values)",
        "surface zones: no-support zone of 2 triangles, 1 edge",
        "identity card: " + card + ", revision 7 (out of date), 2 parents",
        "textures:    4: \"texture 0\" 2 x 2, \"texture 1\" 2 x 2 (bitmap of texture 1), \"texture 2\" 1 x "
        "3, "
        "\"texture 3\" no bitmap",
        "UV maps:     3: \"shared\" with 2 textures, 2 x 2, \"own\" with 0 textures, 3 x 1, \"hidden\" with "
        "1 "
        "texture, 1 x 1",
    };
    const std::vector<std::string> lines = Kelmesh::DescribeAttachments(mesh);
    ASSERT_EQ(expected.size(), lines.size());
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(expected[i], lines[i]);
    EXPECT_EQ((std::vector<std::string>{"element information", "surface zones", "identity card", "textures",
                                        "UV maps"}),
              Kelmesh::AttachmentsStlCannotHold(mesh));
}

TEST(KelmeshAttachments, EmptyAttachmentsSayWhatTheyLack)
{
    MStlBase mesh;
    BuildStandard(mesh);
    MStlBaseElementInfoStlDependency::GetDependency(&mesh, true);
    SurfaceZonesStlDependency::CreateInstance(&mesh);
    UVMapList::Get(&mesh, true);
    EXPECT_EQ((std::vector<std::string>{"element info: defaults only, no masks",
                                        "surface zones: no no-support zone", "UV maps:     0"}),
              Kelmesh::DescribeAttachments(mesh));
}
