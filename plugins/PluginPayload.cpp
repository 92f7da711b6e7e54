#include "PluginPayload.h"

#include "../native/NativeSections.h"

#include <KelSDK/Common/ImageBitmap.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using KelSDK::Common::ImageBitmap;

PayloadReader::PayloadReader(KelSDK::FileIO::MFile& file, uint64_t bytesLeft)
    : file_(file), end_(file.Tell() + static_cast<int64_t>(std::min<uint64_t>(bytesLeft, INT64_MAX / 2)))
{
}

PayloadReader::PayloadReader(MStlFileIO& io) : PayloadReader(*io.GetFile(), io.GetPluginBytesLeft()) {}

uint64_t PayloadReader::Left()
{
    const int64_t position = file_.Tell();
    return cut_ || position >= end_ ? 0 : static_cast<uint64_t>(end_ - position);
}

bool PayloadReader::ReadText(std::wstring& text)
{
    text.clear();
    // The length comes first; the units must fit the payload before they are read.
    uint32_t units = 0;
    const int64_t start = file_.Tell();
    if (!Read(units) || units > Left() / 2 || !file_.Seek(start) || !IO::ReadText(file_, text))
    {
        text.clear();
        return Fail();
    }
    return true;
}

size_t PayloadReader::Fitting(uint64_t count, size_t recordBytes)
{
    return static_cast<size_t>(std::min<uint64_t>(count, Left() / recordBytes));
}

void WriteBitmapRecord(KelSDK::FileIO::MFile& file, const ImageBitmap* bitmap)
{
    const uint32_t size[2] = {bitmap ? bitmap->GetWidth() : 0u, bitmap ? bitmap->GetHeight() : 0u};
    file.WRITE(size, 2);
    if (bitmap)
        file.WRITE(bitmap->GetPixels().data(), bitmap->GetPixels().size());
    const std::vector<uint8_t> none;
    const std::vector<uint8_t>& data = bitmap ? bitmap->GetOriginalData() : none;
    const uint32_t dataSize = static_cast<uint32_t>(data.size());
    file.WRITE(&dataSize, 1);
    file.WRITE(data.data(), data.size());
    const ImageBitmap::OriginalMetaData blank;
    const ImageBitmap::OriginalMetaData& meta = bitmap ? bitmap->GetOriginalMetaData() : blank;
    for (const std::wstring* text : {&meta.fileName, &meta.format, &meta.description, &meta.author})
        file.WRITE_STRING_RAW(text->c_str());
}

std::shared_ptr<ImageBitmap> ReadBitmapRecord(PayloadReader& reader, bool hasAlpha)
{
    uint32_t size[2] = {0, 0};
    if (!reader.Read(size, 2))
        return nullptr;
    const uint64_t pixels = uint64_t(size[0]) * size[1];
    if (pixels > reader.Left() / 4)
    {
        reader.Cut();
        return nullptr;
    }
    std::shared_ptr<ImageBitmap> bitmap = ImageBitmap::Create(size[0], size[1], hasAlpha);
    uint32_t dataSize = 0;
    if (!bitmap)
        reader.Cut();
    else if (reader.Read(bitmap->GetPixels().data(), bitmap->GetPixels().size()) && reader.Read(dataSize))
    {
        std::vector<uint8_t> data;
        if (dataSize <= reader.Left())
        {
            data.resize(dataSize);
            reader.Read(data.data(), data.size());
        }
        else
        {
            reader.Cut();
        }
        bitmap->SetOriginalData(std::move(data));
        ImageBitmap::OriginalMetaData meta;
        for (std::wstring* text : {&meta.fileName, &meta.format, &meta.description, &meta.author})
            reader.ReadText(*text);
        bitmap->SetOriginalMetaData(std::move(meta));
    }
    return reader.IsCut() ? nullptr : bitmap;
}

bool IsBlankBitmap(const ImageBitmap& bitmap)
{
    return bitmap.GetWidth() == 0 && bitmap.GetHeight() == 0 && bitmap.GetOriginalData().empty() &&
           bitmap.GetOriginalMetaData() == ImageBitmap::OriginalMetaData();
}
} // namespace KelSDK::Triangles::IO
