// Plane-to-plane perspective mappings in single precision. Nothing here tests for singular input: degenerate quads give
// infinities or NaN, and callers guard against them.
#pragma once

#include <array>
#include <cstddef>

/// Three floats; a homogeneous picture or floor point is (x, y, 1).
struct Vector3 {
  std::array<float, 3> p{};

  Vector3() = default;
  Vector3(float x, float y, float z) : p{x, y, z} {}

  float operator()(int i) const { return p[static_cast<std::size_t>(i)]; }
  float& operator()(int i) { return p[static_cast<std::size_t>(i)]; }
};

/// Nine floats, row by row.
struct Matrix3x3 {
  std::array<float, 9> p{};

  float operator()(int r, int c) const { return p[static_cast<std::size_t>(r) * 3 + static_cast<std::size_t>(c)]; }
  float& operator()(int r, int c) { return p[static_cast<std::size_t>(r) * 3 + static_cast<std::size_t>(c)]; }

  float determinant() const;
  /// The adjugate divided by the determinant.
  Matrix3x3 inverse() const;
};

/// Four corners. Two quads are mapped corner by corner, so their orders must correspond.
struct Quad {
  float x0, y0, x1, y1, x2, y2, x3, y3;

  Quad(float x0_, float y0_, float x1_, float y1_, float x2_, float y2_, float x3_, float y3_)
      : x0(x0_), y0(y0_), x1(x1_), y1(y1_), x2(x2_), y2(y2_), x3(x3_), y3(y3_) {}
};

Matrix3x3 Matrix3x3Multiply(const Matrix3x3& a, const Matrix3x3& b);
Vector3 Matrix3x3Vector3Multiply(const Matrix3x3& m, const Vector3& v);

/// Maps (1,0,0), (0,1,0), (0,0,1) and (1,1,1) to the quad's corners 0 to 3, up to scale (Heckbert, Fundamentals of
/// Texture Mapping and Image Warping, 1989, section 2.2.3).
Matrix3x3 CreateBasisToQuadMatrix(const Quad& q);

/// Maps corner k of `source` to corner k of `dest`.
Matrix3x3 CreatePerspectiveTransformMatrix(const Quad& source, const Quad& dest);

/// The mapped point, normalised: its third element is exactly 1.
Vector3 ApplyTransform(const Matrix3x3& T, float x, float y);
