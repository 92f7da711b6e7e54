#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Common/InternalUnits.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using KelSDK::Common::ImageBitmap;
using KelSDK::Common::MInternalUnits;

TEST(ImageBitmap, PixelsRowByRowAbsurdSizesAndEquality)
{
    auto bitmap = ImageBitmap::Create(3, 2);
    ASSERT_NE(bitmap, nullptr);
    EXPECT_TRUE(bitmap->SetPixel(2, 1, 0xFF0000FFu));
    EXPECT_TRUE(bitmap->SetPixel(1, 0, 0x12345678u));
    EXPECT_EQ(bitmap->GetPixels(), (std::vector<uint32_t>{0, 0x12345678u, 0, 0, 0, 0xFF0000FFu}));
    EXPECT_FALSE(bitmap->SetPixel(3, 0, 1));
    EXPECT_FALSE(bitmap->SetPixel(0, 2, 1));
    EXPECT_EQ(bitmap->GetPixel(3, 0), 0u);
    EXPECT_EQ(bitmap->GetPixel(0, 2), 0u);
    auto empty = ImageBitmap::Create(0, 100000);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->GetPixel(0, 0), 0u);
    EXPECT_FALSE(empty->SetPixel(0, 0, 1));
    // width x height computed in 64 bits: 65536 x 65536 would wrap to 0 in 32 bits.
    EXPECT_EQ(ImageBitmap::Create(65536, 65536), nullptr);
    EXPECT_EQ(ImageBitmap::Create(UINT32_MAX, UINT32_MAX), nullptr);
    EXPECT_EQ(ImageBitmap::Create(1, static_cast<uint32_t>(ImageBitmap::MaxPixelCount + 1)), nullptr);

    // Equality covers pixels, original data, metadata, shape (same pixel count) and the alpha flag.
    auto data = ImageBitmap::Create(2, 2), pixel = ImageBitmap::Create(2, 2),
         meta = ImageBitmap::Create(2, 2);
    data->SetOriginalData({0x89, 'P', 'N', 'G'});
    pixel->SetPixel(1, 1, 1);
    EXPECT_EQ(*meta, *ImageBitmap::Create(2, 2));
    meta->SetOriginalMetaData({L"", L"", L"", L"K\u00E4the"});
    EXPECT_NE(*meta, *ImageBitmap::Create(2, 2));
    for (const auto& other : {data, pixel, ImageBitmap::Create(4, 1), ImageBitmap::Create(2, 2, false)})
        EXPECT_NE(*ImageBitmap::Create(2, 2), *other);
}

TEST(MInternalUnits, SetRefusesValuesThatAreNotPositiveAndFinite)
{
    EXPECT_EQ(MInternalUnits::Get(), 10000.0);
    MInternalUnits::Set(1000.0);
    for (double refused :
         {0.0, -5.0, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
        MInternalUnits::Set(refused);
    EXPECT_EQ(MInternalUnits::Get(), 1000.0);
    MInternalUnits::Set(MInternalUnits::Default);
}
