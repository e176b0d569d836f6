// CartoProjOrientation: the orientation of an ortho-image, a north-up raster on a map grid (French
// Lambert zones 1 to 4, zone 0 meaning coordinates used as they are). Affine and axis-aligned:
//   X = col * pasX + X0,   Y = Y0 - lin * pasY
// with (X0, Y0) the map position of the upper-left corner of pixel (0, 0).
//
// Zone rule: with a zone, Y0 is held with the zone number in the millions (zone 2 in [1 500 000,
// 2 900 000], zone z otherwise in [z * 1 000 000, (z + 1) * 1 000 000)); a Y below 1 000 000 that
// arrives with a zone gets zone * 1 000 000 added.
//
// Files: text CARTO (.ori, millimetres), FileOriMnt XML, .hdr headers. Written only as text CARTO,
// every real number with the digits it needs to read back bit for bit.
//
// An image without any of these files may still be placed by its own GeoTIFF tags or by a world file
// beside it (LireGeoreference): zone 0, coordinates in the units of the file's coordinate reference
// system, which the orientation then carries (GetSystemeReference). The CRS travels with every copy
// and cut-out; it is never written to the files above (a CARTO .ori has no CRS: unknown).
#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "zepra/imageorientation.h"

class LecteurTexte;
class XParserXML;
struct SystemeReference;
struct GeoreferenceEcriture;

class CartoProjOrientation : public ImageOrientation {
 public:
  // Reads an orientation file (not the image): text CARTO, FileOriMnt XML or .hdr, chosen by the first
  // word of the file. Then the zone checks, then the sizes (1 to 2^31 - 1) and the real numbers
  // (finite, steps not zero) are checked.
  explicit CartoProjOrientation(const char* fichier);
  // The same from the bytes of that file, already read ('fichier' names it in messages).
  CartoProjOrientation(const char* fichier, const std::string& contenu);
  // The source must be a CartoProjOrientation.
  CartoProjOrientation(const ImageOrientation& source);
  CartoProjOrientation(const CartoProjOrientation& source)
      : CartoProjOrientation(static_cast<const ImageOrientation&>(source)) {}
  CartoProjOrientation& operator=(const CartoProjOrientation&) = default;

  void Dump(const char* fichier, int texte) const override;
  using ImageOrientation::Dump;
  void MapToGround(double X, double Y, double Z, double& x, double& y, double& z) const override;
  void GroundToMap(double x, double y, double z, double& X, double& Y, double& Z) const override;
  void GroundToPhoto(double x, double y, double z, double& col, double& lin, double& prof) const override;
  void GroundToPhoto(double x, double y, double z, double& col, double& lin) const override;
  void MapToPhoto(double X, double Y, double Z, double& col, double& lin, double& z) const override;
  void PhotoToGroundVect(double col, double lin, double v[3]) const override;
  void PhotoAndZToGround(double col, double lin, double Z, double& x, double& y) const override;
  void PhotoAndZToMap(double col, double lin, double Z, double& X, double& Y) const override;
  void PhotoAndDepthToGround(double col, double lin, double prof, double& x, double& y,
                             double& z) const override;
  void PhotoToGround(double col, double lin, double& x, double& y, double& z) const override;
  void PhotoToMap(double col, double lin, double& X, double& Y, double& Z) const override;
  double GetApproxGroundPixSize() const override { return m_pasX; }

  void GetSolarVector(double v[3]) const override;
  void GetSolarVector(double v[3], int annee, int mois, int jour, int heure, int minute) const override;
  std::unique_ptr<ImageOrientation> Extract(double c0, double l0, double c1, double l1, double pasC,
                                            double pasL) const override;
  T3D<double> GetProjCenter() const override;
  TPoint2D<double> GetPrincipalPoint() const override;
  T3D<double> GetLocalOrigin() const override;
  void GetPrincipalAxis(double v[3]) const override;
  void GetViewingAxis(double a[3], double b[3], double c[3]) const override;
  void SetViewingAxis(const double a[3], const double b[3], const double c[3]) override;
  double GetFocale() const override;
  void SetFocale(double focale) override;
  void GetTime(int& annee, int& mois, int& jour, int& heure, int& minute, int& seconde) const override;
  void SetTime(int annee, int mois, int jour, int heure, int minute, int seconde) override;
  bool CanBeMappedTo(const ImageOrientation& autre) const override;
  bool GetTranslation(const ImageOrientation& autre, long& dCol, long& dLin, long& sCol,
                      long& sLin) const override;
  void TransposeImage() override;
  size_t SizeOf() const override { return sizeof(*this); }

  long long GetNs() const override { return m_nbColonnes; }
  long long GetNl() const override { return m_nbLignes; }
  void SetNs(long long colonnes) override;
  void SetNl(long long lignes) override;
  void SetProjCenter(const T3D<double>& sommet) override;
  void SetPrincipalPoint(const TPoint2D<double>& pp) override;
  void SetLocalOrigin(const T3D<double>& origine) override;

  // From the corner of the first pixel to the corner of the last one (not its far edge): a 1 x 1
  // image gives the single point (X0, Y0).
  using ImageOrientation::EmpriseCarto;
  void EmpriseCarto(double& xMin, double& yMin, double& xMax, double& yMax) const;

  double GetXStep() const { return m_pasX; }
  double GetYStep() const { return m_pasY; }
  // Both steps.
  void SetPixSize(double pasX, double pasY);
  double GetXOrigine() const { return m_x0; }
  double GetYOrigine() const { return m_y0; }
  int GetZoneLambert() const { return m_zone; }
  // A new zone is checked against the current Y origin, by the rule of the files.
  void SetZoneLambert(int zone);

  // Writes the world file (six lines: pasX, 0, 0, -pasY, then X and Y of the centre of pixel (0, 0)),
  // so that GIS software places the image; every number read back bit for bit.
  void EcrireWorldFile(const char* fichier) const;

  // "%f:%f:%ld:%ld:%f:%f" of X0, Y0, columns, lines, pasX, pasY. When the integer part of y0 is at most
  // 999 999 the operator is asked for the Lambert zone on 'sortie' and it is read from 'entree'
  // (zone * 1 000 000 is added to y0); an answer that is missing or not a zone 0 to 4 is an Erreur.
  static std::string DataToString(double x0, double y0, long nbColonnes, long nbLignes, double pasX,
                                  double pasY, std::istream& entree, std::ostream& sortie);
  // The same on standard input and output.
  static std::string DataToString(double x0, double y0, long nbColonnes, long nbLignes, double pasX,
                                  double pasY);

  // Checks applied on reading, in order; may add the zone millions to y0. Throws on refusal, the
  // message followed by 'contexte'.
  static void VerifieZone(int zone, double& y0, const std::string& contexte = "");

  // The coordinate reference system of the map coordinates, null when unknown (CARTO, XML and .hdr
  // files carry none). Shared between copies, never modified: replace it to change it.
  const SystemeReference* GetSystemeReference() const { return m_crs.get(); }
  const std::shared_ptr<const SystemeReference>& PartageSystemeReference() const { return m_crs; }
  void SetSystemeReference(std::shared_ptr<const SystemeReference> crs) { m_crs = std::move(crs); }

  // The georeferencing of an image that has no orientation file of its own, null when it has none:
  //  1. its GeoTIFF tags: ModelPixelScale with ModelTiepoint (several tiepoints must lie on the grid
  //     of the first), or else a ModelTransformation without rotation or shear; pixel-is-point
  //     (GTRasterTypeGeoKey 2) puts the tiepoint's raster (0, 0) at the centre of the first pixel;
  //  2. else a world file beside it: the image name with its extension replaced by tfw, tifw, wld,
  //     each tried in lower case, upper case and capitalised (.tfw .TFW .Tfw .tifw ... .Wld), the
  //     first that opens; its CRS is the .prj beside the image (.prj .PRJ .Prj), else the GeoKeys
  //     the file has without a grid.
  // A north-up grid only: steps strictly positive along X and down the lines. The size is the image's
  // (its header). Zone 0. A grid that cannot be used (rotated, sheared, north-down, control points,
  // malformed tags or world file, empty .prj) is an Erreur naming the file.
  static std::unique_ptr<CartoProjOrientation> LireGeoreference(const char* image);
  // The files beside an image that LireGeoreference may read: its world files, then its .prj.
  static std::vector<std::string> FichiersGeoreference(const char* image);

  // What a GeoTIFF written on this orientation carries (EcrivainGeoTIFF): the corner of pixel (0, 0),
  // the steps, and the coordinate reference system when known. Its tags read back through
  // LireGeoreference give this orientation again.
  GeoreferenceEcriture GeoreferencePourEcriture() const;

 protected:
  CartoProjOrientation();
  friend class ImageOrientation;  // CreateCartoProjOrientation builds from the seven numbers

 private:
  // The FileOriMnt document already parsed by the factory is not parsed again.
  CartoProjOrientation(const char* fichier, const std::string& contenu, const XParserXML* xml);
  void LireContenu(const std::string& contenu, const XParserXML* xml);
  void LireCarto(LecteurTexte& lecteur);
  void LireXml(const XParserXML& parser);
  void LireHdr(LecteurTexte& lecteur);
  // Sizes and real numbers fit for use; 'origine' names the file or the caller in messages.
  void VerifieValeurs(const std::string& origine) const;

  long long m_nbColonnes = 0;
  long long m_nbLignes = 0;
  int32_t m_zone = 0;
  double m_pasX = 0;
  double m_pasY = 0;
  double m_x0 = 0;
  double m_y0 = 0;
  std::shared_ptr<const SystemeReference> m_crs;
};
