// OrientationOld: a value-like facade that owns one ImageOrientation (copies are deep and keep the
// class) and forwards the geometric operations to it. An empty OrientationOld (default constructed)
// refuses every operation with an Erreur.
#pragma once

#include <memory>
#include <string>

#include "zepra/geometrie.h"
#include "zepra/imageorientation.h"

class CartoProjOrientation;
struct SystemeReference;

class OrientationOld {
 public:
  OrientationOld() = default;
  // Reads an orientation: a name ending in .ori, .xml or .hdr (any case) that exists is read as that
  // file; any other name is taken as an image name and its orientation searched beside it
  // (ImageOrientation::CreateImageOrientation: orientation files, then GeoTIFF tags, world files).
  explicit OrientationOld(const char* fichier) { Lire(fichier); }
  explicit OrientationOld(const ImageOrientation& ori) { SetOrientation(ori); }
  // The parameters of the carto kind (the only kind built from numbers); type must be eORICarto.
  OrientationOld(eORIProjType type, double x0, double y0, int zone, long nbColonnes, long nbLignes,
                 double pasX, double pasY);
  OrientationOld(const OrientationOld& autre);
  OrientationOld& operator=(const OrientationOld& autre);
  OrientationOld(OrientationOld&&) noexcept = default;
  OrientationOld& operator=(OrientationOld&&) noexcept = default;
  ~OrientationOld() = default;

  bool EstDefinie() const { return m_ori != nullptr; }

  // Reads (see the constructor). A failed read leaves this orientation unchanged.
  void Lire(const char* fichier);
  // The orientation of an image (ImageOrientation::CreateImageOrientation: its orientation file, else
  // its GeoTIFF tags or world file); when nothing is found the error names the image with the
  // extension .ori, the file oriented images have always looked for.
  void LirePourImage(const char* image);
  // Writes the orientation in its text format. A carto orientation is written as a CARTO file and a
  // world file beside it (same name, extension .tfw). A name ending in .xml or .hdr is refused: the
  // text written would not be read back from such a name. Each file is complete or absent.
  void Sauver(const char* fichier) const;

  eORIProjType GetOriType() const { return Ori().GetOriType(); }
  long long GetNl() const { return Ori().GetNl(); }
  long long GetNs() const { return Ori().GetNs(); }
  void SetNl(long long lignes) { Ori().SetNl(lignes); }
  void SetNs(long long colonnes) { Ori().SetNs(colonnes); }
  double GetPixSize() const { return Ori().GetApproxGroundPixSize(); }
  // Carto only: the same step along X and Y, or both steps.
  void SetPixSize(double pas) { SetPixSize(pas, pas); }
  void SetPixSize(double pasX, double pasY);
  int GetZoneLambert() const;
  // The coordinate reference system of a carto orientation read from GeoTIFF keys or a .prj; null
  // when unknown (CARTO, XML and .hdr files) and for the other kinds.
  const SystemeReference* GetSystemeReference() const;
  void SetZoneLambert(int zone);
  // The map extent (carto: from the first to the last pixel's corner; other kinds: the whole image).
  double GetMinXCarto() const;
  double GetMaxXCarto() const;
  double GetMinYCarto() const;
  double GetMaxYCarto() const;
  std::string GetFileName() const { return m_ori ? m_ori->FileNameToString() : std::string(); }
  std::unique_ptr<ImageOrientation> GetImageOrientationCopy() const {
    return ImageOrientation::MakeCopy(&Ori());
  }
  // The owned object, or null when empty; it stays owned by this facade.
  const ImageOrientation* GetInternalImageOrientation() const { return m_ori.get(); }
  ImageOrientation* GetInternalImageOrientation() { return m_ori.get(); }
  void SetOrientation(const ImageOrientation& ori) { m_ori = ImageOrientation::MakeCopy(&ori); }
  void ChangeOrientation(const OrientationOld& autre) { *this = autre; }
  void SetLocalOrigin(const T3D<double>& o) { Ori().SetLocalOrigin(o); }
  void ChangeLocalOrigin(const T3D<double>& o) { Ori().SetLocalOrigin(o); }
  void SetProjCenter(const T3D<double>& s) { Ori().SetProjCenter(s); }
  void SetPrincipalPoint(const TPoint2D<double>& p) { Ori().SetPrincipalPoint(p); }
  // Whether the map point falls inside the image.
  bool IsVisible(double X, double Y, double Z = 0) const;
  // The orientation of the cut-out [p0, p1) taking every pas-th pixel (not clipped to the image).
  void Crop(const TRectangle<int>& r, int pas = 1);
  // Every facteur-th pixel kept; each pixel split into facteur x facteur (carto only).
  void SousEchantillonnage(int facteur);
  void SurEchantillonnage(int facteur);

  void MapToGround(double X, double Y, double Z, double& x, double& y, double& z) const {
    Ori().MapToGround(X, Y, Z, x, y, z);
  }
  void GroundToMap(double x, double y, double z, double& X, double& Y, double& Z) const {
    Ori().GroundToMap(x, y, z, X, Y, Z);
  }
  void GroundToPhoto(double x, double y, double z, double& c, double& l, double& p) const {
    Ori().GroundToPhoto(x, y, z, c, l, p);
  }
  void GroundToPhoto(double x, double y, double z, double& c, double& l) const {
    Ori().GroundToPhoto(x, y, z, c, l);
  }
  void MapToPhoto(double X, double Y, double Z, double& c, double& l, double& z) const {
    Ori().MapToPhoto(X, Y, Z, c, l, z);
  }
  void PhotoToGroundVect(double c, double l, double v[3]) const { Ori().PhotoToGroundVect(c, l, v); }
  void PhotoAndZToGround(double c, double l, double Z, double& x, double& y) const {
    Ori().PhotoAndZToGround(c, l, Z, x, y);
  }
  void PhotoAndZToMap(double c, double l, double Z, double& X, double& Y) const {
    Ori().PhotoAndZToMap(c, l, Z, X, Y);
  }
  void PhotoAndDepthToGround(double c, double l, double d, double& x, double& y, double& z) const {
    Ori().PhotoAndDepthToGround(c, l, d, x, y, z);
  }
  void PhotoToGround(double c, double l, double& x, double& y, double& z) const {
    Ori().PhotoToGround(c, l, x, y, z);
  }
  void PhotoToMap(double c, double l, double& X, double& Y, double& Z) const {
    Ori().PhotoToMap(c, l, X, Y, Z);
  }
  double GetApproxGroundPixSize() const { return Ori().GetApproxGroundPixSize(); }

  eDistortion GetDistortion() const { return Ori().GetDistortion(); }
  const DistortionPolynome& GetDistortionPolynome() const { return Ori().GetDistortionPolynome(); }
  const DistortionGrid* GetDistortionGrid() const { return Ori().GetDistortionGrid(); }
  void SetDistortion(int modele) { Ori().SetDistortion(modele); }
  void SetDistortionPolynome(double a, double b, double c, double d, double e) {
    Ori().SetDistortionPolynome(a, b, c, d, e);
  }
  void SetDistortionGrid(DistortionGrid* gc, DistortionGrid* gl) { Ori().SetDistortionGrid(gc, gl); }
  void ApplyDistortionGroundToPhoto(double& c, double& l) const { Ori().ApplyDistortionGroundToPhoto(c, l); }
  void ApplyDistortionPhotoToGround(double& c, double& l) const { Ori().ApplyDistortionPhotoToGround(c, l); }

  void GetSolarVector(double v[3]) const { Ori().GetSolarVector(v); }
  void GetSolarVector(double v[3], int a, int mo, int j, int h, int mi) const {
    Ori().GetSolarVector(v, a, mo, j, h, mi);
  }
  T3D<double> GetProjCenter() const { return Ori().GetProjCenter(); }
  TPoint2D<double> GetPrincipalPoint() const { return Ori().GetPrincipalPoint(); }
  T3D<double> GetLocalOrigin() const { return Ori().GetLocalOrigin(); }
  void GetPrincipalAxis(double v[3]) const { Ori().GetPrincipalAxis(v); }
  void GetViewingAxis(double a[3], double b[3], double c[3]) const { Ori().GetViewingAxis(a, b, c); }
  void SetViewingAxis(const double a[3], const double b[3], const double c[3]) {
    Ori().SetViewingAxis(a, b, c);
  }
  double GetFocale() const { return Ori().GetFocale(); }
  void SetFocale(double f) { Ori().SetFocale(f); }
  void GetTime(int& a, int& mo, int& j, int& h, int& mi, int& s) const { Ori().GetTime(a, mo, j, h, mi, s); }
  void SetTime(int a, int mo, int j, int h, int mi, int s) { Ori().SetTime(a, mo, j, h, mi, s); }
  bool CanBeMappedTo(const OrientationOld& autre) const { return Ori().CanBeMappedTo(autre.Ori()); }
  bool GetTranslation(const OrientationOld& autre, long& dCol, long& dLin, long& sCol, long& sLin) const {
    return Ori().GetTranslation(autre.Ori(), dCol, dLin, sCol, sLin);
  }
  GrilleTransformation TransformationGrid(const OrientationOld& autre, int pas = 16) const {
    return Ori().TransformationGrid(autre.Ori(), pas);
  }
  void TransposeImage() { Ori().TransposeImage(); }
  // The orientation of the sub-rectangle [c0, c1] x [l0, l1] (inclusive) resampled by pasC, pasL.
  OrientationOld Extract(double c0, double l0, double c1, double l1, double pasC, double pasL) const;

  void EmpriseCarto(double zMin, double zMax, double c0, double l0, double c1, double l1, double& xMin,
                    double& yMin, double& xMax, double& yMax) const {
    Ori().EmpriseCarto(zMin, zMax, c0, l0, c1, l1, xMin, yMin, xMax, yMax);
  }
  void EmpriseCarto(double zMin, double zMax, double& xMin, double& yMin, double& xMax, double& yMax) const {
    Ori().EmpriseCarto(zMin, zMax, xMin, yMin, xMax, yMax);
  }
  // Carto: from the first to the last pixel's corner.
  void EmpriseCarto(double& xMin, double& yMin, double& xMax, double& yMax) const;
  void EmpriseTerrain(double zMin, double zMax, double c0, double l0, double c1, double l1, double& xMin,
                      double& yMin, double& xMax, double& yMax) const {
    Ori().EmpriseTerrain(zMin, zMax, c0, l0, c1, l1, xMin, yMin, xMax, yMax);
  }
  void EmpriseTerrain(double zMin, double zMax, double& xMin, double& yMin, double& xMax,
                      double& yMax) const {
    Ori().EmpriseTerrain(zMin, zMax, xMin, yMin, xMax, yMax);
  }
  void EmpriseImage(double zMin, double zMax, double xMin, double yMin, double xMax, double yMax, double& c0,
                    double& l0, double& c1, double& l1) const {
    Ori().EmpriseImage(zMin, zMax, xMin, yMin, xMax, yMax, c0, l0, c1, l1);
  }
  void EmpriseImageTerrain(double zMin, double zMax, double xMin, double yMin, double xMax, double yMax,
                           double& c0, double& l0, double& c1, double& l1) const {
    Ori().EmpriseImageTerrain(zMin, zMax, xMin, yMin, xMax, yMax, c0, l0, c1, l1);
  }

 private:
  const ImageOrientation& Ori() const;
  ImageOrientation& Ori();
  CartoProjOrientation& Carto(const char* methode);
  const CartoProjOrientation& Carto(const char* methode) const;

  std::unique_ptr<ImageOrientation> m_ori;
};
