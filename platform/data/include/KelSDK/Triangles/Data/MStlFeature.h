// Named mesh features: surfaces (sets of triangles) and the surface list of a mesh.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlFeature;
class MStlTriangle;

// Base of every named object that hangs on a mesh (surfaces, features, curve sets, borders).
class KELSDK_TRIANGLES_DATA_EXPORT MStlFeatureItem
{
public:
    explicit MStlFeatureItem(MStlBase* stl) : stl_(stl) {}
    virtual ~MStlFeatureItem();
    MStlFeatureItem(const MStlFeatureItem&) = delete;
    MStlFeatureItem& operator=(const MStlFeatureItem&) = delete;

    const std::wstring& GetName() const { return name_; }
    void SetName(const std::wstring& name) { name_ = name; }
    // The mesh the item belongs to.
    MStlBase* GetStl() const { return stl_; }

private:
    MStlBase* stl_;
    std::wstring name_;
};

// A surface: a named set of triangles of one mesh. Every triangle of the Standard kind belongs to
// exactly one surface; the Compact and OnDisk kinds record the surface per triangle in the store.
class KELSDK_TRIANGLES_DATA_EXPORT MStlSurface : public MStlFeatureItem
{
public:
    MStlSurface(MStlBase* stl, MStlFeature* feature) : MStlFeatureItem(stl), feature_(feature) {}
    ~MStlSurface() override;

    // The Standard kind's triangles of this surface, in the order they were added.
    const std::vector<MStlTriangle*>& Triangles() const { return triangles_; }
    // Number of Standard-kind triangles of this surface.
    size_t GetNumberOfTriangles() const { return triangles_.size(); }
    // The feature (surface list) that owns the surface.
    MStlFeature* GetFeature() const { return feature_; }

    bool IsVisible() const { return visible_; }
    void SetVisible(bool visible) { visible_ = visible; }

private:
    friend class MStlBase;
    friend class MStlBaseImpl;

    MStlFeature* feature_;
    std::vector<MStlTriangle*> triangles_;
    bool visible_ = true;
};

// A named set of surfaces that owns them.
class KELSDK_TRIANGLES_DATA_EXPORT MStlFeature : public MStlFeatureItem
{
public:
    explicit MStlFeature(MStlBase* stl) : MStlFeatureItem(stl) {}
    ~MStlFeature() override;

    // Number of surfaces; with onlyNonEmpty only those holding at least one triangle.
    size_t GetNumSurfaces(bool onlyNonEmpty) const;
    // The surface at a position, or null when out of range.
    MStlSurface* GetSurface(size_t index) const;
    // Position of a surface of this feature, or SIZE_MAX for a foreign one.
    size_t GetIndexOfSurface(const MStlSurface* surface) const;
    // Appends a new empty surface; with a model surface its name and visibility are copied.
    MStlSurface* AddNewSurface(const MStlSurface* model);
    // Removes an empty surface of this feature (never the first one); false when it holds
    // triangles (of any storage kind), is the first surface or is not part of this feature.
    bool RemoveSurface(MStlSurface* surface);

private:
    friend class MStlBase;
    friend class MStlBaseImpl;

    std::vector<std::unique_ptr<MStlSurface>> surfaces_;
};

// The surface list of a mesh. Its first surface is the mesh's main surface, which always exists.
class KELSDK_TRIANGLES_DATA_EXPORT MStlSurfaceList : public MStlFeature
{
public:
    explicit MStlSurfaceList(MStlBase* stl);
    ~MStlSurfaceList() override;
};

// Walks the surfaces of a mesh's surface list: for (it.Begin(); !it.End(); ++it) use *it.
class KELSDK_TRIANGLES_DATA_EXPORT MStlIteratorFeatureSurfaceConst
{
public:
    explicit MStlIteratorFeatureSurfaceConst(const MStlBase& stl);
    // Back to the first surface.
    void Begin() { index_ = 0; }
    // True when past the last surface.
    bool End() const;
    MStlIteratorFeatureSurfaceConst& operator++()
    {
        ++index_;
        return *this;
    }
    const MStlSurface& operator*() const;
    const MStlSurface* operator->() const { return &**this; }

private:
    const MStlFeature* feature_;
    size_t index_ = 0;
};

// Mutable twin of MStlIteratorFeatureSurfaceConst.
class KELSDK_TRIANGLES_DATA_EXPORT MStlIteratorFeatureSurface
{
public:
    explicit MStlIteratorFeatureSurface(MStlBase& stl);
    void Begin() { index_ = 0; }
    bool End() const;
    MStlIteratorFeatureSurface& operator++()
    {
        ++index_;
        return *this;
    }
    MStlSurface& operator*() const;
    MStlSurface* operator->() const { return &**this; }

private:
    MStlFeature* feature_;
    size_t index_ = 0;
};
} // namespace KelSDK::Triangles::Data
