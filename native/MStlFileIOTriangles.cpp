// Triangle list section of the native mesh format, and the hand-over of the gathered points and
// triangles to the mesh.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <algorithm>
#include <memory>
#include <unordered_map>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

namespace
{
constexpr unsigned char kNoColors = 0;
constexpr unsigned char kColorPerTriangle = 1;

// Decodes count triangles of packed corner indices of width W into out; false when one is not below
// limit.
template <unsigned W>
bool DecodeCornersOfWidth(const unsigned char* in, size_t count, uint64_t limit, std::array<uint32_t, 3>* out)
{
    uint32_t largest = 0;
    for (size_t t = 0; t < count; ++t, in += 3 * W)
    {
        const std::array<uint32_t, 3> corners{UnpackValueOf<W>(in), UnpackValueOf<W>(in + W),
                                              UnpackValueOf<W>(in + 2 * W)};
        largest = std::max(largest, std::max(corners[0], std::max(corners[1], corners[2])));
        out[t] = corners;
    }
    return count == 0 || largest < limit;
}

bool DecodeCorners(const unsigned char* in, size_t count, unsigned width, uint64_t limit,
                   std::array<uint32_t, 3>* out)
{
    switch (width)
    {
    case 1:
        return DecodeCornersOfWidth<1>(in, count, limit, out);
    case 2:
        return DecodeCornersOfWidth<2>(in, count, limit, out);
    case 3:
        return DecodeCornersOfWidth<3>(in, count, limit, out);
    default:
        return DecodeCornersOfWidth<4>(in, count, limit, out);
    }
}
} // namespace

// Layout (the vertex index width v comes from the properties section):
//   u8  40
//   u64 n                 number of triangles
//   n x 3 x v bytes       corner vertex indices (point order of the point list), each as its v
//                         low bytes, least significant first, in triangle order
//   u8  colour mode       0: no triangle colours follow; 1: one u32 per triangle follows
//   [n x u32]             bit 24 set for a defined colour, RGB 0x00BBGGRR below it
//   u8  41
// Colours are written only when the colours switch is on and a triangle has a colour.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlTriangleList(MStlBase& mesh)
{
    SaveTag(NativeTags::kTrianglesBegin);
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    const unsigned v = vertexIndexWidth_;
    const uint64_t n = triangleCount_;
    file_->WRITE(&n, 1);
    const size_t bytes = static_cast<size_t>(n) * 3 * v;
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[bytes == 0 ? 1 : bytes]());
    unsigned char* out = buffer.get();
    std::vector<uint32_t> colors;
    bool anyColor = false;
    if (storageKind_ == eStlStandard)
    {
        const MStlPointList& points = mesh.GetPointList();
        if (saveColors_)
            colors.reserve(static_cast<size_t>(n));
        uint64_t written = 0;
        for (auto it = mesh.BeginTriangle(); it != mesh.EndTriangle() && written < n; ++it, ++written)
        {
            const MStlTriangle& t = *it;
            for (int c = 0; c < 3; ++c)
            {
                const size_t index = points.GetIndexOfPoint(t.GetPoint(c));
                PackValue(out, static_cast<uint32_t>(index < vertexCount_ ? index : 0), v);
                out += v;
            }
            if (saveColors_)
            {
                colors.push_back(EncodeColor(t.GetColor()));
                anyColor = anyColor || t.GetColor().IsDefined();
            }
        }
        _Steps(written);
    }
    else
    {
        for (uint64_t i = 0; i < n; ++i)
        {
            unsigned corner[3] = {0, 0, 0};
            hybrid.GetTriangle(static_cast<size_t>(i), corner[0], corner[1], corner[2]);
            for (unsigned c : corner)
            {
                PackValue(out, c, v);
                out += v;
            }
        }
        _Steps(n);
        if (saveColors_ && hybrid.StartGettingTriangleColors())
        {
            colors.resize(static_cast<size_t>(n));
            for (uint64_t i = 0; i < n; ++i)
            {
                const MStlColor color = hybrid.GetColor(static_cast<size_t>(i));
                colors[static_cast<size_t>(i)] = EncodeColor(color);
                anyColor = anyColor || color.IsDefined();
            }
        }
    }
    file_->WRITE(buffer.get(), bytes);
    const unsigned char mode = anyColor ? kColorPerTriangle : kNoColors;
    file_->WRITE(&mode, 1);
    if (anyColor)
    {
        colors.resize(static_cast<size_t>(n), 0u);
        file_->WRITE(colors.data(), colors.size());
    }
    SaveTag(NativeTags::kTrianglesEnd);
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlTriangleList(MStlBase& mesh)
{
    if (LoadTag(NativeTags::kTrianglesBegin) != eStlFileIOSuccess)
        return lastError_;
    const unsigned v = vertexIndexWidth_;
    uint64_t n = 0;
    file_->READ(&n, 1);
    if (_FileFailed() || n > _Remaining() / (3u * v))
        return _SetError(eStlFileIOBadFormat);
    // Corners index the points of this file, or the points the mesh already holds when the file
    // carries none.
    const uint64_t available = hasPendingPoints_
                                   ? pendingPoints_.Size()
                                   : (storageKind_ == eStlStandard ? mesh.GetPointList().GetNumPoints()
                                                                   : mesh.GetStlHybrid().GetNumVertices());
    // Decoded block by block through a small buffer: the packed bytes are never held whole.
    buildCorners_.Clear();
    buildCorners_.Resize(static_cast<size_t>(n));
    constexpr size_t kBlockTriangles = 16384;
    // A block of decoding never straddles two blocks of the list.
    static_assert(decltype(buildCorners_)::BlockElements % kBlockTriangles == 0, "decoding blocks fit list blocks");
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[kBlockTriangles * 3 * 4]);
    bool inRange = true;
    for (uint64_t done = 0; done < n;)
    {
        const size_t count = static_cast<size_t>(std::min<uint64_t>(kBlockTriangles, n - done));
        if (!file_->READ(buffer.get(), count * 3 * v))
            return _SetError(eStlFileIOBadFormat);
        inRange = DecodeCorners(buffer.get(), count, v, available, &buildCorners_[done]) && inRange;
        done += count;
    }
    if (!inRange)
        return _SetError(eStlFileIOBadFormat);
    _Steps(n);
    unsigned char mode = kNoColors;
    file_->READ(&mode, 1);
    if (mode == kColorPerTriangle)
    {
        if (n > _Remaining() / 4)
            return _SetError(eStlFileIOBadFormat);
        buildColors_.resize(static_cast<size_t>(n));
        file_->READ(buildColors_.data(), buildColors_.size());
    }
    else if (mode != kNoColors)
    {
        return _SetError(eStlFileIOBadFormat);
    }
    return _SetError(LoadTag(NativeTags::kTrianglesEnd));
}

MStlFileIO::MErrorCode MStlFileIO::_BuildTriangles(MStlBase& mesh)
{
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    const size_t n = buildCorners_.Size();
    const MStlFeature& surfaceList = mesh.GetSurfaceList();
    // Surface of triangle i: buildSurfaces_ holds 0 for none or the list position + 1.
    auto surfaceOf = [&](size_t i) -> MStlSurface*
    {
        const uint32_t s = i < buildSurfaces_.size() ? buildSurfaces_[i] : 1u;
        return s == 0 ? nullptr : surfaceList.GetSurface(s - 1u);
    };
    if (storageKind_ == eStlStandard)
    {
        // Standard triangles always belong to a surface; "none" means the main surface.
        for (uint32_t& s : buildSurfaces_)
            if (s == 0)
                s = 1;
        // Triangles grouped by surface in list order can be created in one call; any other
        // order is rebuilt triangle by triangle so that the triangle order stays as stored.
        bool grouped = true;
        for (size_t i = 1; i < buildSurfaces_.size() && grouped; ++i)
            grouped = buildSurfaces_[i - 1] <= buildSurfaces_[i];
        const size_t before = mesh.NumberOfTriangles();
        if (hasPendingPoints_ && grouped)
        {
            // One run per surface, in the order of the triangles.
            std::vector<size_t> counts;
            std::vector<MStlSurface*> surfaces;
            for (size_t begin = 0; begin < n;)
            {
                size_t end = begin + 1;
                while (end < n && !buildSurfaces_.empty() && buildSurfaces_[end] == buildSurfaces_[begin])
                    ++end;
                if (buildSurfaces_.empty())
                    end = n;
                counts.push_back(end - begin);
                surfaces.push_back(buildSurfaces_.empty() ? mesh.GetMainSurface() : surfaceOf(begin));
                begin = end;
            }
            hasPendingPoints_ = false;
            std::vector<MStlPoint*> createdPoints;
            if (!mesh.Create(std::move(pendingPoints_), std::move(buildCorners_), counts, &surfaces,
                             pendingUserDefined_.empty() ? nullptr : &createdPoints, nullptr))
                return _SetError(eStlFileIOBadFormat);
            pendingPoints_ = {};
            buildCorners_ = {};
            for (uint64_t index : pendingUserDefined_)
                if (index < createdPoints.size()) // positions beyond the list are ignored
                    createdPoints[static_cast<size_t>(index)]->SetUserDefined(true);
            pendingUserDefined_ = {};
            // The mesh was emptied before a file with points and triangles: the created points are
            // all its points, in list order.
            _RegisterLoadedPoints(mesh);
        }
        else
        {
            _FlushPendingPoints(mesh);
            _RegisterLoadedPoints(mesh);
            const MStlPointList& points = mesh.GetPointList();
            for (size_t i = 0; i < n; ++i)
            {
                const std::array<uint32_t, 3>& c = buildCorners_[i];
                MStlPoint* p[3] = {points.GetPointWithIndex(c[0]), points.GetPointWithIndex(c[1]),
                                   points.GetPointWithIndex(c[2])};
                MStlTriangle* t = mesh.CreateTriangle(p[0], p[1], p[2], surfaceOf(i));
                if (t == nullptr)
                    return _SetError(eStlFileIOBadFormat);
            }
            buildCorners_ = {};
        }
        // The new triangles follow the ones the mesh had, in the order of the file.
        if (!buildColors_.empty())
        {
            MStlIteratorStlTriangle t = mesh.BeginTriangle();
            const MStlIteratorStlTriangle end = mesh.EndTriangle();
            for (size_t i = 0; i < before && t != end; ++i)
                ++t;
            for (size_t i = 0; t != end && i < buildColors_.size(); ++i, ++t)
                t->SetColor(DecodeColor(buildColors_[i]));
        }
    }
    else
    {
        MStlSurface* current = nullptr;
        bool started = false;
        const size_t vertices = hybrid.GetNumVertices();
        for (size_t i = 0; i < n; ++i)
        {
            MStlSurface* surface = surfaceOf(i);
            if (!started || surface != current)
            {
                if (storageKind_ == eStlCompact && hybrid.GetStlCompact() != nullptr)
                {
                    if (!started)
                        hybrid.GetStlCompact()->BeginAdding();
                    hybrid.GetStlCompact()->SetCurrentSurface(surface);
                }
                else
                {
                    hybrid.StartAddingTriangles(surface);
                }
                current = surface;
                started = true;
            }
            const std::array<uint32_t, 3>& c = buildCorners_[i];
            if (c[0] >= vertices || c[1] >= vertices || c[2] >= vertices)
                return _SetError(eStlFileIOBadFormat);
            const unsigned i0 = static_cast<unsigned>(c[0]);
            const unsigned i1 = static_cast<unsigned>(c[1]);
            const unsigned i2 = static_cast<unsigned>(c[2]);
            const size_t added = storageKind_ == eStlCompact && hybrid.GetStlCompact() != nullptr
                                     ? hybrid.GetStlCompact()->AddTriangle(i0, i1, i2)
                                     : hybrid.AddTriangle(i0, i1, i2);
            if (added == MStlInvalidIndex)
                return _SetError(eStlFileIOBadFormat);
        }
        buildCorners_ = {};
        if (!buildColors_.empty() && hybrid.StartAddingTriangleColors())
            for (uint32_t word : buildColors_)
                hybrid.AddColor(DecodeColor(word));
    }
    buildColors_ = {};
    buildSurfaces_ = {};
    _RegisterLoadedPoints(mesh);
    return eStlFileIOSuccess;
}
} // namespace KelSDK::Triangles::IO
