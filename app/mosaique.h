// The default job of the tool: equalize a set of ortho-images laid on one map grid and compose them
// into one mosaic with its orientation.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "zepra/orientation.h"
#include "zepra/pipeline/polynome.h"
#include "zepra/ttimage.h"

// Fusion rules, held as these small integers.
enum ModeFusion { eFusionVoronoi = 0, eFusionMoyenne = 1, eFusionMin = 2, eFusionMax = 3 };

struct OptionsMosaique {
  bool referenceWalis = false;
  int fusion = eFusionMoyenne;
  bool multiplicatif = false;
  bool noegal = false;
  double ssechfinal = 2.0;
  double pas = 50;
  bool prelissewalis = false;
  std::string sortie = "big_image.tif";
  std::vector<std::string> entrees;
};

// Reads the words after the program name, left to right: each word equal to an option sets it (the
// last one wins), any other word is an input name. Refuses, naming the option, a missing value after
// "--pas", "--ssechfinal" or "--output", a step or a subsampling factor that is not strictly positive
// and finite, and a command line without any input name.
OptionsMosaique LireOptionsMosaique(int argc, char** argv);

// A float "Incid_" image as an exclusion mask: true where the value is not 0 (NaN included).
void masqueflou2masquenet(const TTImage<float>& flou, TTImage<bool>& net);
// In place: every value that is not 0 (NaN included) becomes 1.
void masqueflou2masquenet(TTImage<float>& flou);
// A mask made from the image itself: true (excluded) where the value is exactly 0, no data.
template <class T>
void image2masque(const TTImage<T>& image, TTImage<bool>& masque);

// The affine map-to-pixel rule of a map-projected orientation, read once so that the per-pixel loops
// make no virtual call. Gives the same numbers as OrientationOld::MapToPhoto of a carto orientation.
struct GeoCarto {
  double x0 = 0, y0 = 0, pasX = 1, pasY = 1;
  int zone = 0;
  long long colonnes = 0, lignes = 0;
  double minX = 0, minY = 0, maxX = 0, maxY = 0;  // the map extent (first to last pixel corner)

  GeoCarto() = default;
  // Refuses an orientation that is not map-projected.
  explicit GeoCarto(const OrientationOld& ori);
  void MapToPhoto(double X, double Y, double& col, double& lin) const {
    // Zone completion first, as MapToGround does.
    if (zone != 0 && Y < 1000000.0) Y += zone * 1000000.0;
    col = (X - x0) / pasX;
    lin = (y0 - Y) / pasY;
  }
};

// Pixel (column, line) of an image of the given size whose position, truncated toward zero, lies
// inside it; false otherwise (NaN included). Never converts an out-of-range double to int.
inline bool PixelDedans(double col, double lin, int colonnes, int lignes, int& c, int& l) {
  if (!(col > -1.0 && col < colonnes && lin > -1.0 && lin < lignes)) return false;
  c = static_cast<int>(col);
  l = static_cast<int>(lin);
  return true;
}

struct Emprise {
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
};

// One image of the equalization: where the no-data test is made (the ortho-image), where the observed
// value is read (the ortho-image, or its Wallis reference image), its exclusion mask, its geometry.
struct ImageObservee {
  const TTImage<float>* ortho = nullptr;
  const TTImage<float>* valeurs = nullptr;
  const TTImage<bool>* masque = nullptr;
  GeoCarto geo;
};

// The equalization system of a set of images over a sampling grid of the footprint: builds it, solves
// it and writes its console lines from the count of points to the residuals. Returns false (after
// writing "rate") when the factorisation fails; otherwise sets one degree-2 polynomial per image.
bool Egaliser(const std::vector<ImageObservee>& images, const Emprise& emprise, double pas,
              bool multiplicatif, std::vector<Polynome2D>& polynomes, std::ostream& console);

// The value of a degree-2 polynomial at (x, y), with the same operations in the same order as
// Polynome2D::operator(), so that the results are the same to the last bit; inline for the per-pixel
// loops. coefficients has 6 entries in term order (1, x, y, x^2, xy, y^2).
inline double ValeurDegre2(const double* c, double x, double y) {
  const double xx = x * x, yy = y * y;
  double s = 0.0;
  s += c[0];
  s += c[1] * x;
  s += c[2] * y;
  s += c[3] * xx;
  s += c[4] * x * y;
  s += c[5] * yy;
  return s;
}

// Corrects an image in place by its polynomial evaluated at every pixel index (column, line): the
// value minus P (additive) or divided by P (multiplicative). A no-data pixel (0.0) stays 0.0.
void CorrigerImage(TTImage<float>& image, const Polynome2D& p, bool multiplicatif);

// One image to compose: its corrected values, its exclusion mask, its geometry.
struct ImageComposee {
  const TTImage<float>* valeurs = nullptr;
  const TTImage<bool>* masque = nullptr;
  GeoCarto geo;
};

// Composes the mosaic over the given orientation (map-projected, its pixel standing for the map point
// of its corner) by the fusion rule. A pixel no image covers is 0.
void Composer(const std::vector<ImageComposee>& images, const GeoCarto& mosaique, int fusion,
              TTImage<float>& resultat);
