// Colour info, triangle marks, triangle visibilities and data masks of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

// Colour info (the mesh material):
//   u8 18 | u32 colour word (RGBA) | u32 ambient | f32 shininess | u32 specular | u8 19
// The diffuse word is not stored; the order (specular last) is fixed by the format.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlColorInfo(MStlBase& mesh)
{
    SaveTag(NativeTags::kColorBegin);
    const MStlMaterial& material = mesh.GetMaterial();
    const uint32_t color = material.GetRGB();
    const uint32_t ambient = material.GetAmbient();
    const float shininess = material.GetShininess();
    const uint32_t specular = material.GetSpecular();
    file_->WriteInt32(&color, 1);
    file_->WriteInt32(&ambient, 1);
    file_->WRITE(&shininess, 1);
    file_->WriteInt32(&specular, 1);
    SaveTag(NativeTags::kColorEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlColorInfo(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kColorBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t color = 0, ambient = 0, specular = 0;
    float shininess = 0.0f;
    file_->ReadInt32(&color, 1);
    file_->ReadInt32(&ambient, 1);
    file_->READ(&shininess, 1);
    file_->ReadInt32(&specular, 1);
    if (_FileFailed())
        return _SetError(eStlFileIOBadFormat);
    MStlMaterial material;
    material.SetRGB(color);
    material.SetAmbient(ambient);
    material.SetShininess(shininess);
    material.SetSpecular(specular);
    material.SetColorIsReadFromFile(true);
    mesh.SetMaterial(material);
    return _SetError(LoadTag(NativeTags::kColorEnd));
}

namespace
{
// Body shared by the mark and visibility sections: u32 triangle count | one u8 per triangle, in
// triangle order. Only the Standard kind holds the values; the other kinds write fill for each.
template <typename ByteOf>
void WriteTriangleBytes(KelSDK::FileIO::MFile& file, MStlBase& mesh, bool standard, unsigned char fill,
                        ByteOf byteOf)
{
    const uint32_t count = static_cast<uint32_t>(mesh.NumberOfTriangles());
    file.WRITE(&count, 1);
    std::vector<unsigned char> values(count, fill);
    if (standard)
    {
        size_t i = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
            values[i++] = byteOf(*it);
    }
    file.WRITE(values.data(), values.size());
}

// Reads the body that WriteTriangleBytes writes and, for the Standard kind, hands each triangle
// its byte. Returns 0; 7 on a failed read or a count beyond the bytes left; countMismatch on a
// count that differs from the mesh's triangle count.
template <typename Apply>
MStlFileIO::MErrorCode ReadTriangleBytes(KelSDK::FileIO::MFile& file, MStlBase& mesh, bool standard,
                                         MStlFileIO::MErrorCode countMismatch, Apply apply)
{
    uint32_t count = 0;
    file.READ(&count, 1);
    if (file.GetStatus() != 0)
        return eStlFileIOBadFormat;
    if (count != mesh.NumberOfTriangles())
        return countMismatch;
    const int64_t remaining = file.GetRemaining();
    if (count > (remaining > 0 ? static_cast<uint64_t>(remaining) : 0))
        return eStlFileIOBadFormat;
    std::vector<unsigned char> values(count);
    file.READ(values.data(), values.size());
    if (standard)
    {
        size_t i = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
            apply(*it, values[i++]);
    }
    return eStlFileIOSuccess;
}
} // namespace

// Triangle marks:
//   u8 20 | u32 triangle count (must equal the mesh's) | one u8 mark per triangle | u8 21
// Triangle visibilities:
//   u8 200 | u32 triangle count (must equal the mesh's) | one u8 per triangle, non-zero for
//   visible | u8 201
// In triangle order. Only the Standard kind holds marks and visibilities; the other kinds write
// 0 (no mark) and 1 (visible) and skip the values on load.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlTriangleMarkInfo(MStlBase& mesh)
{
    SaveTag(NativeTags::kMarksBegin);
    WriteTriangleBytes(*file_, mesh, storageKind_ == eStlStandard, 0,
                       [](const MStlTriangle& triangle) { return triangle.GetMark(); });
    SaveTag(NativeTags::kMarksEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlTriangleMarkInfo(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kMarksBegin) != eStlFileIOSuccess)
        return lastError_;
    const MErrorCode code =
        ReadTriangleBytes(*file_, mesh, storageKind_ == eStlStandard, eStlFileIOMarkCountMismatch,
                          [](MStlTriangle& triangle, unsigned char mark) { triangle.SetMark(mark); });
    if (code != eStlFileIOSuccess)
        return _SetError(code);
    mesh.GetMarkInterface().InvalidateValidity();
    return _SetError(LoadTag(NativeTags::kMarksEnd));
}

MStlFileIO::MErrorCode MStlFileIO::_SaveStlTriangleVisibilityInfo(MStlBase& mesh)
{
    SaveTag(NativeTags::kVisibilityBegin);
    WriteTriangleBytes(*file_, mesh, storageKind_ == eStlStandard, 1,
                       [](const MStlTriangle& triangle) -> unsigned char
                       { return triangle.IsVisible() ? 1 : 0; });
    SaveTag(NativeTags::kVisibilityEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlTriangleVisibilityInfo(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kVisibilityBegin) != eStlFileIOSuccess)
        return lastError_;
    const MErrorCode code =
        ReadTriangleBytes(*file_, mesh, storageKind_ == eStlStandard, eStlFileIOVisibilityCountMismatch,
                          [](MStlTriangle& triangle, unsigned char visible)
                          {
                              if (visible != 0)
                                  triangle.MakeVisible();
                              else
                                  triangle.MakeInvisible();
                          });
    if (code != eStlFileIOSuccess)
        return _SetError(code);
    mesh.InvalidateTriangleVisibilities();
    return _SetError(LoadTag(NativeTags::kVisibilityEnd));
}

namespace
{
// Mask record: bool present | when present: u32 default colour, u64 count n, n x u32 colours.
template <typename Mask> void SaveColorMask(KelSDK::FileIO::MFile& file, const Mask* mask)
{
    const bool present = mask != nullptr;
    file.WRITE(&present, 1);
    if (!present)
        return;
    const uint32_t defaultWord = EncodeColor(mask->GetDefault());
    const uint64_t count = mask->GetSize();
    file.WRITE(&defaultWord, 1);
    file.WRITE(&count, 1);
    std::vector<uint32_t> words(static_cast<size_t>(count));
    for (size_t i = 0; i < words.size(); ++i)
        words[i] = EncodeColor(mask->Values()[i]);
    file.WRITE(words.data(), words.size());
}

// Reads a mask record; create makes the mask, remove deletes it. False on a bad count.
template <typename Create, typename Remove>
bool LoadColorMask(KelSDK::FileIO::MFile& file, Create create, Remove remove)
{
    bool present = false;
    file.READ(&present, 1);
    if (!present)
    {
        remove();
        return file.GetStatus() == 0;
    }
    uint32_t defaultWord = 0;
    uint64_t count = 0;
    file.READ(&defaultWord, 1);
    file.READ(&count, 1);
    const int64_t remaining = file.GetRemaining();
    if (file.GetStatus() != 0 || remaining < 0 || count > static_cast<uint64_t>(remaining) / 4)
        return false;
    std::vector<uint32_t> words(static_cast<size_t>(count));
    if (!file.READ(words.data(), words.size()))
        return false;
    auto* mask = create();
    mask->Clear();
    mask->SetDefault(DecodeColor(defaultWord));
    mask->Resize(words.size());
    for (size_t i = 0; i < words.size(); ++i)
        mask->SetInfo(i, DecodeColor(words[i]));
    return true;
}
} // namespace

// Masks section (the colour masks of the mesh, by element index):
//   u8 54 | triangle colour mask record | vertex colour mask record | u8 55
MStlFileIO::MErrorCode MStlFileIO::_SaveStlMasks(MStlBase& mesh)
{
    SaveTag(NativeTags::kMasksBegin);
    const MStlColorMasks& masks = mesh.GetColorMasks();
    SaveColorMask(*file_, masks.GetMainTriangleColorMask());
    SaveColorMask(*file_, masks.GetMainPointColorMask());
    SaveTag(NativeTags::kMasksEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlMasks(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kMasksBegin) != eStlFileIOSuccess)
        return lastError_;
    MStlColorMasks& masks = mesh.GetColorMasks();
    if (!LoadColorMask(
            *file_, [&masks] { return masks.CreateMainTriangleColorMask(); },
            [&masks] { masks.DeleteMainTriangleColorMask(); }) ||
        !LoadColorMask(
            *file_, [&masks] { return masks.CreateMainPointColorMask(); },
            [&masks] { masks.DeleteMainPointColorMask(); }))
        return _SetError(eStlFileIOBadFormat);
    return _SetError(LoadTag(NativeTags::kMasksEnd));
}
} // namespace KelSDK::Triangles::IO
