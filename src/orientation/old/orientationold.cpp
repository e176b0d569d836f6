#include "zepra/orientation.h"

#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/tchaine.h"

OrientationOld::OrientationOld(eORIProjType type, double x0, double y0, int zone, long nbColonnes,
                               long nbLignes, double pasX, double pasY) {
  if (type != eORICarto)
    ZEPRA_ERREUR("[OrientationOld] (Constructeur) Type "
                 << static_cast<int>(type) << " : seul le type carto (1) se construit par ses parametres");
  m_ori = ImageOrientation::CreateCartoProjOrientation(x0, y0, zone, nbColonnes, nbLignes, pasX, pasY);
}

OrientationOld::OrientationOld(const OrientationOld& autre) {
  if (autre.m_ori) m_ori = ImageOrientation::MakeCopy(autre.m_ori.get());
}

OrientationOld& OrientationOld::operator=(const OrientationOld& autre) {
  if (this != &autre) m_ori = autre.m_ori ? ImageOrientation::MakeCopy(autre.m_ori.get()) : nullptr;
  return *this;
}

const ImageOrientation& OrientationOld::Ori() const {
  if (!m_ori) ZEPRA_ERREUR("[OrientationOld] Orientation non definie (ni lue ni construite)");
  return *m_ori;
}

ImageOrientation& OrientationOld::Ori() {
  return const_cast<ImageOrientation&>(static_cast<const OrientationOld*>(this)->Ori());
}

const CartoProjOrientation& OrientationOld::Carto(const char* methode) const {
  const auto* c = dynamic_cast<const CartoProjOrientation*>(&Ori());
  if (!c || c->GetOriType() != eORICarto)
    ZEPRA_ERREUR("[OrientationOld] (" << methode << ") Reserve aux orientations carto, pas au type "
                                      << static_cast<int>(Ori().GetOriType()));
  return *c;
}

CartoProjOrientation& OrientationOld::Carto(const char* methode) {
  return const_cast<CartoProjOrientation&>(static_cast<const OrientationOld*>(this)->Carto(methode));
}

void OrientationOld::Lire(const char* fichier) {
  std::unique_ptr<ImageOrientation> o = ImageOrientation::LireSiPresent(fichier);
  m_ori = o ? std::move(o) : ImageOrientation::CreateImageOrientation(fichier);
}

void OrientationOld::LirePourImage(const char* image) {
  TChaine ori(image);
  ori.SetExtension(".ori");
  m_ori = ImageOrientation::ChercherOrientation(image, ori.str());
}

const SystemeReference* OrientationOld::GetSystemeReference() const {
  const auto* c = dynamic_cast<const CartoProjOrientation*>(m_ori.get());
  return c ? c->GetSystemeReference() : nullptr;
}

void OrientationOld::Sauver(const char* fichier) const {
  const TChaine nom(fichier);
  const std::string ext = nom.Extension().ToLowCase().str();
  if (ext == "xml" || ext == "hdr")
    ZEPRA_ERREUR("[OrientationOld] (Sauver) " << nom << " : une orientation s'ecrit en texte (.ori), pas en ."
                                              << ext);
  Ori().Dump(nom, 1);
  if (GetOriType() == eORICarto) {
    TChaine tfw(nom);
    tfw.SetExtension("tfw");
    Carto("Sauver").EcrireWorldFile(tfw);
  }
}

void OrientationOld::SetPixSize(double pasX, double pasY) { Carto("SetPixSize").SetPixSize(pasX, pasY); }
int OrientationOld::GetZoneLambert() const { return Carto("GetZoneLambert").GetZoneLambert(); }
void OrientationOld::SetZoneLambert(int zone) { Carto("SetZoneLambert").SetZoneLambert(zone); }

void OrientationOld::EmpriseCarto(double& xMin, double& yMin, double& xMax, double& yMax) const {
  if (GetOriType() == eORICarto)
    Carto("EmpriseCarto").EmpriseCarto(xMin, yMin, xMax, yMax);
  else
    Ori().EmpriseCarto(0, 0, xMin, yMin, xMax, yMax);
}

namespace {
// One bound of the map extent: 0 X min, 1 Y min, 2 X max, 3 Y max.
double Borne(const OrientationOld& o, int i) {
  double e[4];
  o.EmpriseCarto(e[0], e[1], e[2], e[3]);
  return e[i];
}
}  // namespace

double OrientationOld::GetMinXCarto() const { return Borne(*this, 0); }
double OrientationOld::GetMinYCarto() const { return Borne(*this, 1); }
double OrientationOld::GetMaxXCarto() const { return Borne(*this, 2); }
double OrientationOld::GetMaxYCarto() const { return Borne(*this, 3); }

bool OrientationOld::IsVisible(double X, double Y, double Z) const {
  double c, l, z;
  MapToPhoto(X, Y, Z, c, l, z);
  return c >= 0 && l >= 0 && c < static_cast<double>(GetNs()) && l < static_cast<double>(GetNl());
}

OrientationOld OrientationOld::Extract(double c0, double l0, double c1, double l1, double pasC,
                                       double pasL) const {
  OrientationOld r;
  r.m_ori = Ori().Extract(c0, l0, c1, l1, pasC, pasL);
  return r;
}

void OrientationOld::Crop(const TRectangle<int>& r, int pas) {
  if (pas < 1 || r.Largeur() < 1 || r.Hauteur() < 1)
    ZEPRA_ERREUR("[OrientationOld] (Crop) Rectangle " << r << " ou pas " << pas << " invalide");
  m_ori = Ori().Extract(r.p0.x, r.p0.y, static_cast<double>(r.p1.x) - 1, static_cast<double>(r.p1.y) - 1, pas,
                        pas);
}

void OrientationOld::SousEchantillonnage(int facteur) {
  if (facteur < 1) ZEPRA_ERREUR("[OrientationOld] (SousEchantillonnage) Facteur " << facteur << " invalide");
  m_ori = Ori().Extract(0, 0, static_cast<double>(GetNs() - 1), static_cast<double>(GetNl() - 1), facteur,
                        facteur);
}

void OrientationOld::SurEchantillonnage(int facteur) {
  const CartoProjOrientation& c = Carto("SurEchantillonnage");
  if (facteur < 1) ZEPRA_ERREUR("[OrientationOld] (SurEchantillonnage) Facteur " << facteur << " invalide");
  // Built from the numbers rather than Extract with 1 / facteur, whose rounding could add a pixel.
  std::unique_ptr<ImageOrientation> sur = ImageOrientation::CreateCartoProjOrientation(
      c.GetXOrigine(), c.GetYOrigine(), c.GetZoneLambert(), static_cast<long>(c.GetNs() * facteur),
      static_cast<long>(c.GetNl() * facteur), c.GetXStep() / facteur, c.GetYStep() / facteur);
  static_cast<CartoProjOrientation&>(*sur).SetSystemeReference(c.PartageSystemeReference());
  m_ori = std::move(sur);
}
