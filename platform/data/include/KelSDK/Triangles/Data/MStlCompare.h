// Element-by-element comparison of two meshes, for tests and diagnostics.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <string>

namespace KelSDK::Triangles::Data
{
class MStlBase;

// What CompareMeshes looks at beyond the geometry (vertex and triangle lists through MStlHybrid,
// in index order).
struct KELSDK_TRIANGLES_DATA_EXPORT MStlCompareOptions
{
    bool storageKind = false; // the kinds must be equal
    bool colors = true;       // triangle colours
    bool surfaces = true;     // surface per triangle by position in the surface list, surface names
    bool faceGroups = true;   // presence and identifiers
    bool attributes = true;   // name, mesh colour, material, support and supposed-solid flags
    bool userDefined = true;  // user-defined marks of Standard-kind points (both Standard)
    // Textures and their bitmaps (which of them share one), element information, surface zones,
    // UV maps and identity cards (when both meshes have one).
    bool attachments = true;
};

// Describes the first difference between two meshes ("" when none), e.g.
// "triangle 12: vertex indices (3, 4, 5) != (3, 5, 4)". Opens the stores for reading.
KELSDK_TRIANGLES_DATA_EXPORT std::string
CompareMeshes(const MStlBase& a, const MStlBase& b, const MStlCompareOptions& options = MStlCompareOptions());
} // namespace KelSDK::Triangles::Data
