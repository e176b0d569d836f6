// GeoTIFF keys: reading a key directory with its parameters, and building one. The directory is a
// header (version, revision, minor revision, number of keys) then four shorts per key, sorted by
// key: id, location (0: the value is the fourth short; 34736: doubles; 34737: ASCII; 34735: shorts
// after the directory), count, value or index. Private to src/image.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zepra/metadonnees.h"

enum CleGeoTIFF : uint16_t {
  kGTModelType = 1024,
  kGTRasterType = 1025,
  kGTCitation = 1026,
  kGeographicType = 2048,
  kGeogCitation = 2049,
  kGeogGeodeticDatum = 2050,
  kGeogPrimeMeridian = 2051,
  kGeogAngularUnits = 2054,
  kGeogEllipsoid = 2056,
  kGeogSemiMajorAxis = 2057,
  kGeogSemiMinorAxis = 2058,
  kGeogInvFlattening = 2059,
  kGeogPrimeMeridianLong = 2061,
  kProjectedCSType = 3072,
  kProjection = 3074,
  kProjCoordTrans = 3075,
  kProjLinearUnits = 3076,
  kProjStdParallel1 = 3078,
  kProjStdParallel2 = 3079,
  kProjNatOriginLong = 3080,
  kProjNatOriginLat = 3081,
  kProjFalseEasting = 3082,
  kProjFalseNorthing = 3083,
  kProjFalseOriginLong = 3084,
  kProjFalseOriginLat = 3085,
  kProjFalseOriginEasting = 3086,
  kProjFalseOriginNorthing = 3087,
  kProjCenterLong = 3088,
  kProjCenterLat = 3089,
  kProjScaleAtNatOrigin = 3092,
  kProjScaleAtCenter = 3093,
  kProjStraightVertPoleLong = 3095,
};

constexpr uint16_t kTagGeoKeyDirectory = 34735, kTagGeoDoubleParams = 34736, kTagGeoAsciiParams = 34737;

// Looks keys up in a system's directory. Absent keys, and keys whose values lie outside their
// parameters, give the default.
class ClesGeoTIFF {
 public:
  explicit ClesGeoTIFF(const SystemeReference& s) : m_s(s) {}
  bool Present(uint16_t cle) const { return Entree(cle) != nullptr; }
  int Court(uint16_t cle, int defaut) const;
  double Reel(uint16_t cle, double defaut) const;
  std::string Texte(uint16_t cle) const;
  // An Erreur when the header's count or an entry's location, count or index does not fit.
  void Verifier() const;

 private:
  const uint16_t* Entree(uint16_t cle) const;
  const SystemeReference& m_s;
};

// Sets a key held in the directory itself (location 0), inserting it in key order when absent.
void FixerCourt(SystemeReference& s, uint16_t cle, uint16_t valeur);

// The same keys and parameters, the raster type aside.
bool MemesCles(const SystemeReference& a, const SystemeReference& b);

// Builds a directory, version 1.1.0 as GDAL writes it; keys may come in any order and are sorted.
// Parameters are stored in the order they are given; each ASCII value ends with '|'.
class ConstructeurCles {
 public:
  void Court(uint16_t cle, int valeur);
  void Reel(uint16_t cle, double valeur);
  void Texte(uint16_t cle, const std::string& valeur);
  SystemeReference Construire() const;

 private:
  struct Cle {
    uint16_t id, lieu, nombre, valeur;
  };
  std::vector<Cle> m_cles;
  std::vector<double> m_doubles;
  std::string m_ascii;
};
