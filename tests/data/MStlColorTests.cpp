#include <KelSDK/Triangles/Data/MStlColor.h>
#include <KelSDK/Triangles/Data/MStlMaterial.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace KelSDK::Triangles::Data;

namespace
{
// The attribute word convention written out independently with floating-point rounding.
uint32_t Widen(uint32_t v5)
{
    return static_cast<uint32_t>(std::lround(v5 * 255.0 / 31.0));
}
uint32_t Narrow(uint32_t v8)
{
    return static_cast<uint32_t>(std::lround(v8 * 31.0 / 255.0));
}
} // namespace

TEST(MStlColor, EveryAttributeWordDecodesAndEncodesBack)
{
    for (uint32_t word = 0; word < 65536; ++word)
    {
        const MStlColor c = MStlColor::ConvertFrom16BitValue(static_cast<unsigned short>(word));
        if (word & 0x8000u)
        {
            ASSERT_FALSE(c.IsDefined()) << word;
            ASSERT_EQ(0x8000u, MStlColor::ConvertTo16BitValue(c)) << word;
            continue;
        }
        ASSERT_TRUE(c.IsDefined()) << word;
        ASSERT_EQ(Widen(word & 31u), c.GetRed()) << word;
        ASSERT_EQ(Widen((word >> 5) & 31u), c.GetGreen()) << word;
        ASSERT_EQ(Widen((word >> 10) & 31u), c.GetBlue()) << word;
        ASSERT_EQ(word, MStlColor::ConvertTo16BitValue(c)) << word;
        ASSERT_EQ(c, ConvertFrom16BitValue(static_cast<unsigned short>(word)));
        ASSERT_EQ(word, ConvertTo16BitValue(c));
    }
}

TEST(MStlColor, EveryChannelValueNarrowsWithRounding)
{
    for (uint32_t v = 0; v < 256; ++v)
    {
        const uint32_t n = Narrow(v);
        EXPECT_EQ(n, MStlColor::ConvertTo16BitValue(MStlColor(v)) & 31u) << v;
        EXPECT_EQ(n << 5, MStlColor::ConvertTo16BitValue(MStlColor(v << 8)) & (31u << 5)) << v;
        EXPECT_EQ(n << 10, MStlColor::ConvertTo16BitValue(MStlColor(v << 16)) & (31u << 10)) << v;
        // A defined colour never sets bit 15.
        EXPECT_EQ(0u, MStlColor::ConvertTo16BitValue(MStlColor(v * 0x010101u)) & 0x8000u);
    }
    EXPECT_EQ(0x7FFFu, MStlColor::ConvertTo16BitValue(MStlColor(0xFFFFFFu)));
    EXPECT_EQ(0x0000u, MStlColor::ConvertTo16BitValue(MStlColor(0u)));
}

TEST(MStlColor, DefinedFlagAndWordHandling)
{
    MStlColor c;
    EXPECT_FALSE(c.IsDefined());
    EXPECT_EQ(0u, c.GetRGB());
    c.SetRGB(0xFF123456u); // the top byte is not part of the colour
    EXPECT_TRUE(c.IsDefined());
    EXPECT_EQ(0x123456u, c.GetRGB());
    EXPECT_EQ(0x56, c.GetRed());
    EXPECT_EQ(0x34, c.GetGreen());
    EXPECT_EQ(0x12, c.GetBlue());
    EXPECT_NE(c, MStlColor());
    c.Reset();
    EXPECT_EQ(c, MStlColor());
    EXPECT_NE(MStlColor(0u), MStlColor()); // black is a colour, not "no colour"
}

TEST(MStlMaterial, DefaultsAndPositionalWords)
{
    MStlMaterial m;
    EXPECT_EQ(0xFF808080u, m.GetRGB());
    EXPECT_FALSE(m.GetColorIsReadFromFile());
    m.SetWord(0, 1);
    m.SetWord(1, 2);
    m.SetWord(2, 3);
    m.SetWord(3, 4);
    m.SetWord(4, 99); // no fifth word: ignored
    m.SetShininess(0.5f);
    EXPECT_EQ(1u, m.GetDiffuse());
    EXPECT_EQ(2u, m.GetRGB());
    EXPECT_EQ(3u, m.GetSpecular());
    EXPECT_EQ(4u, m.GetAmbient());
    EXPECT_EQ(0u, m.GetWord(4));
    EXPECT_EQ(0u, m.GetWord(-1));
    MStlMaterial copy = m;
    EXPECT_EQ(copy, m);
    copy.SetColorIsReadFromFile(true);
    EXPECT_NE(copy, m);
}
