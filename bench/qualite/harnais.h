// The new model and blendings run in memory on a preset's tiles, as the new front end will run them:
// block statistics gathered by windows, one gain-offset solve, corrected tiles, a blended mosaic.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pipeline/blocs_stats.h"
#include "pipeline/gain_offset.h"
#include "scene_demo.h"

struct TuileMemoire {
  TuileQualite def;
  TTImage<unsigned char> pixels;      // the bytes written to its file
  std::vector<unsigned char> valide;  // not no-data, not excluded
};

// A mosaic on the scene's pixel grid; 0 = no data.
struct Mosaique {
  int largeur = 0, hauteur = 0;
  std::vector<float> v;
  float operator()(int c, int l) const { return v[static_cast<size_t>(l) * largeur + c]; }
};

enum class Fusion { moyenne, plume, multibande };

struct Reglages {
  ParametresGainOffset modele;
  ParametresObservationsBlocs observations;
  int bloc = 16;
  double plume = 60;  // feather width, pixels
  Fusion fusion = Fusion::plume;
  // A radiometric reference on the mosaic grid, 'facteur' times coarser (0: none): largeur x hauteur
  // values, NaN for no data. Solved as --reference: its correction held at identity.
  int referenceFacteur = 0, referenceLargeur = 0, referenceHauteur = 0;
  std::vector<float> reference;
};

// Corrected values of every tile (float, same layout as its pixels); the solve's report in 'resultat'.
std::vector<std::vector<float>> CorrigerGainOffset(const std::vector<TuileMemoire>& tuiles, const Reglages& r,
                                                   ResultatGainOffset* resultat = nullptr);

// Each tile's feathering weights over the whole tile, for a width in pixels.
std::vector<std::vector<float>> PoidsPlumes(const std::vector<TuileMemoire>& tuiles, double largeur);

// The tiles' values (corrected or not) blended onto a mosaic of largeur x hauteur pixels, with the
// weights of PoidsPlumes (for r.plume, or 0 for the plain mean).
Mosaique Composer(const std::vector<TuileMemoire>& tuiles, const std::vector<std::vector<float>>& valeurs,
                  const std::vector<std::vector<float>>& poids, int largeur, int hauteur, const Reglages& r);
