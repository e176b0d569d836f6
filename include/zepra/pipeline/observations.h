// Stage "observations": the inputs sampled on a regular grid of map points over the footprint. An
// observation is a (grid point, image) pair where the point lies strictly inside the image's map
// extent, falls (position truncated toward zero) on a pixel of the image, and that pixel is valid.
// The same points and validity serve every band: each observation carries one value per band.
#pragma once

#include <vector>

#include "zepra/pipeline/geometrie_carto.h"
#include "zepra/pipeline/sources.h"

// One input to sample: its rows and where it lies on the map.
struct ImageObservee {
  const SourceLignes* source = nullptr;
  GeoCarto geo;
};

struct Observation {
  int image;
  double col, lin;  // unrounded pixel position
};

// An observed grid point: its observations [debut, fin) and its running index g in the grid.
struct PointObserve {
  size_t debut, fin;
  long long g;
};

struct Observations {
  int nbImages = 0, nbBandes = 0;
  // In grid order (x outer, y inner, from the footprint's minimum corner by the step), then input order.
  std::vector<Observation> obs;
  // nbBandes values per observation: valeurs[k * nbBandes + b], the float sample widened to double.
  std::vector<double> valeurs;
  std::vector<PointObserve> points;
  long long nbPointsGrille = 0;  // grid points visited, observed or not

  double Valeur(size_t k, int bande) const { return valeurs[k * static_cast<size_t>(nbBandes) + bande]; }
};

// Samples the inputs, all of the same band count, every 'pas' map units over the extent. Each input is
// read on its own (in parallel), only on the rows the grid crosses; the result does not depend on the
// thread count. Refuses a grid of more than 1e9 points.
Observations Observer(const std::vector<ImageObservee>& images, const Emprise& emprise, double pas);
