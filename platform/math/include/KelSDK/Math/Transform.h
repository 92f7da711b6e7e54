// Affine (and, when the last row asks for it, projective) transformations of 3D points.
#pragma once

#include <KelSDK/Math/Export.h>
#include <KelSDK/Math/Point.h>

#include <cstddef>

namespace KelSDK::Math
{
// A transformation of points and directions; the result is written only when it is finite.
class KELSDK_MATH_EXPORT MMTransform
{
public:
    MMTransform() = default;
    MMTransform(const MMTransform&) = default;
    MMTransform& operator=(const MMTransform&) = default;
    virtual ~MMTransform();

    // A new heap copy of the same dynamic type; the caller owns it.
    virtual MMTransform* Clone() const = 0;
    // Transforms p in place (asDirection: without the translation); false, p unchanged, when not finite.
    virtual bool Transform(point<double, 3>& p, bool asDirection) const = 0;
    // Writes the image of in to out; false, out unchanged, when the result is not finite.
    virtual bool Transform(point<double, 3>& out, const point<double, 3>& in, bool asDirection) const = 0;
    // Float variant computed in double; false, p unchanged, when the result does not fit a finite float.
    bool Transform(point<float, 3>& p, bool asDirection) const;
    // Float variant computed in double; false, out unchanged, when the result does not fit a finite float.
    bool Transform(point<float, 3>& out, const point<float, 3>& in, bool asDirection) const;
};

// A 4x4 matrix acting on column vectors, p' = M p, stored row-major: element (row, column) sits at
// index row * 4 + column, and the translation is the last column (indices 3, 7 and 11).
class KELSDK_MATH_EXPORT MMTransformMatrix : public MMTransform
{
public:
    using MMTransform::Transform;

    // The identity.
    MMTransformMatrix();
    // Sixteen elements in row-major order (m00 m01 m02 m03, m10 ..., m30 m31 m32 m33).
    MMTransformMatrix(double m00, double m01, double m02, double m03, double m10, double m11, double m12,
                      double m13, double m20, double m21, double m22, double m23, double m30, double m31,
                      double m32, double m33);

    // A translation by (x, y, z).
    static MMTransformMatrix Translation(double x, double y, double z);
    // A translation by the vector t.
    static MMTransformMatrix Translation(const point<double, 3>& t);
    // A scaling about the origin by sx, sy, sz.
    static MMTransformMatrix Scaling(double sx, double sy, double sz);
    // A uniform scaling about the origin.
    static MMTransformMatrix Scaling(double s);
    // A right-handed rotation about the x axis by an angle in radians.
    static MMTransformMatrix RotationX(double radians);
    // A right-handed rotation about the y axis by an angle in radians.
    static MMTransformMatrix RotationY(double radians);
    // A right-handed rotation about the z axis by an angle in radians.
    static MMTransformMatrix RotationZ(double radians);
    // A right-handed rotation about an axis through the origin; the identity when the axis has length 0.
    static MMTransformMatrix Rotation(const point<double, 3>& axis, double radians);

    // Element at (row, column), both below 4 (checked by assert only).
    double& operator()(std::size_t row, std::size_t column);
    // Element at (row, column), both below 4 (checked by assert only).
    double operator()(std::size_t row, std::size_t column) const;
    // The sixteen elements, row-major.
    const double* data() const { return m_; }

    // The translation part (last column, first three rows).
    point<double, 3> GetTranslation() const;
    // Replaces the translation part.
    void SetTranslation(const point<double, 3>& t);

    // The composition: (A * B) p = A (B p), that is B applied first.
    MMTransformMatrix operator*(const MMTransformMatrix& other) const;
    // this = this * other (other applied first).
    MMTransformMatrix& operator*=(const MMTransformMatrix& other);
    // Exact element-wise equality.
    bool operator==(const MMTransformMatrix& other) const;
    bool operator!=(const MMTransformMatrix& other) const { return !(*this == other); }

    // Writes the inverse to inverse; false (inverse unchanged) when singular or not finite.
    bool Inverse(MMTransformMatrix& inverse) const;
    // Replaces this matrix by its inverse; false (matrix unchanged) when singular or not finite.
    bool Invert();
    // True when the upper 3x3 part is orthonormal and the last row is 0 0 0 1, within tolerance.
    bool IsOrthoNormal(double tolerance = 1e-9) const;
    // True when every element differs from the identity's by at most tolerance.
    bool IsIdentity(double tolerance = 0.0) const;
    // True when the last row is exactly 0 0 0 1 (no projective part).
    bool IsAffine() const;

    // Copies the sixteen elements out, row-major (see the class comment).
    void ConvertToDouble16(double out[16]) const;
    // Takes sixteen elements in the order ConvertToDouble16 writes them.
    void ConvertFromDouble16(const double in[16]);

    MMTransformMatrix* Clone() const override;
    bool Transform(point<double, 3>& p, bool asDirection) const override;
    bool Transform(point<double, 3>& out, const point<double, 3>& in, bool asDirection) const override;

private:
    double m_[16];
};
} // namespace KelSDK::Math
