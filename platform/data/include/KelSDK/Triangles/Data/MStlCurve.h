// Polyline features of a mesh: curve sets (the curves feature) and surface borders made of
// contours that are split into sub-contours.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlFeature.h>

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

namespace KelSDK::Triangles::Data
{
class MStlPoint;

// One polyline on the integer grid; closed means the last vertex connects back to the first.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlCurve
{
    std::vector<std::array<int, 3>> vertices;
    bool closed = false;
};

// A named set of polylines.
class KELSDK_TRIANGLES_DATA_EXPORT MStlCurveSet : public MStlFeatureItem
{
public:
    explicit MStlCurveSet(MStlBase* stl) : MStlFeatureItem(stl) {}
    ~MStlCurveSet() override;

    std::vector<MStlCurve>& Curves() { return curves_; }
    const std::vector<MStlCurve>& Curves() const { return curves_; }
    size_t GetNumCurves() const { return curves_.size(); }
    // Appends a curve and returns it.
    MStlCurve& AddCurve(MStlCurve curve);

private:
    std::vector<MStlCurve> curves_;
};

// The curves feature of a mesh: its curve sets in creation order.
class KELSDK_TRIANGLES_DATA_EXPORT MStlCurveFeature : public MStlFeatureItem
{
public:
    explicit MStlCurveFeature(MStlBase* stl) : MStlFeatureItem(stl) {}
    ~MStlCurveFeature() override;

    size_t GetNumCurveSets() const { return sets_.size(); }
    // The curve set at a position, or null when out of range.
    MStlCurveSet* GetCurveSet(size_t index) const;
    // Appends a new empty curve set.
    MStlCurveSet* AddCurveSet();
    // Removes and destroys a curve set of this feature; false for a foreign one.
    bool RemoveCurveSet(MStlCurveSet* set);
    // Removes every curve set.
    void Clear() { sets_.clear(); }

private:
    std::vector<std::unique_ptr<MStlCurveSet>> sets_;
};

// Part of a border contour between the surface and one neighbour (an item on the other side,
// such as the adjacent surface; null for an open edge). Its points are mesh points.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlSubContour
{
    std::vector<MStlPoint*> points;
    MStlFeatureItem* neighbour = nullptr;
};

// One closed boundary loop of a surface, split into sub-contours.
struct KELSDK_TRIANGLES_DATA_EXPORT MStlBorderContour
{
    std::vector<MStlSubContour> subContours;
};

// The border of one surface: its contours.
class KELSDK_TRIANGLES_DATA_EXPORT MStlSurfaceBorder : public MStlFeatureItem
{
public:
    MStlSurfaceBorder(MStlBase* stl, MStlSurface* surface) : MStlFeatureItem(stl), surface_(surface) {}
    ~MStlSurfaceBorder() override;

    MStlSurface* GetSurface() const { return surface_; }
    void SetSurface(MStlSurface* surface) { surface_ = surface; }
    std::vector<MStlBorderContour>& Contours() { return contours_; }
    const std::vector<MStlBorderContour>& Contours() const { return contours_; }

private:
    MStlSurface* surface_;
    std::vector<MStlBorderContour> contours_;
};

// The surface borders of a mesh in creation order.
class KELSDK_TRIANGLES_DATA_EXPORT MStlSurfaceBorderList
{
public:
    explicit MStlSurfaceBorderList(MStlBase* stl) : stl_(stl) {}
    MStlSurfaceBorderList(const MStlSurfaceBorderList&) = delete;
    MStlSurfaceBorderList& operator=(const MStlSurfaceBorderList&) = delete;

    size_t GetNumBorders() const { return borders_.size(); }
    // The border at a position, or null when out of range.
    MStlSurfaceBorder* GetBorder(size_t index) const;
    // Appends a new empty border of the given surface (null allowed).
    MStlSurfaceBorder* AddBorder(MStlSurface* surface);
    // Removes and destroys a border of this list; false for a foreign one.
    bool RemoveBorder(MStlSurfaceBorder* border);
    // Drops the references to a surface or point that is going away (borders of that surface,
    // sub-contour neighbours and points).
    void Forget(const MStlFeatureItem* item);
    void Clear() { borders_.clear(); }

private:
    MStlBase* stl_;
    std::vector<std::unique_ptr<MStlSurfaceBorder>> borders_;
};
} // namespace KelSDK::Triangles::Data
