#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Common/InternalUnits.h>

#include <gtest/gtest.h>

#include <limits>

using KelSDK::Common::ImageBitmap;
using KelSDK::Common::MInternalUnits;

TEST(ImageBitmap, CreateSizesThePixelsAndRefusesAbsurdSizes)
{
    auto bitmap = ImageBitmap::Create(3, 2);
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(bitmap->GetWidth(), 3u);
    EXPECT_EQ(bitmap->GetHeight(), 2u);
    EXPECT_TRUE(bitmap->HasAlpha());
    EXPECT_EQ(bitmap->GetPixels(), std::vector<uint32_t>(6, 0u));
    EXPECT_TRUE(bitmap->GetOriginalData().empty());

    auto empty = ImageBitmap::Create(0, 100000);
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->GetPixels().empty());
    EXPECT_EQ(empty->GetPixel(0, 0), 0u);
    EXPECT_FALSE(empty->SetPixel(0, 0, 1));

    // width x height computed in 64 bits: 65536 x 65536 would wrap to 0 in 32 bits.
    EXPECT_EQ(ImageBitmap::Create(65536, 65536), nullptr);
    EXPECT_EQ(ImageBitmap::Create(std::numeric_limits<uint32_t>::max(), std::numeric_limits<uint32_t>::max()),
              nullptr);
    EXPECT_EQ(ImageBitmap::Create(1, static_cast<uint32_t>(ImageBitmap::MaxPixelCount + 1)), nullptr);
    EXPECT_FALSE(ImageBitmap::Create(2, 2, false)->HasAlpha());
}

TEST(ImageBitmap, PixelsAreRowByRow)
{
    auto bitmap = ImageBitmap::Create(3, 2);
    ASSERT_NE(bitmap, nullptr);
    EXPECT_TRUE(bitmap->SetPixel(2, 1, 0xFF0000FFu));
    EXPECT_TRUE(bitmap->SetPixel(1, 0, 0x12345678u));
    EXPECT_EQ(bitmap->GetPixels()[5], 0xFF0000FFu);
    EXPECT_EQ(bitmap->GetPixels()[1], 0x12345678u);
    EXPECT_EQ(bitmap->GetPixel(2, 1), 0xFF0000FFu);
    EXPECT_FALSE(bitmap->SetPixel(3, 0, 1));
    EXPECT_FALSE(bitmap->SetPixel(0, 2, 1));
    EXPECT_EQ(bitmap->GetPixel(3, 0), 0u);
    EXPECT_EQ(bitmap->GetPixel(0, 2), 0u);
    // Writing through GetPixels, as a file loader fills them.
    bitmap->GetPixels()[3] = 7;
    EXPECT_EQ(bitmap->GetPixel(0, 1), 7u);
}

TEST(ImageBitmap, EqualityCoversEveryPart)
{
    auto a = ImageBitmap::Create(2, 2);
    auto b = ImageBitmap::Create(2, 2);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(*a, *b);

    ImageBitmap::OriginalMetaData meta{L"texture.png", L"png", L"wood grain", L"K\u00E4the"};
    a->SetOriginalMetaData(meta);
    EXPECT_NE(*a, *b);
    b->SetOriginalMetaData(meta);
    EXPECT_EQ(*a, *b);
    EXPECT_EQ(a->GetOriginalMetaData().author, L"K\u00E4the");

    a->SetOriginalData({0x89, 'P', 'N', 'G'});
    EXPECT_NE(*a, *b);
    b->SetOriginalData({0x89, 'P', 'N', 'G'});
    EXPECT_EQ(*a, *b);

    a->SetPixel(1, 1, 1);
    EXPECT_NE(*a, *b);
    b->SetPixel(1, 1, 1);
    EXPECT_EQ(*a, *b);

    // Same pixel count, other shape; and the alpha flag.
    auto wide = ImageBitmap::Create(4, 1);
    auto tall = ImageBitmap::Create(1, 4);
    EXPECT_NE(*wide, *tall);
    EXPECT_NE(*ImageBitmap::Create(1, 1, true), *ImageBitmap::Create(1, 1, false));

    for (auto field : {&ImageBitmap::OriginalMetaData::fileName, &ImageBitmap::OriginalMetaData::format,
                       &ImageBitmap::OriginalMetaData::description, &ImageBitmap::OriginalMetaData::author})
    {
        ImageBitmap::OriginalMetaData other = meta;
        other.*field += L"x";
        EXPECT_NE(other, meta);
    }
}

TEST(MInternalUnits, DefaultSetAndRejectedValues)
{
    EXPECT_EQ(MInternalUnits::Get(), 10000.0);
    MInternalUnits::Set(1000.0);
    EXPECT_EQ(MInternalUnits::Get(), 1000.0);
    MInternalUnits::Set(0.0);
    MInternalUnits::Set(-5.0);
    MInternalUnits::Set(std::numeric_limits<double>::infinity());
    MInternalUnits::Set(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(MInternalUnits::Get(), 1000.0);
    MInternalUnits::Set(MInternalUnits::Default);
    EXPECT_EQ(MInternalUnits::Get(), 10000.0);
}
