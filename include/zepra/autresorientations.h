// The members of the orientation family whose geometry this tool does not know: conic, axonometric,
// scan, spheric and grid. The factory routes their files here; each reader checks what is known of
// its file (the first word) and then refuses it, naming the model as not supported. Their objects
// can only come from copies of an object of the same type code; every geometric operation refuses.
#pragma once

#include <string>

#include "zepra/imageorientation.h"

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
  const char* Modele() const { return m_modele; }

 protected:
  OrientationNonSupportee(eORIProjType type, const char* classe, const char* modele);
  // Copy of 'source', which must have the type code 'type'; otherwise 'messageType' is raised.
  OrientationNonSupportee(const ImageOrientation& source, eORIProjType type, const char* classe,
                          const char* modele, const char* messageType);
  // Reads the first word of the file; a word that is not one of the 'attendus' (null-terminated list)
  // raises 'messageMot', followed by the file name; otherwise the model is refused as not supported.
  [[noreturn]] static void LireEtRefuser(const char* fichier, const char* classe, const char* modele,
                                         const char* const* attendus, const char* messageMot);
  [[noreturn]] void NonSupporte(const char* operation) const;

 private:
  const char* m_classe;
  const char* m_modele;
  long long m_nbColonnes = 0;
  long long m_nbLignes = 0;
};

// Conic (central) projection of a camera, with distortion. Its files begin with "TEXT".
class ConicProjOrientation : public OrientationNonSupportee {
 public:
  explicit ConicProjOrientation(const char* fichier);
  ConicProjOrientation(const ImageOrientation& source);
  ConicProjOrientation(const ConicProjOrientation& s)
      : ConicProjOrientation(static_cast<const ImageOrientation&>(s)) {}
  size_t SizeOf() const override { return sizeof(*this); }
};

// Parallel projection on a tilted plane. Its files begin with "AXONO"; it shares the Lambert zone
// checks of the carto model with its own messages and refuses what a parallel projection has not.
class AxonoProjOrientation : public OrientationNonSupportee {
 public:
  explicit AxonoProjOrientation(const char* fichier);
  AxonoProjOrientation(const ImageOrientation& source);
  AxonoProjOrientation(const AxonoProjOrientation& s)
      : AxonoProjOrientation(static_cast<const ImageOrientation&>(s)) {}
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

// A conic image seen through a scanner's affine transform. Its files begin with "SCAN".
class ScanProjOrientation : public OrientationNonSupportee {
 public:
  explicit ScanProjOrientation(const char* fichier);
  ScanProjOrientation(const ImageOrientation& source);
  ScanProjOrientation(const ScanProjOrientation& s)
      : ScanProjOrientation(static_cast<const ImageOrientation&>(s)) {}
  size_t SizeOf() const override { return sizeof(*this); }
};

// Spherical (panoramic) image. Its files begin with "SPHERIC".
class SphericOrientation : public OrientationNonSupportee {
 public:
  explicit SphericOrientation(const char* fichier);
  SphericOrientation(const ImageOrientation& source);
  SphericOrientation(const SphericOrientation& s)
      : SphericOrientation(static_cast<const ImageOrientation&>(s)) {}
  size_t SizeOf() const override { return sizeof(*this); }
};

// Orientation given by a localisation grid. Its files begin with "VERSION" or "<?xml".
class GrilleProjOrientation : public OrientationNonSupportee {
 public:
  explicit GrilleProjOrientation(const char* fichier);
  GrilleProjOrientation(const ImageOrientation& source);
  GrilleProjOrientation(const GrilleProjOrientation& s)
      : GrilleProjOrientation(static_cast<const ImageOrientation&>(s)) {}
  size_t SizeOf() const override { return sizeof(*this); }
};
