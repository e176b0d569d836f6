// The demo data set: a procedural aerial-like scene (fields, hedges, woods, a village, roads, fine
// texture) cut into a grid of overlapping 8-bit ortho-image tiles on one map grid, each with a known
// radiometric distortion and ragged no-data borders.
//
// The scene is a function of the global pixel index (column, line) on the common grid, so two tiles
// hold exactly the same scene value at the same map point; only their distortions differ.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zepra/orientedimage.h"

struct ParametresDemo {
  long grille = 3;            // tiles per side
  long taille = 600;          // tile width and height, pixels
  double recouvrement = 0.2;  // overlap of neighbouring tiles, fraction of a tile
  double pixel = 0.5;         // ground pixel size, metres
  uint32_t graine = 1;        // seed of the scene and of the distortions
  // Map coordinates (Lambert zone 2, metres) of the upper-left corner of the first tile.
  double x0 = 600000.0;
  double y0 = 2430000.0;
  int zone = 2;

  // Pixels between the origins of neighbouring tiles.
  int Decalage() const;
  // Refuses, naming the value, what would not make a usable data set.
  void Verifier() const;
};

// The additive distortion of one tile: decalage + penteX * u + penteY * v + vignettage * (u^2 + v^2),
// where u = (column + 0.5 - width / 2) / (width / 2) and v likewise for lines: a degree-2 polynomial of
// the pixel position, the model the job corrects.
struct Distorsion {
  double decalage = 0, penteX = 0, penteY = 0, vignettage = 0;
  double Valeur(double colonne, double ligne, int largeur, int hauteur) const;
};

// Scene value at a global pixel, roughly 30 to 225 before distortion.
double ValeurScene(long long colonne, long long ligne, uint32_t graine);

Distorsion DistorsionTuile(int ligneTuile, int colonneTuile, uint32_t graine);

// The input name of a tile as given to the job ("tuile_L_C.tif": its file is "Ort_tuile_L_C.tif").
std::string NomTuile(int ligneTuile, int colonneTuile);

// One tile: its pixels (0 = no data, 1..255 otherwise) and its map-projected orientation.
TTOrientedImage<unsigned char> GenererTuile(const ParametresDemo& p, int ligneTuile, int colonneTuile);

// Writes every tile as "Ort_" + NomTuile with its .ori and .tfw into the folder (which must exist),
// and "distorsions.txt" describing the grid and each tile's distortion. Returns the input names.
std::vector<std::string> GenererDemo(const ParametresDemo& p, const std::string& dossier);

// ---------------------------------------------------------------------------------------------------
// Tiles with a known truth for the quality benchmark: any place on the scene's pixel grid, any
// degree-2 gain and offset field, noise, exclusion masks, a cloud, a misregistration.

// c[0] + c[1] u + c[2] v + c[3] u^2 + c[4] u v + c[5] v^2, u and v as in Distorsion.
struct ChampDegre2 {
  double c[6] = {};
  double Valeur(double colonne, double ligne, int largeur, int hauteur) const;
};

struct Disque {
  double colonne = 0, ligne = 0, rayon = 0;  // in tile pixels
  bool Contient(double c, double l) const;
};

struct TuileQualite {
  long long colonne0 = 0, ligne0 = 0;  // the scene pixel at the tile's first pixel, as its orientation says
  int largeur = 600, hauteur = 600;
  int numero = 0;                    // seeds its borders and noise
  ChampDegre2 gain, offset;          // value = scene x (1 + gain) + offset + noise
  double bruit = 0;                  // deviation of the noise, grey levels
  int decalageX = 0, decalageY = 0;  // the content is the scene at (column + dx, line + dy)
  bool bordsIrreguliers = true;      // ragged no-data borders
  std::vector<Disque> exclusions;    // masked zones, where the content is spoilt (white)
  Disque nuage;                      // a soft bright cloud added to the content (rayon 0: none)
  double intensiteNuage = 0;
  // value = (scene - offset) / (1 + gain) + noise instead: a distortion that a gain and an offset of
  // degree 2 undo exactly.
  bool inverse = false;

  // The value before rounding of a pixel with the content's scene value s, noise left out.
  double Distordre(double s, int colonne, int ligne) const;
  // The scene value of a pixel's measured value, the distortion undone (what a perfect correction gives).
  double Redresser(double v, int colonne, int ligne) const;
  bool Exclu(int colonne, int ligne) const;
};

// The tile's pixels (0 = no data, 1..255 otherwise) and its orientation on the map grid of p (its
// pixel size, origin and zone; p.graine seeds the scene).
TTOrientedImage<unsigned char> GenererTuileQualite(const ParametresDemo& p, const TuileQualite& t);
// Its exclusion mask: 1 where excluded.
TTImage<unsigned char> MasqueExclusion(const TuileQualite& t);

// ---------------------------------------------------------------------------------------------------
// GeoTIFF tiles for `egalise mosaique`: the same grid of tiles, 1 band (grey) or 3 (RGB), 8-bit, each
// band of each tile with its own known gain and offset, placed by their GeoTIFF tags in EPSG:2154
// (Lambert-93), no-data 0 (tagged), Deflate with the horizontal predictor, tiles of 256 x 256.

// Lambert-93 coordinates of the first tile's upper-left corner, near Paris.
constexpr double kX0Lambert93 = 650000.0, kY0Lambert93 = 6862000.0;

// The true value of band 'bande' (of 'bandes') at a scene value: 1 band is the scene; 3 bands tint it.
double CouleurScene(double scene, int bande, int bandes);

// A band's distortion: value = round(gain * truth + offset(u, v)), kept in 1..255.
struct DistorsionBande {
  double gain = 1;
  Distorsion offset;
};
DistorsionBande DistorsionTuileBande(int ligneTuile, int colonneTuile, int bande, uint32_t graine);

// Writes every tile as NomTuile (p.x0, p.y0 as given: Lambert-93 expected) into the folder (which
// must exist), and "distorsions.txt". Tiles are made by 'fils' threads, each a line at a time.
// Returns the file names.
std::vector<std::string> GenererDemoGeoTIFF(const ParametresDemo& p, int bandes, const std::string& dossier,
                                            int fils);
