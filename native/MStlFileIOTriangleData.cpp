// Colour info, triangle marks, triangle visibilities and data masks of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

namespace
{
constexpr unsigned char kTagColorBegin = 18;
constexpr unsigned char kTagColorEnd = 19;
constexpr unsigned char kTagMarksBegin = 20;
constexpr unsigned char kTagMarksEnd = 21;
constexpr unsigned char kTagVisibilityBegin = 200;
constexpr unsigned char kTagVisibilityEnd = 201;
} // namespace

// Colour info (the mesh material):
//   u8 18 | u32 colour word (RGBA) | u32 ambient | f32 shininess | u32 specular | u8 19
// The diffuse word is not stored; the order (specular last) is fixed by the format.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlColorInfo(MStlBase& mesh)
{
    SaveTag(kTagColorBegin);
    const MStlMaterial& material = mesh.GetMaterial();
    const uint32_t color = material.GetRGB();
    const uint32_t ambient = material.GetAmbient();
    const float shininess = material.GetShininess();
    const uint32_t specular = material.GetSpecular();
    file_->WriteInt32(&color, 1);
    file_->WriteInt32(&ambient, 1);
    file_->WRITE(&shininess, 1);
    file_->WriteInt32(&specular, 1);
    SaveTag(kTagColorEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlColorInfo(MStlBase& mesh)
{
    if (LoadTag(kTagColorBegin) != eStlFileIOSuccess)
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
    return _SetError(LoadTag(kTagColorEnd));
}

// Triangle marks:
//   u8 20 | u32 triangle count (must equal the mesh's) | one u8 mark per triangle | u8 21
// Triangle visibilities:
//   u8 200 | u32 triangle count (must equal the mesh's) | one u8 per triangle, non-zero for
//   visible | u8 201
// In triangle order. Only the Standard kind holds marks and visibilities; the other kinds write
// 0 (no mark) and 1 (visible) and skip the values on load.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlTriangleMarkInfo(MStlBase& mesh)
{
    SaveTag(kTagMarksBegin);
    const uint32_t count = static_cast<uint32_t>(mesh.NumberOfTriangles());
    file_->WRITE(&count, 1);
    std::vector<unsigned char> marks(count, 0);
    if (storageKind_ == eStlStandard)
    {
        size_t i = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
            marks[i++] = it->GetMark();
    }
    file_->WRITE(marks.data(), marks.size());
    SaveTag(kTagMarksEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlTriangleMarkInfo(MStlBase& mesh)
{
    if (LoadTag(kTagMarksBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    if (_FileFailed())
        return _SetError(eStlFileIOBadFormat);
    if (count != mesh.NumberOfTriangles())
        return _SetError(eStlFileIOMarkCountMismatch);
    if (count > _Remaining())
        return _SetError(eStlFileIOBadFormat);
    std::vector<unsigned char> marks(count);
    file_->READ(marks.data(), marks.size());
    if (storageKind_ == eStlStandard)
    {
        size_t i = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
            it->SetMark(marks[i++]);
    }
    mesh.GetMarkInterface().InvalidateValidity();
    return _SetError(LoadTag(kTagMarksEnd));
}

MStlFileIO::MErrorCode MStlFileIO::_SaveStlTriangleVisibilityInfo(MStlBase& mesh)
{
    SaveTag(kTagVisibilityBegin);
    const uint32_t count = static_cast<uint32_t>(mesh.NumberOfTriangles());
    file_->WRITE(&count, 1);
    std::vector<unsigned char> visible(count, 1);
    if (storageKind_ == eStlStandard)
    {
        size_t i = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
            visible[i++] = it->IsVisible() ? 1 : 0;
    }
    file_->WRITE(visible.data(), visible.size());
    SaveTag(kTagVisibilityEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlTriangleVisibilityInfo(MStlBase& mesh)
{
    if (LoadTag(kTagVisibilityBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    if (_FileFailed())
        return _SetError(eStlFileIOBadFormat);
    if (count != mesh.NumberOfTriangles())
        return _SetError(eStlFileIOVisibilityCountMismatch);
    if (count > _Remaining())
        return _SetError(eStlFileIOBadFormat);
    std::vector<unsigned char> visible(count);
    file_->READ(visible.data(), visible.size());
    if (storageKind_ == eStlStandard)
    {
        size_t i = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && i < count; ++it)
        {
            if (visible[i++] != 0)
                it->MakeVisible();
            else
                it->MakeInvisible();
        }
    }
    mesh.InvalidateTriangleVisibilities();
    return _SetError(LoadTag(kTagVisibilityEnd));
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
