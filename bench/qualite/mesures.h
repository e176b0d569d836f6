// The quality figures of a mosaic against the known truth, and of corrected tiles against each other.
#pragma once

#include <cstdint>
#include <vector>

#include "harnais.h"

// The truth on the mosaic grid: the scene where some tile has valid content, and what every figure
// leaves out (the cloud's footprint).
struct Verite {
  int largeur = 0, hauteur = 0;
  std::vector<float> T;
  std::vector<unsigned char> couverte;  // some tile has valid, cloud-free content here
  // The connected group of overlapping tiles each pixel belongs to (0 where no tile is), from 1.
  std::vector<unsigned char> groupe;
  int nbGroupes = 0;
};

Verite FaireVerite(const ParametresDemo& p, const std::vector<TuileMemoire>& tuiles);

// Per mosaic pixel, the set of tiles that contribute (bit i for tile i), from each tile's validity.
std::vector<uint64_t> Ensembles(const std::vector<TuileMemoire>& tuiles,
                                const std::vector<std::vector<unsigned char>>& valide, int largeur,
                                int hauteur);

// The validity of each tile as the compatibility driver composes: its masks (the exclusion masks when
// given, else the no-data pixels) widened by a disc of radius 10 pixels inside the tile, and no-data.
std::vector<std::vector<unsigned char>> ValiditeDilatee(const std::vector<TuileMemoire>& tuiles,
                                                        bool masques);

struct Mesures {
  double brut = 0;              // RMSE after one global gain and offset fit
  double tendance = 0;          // ... and one degree-2 offset surface of map position
  double tendanceGain = 0;      // ... and one degree-2 gain surface too
  double bassesFrequences = 0;  // RMSE of the 64 x 64 block means of the first fit's error
  double raccord = 0;           // mean gradient across seams over the same in the truth
  double ailleurs = 0;          // mean gradient across the other neighbour pairs over the same in the truth
  double nettete = 0;           // mean gradient magnitude over the same in the truth
};

// Figures over the pixels of 'commun' (where the truth and every compared mosaic have data); seams are
// where the contributing set changes.
Mesures Mesurer(const Verite& v, const Mosaique& m, const std::vector<unsigned char>& commun,
                const std::vector<uint64_t>& ensembles);

// Root mean square difference of the tiles' values over the pixels two tiles both hold valid, outside
// the cloud.
double RmseRecouvrement(const Verite& v, const std::vector<TuileMemoire>& tuiles,
                        const std::vector<std::vector<float>>& valeurs);
