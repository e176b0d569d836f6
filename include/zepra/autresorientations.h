// The members of the orientation family whose geometry this tool does not know: conic, axonometric,
// scan, spheric and grid. The factory routes their files here; each reader checks what is known of
// its file (the first word) and then refuses it, naming the model as not supported. Their objects
// can only come from copies of an object of the same type code; every geometric operation refuses.
#pragma once

#include <string>

#include "zepra/imageorientation.h"

// What tells one unsupported model from another (type code, names and texts of its messages, the
// first words of its files); one description per model, in autresorientations.cpp.
struct ModeleNonSupporte;

// Shared base: the image size is all that is held.
class OrientationNonSupportee : public ImageOrientation {
 public:
  void Dump(const char* fichier, int texte) const override;
  using ImageOrientation::Dump;
  void MapToGround(double, double, double, double&, double&, double&) const override;
  void GroundToMap(double, double, double, double&, double&, double&) const override;
  void GroundToPhoto(double, double, double, double&, double&, double&) const override;
  void GroundToPhoto(double, double, double, double&, double&) const override;
  void MapToPhoto(double, double, double, double&, double&, double&) const override;
  void PhotoToGroundVect(double, double, double[3]) const override;
  void PhotoAndZToGround(double, double, double, double&, double&) const override;
  void PhotoAndDepthToGround(double, double, double, double&, double&, double&) const override;
  void PhotoToGround(double, double, double&, double&, double&) const override;
  void PhotoToMap(double, double, double&, double&, double&) const override;
  double GetApproxGroundPixSize() const override;
  void GetSolarVector(double[3]) const override;
  void GetSolarVector(double[3], int, int, int, int, int) const override;
  std::unique_ptr<ImageOrientation> Extract(double, double, double, double, double, double) const override;
  T3D<double> GetProjCenter() const override;
  TPoint2D<double> GetPrincipalPoint() const override;
  T3D<double> GetLocalOrigin() const override;
  void GetPrincipalAxis(double[3]) const override;
  void GetViewingAxis(double[3], double[3], double[3]) const override;
  void SetViewingAxis(const double[3], const double[3], const double[3]) override;
  double GetFocale() const override;
  void SetFocale(double) override;
  void GetTime(int&, int&, int&, int&, int&, int&) const override;
  void SetTime(int, int, int, int, int, int) override;
  bool CanBeMappedTo(const ImageOrientation&) const override { return false; }
  bool GetTranslation(const ImageOrientation&, long&, long&, long&, long&) const override { return false; }
  void TransposeImage() override;
  long long GetNs() const override { return m_nbColonnes; }
  long long GetNl() const override { return m_nbLignes; }
  void SetNs(long long colonnes) override { m_nbColonnes = colonnes; }
  void SetNl(long long lignes) override { m_nbLignes = lignes; }

  // The model's name in messages ("conique", ...).
  const char* Modele() const;

 protected:
  // Reads the first word of the file: a word the model's files do not begin with is refused with the
  // model's own text, followed by the file name; otherwise the model is refused as not supported.
  // Never returns.
  OrientationNonSupportee(const ModeleNonSupporte& modele, const char* fichier);
  // The same on the bytes of that file, already read.
  OrientationNonSupportee(const ModeleNonSupporte& modele, const char* fichier, const std::string& contenu);
  // Copy of 'source', which must have the model's type code.
  OrientationNonSupportee(const ModeleNonSupporte& modele, const ImageOrientation& source);
  [[noreturn]] void NonSupporte(const char* operation) const;

 private:
  const ModeleNonSupporte* m_modele;
  long long m_nbColonnes = 0;
  long long m_nbLignes = 0;
};

// One class per model, the same in all but its description: the type code selects it.
template <eORIProjType Type>
class OrientationModele : public OrientationNonSupportee {
 public:
  explicit OrientationModele(const char* fichier);
  OrientationModele(const char* fichier, const std::string& contenu);
  OrientationModele(const ImageOrientation& source);
  OrientationModele(const OrientationModele& s)
      : OrientationModele(static_cast<const ImageOrientation&>(s)) {}
  size_t SizeOf() const override { return sizeof(*this); }
};

extern template class OrientationModele<eORIConic>;
extern template class OrientationModele<eORIAxono>;
extern template class OrientationModele<eORIScan>;
extern template class OrientationModele<eORISpheric>;
extern template class OrientationModele<eORIGrille>;

// Conic (central) projection of a camera, with distortion. Its files begin with "TEXT".
using ConicProjOrientation = OrientationModele<eORIConic>;
// A conic image seen through a scanner's affine transform. Its files begin with "SCAN".
using ScanProjOrientation = OrientationModele<eORIScan>;
// Spherical (panoramic) image. Its files begin with "SPHERIC".
using SphericOrientation = OrientationModele<eORISpheric>;
// Orientation given by a localisation grid. Its files begin with "VERSION" or "<?xml".
using GrilleProjOrientation = OrientationModele<eORIGrille>;

// Parallel projection on a tilted plane. Its files begin with "AXONO"; it shares the Lambert zone
// checks of the carto model with its own messages and refuses what a parallel projection has not.
class AxonoProjOrientation : public OrientationModele<eORIAxono> {
 public:
  using OrientationModele<eORIAxono>::OrientationModele;
  size_t SizeOf() const override { return sizeof(*this); }

  void Dump(const char* fichier, int texte) const override;
  using ImageOrientation::Dump;
  void GetSolarVector(double v[3]) const override;
  void GetSolarVector(double v[3], int, int, int, int, int) const override;
  double GetFocale() const override;
  void SetFocale(double) override;
  void GetTime(int&, int&, int&, int&, int&, int&) const override;
  void SetTime(int, int, int, int, int, int) override;
  void TransposeImage() override;
  std::unique_ptr<ImageOrientation> Extract(double c0, double l0, double c1, double l1, double pasC,
                                            double pasL) const override;

  // The zone checks of the carto model: may add the zone millions to y0; throws on refusal.
  static void VerifieZone(int zone, double& y0);
};
