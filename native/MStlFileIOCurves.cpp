// Curve list and graph feature sections of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

// Curve list of the curves feature:
//   u8 44 | u32 number of curve sets | curve set records | u8 45
// Loading replaces the curve sets of the mesh.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlCurveList(const MStlBase& mesh)
{
    SaveTag(NativeTags::kCurvesBegin);
    const MStlCurveFeature& curves = mesh.GetCurves();
    const uint32_t count = static_cast<uint32_t>(curves.GetNumCurveSets());
    file_->WRITE(&count, 1);
    for (uint32_t i = 0; i < count; ++i)
    {
        const MErrorCode code = SaveStlCurve(*curves.GetCurveSet(i));
        if (code != eStlFileIOSuccess)
            return code;
    }
    SaveTag(NativeTags::kCurvesEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlCurveList(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kCurvesBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    // A curve set record takes at least 10 bytes (two tags, a name length and a curve count).
    if (_FileFailed() || count > _Remaining() / 10)
        return _SetError(eStlFileIOBadFormat);
    MStlCurveFeature& curves = mesh.GetCurves();
    curves.Clear();
    for (uint32_t i = 0; i < count; ++i)
    {
        const MErrorCode code = LoadStlCurve(*curves.AddCurveSet());
        if (code != eStlFileIOSuccess)
            return code;
    }
    return _SetError(LoadTag(NativeTags::kCurvesEnd));
}

// Curve set record (the set gets the next item identifier):
//   u8 62 | wide string name | u32 number of curves | curve records | u8 63
MStlFileIO::MErrorCode MStlFileIO::SaveStlCurve(const MStlCurveSet& set)
{
    SaveTag(NativeTags::kCurveSetBegin);
    maps_->RegisterSave(&set);
    file_->WRITE_STRING_RAW(set.GetName().c_str());
    const uint32_t count = static_cast<uint32_t>(set.GetNumCurves());
    file_->WRITE(&count, 1);
    for (const MStlCurve& curve : set.Curves())
    {
        const MErrorCode code = SaveStlCurveSegment(curve);
        if (code != eStlFileIOSuccess)
            return code;
    }
    SaveTag(NativeTags::kCurveSetEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::LoadStlCurve(MStlCurveSet& set)
{
    if (LoadTag(NativeTags::kCurveSetBegin) != eStlFileIOSuccess)
        return lastError_;
    maps_->RegisterLoad(&set);
    std::wstring name;
    uint32_t count = 0;
    if (!ReadText(*file_, name) || !file_->READ(&count, 1))
        return _SetError(eStlFileIOBadFormat);
    // A curve record takes at least 7 bytes (two tags, the closed switch and a vertex count).
    if (count > _Remaining() / 7)
        return _SetError(eStlFileIOBadFormat);
    set.SetName(name);
    set.Curves().clear();
    set.Curves().reserve(count);
    for (uint32_t i = 0; i < count; ++i)
    {
        MStlCurve curve;
        const MErrorCode code = LoadStlCurveSegment(curve);
        if (code != eStlFileIOSuccess)
            return code;
        set.AddCurve(std::move(curve));
    }
    return _SetError(LoadTag(NativeTags::kCurveSetEnd));
}

// Curve record (one polyline):
//   u8 46 | bool closed | u32 vertex count m | m x 3 x i32 (x, y, z per vertex) | u8 47
MStlFileIO::MErrorCode MStlFileIO::SaveStlCurveSegment(const MStlCurve& curve)
{
    SaveTag(NativeTags::kCurveSegmentBegin);
    file_->WRITE(&curve.closed, 1);
    const uint32_t count = static_cast<uint32_t>(curve.vertices.size());
    file_->WRITE(&count, 1);
    if (count > 0)
        file_->WRITE(curve.vertices.front().data(), static_cast<size_t>(count) * 3);
    SaveTag(NativeTags::kCurveSegmentEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::LoadStlCurveSegment(MStlCurve& curve)
{
    if (LoadTag(NativeTags::kCurveSegmentBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&curve.closed, 1);
    file_->READ(&count, 1);
    if (_FileFailed() || count > _Remaining() / 12)
        return _SetError(eStlFileIOBadFormat);
    curve.vertices.resize(count);
    if (count > 0 && !file_->READ(curve.vertices.front().data(), static_cast<size_t>(count) * 3))
        return _SetError(eStlFileIOBadFormat);
    return _SetError(LoadTag(NativeTags::kCurveSegmentEnd));
}

// Graph feature (graph edges):
//   u8 48 | u32 edge count m | when m > 0: a byte array (width byte w, w bytes per value) of 2m
//   point identifiers, two per edge in edge order | u8 49
// For the Standard kind the identifiers are point identifiers (list position + 1), for the
// Compact kind vertex index + 1. The OnDisk kind holds no graph edges.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlGraphFeature(MStlBase& mesh)
{
    SaveTag(NativeTags::kGraphBegin);
    std::vector<uint32_t> ends;
    const MStlHybrid& hybrid = mesh.GetStlHybrid();
    if (storageKind_ == eStlStandard)
    {
        const MStlPointList& points = mesh.GetPointList();
        ends.reserve(mesh.NumberOfGraphEdges() * 2);
        for (const MStlGraphEdge& edge : const_cast<const MStlBase&>(mesh).GraphEdges())
        {
            for (int end = 0; end < 2; ++end)
            {
                const size_t index = points.GetIndexOfPoint(edge.GetPoint(end));
                ends.push_back(index < UINT32_MAX ? static_cast<uint32_t>(index + 1) : 0u);
            }
        }
    }
    else if (storageKind_ == eStlCompact && hybrid.GetStlCompact() != nullptr)
    {
        const MStlCompact& compact = *hybrid.GetStlCompact();
        ends.reserve(compact.GetNumberOfEdges() * 2);
        for (size_t e = 0; e < compact.GetNumberOfEdges(); ++e)
        {
            unsigned i0 = 0, i1 = 0;
            compact.GetEdge(e, i0, i1);
            ends.push_back(i0 + 1);
            ends.push_back(i1 + 1);
        }
    }
    const uint32_t count = static_cast<uint32_t>(ends.size() / 2);
    file_->WRITE(&count, 1);
    if (count > 0)
        file_->WRITE_AS_BYTE_ARRAY(ends.data(), ends.size());
    SaveTag(NativeTags::kGraphEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlGraphFeature(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kGraphBegin) != eStlFileIOSuccess)
        return lastError_;
    uint32_t count = 0;
    file_->READ(&count, 1);
    if (_FileFailed() || (count > 0 && (_Remaining() == 0 || count > (_Remaining() - 1) / 2)))
        return _SetError(eStlFileIOBadFormat);
    std::vector<uint32_t> ends(static_cast<size_t>(count) * 2);
    if (count > 0 && !file_->READ_AS_BYTE_ARRAY(ends.data(), ends.size()))
        return _SetError(eStlFileIOBadFormat);
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    for (size_t e = 0; e < count; ++e)
    {
        const uint32_t a = ends[2 * e];
        const uint32_t b = ends[2 * e + 1];
        if (storageKind_ == eStlStandard)
        {
            MStlPoint* p0 = nullptr;
            MStlPoint* p1 = nullptr;
            if (!maps_->FindLoadPoint(a, p0) || !maps_->FindLoadPoint(b, p1))
                return _SetError(eStlFileIOUnknownReference);
            mesh.CreateGraphEdge(p0, p1);
        }
        else if (storageKind_ == eStlCompact && hybrid.GetStlCompact() != nullptr)
        {
            if (a == 0 || b == 0 || hybrid.GetStlCompact()->AddEdge(a - 1u, b - 1u) == MStlInvalidIndex)
                return _SetError(eStlFileIOUnknownReference);
        }
        else
        {
            return _SetError(eStlFileIOBadFormat);
        }
    }
    return _SetError(LoadTag(NativeTags::kGraphEnd));
}
} // namespace KelSDK::Triangles::IO
