#include "ParentBoundingBox.h"
#include "VertexHashIndex.h"

#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/MStlHybrid.h>

#include <algorithm>
#include <limits>

namespace KelSDK::Triangles::Data
{
struct MStlCompact::Index : VertexHashIndex
{
};

MStlCompact::MStlCompact() : index_(std::make_unique<Index>()) {}
MStlCompact::~MStlCompact() = default;
MStlCompactHybrid::~MStlCompactHybrid() = default;

void MStlCompact::BeginAdding()
{
    if (surfaces_.empty())
        surfaces_.push_back(nullptr);
}

void MStlCompact::SetCurrentSurface(MStlSurface* surface)
{
    auto it = std::find(surfaces_.begin(), surfaces_.end(), surface);
    if (it == surfaces_.end())
    {
        surfaces_.push_back(surface);
        it = surfaces_.end() - 1;
    }
    currentSurface_ = static_cast<uint32_t>(it - surfaces_.begin());
}

size_t MStlCompact::AddTriangle(unsigned i0, unsigned i1, unsigned i2)
{
    const size_t n = vertices_.size();
    if (i0 >= n || i1 >= n || i2 >= n || triangles_.size() >= std::numeric_limits<uint32_t>::max())
        return MStlInvalidIndex;
    if (surfaces_.empty())
        surfaces_.push_back(nullptr);
    triangles_.push_back({i0, i1, i2});
    triangleSurfaces_.push_back(currentSurface_);
    return triangles_.size() - 1;
}

unsigned MStlCompact::AddVertex(int x, int y, int z)
{
    if (shareVertices_)
        return AddVertexIE(x, y, z);
    if (vertices_.size() >= MStlInvalidVertex)
        return MStlInvalidVertex;
    const unsigned index = static_cast<unsigned>(vertices_.size());
    vertices_.push_back({x, y, z});
    index_->FindOrInsert(x, y, z, index);
    return index;
}

unsigned MStlCompact::AddVertexIE(int x, int y, int z)
{
    if (vertices_.size() >= MStlInvalidVertex)
        return index_->Find(x, y, z);
    const unsigned candidate = static_cast<unsigned>(vertices_.size());
    const unsigned index = index_->FindOrInsert(x, y, z, candidate);
    if (index == candidate)
        vertices_.push_back({x, y, z});
    return index;
}

bool MStlCompact::AddNewVertices(const std::array<int, 3>* positions, size_t count)
{
    if (count > MStlInvalidVertex - vertices_.size())
        return false;
    const uint32_t first = static_cast<uint32_t>(vertices_.size());
    vertices_.insert(vertices_.end(), positions, positions + count);
    index_->InsertNew(positions, count, first);
    return true;
}

void MStlCompact::Reserve(size_t vertices, size_t triangles)
{
    vertices_.reserve(vertices);
    triangles_.reserve(triangles);
    triangleSurfaces_.reserve(triangles);
}

MVertex MStlCompact::GetVertex(size_t index) const
{
    if (index >= vertices_.size())
        return MVertex();
    const std::array<int, 3>& v = vertices_[index];
    return MVertex(v[0], v[1], v[2]);
}

bool MStlCompact::GetTriangle(size_t index, unsigned& i0, unsigned& i1, unsigned& i2) const
{
    if (index >= triangles_.size())
        return false;
    i0 = triangles_[index][0];
    i1 = triangles_[index][1];
    i2 = triangles_[index][2];
    return true;
}

MStlSurface* MStlCompact::GetTriangleSurface(size_t index) const
{
    if (index >= triangleSurfaces_.size())
        return nullptr;
    return surfaces_[triangleSurfaces_[index]];
}

size_t MStlCompact::AddEdge(unsigned i0, unsigned i1)
{
    if (i0 >= vertices_.size() || i1 >= vertices_.size())
        return MStlInvalidIndex;
    edges_.push_back({i0, i1});
    return edges_.size() - 1;
}

bool MStlCompact::GetEdge(size_t index, unsigned& i0, unsigned& i1) const
{
    if (index >= edges_.size())
        return false;
    i0 = edges_[index][0];
    i1 = edges_[index][1];
    return true;
}

bool MStlCompact::GetExtremes(int (&e)[6]) const
{
    std::fill(std::begin(e), std::end(e), 0);
    if (vertices_.empty())
        return false;
    e[0] = e[1] = vertices_[0][0];
    e[2] = e[3] = vertices_[0][1];
    e[4] = e[5] = vertices_[0][2];
    for (const std::array<int, 3>& v : vertices_)
    {
        e[0] = std::min(e[0], v[0]);
        e[1] = std::max(e[1], v[0]);
        e[2] = std::min(e[2], v[1]);
        e[3] = std::max(e[3], v[1]);
        e[4] = std::min(e[4], v[2]);
        e[5] = std::max(e[5], v[2]);
    }
    return true;
}

void MStlCompact::ForgetSurface(const MStlSurface* surface, MStlSurface* replacement)
{
    if (currentSurface_ < surfaces_.size() && surfaces_[currentSurface_] == surface)
        SetCurrentSurface(replacement);
}

void MStlCompact::Clear()
{
    vertices_ = {};
    triangles_ = {};
    triangleSurfaces_ = {};
    surfaces_ = {};
    edges_ = {};
    currentSurface_ = 0;
    index_->Clear();
}

void MStlCompactHybrid::UpdateParentBoundingBox()
{
    UpdateParentBoundingBoxOf(*this, parent_);
}
} // namespace KelSDK::Triangles::Data
