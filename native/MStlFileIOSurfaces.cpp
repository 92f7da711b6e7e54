// Surface list section of the native mesh format: surface names, triangle membership, surface
// borders with their contours and sub-contours, and surface visibilities.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <unordered_map>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

// Layout:
//   u8  42
//   u32 S                 number of surfaces, the main surface first; each gets the next item
//                         identifier
//   S x wide string       surface names
//   membership            only when the triangle list holds triangles and S > 1: a byte array
//                         (width byte w, then w bytes per value) of one value per triangle in
//                         triangle order: 0 for none, else the surface position + 1
//   u32 B                 number of surface borders, then B border records
//   surface visibility record
//   u8  43
MStlFileIO::MErrorCode MStlFileIO::_SaveStlSurfaceList(MStlBase& mesh)
{
    SaveTag(NativeTags::kSurfacesBegin);
    const MStlFeature& surfaces = mesh.GetSurfaceList();
    const uint32_t count = static_cast<uint32_t>(surfaces.GetNumSurfaces(false));
    file_->WRITE(&count, 1);
    std::unordered_map<const MStlSurface*, uint32_t> position;
    for (uint32_t s = 0; s < count; ++s)
    {
        const MStlSurface* surface = surfaces.GetSurface(s);
        file_->WRITE_STRING_RAW(surface->GetName().c_str());
        maps_->RegisterSave(surface);
        position.emplace(surface, s + 1);
    }
    const uint64_t n = triangleCount_;
    if (n > 0 && count > 1)
    {
        std::vector<uint32_t> membership;
        membership.reserve(static_cast<size_t>(n));
        auto numberOf = [&position](const MStlSurface* surface)
        {
            auto it = position.find(surface);
            return it != position.end() ? it->second : 0u;
        };
        if (storageKind_ == eStlStandard)
        {
            for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && membership.size() < n; ++it)
                membership.push_back(numberOf(it->GetSurface()));
        }
        else
        {
            const MStlHybrid& hybrid = mesh.GetStlHybrid();
            for (uint64_t i = 0; i < n; ++i)
                membership.push_back(numberOf(hybrid.GetTriangleSurface(static_cast<size_t>(i))));
        }
        membership.resize(static_cast<size_t>(n), 0u);
        file_->WRITE_AS_BYTE_ARRAY(membership.data(), membership.size());
    }
    const MStlSurfaceBorderList& borders = mesh.GetSurfaceBorders();
    const uint32_t borderCount = static_cast<uint32_t>(borders.GetNumBorders());
    file_->WRITE(&borderCount, 1);
    MErrorCode code = eStlFileIOSuccess;
    for (uint32_t b = 0; b < borderCount; ++b)
        if ((code = SaveStlSurfaceBorder(*borders.GetBorder(b))) != eStlFileIOSuccess)
            return code;
    if ((code = SaveStlSurfaceVisibilityInfo(mesh)) != eStlFileIOSuccess)
        return code;
    SaveTag(NativeTags::kSurfacesEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlSurfaceList(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kSurfacesBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    // Every surface needs at least its name's length; there is always a main surface.
    if (_FileFailed() || count == 0 || count > _Remaining() / 4)
        return _SetError(eStlFileIOBadFormat);
    MStlFeature& surfaces = mesh.GetSurfaceList();
    for (uint32_t s = 0; s < count; ++s)
    {
        std::wstring name;
        if (!ReadText(*file_, name))
            return _SetError(eStlFileIOBadFormat);
        MStlSurface* surface = surfaces.GetSurface(s);
        if (surface == nullptr)
            surface = mesh.AddSurface();
        surface->SetName(name);
        maps_->RegisterLoad(surface);
    }
    const size_t n = buildCorners_.Size();
    if (n > 0 && count > 1)
    {
        // The byte array holds a width byte and at least one byte per triangle.
        if (n > _Remaining() - 1 || _Remaining() == 0)
            return _SetError(eStlFileIOBadFormat);
        buildSurfaces_.resize(n);
        if (!file_->READ_AS_BYTE_ARRAY(buildSurfaces_.data(), n))
            return _SetError(eStlFileIOBadFormat);
        for (uint32_t s : buildSurfaces_)
            if (s > count)
                return _SetError(eStlFileIOBadFormat);
    }
    MErrorCode code = _BuildTriangles(mesh);
    if (code != eStlFileIOSuccess)
        return code;
    uint32_t borderCount = 0;
    file_->READ(&borderCount, 1);
    // A border record takes at least 10 bytes (two tags, a surface and a contour count).
    if (_FileFailed() || borderCount > _Remaining() / 10)
        return _SetError(eStlFileIOBadFormat);
    MStlSurfaceBorderList& borders = mesh.GetSurfaceBorders();
    for (uint32_t b = 0; b < borderCount; ++b)
    {
        MStlSurfaceBorder* border = borders.AddBorder(nullptr);
        if ((code = LoadStlSurfaceBorder(*border)) != eStlFileIOSuccess)
            return code;
    }
    if ((code = LoadStlSurfaceVisibilityInfo(mesh)) != eStlFileIOSuccess)
        return code;
    return _SetError(LoadTag(NativeTags::kSurfacesEnd));
}

// Border record:
//   u8 56 | u32 surface identifier (0: none) | u32 contour count | contour records | u8 57
MStlFileIO::MErrorCode MStlFileIO::SaveStlSurfaceBorder(const MStlSurfaceBorder& border)
{
    SaveTag(NativeTags::kBorderBegin);
    maps_->RegisterSave(&border);
    const uint32_t surface = maps_->FindSaveItem(border.GetSurface());
    file_->WRITE(&surface, 1);
    const uint32_t count = static_cast<uint32_t>(border.Contours().size());
    file_->WRITE(&count, 1);
    for (const MStlBorderContour& contour : border.Contours())
    {
        const MErrorCode code = SaveStlSurfaceBorderContour(contour);
        if (code != eStlFileIOSuccess)
            return code;
    }
    SaveTag(NativeTags::kBorderEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::LoadStlSurfaceBorder(MStlSurfaceBorder& border)
{
    if (LoadTag(NativeTags::kBorderBegin) != eStlFileIOSuccess)
        return lastError_;
    maps_->RegisterLoad(&border);
    uint32_t surfaceId = 0;
    uint32_t count = 0;
    file_->READ(&surfaceId, 1);
    file_->READ(&count, 1);
    // A contour record takes at least 6 bytes (two tags and a sub-contour count).
    if (_FileFailed() || count > _Remaining() / 6)
        return _SetError(eStlFileIOBadFormat);
    MStlFeatureItem* item = nullptr;
    if (!maps_->FindLoadItem(surfaceId, item) ||
        (item != nullptr && dynamic_cast<MStlSurface*>(item) == nullptr))
        return _SetError(eStlFileIOUnknownReference);
    border.SetSurface(static_cast<MStlSurface*>(item));
    border.Contours().resize(count);
    for (MStlBorderContour& contour : border.Contours())
    {
        const MErrorCode code = LoadStlSurfaceBorderContour(contour);
        if (code != eStlFileIOSuccess)
            return code;
    }
    return _SetError(LoadTag(NativeTags::kBorderEnd));
}

// Contour record:
//   u8 58 | u32 sub-contour count | sub-contour records | u8 59
// Sub-contour record:
//   u8 140 | u32 neighbour item identifier (0: none) | u32 point count k |
//   byte array of k point identifiers (width byte w, then w bytes each) | u8 141
MStlFileIO::MErrorCode MStlFileIO::SaveStlSurfaceBorderContour(const MStlBorderContour& contour)
{
    SaveTag(NativeTags::kContourBegin);
    const uint32_t count = static_cast<uint32_t>(contour.subContours.size());
    file_->WRITE(&count, 1);
    std::vector<uint32_t> ids;
    for (const MStlSubContour& sub : contour.subContours)
    {
        SaveTag(NativeTags::kSubContourBegin);
        const uint32_t neighbour = maps_->FindSaveItem(sub.neighbour);
        file_->WRITE(&neighbour, 1);
        const uint32_t k = static_cast<uint32_t>(sub.points.size());
        file_->WRITE(&k, 1);
        ids.resize(sub.points.size());
        for (size_t i = 0; i < sub.points.size(); ++i)
            ids[i] = maps_->FindSavePoint(sub.points[i]);
        if (k > 0)
            file_->WRITE_AS_BYTE_ARRAY(ids.data(), ids.size());
        SaveTag(NativeTags::kSubContourEnd);
    }
    SaveTag(NativeTags::kContourEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::LoadStlSurfaceBorderContour(MStlBorderContour& contour)
{
    if (LoadTag(NativeTags::kContourBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    // A sub-contour record takes at least 10 bytes.
    if (_FileFailed() || count > _Remaining() / 10)
        return _SetError(eStlFileIOBadFormat);
    contour.subContours.resize(count);
    std::vector<uint32_t> ids;
    for (MStlSubContour& sub : contour.subContours)
    {
        if (LoadTag(NativeTags::kSubContourBegin) != eStlFileIOSuccess)
            return lastError_;
        uint32_t neighbour = 0;
        uint32_t k = 0;
        file_->READ(&neighbour, 1);
        file_->READ(&k, 1);
        if (_FileFailed() || (k > 0 && k > _Remaining() - 1) || (k > 0 && _Remaining() == 0))
            return _SetError(eStlFileIOBadFormat);
        if (!maps_->FindLoadItem(neighbour, sub.neighbour))
            return _SetError(eStlFileIOUnknownReference);
        ids.resize(k);
        if (k > 0 && !file_->READ_AS_BYTE_ARRAY(ids.data(), ids.size()))
            return _SetError(eStlFileIOBadFormat);
        sub.points.resize(k);
        for (uint32_t i = 0; i < k; ++i)
            if (!maps_->FindLoadPoint(ids[i], sub.points[i]))
                return _SetError(eStlFileIOUnknownReference);
        if (LoadTag(NativeTags::kSubContourEnd) != eStlFileIOSuccess)
            return lastError_;
    }
    return _SetError(LoadTag(NativeTags::kContourEnd));
}

// Surface visibility record:
//   u8 60 | u32 S (number of surfaces) | S x bool (visible) | u8 61
// On load S may not exceed the number of surfaces of the mesh; the first S take the values.
MStlFileIO::MErrorCode MStlFileIO::SaveStlSurfaceVisibilityInfo(const MStlBase& mesh)
{
    SaveTag(NativeTags::kSurfaceVisibilityBegin);
    const MStlFeature& surfaces = mesh.GetSurfaceList();
    const uint32_t count = static_cast<uint32_t>(surfaces.GetNumSurfaces(false));
    file_->WRITE(&count, 1);
    for (uint32_t s = 0; s < count; ++s)
    {
        const bool visible = surfaces.GetSurface(s)->IsVisible();
        file_->WRITE(&visible, 1);
    }
    SaveTag(NativeTags::kSurfaceVisibilityEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::LoadStlSurfaceVisibilityInfo(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kSurfaceVisibilityBegin) != eStlFileIOSuccess)
        return lastError_;
    MStlFeature& surfaces = mesh.GetSurfaceList();
    uint32_t count = 0;
    file_->READ(&count, 1);
    if (_FileFailed() || count > surfaces.GetNumSurfaces(false) || count > _Remaining())
        return _SetError(eStlFileIOBadFormat);
    for (uint32_t s = 0; s < count; ++s)
    {
        bool visible = true;
        file_->READ(&visible, 1);
        surfaces.GetSurface(s)->SetVisible(visible);
    }
    return _SetError(LoadTag(NativeTags::kSurfaceVisibilityEnd));
}
} // namespace KelSDK::Triangles::IO
