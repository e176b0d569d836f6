#include "tiff_annexes.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace tiff {

namespace {

constexpr bool kHoteGrosBoutiste = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

void Inverser(unsigned char* p, int taille) { std::reverse(p, p + taille); }

template <class V>
V Valeur(const std::vector<unsigned char>& octets, size_t i) {
  V v;
  std::memcpy(&v, octets.data() + i * sizeof(V), sizeof(V));
  return v;
}

template <class V>
void Ecrire(std::ostream& flux, V v) {
  unsigned char o[sizeof(V)];
  std::memcpy(o, &v, sizeof(V));
  if (kHoteGrosBoutiste) Inverser(o, sizeof(V));
  flux.write(reinterpret_cast<const char*>(o), sizeof(V));
}

}  // namespace

uint64_t MaxDecode(int compression, uint64_t octets) {
  if (compression == kSans) return octets;
  // PackBits: two bytes give at most a run of 128.
  if (compression == kPackBits) return (octets + 1) / 2 * 128;
  // LZW: at most one code per 9 bits; the i-th code's string has at most i bytes (one more than
  // the longest string before it) and never more than the 4096 a full table can hold.
  const uint64_t codes = octets * 8 / 9 + 1;
  return std::min(codes * 4096, codes * (codes + 1) / 2);
}

// ---- LecteurOctets ----

LecteurOctets::LecteurOctets(const std::string& nom) : m_nom(nom) {
  m_flux.open(nom, std::ios::in | std::ios::binary);
  if (!m_flux.is_open())
    ZEPRA_ERREUR("[LecteurOctets] (Constructeur) Impossible d'ouvrir le fichier " << nom);
  m_flux.seekg(0, std::ios::end);
  const std::streamoff fin = m_flux.tellg();
  if (fin < 0) ZEPRA_ERREUR("[LecteurOctets] (Constructeur) Taille illisible pour le fichier " << nom);
  m_taille = static_cast<uint64_t>(fin);
  m_flux.seekg(0);
}

void LecteurOctets::Aller(uint64_t offset) {
  if (offset > m_taille)
    ZEPRA_ERREUR("[LecteurOctets] (Aller) Offset " << offset << " au-dela de la fin du fichier " << m_nom
                                                   << " (" << m_taille << " octets).");
  if (offset != m_position) {
    m_flux.clear();
    m_flux.seekg(static_cast<std::streamoff>(offset));
    m_position = offset;
  }
}

void LecteurOctets::Lire(void* destination, uint64_t octets) {
  if (octets > m_taille - m_position)
    ZEPRA_ERREUR("[LecteurOctets] (Lire) Fichier " << m_nom << " tronque : " << octets
                                                   << " octets demandes a l'offset " << m_position << " ("
                                                   << m_taille << " octets).");
  m_flux.read(static_cast<char*>(destination), static_cast<std::streamsize>(octets));
  if (static_cast<uint64_t>(m_flux.gcount()) != octets) {
    m_flux.clear();
    m_position = static_cast<uint64_t>(-1);
    ZEPRA_ERREUR("[LecteurOctets] (Lire) Lecture impossible de " << octets << " octets dans le fichier "
                                                                 << m_nom);
  }
  m_position += octets;
}

uint8_t LecteurOctets::Lire8() {
  uint8_t v;
  Lire(&v, 1);
  return v;
}

uint16_t LecteurOctets::Lire16() {
  unsigned char o[2];
  Lire(o, 2);
  return m_permuter != kHoteGrosBoutiste ? static_cast<uint16_t>(o[0] << 8 | o[1])
                                         : static_cast<uint16_t>(o[1] << 8 | o[0]);
}

uint32_t LecteurOctets::Lire32() {
  unsigned char o[4];
  Lire(o, 4);
  const bool grosBoutiste = m_permuter != kHoteGrosBoutiste;
  if (grosBoutiste) return uint32_t(o[0]) << 24 | uint32_t(o[1]) << 16 | uint32_t(o[2]) << 8 | o[3];
  return uint32_t(o[3]) << 24 | uint32_t(o[2]) << 16 | uint32_t(o[1]) << 8 | o[0];
}

// ---- Directory ----

int Directory::SizeOfValue(int type) {
  static const int tailles[13] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
  return type >= 1 && type <= 12 ? tailles[type] : 0;
}

double Directory::GetValue(int i) const {
  if (i < 0 || static_cast<uint32_t>(i) >= count || values.size() < Octets())
    ZEPRA_ERREUR("[Directory] (GetValue) Indice " << i << " hors de [0, " << count << ").");
  const size_t k = static_cast<size_t>(i);
  switch (type) {
    case 1:
    case 2:
    case 7:
      return values[k];
    case 3:
      return Valeur<uint16_t>(values, k);
    case 4:
      return Valeur<uint32_t>(values, k);
    case 5:
    case 10: {
      const uint32_t num = Valeur<uint32_t>(values, 2 * k), den = Valeur<uint32_t>(values, 2 * k + 1);
      if (den == 0) return std::numeric_limits<double>::quiet_NaN();
      if (type == 5) return static_cast<double>(num) / den;
      return static_cast<double>(static_cast<int32_t>(num)) / static_cast<int32_t>(den);
    }
    case 6:
      return static_cast<signed char>(values[k]);
    case 8:
      return Valeur<int16_t>(values, k);
    case 9:
      return Valeur<int32_t>(values, k);
    case 11:
      return Valeur<float>(values, k);
    case 12:
      return Valeur<double>(values, k);
    default:
      ZEPRA_ERREUR("[Directory] (GetValue) Type de directory (" << type << ") non gere !!!");
  }
}

void Directory::SetValue(double v, int i) {
  if (i < 0 || static_cast<uint32_t>(i) >= count)
    ZEPRA_ERREUR("[Directory] (SetValue) Indice " << i << " hors de [0, " << count << ").");
  unsigned char* p = values.data() + static_cast<size_t>(i) * SizeOfValue(type);
  auto poser = [p](auto x) { std::memcpy(p, &x, sizeof x); };
  switch (type) {
    case 1:
    case 2:
    case 7:
      poser(static_cast<uint8_t>(v));
      break;
    case 3:
      poser(static_cast<uint16_t>(v));
      break;
    case 4:
      poser(static_cast<uint32_t>(v));
      break;
    case 6:
      poser(static_cast<int8_t>(v));
      break;
    case 8:
      poser(static_cast<int16_t>(v));
      break;
    case 9:
      poser(static_cast<int32_t>(v));
      break;
    case 11:
      poser(static_cast<float>(v));
      break;
    case 12:
      poser(v);
      break;
    default:
      ZEPRA_ERREUR("[Directory] (SetValue) Type de directory (" << type << ") non gere !!!");
  }
}

void Directory::SetRationalValue(unsigned int numerateur, unsigned int denominateur, int i) {
  if ((type != 5 && type != 10) || i < 0 || static_cast<uint32_t>(i) >= count)
    ZEPRA_ERREUR("[Directory] (SetRationalValue) Indice " << i << " ou type " << type << " impossible.");
  const uint32_t v[2] = {numerateur, denominateur};
  std::memcpy(values.data() + static_cast<size_t>(i) * 8, v, 8);
}

// ---- TIFF_Annexes: reading ----

TIFF_Annexes::TIFF_Annexes(const std::string& nom) : m_lecteur(new LecteurOctets(nom)), m_nom(nom) {}

TIFF_Annexes::TIFF_Annexes() = default;

void TIFF_Annexes::Permut(Directory& d, bool permuter) {
  const int taille = Directory::SizeOfValue(d.type);
  if (taille == 0) ZEPRA_ERREUR("[TIFF_Annexes] (Permut) Type de directory (" << d.type << ") non gere !!!");
  if (!permuter || taille == 1) return;
  // The two halves of a rational are swapped separately.
  const int element = (d.type == 5 || d.type == 10) ? 4 : taille;
  for (size_t i = 0; i + element <= d.values.size(); i += element) Inverser(d.values.data() + i, element);
}

void TIFF_Annexes::LireEntete(bool avertir) {
  LecteurOctets& f = *m_lecteur;
  unsigned char marque[2];
  f.Lire(marque, 2);
  // Anything but "II" is taken as big-endian; the version check below rejects the rest.
  const bool grosBoutiste = !(marque[0] == 'I' && marque[1] == 'I');
  m_swap = grosBoutiste != kHoteGrosBoutiste;
  f.SetPermuter(m_swap);
  if (f.Lire16() != 42)
    ZEPRA_ERREUR("[ImageFicIn] (LireEntete) Magic Number non reconnu (ficher : " << m_nom);
  const uint64_t premier = f.Lire32();
  f.Aller(premier);
  const uint16_t n = f.Lire16();
  if (premier + 2 + 12ull * n + 4 > f.Taille())
    ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Le repertoire de "
                 << n << " entrees a l'offset " << premier << " depasse la fin du fichier " << m_nom << " ("
                 << f.Taille() << " octets).");
  // Values of different entries do not overlap in a sound file: all of them together cannot exceed
  // the file, however many entries point at the same bytes.
  uint64_t totalValeurs = 0;
  for (int e = 0; e < n; ++e) {
    const uint16_t tag = f.Lire16();
    Directory d;
    d.type = f.Lire16();
    d.count = f.Lire32();
    const uint64_t octets = d.Octets();
    if (octets > 4) {
      const uint64_t offset = f.Lire32();
      if (offset + octets > f.Taille())
        ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Tag "
                     << tag << " : " << d.count << " valeurs de type " << d.type << " (" << octets
                     << " octets) a l'offset " << offset << " depassent la fin du fichier " << m_nom << " ("
                     << f.Taille() << " octets).");
      totalValeurs += octets;
      if (totalValeurs > f.Taille())
        ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Les valeurs du repertoire ("
                     << totalValeurs << " octets au tag " << tag << ") depassent la taille du fichier "
                     << m_nom << " (" << f.Taille() << " octets).");
      const uint64_t retour = f.Position();
      d.Alloc();
      f.Aller(offset);
      f.Lire(d.values.data(), octets);
      f.Aller(retour);
    } else {
      d.Alloc();
      unsigned char champ[4];
      f.Lire(champ, 4);
      if (octets > 0) std::memcpy(d.values.data(), champ, static_cast<size_t>(octets));
    }
    Permut(d, m_swap);
    m_tags[tag] = std::move(d);
  }
  const uint32_t suivant = f.Lire32();
  if (suivant != 0 && avertir) {
    Systeme::Warning(
        "[TIFF_Annexes] (LireEntete) Il y a plus d'une image dans le fichier. Traitement de la premiere "
        "image "
        "seulement !");
    VerifieChaine(suivant);
  }
}

// The other directories are not read, but a chain that leaves the file or loops marks a corrupt
// file. Brent's cycle detection needs no memory however long the chain is.
void TIFF_Annexes::VerifieChaine(uint32_t suivant) {
  LecteurOctets& f = *m_lecteur;
  auto apres = [&](uint64_t offset) -> uint64_t {
    if (offset + 2 > f.Taille())
      ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Repertoire suivant a l'offset "
                   << offset << " hors du fichier " << m_nom << " (" << f.Taille() << " octets).");
    f.Aller(offset);
    const uint64_t n = f.Lire16();
    if (offset + 2 + 12 * n + 4 > f.Taille())
      ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Le repertoire de "
                   << n << " entrees a l'offset " << offset << " depasse la fin du fichier " << m_nom << " ("
                   << f.Taille() << " octets).");
    f.Aller(offset + 2 + 12 * n);
    return f.Lire32();
  };
  uint64_t lent = 0, rapide = suivant;  // the first directory is the only one reached from the header
  uint64_t puissance = 1, longueur = 1;
  while (rapide != 0) {
    if (rapide == lent)
      ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Les repertoires du fichier "
                   << m_nom << " bouclent a l'offset " << rapide << ".");
    if (puissance == longueur) {
      lent = rapide;
      puissance *= 2;
      longueur = 0;
    }
    rapide = apres(rapide);
    ++longueur;
  }
}

long long TIFF_Annexes::Entier(uint16_t tag, int i) const {
  const auto it = m_tags.find(tag);
  if (it == m_tags.end() || static_cast<uint32_t>(i) >= it->second.count)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Tag " << tag << " : valeur " << i << " absente dans le fichier "
                                                  << m_nom << ".");
  const double v = it->second.GetValue(i);
  if (!(std::fabs(v) < 9007199254740992.0) || v != std::floor(v))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Tag " << tag << " : valeur " << v
                                                  << " non entiere dans le fichier " << m_nom << ".");
  return static_cast<long long>(v);
}

DescriptionTIFF TIFF_Annexes::GetImage(bool dallageAutorise) {
  DescriptionTIFF d;
  d.nom = m_nom;
  d.permuter = m_swap;
  if (!Present(kPhotometric))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_PHOTOMETRICINTERPRETATION pas trouve !");
  if (!Present(kImageWidth)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_IMAGEWIDTH non trouve !");
  if (!Present(kImageLength)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_IMAGELENGTH non trouve !");

  if (!Present(kBitsPerSample)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_BITSPERSAMPLE non trouve");
  const Directory& bps = m_tags.at(kBitsPerSample);
  for (uint32_t i = 1; i < bps.count; ++i)
    if (bps.GetValue(static_cast<int>(i)) != bps.GetValue(0))
      ZEPRA_ERREUR(
          "[TIFF_Annexes] (GetImage) TIFF_TAG_BITSPERSAMPLE : Tous les canaux n'ont pas le meme nombre de "
          "bits par "
          "pixel");
  long long format = 1;
  if (Present(kSampleFormat)) {
    const Directory& sf = m_tags.at(kSampleFormat);
    for (uint32_t i = 1; i < sf.count; ++i)
      if (sf.GetValue(static_cast<int>(i)) != sf.GetValue(0))
        ZEPRA_ERREUR(
            "[TIFF_Annexes] (GetImage) TIFF_TAG_SAMPLEFORMAT : Tous les canaux n'ont pas le meme format par "
            "pixel");
    format = Entier(kSampleFormat);
  }

  if (Present(kPlanarConfiguration)) {
    d.planaire = static_cast<int>(std::clamp(Entier(kPlanarConfiguration), -1ll, 65536ll));
    if (d.planaire == 2)
      Systeme::Warning("[TIFF_Annexes] (GetImage) TIFF_TAG_PLANARCONFIGURATION 2 : valeur pas encore gere.");
    else if (d.planaire != 1)
      Systeme::Warning("[TIFF_Annexes] (GetImage) TIFF_TAG_PLANARCONFIGURATION " +
                       std::to_string(Entier(kPlanarConfiguration)) + " : valeur impossible.");
  }

  long long canaux = 1;
  if (!Present(kSamplesPerPixel))
    Systeme::Warning("[TIFF_Annexes] (GetImage) Samples per pixel non trouve. On suppose 1.");
  else
    canaux = Entier(kSamplesPerPixel);
  if (canaux < 1 || canaux > 65535)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) SamplesPerPixel (" << canaux << ") invalide dans le fichier "
                                                               << m_nom << ".");
  d.canaux = static_cast<int>(canaux);

  if (!Present(kCompression)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_COMPRESSION non trouve !");
  const long long compression = Entier(kCompression);
  if (compression != kSans && compression != kLZW && compression != kPackBits)
    Systeme::Warning("[TIFF_Annexes] (GetImage) Compression (" + std::to_string(compression) +
                     ") : non geree");
  d.compression = static_cast<int>(std::clamp(compression, -1ll, 65536ll));

  const long long bits = Entier(kBitsPerSample);
  if (bits == 1) {
    d.type = eBit1;
  } else if (format == 1 || format == 2) {
    const eEnumType types[2][3] = {{eUInt1, eUInt2, eUInt4}, {eInt1, eInt2, eInt4}};
    const int k = bits == 8 ? 0 : bits == 16 ? 1 : bits == 32 ? 2 : -1;
    if (k < 0)
      ZEPRA_ERREUR("[TIFF_Annexes] (Image) taille pixel (" << bits << ") non prevue pour format "
                                                           << (format == 1 ? "unsigned." : "signed."));
    d.type = types[format - 1][k];
  } else if (format == 3) {
    if (bits != 32 && bits != 64)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) taille pixel (" << bits
                                                              << ") non prevue pour format IEEE Floating.");
    d.type = bits == 32 ? eFloat4 : eFloat8;
  } else {
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) sampleformat (" << format << ") non prevu.");
  }
  d.bits = static_cast<int>(bits);

  const long long colonnes = Entier(kImageWidth), lignes = Entier(kImageLength);
  if (colonnes < 1 || lignes < 1 || colonnes > INT_MAX || lignes > INT_MAX)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Taille (" << colonnes << " x " << lignes
                                                      << ") invalide dans le fichier " << m_nom << ".");
  d.colonnes = static_cast<int>(colonnes);
  d.lignes = static_cast<int>(lignes);
  // Horizontal differencing (Predictor 2) is common in LZW files; the others are refused when the
  // pixels are read.
  if (Present(kPredictor)) d.predicteur = static_cast<int>(std::clamp(Entier(kPredictor), -1ll, 65536ll));

  if (Present(kDallageColonnes) || Present(kDallageLignes)) {
    if (!dallageAutorise)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : la dalle " << m_nom << " en est elle-meme un.");
    LireDallage(d);
    return d;
  }
  const bool tuile = Present(kTileWidth), bande = Present(kStripOffsets);
  if (!tuile && !bande) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Image ni en Strip, ni en Tile !!!");
  if (tuile && bande) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Image a la fois en Strip, et en Tile !!!");
  const long long photometrie = Entier(kPhotometric);

  if (tuile) {
    if (!Present(kTileLength)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_TILELENGTH non trouve !");
    if (!Present(kTileOffsets)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_TILEOFFSETS non trouve !");
    if (!Present(kTileByteCounts))
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_TILEBYTECOUNTS non trouve !");
    const long long largeur = Entier(kTileWidth), hauteur = Entier(kTileLength);
    if (largeur < 1 || hauteur < 1 || largeur > INT_MAX || hauteur > INT_MAX)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Taille de tuile ("
                   << largeur << " x " << hauteur << ") invalide dans le fichier " << m_nom << ".");
    const uint64_t tuiles = static_cast<uint64_t>((colonnes + largeur - 1) / largeur) *
                            static_cast<uint64_t>((lignes + hauteur - 1) / hauteur);
    if (m_tags.at(kTileOffsets).count != tuiles)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de TILEOFFSETS != TilesPerImage.");
    if (m_tags.at(kTileByteCounts).count != tuiles)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de TILEBYTECOUNTS != TilesPerImage.");
    if (photometrie == 0)
      Systeme::Warning("[TIFF_Annexes] (GetImage) White is zero pas gere : utilisation de black is zero !!!");
    else if (photometrie != 1 && photometrie != 2)
      Systeme::Warning(
          "[TIFF_Annexes] (GetImage) PHOTOMETRICINTERPRETATION de valeur non geree : utilisation de black is "
          "zero "
          "!!!");
    d.disposition = DescriptionTIFF::kTuiles;
    d.largeurBloc = static_cast<int>(largeur);
    d.hauteurBloc = static_cast<int>(hauteur);
    LireBlocs(d, kTileOffsets, kTileByteCounts, tuiles);
    return d;
  }

  if (!Present(kRowsPerStrip)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_ROWSPERSTRIP non trouve !");
  if (!Present(kStripOffsets)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_STRIPOFFSETS non trouve.");
  if (!Present(kStripByteCounts))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_STRIPBYTECOUNTS non trouve.");
  const long long parBande = Entier(kRowsPerStrip);
  if (parBande < 1)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) RowsPerStrip (" << parBande << ") invalide dans le fichier "
                                                            << m_nom << ".");
  if (photometrie == 0) Systeme::Warning("[TIFF_Annexes] (GetImage) White is zero pas gere !");
  if (photometrie == 3) {
    if (bits == 4) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) bitspersample = 4 non gere !");
    if (bits != 8) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) bitspersample != 4 ou 8 !");
    if (!Present(kColorMap)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_COLORMAP non trouve !");
    if (m_tags.at(kColorMap).count != 768)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dans COLORMAP, count pas conforme a bitspersample");
    if (d.canaux != 1)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Image a palette de " << d.canaux << " canaux dans le fichier "
                                                                   << m_nom << " : un seul attendu.");
    LirePalette(d);
    d.disposition = DescriptionTIFF::kPalette;
  } else if (photometrie == 0 || photometrie == 1 || photometrie == 2) {
    if (d.type > eFloat8) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) typePixel (" << d.type << ") non prevu.");
    d.disposition = DescriptionTIFF::kBandes;
  } else {
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) PHOTOMETRICINTERPRETATION de valeur inconnue...");
  }
  d.largeurBloc = d.colonnes;
  d.hauteurBloc = static_cast<int>(std::min<long long>(parBande, lignes));
  LireBlocs(d, kStripOffsets, kStripByteCounts,
            static_cast<uint64_t>((lignes + d.hauteurBloc - 1) / d.hauteurBloc));
  return d;
}

// Offsets and byte counts of the blocks, each checked against the file before anything is read:
// the compressed bytes must lie in the file and be able to give the block's pixels, and all the
// blocks together may not ask for more than the whole file could give.
void TIFF_Annexes::LireBlocs(DescriptionTIFF& d, uint16_t tagOffsets, uint16_t tagOctets, uint64_t nbBlocs) {
  const char* nomOffsets = tagOffsets == kStripOffsets ? "STRIPOFFSETS" : "TILEOFFSETS";
  const char* nomOctets = tagOctets == kStripByteCounts ? "STRIPBYTECOUNTS" : "TILEBYTECOUNTS";
  if (m_tags.at(tagOffsets).count < nbBlocs)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de " << nomOffsets << " (" << m_tags.at(tagOffsets).count
                                                        << ") inferieur au nombre de blocs (" << nbBlocs
                                                        << ") dans le fichier " << m_nom << ".");
  if (m_tags.at(tagOctets).count < nbBlocs)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de " << nomOctets << " (" << m_tags.at(tagOctets).count
                                                        << ") inferieur au nombre de blocs (" << nbBlocs
                                                        << ") dans le fichier " << m_nom << ".");
  const uint64_t taille = m_lecteur->Taille();
  const uint64_t octetsLigne = d.OctetsLigneBloc();
  const bool bandes = tagOffsets == kStripOffsets;
  uint64_t total = 0;
  d.offsets.resize(static_cast<size_t>(nbBlocs));
  d.octets.resize(static_cast<size_t>(nbBlocs));
  for (uint64_t b = 0; b < nbBlocs; ++b) {
    const long long offset = Entier(tagOffsets, static_cast<int>(b));
    const long long octets = Entier(tagOctets, static_cast<int>(b));
    const uint64_t lignes = bandes ? std::min<uint64_t>(d.hauteurBloc, d.lignes - b * d.hauteurBloc)
                                   : static_cast<uint64_t>(d.hauteurBloc);
    uint64_t besoin = 0;
    if (offset < 0 || octets < 0 || __builtin_mul_overflow(octetsLigne, lignes, &besoin) ||
        __builtin_add_overflow(total, besoin, &total))
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Bloc "
                   << b << " (offset " << offset << ", " << octets << " octets) de " << lignes
                   << " lignes de " << octetsLigne << " octets : taille hors de toute mesure dans le fichier "
                   << m_nom << ".");
    if (static_cast<uint64_t>(offset) + static_cast<uint64_t>(octets) > taille)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Le bloc " << b << " (offset " << offset << ", " << octets
                                                        << " octets) depasse la fin du fichier " << m_nom
                                                        << " (" << taille << " octets).");
    if (d.compression == kSans && static_cast<uint64_t>(octets) < besoin)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Le bloc " << b << " n'a que " << octets << " octets pour les "
                                                        << besoin << " de ses " << lignes
                                                        << " lignes dans le fichier " << m_nom << ".");
    if (d.compression != kSans && besoin > MaxDecode(d.compression, static_cast<uint64_t>(octets)))
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Le bloc "
                   << b << " (" << octets << " octets compresses) ne peut pas donner les " << besoin
                   << " octets de ses " << lignes << " lignes dans le fichier " << m_nom << ".");
    d.offsets[static_cast<size_t>(b)] = static_cast<uint64_t>(offset);
    d.octets[static_cast<size_t>(b)] = static_cast<uint64_t>(octets);
  }
  if (total > MaxDecode(d.compression, taille))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Les blocs du fichier "
                 << m_nom << " demandent " << total << " octets de pixels, plus que ses " << taille
                 << " octets ne peuvent en donner.");
}

// ColorMap values are 16-bit; the 8-bit sample is the high byte. Some writers store 8-bit values
// unscaled: when no value exceeds 255 they are taken as they stand.
void TIFF_Annexes::LirePalette(DescriptionTIFF& d) {
  std::vector<long long> v(768);
  long long max = 0;
  for (int i = 0; i < 768; ++i) {
    v[i] = Entier(kColorMap, i);
    if (v[i] < 0 || v[i] > 65535)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Valeur de COLORMAP "
                   << v[i] << " hors de [0, 65535] dans le fichier " << m_nom << ".");
    max = std::max(max, v[i]);
  }
  d.palette.resize(768);
  for (int i = 0; i < 768; ++i) d.palette[i] = static_cast<unsigned char>(max > 255 ? v[i] >> 8 : v[i]);
}

// The tile files of a "Dallage MPD" lie beside the main file: tag 40000 counts them along the
// columns, tag 40001 along the lines, and tile (column i, line j) of "dir/nom.tif" is
// "dir/nom_Tile_i_j.tif" (see NomDalle).
void TIFF_Annexes::LireDallage(DescriptionTIFF& d) {
  if (!Present(kDallageColonnes) || !Present(kDallageLignes))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : il manque un des deux TAGs propriétaire !!!");
  const long long nx = Entier(kDallageColonnes), ny = Entier(kDallageLignes);
  if (nx < 1 || ny < 1 || nx > d.colonnes || ny > d.lignes)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : "
                 << nx << " x " << ny << " dalles impossibles pour une image de " << d.colonnes << " x "
                 << d.lignes << " dans le fichier " << m_nom << ".");
  d.dallesColonnes = static_cast<int>(nx);
  d.dallesLignes = static_cast<int>(ny);
  for (int j = 0; j < d.dallesLignes; ++j)
    for (int i = 0; i < d.dallesColonnes; ++i) {
      const std::string dalle = NomDalle(m_nom, i, j);
      if (!Systeme::ExisteFichier(dalle.c_str()))
        ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : le fichier " << dalle << " n'existe pas !!!");
    }
  d.disposition = DescriptionTIFF::kDallage;
}

std::string NomDalle(const std::string& nom, int i, int j) {
  const size_t barre = nom.find_last_of('/');
  const size_t point = nom.find_last_of('.');
  const bool extension = point != std::string::npos && (barre == std::string::npos || point > barre);
  const std::string base = extension ? nom.substr(0, point) : nom;
  const std::string ext = extension ? nom.substr(point) : std::string();
  return base + "_Tile_" + std::to_string(i) + "_" + std::to_string(j) + ext;
}

bool CheckMagic_TIFF(const std::string& nom) {
  std::ifstream f(nom, std::ios::in | std::ios::binary);
  unsigned char o[4] = {0, 0, 0, 0};
  if (!f.read(reinterpret_cast<char*>(o), 4)) return false;
  return (o[0] == 'I' && o[1] == 'I' && o[2] == 42 && o[3] == 0) ||
         (o[0] == 'M' && o[1] == 'M' && o[2] == 0 && o[3] == 42);
}

// ---- TIFF_Annexes: writing ----

void TIFF_Annexes::SetImage(const TPoint2D<int>& taille, int canaux, eEnumType type) {
  int bits = 0;
  switch (type) {
    case eBit1:
    case eBool:
      bits = 1;
      break;
    case eInt1:
    case eUInt1:
      bits = 8;
      break;
    case eInt2:
    case eUInt2:
      bits = 16;
      break;
    case eInt4:
    case eUInt4:
    case eFloat4:
      bits = 32;
      break;
    case eFloat8:
      bits = 64;
      break;
    default:
      ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) NomType : cas imprevu.");
  }
  int format = 0;
  switch (type) {
    case eBit1:
    case eBool:
    case eUInt1:
    case eUInt2:
    case eUInt4:
      format = 1;
      break;
    case eInt1:
    case eInt2:
    case eInt4:
      format = 2;
      break;
    case eFloat4:
    case eFloat8:
      format = 3;
      break;
    default:
      ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) Type (" << type << ") non prevu pour SampleFormat.");
  }
  // A file we could not read back is not written.
  if (taille.x < 1 || taille.y < 1 || canaux < 1 || canaux > 65535)
    ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) Taille (" << taille.x << " x " << taille.y << " x " << canaux
                                                      << " canaux) impossible dans un fichier TIFF.");
  uint64_t echantillonsLigne = static_cast<uint64_t>(taille.x) * canaux;
  if (bits == 1) echantillonsLigne = (echantillonsLigne + 7) / 8 * 8;
  const uint64_t octets = echantillonsLigne * bits * static_cast<uint64_t>(taille.y) / 8;
  // Offsets and byte counts are 32-bit: the directory and the values come before the pixels.
  if (octets > 0xFFFFFFFFull - 1024 - 6ull * canaux)
    ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) Image de "
                 << octets << " octets trop grande pour un fichier TIFF (4 Go au plus).");

  m_tags.clear();
  auto entree = [this](uint16_t tag, uint16_t t, uint32_t n, double v) {
    Directory d(t, n);
    for (uint32_t i = 0; i < n; ++i) d.SetValue(v, static_cast<int>(i));
    m_tags[tag] = std::move(d);
  };
  entree(kImageWidth, 4, 1, taille.x);
  entree(kImageLength, 4, 1, taille.y);
  entree(kBitsPerSample, 3, static_cast<uint32_t>(canaux), bits);
  entree(kCompression, 3, 1, kSans);
  entree(kPhotometric, 3, 1, canaux == 1 ? 1 : 2);
  entree(kStripOffsets, 4, 1, 0);
  entree(kSamplesPerPixel, 3, 1, canaux);
  entree(kRowsPerStrip, 4, 1, taille.y);
  entree(kStripByteCounts, 4, 1, static_cast<double>(octets));
  Directory resolution(5, 1);
  resolution.SetRationalValue(72, 1, 0);
  m_tags[kXResolution] = resolution;
  m_tags[kYResolution] = resolution;
  entree(kResolutionUnit, 3, 1, 2);
  if (canaux >= 4) entree(kExtraSamples, 3, static_cast<uint32_t>(canaux - 3), 0);
  entree(kSampleFormat, 3, static_cast<uint32_t>(canaux), format);
}

uint32_t TIFF_Annexes::PrecalculeOffset() const {
  uint64_t offset = 12 * m_tags.size() + 18;
  for (const auto& t : m_tags)
    if (t.second.Octets() > 4) offset += t.second.Octets();
  return static_cast<uint32_t>(offset);
}

uint32_t TIFF_Annexes::OctetsPixels() const {
  const auto it = m_tags.find(kStripByteCounts);
  return it == m_tags.end() ? 0 : static_cast<uint32_t>(it->second.GetValue(0));
}

void TIFF_Annexes::EcrireEntete(std::ostream& flux, const std::string& nom) {
  const auto bandes = m_tags.find(kStripOffsets);
  if (bandes == m_tags.end())
    ZEPRA_ERREUR("[TIFF_Annexes] (EcrireEntete) Tag STRIPOFFSETS non present en ecriture : Erreur interne.");
  bandes->second.SetValue(PrecalculeOffset(), 0);
  flux.write("II", 2);
  Ecrire<uint16_t>(flux, 42);
  Ecrire<uint32_t>(flux, 8);
  Ecrire<uint16_t>(flux, static_cast<uint16_t>(m_tags.size()));
  uint32_t donnees = static_cast<uint32_t>(12 * m_tags.size() + 18);
  std::vector<Directory> horsLigne;
  for (const auto& t : m_tags) {
    // Values in file order: little-endian whatever the host.
    Directory d = t.second;
    Permut(d, kHoteGrosBoutiste);
    Ecrire<uint16_t>(flux, t.first);
    Ecrire<uint16_t>(flux, d.type);
    Ecrire<uint32_t>(flux, d.count);
    if (d.Octets() > 4) {
      Ecrire<uint32_t>(flux, donnees);
      donnees += static_cast<uint32_t>(d.Octets());
      horsLigne.push_back(std::move(d));
    } else {
      unsigned char champ[4] = {0, 0, 0, 0};
      if (!d.values.empty()) std::memcpy(champ, d.values.data(), d.values.size());
      flux.write(reinterpret_cast<const char*>(champ), 4);
    }
  }
  Ecrire<uint32_t>(flux, 0);
  Ecrire<uint32_t>(flux, 0);
  for (const Directory& d : horsLigne)
    flux.write(reinterpret_cast<const char*>(d.values.data()), static_cast<std::streamsize>(d.values.size()));
  if (!flux) ZEPRA_ERREUR("[TIFF_Annexes] (EcrireEntete) Ecriture impossible de l'entete du fichier " << nom);
}

}  // namespace tiff
