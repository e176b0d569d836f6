#include "zepra/ttimage.h"

#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/systeme.h"

template <class T>
TTImage<T>::TTImage(TagNbCanaux n) {
  Construire(0, 0, n.nb);
}

template <class T>
TTImage<T>::TTImage(int colonnes, int lignes, TagNbCanaux n) {
  Construire(colonnes, lignes, n.nb);
}

template <class T>
TTImage<T>::TTImage(const TPoint2D<int>& taille, TagNbCanaux n) {
  Construire(taille.x, taille.y, n.nb);
}

template <class T>
TTImage<T>::TTImage(int colonnes, int lignes, T valeur) {
  Construire(colonnes, lignes, 1);
  RemplirValeur(valeur);
}

template <class T>
TTImage<T>::TTImage(const TPoint2D<int>& taille, T valeur) : TTImage(taille.x, taille.y, valeur) {}

template <class T>
TTImage<T>::TTImage(const char* fichier, int image) {
  Lire(fichier, image);
}

template <class T>
TTImage<T>::TTImage(const TTImage& autre)
    : ImplGetValeurs<TTImage<T>>(),
      ImplSetValeurs<TTImage<T>>(),
      m_donnees(autre.m_donnees),
      m_colonnes(autre.m_colonnes),
      m_lignes(autre.m_lignes),
      m_canaux(autre.m_canaux) {
  ReconstruireLignes();
}

template <class T>
TTImage<T>::TTImage(TTImage&& autre) noexcept
    : m_donnees(std::move(autre.m_donnees)),
      m_colonnes(autre.m_colonnes),
      m_lignes(autre.m_lignes),
      m_canaux(autre.m_canaux) {
  ReconstruireLignes();
  autre.m_colonnes = autre.m_lignes = 0;
  autre.m_donnees.clear();
  autre.ReconstruireLignes();
}

template <class T>
TTImage<T>& TTImage<T>::operator=(const TTImage& autre) {
  if (this != &autre) {
    m_donnees = autre.m_donnees;
    m_colonnes = autre.m_colonnes;
    m_lignes = autre.m_lignes;
    m_canaux = autre.m_canaux;
    ReconstruireLignes();
  }
  return *this;
}

template <class T>
TTImage<T>& TTImage<T>::operator=(TTImage&& autre) noexcept {
  if (this != &autre) {
    m_donnees = std::move(autre.m_donnees);
    m_colonnes = autre.m_colonnes;
    m_lignes = autre.m_lignes;
    m_canaux = autre.m_canaux;
    ReconstruireLignes();
    autre.m_colonnes = autre.m_lignes = 0;
    autre.m_donnees.clear();
    autre.ReconstruireLignes();
  }
  return *this;
}

template <class T>
void TTImage<T>::ReconstruireLignes() {
  m_lignesTab.resize(static_cast<size_t>(m_lignes));
  const size_t pas = static_cast<size_t>(m_colonnes) * static_cast<size_t>(m_canaux);
  for (int y = 0; y < m_lignes; ++y) m_lignesTab[y] = Stockage::Position(m_donnees, y * pas);
}

template <class T>
void TTImage<T>::Construire(int colonnes, int lignes, int canaux) {
  Dimensionner(colonnes, lignes, canaux, true);
}

template <class T>
void TTImage<T>::Dimensionner(int colonnes, int lignes, int canaux, bool zero) {
  colonnes = std::max(colonnes, 0);
  lignes = std::max(lignes, 0);
  canaux = std::max(canaux, 0);
  const unsigned __int128 n = static_cast<unsigned __int128>(colonnes) * lignes * canaux;
  if (n > (static_cast<unsigned __int128>(1) << 48))
    ZEPRA_ERREUR("[TTIMAGE] (Construire) Taille demesuree : " << colonnes << " x " << lignes << " x "
                                                              << canaux);
  // Existing elements keep their places; only new ones are zero.
  const size_t ancien = m_donnees.size();
  m_donnees.resize(static_cast<size_t>(n));
  if (zero && m_donnees.size() > ancien)
    std::fill(m_donnees.begin() + static_cast<long>(ancien), m_donnees.end(), T());
  m_colonnes = colonnes;
  m_lignes = lignes;
  m_canaux = canaux;
  ReconstruireLignes();
}

template <class T>
void TTImage<T>::vReformat(int colonnes, int lignes, TagNbCanaux canaux) {
  if (colonnes == m_colonnes && lignes == m_lignes && canaux.nb == m_canaux) return;
  if (colonnes < 0 || lignes < 0) ZEPRA_ERREUR("TTImage<T>::vReformat avec tailles negatives");
  // The test is on the current count, not the requested one: an image built with no channel cannot
  // be reshaped, while a request for no channel is accepted (established behaviour).
  if (m_canaux < 1) ZEPRA_ERREUR("TTImage<T>::vReformat nombre de canaux <1.");
  Construire(colonnes, lignes, canaux.nb);
}

template <class T>
void TTImage<T>::SetNbCanaux(TagNbCanaux n) {
  if (n.nb == m_canaux) return;
  vReformat(m_colonnes, m_lignes, n);
}

template <class T>
void TTImage<T>::SetTypePixel(eEnumType type) {
  if (type == CodeType<T>::value) return;
  ZEPRA_ERREUR("[TTIMAGE] (SetTypePixel) Types incompatibles.");
}

template <class T>
void TTImage<T>::Detruire() {
  Conteneur().swap(m_donnees);
  std::vector<Ligne>().swap(m_lignesTab);
  m_colonnes = m_lignes = 0;
}

template <class T>
typename TTImage<T>::Pointeur TTImage<T>::rgb(int x, int y) {
  if constexpr (std::is_same_v<T, bool>) {
    Ligne l = m_lignesTab[y] + static_cast<long>(x) * m_canaux;
    return new bool[3]{static_cast<bool>(l[0]), static_cast<bool>(l[1]), static_cast<bool>(l[2])};
  } else {
    return m_lignesTab[y] + static_cast<long>(x) * m_canaux;
  }
}

template <class T>
typename TTImage<T>::Pointeur TTImage<T>::InternalData() {
  if constexpr (std::is_same_v<T, bool>) {
    return nullptr;
  } else {
    return m_donnees.data();
  }
}

template <class T>
void TTImage<T>::RawRead(char* tampon, unsigned int octets) const {
  if constexpr (std::is_same_v<T, bool>) {
    std::memset(tampon, 0, octets);
  } else {
    std::memcpy(tampon, m_donnees.data(), octets);
  }
}

template <class T>
void TTImage<T>::RawWrite(const char* tampon, unsigned int octets) {
  if constexpr (!std::is_same_v<T, bool>) std::memcpy(m_donnees.data(), tampon, octets);
}

template <class T>
void TTImage<T>::RemplirValeur(T v) {
  std::fill(m_donnees.begin(), m_donnees.end(), v);
}

template <class T>
TTImage<T>& TTImage<T>::operator+=(T v) {
  if constexpr (std::is_same_v<T, bool>) {
    if (v) RemplirValeur(true);
  } else {
    for (T& s : m_donnees) s = static_cast<T>(s + v);
  }
  return *this;
}

template <class T>
void TTImage<T>::FlipX() {
  // Only channel 0 is exchanged; the other channels stay in place (established behaviour).
  for (int y = 0; y < m_lignes / 2; ++y) {
    Ligne haut = m_lignesTab[y];
    Ligne bas = m_lignesTab[m_lignes - 1 - y];
    for (long x = 0; x < m_colonnes; ++x) {
      const T t = haut[x * m_canaux];
      haut[x * m_canaux] = bas[x * m_canaux];
      bas[x * m_canaux] = t;
    }
  }
}

template <class T>
void TTImage<T>::FlipY() {
  // Channel 0 only, as FlipX.
  for (int y = 0; y < m_lignes; ++y) {
    Ligne l = m_lignesTab[y];
    for (long x = 0; x < m_colonnes / 2; ++x) {
      const long a = x * m_canaux, b = (m_colonnes - 1 - x) * m_canaux;
      const T t = l[a];
      l[a] = l[b];
      l[b] = t;
    }
  }
}

template <class T>
double TTImage<T>::InterpolerBilineaire(double x, double y, int c) const {
  const int x0 = static_cast<int>(x), y0 = static_cast<int>(y);
  const double dx = x - x0, dy = y - y0;
  const double s00 = static_cast<double>((*this)(x0, y0, c));
  const double s10 = static_cast<double>((*this)(x0 + 1, y0, c));
  const double s01 = static_cast<double>((*this)(x0, y0 + 1, c));
  const double s11 = static_cast<double>((*this)(x0 + 1, y0 + 1, c));
  return (1 - dy) * (s00 * (1 - dx) + s10 * dx) + dy * (s01 * (1 - dx) + s11 * dx);
}

template <class T>
void TTImage<T>::CopierCanal(const TTImage& source, int canalSource, int canalDestination) {
  if (canalSource < 0 || canalSource >= source.m_canaux)
    ZEPRA_ERREUR("[TTIMAGE] (CopieCanal) Canal source " << canalSource << "invalide");
  if (canalDestination < 0 || canalDestination >= m_canaux)
    ZEPRA_ERREUR("[TTIMAGE] (CopieCanal) Canal destination " << canalDestination << "invalide");
  // This image's size drives the loop; the source's is never compared.
  for (int y = 0; y < m_lignes; ++y)
    for (int x = 0; x < m_colonnes; ++x) (*this)(x, y, canalDestination) = source(x, y, canalSource);
}

namespace {
int BorneInt(long long v) {
  return static_cast<int>(std::max<long long>(INT_MIN, std::min<long long>(INT_MAX, v)));
}
}  // namespace

template <class T>
void TTImage<T>::Crop(const SpecifImageIn& source, int x0, int y0, int colonnes, int lignes, int pas,
                      int mode) {
  if (&source == static_cast<const SpecifImageIn*>(this)) {
    const TTImage copie(*this);
    Crop(copie, x0, y0, colonnes, lignes, pas, mode);
    return;
  }
  if (source.TypePixel() != TypePixel())
    Systeme::Warning(
        "[TTImage] (Crop) Type de pixels differents : " + InfoType::NomType(source.TypePixel()).str() + " " +
        InfoType::NomType(TypePixel()).str());
  const TPoint2D<int> p0(x0, y0);
  const TPoint2D<int> p1(BorneInt(static_cast<long long>(x0) + colonnes),
                         BorneInt(static_cast<long long>(y0) + lignes));
  const GeometrieCrop g = TTImage_Annexes::GestionCrop(source.GetTaille(), p0, p1, pas, mode != 0);
  Construire(g.taille.x, g.taille.y, source.GetNbCanaux());
  if (g.partiel) RemplirValeur(T());
  if (g.taille.x == 0 || g.taille.y == 0) return;
  source.GetValeurs(m_lignesTab.data(), g.p0.x, g.p0.y, g.p1.x, g.p1.y, g.decalage.x, g.decalage.y, pas);
}

template <class T>
void TTImage<T>::Paste(SpecifImageOut& destination, int x0, int y0, int colonnes, int lignes, int xDest,
                       int yDest, int pas) const {
  if (&destination == static_cast<const SpecifImageOut*>(this)) {
    const TTImage copie(*this);
    copie.Paste(destination, x0, y0, colonnes, lignes, xDest, yDest, pas);
    return;
  }
  if (destination.GetNbCanaux() != m_canaux)
    ZEPRA_ERREUR("[TTImage] (Paste) Nombre de canaux incompatibles.");
  if (destination.GetTypePixel() != TypePixel())
    Systeme::Warning("[TTImage] (Paste) Type de pixels differents : " + InfoType::NomType(TypePixel()).str() +
                     " " + InfoType::NomType(destination.GetTypePixel()).str());
  const GeometriePaste g = CalculPaste(GetTaille(), destination.GetTaille(), x0, y0, colonnes, lignes, xDest,
                                       yDest, pas, "[TTImage] (Paste)");
  if (g.vide) return;
  destination.SetValeurs(m_lignesTab.data(), g.s0.x, g.s0.y, g.s1.x, g.s1.y, g.dest.x, g.dest.y, pas);
}

template <class T>
TPoint2D<int> TTImage<T>::Paste(SpecifImageOut& destination, const TPoint2D<int>& coinDest) const {
  const GeometriePaste g = CalculPaste(GetTaille(), destination.GetTaille(), 0, 0, m_colonnes, m_lignes,
                                       coinDest.x, coinDest.y, 1, nullptr);
  Paste(destination, 0, 0, m_colonnes, m_lignes, coinDest.x, coinDest.y, 1);
  return g.vide ? coinDest : g.dest;
}

template <class T>
void TTImage<T>::Lire(const char* fichier, int image) {
  if (image != 0)
    ZEPRA_ERREUR("[TTIMAGE] (Lire) Image " << image << " demandee dans " << fichier
                                           << " : nos formats n'ont que l'image 0.");
  LireSource(ImageFicIn(fichier), fichier);
}

template <class T>
void TTImage<T>::LireCanal(const char* fichier, int canal) {
  auto entree = std::make_unique<ImageFicIn>(fichier);
  if (canal < 0 || canal >= entree->GetNbCanaux())
    ZEPRA_ERREUR("[TTIMAGE] (LireCanal) Canal " << canal << " absent du fichier " << fichier << " ("
                                                << entree->GetNbCanaux() << " canaux).");
  if (entree->GetNbCanaux() == 1) return LireSource(*entree, fichier);
  LireSource(CanalDe(std::move(entree), canal), fichier);
}

// Reads into a new image first: a failed read leaves this one unchanged. The reader writes every
// sample, so the new image is not zeroed first; its size is checked against the limit before.
template <class T>
void TTImage<T>::LireSource(const SpecifImageIn& entree, const char* fichier) {
  const TPoint2D<int> t = entree.GetTaille();
  const int canaux = entree.GetNbCanaux();
  const uint64_t echantillons = static_cast<uint64_t>(t.x) * static_cast<uint64_t>(t.y) * canaux;
  const uint64_t octets = std::is_same_v<T, bool> ? (echantillons + 7) / 8 : echantillons * sizeof(T);
  if (octets > LimiteOctetsDecodes())
    ZEPRA_ERREUR("[TTIMAGE] (Lire) Image "
                 << fichier << " de " << t.x << " x " << t.y << " x " << canaux << " echantillons (" << octets
                 << " octets) au-dela de la limite de " << LimiteOctetsDecodes() << " octets.");
  TTImage lu(TagNbCanaux(1));
  lu.Dimensionner(t.x, t.y, canaux, false);
  entree.GetValeurs(lu.m_lignesTab.data(), 0, 0, t.x, t.y, 0, 0, 1);
  *this = std::move(lu);
}

namespace {
// Type, channels, then size: the writer is made once the three are known and may refuse them there.
void Preparer(ImageFicOut& sortie, eEnumType type, int colonnes, int lignes, TagNbCanaux canaux) {
  sortie.SetTypePixel(type);
  sortie.SetNbCanaux(canaux);
  sortie.SetTaille(colonnes, lignes);
}
}  // namespace

template <class T>
std::unique_ptr<ImageFicOut> TTImage<T>::OuvrirSortie(const char* fichier, int image,
                                                      const OptionsImageOut& options, int colonnes,
                                                      int lignes, TagNbCanaux canaux) {
  if (TChaine(fichier).Extension().longueur() == 0)
    ZEPRA_ERREUR("[TTIMAGE] (Sauver) Aucune extension pour le fichier " << (fichier ? fichier : ""));
  if (image != 0)
    ZEPRA_ERREUR("[TTIMAGE] (Sauver) Image " << image << " demandee pour " << fichier
                                             << " : nos formats n'ont que l'image 0.");
  auto sortie = std::make_unique<ImageFicOut>(fichier, options);
  Preparer(*sortie, CodeType<T>::value, colonnes, lignes, canaux);
  return sortie;
}

template <class T>
void TTImage<T>::Ecrire(ImageFicOut& sortie) const {
  sortie.SetValeurs(GetLines(), 0, 0, m_colonnes, m_lignes, 0, 0, 1);
  sortie.Fermer();
}

template <class T>
void TTImage<T>::Sauver(const char* fichier, int image, const OptionsImageOut& options) const {
  Ecrire(*OuvrirSortie(fichier, image, options, m_colonnes, m_lignes, TagNbCanaux(m_canaux)));
}

template <class T>
void TTImage<T>::Sauver(const char* fichier, int image) const {
  Sauver(fichier, image, OptionsImageOut::defaut());
}

template <class T>
void TTImage<T>::Sauver(const char* fichier, const OptionsEcriture& options) const {
  Sauver(fichier, options, GeoreferenceEcriture());
}

template <class T>
void TTImage<T>::Sauver(const char* fichier, const OptionsEcriture& options,
                        const GeoreferenceEcriture& georef) const {
  ParametresGeoTIFF geotiff;
  geotiff.options = options;
  geotiff.georef = georef;
  ImageFicOut sortie(fichier, geotiff);
  Preparer(sortie, TypePixel(), m_colonnes, m_lignes, TagNbCanaux(m_canaux));
  Ecrire(sortie);
}

template class TTImage<bool>;
template class TTImage<unsigned char>;
template class TTImage<signed char>;
template class TTImage<unsigned short>;
template class TTImage<short>;
template class TTImage<unsigned int>;
template class TTImage<int>;
template class TTImage<float>;
template class TTImage<double>;
