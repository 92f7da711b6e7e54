// Registered points of a mesh: named reference positions (fiducials) kept apart from its vertices.
#pragma once

#include <KelSDK/Triangles/Data/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KelSDK::Triangles::Data
{
struct KELSDK_TRIANGLES_DATA_EXPORT MStlRegisteredPoint
{
    int x = 0;
    int y = 0;
    int z = 0;
    uint32_t id = 0; // caller-chosen identifier
    std::wstring name;

    friend bool operator==(const MStlRegisteredPoint& a, const MStlRegisteredPoint& b)
    {
        return a.x == b.x && a.y == b.y && a.z == b.z && a.id == b.id && a.name == b.name;
    }
    friend bool operator!=(const MStlRegisteredPoint& a, const MStlRegisteredPoint& b) { return !(a == b); }
};

// The registered points in order.
class KELSDK_TRIANGLES_DATA_EXPORT MStlRegisteredPoints
{
public:
    size_t GetNumPoints() const { return points_.size(); }
    // The point at a position (index must be below GetNumPoints()).
    const MStlRegisteredPoint& GetPoint(size_t index) const { return points_[index]; }
    // Appends a point and returns its position.
    size_t AddPoint(MStlRegisteredPoint point)
    {
        points_.push_back(std::move(point));
        return points_.size() - 1;
    }
    // The first point with the identifier, or null.
    const MStlRegisteredPoint* FindPoint(uint32_t id) const;
    const std::vector<MStlRegisteredPoint>& Points() const { return points_; }
    void Clear() { points_.clear(); }

private:
    std::vector<MStlRegisteredPoint> points_;
};
} // namespace KelSDK::Triangles::Data
