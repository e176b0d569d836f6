// Coordinate reference systems through PROJ. GeoTIFF keys are built as GDAL builds them, so that
// a file we write and the same grid written by GDAL carry the same keys.
#include "zepra/crs.h"

#include <proj.h>
#include <proj_experimental.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "cles_geotiff.h"
#include "zepra/erreur.h"

namespace {

constexpr double kDegre = 3.14159265358979323846 / 180;

// PROJ objects are owned through these; a context per call keeps the calls thread-safe.
struct FermeContexte {
  void operator()(PJ_CONTEXT* c) const { proj_context_destroy(c); }
};
struct DetruitPJ {
  void operator()(PJ* p) const { proj_destroy(p); }
};
using Contexte = std::unique_ptr<PJ_CONTEXT, FermeContexte>;
using ObjetPJ = std::unique_ptr<PJ, DetruitPJ>;

Contexte NouveauContexte() {
  Contexte c(proj_context_create());
  if (!c) ZEPRA_ERREUR("[Crs] (Contexte) Impossible de creer un contexte PROJ.");
  // Failures are reported by our own messages, not on stderr.
  proj_log_level(c.get(), PJ_LOG_NONE);
  return c;
}

ObjetPJ DepuisBase(PJ_CONTEXT* ctx, PJ_CATEGORY categorie, int code) {
  const std::string texte = std::to_string(code);
  return ObjetPJ(proj_create_from_database(ctx, "EPSG", texte.c_str(), categorie, 0, nullptr));
}

// The unit of the first axis of a CRS's coordinate system: its EPSG code and name.
bool UniteAxe(PJ_CONTEXT* ctx, const PJ* crs, int& code, std::string& nom, double& facteur) {
  ObjetPJ cs(proj_crs_get_coordinate_system(ctx, crs));
  if (!cs) return false;
  const char *nomUnite = nullptr, *autorite = nullptr, *codeUnite = nullptr;
  if (!proj_cs_get_axis_info(ctx, cs.get(), 0, nullptr, nullptr, nullptr, &facteur, &nomUnite, &autorite,
                             &codeUnite))
    return false;
  if (!autorite || std::string(autorite) != "EPSG" || !codeUnite) return false;
  code = std::atoi(codeUnite);
  nom = nomUnite ? nomUnite : "";
  return true;
}

// 9122, "degree (supplier to define representation)", is written as the plain degree, as GDAL does.
int CodeAngulaire(int code) { return code == 9122 ? 9102 : code; }

// Builds a CRS from user-defined keys: a geographic system from its datum or ellipsoid, a projected
// one from its projection code or its coordinate transformation and parameters. Null when the keys
// say something this does not follow.
ObjetPJ DepuisClesUtilisateur(PJ_CONTEXT* ctx, const ClesGeoTIFF& c);

// The system of the keys, the code or the .prj text, or null.
ObjetPJ VersPROJ(PJ_CONTEXT* ctx, const SystemeReference& s) {
  if (!s.cles.empty()) {
    const ClesGeoTIFF c(s);
    const int modele = c.Court(kGTModelType, 0);
    const int projete = c.Court(kProjectedCSType, 0), geographique = c.Court(kGeographicType, 0);
    if (modele == 1 && projete > 0 && projete < 32767) return DepuisBase(ctx, PJ_CATEGORY_CRS, projete);
    if (modele == 2 && geographique > 0 && geographique < 32767)
      return DepuisBase(ctx, PJ_CATEGORY_CRS, geographique);
    return DepuisClesUtilisateur(ctx, c);
  }
  if (s.epsg > 0) return DepuisBase(ctx, PJ_CATEGORY_CRS, s.epsg);
  if (!s.wkt.empty()) return ObjetPJ(proj_create(ctx, s.wkt.c_str()));
  return nullptr;
}

// A name GDAL writes in the geographic citation of user-defined keys ("Datum = ...|"), or "".
std::string NomCitation(const std::string& citation, const std::string& champ) {
  const size_t debut = citation.find(champ + " = ");
  if (debut == std::string::npos) return "";
  const size_t d = debut + champ.size() + 3;
  return citation.substr(d, citation.find('|', d) - d);
}

// PROJ compares the names of datums, ellipsoids and meridians: they are taken from the citation
// GDAL writes, else from the EPSG ellipsoid.
ObjetPJ GeographiqueUtilisateur(PJ_CONTEXT* ctx, const ClesGeoTIFF& c) {
  const int code = c.Court(kGeographicType, 0);
  if (code > 0 && code < 32767) return DepuisBase(ctx, PJ_CATEGORY_CRS, code);
  const int unite = c.Court(kGeogAngularUnits, 9102);
  if (unite != 9102 && unite != 9122) return nullptr;
  ObjetPJ cs(proj_create_ellipsoidal_2D_cs(ctx, PJ_ELLPS2D_LONGITUDE_LATITUDE, "degree", kDegre));
  const int datum = c.Court(kGeogGeodeticDatum, 0);
  if (datum > 0 && datum < 32767) {
    ObjetPJ d(DepuisBase(ctx, PJ_CATEGORY_DATUM, datum));
    if (!d) return nullptr;
    return ObjetPJ(proj_create_geographic_crs_from_datum(ctx, "unknown", d.get(), cs.get()));
  }
  const std::string citation = c.Texte(kGeogCitation);
  std::string nomDatum = NomCitation(citation, "Datum"), nomEllipsoide = NomCitation(citation, "Ellipsoid");
  double a = c.Reel(kGeogSemiMajorAxis, 0), inv = c.Reel(kGeogInvFlattening, -1);
  const int ellipsoide = c.Court(kGeogEllipsoid, 0);
  if (ellipsoide > 0 && ellipsoide < 32767) {
    ObjetPJ e(DepuisBase(ctx, PJ_CATEGORY_ELLIPSOID, ellipsoide));
    double b = 0;
    int calcule = 0;
    if (!e || !proj_ellipsoid_get_parameters(ctx, e.get(), &a, &b, &calcule, &inv)) return nullptr;
    if (nomEllipsoide.empty()) nomEllipsoide = proj_get_name(e.get());
  } else if (inv < 0 && c.Reel(kGeogSemiMinorAxis, 0) > 0) {
    const double b = c.Reel(kGeogSemiMinorAxis, 0);
    inv = a == b ? 0 : a / (a - b);
  }
  if (!(a > 0) || inv < 0) return nullptr;
  const int meridien = c.Court(kGeogPrimeMeridian, 8901);
  const double longitude = meridien == 8901 ? c.Reel(kGeogPrimeMeridianLong, 0) : NAN;
  if (std::isnan(longitude)) return nullptr;
  std::string nomMeridien = NomCitation(citation, "Primem");
  if (nomMeridien.empty()) nomMeridien = longitude == 0 ? "Greenwich" : "unknown";
  const std::string nom = NomCitation(citation, "GCS Name");
  return ObjetPJ(proj_create_geographic_crs(ctx, nom.empty() ? "unknown" : nom.c_str(),
                                            nomDatum.empty() ? "unknown" : nomDatum.c_str(),
                                            nomEllipsoide.empty() ? "unknown" : nomEllipsoide.c_str(), a, inv,
                                            nomMeridien.c_str(), longitude, "degree", kDegre, cs.get()));
}

ObjetPJ ConversionUtilisateur(PJ_CONTEXT* ctx, const ClesGeoTIFF& c) {
  const int projection = c.Court(kProjection, 0);
  if (projection > 0 && projection < 32767)
    return DepuisBase(ctx, PJ_CATEGORY_COORDINATE_OPERATION, projection);
  auto r = [&](uint16_t cle) { return c.Reel(cle, 0); };
  const char* m = "metre";
  // Natural origin, else the centre, as the transformations use either.
  const double latO = c.Present(kProjNatOriginLat) ? r(kProjNatOriginLat) : r(kProjCenterLat);
  const double lonO = c.Present(kProjNatOriginLong) ? r(kProjNatOriginLong) : r(kProjCenterLong);
  const double fe = c.Present(kProjFalseEasting) ? r(kProjFalseEasting) : r(kProjFalseOriginEasting);
  const double fn = c.Present(kProjFalseNorthing) ? r(kProjFalseNorthing) : r(kProjFalseOriginNorthing);
  const double k =
      c.Present(kProjScaleAtNatOrigin) ? r(kProjScaleAtNatOrigin) : c.Reel(kProjScaleAtCenter, 1);
  switch (c.Court(kProjCoordTrans, 0)) {
    case 1:
      return ObjetPJ(
          proj_create_conversion_transverse_mercator(ctx, latO, lonO, k, fe, fn, "degree", kDegre, m, 1));
    case 7:
      return ObjetPJ(
          proj_create_conversion_mercator_variant_a(ctx, latO, lonO, k, fe, fn, "degree", kDegre, m, 1));
    case 8:
      return ObjetPJ(proj_create_conversion_lambert_conic_conformal_2sp(
          ctx, r(kProjFalseOriginLat), r(kProjFalseOriginLong), r(kProjStdParallel1), r(kProjStdParallel2),
          r(kProjFalseOriginEasting), r(kProjFalseOriginNorthing), "degree", kDegre, m, 1));
    case 9:
      return ObjetPJ(proj_create_conversion_lambert_conic_conformal_1sp(ctx, latO, lonO, k, fe, fn, "degree",
                                                                        kDegre, m, 1));
    case 10:
      return ObjetPJ(proj_create_conversion_lambert_azimuthal_equal_area(ctx, latO, lonO, fe, fn, "degree",
                                                                         kDegre, m, 1));
    case 11:
      return ObjetPJ(proj_create_conversion_albers_equal_area(
          ctx, r(kProjFalseOriginLat), r(kProjFalseOriginLong), r(kProjStdParallel1), r(kProjStdParallel2),
          r(kProjFalseOriginEasting), r(kProjFalseOriginNorthing), "degree", kDegre, m, 1));
    case 15:
      return ObjetPJ(proj_create_conversion_polar_stereographic_variant_a(
          ctx, latO, c.Present(kProjStraightVertPoleLong) ? r(kProjStraightVertPoleLong) : lonO, k, fe, fn,
          "degree", kDegre, m, 1));
    case 16:
      return ObjetPJ(
          proj_create_conversion_oblique_stereographic(ctx, latO, lonO, k, fe, fn, "degree", kDegre, m, 1));
    case 17:
      return ObjetPJ(proj_create_conversion_equidistant_cylindrical(ctx, r(kProjStdParallel1), lonO, fe, fn,
                                                                    "degree", kDegre, m, 1));
    default:
      return nullptr;
  }
}

ObjetPJ DepuisClesUtilisateur(PJ_CONTEXT* ctx, const ClesGeoTIFF& c) {
  const int modele = c.Court(kGTModelType, 0);
  if (modele != 1 && modele != 2) return nullptr;
  ObjetPJ geographique = GeographiqueUtilisateur(ctx, c);
  if (!geographique || modele == 2) return geographique;
  if (c.Court(kProjLinearUnits, 9001) != 9001) return nullptr;
  ObjetPJ conversion = ConversionUtilisateur(ctx, c);
  if (!conversion) return nullptr;
  ObjetPJ cs(proj_create_cartesian_2D_cs(ctx, PJ_CART2D_EASTING_NORTHING, "metre", 1));
  return ObjetPJ(proj_create_projected_crs(ctx, "unknown", geographique.get(), conversion.get(), cs.get()));
}

// The EPSG code PROJ gives the system with full confidence, or 0.
int IdentifierEpsg(PJ_CONTEXT* ctx, const PJ* crs) {
  int* confiances = nullptr;
  PJ_OBJ_LIST* liste = proj_identify(ctx, crs, "EPSG", nullptr, &confiances);
  int code = 0;
  if (liste) {
    for (int i = 0; i < proj_list_get_count(liste) && code == 0; ++i) {
      if (confiances[i] < 100) continue;
      ObjetPJ candidat(proj_list_get(ctx, liste, i));
      const char* id = candidat ? proj_get_id_code(candidat.get(), 0) : nullptr;
      if (id) code = std::atoi(id);
    }
    proj_list_destroy(liste);
  }
  proj_int_list_destroy(confiances);
  return code;
}

}  // namespace

SystemeReference CrsDepuisEpsg(int code) {
  Contexte ctx = NouveauContexte();
  ObjetPJ crs = DepuisBase(ctx.get(), PJ_CATEGORY_CRS, code);
  if (!crs) ZEPRA_ERREUR("[Crs] (DepuisEpsg) Code EPSG " << code << " inconnu.");
  const PJ_TYPE type = proj_get_type(crs.get());
  const bool projete = type == PJ_TYPE_PROJECTED_CRS;
  if (!projete && type != PJ_TYPE_GEOGRAPHIC_2D_CRS)
    ZEPRA_ERREUR("[Crs] (DepuisEpsg) Le code EPSG " << code << " (" << proj_get_name(crs.get())
                                                    << ") n'est ni un systeme projete ni un systeme "
                                                       "geographique 2D.");
  if (code >= 32767)
    ZEPRA_ERREUR("[Crs] (DepuisEpsg) Code EPSG " << code << " trop grand pour une cle GeoTIFF.");
  ObjetPJ geodesique(proj_crs_get_geodetic_crs(ctx.get(), crs.get()));
  int uniteAngle = 0, uniteLongueur = 0;
  std::string nom;
  double facteur = 0;
  if (!geodesique || !UniteAxe(ctx.get(), geodesique.get(), uniteAngle, nom, facteur) ||
      (projete && !UniteAxe(ctx.get(), crs.get(), uniteLongueur, nom, facteur)))
    ZEPRA_ERREUR("[Crs] (DepuisEpsg) Unites du code EPSG " << code << " introuvables.");

  ConstructeurCles cles;
  cles.Court(kGTModelType, projete ? 1 : 2);
  cles.Court(kGTRasterType, 1);
  if (projete) {
    cles.Texte(kGTCitation, proj_get_name(crs.get()));
    cles.Texte(kGeogCitation, proj_get_name(geodesique.get()));
    cles.Court(kGeogAngularUnits, CodeAngulaire(uniteAngle));
    cles.Court(kProjectedCSType, code);
    cles.Court(kProjLinearUnits, uniteLongueur);
  } else {
    ObjetPJ ellipsoide(proj_get_ellipsoid(ctx.get(), crs.get()));
    double a = 0, b = 0, inv = 0;
    int calcule = 0;
    if (!ellipsoide || !proj_ellipsoid_get_parameters(ctx.get(), ellipsoide.get(), &a, &b, &calcule, &inv))
      ZEPRA_ERREUR("[Crs] (DepuisEpsg) Ellipsoide du code EPSG " << code << " introuvable.");
    cles.Court(kGeographicType, code);
    cles.Texte(kGeogCitation, proj_get_name(crs.get()));
    cles.Court(kGeogAngularUnits, CodeAngulaire(uniteAngle));
    // GDAL stores the inverse flattening first, rounded to the 15 digits of its WKT.
    char texte[32];
    std::snprintf(texte, sizeof texte, "%.15g", inv);
    inv = std::strtod(texte, nullptr);
    cles.Reel(kGeogInvFlattening, inv);
    cles.Reel(kGeogSemiMajorAxis, a);
  }
  SystemeReference s = cles.Construire();
  s.epsg = code;
  s.geographique = !projete;
  return s;
}

SystemeReference CrsPourEcriture(const SystemeReference& lu) {
  if (!lu.cles.empty()) {
    SystemeReference s = lu;
    ClesGeoTIFF(s).Verifier();
    FixerCourt(s, kGTRasterType, 1);
    return s;
  }
  int code = lu.epsg;
  if (code == 0 && !lu.wkt.empty()) {
    Contexte ctx = NouveauContexte();
    ObjetPJ crs(proj_create(ctx.get(), lu.wkt.c_str()));
    if (crs) code = IdentifierEpsg(ctx.get(), crs.get());
  }
  if (code == 0) return SystemeReference();
  SystemeReference s = CrsDepuisEpsg(code);
  s.wkt = lu.wkt;
  return s;
}

EgaliteCrs ComparerCrs(const SystemeReference& a, const SystemeReference& b) {
  if (!a.cles.empty() && !b.cles.empty() && MemesCles(a, b)) return EgaliteCrs::kMeme;
  Contexte ctx = NouveauContexte();
  ObjetPJ pa = VersPROJ(ctx.get(), a), pb = VersPROJ(ctx.get(), b);
  if (!pa || !pb) return EgaliteCrs::kIndecidable;
  return proj_is_equivalent_to_with_ctx(ctx.get(), pa.get(), pb.get(),
                                        PJ_COMP_EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS)
             ? EgaliteCrs::kMeme
             : EgaliteCrs::kDifferent;
}

std::string DecrireCrs(const SystemeReference& s) {
  if (!s.cles.empty()) {
    const ClesGeoTIFF c(s);
    const int modele = c.Court(kGTModelType, 0);
    const int code = modele == 2 ? c.Court(kGeographicType, 0) : c.Court(kProjectedCSType, 0);
    if (code > 0 && code < 32767) return "EPSG:" + std::to_string(code);
    const std::string citation = c.Texte(modele == 2 ? kGeogCitation : kGTCitation);
    if (!citation.empty()) return citation;
  }
  if (s.epsg > 0) return "EPSG:" + std::to_string(s.epsg);
  return s.wkt.empty() ? "inconnu" : "WKT (.prj)";
}
