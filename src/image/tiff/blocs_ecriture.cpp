#include "blocs_ecriture.h"

#include <algorithm>
#include <cstring>

#include "codecs_externes.h"
#include "predicteur_ecriture.h"
#include "tags.h"
#include "tags_ecriture.h"
#include "zepra/erreur.h"

namespace tiff {

namespace {

constexpr bool kHoteGrosBoutiste = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

// Samples given one per byte (0 or not) packed most significant bit first, each row on whole bytes.
void PaquerBits(std::vector<unsigned char>& bloc, int largeur, int hauteur, int echantillons) {
  const size_t n = static_cast<size_t>(largeur) * echantillons, ligne = (n + 7) / 8;
  for (int y = 0; y < hauteur; ++y) {
    const unsigned char* source = bloc.data() + y * n;
    unsigned char* cible = bloc.data() + y * ligne;
    for (size_t o = 0; o < ligne; ++o) {
      unsigned char octet = 0;
      for (size_t b = 0; b < 8 && 8 * o + b < n; ++b)
        octet |= static_cast<unsigned char>((source[8 * o + b] != 0) << (7 - b));
      cible[o] = octet;  // reads of this row are done: cible never passes source
    }
  }
  bloc.resize(ligne * hauteur);
}

void Permuter(std::vector<unsigned char>& bloc, int octets) {
  if (octets > 1)
    for (size_t i = 0; i + octets <= bloc.size(); i += octets) std::reverse(&bloc[i], &bloc[i] + octets);
}

}  // namespace

std::unique_ptr<Encodeur> EncodeurEcriture(int compression, int niveau, int qualite, const std::string& nom) {
  if (compression == kSans) return nullptr;
  const Codec* codec = TrouverCodec(compression);
  if (!codec || !codec->encodeur)
    ZEPRA_ERREUR("[EcrivainGeoTIFF] Compression " << NomCompression(compression)
                                                  << " non disponible en ecriture pour le fichier " << nom
                                                  << ".");
  return codec->encodeur(niveau, qualite);
}

Compresseur::Compresseur(const PlanEcriture& p, const TPoint2D<int>& taille,
                         const std::vector<unsigned char>& remplissage, const std::string& nom)
    : m_plan(p), m_taille(taille), m_remplissage(remplissage), m_octets(p.bits == 1 ? 1 : p.bits / 8) {
  m_contexte.nom = nom;
  m_contexte.largeur = p.largeurBloc;
  m_contexte.hauteur = p.hauteurBloc;
  m_contexte.echantillons = p.planaire ? 1 : p.canaux;
  m_contexte.bits = p.bits;
  m_contexte.photometrique = PhotometrieEcrite(p, false);
  m_contexte.tablesJpeg = &m_tables;
  m_encodeur = EncodeurEcriture(static_cast<int>(p.compression), p.niveau, p.qualite, nom);
  // Blocks are abbreviated streams: the file carries their tables once.
  if (p.compression == CompressionTIFF::kJPEG) m_tables = tiff::TablesJpeg(m_contexte, p.qualite);
  if (p.masqueInterne) {
    m_contexteMasque = m_contexte;
    m_contexteMasque.echantillons = 1;
    m_contexteMasque.bits = 1;
    m_contexteMasque.photometrique = kMasque;
    m_contexteMasque.tablesJpeg = nullptr;
    m_encodeurMasque = EncodeurEcriture(8, 0, 0, nom);
  }
}

Compresseur::~Compresseur() = default;

int Compresseur::BlocsParRangee() const {
  const int colonnes = (m_taille.x + m_plan.largeurBloc - 1) / m_plan.largeurBloc;
  return colonnes * (m_plan.planaire ? m_plan.canaux : 1) * (m_plan.masqueInterne ? 2 : 1);
}

void Compresseur::Encoder(Encodeur* encodeur, const ContexteBloc& c, std::vector<unsigned char>& bloc,
                          std::vector<unsigned char>& sortie) {
  if (encodeur)
    encodeur->Encoder(bloc.data(), c, sortie);
  else
    sortie.swap(bloc);
}

void Compresseur::Rangee(int r, const unsigned char* donnees, size_t pas, const unsigned char* valide,
                         size_t pasValide, std::vector<std::vector<unsigned char>>& blocs) {
  const PlanEcriture& p = m_plan;
  const int y0 = r * p.hauteurBloc;
  const int lignes = std::min(p.hauteurBloc, m_taille.y - y0);
  if (r < 0 || lignes <= 0)
    ZEPRA_ERREUR("[EcrivainGeoTIFF] (Rangee) Rangee de blocs " << r << " hors de l'image du fichier "
                                                               << m_contexte.nom << ".");
  // Tiles are whole, padded; the last strip is short.
  const int hauteur = p.tuilee ? p.hauteurBloc : lignes;
  const int plans = p.planaire ? p.canaux : 1, parPixel = p.planaire ? 1 : p.canaux;
  const size_t pixel = static_cast<size_t>(p.canaux) * m_octets,
               echantillon = static_cast<size_t>(parPixel) * m_octets;
  ContexteBloc c = m_contexte;
  c.hauteur = hauteur;
  for (int plan = 0; plan < plans; ++plan)
    for (int x0 = 0; x0 < m_taille.x; x0 += p.largeurBloc) {
      const int largeur = std::min(p.largeurBloc, m_taille.x - x0);
      m_bloc.resize(static_cast<size_t>(p.largeurBloc) * hauteur * echantillon);
      const unsigned char* vide = m_remplissage.data() + (p.planaire ? plan * m_octets : 0);
      for (int y = 0; y < hauteur; ++y) {
        unsigned char* cible = m_bloc.data() + static_cast<size_t>(y) * p.largeurBloc * echantillon;
        int x = 0;
        if (y < lignes) {
          const unsigned char* source = donnees + y * pas + x0 * pixel;
          if (!p.planaire) {
            std::memcpy(cible, source, largeur * pixel);
            x = largeur;
          } else {
            for (; x < largeur; ++x)
              std::memcpy(cible + x * echantillon, source + x * pixel + plan * m_octets, echantillon);
          }
        }
        for (; x < p.largeurBloc; ++x) std::memcpy(cible + x * echantillon, vide, echantillon);
      }
      if (p.bits == 1) PaquerBits(m_bloc, p.largeurBloc, hauteur, parPixel);
      AppliquerPredicteur(p.predicteur, m_bloc.data(), c, m_travail);
      if (kHoteGrosBoutiste && p.predicteur != 3) Permuter(m_bloc, m_octets);
      blocs.emplace_back();
      // A block with no valid pixel is the same bytes wherever it lies (inputs far apart leave many):
      // compressed once, its bytes reused.
      bool sansDonnee = valide != nullptr;
      for (int y = 0; y < lignes && sansDonnee; ++y) {
        const unsigned char* v = valide + y * pasValide + x0;
        sansDonnee = std::all_of(v, v + largeur, [](unsigned char o) { return o == 0; });
      }
      if (sansDonnee && m_bloc == m_videBrut) {
        blocs.back() = m_videCode;
      } else {
        if (sansDonnee) m_videBrut = m_bloc;
        Encoder(m_encodeur.get(), c, m_bloc, blocs.back());
        if (sansDonnee) m_videCode = blocs.back();
      }
      if (!p.masqueInterne) continue;
      // The mask of the block: 1 for valid pixels, the parts outside the image not valid.
      m_bloc.assign(static_cast<size_t>(p.largeurBloc) * hauteur, 0);
      for (int y = 0; y < lignes; ++y) {
        unsigned char* cible = m_bloc.data() + static_cast<size_t>(y) * p.largeurBloc;
        if (valide)
          std::memcpy(cible, valide + y * pasValide + x0, largeur);
        else
          std::fill(cible, cible + largeur, 1);
      }
      PaquerBits(m_bloc, p.largeurBloc, hauteur, 1);
      ContexteBloc cm = m_contexteMasque;
      cm.hauteur = hauteur;
      blocs.emplace_back();
      Encoder(m_encodeurMasque.get(), cm, m_bloc, blocs.back());
    }
}

}  // namespace tiff
