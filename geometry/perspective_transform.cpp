#include "geometry/perspective_transform.h"

float Matrix3x3::determinant() const {
  const auto& [a, b, c, d, e, f, g, h, i] = p;
  return a * (e * i - h * f) - b * (d * i - g * f) + c * (d * h - g * e);
}

Matrix3x3 Matrix3x3::inverse() const {
  const auto& [a, b, c, d, e, f, g, h, i] = p;
  const float det = determinant();
  Matrix3x3 result;
  result.p = {(e * i - h * f) / det,  -(b * i - h * c) / det, (b * f - e * c) / det,
              -(d * i - g * f) / det, (a * i - g * c) / det,  -(a * f - d * c) / det,
              (d * h - g * e) / det,  -(a * h - g * b) / det, (a * e - d * b) / det};
  return result;
}

Matrix3x3 Matrix3x3Multiply(const Matrix3x3& a, const Matrix3x3& b) {
  Matrix3x3 result;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      for (int k = 0; k < 3; ++k) {
        result(r, c) += a(r, k) * b(k, c);
      }
    }
  }
  return result;
}

Vector3 Matrix3x3Vector3Multiply(const Matrix3x3& m, const Vector3& v) {
  Vector3 result;
  for (int r = 0; r < 3; ++r) {
    for (int k = 0; k < 3; ++k) {
      result(r) += m(r, k) * v(k);
    }
  }
  return result;
}

Matrix3x3 CreateBasisToQuadMatrix(const Quad& q) {
  Matrix3x3 corners;
  corners.p = {q.x0, q.x1, q.x2, q.y0, q.y1, q.y2, 1.0F, 1.0F, 1.0F};
  const Vector3 scale = Matrix3x3Vector3Multiply(corners.inverse(), Vector3(q.x3, q.y3, 1.0F));
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      corners(r, c) *= scale(c);
    }
  }
  return corners;
}

Matrix3x3 CreatePerspectiveTransformMatrix(const Quad& source, const Quad& dest) {
  return Matrix3x3Multiply(CreateBasisToQuadMatrix(dest), CreateBasisToQuadMatrix(source).inverse());
}

Vector3 ApplyTransform(const Matrix3x3& T, float x, float y) {
  const Vector3 v = Matrix3x3Vector3Multiply(T, Vector3(x, y, 1.0F));
  return {v(0) / v(2), v(1) / v(2), 1.0F};
}
