#include "zepra/orientedimage.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace {

// The orientation file and the world file beside it.
void SupprimerOrientation(const char* nomOri) {
  TChaine tfw(nomOri);
  tfw.SetExtension("tfw");
  std::remove(nomOri);
  std::remove(tfw.c_str());
}

std::string NomOrientation(const char* image) {
  TChaine nom(image);
  nom.SetExtension(".ori");
  return nom.str();
}

}  // namespace

void SauverAvecOrientation(const OrientationOld& ori, const char* nomOri,
                           const std::function<void()>& ecrireImage) {
  ori.Sauver(nomOri);
  try {
    ecrireImage();
  } catch (...) {
    SupprimerOrientation(nomOri);
    throw;
  }
}

void SupprimerAvecOrientation(const char* image) {
  std::remove(image);
  SupprimerOrientation(NomOrientation(image).c_str());
}

namespace {

std::string Contexte(const std::string& image, const std::string& ori) {
  return " (image " + image + ", orientation " + ori + ")";
}

OrientationOld OrientationPourImage(const char* image) {
  OrientationOld o;
  o.LirePourImage(image);
  return o;
}

// The orientation an image was read with, for messages: the .ori looked for, as always, when an
// orientation file was found; the file itself when the image's georeferencing was used.
std::string NomLu(const char* image, const OrientationOld& o) {
  const std::string f = o.GetFileName();
  const std::string ext = TChaine(f).Extension().ToLowCase().str();
  return ext == "ori" || ext == "xml" || ext == "hdr" ? NomOrientation(image) : f;
}

// The check shared by the three classes; 'classe' opens the messages.
void Coherence(const char* classe, long long lignes, long long colonnes, const OrientationOld& ori,
               const std::string& contexte) {
  if (!ori.EstDefinie()) ZEPRA_ERREUR(classe << " : pas d'orientation pour l'image" << contexte);
  if (ori.GetOriType() == eORIGrille) {
    // A localisation grid need not have the image's size: the sizes are only logged.
    std::ostringstream s;
    s << "taille  = " << lignes << "," << colonnes;
    Systeme::EcrireLigne(s.str());
    Systeme::EcrireLigne("GetNl() = " + std::to_string(ori.GetNl()));
    Systeme::EcrireLigne("GetNs() = " + std::to_string(ori.GetNs()));
    return;
  }
  if (ori.GetNl() != lignes)
    ZEPRA_ERREUR(classe << " : Nombre de ligne incoherent entre image (" << lignes << ") et orientation ("
                        << ori.GetNl() << ")" << contexte);
  if (ori.GetNs() != colonnes)
    ZEPRA_ERREUR(classe << " : Nombre de colonne incoherent entre image (" << colonnes << ") et orientation ("
                        << ori.GetNs() << ")" << contexte);
}

// An in-memory image and an orientation given apart, seen as one oriented input.
template <class T>
class PaireOrientee : public OrientedImageIn {
 public:
  PaireOrientee(const TTImage<T>& image, const OrientationOld& ori) : m_image(image), m_ori(ori) {}
  const SpecifImageIn& GetSpecifImageIn() const override { return m_image; }
  const OrientationOld& GetOrientation() const override { return m_ori; }
  eEnumType GetType() const override { return CodeType<T>::value; }

 private:
  const TTImage<T>& m_image;
  const OrientationOld& m_ori;
};

// floor(v + 0.5) as an int, when it is one.
bool Arrondi(double v, int& r) {
  const double a = std::floor(v + 0.5);
  if (!(a >= -static_cast<double>(INT_MAX) && a <= static_cast<double>(INT_MAX))) return false;
  r = static_cast<int>(a);
  return true;
}

}  // namespace

void OrientedImageOut::CropOri(const OrientedImageIn& source, const TRectangle<int>& r, int pas) {
  if (pas < 1) ZEPRA_ERREUR("[OrientedImageOut] (CropOri) Pas " << pas << " invalide");
  const SpecifImageIn& pixels = source.GetSpecifImageIn();
  const TPoint2D<int> taille = pixels.GetTaille();
  Coherence("[OrientedImageOut] (CropOri) source", taille.y, taille.x, source.GetOrientation(), "");
  const GeometrieCrop g = TTImage_Annexes::GestionCrop(taille, r.p0, r.p1, pas, false);
  if (g.taille.x < 1 || g.taille.y < 1)
    ZEPRA_ERREUR("[OrientedImageOut] (CropOri) Rectangle " << r << " hors de l'image source de taille "
                                                           << taille);
  const OrientationOld ori =
      source.GetOrientation().Extract(g.p0.x, g.p0.y, g.p1.x - 1, g.p1.y - 1, pas, pas);
  PreparerCrop(source.GetType(), pixels.GetNbCanaux());
  EcrireCrop(source, g, pas);
  ChangeOrientation(ori);
}

void OrientedImageOut::EcrireCrop(const OrientedImageIn& source, const GeometrieCrop& g, int pas) {
  GetSpecifImageOut().Crop(source.GetSpecifImageIn(), g.p0.x, g.p0.y, g.p1.x - g.p0.x, g.p1.y - g.p0.y, pas,
                           0);
}

void OrientedImageOut::CropOriCarto(const OrientedImageIn& source, double xMin, double yMin, double xMax,
                                    double yMax, double pasX, double pasY) {
  const OrientationOld& o = source.GetOrientation();
  const auto* c = dynamic_cast<const CartoProjOrientation*>(o.GetInternalImageOrientation());
  if (!c || o.GetOriType() != eORICarto)
    ZEPRA_ERREUR("[OrientedImageOut] (CropOriCarto) La source n'a pas d'orientation carto");
  if (!(xMin < xMax) || !(yMin < yMax))
    ZEPRA_ERREUR("[OrientedImageOut] (CropOriCarto) Rectangle carto [" << xMin << ", " << xMax << "] x ["
                                                                       << yMin << ", " << yMax << "] vide");
  // The steps must be one whole factor of the source's, the same along X and Y.
  const double kx = pasX / c->GetXStep(), ky = pasY / c->GetYStep();
  int pas = 0, pasL = 0;
  if (!Arrondi(kx, pas) || !Arrondi(ky, pasL) || pas < 1 || pas != pasL || std::fabs(kx - pas) > 1e-6 * pas ||
      std::fabs(ky - pas) > 1e-6 * pas)
    ZEPRA_ERREUR("[OrientedImageOut] (CropOriCarto) Pas ("
                 << pasX << ", " << pasY << ") : pas un meme multiple entier des pas de la source ("
                 << c->GetXStep() << ", " << c->GetYStep() << ")");
  double c0, l0, c1, l1, z;
  o.MapToPhoto(xMin, yMax, 0, c0, l0, z);
  o.MapToPhoto(xMax, yMin, 0, c1, l1, z);
  int x0, y0, x1, y1;
  if (!Arrondi(c0, x0) || !Arrondi(l0, y0) || !Arrondi(c1, x1) || !Arrondi(l1, y1))
    ZEPRA_ERREUR("[OrientedImageOut] (CropOriCarto) Rectangle carto ["
                 << xMin << ", " << xMax << "] x [" << yMin << ", " << yMax << "] hors de portee");
  CropOri(source, TRectangle<int>(x0, y0, x1, y1), pas);
}

template <class T>
TTOrientedImage<T>::TTOrientedImage(int lignes, int colonnes, TagNbCanaux n, const OrientationOld& ori)
    : TTImage<T>(colonnes, lignes, n), m_ori(ori) {
  VerifieCoherence();
}

template <class T>
TTOrientedImage<T>::TTOrientedImage(const OrientationOld& ori, TagNbCanaux n) : m_ori(ori) {
  const long long nc = m_ori.GetNs(), nl = m_ori.GetNl();
  if (nc < 0 || nl < 0 || nc > INT_MAX || nl > INT_MAX)
    ZEPRA_ERREUR("[TTOrientedImage] (Constructeur) Taille " << nc << " x " << nl
                                                            << " de l'orientation absurde");
  TTImage<T>::operator=(TTImage<T>(static_cast<int>(nc), static_cast<int>(nl), n));
}

template <class T>
TTOrientedImage<T>::TTOrientedImage(const char* image, const OrientationOld& ori) : m_ori(ori) {
  TTImage<T>::Lire(image);
  VerifieCoherence(" (image " + std::string(image) + ")");
}

template <class T>
TTOrientedImage<T>::TTOrientedImage(const TTImage<T>& image, const OrientationOld& ori)
    : TTImage<T>(image), m_ori(ori) {
  VerifieCoherence();
}

template <class T>
void TTOrientedImage<T>::VerifieCoherence(const std::string& contexte) const {
  Coherence("TTOrientedImage", this->iGetNbLignes(), this->iGetNbColonnes(), m_ori, contexte);
}

template <class T>
void TTOrientedImage<T>::Lire(const char* image) {
  Prendre(image, OrientationPourImage(image), nullptr);
}

template <class T>
void TTOrientedImage<T>::Lire(const char* image, const char* ori) {
  Prendre(image, OrientationOld(ori), ori);
}

template <class T>
void TTOrientedImage<T>::Prendre(const char* image, OrientationOld&& o, const char* ori) {
  // Both read into new objects, checked, then taken: a failure leaves this image as it was.
  TTImage<T> im;
  im.Lire(image);
  Coherence("TTOrientedImage", im.iGetNbLignes(), im.iGetNbColonnes(), o,
            Contexte(image, ori ? ori : NomLu(image, o)));
  TTImage<T>::operator=(std::move(im));
  m_ori = std::move(o);
}

template <class T>
void TTOrientedImage<T>::LireImage(const char* image) {
  TTImage<T> im;
  im.Lire(image);
  if (m_ori.EstDefinie())
    Coherence("TTOrientedImage", im.iGetNbLignes(), im.iGetNbColonnes(), m_ori,
              " (image " + std::string(image) + ")");
  TTImage<T>::operator=(std::move(im));
}

template <class T>
void TTOrientedImage<T>::LireOrientation(const char* ori) {
  OrientationOld o(ori);
  if (this->size() > 0)
    Coherence("TTOrientedImage", this->iGetNbLignes(), this->iGetNbColonnes(), o,
              " (orientation " + std::string(ori) + ")");
  m_ori = std::move(o);
}

template <class T>
void TTOrientedImage<T>::Sauver(const char* image) const {
  const std::string ori = NomOrientation(image);
  Sauver(image, ori.c_str());
}

template <class T>
void TTOrientedImage<T>::Sauver(const char* image, const char* ori) const {
  VerifieCoherence(Contexte(image, ori));
  SauverAvecOrientation(m_ori, ori, [&] { TTImage<T>::Sauver(image); });
}

template <class T>
void TTOrientedImage<T>::SauverImage(const char* image) const {
  TTImage<T>::Sauver(image);
}

template <class T>
void TTOrientedImage<T>::SauverOrientation(const char* ori) const {
  m_ori.Sauver(ori);
}

template <class T>
void TTOrientedImage<T>::Crop(const TTOrientedImage& source, const TRectangle<int>& r, int pas) {
  CropOri(source, r, pas);
}

template <class T>
void TTOrientedImage<T>::Crop(const TTImage<T>& source, const OrientationOld& ori, const TRectangle<int>& r,
                              int pas) {
  CropOri(PaireOrientee<T>(source, ori), r, pas);
}

template <class T>
void TTOrientedImage<T>::Crop(const OrientationOld& ori, const TRectangle<int>& r, int pas) {
  const OrientationOld copie(ori);  // 'ori' may be this image's own, which the cut-out replaces
  CropOri(PaireOrientee<T>(*this, copie), r, pas);
}

template <class T>
void TTOrientedImage<T>::EcrireCrop(const OrientedImageIn& source, const GeometrieCrop& g, int pas) {
  const SpecifImageIn& pixels = source.GetSpecifImageIn();
  const int x0 = g.p0.x, y0 = g.p0.y, nc = g.p1.x - g.p0.x, nl = g.p1.y - g.p0.y;
  if (&pixels == static_cast<const SpecifImageIn*>(this)) {
    // Cutting an image out of itself: read from a copy, the reshaping would move the samples.
    const TTImage<T> copie(*this);
    TTImage<T>::Crop(copie, x0, y0, nc, nl, pas, 0);
  } else {
    TTImage<T>::Crop(pixels, x0, y0, nc, nl, pas, 0);
  }
}

template class TTOrientedImage<unsigned char>;
template class TTOrientedImage<signed char>;
template class TTOrientedImage<short>;
template class TTOrientedImage<unsigned short>;
template class TTOrientedImage<int>;
template class TTOrientedImage<unsigned int>;
template class TTOrientedImage<float>;
template class TTOrientedImage<double>;

OrientedImageFicIn::OrientedImageFicIn(const char* image)
    : m_ori(OrientationPourImage(image)), m_image(image) {
  VerifieCoherence(Contexte(image, NomLu(image, m_ori)));
}

OrientedImageFicIn::OrientedImageFicIn(const char* image, const char* ori) : m_ori(ori), m_image(image) {
  VerifieCoherence(Contexte(image, ori));
}

OrientedImageFicIn::OrientedImageFicIn(const ImageFicIn& image, const OrientationOld& ori)
    : m_ori(ori), m_image(image) {
  VerifieCoherence(" (image " + image.GetNom().str() + ")");
}

void OrientedImageFicIn::VerifieCoherence(const std::string& contexte) const {
  const TPoint2D<int> t = m_image.GetTaille();
  Coherence("OrientedImageFicIn", t.y, t.x, m_ori, contexte);
}

OrientedImageFicOut::OrientedImageFicOut(const char* image)
    : OrientedImageFicOut(image, NomOrientation(image).c_str()) {}

OrientedImageFicOut::OrientedImageFicOut(const char* image, const char* ori)
    : m_image(image, OptionsImageOut::defaut()), m_nomImage(image ? image : ""), m_nomOri(ori ? ori : "") {}

OrientedImageFicOut::OrientedImageFicOut(const char* image, const OrientationOld& ori, eEnumType type,
                                         TagNbCanaux n)
    : OrientedImageFicOut(image) {
  const long long nc = ori.GetNs(), nl = ori.GetNl();
  if (nc < 1 || nl < 1 || nc > INT_MAX || nl > INT_MAX)
    ZEPRA_ERREUR("[OrientedImageFicOut] (Constructeur) Taille " << nc << " x " << nl
                                                                << " de l'orientation absurde");
  m_ori = ori;
  m_image.SetTypePixel(type);
  m_image.SetNbCanaux(n);
  m_image.SetTaille(static_cast<int>(nc), static_cast<int>(nl));
}

void OrientedImageFicOut::PreparerCrop(eEnumType type, int canaux) {
  m_image.SetTypePixel(type);
  m_image.SetNbCanaux(TagNbCanaux(canaux));
}

void OrientedImageFicOut::VerifieCoherence(const std::string& contexte) const {
  const TPoint2D<int> t = m_image.GetTaille();
  Coherence("OrientedImageFicOut", t.y, t.x, m_ori, contexte);
}

void OrientedImageFicOut::Terminer() {
  VerifieCoherence(Contexte(m_nomImage, m_nomOri));
  SauverAvecOrientation(m_ori, m_nomOri.c_str(), [&] { m_image.Terminer(); });
}
