// Stage "footprint and grid": where each input lies on the map, the union of their extents, the
// sampling grid of the observations and the output grid of the mosaic.
#pragma once

#include <algorithm>
#include <vector>

#include "zepra/orientation.h"

// The affine map-to-pixel rule of a map-projected orientation, read once so that the per-pixel loops
// make no virtual call. Gives the same numbers as OrientationOld::MapToPhoto of a carto orientation.
// Column depends on X alone and line on Y alone: stages compute them once per column and per line.
struct GeoCarto {
  double x0 = 0, y0 = 0, pasX = 1, pasY = 1;
  int zone = 0;
  long long colonnes = 0, lignes = 0;
  double minX = 0, minY = 0, maxX = 0, maxY = 0;  // the map extent (first to last pixel corner)

  GeoCarto() = default;
  // Refuses an orientation that is not map-projected.
  explicit GeoCarto(const OrientationOld& ori);
  void MapToPhoto(double X, double Y, double& col, double& lin) const {
    col = Colonne(X);
    lin = Ligne(Y);
  }
  double Colonne(double X) const { return (X - x0) / pasX; }
  double Ligne(double Y) const {
    // Zone completion first, as MapToGround does.
    if (zone != 0 && Y < 1000000.0) Y += zone * 1000000.0;
    return (y0 - Y) / pasY;
  }
};

// Index of a position along one axis of an image of n pixels: the position truncated toward zero,
// when it lies inside; false otherwise (NaN included). Never converts an out-of-range double to int.
inline bool IndiceDedans(double position, int n, int& indice) {
  if (!(position > -1.0 && position < n)) return false;
  indice = static_cast<int>(position);
  return true;
}
// The same on both axes.
inline bool PixelDedans(double col, double lin, int colonnes, int lignes, int& c, int& l) {
  if (!(col > -1.0 && col < colonnes && lin > -1.0 && lin < lignes)) return false;
  c = static_cast<int>(col);
  l = static_cast<int>(lin);
  return true;
}

struct Emprise {
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
};

// The union of the map extents; an empty list gives an empty extent at 0.
Emprise UnionEmprises(const std::vector<GeoCarto>& geos);

// The positions of one axis of the sampling grid, as the walk from 'debut' by steps of 'pas' while
// below 'fin' produces them: each position is the previous one plus the step, so the k-th is not
// debut + k x pas to the last bit. Keeps one position in 1024 and walks from there.
class AxeGrille {
 public:
  AxeGrille(double debut, double fin, double pas);
  long long Taille() const { return m_taille; }
  // Calls f(k, position) for every k of the axis whose position p has bas < p < haut, in increasing k.
  template <class F>
  void Parcourir(double bas, double haut, F&& f) const;

 private:
  static constexpr long long kIntervalle = 1024;
  double m_pas, m_fin;
  long long m_taille = 0;
  std::vector<double> m_reperes;  // the positions of k = 0, 1024, 2048...
};

template <class F>
void AxeGrille::Parcourir(double bas, double haut, F&& f) const {
  if (m_reperes.empty()) return;
  // The last mark at or below 'bas' (positions increase), then the walk from it.
  const size_t r =
      static_cast<size_t>(std::upper_bound(m_reperes.begin() + 1, m_reperes.end(), bas) - m_reperes.begin()) -
      1;
  long long k = static_cast<long long>(r) * kIntervalle;
  for (double p = m_reperes[r]; p < m_fin && !(p >= haut); p += m_pas, ++k)
    if (bas < p) f(k, p);
}

// The mosaic's grid: corner (x0, y0) of its first pixel, square pixels of 'pas', its size and zone.
struct GrilleSortie {
  double x0 = 0, y0 = 0, pas = 1;
  int zone = 0;
  long colonnes = 0, lignes = 0;
};
// The grid covering an extent from its upper-left corner with pixels of 'pas': sizes truncated toward
// zero. Refuses a grid under one pixel, over 4e9 pixels, or with a side past INT_MAX (images are
// addressed by int).
GrilleSortie GrilleSurEmprise(const Emprise& e, double pas, int zone);
// The map-projected orientation of a grid.
OrientationOld OrientationGrille(const GrilleSortie& g);
