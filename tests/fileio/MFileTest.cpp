#include <KelSDK/FileIO/MFile.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

using KelSDK::FileIO::MFile;
using KelSDK::FileIO::MMemoryFile;

TEST(MFileSmoke, MemoryRoundTrip)
{
    MMemoryFile out;
    ASSERT_TRUE(out.OpenWrite());
    const float v[3] = {1.0f, -2.5f, 3.25f};
    const uint16_t attr = 0x8001;
    ASSERT_TRUE(out.WRITE(v, 3));
    ASSERT_TRUE(out.WriteInt16(&attr, 1));
    ASSERT_TRUE(out.Close());
    ASSERT_EQ(out.GetData().size(), 14u);
    MMemoryFile in;
    ASSERT_TRUE(in.OpenRead(out.GetData().data(), out.GetData().size()));
    float r[3] = {};
    uint16_t a = 0;
    ASSERT_TRUE(in.READ(r, 3));
    ASSERT_TRUE(in.ReadInt16(&a, 1));
    EXPECT_EQ(r[1], -2.5f);
    EXPECT_EQ(a, 0x8001);
    EXPECT_FALSE(in.READ(&a, 1));
    EXPECT_EQ(a, 0);
}
