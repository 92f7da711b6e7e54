#include <KelSDK/Math/Transform.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <utility>

namespace KelSDK::Math
{
namespace
{
bool isFinite(const point<double, 3>& p)
{
    return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

// A double that lies within the finite float range (rounding to float cannot reach infinity).
bool fitsFloat(double v)
{
    return std::isfinite(v) && std::fabs(v) <= static_cast<double>(std::numeric_limits<float>::max());
}

point<float, 3> toFloat(const point<double, 3>& p)
{
    return point<float, 3>(static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]));
}

point<double, 3> toDouble(const point<float, 3>& p)
{
    return point<double, 3>(static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2]));
}
} // namespace

MMTransform::~MMTransform() = default;

bool MMTransform::Transform(point<float, 3>& p, bool asDirection) const
{
    const point<float, 3> in = p;
    return Transform(p, in, asDirection);
}

bool MMTransform::Transform(point<float, 3>& out, const point<float, 3>& in, bool asDirection) const
{
    point<double, 3> result;
    if (!Transform(result, toDouble(in), asDirection))
        return false;
    if (!fitsFloat(result[0]) || !fitsFloat(result[1]) || !fitsFloat(result[2]))
        return false;
    out = toFloat(result);
    return true;
}

MMTransformMatrix::MMTransformMatrix() : m_{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1} {}

MMTransformMatrix::MMTransformMatrix(double m00, double m01, double m02, double m03, double m10, double m11,
                                     double m12, double m13, double m20, double m21, double m22, double m23,
                                     double m30, double m31, double m32, double m33)
    : m_{m00, m01, m02, m03, m10, m11, m12, m13, m20, m21, m22, m23, m30, m31, m32, m33}
{
}

MMTransformMatrix MMTransformMatrix::Translation(double x, double y, double z)
{
    MMTransformMatrix m;
    m.m_[3] = x;
    m.m_[7] = y;
    m.m_[11] = z;
    return m;
}

MMTransformMatrix MMTransformMatrix::Translation(const point<double, 3>& t)
{
    return Translation(t[0], t[1], t[2]);
}

MMTransformMatrix MMTransformMatrix::Scaling(double sx, double sy, double sz)
{
    MMTransformMatrix m;
    m.m_[0] = sx;
    m.m_[5] = sy;
    m.m_[10] = sz;
    return m;
}

MMTransformMatrix MMTransformMatrix::Scaling(double s)
{
    return Scaling(s, s, s);
}

MMTransformMatrix MMTransformMatrix::RotationX(double radians)
{
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    return MMTransformMatrix(1, 0, 0, 0, 0, c, -s, 0, 0, s, c, 0, 0, 0, 0, 1);
}

MMTransformMatrix MMTransformMatrix::RotationY(double radians)
{
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    return MMTransformMatrix(c, 0, s, 0, 0, 1, 0, 0, -s, 0, c, 0, 0, 0, 0, 1);
}

MMTransformMatrix MMTransformMatrix::RotationZ(double radians)
{
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    return MMTransformMatrix(c, -s, 0, 0, s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);
}

// Rodrigues' formula: R = c I + s [k]x + (1 - c) k k^T for the unit axis k.
MMTransformMatrix MMTransformMatrix::Rotation(const point<double, 3>& axis, double radians)
{
    point<double, 3> k = axis;
    if (!k.normalize())
        return MMTransformMatrix();
    const double c = std::cos(radians);
    const double s = std::sin(radians);
    const double t = 1.0 - c;
    const double x = k[0], y = k[1], z = k[2];
    return MMTransformMatrix(t * x * x + c, t * x * y - s * z, t * x * z + s * y, 0, //
                             t * x * y + s * z, t * y * y + c, t * y * z - s * x, 0, //
                             t * x * z - s * y, t * y * z + s * x, t * z * z + c, 0, //
                             0, 0, 0, 1);
}

double& MMTransformMatrix::operator()(std::size_t row, std::size_t column)
{
    assert(row < 4 && column < 4);
    return m_[row * 4 + column];
}

double MMTransformMatrix::operator()(std::size_t row, std::size_t column) const
{
    assert(row < 4 && column < 4);
    return m_[row * 4 + column];
}

point<double, 3> MMTransformMatrix::GetTranslation() const
{
    return point<double, 3>(m_[3], m_[7], m_[11]);
}

void MMTransformMatrix::SetTranslation(const point<double, 3>& t)
{
    m_[3] = t[0];
    m_[7] = t[1];
    m_[11] = t[2];
}

MMTransformMatrix MMTransformMatrix::operator*(const MMTransformMatrix& other) const
{
    MMTransformMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
        {
            double s = 0.0;
            for (int k = 0; k < 4; ++k)
                s += m_[i * 4 + k] * other.m_[k * 4 + j];
            r.m_[i * 4 + j] = s;
        }
    return r;
}

MMTransformMatrix& MMTransformMatrix::operator*=(const MMTransformMatrix& other)
{
    *this = *this * other;
    return *this;
}

bool MMTransformMatrix::operator==(const MMTransformMatrix& other) const
{
    for (int i = 0; i < 16; ++i)
        if (!(m_[i] == other.m_[i]))
            return false;
    return true;
}

// Gauss-Jordan elimination with partial pivoting on [M | I]. A pivot that is tiny compared with the
// largest element of the matrix marks it as singular; so does any non-finite element on the way.
bool MMTransformMatrix::Inverse(MMTransformMatrix& inverse) const
{
    double a[4][8];
    double largest = 0.0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
        {
            const double v = m_[i * 4 + j];
            if (!std::isfinite(v))
                return false;
            largest = std::max(largest, std::fabs(v));
            a[i][j] = v;
            a[i][j + 4] = (i == j) ? 1.0 : 0.0;
        }
    if (largest == 0.0)
        return false;
    const double threshold = largest * 1e-14;

    for (int col = 0; col < 4; ++col)
    {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[pivot][col]))
                pivot = r;
        if (!(std::fabs(a[pivot][col]) > threshold))
            return false;
        if (pivot != col)
            for (int j = 0; j < 8; ++j)
                std::swap(a[pivot][j], a[col][j]);
        const double inv = 1.0 / a[col][col];
        for (int j = 0; j < 8; ++j)
            a[col][j] *= inv;
        for (int r = 0; r < 4; ++r)
        {
            if (r == col || a[r][col] == 0.0)
                continue;
            const double f = a[r][col];
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[col][j];
        }
    }

    MMTransformMatrix result;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
        {
            const double v = a[i][j + 4];
            if (!std::isfinite(v))
                return false;
            result.m_[i * 4 + j] = v;
        }
    inverse = result;
    return true;
}

bool MMTransformMatrix::Invert()
{
    return Inverse(*this);
}

bool MMTransformMatrix::IsOrthoNormal(double tolerance) const
{
    if (std::fabs(m_[12]) > tolerance || std::fabs(m_[13]) > tolerance || std::fabs(m_[14]) > tolerance ||
        std::fabs(m_[15] - 1.0) > tolerance)
        return false;
    // Rows of the rotation part must be unit length and pairwise perpendicular: R R^T = I.
    for (int i = 0; i < 3; ++i)
        for (int j = i; j < 3; ++j)
        {
            const double d =
                m_[i * 4] * m_[j * 4] + m_[i * 4 + 1] * m_[j * 4 + 1] + m_[i * 4 + 2] * m_[j * 4 + 2];
            const double expected = (i == j) ? 1.0 : 0.0;
            if (!(std::fabs(d - expected) <= tolerance))
                return false;
        }
    return true;
}

bool MMTransformMatrix::IsIdentity(double tolerance) const
{
    for (int i = 0; i < 16; ++i)
    {
        const double expected = (i % 5 == 0) ? 1.0 : 0.0;
        if (!(std::fabs(m_[i] - expected) <= tolerance))
            return false;
    }
    return true;
}

bool MMTransformMatrix::IsAffine() const
{
    return m_[12] == 0.0 && m_[13] == 0.0 && m_[14] == 0.0 && m_[15] == 1.0;
}

void MMTransformMatrix::ConvertToDouble16(double out[16]) const
{
    for (int i = 0; i < 16; ++i)
        out[i] = m_[i];
}

void MMTransformMatrix::ConvertFromDouble16(const double in[16])
{
    for (int i = 0; i < 16; ++i)
        m_[i] = in[i];
}

MMTransformMatrix* MMTransformMatrix::Clone() const
{
    return new MMTransformMatrix(*this);
}

bool MMTransformMatrix::Transform(point<double, 3>& p, bool asDirection) const
{
    const point<double, 3> in = p;
    return Transform(p, in, asDirection);
}

// Directions use w = 0: the translation column and the projective row play no part. Positions use
// w = 1 and are divided by the resulting w when the last row is not 0 0 0 1.
bool MMTransformMatrix::Transform(point<double, 3>& out, const point<double, 3>& in, bool asDirection) const
{
    const double x = in[0], y = in[1], z = in[2];
    point<double, 3> r(m_[0] * x + m_[1] * y + m_[2] * z, m_[4] * x + m_[5] * y + m_[6] * z,
                       m_[8] * x + m_[9] * y + m_[10] * z);
    if (!asDirection)
    {
        r[0] += m_[3];
        r[1] += m_[7];
        r[2] += m_[11];
        if (!IsAffine())
        {
            const double w = m_[12] * x + m_[13] * y + m_[14] * z + m_[15];
            if (w == 0.0 || !std::isfinite(w))
                return false;
            r /= w;
        }
    }
    if (!isFinite(r))
        return false;
    out = r;
    return true;
}
} // namespace KelSDK::Math
