// Bounding box hand-over shared by the Compact and OnDisk stores.
#pragma once

#include <KelSDK/Triangles/Data/MStlBase.h>

namespace KelSDK::Triangles::Data
{
// Gives the parent mesh the box of the store's extremes (x min, x max, y min, y max, z min,
// z max), an empty box when the store holds no vertex; nothing without a parent.
template <typename Store> void UpdateParentBoundingBoxOf(const Store& store, MStlBase* parent)
{
    if (!parent)
        return;
    int e[6];
    KelSDK::Math::boundingbox<int, 3> box;
    if (store.GetExtremes(e))
        box = KelSDK::Math::boundingbox<int, 3>(KelSDK::Math::point<int, 3>(e[0], e[2], e[4]),
                                                KelSDK::Math::point<int, 3>(e[1], e[3], e[5]));
    parent->SetBoundingBox(box);
}
} // namespace KelSDK::Triangles::Data
