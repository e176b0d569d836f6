// Options of the GeoTIFF writer, as users set them, and the plan of a file decided from them before
// anything is written. These options are not those of the compatibility writes: a file written
// without them keeps the single uncompressed strip it always had.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/infotype.h"
#include "zepra/metadonnees.h"

// TIFF Compression values.
enum class CompressionTIFF { kAucune = 1, kLZW = 5, kJPEG = 7, kDeflate = 8, kZSTD = 50000 };
// TIFF Predictor values; kAuto picks horizontal differencing for integers and the floating-point
// predictor for floats, and none when the compression takes none (none, JPEG).
enum class PredicteurTIFF { kAuto = 0, kAucun = 1, kHorizontal = 2, kFlottant = 3 };
// Classic TIFF (offsets on 32 bits), BigTIFF, or BigTIFF only when the file could pass 4 GiB.
enum class ConteneurTIFF { kClassique, kBigTIFF, kSiNecessaire };
// What the data bands are: kAuto takes colours for 8-bit samples of 3 bands or more, whatever they
// came from; the others say it (GDAL reads Red, Green, Blue or Gray, Undefined...). 3-band JPEG is
// YCbCr whatever is asked.
enum class CouleursTIFF { kAuto, kGris, kRVB };

struct OptionsEcriture {
  CompressionTIFF compression = CompressionTIFF::kDeflate;
  int niveau = 0;    // Deflate 1-12, ZSTD 1-22; 0: the codec's default (6, 9)
  int qualite = 75;  // JPEG 1-100
  PredicteurTIFF predicteur = PredicteurTIFF::kAuto;
  bool tuilee = true;
  int tuile = 512;      // tiles of tuile x tuile pixels, a multiple of 16
  int lignesBande = 0;  // strips: rows per strip, 0 for about 256 KiB of samples per strip
  ConteneurTIFF format = ConteneurTIFF::kSiNecessaire;
  bool planaire = false;          // one plane per sample instead of interleaved samples
  bool cog = false;               // cloud-optimized: tiled, overviews, directories first
  eEnumType type = eIndetermine;  // sample type written; eIndetermine: the data's own
  bool nodataPresent = false;
  double nodata = 0.0;  // may be NaN for float output
  bool alpha = false;   // adds an alpha band (unassociated) after the data bands
  int epsg = 0;         // 0: no code given
  CouleursTIFF couleurs = CouleursTIFF::kAuto;
  bool masque = false;  // an internal mask of the valid pixels (JPEG files always have one)

  bool operator==(const OptionsEcriture& o) const;
};

// Reads options from (name, value) pairs as users give them, later pairs overriding earlier ones:
//   compression  none | lzw | deflate | zstd | jpeg
//   niveau       the Deflate or ZSTD level, or the JPEG quality
//   qualite      the JPEG quality
//   predicteur   auto | none | horizontal | flottant (or 1, 2, 3)
//   tuile        N (tiled, N x N, a multiple of 16)
//   bandes       N rows per strip, or 0 for the default (strips)
//   format       classique | bigtiff | auto
//   entrelacement  pixel | planaire
//   cog, alpha   flags: empty value, oui or non
//   type         uint8 | int8 | uint16 | int16 | uint32 | int32 | float32 | float64
//   nodata       a number, nan, inf or -inf
//   epsg         a code (its existence is checked when the file is planned)
// An unknown name or value, a malformed number or a value out of range is an Erreur naming it.
OptionsEcriture LireOptionsEcriture(const std::vector<std::pair<std::string, std::string>>& valeurs);

// The name users write for a compression ("deflate") and for a sample type ("uint8").
const char* NomCompression(CompressionTIFF c);
const char* NomTypeSortie(eEnumType type);

// The lowest and largest values of a sample type; false (and 0, 0) for a code without an element type.
bool PlageType(eEnumType type, double& bas, double& haut);

// Whether an integer sample type holds the no-data value v (NaN, a fraction or a value out of range
// does not).
bool NodataEntierPossible(double v, eEnumType type);
// Whether any sample type holds it: float64 every value, float32 those of its range (NaN and the
// infinities too), the integer types as above.
bool NodataPossible(double v, eEnumType type);

// Everything about the file decided before any pixel: one value per choice, no "auto" left.
struct PlanEcriture {
  TPoint2D<int> taille;
  int canauxDonnees = 1;  // bands given by the caller
  int canaux = 1;         // bands written: the data bands, plus the alpha band when asked
  eEnumType type = eUInt1;
  int bits = 8;
  CompressionTIFF compression = CompressionTIFF::kAucune;
  int niveau = 0;  // resolved: the codec's default when 0 was asked
  int qualite = 75;
  int predicteur = 1;  // TIFF value
  bool tuilee = false;
  int largeurBloc = 0, hauteurBloc = 0;  // strips: the image's width and the rows per strip
  bool planaire = false;
  bool bigtiff = false;
  bool cog = false;
  // Sizes of the overview levels, largest first (COG only); empty otherwise.
  std::vector<TPoint2D<int>> apercus;
  // The validity as an internal 1-bit mask, one per level: JPEG files and those asked.
  bool masqueInterne = false;
  bool nodataPresent = false;
  double nodata = 0.0;  // already a value of the output type
  bool alpha = false;
  bool rvb = false;  // the first three data bands are red, green and blue

  int BlocsParLigne() const { return (taille.x + largeurBloc - 1) / largeurBloc; }
  int BlocsParColonne() const { return (taille.y + hauteurBloc - 1) / hauteurBloc; }
  // Bytes of the samples of the whole file, overviews and masks included, uncompressed.
  uint64_t OctetsNonCompresses() const;
};

// Decides the file for an image of 'taille' pixels with 'canaux' bands of 'typeDonnees' samples.
// Refuses, with an Erreur naming the file 'nom', what cannot be written: JPEG for anything but 8-bit
// data of 1 or 3 bands, a predictor the sample type does not take, a no-data value the output type
// cannot hold, an EPSG code PROJ does not know, a classic TIFF that would pass 4 GiB, a COG in strips.
PlanEcriture PlanifierEcriture(const OptionsEcriture& options, const TPoint2D<int>& taille, int canaux,
                               eEnumType typeDonnees, const std::string& nom);

// Where the written image lies: the map position of the upper-left corner of its first pixel and the
// pixel steps (X = x0 + col * pasX, Y = y0 - lin * pasY), and its coordinate reference system, which
// may be unknown (a grid from a CARTO .ori alone).
struct GeoreferenceEcriture {
  bool grille = false;
  double x0 = 0, y0 = 0, pasX = 0, pasY = 0;
  SystemeReference crs;
};

// Everything a GeoTIFF is written with besides its pixels: the options, the georeferencing and the
// tags copied from an input (GDAL metadata, software, ...).
struct ParametresGeoTIFF {
  OptionsEcriture options;
  GeoreferenceEcriture georef;
  std::vector<TagTIFF> autresTags;
};

// The no-data value as the GDAL_NODATA tag holds it: "%.18g", or nan, inf, -inf.
std::string TexteNodata(double valeur);
