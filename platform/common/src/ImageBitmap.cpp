#include <KelSDK/Common/ImageBitmap.h>

#include <new>

namespace KelSDK::Common
{
bool ImageBitmap::OriginalMetaData::operator==(const OriginalMetaData& o) const
{
    return fileName == o.fileName && format == o.format && description == o.description && author == o.author;
}

ImageBitmap::ImageBitmap(uint32_t width, uint32_t height, bool hasAlpha)
    : width_(width), height_(height), hasAlpha_(hasAlpha),
      pixels_(static_cast<std::size_t>(static_cast<uint64_t>(width) * height), 0u)
{
}

std::shared_ptr<ImageBitmap> ImageBitmap::Create(uint32_t width, uint32_t height, bool hasAlpha)
{
    const uint64_t count = static_cast<uint64_t>(width) * height;
    if (count > MaxPixelCount)
        return nullptr;
    try
    {
        return std::shared_ptr<ImageBitmap>(new ImageBitmap(width, height, hasAlpha));
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

uint32_t ImageBitmap::GetPixel(uint32_t x, uint32_t y) const
{
    if (x >= width_ || y >= height_)
        return 0;
    return pixels_[static_cast<std::size_t>(y) * width_ + x];
}

bool ImageBitmap::SetPixel(uint32_t x, uint32_t y, uint32_t value)
{
    if (x >= width_ || y >= height_)
        return false;
    pixels_[static_cast<std::size_t>(y) * width_ + x] = value;
    return true;
}

bool ImageBitmap::operator==(const ImageBitmap& o) const
{
    return width_ == o.width_ && height_ == o.height_ && hasAlpha_ == o.hasAlpha_ && pixels_ == o.pixels_ &&
           originalData_ == o.originalData_ && metaData_ == o.metaData_;
}
} // namespace KelSDK::Common
