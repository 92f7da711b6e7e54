// Internal helpers shared by the section readers and writers of the native mesh format.
#pragma once

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace KelSDK::Triangles::IO
{
// Every tag byte of the format, in one place.
namespace NativeTags
{
// The container's frame: header, mesh base section, plug-in block.
constexpr unsigned char kHeaderBegin = 0;
constexpr unsigned char kHeaderEnd = 1;
constexpr unsigned char kBaseBegin = 2;
constexpr unsigned char kBaseEnd = 3;
constexpr unsigned char kPluginsBegin = 194;
constexpr unsigned char kPluginsEnd = 195;
// Colour info, triangle marks and triangle visibilities inside the base section.
constexpr unsigned char kColorBegin = 18;
constexpr unsigned char kColorEnd = 19;
constexpr unsigned char kMarksBegin = 20;
constexpr unsigned char kMarksEnd = 21;
constexpr unsigned char kVisibilityBegin = 200;
constexpr unsigned char kVisibilityEnd = 201;
// The inner sections whose layouts this library defines; 40-63 avoid all tags above.
constexpr unsigned char kPointsBegin = 8;
constexpr unsigned char kPointsEnd = 9;
constexpr unsigned char kTrianglesBegin = 40;
constexpr unsigned char kTrianglesEnd = 41;
constexpr unsigned char kSurfacesBegin = 42;
constexpr unsigned char kSurfacesEnd = 43;
constexpr unsigned char kCurvesBegin = 44;
constexpr unsigned char kCurvesEnd = 45;
constexpr unsigned char kCurveSegmentBegin = 46;
constexpr unsigned char kCurveSegmentEnd = 47;
constexpr unsigned char kGraphBegin = 48;
constexpr unsigned char kGraphEnd = 49;
constexpr unsigned char kHistoryBegin = 50;
constexpr unsigned char kHistoryEnd = 51;
constexpr unsigned char kRegisteredPointsBegin = 52;
constexpr unsigned char kRegisteredPointsEnd = 53;
constexpr unsigned char kMasksBegin = 54;
constexpr unsigned char kMasksEnd = 55;
constexpr unsigned char kBorderBegin = 56;
constexpr unsigned char kBorderEnd = 57;
constexpr unsigned char kContourBegin = 58;
constexpr unsigned char kContourEnd = 59;
constexpr unsigned char kSurfaceVisibilityBegin = 60;
constexpr unsigned char kSurfaceVisibilityEnd = 61;
constexpr unsigned char kCurveSetBegin = 62;
constexpr unsigned char kCurveSetEnd = 63;
constexpr unsigned char kSubContourBegin = 140;
constexpr unsigned char kSubContourEnd = 141;
constexpr unsigned char kFaceGroupsBegin = 202;
constexpr unsigned char kFaceGroupsEnd = 203;
} // namespace NativeTags

// The two identifier maps of one save or load. Sections refer to points and to named items
// (surfaces, curve sets, borders) by identifier; 0 stands for "none". A point's identifier is its
// position in the point list plus one. Items get 1, 2, 3 ... in the order in which they are
// registered, which the reader repeats section by section.
struct MStlFileIO::MReferenceMaps
{
    // Saving: the point list whose positions give the point identifiers; item -> identifier.
    const KelSDK::Triangles::Data::MStlPointList* savePoints = nullptr;
    std::unordered_map<const void*, uint32_t> saveItems;
    // Loading: the point list whose positions give the point identifiers (the point of identifier i
    // is found by its position i - 1, the list being in creation order); identifier - 1 -> item.
    const KelSDK::Triangles::Data::MStlPointList* loadPoints = nullptr;
    std::vector<KelSDK::Triangles::Data::MStlFeatureItem*> loadItems;

    void Clear()
    {
        savePoints = nullptr;
        saveItems = {};
        loadPoints = nullptr;
        loadItems = {};
    }
    // Saving: gives the item the next identifier.
    void RegisterSave(const void* item)
    {
        const uint32_t id = static_cast<uint32_t>(saveItems.size() + 1);
        saveItems.emplace(item, id);
    }
    // Saving: the identifier of an item, 0 for null or an item never registered.
    uint32_t FindSaveItem(const void* item) const
    {
        if (item == nullptr)
            return 0;
        auto it = saveItems.find(item);
        return it != saveItems.end() ? it->second : 0;
    }
    // Saving: the identifier of a point, 0 for null or a point of no registered list.
    uint32_t FindSavePoint(const KelSDK::Triangles::Data::MStlPoint* point) const
    {
        if (point == nullptr || savePoints == nullptr)
            return 0;
        const size_t index = savePoints->GetIndexOfPoint(point);
        return index < UINT32_MAX ? static_cast<uint32_t>(index + 1) : 0;
    }
    // Loading: registers the item under the next identifier.
    void RegisterLoad(KelSDK::Triangles::Data::MStlFeatureItem* item) { loadItems.push_back(item); }
    // Loading: the item of an identifier; false for an unknown one. 0 gives null and true.
    bool FindLoadItem(uint32_t id, KelSDK::Triangles::Data::MStlFeatureItem*& item) const
    {
        item = nullptr;
        if (id == 0)
            return true;
        if (id - 1u >= loadItems.size())
            return false;
        item = loadItems[id - 1u];
        return true;
    }
    // Loading: the point of an identifier; false for 0 or an unknown one.
    bool FindLoadPoint(uint32_t id, KelSDK::Triangles::Data::MStlPoint*& point) const
    {
        point = nullptr;
        if (id == 0 || loadPoints == nullptr || id - 1u >= loadPoints->GetNumPoints())
            return false;
        point = loadPoints->GetPointWithIndex(id - 1u);
        return point != nullptr;
    }
};

// Colours in files: one 32-bit word, bit 24 set for a defined colour, RGB (0x00BBGGRR) below.
inline uint32_t EncodeColor(const KelSDK::Triangles::Data::MStlColor& color)
{
    return color.IsDefined() ? (0x01000000u | color.GetRGB()) : 0u;
}
inline KelSDK::Triangles::Data::MStlColor DecodeColor(uint32_t word)
{
    return (word & 0x01000000u) != 0 ? KelSDK::Triangles::Data::MStlColor(word & 0xFFFFFFu)
                                     : KelSDK::Triangles::Data::MStlColor();
}

// A text read from a file ends at its first NUL, as the zero-terminated write would end it, so
// that what is loaded saves back to the same bytes.
inline void EndAtNul(std::wstring& text)
{
    const size_t nul = text.find(L'\0');
    if (nul != std::wstring::npos)
        text.resize(nul);
}

// Reads a wide string that WRITE_STRING_RAW wrote and ends it at its first NUL; false when the
// file does not hold it.
inline bool ReadText(KelSDK::FileIO::MFile& file, std::wstring& text)
{
    if (!file.READ_STRING_RAW(text))
        return false;
    EndAtNul(text);
    return true;
}

// History record, oldest entry first:
//   u8 50 | u32 entry count | per entry: wide operation, wide parameters, i64 time (seconds
//   since 1970-01-01 UTC), wide user | u8 51
// The mesh's history section and the histories inside identity cards use it alike.
void WriteHistoryRecord(KelSDK::FileIO::MFile& file, const KelSDK::Triangles::Data::MHistory& history);
// Reads a history record into history (replacing its entries), reading at most bytesLeft bytes.
// False on a wrong tag, a count the bytes cannot hold or a cut record (history then holds the
// entries read so far).
bool ReadHistoryRecord(KelSDK::FileIO::MFile& file, KelSDK::Triangles::Data::MHistory& history,
                       uint64_t bytesLeft);

// Packs value into its width low bytes at dst, least significant first.
inline void PackValue(unsigned char* dst, uint32_t value, unsigned width)
{
    for (unsigned b = 0; b < width; ++b)
        dst[b] = static_cast<unsigned char>(value >> (8 * b));
}

// Reads a value of width bytes (1 to 4) at src, least significant first.
inline uint32_t UnpackValue(const unsigned char* src, unsigned width)
{
    uint32_t value = 0;
    for (unsigned b = 0; b < width; ++b)
        value |= static_cast<uint32_t>(src[b]) << (8 * b);
    return value;
}

// UnpackValue for a width known at compile time (the loops of the packed lists).
template <unsigned W> inline uint32_t UnpackValueOf(const unsigned char* src)
{
    if constexpr (W == 4)
        return static_cast<uint32_t>(src[0]) | static_cast<uint32_t>(src[1]) << 8 |
               static_cast<uint32_t>(src[2]) << 16 | static_cast<uint32_t>(src[3]) << 24;
    else if constexpr (W == 3)
        return static_cast<uint32_t>(src[0]) | static_cast<uint32_t>(src[1]) << 8 | static_cast<uint32_t>(src[2]) << 16;
    else if constexpr (W == 2)
        return static_cast<uint32_t>(src[0]) | static_cast<uint32_t>(src[1]) << 8;
    else
        return src[0];
}
} // namespace KelSDK::Triangles::IO
