// Triangles of the Standard storage kind.
#pragma once

#include <KelSDK/Math/Point.h>
#include <KelSDK/Triangles/Data/Export.h>
#include <KelSDK/Triangles/Data/MStlColor.h>
#include <KelSDK/Triangles/Data/MStlPoint.h>

#include <cstddef>
#include <cstdint>

namespace KelSDK::Triangles::Data
{
class MStlBase;
class MStlSurface;

// A triangle of three shared points, belonging to one surface, with a colour, a mark byte and a
// visibility. Triangles live in bulk-allocated blocks owned by the mesh: their addresses stay
// valid until the mesh is cleared or destroyed.
class KELSDK_TRIANGLES_DATA_EXPORT MStlTriangle
{
public:
    MStlTriangle() = default;

    // Corner 0, 1 or 2 (any other value gives corner 2).
    MStlPoint* GetPoint(int corner) const { return points_[corner == 0 ? 0 : (corner == 1 ? 1 : 2)]; }
    MStlPoint* GetPoint0() const { return points_[0]; }
    MStlPoint* GetPoint1() const { return points_[1]; }
    MStlPoint* GetPoint2() const { return points_[2]; }
    // True when the triangle uses the given point as one of its corners.
    bool HasPoint(const MStlPoint* point) const
    {
        return points_[0] == point || points_[1] == point || points_[2] == point;
    }

    // Unit normal by the right-hand rule over corners 0, 1, 2; the zero vector for a triangle
    // without area.
    KelSDK::Math::point<double, 3> GetNormal() const;
    // Twice the area, in squared grid steps.
    double GetDoubleArea() const;
    // True when two corners are the same point or lie at the same position.
    bool IsCollapsed() const;

    // The surface holding the triangle (never null for a triangle of a mesh).
    MStlSurface* GetSurface() const { return surface_; }
    // The mesh that owns the triangle.
    MStlBase* GetStl() const;

    const MStlColor& GetColor() const { return color_; }
    void SetColor(const MStlColor& color) { color_ = color; }
    // Makes the colour undefined (the triangle shows the mesh colour).
    void ResetColor() { color_.Reset(); }

    unsigned char GetMark() const { return mark_; }
    void SetMark(unsigned char mark) { mark_ = mark; }

    bool IsVisible() const { return visible_ != 0; }
    void MakeVisible() { visible_ = 1; }
    void MakeInvisible() { visible_ = 0; }

    // Position of the triangle in the mesh's triangle order (0-based).
    size_t GetIndex() const { return index_; }

private:
    friend class MStlBase;
    friend class MStlBaseImpl;

    MStlPoint* points_[3] = {nullptr, nullptr, nullptr};
    MStlSurface* surface_ = nullptr;
    MStlColor color_;
    uint32_t index_ = 0;
    unsigned char mark_ = 0;
    unsigned char visible_ = 1;
};

// A graph edge: a segment between two points of the mesh (wire or support structures).
class KELSDK_TRIANGLES_DATA_EXPORT MStlGraphEdge
{
public:
    MStlGraphEdge() = default;
    MStlGraphEdge(MStlPoint* p0, MStlPoint* p1) : points_{p0, p1} {}

    // End 0 or 1 (any other value gives end 1).
    MStlPoint* GetPoint(int end) const { return points_[end == 0 ? 0 : 1]; }
    // Position of the edge in the mesh's edge order (0-based).
    size_t GetIndex() const { return index_; }

private:
    friend class MStlBase;
    friend class MStlBaseImpl;

    MStlPoint* points_[2] = {nullptr, nullptr};
    size_t index_ = 0;
};
} // namespace KelSDK::Triangles::Data
