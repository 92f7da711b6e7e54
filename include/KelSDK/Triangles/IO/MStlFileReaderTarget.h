// Turns per-solid STL facet lists into the triangles of a mesh, in any of its three storage kinds.
#pragma once

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/IO/Export.h>
#include <KelSDK/Triangles/IO/MStlFileTriangle.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;
}

namespace KelSDK::Triangles::IO
{
class KELSDK_TRIANGLES_IO_EXPORT MStlFileReaderTarget
{
public:
    // Both flags clear.
    MStlFileReaderTarget() = default;

    // Fills the mesh with the facets of all solids. Standard kind: equal corners become shared
    // points, collapsed facets are dropped, one surface per solid name. Compact and on-disk kinds:
    // every corner goes to the store, all solids on surface 0. Sets IsError() for an unknown
    // storage kind and IsOverflow() when a corner left the integer range. Throws
    // std::runtime_error("too many neighbours") when a point would get more than 65535 triangles.
    void Convert(KelSDK::Triangles::Data::MStlBase& mesh,
                 const std::vector<std::vector<MStlFileTriangle>>& solids,
                 const std::vector<std::string>& solidNames, const MStlReadTransformation& transformation,
                 bool withColors);

    // Convert for callers that have measured the box of all corners already (it saves one pass over
    // the facets); a box that misses a corner only costs time, never a wrong result.
    void Convert(KelSDK::Triangles::Data::MStlBase& mesh,
                 const std::vector<std::vector<MStlFileTriangle>>& solids,
                 const std::vector<std::string>& solidNames, const MStlReadTransformation& transformation,
                 bool withColors, const KelSDK::Math::boundingbox<double, 3>& cornerBox);

    // True when the mesh's storage kind was unknown and nothing was built.
    bool IsError() const { return error_; }
    // True when the last Convert met a corner outside the signed 32-bit coordinate range.
    bool IsOverflow() const { return overflow_; }

private:
    void _Convert(KelSDK::Triangles::Data::MStlBase& mesh,
                  const std::vector<std::vector<MStlFileTriangle>>& solids,
                  const std::vector<std::string>& solidNames, const MStlReadTransformation& transformation,
                  bool withColors, const KelSDK::Math::boundingbox<double, 3>* cornerBox);
    void _ConvertStandard(KelSDK::Triangles::Data::MStlBase& mesh,
                          const std::vector<std::vector<MStlFileTriangle>>& solids,
                          const std::vector<std::string>& solidNames,
                          const MStlReadTransformation& transformation, bool withColors,
                          const KelSDK::Math::boundingbox<double, 3>* cornerBox);
    void _ConvertCompact(KelSDK::Triangles::Data::MStlBase& mesh,
                         const std::vector<std::vector<MStlFileTriangle>>& solids,
                         const MStlReadTransformation& transformation, bool withColors);
    void _ConvertOnDisk(KelSDK::Triangles::Data::MStlBase& mesh,
                        const std::vector<std::vector<MStlFileTriangle>>& solids,
                        const MStlReadTransformation& transformation, bool withColors);

    bool error_ = false;
    bool overflow_ = false;
};
} // namespace KelSDK::Triangles::IO
