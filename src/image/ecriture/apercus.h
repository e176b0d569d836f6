// Overviews of an image written line by line: each level halves the previous one (sizes rounded
// down, never below 1), a pixel being the mean of the valid pixels of its 2 x 2 block, no-data when
// none is valid. Full-resolution lines come in order and are not kept; each level holds one row of
// tiles and hands it on when it is complete, so memory is one row of tiles per level plus one line.
// Private to src/image.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/infotype.h"

namespace ecriture {

struct FormePyramide {
  TPoint2D<int> taille;                // full resolution
  int canaux = 1;                      // samples per pixel, alpha included
  int canalAlpha = -1;                 // set from the validity, not averaged; -1 without alpha
  eEnumType type = eUInt1;             // the samples, already of the output type
  std::vector<TPoint2D<int>> niveaux;  // sizes of levels 1, 2, ...
  int hauteurRangee = 512;             // rows of a row of tiles, even
  bool nodataPresent = false;
  double nodata = 0.0;
};

// Level n (from 1) has the size floor(size / 2^n), at least 1: the sizes GDAL gives its overviews.
std::vector<TPoint2D<int>> TaillesApercus(const TPoint2D<int>& taille, int niveaux);

class PyramideApercus {
 public:
  // Receives each row of tiles of each level as it completes, rows of a level in order: the level
  // (from 1), its first line, its line count, the samples (interleaved, lines of the level's width,
  // one after the other) and the validity (one byte per pixel, 1 = valid).
  using Puits = std::function<void(int niveau, int y0, int lignes, const unsigned char* donnees,
                                   const unsigned char* valide)>;
  static std::unique_ptr<PyramideApercus> Creer(const FormePyramide& forme, Puits puits);
  virtual ~PyramideApercus() = default;
  // The next full-resolution line (canaux samples per pixel) and its validity (null: all valid).
  virtual void AjouterLigne(const void* ligne, const unsigned char* valide) = 0;
};

}  // namespace ecriture
