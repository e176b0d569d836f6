// What an image file says besides its pixels: the georeferencing tags and the coordinate reference
// system, the no-data value, which extra channel is an alpha, and the tags a reader did not
// interpret (kept so that a writer can copy them). Readers that know none of this give none.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// One TIFF field as read: its tag, field type and count, and its values in host byte order.
struct TagTIFF {
  uint16_t code = 0;
  uint16_t type = 0;
  uint64_t count = 0;
  std::vector<unsigned char> valeurs;
};

// A coordinate reference system as the file carries it. Two sources: the GeoKey directory of a
// GeoTIFF (with its double and ASCII parameters), or the .prj text beside a world file.
struct SystemeReference {
  std::vector<uint16_t> cles;   // GeoKeyDirectory (34735), as read
  std::vector<double> doubles;  // GeoDoubleParams (34736)
  std::string ascii;            // GeoAsciiParams (34737)
  int epsg = 0;                 // ProjectedCSType, else GeographicType, when it gives a code (not 32767)
  bool geographique = false;    // GTModelType says geographic
  std::string wkt;              // .prj text

  bool Connu() const { return epsg != 0 || !cles.empty() || !wkt.empty(); }
};

// Role of an extra sample (TIFF ExtraSamples values).
enum class RoleExtra { kNonPrecise = 0, kAlphaAssocie = 1, kAlphaNonAssocie = 2 };

struct MetadonneesImage {
  // GDAL no-data tag (42113): its text as written and its value; NaN is a valid no-data value.
  bool nodataPresent = false;
  double nodata = 0.0;
  std::string nodataTexte;

  // ExtraSamples, one role per extra channel (the channels after the colour ones).
  std::vector<RoleExtra> extras;
  // Channel index of the alpha band (associated or not), -1 when there is none.
  int canalAlpha = -1;

  // GeoTIFF georeferencing, as read (empty when absent).
  std::vector<double> pixelScale;      // ModelPixelScale (33550)
  std::vector<double> tiepoints;       // ModelTiepoint (33922), six numbers per point
  std::vector<double> transformation;  // ModelTransformation (34264), 16 numbers
  // GTRasterTypeGeoKey: 1 pixel-is-area (the default), 2 pixel-is-point.
  int typeRaster = 1;
  SystemeReference crs;

  // Facts about the file, for messages and reports.
  // Image size from the header (0 when the header gives none): an orientation built from the tags
  // needs it without decoding the pixels.
  long long colonnes = 0;
  long long lignes = 0;
  int compression = 1;
  int photometrique = 1;
  int planaire = 1;
  bool bigtiff = false;
  // A validity mask travels with the image: an internal transparency-mask directory of the image's
  // size, or a .msk file beside it (see OuvrirMasqueValidite in zepra/masque.h).
  bool masqueInterne = false;
  bool masqueExterne = false;

  // Tags the reader did not interpret, each bounded in size.
  std::vector<TagTIFF> autresTags;

  bool Georeference() const { return !tiepoints.empty() || !transformation.empty(); }
};

// The metadata of an image file, read from its header without decoding pixels; null when the file is
// not of a format that carries any (today: TIFF). An Erreur naming the file when it is malformed.
std::unique_ptr<MetadonneesImage> LireMetadonnees(const std::string& nom);
