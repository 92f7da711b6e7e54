// Mesh building over either form of the facets (MStlFacetLists.h): the work behind
// MStlFileReaderTarget::Convert, also called by the read driver on its lean store.
#pragma once

#include "MStlFacetLists.h"

#include <KelSDK/Math/BoundingBox.h>
#include <KelSDK/Triangles/IO/MStlReadTransformation.h>

#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;
}

namespace KelSDK::Triangles::IO::Detail
{
struct BuildResult
{
    // The storage kind was unknown; nothing was built.
    bool error = false;
    // Some corner left the integer range.
    bool overflow = false;
};

// Fills mesh with the facets of source, as MStlFileReaderTarget::Convert describes. cornerBox, when
// given, is the box of all corners in file coordinates (saves a pass; a box that misses a corner
// only costs time). The coordinates of the source are consumed.
template <class Source>
BuildResult BuildMesh(KelSDK::Triangles::Data::MStlBase& mesh, Source& source,
                      const std::vector<std::string>& solidNames, const MStlReadTransformation& transformation,
                      bool withColors, const KelSDK::Math::boundingbox<double, 3>* cornerBox);

extern template BuildResult BuildMesh<ListFacets>(KelSDK::Triangles::Data::MStlBase&, ListFacets&,
                                                  const std::vector<std::string>&, const MStlReadTransformation&,
                                                  bool, const KelSDK::Math::boundingbox<double, 3>*);
extern template BuildResult
BuildMesh<LeanFacets<float>>(KelSDK::Triangles::Data::MStlBase&, LeanFacets<float>&, const std::vector<std::string>&,
                             const MStlReadTransformation&, bool, const KelSDK::Math::boundingbox<double, 3>*);
extern template BuildResult
BuildMesh<LeanFacets<double>>(KelSDK::Triangles::Data::MStlBase&, LeanFacets<double>&,
                              const std::vector<std::string>&, const MStlReadTransformation&, bool,
                              const KelSDK::Math::boundingbox<double, 3>*);
extern template BuildResult
BuildMesh<LeanFacets<int32_t>>(KelSDK::Triangles::Data::MStlBase&, LeanFacets<int32_t>&,
                               const std::vector<std::string>&, const MStlReadTransformation&, bool,
                               const KelSDK::Math::boundingbox<double, 3>*);
} // namespace KelSDK::Triangles::IO::Detail
