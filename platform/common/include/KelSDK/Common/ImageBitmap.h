// An image held as 32-bit pixels, with the original encoded bytes it was decoded from.
#pragma once

#include <KelSDK/Common/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace KelSDK::Common
{
// width x height pixels, row by row from the top, one 32-bit word each with red in the lowest byte,
// then green, blue and alpha (0xAABBGGRR), plus the file bytes the pixels came from (a PNG, say).
class KELSDK_COMMON_EXPORT ImageBitmap
{
public:
    // Where the image came from; four free texts, stored in files in this declared order.
    struct OriginalMetaData
    {
        std::wstring fileName;    // name of the image file the bitmap was loaded from
        std::wstring format;      // encoding of the original data, such as L"png"
        std::wstring description; // free description
        std::wstring author;      // creator or copyright holder

        bool operator==(const OriginalMetaData& o) const;
        bool operator!=(const OriginalMetaData& o) const { return !(*this == o); }
    };

    // The largest number of pixels Create accepts (2^28: 1 GiB of pixel words).
    static constexpr uint64_t MaxPixelCount = uint64_t(1) << 28;

    // A bitmap with all pixels 0; hasAlpha says whether the top byte is meaningful. Null when
    // width x height exceeds MaxPixelCount or memory runs out. A 0 x n bitmap is valid and empty.
    static std::shared_ptr<ImageBitmap> Create(uint32_t width, uint32_t height, bool hasAlpha = true);

    uint32_t GetWidth() const { return width_; }
    uint32_t GetHeight() const { return height_; }
    // True when the top byte of each pixel is an alpha value (else it is ignored and kept as stored).
    bool HasAlpha() const { return hasAlpha_; }
    // The width x height pixel words; the vector's size must not be changed.
    std::vector<uint32_t>& GetPixels() { return pixels_; }
    const std::vector<uint32_t>& GetPixels() const { return pixels_; }
    // The pixel at column x, row y; 0 when outside the bitmap.
    uint32_t GetPixel(uint32_t x, uint32_t y) const;
    // Sets the pixel at column x, row y; false when outside the bitmap.
    bool SetPixel(uint32_t x, uint32_t y, uint32_t value);

    // The encoded bytes the pixels came from (empty when unknown).
    const std::vector<uint8_t>& GetOriginalData() const { return originalData_; }
    // Replaces the encoded original bytes.
    void SetOriginalData(std::vector<uint8_t> data) { originalData_ = std::move(data); }
    const OriginalMetaData& GetOriginalMetaData() const { return metaData_; }
    void SetOriginalMetaData(OriginalMetaData metaData) { metaData_ = std::move(metaData); }

    // Same size, alpha flag, pixels, original data and metadata.
    bool operator==(const ImageBitmap& o) const;
    bool operator!=(const ImageBitmap& o) const { return !(*this == o); }

private:
    ImageBitmap(uint32_t width, uint32_t height, bool hasAlpha);

    uint32_t width_ = 0;
    uint32_t height_ = 0;
    bool hasAlpha_ = true;
    std::vector<uint32_t> pixels_;
    std::vector<uint8_t> originalData_;
    OriginalMetaData metaData_;
};
} // namespace KelSDK::Common
