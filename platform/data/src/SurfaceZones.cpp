#include <KelSDK/Triangles/Data/MStlBase.h>
#include <KelSDK/Triangles/Data/SurfaceZones.h>

#include <algorithm>

namespace KelSDK::Triangles::Data
{
namespace
{
int LowestSetBit(uint64_t word)
{
#if defined(__GNUC__) || defined(__clang__)
    return __builtin_ctzll(word);
#else
    int bit = 0;
    while (((word >> bit) & 1u) == 0)
        ++bit;
    return bit;
#endif
}
} // namespace

bool SurfaceZone::Add(std::vector<uint32_t>& members, std::vector<uint64_t>& bits, size_t index)
{
    if (index == MStlInvalidIndex || index > UINT32_MAX)
        return false;
    if (Test(bits, index))
        return true;
    if (index / 64 >= bits.size())
        bits.resize(index / 64 + 1, 0u);
    bits[index / 64] |= uint64_t(1) << (index % 64);
    members.push_back(static_cast<uint32_t>(index));
    return true;
}

bool SurfaceZone::Remove(std::vector<uint32_t>& members, std::vector<uint64_t>& bits, size_t index)
{
    if (!Test(bits, index))
        return false;
    bits[index / 64] &= ~(uint64_t(1) << (index % 64));
    members.erase(std::find(members.begin(), members.end(), static_cast<uint32_t>(index)));
    return true;
}

std::vector<uint32_t> SurfaceZone::Ascending(const std::vector<uint64_t>& bits, size_t count)
{
    std::vector<uint32_t> out;
    const size_t words = std::min(bits.size(), (count + 63) / 64);
    for (size_t w = 0; w < words; ++w)
    {
        for (uint64_t word = bits[w]; word != 0; word &= word - 1)
        {
            const size_t index = w * 64 + static_cast<size_t>(LowestSetBit(word));
            if (index < count)
                out.push_back(static_cast<uint32_t>(index));
        }
    }
    return out;
}

bool SurfaceZone::AddTriangle(const MStlHybridEntity& triangle)
{
    return Add(triangles_, triangleBits_, indexed_.GetIndexOfTriangle(triangle));
}

bool SurfaceZone::AddEdge(const MStlHybridEntity& edge)
{
    return Add(edges_, edgeBits_, indexed_.GetIndexOfEdge(edge));
}

bool SurfaceZone::RemoveTriangle(const MStlHybridEntity& triangle)
{
    return Remove(triangles_, triangleBits_, indexed_.GetIndexOfTriangle(triangle));
}

bool SurfaceZone::RemoveEdge(const MStlHybridEntity& edge)
{
    return Remove(edges_, edgeBits_, indexed_.GetIndexOfEdge(edge));
}

bool SurfaceZone::HasTriangle(const MStlHybridEntity& triangle) const
{
    return Test(triangleBits_, indexed_.GetIndexOfTriangle(triangle));
}

bool SurfaceZone::HasEdge(const MStlHybridEntity& edge) const
{
    return Test(edgeBits_, indexed_.GetIndexOfEdge(edge));
}

void SurfaceZone::Clear()
{
    triangles_ = {};
    edges_ = {};
    triangleBits_ = {};
    edgeBits_ = {};
}

void SurfaceZone::_ValidateHybridTriangles()
{
    const size_t triangles = indexed_.GetNumberOfTriangles(), edges = indexed_.GetNumberOfEdges();
    const auto drop = [](std::vector<uint32_t>& members, std::vector<uint64_t>& bits, size_t count)
    {
        for (uint32_t index : members)
            if (index >= count)
                bits[index / 64] &= ~(uint64_t(1) << (index % 64));
        members.erase(std::remove_if(members.begin(), members.end(),
                                     [count](uint32_t index) { return index >= count; }),
                      members.end());
    };
    drop(triangles_, triangleBits_, triangles);
    drop(edges_, edgeBits_, edges);
}

SurfaceZones::SurfaceZones(const MStlBase& stl) : stl_(stl) {}
SurfaceZones::~SurfaceZones() = default;

SurfaceZone* SurfaceZones::InitNoSupportZone()
{
    noSupport_ = std::make_unique<SurfaceZone>(stl_);
    return noSupport_.get();
}

SurfaceZone* SurfaceZones::GetNoSupportZone(bool create)
{
    if (!noSupport_ && create)
        noSupport_ = std::make_unique<SurfaceZone>(stl_);
    return noSupport_.get();
}

void SurfaceZones::_ClearZones()
{
    if (noSupport_)
        noSupport_->Clear();
}

SurfaceZonesStlDependency::~SurfaceZonesStlDependency() = default;

SurfaceZones* SurfaceZonesStlDependency::CreateInstance(MStlBase* stl)
{
    return GetStlDependency<SurfaceZonesStlDependency>(stl, true);
}

SurfaceZones* SurfaceZonesStlDependency::GetInstance(const MStlBase* stl)
{
    return GetStlDependency<SurfaceZonesStlDependency>(stl, false);
}

void SurfaceZonesStlDependency::DestroyInstance(MStlBase* stl)
{
    DestroyStlDependency<SurfaceZonesStlDependency>(stl);
}

void SurfaceZonesStlDependency::OnClear(MStlBase&)
{
    _ClearZones();
}
} // namespace KelSDK::Triangles::Data
