// PNM (binary P5 / P6) reader and writer.
#include "pnm.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <sstream>

#include "handlers.h"
#include "zepra/copierpixels.h"
#include "zepra/erreur.h"

namespace {

bool EstBlanc(int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

bool EstFichierOrdinaire(const std::string& nom, long long& taille) {
  struct stat etat;
  if (stat(nom.c_str(), &etat) != 0 || !S_ISREG(etat.st_mode)) return false;
  taille = static_cast<long long>(etat.st_size);
  return true;
}

std::string NomDuType(eEnumType type) {
  if (type >= eIndetermine && type <= eFloat8) return InfoType::NomType(type).str();
  return "de code " + std::to_string(static_cast<int>(type));
}

}  // namespace

ImageFicIn_PNM::ImageFicIn_PNM(const std::string& nom) : m_nom(nom) { LireEntete(); }

ImageFicIn_PNM::ImageFicIn_PNM(const ImageFicIn_PNM& autre)
    : ImplGetValeurs<ImageFicIn_PNM>(), m_nom(autre.m_nom) {
  LireEntete();
}

void ImageFicIn_PNM::LireEntete() {
  const std::string tag = "[ImageFicIn_PNM::Open(" + m_nom + ")] : ";
  long long taille = 0;
  if (EstFichierOrdinaire(m_nom, taille)) m_flux.open(m_nom, std::ios::in | std::ios::binary);
  if (!m_flux.is_open()) ZEPRA_ERREUR(tag << "Probleme a l'ouverture du fichier");

  long long position = 0;
  auto lire = [&]() {
    const int c = m_flux.get();
    if (c == EOF) ZEPRA_ERREUR(tag << "entete tronque a l'octet " << position);
    ++position;
    return c;
  };
  const int p = m_flux.get();
  const int chiffre = m_flux.get();
  if (p != 'P' || (chiffre != '5' && chiffre != '6'))
    ZEPRA_ERREUR(tag << "pas un fichier PNM binaire (P5 ou P6)");
  position = 2;
  m_canaux = chiffre == '5' ? 1 : 3;

  // Each number follows whitespace and comments; 'suivant' is the character after the last one read.
  int suivant = lire();
  auto nombre = [&](const char* quoi) {
    for (;;) {
      if (suivant == '#') {
        while (suivant != '\n' && suivant != '\r') suivant = lire();
      } else if (EstBlanc(suivant)) {
        suivant = lire();
      } else {
        break;
      }
    }
    if (suivant < '0' || suivant > '9')
      ZEPRA_ERREUR(tag << quoi << " attendu a l'octet " << position - 1 << ", caractere de code " << suivant
                       << " trouve");
    long long v = 0;
    while (suivant >= '0' && suivant <= '9') {
      v = v * 10 + (suivant - '0');
      if (v > INT_MAX) ZEPRA_ERREUR(tag << quoi << " au-dela de " << INT_MAX);
      suivant = lire();
    }
    return static_cast<int>(v);
  };
  m_colonnes = nombre("largeur");
  m_lignes = nombre("hauteur");
  m_maxval = nombre("maxval");
  // Exactly one whitespace character ends the header: the raster may begin with a byte that looks
  // like one.
  if (!EstBlanc(suivant))
    ZEPRA_ERREUR(tag << "un blanc doit suivre maxval (octet " << position - 1 << ", caractere de code "
                     << suivant << ")");
  m_debut = position;

  if (m_colonnes < 1 || m_lignes < 1)
    ZEPRA_ERREUR(tag << "taille " << m_colonnes << " x " << m_lignes << " invalide");
  if (m_maxval < 1 || m_maxval > 65535) ZEPRA_ERREUR(tag << "maxval " << m_maxval << " invalide (1 a 65535)");
  m_type = m_maxval < 256 ? eUInt1 : eUInt2;
  const int octetsEchantillon = m_maxval < 256 ? 1 : 2;
  m_octetsLigne = static_cast<long long>(m_colonnes) * m_canaux * octetsEchantillon;
  // One line, then all lines, against what the file holds: no product can overflow.
  const long long reste = taille - m_debut;
  if (m_octetsLigne > reste || m_lignes > reste / m_octetsLigne)
    ZEPRA_ERREUR(tag << "raster tronque : " << m_colonnes << " x " << m_lignes << " x " << m_canaux << " x "
                     << octetsEchantillon << " octets attendus apres l'octet " << m_debut
                     << ", le fichier en a " << taille);
}

std::unique_ptr<ImageFicIn_PNM> ImageFicIn_PNM::SiFichierPNM(const std::string& nom) {
  long long taille = 0;
  if (!EstFichierOrdinaire(nom, taille)) return nullptr;
  std::ifstream f(nom, std::ios::in | std::ios::binary);
  char magie[3];
  if (!f.read(magie, 3)) return nullptr;
  if (magie[0] != 'P' || (magie[1] != '5' && magie[1] != '6') || !(EstBlanc(magie[2]) || magie[2] == '#'))
    return nullptr;
  return std::make_unique<ImageFicIn_PNM>(nom);
}

template <class N, class D>
void ImageFicIn_PNM::LireRectangle(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest,
                                   int yDest, int pas) const {
  const long long nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
  const long long etendue = (nx - 1) * pas + 1;  // columns from the first to the last one taken
  const long long echantillons = etendue * m_canaux;
  const std::streamsize octets =
      static_cast<std::streamsize>(echantillons * static_cast<long long>(sizeof(N)));
  m_octets.resize(static_cast<size_t>(octets));
  if constexpr (sizeof(N) == 2) m_valeurs16.resize(static_cast<size_t>(echantillons));
  long long j = 0;
  for (long long y = y0; y < y1; y += pas, ++j) {
    const long long position =
        m_debut + y * m_octetsLigne + static_cast<long long>(x0) * m_canaux * sizeof(N);
    // Consecutive lines need no seek, which would drop the stream's buffer.
    if (position != m_positionFlux) {
      m_flux.clear();
      m_flux.seekg(position);
    }
    m_flux.read(reinterpret_cast<char*>(m_octets.data()), octets);
    m_positionFlux = m_flux.gcount() == octets ? position + octets : -1;
    if (m_flux.gcount() != octets)
      ZEPRA_ERREUR("[ImageFicIn_PNM] (GetValeurs) Ligne " << y << " du fichier " << m_nom
                                                          << " illisible : " << octets
                                                          << " octets attendus a l'octet " << position);
    N* source;
    if constexpr (sizeof(N) == 1) {
      source = m_octets.data();
    } else {
      for (long long i = 0; i < echantillons; ++i)
        m_valeurs16[static_cast<size_t>(i)] = static_cast<unsigned short>(
            m_octets[static_cast<size_t>(2 * i)] << 8 | m_octets[static_cast<size_t>(2 * i + 1)]);
      source = m_valeurs16.data();
    }
    CopierPixels<N, D>(&source, lignes + j, 0, 0, static_cast<int>(etendue), 1, xDest, yDest, pas, m_canaux);
  }
}

template <class D>
void ImageFicIn_PNM::GetValeursT(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest,
                                 int yDest, int pas) const {
  if (!RectangleALire("ImageFicIn_PNM", m_nom, GetTaille(), x0, y0, x1, y1, pas)) return;
  // The format's two sample widths.
  if (m_type == eUInt1)
    LireRectangle<unsigned char, D>(lignes, x0, y0, x1, y1, xDest, yDest, pas);
  else
    LireRectangle<unsigned short, D>(lignes, x0, y0, x1, y1, xDest, yDest, pas);
}

ImageFicOut_PNM::ImageFicOut_PNM(const std::string& nom, const ImageInfos& infos)
    : ImplSetValeurs(nom, "ImageFicOut_PNM", infos.taille, infos.canaux, infos.type) {
  if (m_type != eUInt1 && m_type != eUInt2)
    ZEPRA_ERREUR("[ImageFicOut_PNM] (Constructeur) Type de pixel "
                 << NomDuType(m_type) << " non gere pour " << nom
                 << " : le PNM s'ecrit en UInt1 (maxval 255) ou "
                    "UInt2 (maxval 65535)");
  if (m_canaux != 1 && m_canaux != 3)
    ZEPRA_ERREUR("[ImageFicOut_PNM] (Constructeur) " << m_canaux << " canaux non geres pour " << nom
                                                     << " : le PNM s'ecrit en 1 canal (P5) ou 3 (P6)");
  if (m_taille.x < 1 || m_taille.y < 1)
    ZEPRA_ERREUR("[ImageFicOut_PNM] (Constructeur) Image vide (" << m_taille.x << " x " << m_taille.y
                                                                 << ") pour " << nom);
  Ouvrir();
  std::ostringstream entete;
  entete << (m_canaux == 1 ? "P5" : "P6") << "\n"
         << m_taille.x << " " << m_taille.y << "\n"
         << (m_type == eUInt1 ? 255 : 65535) << "\n";
  const std::string e = entete.str();
  m_fichier->flux().write(e.data(), static_cast<std::streamsize>(e.size()));
  m_debut = m_position = static_cast<long long>(e.size());
  m_octetsLigne = static_cast<long long>(m_taille.x) * m_canaux * (m_type == eUInt1 ? 1 : 2);
}

template <class S, class N>
void ImageFicOut_PNM::Recevoir(LigneDe<S> const* lignes, int x0, int y0, int x1, int xDest, int yDest,
                               int pas, long long ny) {
  const long long nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
  const size_t echantillons = static_cast<size_t>(nx * m_canaux);
  std::vector<N>& tampon = [this]() -> std::vector<N>& {
    if constexpr (sizeof(N) == 1)
      return m_tampon8;
    else
      return m_tampon16;
  }();
  tampon.resize(echantillons);
  N* d = tampon.data();
  std::ofstream& flux = m_fichier->flux();
  for (long long j = 0; j < ny; ++j) {
    const int ys = static_cast<int>(y0 + j * pas);
    const int y = static_cast<int>(yDest + j);
    CopierPixels<S, N>(lignes, &d, x0, ys, x1, ys + 1, 0, 0, pas, m_canaux);
    const char* octets = reinterpret_cast<const char*>(d);
    if constexpr (sizeof(N) == 2) {
      // Netpbm's 16-bit samples: most significant byte first.
      m_octets.resize(2 * echantillons);
      for (size_t i = 0; i < echantillons; ++i) {
        m_octets[2 * i] = static_cast<char>(d[i] >> 8);
        m_octets[2 * i + 1] = static_cast<char>(d[i] & 0xFF);
      }
      octets = m_octets.data();
    }
    const long long nb = static_cast<long long>(echantillons * sizeof(N));
    const long long position =
        m_debut + y * m_octetsLigne + static_cast<long long>(xDest) * m_canaux * sizeof(N);
    if (position != m_position) flux.seekp(position);
    flux.write(octets, static_cast<std::streamsize>(nb));
    m_position = position + nb;
    m_suivi.Recevoir(y, xDest, static_cast<int>(xDest + nx));
  }
}

template <class S>
void ImageFicOut_PNM::SetValeursT(LigneDe<S> const* lignes, int x0, int y0, int x1, int y1, int xDest,
                                  int yDest, int pas) {
  long long nx, ny;
  if (!RectangleAEcrire(x0, y0, x1, y1, xDest, yDest, pas, nx, ny)) return;
  if (m_type == eUInt1)
    Recevoir<S, unsigned char>(lignes, x0, y0, x1, xDest, yDest, pas, ny);
  else
    Recevoir<S, unsigned short>(lignes, x0, y0, x1, xDest, yDest, pas, ny);
}

#define ZEPRA_INST_PNM(T)                                                                                   \
  template void ImageFicIn_PNM::GetValeursT<T>(LigneDe<T> const*, int, int, int, int, int, int, int) const; \
  template void ImageFicOut_PNM::SetValeursT<T>(LigneDe<T> const*, int, int, int, int, int, int, int);
ZEPRA_NEUF_TYPES(ZEPRA_INST_PNM)
#undef ZEPRA_INST_PNM

std::unique_ptr<SpecifImageIn> CreateReader_PNM(const std::string& nom) {
  return ImageFicIn_PNM::SiFichierPNM(nom);
}

std::unique_ptr<EcrivainImage> CreateWriter_PNM(const std::string& nom, const ImageInfos& infos) {
  return std::make_unique<ImageFicOut_PNM>(nom, infos);
}
