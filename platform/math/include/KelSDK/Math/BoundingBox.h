// Axis-aligned bounding boxes; an empty box has minimum +max and maximum -max on every axis.
#pragma once

#include <KelSDK/Math/Point.h>

#include <algorithm>
#include <limits>

namespace KelSDK::Math
{
template <typename T, std::size_t N>
class boundingbox
{
public:
    using point_type = point<T, N>;

    // The empty box: minimum at the largest value, maximum at the lowest, on every axis.
    boundingbox()
        : min_(point_type::Filled(std::numeric_limits<T>::max())),
          max_(point_type::Filled(std::numeric_limits<T>::lowest()))
    {
    }
    // The box spanned by two corners given as minimum and maximum.
    boundingbox(const point_type& minimum, const point_type& maximum) : min_(minimum), max_(maximum) {}

    const point_type& GetMin() const { return min_; }
    const point_type& GetMax() const { return max_; }
    point_type& GetMin() { return min_; }
    point_type& GetMax() { return max_; }

    // True while no point has been added (minimum above maximum on some axis).
    bool IsEmpty() const
    {
        for (std::size_t i = 0; i < N; ++i)
            if (min_[i] > max_[i])
                return true;
        return false;
    }
    // Grows the box to hold p.
    void Extend(const point_type& p)
    {
        for (std::size_t i = 0; i < N; ++i)
        {
            min_[i] = std::min(min_[i], p[i]);
            max_[i] = std::max(max_[i], p[i]);
        }
    }
    // Grows the box to hold another box (an empty one changes nothing).
    void Extend(const boundingbox& b)
    {
        if (b.IsEmpty())
            return;
        Extend(b.min_);
        Extend(b.max_);
    }
    // True when p lies inside or on the border.
    bool Contains(const point_type& p) const
    {
        for (std::size_t i = 0; i < N; ++i)
            if (p[i] < min_[i] || p[i] > max_[i])
                return false;
        return true;
    }
    // Centre of the box (meaningless for an empty box).
    point_type GetCenter() const { return (min_ + max_) / static_cast<T>(2); }
    // Extent on each axis (meaningless for an empty box).
    point_type GetSize() const { return max_ - min_; }

private:
    point_type min_;
    point_type max_;
};
}  // namespace KelSDK::Math
