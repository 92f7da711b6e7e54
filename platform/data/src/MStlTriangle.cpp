#include <KelSDK/Triangles/Data/MStlFeature.h>
#include <KelSDK/Triangles/Data/MStlTriangle.h>

#include <cmath>

namespace KelSDK::Triangles::Data
{
namespace
{
// Cross product of (p1 - p0) and (p2 - p0) in doubles (exact for grid coordinates up to 2^26).
KelSDK::Math::point<double, 3> Cross(const MStlPoint& p0, const MStlPoint& p1, const MStlPoint& p2)
{
    const double ax = double(p1.GetX()) - p0.GetX(), ay = double(p1.GetY()) - p0.GetY(),
                 az = double(p1.GetZ()) - p0.GetZ();
    const double bx = double(p2.GetX()) - p0.GetX(), by = double(p2.GetY()) - p0.GetY(),
                 bz = double(p2.GetZ()) - p0.GetZ();
    return KelSDK::Math::point<double, 3>(ay * bz - az * by, az * bx - ax * bz, ax * by - ay * bx);
}

bool SamePosition(const MStlPoint* a, const MStlPoint* b)
{
    return a == b || (a->GetX() == b->GetX() && a->GetY() == b->GetY() && a->GetZ() == b->GetZ());
}
} // namespace

KelSDK::Math::point<double, 3> MStlTriangle::GetNormal() const
{
    KelSDK::Math::point<double, 3> n = Cross(*points_[0], *points_[1], *points_[2]);
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (length == 0.0)
        return KelSDK::Math::point<double, 3>();
    n[0] /= length;
    n[1] /= length;
    n[2] /= length;
    return n;
}

double MStlTriangle::GetDoubleArea() const
{
    const KelSDK::Math::point<double, 3> n = Cross(*points_[0], *points_[1], *points_[2]);
    return std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
}

bool MStlTriangle::IsCollapsed() const
{
    return SamePosition(points_[0], points_[1]) || SamePosition(points_[1], points_[2]) ||
           SamePosition(points_[0], points_[2]);
}

MStlBase* MStlTriangle::GetStl() const
{
    return surface_ ? surface_->GetStl() : nullptr;
}
} // namespace KelSDK::Triangles::Data
