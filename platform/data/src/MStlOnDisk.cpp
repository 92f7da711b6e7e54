#include "ParentBoundingBox.h"
#include "TempFile.h"
#include "VertexHashIndex.h"

#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace KelSDK::Triangles::Data
{
namespace
{
// Record layouts of the three files, little-endian by construction (memcpy of host values; the
// files never leave the process that wrote them).
constexpr size_t VertexBytes = 12;   // int32 x, y, z
static_assert(sizeof(std::array<int, 3>) == VertexBytes, "a position is stored as it lies in memory");
constexpr size_t TriangleBytes = 12; // uint32 i0, i1, i2
constexpr size_t ColorBytes = 4;     // 0x00BBGGRR, bit 31 set when the colour is defined

enum class Mode
{
    Closed,
    Writing,
    Reading
};
} // namespace

struct MStlOnDisk::Impl
{
    TempFile vertices;
    TempFile triangles;
    TempFile colors;
    VertexHashIndex index;
    size_t numVertices = 0;
    size_t numTriangles = 0;
    size_t numColors = 0;
    int extremes[6] = {0, 0, 0, 0, 0, 0};
    bool share = true;
    Mode mode = Mode::Closed;
    // Surface runs: triangles from first on belong to surface (until the next run).
    std::vector<std::pair<size_t, MStlSurface*>> surfaceRuns;
    MStlSurface* currentSurface = nullptr;

    bool Failed() const { return vertices.HasFailed() || triangles.HasFailed() || colors.HasFailed(); }
};

MStlOnDisk::MStlOnDisk(MStlBase* parent) : parent_(parent), impl_(std::make_unique<Impl>()) {}
MStlOnDisk::~MStlOnDisk() = default;

bool MStlOnDisk::OpenWrite(bool append)
{
    if (!append)
        Clear();
    impl_->mode = Mode::Writing;
    return !impl_->Failed();
}

bool MStlOnDisk::OpenRead()
{
    if (impl_->mode == Mode::Writing && !Close())
        return false;
    if (impl_->Failed())
        return false;
    impl_->mode = Mode::Reading;
    return true;
}

bool MStlOnDisk::Close()
{
    bool ok = impl_->vertices.Flush();
    ok = impl_->triangles.Flush() && ok;
    ok = impl_->colors.Flush() && ok;
    if (impl_->mode == Mode::Reading)
    {
        impl_->vertices.ReleaseBuffers();
        impl_->triangles.ReleaseBuffers();
        impl_->colors.ReleaseBuffers();
    }
    impl_->mode = Mode::Closed;
    return ok;
}

bool MStlOnDisk::IsOpenForWriting() const
{
    return impl_->mode == Mode::Writing;
}
bool MStlOnDisk::IsOpenForReading() const
{
    return impl_->mode == Mode::Reading;
}

void MStlOnDisk::StartAddingVertices()
{
    if (impl_->mode != Mode::Writing)
        OpenWrite(true);
}

void MStlOnDisk::StartAddingSurfaceTriangles(MStlSurface* surface)
{
    if (impl_->mode != Mode::Writing)
        OpenWrite(true);
    impl_->currentSurface = surface;
    auto& runs = impl_->surfaceRuns;
    if (!runs.empty() && runs.back().first == impl_->numTriangles)
        runs.back().second = surface;
    else if (runs.empty() || runs.back().second != surface)
        runs.emplace_back(impl_->numTriangles, surface);
}

void MStlOnDisk::StartAddingTriangleColors()
{
    if (impl_->mode != Mode::Writing)
        OpenWrite(true);
}

void MStlOnDisk::EnableVertexSharing(bool enable)
{
    impl_->share = enable;
}
bool MStlOnDisk::IsVertexSharingEnabled() const
{
    return impl_->share;
}

unsigned MStlOnDisk::AddVertex(int x, int y, int z)
{
    Impl& d = *impl_;
    if (d.mode != Mode::Writing || d.numVertices >= MStlInvalidVertex)
        return MStlInvalidVertex;
    const unsigned candidate = static_cast<unsigned>(d.numVertices);
    if (d.share)
    {
        const unsigned found = d.index.FindOrInsert(x, y, z, candidate);
        if (found != candidate)
            return found;
    }
    const int32_t record[3] = {x, y, z};
    if (!d.vertices.Append(record, VertexBytes))
        return MStlInvalidVertex;
    if (d.numVertices == 0)
    {
        d.extremes[0] = d.extremes[1] = x;
        d.extremes[2] = d.extremes[3] = y;
        d.extremes[4] = d.extremes[5] = z;
    }
    else
    {
        d.extremes[0] = std::min(d.extremes[0], x);
        d.extremes[1] = std::max(d.extremes[1], x);
        d.extremes[2] = std::min(d.extremes[2], y);
        d.extremes[3] = std::max(d.extremes[3], y);
        d.extremes[4] = std::min(d.extremes[4], z);
        d.extremes[5] = std::max(d.extremes[5], z);
    }
    ++d.numVertices;
    return candidate;
}

bool MStlOnDisk::AddNewVertices(const std::array<int, 3>* positions, size_t count)
{
    Impl& d = *impl_;
    if (d.mode != Mode::Writing || count > MStlInvalidVertex - d.numVertices)
        return false;
    if (count == 0)
        return true;
    if (!d.vertices.Append(positions, count * VertexBytes))
        return false;
    if (d.share)
        d.index.InsertNew(positions, count, static_cast<uint32_t>(d.numVertices));
    for (size_t i = 0; i < count; ++i)
    {
        const std::array<int, 3>& p = positions[i];
        if (d.numVertices + i == 0)
        {
            d.extremes[0] = d.extremes[1] = p[0];
            d.extremes[2] = d.extremes[3] = p[1];
            d.extremes[4] = d.extremes[5] = p[2];
            continue;
        }
        d.extremes[0] = std::min(d.extremes[0], p[0]);
        d.extremes[1] = std::max(d.extremes[1], p[0]);
        d.extremes[2] = std::min(d.extremes[2], p[1]);
        d.extremes[3] = std::max(d.extremes[3], p[1]);
        d.extremes[4] = std::min(d.extremes[4], p[2]);
        d.extremes[5] = std::max(d.extremes[5], p[2]);
    }
    d.numVertices += count;
    return true;
}

size_t MStlOnDisk::AddSurfaceTriangle(unsigned i0, unsigned i1, unsigned i2)
{
    Impl& d = *impl_;
    if (d.mode != Mode::Writing || i0 >= d.numVertices || i1 >= d.numVertices || i2 >= d.numVertices ||
        d.numTriangles >= std::numeric_limits<uint32_t>::max())
        return MStlInvalidIndex;
    if (d.surfaceRuns.empty())
        d.surfaceRuns.emplace_back(0, d.currentSurface);
    const uint32_t record[3] = {i0, i1, i2};
    if (!d.triangles.Append(record, TriangleBytes))
        return MStlInvalidIndex;
    return d.numTriangles++;
}

bool MStlOnDisk::AddColor(const MStlColor& color)
{
    Impl& d = *impl_;
    if (d.mode != Mode::Writing)
        return false;
    const uint32_t word = color.GetRGB() | (color.IsDefined() ? 0x80000000u : 0u);
    if (!d.colors.Append(&word, ColorBytes))
        return false;
    ++d.numColors;
    return true;
}

void MStlOnDisk::UpdateParentBoundingBox()
{
    UpdateParentBoundingBoxOf(*this, parent_);
}

size_t MStlOnDisk::GetNumVertices() const
{
    return impl_->numVertices;
}
size_t MStlOnDisk::GetNumTriangles() const
{
    return impl_->numTriangles;
}
size_t MStlOnDisk::GetNumColors() const
{
    return impl_->numColors;
}

bool MStlOnDisk::GetVertex(size_t index, int& x, int& y, int& z, bool /*sequential*/) const
{
    const Impl& d = *impl_;
    if (d.mode == Mode::Closed || index >= d.numVertices)
        return false;
    int32_t record[3];
    if (!d.vertices.Read(static_cast<uint64_t>(index) * VertexBytes, record, VertexBytes))
        return false;
    x = record[0];
    y = record[1];
    z = record[2];
    return true;
}

bool MStlOnDisk::GetTriangle(size_t index, unsigned& i0, unsigned& i1, unsigned& i2) const
{
    const Impl& d = *impl_;
    if (d.mode == Mode::Closed || index >= d.numTriangles)
        return false;
    uint32_t record[3];
    if (!d.triangles.Read(static_cast<uint64_t>(index) * TriangleBytes, record, TriangleBytes))
        return false;
    i0 = record[0];
    i1 = record[1];
    i2 = record[2];
    return true;
}

MStlColor MStlOnDisk::GetColor(size_t index) const
{
    const Impl& d = *impl_;
    uint32_t word = 0;
    if (d.mode == Mode::Closed || index >= d.numColors ||
        !d.colors.Read(static_cast<uint64_t>(index) * ColorBytes, &word, ColorBytes) || !(word & 0x80000000u))
        return MStlColor();
    return MStlColor(word & 0xFFFFFFu);
}

MStlSurface* MStlOnDisk::GetTriangleSurface(size_t index) const
{
    const auto& runs = impl_->surfaceRuns;
    if (index >= impl_->numTriangles || runs.empty())
        return nullptr;
    auto it =
        std::upper_bound(runs.begin(), runs.end(), index,
                         [](size_t i, const std::pair<size_t, MStlSurface*>& r) { return i < r.first; });
    return it == runs.begin() ? nullptr : (it - 1)->second;
}

bool MStlOnDisk::GetExtremes(int (&e)[6]) const
{
    std::copy(std::begin(impl_->extremes), std::end(impl_->extremes), std::begin(e));
    return impl_->numVertices > 0;
}

void MStlOnDisk::ForgetSurface(const MStlSurface* surface, MStlSurface* replacement)
{
    if (impl_->currentSurface == surface)
        StartAddingSurfaceTriangles(replacement);
}

size_t MStlOnDisk::GetSharingIndexBytes() const
{
    return impl_->index.MemoryBytes();
}

void MStlOnDisk::Clear()
{
    const bool share = impl_->share;
    impl_ = std::make_unique<Impl>();
    impl_->share = share;
}
} // namespace KelSDK::Triangles::Data
