// Fixed-size points and vectors: point<double,3> for file coordinates, point<int,3> for the grid.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

namespace KelSDK::Math
{
template <typename T, std::size_t N>
class point
{
    static_assert(N >= 1, "a point has at least one coordinate");

public:
    using value_type = T;
    static constexpr std::size_t dimension = N;

    // All coordinates zero.
    constexpr point() : c_{} {}
    // One value per coordinate, in order (x, y, z, ...).
    template <typename... Args, typename = std::enable_if_t<sizeof...(Args) == N && (N > 1)>>
    constexpr point(Args... values) : c_{static_cast<T>(values)...}
    {
    }
    // Every coordinate set to the same value (only for one-dimensional points implicitly).
    static constexpr point Filled(T value)
    {
        point p;
        for (std::size_t i = 0; i < N; ++i)
            p.c_[i] = value;
        return p;
    }

    constexpr T& operator[](std::size_t i) { return c_[i]; }
    constexpr const T& operator[](std::size_t i) const { return c_[i]; }
    constexpr T* data() { return c_.data(); }
    constexpr const T* data() const { return c_.data(); }

    constexpr T& x() { return c_[0]; }
    constexpr const T& x() const { return c_[0]; }
    template <std::size_t M = N, typename = std::enable_if_t<(M >= 2)>>
    constexpr T& y() { return c_[1]; }
    template <std::size_t M = N, typename = std::enable_if_t<(M >= 2)>>
    constexpr const T& y() const { return c_[1]; }
    template <std::size_t M = N, typename = std::enable_if_t<(M >= 3)>>
    constexpr T& z() { return c_[2]; }
    template <std::size_t M = N, typename = std::enable_if_t<(M >= 3)>>
    constexpr const T& z() const { return c_[2]; }

    constexpr point& operator+=(const point& o)
    {
        for (std::size_t i = 0; i < N; ++i)
            c_[i] += o.c_[i];
        return *this;
    }
    constexpr point& operator-=(const point& o)
    {
        for (std::size_t i = 0; i < N; ++i)
            c_[i] -= o.c_[i];
        return *this;
    }
    constexpr point& operator*=(T s)
    {
        for (std::size_t i = 0; i < N; ++i)
            c_[i] *= s;
        return *this;
    }
    constexpr point& operator/=(T s)
    {
        for (std::size_t i = 0; i < N; ++i)
            c_[i] /= s;
        return *this;
    }
    friend constexpr point operator+(point a, const point& b) { return a += b; }
    friend constexpr point operator-(point a, const point& b) { return a -= b; }
    friend constexpr point operator*(point a, T s) { return a *= s; }
    friend constexpr point operator*(T s, point a) { return a *= s; }
    friend constexpr point operator/(point a, T s) { return a /= s; }
    constexpr point operator-() const
    {
        point r;
        for (std::size_t i = 0; i < N; ++i)
            r.c_[i] = -c_[i];
        return r;
    }
    friend constexpr bool operator==(const point& a, const point& b) { return a.c_ == b.c_; }
    friend constexpr bool operator!=(const point& a, const point& b) { return !(a == b); }

    // Scalar product.
    constexpr T dot(const point& o) const
    {
        T s{};
        for (std::size_t i = 0; i < N; ++i)
            s += c_[i] * o.c_[i];
        return s;
    }
    // Vector product (three-dimensional points only).
    template <std::size_t M = N, typename = std::enable_if_t<M == 3>>
    constexpr point cross(const point& o) const
    {
        return point(c_[1] * o.c_[2] - c_[2] * o.c_[1], c_[2] * o.c_[0] - c_[0] * o.c_[2],
                     c_[0] * o.c_[1] - c_[1] * o.c_[0]);
    }
    // Squared Euclidean length, in T.
    constexpr T squaredLength() const { return dot(*this); }
    // Euclidean length, computed in double without overflow or underflow of the squares; NaN when a
    // coordinate is NaN.
    double length() const
    {
        double s = 0.0;
        for (std::size_t i = 0; i < N; ++i)
            s += static_cast<double>(c_[i]) * static_cast<double>(c_[i]);
        if (s >= std::numeric_limits<double>::min() && s <= std::numeric_limits<double>::max())
            return std::sqrt(s);
        // Squares that overflowed or lost their precision: scale by the largest magnitude first.
        double largest = 0.0;
        for (std::size_t i = 0; i < N; ++i)
        {
            const double a = std::fabs(static_cast<double>(c_[i]));
            if (std::isnan(a))
                return a;
            largest = a > largest ? a : largest;
        }
        if (largest == 0.0 || std::isinf(largest))
            return largest;
        s = 0.0;
        for (std::size_t i = 0; i < N; ++i)
        {
            const double q = static_cast<double>(c_[i]) / largest;
            s += q * q;
        }
        return largest * std::sqrt(s);
    }
    // Scales to unit length; returns false (and leaves the point unchanged) when the length is 0 or
    // not finite.
    bool normalize()
    {
        static_assert(std::is_floating_point_v<T>, "only floating-point points can be normalised");
        const double len = length();
        if (!(len > 0.0) || std::isinf(len))
            return false;
        for (std::size_t i = 0; i < N; ++i)
            c_[i] = static_cast<T>(c_[i] / len);
        return true;
    }
    // A unit-length copy, or the zero point when the length is 0 or not finite.
    point normalized() const
    {
        point r = *this;
        if (!r.normalize())
            return point();
        return r;
    }

private:
    std::array<T, N> c_;
};

using point3d = point<double, 3>;
using point3f = point<float, 3>;
using point3i = point<int, 3>;
}  // namespace KelSDK::Math
