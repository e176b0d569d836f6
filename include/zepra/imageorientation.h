// ImageOrientation: the geometric model that ties the pixels of an image to the ground, base of one
// class per kind of geometry, and the factory that finds and reads the orientation file of an image.
//
// Image (photo) coordinates are (column, line), real, (0, 0) at the upper-left corner of the first
// pixel. Map coordinates are (X, Y) in metres, X east, Y north. Every factory returns a new object
// owned by the caller; every failure is an Erreur.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zepra/geometrie.h"

enum eORIProjType : int32_t {
  eORINone = 0,
  eORICarto = 1,
  eORIConic = 2,
  eORIAxono = 3,
  eORIScan = 4,
  eORISpheric = 5,
  eORIGrille = 6,
};

// The distortion models an orientation may carry; classes without distortion keep none.
enum eDistortion : int32_t { eDistortionAucune = 0, eDistortionPolynome = 1, eDistortionGrille = 2 };

// A radial polynomial distortion, five coefficients.
struct DistortionPolynome {
  double coef[5] = {0, 0, 0, 0, 0};
};

// A distortion grid for one direction: nbColonnes x nbLignes values, one node every 'pas' pixels.
struct DistortionGrid {
  int nbColonnes = 0;
  int nbLignes = 0;
  double pas = 0;
  std::vector<double> valeurs;
};

// Where the pixels of one orientation fall in another: for nodes every 'pas' pixels of this image
// (the last column and line included), the photo position in the other image.
struct GrilleTransformation {
  int pas = 0;
  int nbColonnes = 0;
  int nbLignes = 0;
  std::vector<TPoint2D<double>> positions;  // line after line
};

class ImageOrientation {
 public:
  // Virtual operations, in slot order.
  // Writes the orientation to a file: text = 1 in the class's text format, text = 0 in binary.
  virtual void Dump(const char* fichier, int texte) const = 0;
  // Writes a one-line description to the log.
  virtual void Dump() const;
  virtual ~ImageOrientation() = default;
  virtual void MapToGround(double X, double Y, double Z, double& x, double& y, double& z) const = 0;
  virtual void GroundToMap(double x, double y, double z, double& X, double& Y, double& Z) const = 0;
  virtual void GroundToPhoto(double x, double y, double z, double& col, double& lin, double& prof) const = 0;
  virtual void GroundToPhoto(double x, double y, double z, double& col, double& lin) const = 0;
  virtual void MapToPhoto(double X, double Y, double Z, double& col, double& lin, double& z) const = 0;
  // Direction of the ray through a pixel.
  virtual void PhotoToGroundVect(double col, double lin, double v[3]) const = 0;
  virtual void PhotoAndZToGround(double col, double lin, double Z, double& x, double& y) const = 0;
  // PhotoAndZToGround, then GroundToMap.
  virtual void PhotoAndZToMap(double col, double lin, double Z, double& X, double& Y) const;
  virtual void PhotoAndDepthToGround(double col, double lin, double prof, double& x, double& y,
                                     double& z) const = 0;
  virtual void PhotoToGround(double col, double lin, double& x, double& y, double& z) const = 0;
  virtual void PhotoToMap(double col, double lin, double& X, double& Y, double& Z) const = 0;
  // Ground size of a pixel, metres.
  virtual double GetApproxGroundPixSize() const = 0;

  virtual eDistortion GetDistortion() const { return m_distortion; }
  virtual const DistortionPolynome& GetDistortionPolynome() const { return m_polynome; }
  // The two grids (columns, lines).
  virtual const DistortionGrid* GetDistortionGrid() const { return m_grilles; }
  virtual DistortionPolynome& GetDistortionPolynome() { return m_polynome; }
  virtual DistortionGrid* GetDistortionGrid() { return m_grilles; }
  virtual void SetDistortion(int modele);
  virtual void SetDistortionPolynome(double a, double b, double c, double d, double e);
  // Copies the two grids (columns, lines); neither may be null.
  virtual void SetDistortionGrid(DistortionGrid* colonnes, DistortionGrid* lignes);
  // Identity without distortion. The polynomial and grid formulas are not known to this tool: an
  // orientation carrying one cannot be applied, and says so.
  virtual void ApplyDistortionGroundToPhoto(double& col, double& lin) const;
  virtual void ApplyDistortionPhotoToGround(double& col, double& lin) const;

  virtual void GetSolarVector(double v[3]) const = 0;
  virtual void GetSolarVector(double v[3], int annee, int mois, int jour, int heure, int minute) const = 0;
  // Orientation of the sub-rectangle [c0, c1] x [l0, l1] (inclusive, in pixels of this image)
  // resampled by the factors pasC, pasL.
  virtual std::unique_ptr<ImageOrientation> Extract(double c0, double l0, double c1, double l1, double pasC,
                                                    double pasL) const = 0;
  virtual T3D<double> GetProjCenter() const = 0;
  virtual TPoint2D<double> GetPrincipalPoint() const = 0;
  virtual T3D<double> GetLocalOrigin() const = 0;
  virtual void GetPrincipalAxis(double v[3]) const = 0;
  virtual void GetViewingAxis(double a[3], double b[3], double c[3]) const = 0;
  virtual void SetViewingAxis(const double a[3], const double b[3], const double c[3]) = 0;
  virtual double GetFocale() const = 0;
  virtual void SetFocale(double focale) = 0;
  virtual void GetTime(int& annee, int& mois, int& jour, int& heure, int& minute, int& seconde) const = 0;
  virtual void SetTime(int annee, int mois, int jour, int heure, int minute, int seconde) = 0;
  // The name of the file the orientation was read from; empty when built from numbers.
  virtual std::string FileNameToString() const { return m_fichier; }
  virtual bool CanBeMappedTo(const ImageOrientation& autre) const = 0;
  // Whether 'autre' lies on this grid up to an integer offset and integer sub-sampling factors.
  virtual bool GetTranslation(const ImageOrientation& autre, long& dCol, long& dLin, long& sCol,
                              long& sLin) const = 0;
  // Requires CanBeMappedTo(autre). Nodes every 'pas' pixels.
  virtual GrilleTransformation TransformationGrid(const ImageOrientation& autre, int pas = 16) const;
  virtual void TransposeImage() = 0;
  virtual size_t SizeOf() const = 0;

  // Image size, used by the whole-image extents and the consistency checks of oriented images.
  virtual long long GetNs() const = 0;  // columns
  virtual long long GetNl() const = 0;  // lines
  virtual void SetNs(long long colonnes) = 0;
  virtual void SetNl(long long lignes) = 0;
  // Camera-side setters; a kind without the notion refuses them.
  virtual void SetProjCenter(const T3D<double>& sommet);
  virtual void SetPrincipalPoint(const TPoint2D<double>& pp);
  virtual void SetLocalOrigin(const T3D<double>& origine);

  eORIProjType GetOriType() const { return static_cast<eORIProjType>(m_type); }

  // Bounding boxes of the corners of a rectangle at two heights (eight points), minimum and maximum.
  void EmpriseCarto(double zMin, double zMax, double col0, double lin0, double col1, double lin1,
                    double& xMin, double& yMin, double& xMax, double& yMax) const;
  // The whole image, from the corner of its first pixel to the far corner of its last one.
  void EmpriseCarto(double zMin, double zMax, double& xMin, double& yMin, double& xMax, double& yMax) const;
  void EmpriseTerrain(double zMin, double zMax, double col0, double lin0, double col1, double lin1,
                      double& xMin, double& yMin, double& xMax, double& yMax) const;
  void EmpriseTerrain(double zMin, double zMax, double& xMin, double& yMin, double& xMax, double& yMax) const;
  // A map (or ground) rectangle at two heights brought into image coordinates.
  void EmpriseImage(double zMin, double zMax, double xMin, double yMin, double xMax, double yMax,
                    double& col0, double& lin0, double& col1, double& lin1) const;
  void EmpriseImageTerrain(double zMin, double zMax, double xMin, double yMin, double xMax, double yMax,
                           double& col0, double& lin0, double& col1, double& lin1) const;

  // Finds the orientation of an image: its orientation file (the image's extension replaced by .ori,
  // .ORI, .Ori, .xml, .XML, .Xml, .hdr, .HDR, .Hdr, first that opens, read once); else, for a name that
  // is not itself an orientation file name, the image's own georeferencing (GeoTIFF tags, then a
  // world file beside it: CartoProjOrientation::LireGeoreference). Nothing found: an Erreur
  // "ImageOrientation : fichier d'orientation introuvable pour " and the image name.
  static std::unique_ptr<ImageOrientation> CreateImageOrientation(const char* image);
  // The same search; the error names 'nomCherche' (oriented images name the .ori they looked for).
  static std::unique_ptr<ImageOrientation> ChercherOrientation(const char* image,
                                                               const std::string& nomCherche);
  // The same search; null when it finds nothing.
  static std::unique_ptr<ImageOrientation> ChercherSiPresent(const char* image);
  // Every file beside an image that this search may read: its orientation files, world files, .prj.
  static std::vector<std::string> FichiersCherches(const char* image);
  // Reads an orientation file whose kind is told by its extension (.ori, .xml, .hdr in any case) and,
  // for .ori and .xml, by its content.
  static std::unique_ptr<ImageOrientation> LireFichierOrientation(const char* fichier);
  // The same when the file opens (read once); null when it does not, or when the name has none of
  // those extensions.
  static std::unique_ptr<ImageOrientation> LireSiPresent(const char* fichier);
  // Builds the class of the given type from the file.
  static std::unique_ptr<ImageOrientation> CreateImageOrientation(const char* fichier, eORIProjType type);
  // A new copy of the class given by the source's type code.
  static std::unique_ptr<ImageOrientation> MakeCopy(const ImageOrientation* source);
  // A map-projected orientation from its seven numbers, after the zone checks.
  static std::unique_ptr<ImageOrientation> CreateCartoProjOrientation(double x0, double y0, int zone,
                                                                      long nbColonnes, long nbLignes,
                                                                      double pasX, double pasY);

 protected:
  explicit ImageOrientation(eORIProjType type) : m_type(type) {}
  ImageOrientation(const ImageOrientation&) = default;
  ImageOrientation& operator=(const ImageOrientation&) = default;

  int32_t m_type = eORINone;
  eDistortion m_distortion = eDistortionAucune;
  DistortionPolynome m_polynome;
  DistortionGrid m_grilles[2];
  std::string m_fichier;
};
