// kelmesh: what reading a file told beyond the mesh, and what a conversion leaves behind.
//
// A conversion keeps what its input has unless the command line says otherwise. What the output
// format cannot hold is named, one item per warning line: each check in LossChecks() looks at the
// mesh, at what reading told, and at the output, and adds what will not arrive. A new kind of data
// (or a new output format) adds its own check to that list. Header-only so that the rules can be
// tested without running the program.
#pragma once

#include "Counted.h"

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/Data.h>

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace Kelmesh
{
// Triangles per surface and triangles with a colour of their own, for any storage kind.
struct MeshCounts
{
    std::map<const KelSDK::Triangles::Data::MStlSurface*, size_t> perSurface;
    size_t coloured = 0;
};

inline MeshCounts CountMesh(const KelSDK::Triangles::Data::MStlBase& mesh)
{
    using namespace KelSDK::Triangles::Data;
    MeshCounts counts;
    const MStlHybrid& hybrid = mesh.GetStlHybrid();
    const MStlSurfaceList& surfaces = mesh.GetSurfaceList();
    if (hybrid.GetState() == eStlStandard)
    {
        for (const MStlTriangle& triangle : mesh.Triangles())
            counts.coloured += triangle.GetColor().IsDefined() ? 1 : 0;
        for (size_t s = 0; s < surfaces.GetNumSurfaces(false); ++s)
            counts.perSurface[surfaces.GetSurface(s)] = surfaces.GetSurface(s)->GetNumberOfTriangles();
        return counts;
    }
    // The Compact and OnDisk stores are read by index; a triangle without a surface is in the
    // main surface (the first).
    const size_t triangles = hybrid.GetNumTriangles();
    const MStlSurface* main = surfaces.GetNumSurfaces(false) > 0 ? surfaces.GetSurface(0) : nullptr;
    if (!hybrid.OpenRead())
        return counts;
    for (size_t t = 0; t < triangles; ++t)
    {
        const MStlSurface* surface = hybrid.GetTriangleSurface(t);
        ++counts.perSurface[surface != nullptr ? surface : main];
    }
    if (hybrid.StartGettingTriangleColors())
        for (size_t t = 0; t < triangles; ++t)
            counts.coloured += hybrid.GetColor(t).IsDefined() ? 1 : 0;
    hybrid.Close();
    return counts;
}

// What reading a file told beyond the mesh itself.
struct ReadSummary
{
    std::string format;                       // "binary STL", "ASCII STL", "native"
    bool ascii = false;                       // text flavour of the format
    bool stl = false;                         // facetsInFile counts STL facets
    uint64_t facetsInFile = 0;                // before collapsed facets were dropped
    KelSDK::Math::boundingbox<double, 3> box; // millimetres
    bool headerColour = false;                // a colour for the whole mesh (STL header, native material)
    MeshCounts counts;                        // of the mesh as read
    std::vector<std::string> details;         // format-specific lines for "info"
    std::vector<std::string> unreadSections;  // plug-in sections no registered plug-in read
};

// The input has colours to keep: a colour for the whole mesh or facets with their own.
inline bool HasColours(const ReadSummary& input)
{
    return input.headerColour || input.counts.coloured > 0;
}

// Where a conversion writes to, as far as the checks need to know.
struct Output
{
    bool stl = false;             // else the native format, which holds the whole mesh model
    bool ascii = false;           // ASCII STL
    bool colours = false;         // colours written (binary STL)
    bool coloursRefused = false;  // colours left out on request (--no-colors): not a loss to report
    bool solidPerSurface = false; // ASCII STL with one solid per surface
    double scale = 1.0;           // STL coordinates are multiplied by it
};

// Adds to lost what output will not hold of mesh (and of what reading told about it).
using LossCheck = void (*)(const KelSDK::Triangles::Data::MStlBase& mesh, const ReadSummary& input,
                           const Output& output, std::vector<std::string>& lost);

namespace Checks
{
// Sections of plug-ins this program does not have: their bytes are not kept by any output.
inline void UnreadPluginSections(const KelSDK::Triangles::Data::MStlBase&, const ReadSummary& input,
                                 const Output&, std::vector<std::string>& lost)
{
    for (const std::string& name : input.unreadSections)
        lost.push_back("plug-in section \"" + name + "\" (no plug-in registered for it)");
}

// Colours: ASCII STL has none.
inline void Colours(const KelSDK::Triangles::Data::MStlBase&, const ReadSummary& input, const Output& output,
                    std::vector<std::string>& lost)
{
    if (!output.stl || output.colours || output.coloursRefused || !HasColours(input))
        return;
    std::string what;
    if (input.counts.coloured > 0)
        what = Counted(input.counts.coloured, "facet colour", "facet colours");
    if (input.headerColour)
        what += (what.empty() ? "" : " and ") + std::string("the mesh colour and material");
    lost.push_back(what + " (ASCII STL has no colours)");
}

// Solids: binary STL holds one, ASCII STL one unless written with one solid per surface.
inline void Solids(const KelSDK::Triangles::Data::MStlBase&, const ReadSummary& input, const Output& output,
                   std::vector<std::string>& lost)
{
    if (!output.stl || (output.ascii && output.solidPerSurface))
        return;
    size_t solids = 0;
    for (const auto& [surface, triangles] : input.counts.perSurface)
        solids += triangles > 0 ? 1 : 0;
    if (solids > 1)
        lost.push_back("the division into " + Counted(solids, "solid", "solids") + " (" +
                       (output.ascii ? "--solid-per-surface keeps it" : "binary STL holds one solid") + ")");
}

// The support and faces flags travel in the binary header only.
inline void MeshFlags(const KelSDK::Triangles::Data::MStlBase& mesh, const ReadSummary&, const Output& output,
                      std::vector<std::string>& lost)
{
    const auto& properties = mesh.GetProperties();
    if (output.stl && output.ascii && (properties.GetIsSupport() || !properties.GetIsSupposedSolid()))
        lost.push_back(std::string("the mesh flags (") + (properties.GetIsSupport() ? "support, " : "") +
                       (properties.GetIsSupposedSolid() ? "solid" : "faces") + "; ASCII STL has no header)");
}

// What only the native format holds of the mesh model.
inline void NativeOnly(const KelSDK::Triangles::Data::MStlBase& mesh, const ReadSummary&,
                       const Output& output, std::vector<std::string>& lost)
{
    if (!output.stl)
        return;
    const std::tuple<size_t, const char*, const char*> parts[] = {
        {mesh.GetCurves().GetNumCurveSets(), "curve set", "curve sets"},
        {mesh.GetSurfaceBorders().GetNumBorders(), "surface border", "surface borders"},
        {mesh.NumberOfGraphEdges(), "graph edge", "graph edges"},
        {mesh.GetRegisteredPoints().GetNumPoints(), "registered point", "registered points"},
        {mesh.GetTextures().GetNumTextures(), "texture", "textures"},
        {mesh.GetHistory().GetNumEntries(), "history entry", "history entries"},
    };
    for (const auto& [count, one, many] : parts)
        if (count > 0)
            lost.push_back(Counted(count, one, many) + " (STL holds triangles only)");
    if (mesh.GetFaceGroupInfo() != nullptr)
        lost.push_back("the face groups (STL holds triangles only)");
}
} // namespace Checks

// Every check, in the order its warnings are printed.
inline std::vector<LossCheck>& LossChecks()
{
    static std::vector<LossCheck> checks = {&Checks::UnreadPluginSections, &Checks::Colours, &Checks::Solids,
                                            &Checks::MeshFlags, &Checks::NativeOnly};
    return checks;
}

// What the output will not hold, one item per warning.
inline std::vector<std::string> WhatIsLost(const KelSDK::Triangles::Data::MStlBase& mesh,
                                           const ReadSummary& input, const Output& output)
{
    std::vector<std::string> lost;
    for (LossCheck check : LossChecks())
        check(mesh, input, output, lost);
    return lost;
}
} // namespace Kelmesh
