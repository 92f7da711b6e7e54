// Attachments of a mesh (element information, surface zones, UV maps, identity card, ...): each
// one an MStlDependency that the mesh owns under a key and informs when its elements change.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstddef>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlTexture;

// Base of every attachment. The mesh owns its dependencies, destroys them with itself and calls
// the hooks below after the matching change.
class KELSDK_TRIANGLES_DATA_EXPORT MStlDependency
{
public:
    MStlDependency() = default;
    virtual ~MStlDependency();
    MStlDependency(const MStlDependency&) = delete;
    MStlDependency& operator=(const MStlDependency&) = delete;

    // After the mesh lost all its elements (ClearStl, a change of storage kind).
    virtual void OnClear(MStlBase& stl);
    // After count triangles were appended, the first at index first.
    virtual void OnTrianglesAdded(MStlBase& stl, size_t first, size_t count);
    // After count points were appended, the first at list position first.
    virtual void OnPointsAdded(MStlBase& stl, size_t first, size_t count);
    // After count graph edges were appended, the first at index first.
    virtual void OnGraphEdgesAdded(MStlBase& stl, size_t first, size_t count);
    // Before a texture of the mesh's texture list is destroyed (removed, or the list cleared).
    virtual void OnTextureRemoved(MStlBase& stl, const MStlTexture* texture);
    // After triangles changed in another way (surfaces moved, order changed).
    virtual void OnTrianglesChanged(MStlBase& stl);
};
} // namespace KelSDK::Triangles::Data
