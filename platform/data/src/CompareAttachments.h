// The attachment part of CompareMeshes.
#pragma once

#include <string>

namespace KelSDK::Triangles::Data
{
class MStlBase;

// Describes the first difference in textures, element information, surface zones, UV maps and
// identity cards ("" when none).
std::string CompareAttachments(const MStlBase& a, const MStlBase& b);
} // namespace KelSDK::Triangles::Data
