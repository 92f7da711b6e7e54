// Reading and writing plug-in payloads: reads never reach past the bytes the payload has left,
// arrays move through the file in blocks, and bitmaps share one record layout.
#pragma once

#include <KelSDK/FileIO/MFile.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Common
{
class ImageBitmap;
}

namespace KelSDK::Triangles::IO
{
class MStlFileIO;

// Reads the payload of one plug-in section. Once a read would pass the payload's end or the file
// fails, the payload counts as cut: that read and every later one fail and read nothing.
class PayloadReader
{
public:
    // The payload starts at the file's position and holds bytesLeft bytes.
    PayloadReader(KelSDK::FileIO::MFile& file, uint64_t bytesLeft);
    // The payload of the plug-in section that io is loading (see MStlFileIO::GetPluginBytesLeft).
    explicit PayloadReader(MStlFileIO& io);

    KelSDK::FileIO::MFile& File() { return file_; }
    // Bytes of the payload not read yet; 0 once cut.
    uint64_t Left();
    bool IsCut() const { return cut_; }
    // Marks the payload as cut (a reader that met a value it cannot use stops here).
    void Cut() { cut_ = true; }

    // Reads count values when the payload holds them all.
    template <typename T> bool Read(T* values, size_t count)
    {
        if (cut_ || count > Left() / sizeof(T) || !file_.READ(values, count))
            return Fail();
        return true;
    }
    template <typename T> bool Read(T& value) { return Read(&value, 1); }
    // Reads a wide string (cut at its first NUL, as a zero-terminated write would end it).
    bool ReadText(std::wstring& text);
    // How many of count records of recordBytes bytes each the payload can still hold.
    size_t Fitting(uint64_t count, size_t recordBytes);

private:
    bool Fail()
    {
        cut_ = true;
        return false;
    }

    KelSDK::FileIO::MFile& file_;
    int64_t end_;
    bool cut_ = false;
};

// Values moved through the file at a time by the array helpers below (their staging blocks live
// on the stack, at most 32 KiB).
constexpr size_t kStagingValues = 4096;

// Writes count values of a struct made of fields of type Field (fieldsPerValue each, no padding)
// through a staging block, so that the file sees plain arrays of Field.
template <typename Field, size_t fieldsPerValue, typename Value>
void WriteFields(KelSDK::FileIO::MFile& file, const Value* values, size_t count)
{
    static_assert(sizeof(Value) == sizeof(Field) * fieldsPerValue, "a value must be its fields only");
    constexpr size_t kBlock = kStagingValues;
    Field block[kBlock * fieldsPerValue];
    for (size_t done = 0; done < count;)
    {
        const size_t n = std::min(kBlock, count - done);
        std::memcpy(block, values + done, n * sizeof(Value));
        file.WRITE(block, n * fieldsPerValue);
        done += n;
    }
}

// Writes count values, the first available ones from values and the rest as filler.
template <typename Field, size_t fieldsPerValue, typename Value>
void WriteFieldsPadded(KelSDK::FileIO::MFile& file, const std::vector<Value>& values, size_t count,
                       const Value& filler)
{
    const size_t stored = std::min(values.size(), count);
    WriteFields<Field, fieldsPerValue>(file, values.data(), stored);
    if (stored < count)
    {
        const std::vector<Value> rest(std::min(count - stored, kStagingValues), filler);
        for (size_t done = stored; done < count; done += rest.size())
            WriteFields<Field, fieldsPerValue>(file, rest.data(), std::min(rest.size(), count - done));
    }
}

// Reads up to count values into values (sized by the caller) through a staging block: as many as
// the payload holds, cutting it when that is fewer than count. Returns how many were read.
template <typename Field, size_t fieldsPerValue, typename Value>
size_t ReadFields(PayloadReader& reader, Value* values, size_t count)
{
    static_assert(sizeof(Value) == sizeof(Field) * fieldsPerValue, "a value must be its fields only");
    constexpr size_t kBlock = kStagingValues;
    Field block[kBlock * fieldsPerValue];
    const size_t fitting = reader.Fitting(count, sizeof(Value));
    size_t done = 0;
    while (done < fitting)
    {
        const size_t n = std::min(kBlock, fitting - done);
        if (!reader.Read(block, n * fieldsPerValue))
            return done;
        std::memcpy(values + done, block, n * sizeof(Value));
        done += n;
    }
    if (done < count)
        reader.Cut();
    return done;
}

// Bitmap record:
//   u32 width | u32 height | width x height u32 pixels, row by row | u32 original data size |
//   the original data bytes | four wide strings: the original file name, format, description
//   and author
// A null bitmap is written as a blank record (0 x 0, no data, empty texts).
void WriteBitmapRecord(KelSDK::FileIO::MFile& file, const KelSDK::Common::ImageBitmap* bitmap);
// Reads a bitmap record into a new bitmap (with the given alpha flag). Null, with the payload cut,
// when the pixels or the data do not fit the bytes left or the bitmap cannot be made.
std::shared_ptr<KelSDK::Common::ImageBitmap> ReadBitmapRecord(PayloadReader& reader, bool hasAlpha);
// True for a 0 x 0 bitmap without original data and with empty texts (what a null one becomes).
bool IsBlankBitmap(const KelSDK::Common::ImageBitmap& bitmap);
} // namespace KelSDK::Triangles::IO
