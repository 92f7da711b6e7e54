#include "MStlCornerMerge.h"
#include "MStlMeshBuilding.h"

#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/Triangles/Data.h>
#include <KelSDK/Triangles/IO/MStlFileReaderTarget.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace KelSDK::Triangles::IO
{
using namespace KelSDK::Triangles::Data;

namespace Detail
{
namespace
{
// A point may be a corner of at most this many triangles of a Standard mesh.
constexpr uint64_t MaxTrianglesPerPoint = 65535;

// Drops the facets with two corners on the same point from the merged triangle list, in place, and
// counts the triangles kept per solid. Dropped facets are marked in degenerate when it is given.
// Uses of each point are counted against the limit only when some position holds more corners than
// the limit: a point cannot serve more triangles than it has corners, so below that no count could
// exceed it.
template <class Source>
std::vector<size_t> KeepProperTriangles(const Source& source, CornerMerge& merge, std::vector<uint32_t>* degenerate)
{
    const bool countUses = merge.largestRun > MaxTrianglesPerPoint;
    std::vector<uint32_t> uses(countUses ? merge.points.Size() : 0, 0);
    std::vector<size_t> kept(source.SolidCount(), 0);
    auto& triangles = merge.triangles;
    size_t f = 0, out = 0;
    for (size_t s = 0; s < source.SolidCount(); ++s)
    {
        const size_t end = f + static_cast<size_t>(source.SolidSize(s));
        const size_t first = out;
        for (; f < end; ++f)
        {
            const std::array<uint32_t, 3> t = triangles[f];
            if (t[0] == t[1] || t[0] == t[2] || t[1] == t[2])
            {
                if (degenerate != nullptr)
                    (*degenerate)[f >> 5] |= uint32_t(1) << (f & 31);
                continue;
            }
            if (countUses && (++uses[t[0]] > MaxTrianglesPerPoint || ++uses[t[1]] > MaxTrianglesPerPoint ||
                              ++uses[t[2]] > MaxTrianglesPerPoint))
                throw std::runtime_error("too many neighbours");
            triangles[out++] = t;
        }
        kept[s] = out - first;
    }
    merge.triangles.Resize(out);
    return kept;
}

template <class Source>
BuildResult BuildStandard(MStlBase& mesh, Source& source, const std::vector<std::string>& solidNames,
                          const MStlReadTransformation& transformation, bool withColors,
                          const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    BuildResult result;
    const uint64_t facetCount = source.FacetCount();
    if (facetCount == 0)
        return result;

    std::vector<uint32_t> degenerate;
    if (withColors)
        degenerate.assign(static_cast<size_t>((facetCount + 31) / 32), 0);
    CornerMerge merge;
    MergeCorners(source, facetCount, cornerBox ? *cornerBox : source.CornerBox(), GridMapper(transformation),
                 merge);
    result.overflow = merge.overflow;
    const std::vector<size_t> kept = KeepProperTriangles(source, merge, withColors ? &degenerate : nullptr);

    // One surface per solid: the main surface for the first, a new one for each further name.
    std::vector<MStlSurface*> surfaces;
    surfaces.reserve(solidNames.size());
    for (size_t s = 0; s < solidNames.size(); ++s)
    {
        MStlSurface* surface = s == 0 ? mesh.GetMainSurface() : mesh.AddSurface(nullptr);
        surface->SetName(KelSDK::Common::StringConversion::LocaleToNative(solidNames[s].c_str()));
        surfaces.push_back(surface);
    }

    // Create makes every triangle without a colour of its own, which is what a read without colours
    // asks for. With colours, the new triangles follow the ones the mesh had, in facet order; each
    // facet that was kept gives its colour to the next of them.
    // Of the blocks the merge has freed, the mesh takes as many as its points and triangles fill
    // beyond the blocks of its input, which it releases while it goes.
    const size_t meshBytes = merge.points.Size() * sizeof(MStlPoint) + merge.triangles.Size() * sizeof(MStlTriangle);
    const size_t inputBytes = merge.points.Size() * sizeof(merge.points[0]) + merge.triangles.Size() * sizeof(merge.triangles[0]);
    MStlBlockReuse::KeepAtMost(meshBytes > inputBytes ? meshBytes - inputBytes : 0);
    const size_t before = mesh.NumberOfTriangles();
    mesh.Create(std::move(merge.points), std::move(merge.triangles), kept, &surfaces, nullptr, nullptr);
    if (!withColors)
        return result;
    MStlIteratorStlTriangle triangle = mesh.BeginTriangle();
    const MStlIteratorStlTriangle end = mesh.EndTriangle();
    for (size_t i = 0; i < before && triangle != end; ++i)
        ++triangle;
    uint64_t f = 0;
    source.ForEachAttribute(
        [&](uint16_t attribute)
        {
            const bool dropped = (degenerate[static_cast<size_t>(f >> 5)] >> (f & 31)) & 1u;
            ++f;
            if (dropped || triangle == end)
                return;
            triangle->SetColor(MStlColor::ConvertFrom16BitValue(attribute));
            ++triangle;
        });
    return result;
}

// The surface that a Compact or OnDisk store fills: the mesh's first one, made when there is none.
MStlSurface* FirstSurface(MStlBase& mesh)
{
    MStlSurfaceList& surfaces = mesh.GetSurfaceList();
    if (surfaces.GetNumSurfaces(false) == 0)
        surfaces.AddNewSurface(nullptr);
    return surfaces.GetSurface(0);
}

// Feeds the facets to a Compact or OnDisk store in file order: each corner mapped onto the grid and
// handed to addVertex(g), which returns its vertex index, then addFacet(v, attribute) with the three
// indices. Returns true when a corner lay outside the grid.
template <class Source, typename AddVertex, typename AddFacet>
bool FeedStore(const Source& source, const GridMapper& mapper, AddVertex addVertex, AddFacet addFacet)
{
    bool overflow = false;
    source.ForEachFacet(
        [&](const auto* corners, uint16_t attribute)
        {
            unsigned v[3];
            for (int k = 0; k < 3; ++k)
            {
                int32_t g[3];
                if (!mapper.Map(corners + 3 * k, g))
                    overflow = true;
                v[k] = addVertex(g);
            }
            addFacet(v, attribute);
        });
    return overflow || source.AnyOutside();
}

// What a store that merges equal positions ends up with when it is given every corner in file
// order, found in bulk: the merge numbers the distinct positions in (z, x, y) order; renumbered in
// the order of their first corners they are the store's vertices (which addVertices(positions,
// count) appends at once, returning false on failure), and every facet becomes
// addFacet(v, attribute) with its corners' new numbers. Returns true when a corner lay outside the
// grid.
template <class Source, typename AddVertices, typename AddFacet>
bool FeedStoreMerged(Source& source, const KelSDK::Math::boundingbox<double, 3>& box, const GridMapper& mapper,
                     AddVertices addVertices, AddFacet addFacet)
{
    const uint64_t facetCount = source.FacetCount();
    CornerMerge merge;
    MergeCorners(source, facetCount, box, mapper, merge);
    constexpr uint32_t unset = 0xFFFFFFFFu;
    std::vector<uint32_t> vertexOf(merge.points.Size(), unset);
    std::vector<std::array<int, 3>> vertices;
    vertices.reserve(merge.points.Size());
    for (size_t f = 0; f < merge.triangles.Size(); ++f)
        for (uint32_t& corner : merge.triangles[f])
        {
            uint32_t& vertex = vertexOf[corner];
            if (vertex == unset)
            {
                vertex = static_cast<uint32_t>(vertices.size());
                vertices.push_back(merge.points[corner]);
            }
            corner = vertex;
        }
    merge.points.Clear();
    vertexOf = std::vector<uint32_t>();
    if (!addVertices(vertices.data(), vertices.size()))
        return merge.overflow;
    vertices = std::vector<std::array<int, 3>>();
    size_t f = 0;
    source.ForEachAttribute(
        [&](uint16_t attribute)
        {
            const std::array<uint32_t, 3>& t = merge.triangles[f++];
            const unsigned v[3] = {t[0], t[1], t[2]};
            addFacet(v, attribute);
        });
    return merge.overflow;
}

template <class Source>
BuildResult BuildCompact(MStlBase& mesh, Source& source, const MStlReadTransformation& transformation,
                         bool withColors, const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    BuildResult result;
    MStlCompactHybrid* store = mesh.GetStlHybrid().GetStlCompact();
    if (store == nullptr)
    {
        result.error = true;
        return result;
    }
    store->EnableVertexSharing(false);
    store->BeginAdding();
    store->SetCurrentSurface(FirstSurface(mesh));

    MStlTriangleColorMask* mask = nullptr;
    if (withColors)
    {
        MStlColorMasks& masks = mesh.GetColorMasks();
        if (masks.GetMainTriangleColorMask() == nullptr)
            masks.CreateMainTriangleColorMask();
        mask = masks.GetMainTriangleColorMask();
    }

    const GridMapper mapper(transformation);
    const auto addFacet = [store, mask](const unsigned(&v)[3], uint16_t attribute)
    {
        const size_t triangle = store->AddTriangle(v[0], v[1], v[2]);
        if (mask != nullptr && triangle != MStlInvalidIndex)
            mask->SetInfo(triangle, MStlColor::ConvertFrom16BitValue(attribute));
    };
    // Every corner goes to AddVertexIE, which merges equal positions: into an empty store that is
    // the bulk merge. A store that holds vertices already may hold some of the positions.
    if (store->GetNumVertices() == 0)
    {
        store->Reserve(0, store->GetNumTriangles() + static_cast<size_t>(source.FacetCount()));
        result.overflow = FeedStoreMerged(
            source, cornerBox ? *cornerBox : source.CornerBox(), mapper,
            [store](const std::array<int, 3>* positions, size_t count) { return store->AddNewVertices(positions, count); },
            addFacet);
    }
    else
    {
        result.overflow = FeedStore(
            source, mapper, [store](const int32_t(&g)[3]) { return store->AddVertexIE(g[0], g[1], g[2]); }, addFacet);
    }
    store->UpdateParentBoundingBox();
    return result;
}

template <class Source>
BuildResult BuildOnDisk(MStlBase& mesh, Source& source, const MStlReadTransformation& transformation,
                        bool withColors, const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    BuildResult result;
    MStlOnDisk* store = mesh.GetStlHybrid().GetStlOnDisk();
    if (store == nullptr)
    {
        result.error = true;
        return result;
    }
    store->OpenWrite(false);
    store->StartAddingVertices();
    store->StartAddingSurfaceTriangles(FirstSurface(mesh));
    if (withColors)
        store->StartAddingTriangleColors();

    const GridMapper mapper(transformation);
    const auto addFacet = [store, withColors](const unsigned(&v)[3], uint16_t attribute)
    {
        store->AddSurfaceTriangle(v[0], v[1], v[2]);
        if (withColors)
            store->AddColor(MStlColor::ConvertFrom16BitValue(attribute));
    };
    // OpenWrite(false) emptied the store: with sharing on, AddVertex per corner is the bulk merge.
    if (store->IsVertexSharingEnabled())
        result.overflow = FeedStoreMerged(
            source, cornerBox ? *cornerBox : source.CornerBox(), mapper,
            [store](const std::array<int, 3>* positions, size_t count) { return store->AddNewVertices(positions, count); },
            addFacet);
    else
        result.overflow = FeedStore(
            source, mapper, [store](const int32_t(&g)[3]) { return store->AddVertex(g[0], g[1], g[2]); }, addFacet);
    store->UpdateParentBoundingBox();
    store->Close();
    return result;
}
} // namespace

template <class Source>
BuildResult BuildMesh(MStlBase& mesh, Source& source, const std::vector<std::string>& solidNames,
                      const MStlReadTransformation& transformation, bool withColors,
                      const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    switch (static_cast<int>(mesh.GetStlHybrid().GetState()))
    {
    case 0:
        return BuildStandard(mesh, source, solidNames, transformation, withColors, cornerBox);
    case 1:
        return BuildCompact(mesh, source, transformation, withColors, cornerBox);
    case 2:
        return BuildOnDisk(mesh, source, transformation, withColors, cornerBox);
    default:
        BuildResult unknown;
        unknown.error = true;
        return unknown;
    }
}

template BuildResult BuildMesh<ListFacets>(MStlBase&, ListFacets&, const std::vector<std::string>&,
                                           const MStlReadTransformation&, bool,
                                           const KelSDK::Math::boundingbox<double, 3>*);
template BuildResult BuildMesh<LeanFacets<float>>(MStlBase&, LeanFacets<float>&, const std::vector<std::string>&,
                                                  const MStlReadTransformation&, bool,
                                                  const KelSDK::Math::boundingbox<double, 3>*);
template BuildResult BuildMesh<LeanFacets<double>>(MStlBase&, LeanFacets<double>&, const std::vector<std::string>&,
                                                   const MStlReadTransformation&, bool,
                                                   const KelSDK::Math::boundingbox<double, 3>*);
template BuildResult BuildMesh<LeanFacets<int32_t>>(MStlBase&, LeanFacets<int32_t>&, const std::vector<std::string>&,
                                                    const MStlReadTransformation&, bool,
                                                    const KelSDK::Math::boundingbox<double, 3>*);
} // namespace Detail

void MStlFileReaderTarget::Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                   const std::vector<std::string>& solidNames,
                                   const MStlReadTransformation& transformation, bool withColors)
{
    _Convert(mesh, solids, solidNames, transformation, withColors, nullptr);
}

void MStlFileReaderTarget::Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                   const std::vector<std::string>& solidNames,
                                   const MStlReadTransformation& transformation, bool withColors,
                                   const KelSDK::Math::boundingbox<double, 3>& cornerBox)
{
    _Convert(mesh, solids, solidNames, transformation, withColors, &cornerBox);
}

void MStlFileReaderTarget::_Convert(MStlBase& mesh, const std::vector<std::vector<MStlFileTriangle>>& solids,
                                    const std::vector<std::string>& solidNames,
                                    const MStlReadTransformation& transformation, bool withColors,
                                    const KelSDK::Math::boundingbox<double, 3>* cornerBox)
{
    // Every conversion of a known kind starts with a clear overflow flag.
    if (static_cast<unsigned>(mesh.GetStlHybrid().GetState()) <= 2u)
        overflow_ = false;
    Detail::ListFacets source(solids);
    const Detail::BuildResult result =
        Detail::BuildMesh(mesh, source, solidNames, transformation, withColors, cornerBox);
    if (result.error)
        error_ = true;
    else
        overflow_ = result.overflow;
}
} // namespace KelSDK::Triangles::IO
