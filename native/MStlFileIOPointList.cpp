// Point list section of the native mesh format.
#include "NativeSections.h"

#include <KelSDK/FileIO/MFile.h>
#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/IO/MStlFileIO.h>

#include <algorithm>
#include <memory>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

namespace
{
template <unsigned W>
void DecodePointsOfWidth(const unsigned char* in, size_t count, const int32_t minimum[3], std::array<int, 3>* out)
{
    for (size_t i = 0; i < count; ++i, in += 3 * W)
        for (unsigned a = 0; a < 3; ++a)
            out[i][a] = static_cast<int>(static_cast<uint32_t>(minimum[a]) + UnpackValueOf<W>(in + a * W));
}

// Decodes count packed points of width w (x, y, z relative to the minimum) into out.
void DecodePoints(const unsigned char* in, size_t count, unsigned w, const int32_t minimum[3],
                  std::array<int, 3>* out)
{
    switch (w)
    {
    case 1:
        return DecodePointsOfWidth<1>(in, count, minimum, out);
    case 2:
        return DecodePointsOfWidth<2>(in, count, minimum, out);
    case 3:
        return DecodePointsOfWidth<3>(in, count, minimum, out);
    default:
        return DecodePointsOfWidth<4>(in, count, minimum, out);
    }
}
} // namespace

// Layout (x min, y min, z min, the coordinate width w and the vertex count n come from the
// properties section; the storage kind from the mesh base section):
//   u8  8
//   n x 3 x w bytes  per point in point order: x - x min, y - y min, z - z min, each as its w
//                    low bytes, least significant first (w is 4 unless the kind is Standard)
//   Standard only:   u64 k, then k x u64: ascending positions of the user-defined points
//   u8  9
// Point order: the point list for Standard, the vertex indices of the store otherwise.
MStlFileIO::MErrorCode MStlFileIO::_SaveStlPointList(MStlBase& mesh)
{
    SaveTag(NativeTags::kPointsBegin);
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    const unsigned w = coordinateWidth_;
    const uint64_t n = vertexCount_;
    const size_t bytes = static_cast<size_t>(n) * 3 * w;
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[bytes == 0 ? 1 : bytes]());
    unsigned char* out = buffer.get();
    const int64_t minX = extremes_[0];
    const int64_t minY = extremes_[2];
    const int64_t minZ = extremes_[4];
    // Relative coordinates fit 32 bits: they lie between 0 and max - min.
    auto put = [&out, w](int64_t relative)
    {
        PackValue(out, static_cast<uint32_t>(relative), w);
        out += w;
    };
    std::vector<uint64_t> userDefined;
    if (storageKind_ == eStlStandard)
    {
        uint64_t position = 0;
        for (const MStlPoint* p = mesh.GetPointList().GetFirstPoint(); p != nullptr && position < n;
             p = p->GetNext(), ++position)
        {
            put(p->GetX() - minX);
            put(p->GetY() - minY);
            put(p->GetZ() - minZ);
            if (p->IsUserDefined(false))
                userDefined.push_back(position);
        }
        _Steps(position);
    }
    else if (storageKind_ == eStlCompact && hybrid.GetStlCompact() != nullptr)
    {
        const MStlCompact& compact = *hybrid.GetStlCompact();
        for (uint64_t i = 0; i < n; ++i)
        {
            const MVertex v = compact.GetVertex(static_cast<size_t>(i));
            put(v.GetX() - minX);
            put(v.GetY() - minY);
            put(v.GetZ() - minZ);
        }
        _Steps(n);
    }
    else if (storageKind_ == eStlOnDisk && hybrid.GetStlOnDisk() != nullptr)
    {
        const MStlOnDisk& onDisk = *hybrid.GetStlOnDisk();
        for (uint64_t i = 0; i < n; ++i)
        {
            int x = 0, y = 0, z = 0;
            onDisk.GetVertex(static_cast<size_t>(i), x, y, z, true);
            put(x - minX);
            put(y - minY);
            put(z - minZ);
        }
        _Steps(n);
    }
    file_->WRITE(buffer.get(), bytes);
    if (storageKind_ == eStlStandard)
    {
        const uint64_t k = userDefined.size();
        file_->WRITE(&k, 1);
        file_->WRITE(userDefined.data(), userDefined.size());
    }
    SaveTag(NativeTags::kPointsEnd);
    maps_->savePoints = &mesh.GetPointList();
    return eStlFileIOSuccess;
}

MStlFileIO::MErrorCode MStlFileIO::_LoadStlPointList(MStlBase& mesh)
{
    MStlHybrid& hybrid = mesh.GetStlHybrid();
    hybrid.StartAddingVertices();
    if (LoadTag(NativeTags::kPointsBegin) != eStlFileIOSuccess)
        return lastError_;
    const unsigned w = coordinateWidth_;
    const uint64_t n = vertexCount_;
    // The properties reader bounded n by the file size; the packed block must fit what is left.
    if (n > _Remaining() / (3u * w))
        return _SetError(eStlFileIOBadFormat);
    // Decoded block by block through a small buffer: the packed bytes are never held whole.
    constexpr size_t kBlockPoints = 16384;
    std::unique_ptr<unsigned char[]> buffer(new unsigned char[kBlockPoints * 3 * 4]);
    bool readFailed = false;
    const int32_t minimum[3] = {extremes_[0], extremes_[2], extremes_[4]};
    // Calls take(first, count) for every block of decoded points (x, y, z each the stored value plus
    // the axis minimum, wrapped to 32 bits as the writer subtracted it).
    std::vector<std::array<int, 3>> decoded;
    auto forEachBlock = [&](auto take)
    {
        for (uint64_t done = 0; done < n;)
        {
            const size_t count = static_cast<size_t>(std::min<uint64_t>(kBlockPoints, n - done));
            readFailed = !file_->READ(buffer.get(), count * 3 * w) || readFailed;
            decoded.resize(count);
            DecodePoints(buffer.get(), count, w, minimum, decoded.data());
            take(decoded.data(), count);
            done += count;
        }
    };
    if (storageKind_ == eStlCompact || storageKind_ == eStlOnDisk)
    {
        // Positions are added one to one (no merging), so that vertex indices stay those of the
        // file; the vertices-shared switch is applied again afterwards.
        const bool shared = hybrid.GetVerticesShared();
        hybrid.SetVerticesShared(false);
        const size_t first = hybrid.GetNumVertices();
        size_t added = 0;
        bool inOrder = true;
        forEachBlock(
            [&](const std::array<int, 3>* points, size_t count)
            {
                for (size_t i = 0; i < count && inOrder; ++i, ++added)
                    inOrder = hybrid.AddVertex(points[i][0], points[i][1], points[i][2]) == first + added;
            });
        hybrid.SetVerticesShared(shared);
        if (!inOrder)
            return _SetError(eStlFileIOBadFormat);
        _Steps(n);
        if (readFailed)
            return _SetError(eStlFileIOBadFormat);
    }
    else if (storageKind_ == eStlStandard)
    {
        pendingPoints_.Clear();
        pendingPoints_.Resize(static_cast<size_t>(n));
        size_t at = 0;
        forEachBlock(
            [this, &at](const std::array<int, 3>* points, size_t count)
            {
                for (size_t i = 0; i < count; ++i)
                    pendingPoints_[at++] = points[i];
            });
        _Steps(n);
        uint64_t k = 0;
        file_->READ(&k, 1);
        if (readFailed || _FileFailed() || k > _Remaining() / 8)
        {
            pendingPoints_ = {};
            return _SetError(eStlFileIOBadFormat);
        }
        pendingUserDefined_.resize(static_cast<size_t>(k));
        file_->READ(pendingUserDefined_.data(), pendingUserDefined_.size());
        hasPendingPoints_ = true;
        // With triangles following, points and triangles are created together by one call.
        if (!saveTriangles_)
            _FlushPendingPoints(mesh);
    }
    return _SetError(LoadTag(NativeTags::kPointsEnd));
}

void MStlFileIO::_FlushPendingPoints(MStlBase& mesh)
{
    if (!hasPendingPoints_)
        return;
    hasPendingPoints_ = false;
    // Sorting is switched off for the bulk creation; switching it on again checks whether the
    // file kept the points in (z, x, y) order (an STL import does) and sorts only if not.
    mesh.GetPointList().DisableSorting();
    std::vector<MStlPoint*> created;
    std::vector<std::array<int, 3>> points(pendingPoints_.Size());
    for (size_t i = 0; i < points.size(); ++i)
        points[i] = pendingPoints_[i];
    pendingPoints_.Clear();
    mesh.CreatePoints(std::move(points), &created);
    for (uint64_t index : pendingUserDefined_)
        if (index < created.size()) // positions beyond the list are ignored
            created[static_cast<size_t>(index)]->SetUserDefined(true);
    pendingUserDefined_ = {};
    mesh.GetPointList().EnableSorting(true, true);
}

void MStlFileIO::_RegisterLoadedPoints(MStlBase& mesh)
{
    maps_->loadPoints = &mesh.GetPointList();
}
} // namespace KelSDK::Triangles::IO
