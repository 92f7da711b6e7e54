// What a caller asks of an STL read, and what the binary header told about the mesh.
#pragma once

#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/Data/MStlMaterial.h>
#include <KelSDK/Triangles/IO/Export.h>

#include <cstdint>

namespace KelSDK::Triangles::IO
{
// Options of an STL read.
struct MStlReadOptions
{
    // 0: no offset; 1: centre the bounding box on referencePoint; 2: suggested transformation.
    int32_t transformationMode = 0;
    // Target centre for mode 1, argument of the suggestion for mode 2.
    KelSDK::Math::point<double, 3> referencePoint;
    // Integer steps per file coordinate unit.
    double scale = 1.0;
};

// Results of an STL read: overflow, and the colour, material and flags of a coloured binary header.
struct MStlReadResults
{
    // Transformed coordinates left the signed 32-bit range.
    bool isOverflow = false;
    // The binary header carried a colour ("COLOR=").
    bool hasColor = false;
    // Header colour and material (default material when the header has none).
    KelSDK::Triangles::Data::MStlMaterial material;
    // ";SOLID" (true, the default) or ";FACES" (false) in the header.
    bool isSupposedSolid = true;
    // ";ISSUP" in the header.
    bool isSupport = false;
};
} // namespace KelSDK::Triangles::IO
