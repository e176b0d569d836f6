// Small value types: points, rectangles, pairs and triples. Column (x) always comes first.
#pragma once

#include <algorithm>
#include <ostream>

template <class T>
struct TPoint2D {
  T x{}, y{};
  TPoint2D() = default;
  TPoint2D(T px, T py) : x(px), y(py) {}
  bool operator==(const TPoint2D& p) const { return x == p.x && y == p.y; }
  bool operator!=(const TPoint2D& p) const { return !(*this == p); }
  TPoint2D operator+(const TPoint2D& p) const { return TPoint2D(x + p.x, y + p.y); }
  TPoint2D operator-(const TPoint2D& p) const { return TPoint2D(x - p.x, y - p.y); }
};

// A rectangle given by two corners; the first corner holds the minima.
template <class T>
struct TRectangle {
  TPoint2D<T> p0, p1;
  TRectangle() = default;
  TRectangle(const TPoint2D<T>& a, const TPoint2D<T>& b)
      : p0(std::min(a.x, b.x), std::min(a.y, b.y)), p1(std::max(a.x, b.x), std::max(a.y, b.y)) {}
  TRectangle(T x0, T y0, T x1, T y1) : TRectangle(TPoint2D<T>(x0, y0), TPoint2D<T>(x1, y1)) {}
  T Largeur() const { return p1.x - p0.x; }
  T Hauteur() const { return p1.y - p0.y; }
  bool operator==(const TRectangle& r) const { return p0 == r.p0 && p1 == r.p1; }
};

template <class T>
struct T2D {
  T x{}, y{};
  T2D() = default;
  T2D(T px, T py) : x(px), y(py) {}
  bool operator==(const T2D& p) const { return x == p.x && y == p.y; }
};

template <class T>
struct T3D {
  T x{}, y{}, z{};
  T3D() = default;
  T3D(T px, T py, T pz) : x(px), y(py), z(pz) {}
  bool operator==(const T3D& p) const { return x == p.x && y == p.y && z == p.z; }
};

template <class T>
std::ostream& operator<<(std::ostream& f, const TPoint2D<T>& p) {
  return f << '(' << p.x << ',' << p.y << ')';
}
template <class T>
std::ostream& operator<<(std::ostream& f, const TRectangle<T>& r) {
  return f << '[' << r.p0 << ' ' << r.p1 << ']';
}
template <class T>
std::ostream& operator<<(std::ostream& f, const T2D<T>& p) {
  return f << '(' << p.x << ',' << p.y << ')';
}
template <class T>
std::ostream& operator<<(std::ostream& f, const T3D<T>& p) {
  return f << '(' << p.x << ',' << p.y << ',' << p.z << ')';
}
