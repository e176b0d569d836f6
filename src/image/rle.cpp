// RLE reader and writer.
#include "rle.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <map>
#include <sstream>

#include "handlers.h"
#include "zepra/copierpixels.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace {

// Run lengths written by ImageFicOut_RLE: 16 bits.
constexpr int kLongueursEcrites = 50;

// A consistent file is still refused when its presented image (zoom included) holds more than this
// many pixels per byte of the file. Runs alone reach at most 32767 columns per byte; real masks
// zoomed a few times stay far below. The bound turns a few bytes claiming terabytes into an Erreur
// instead of a huge allocation by the caller.
constexpr long long kPixelsParOctetMax = 1LL << 20;

// The element type under which values of a stored type are read: a plain Char is read as a signed
// byte (no image holds char); Indetermine, Autre and Bit1 have no value to read (eIndetermine).
eEnumType TypePresente(eEnumType stocke) {
  if (stocke == eChar) return eInt1;
  return AppliquerType(stocke, [](auto) {}) ? stocke : eIndetermine;
}

// ValType without its Erreur, for the content judgement.
bool OctetTypeConnu(int octet, eEnumType& type) {
  for (int code = eIndetermine; code <= eFloat8; ++code) {
    if (InfoType::TypeVal(static_cast<eEnumType>(code)) == octet) {
      type = static_cast<eEnumType>(code);
      return true;
    }
  }
  return false;
}

int TailleValeur(eEnumType type) {
  int taille = 0;
  AppliquerType(type, [&](auto tag) { taille = TailleChamp<typename decltype(tag)::type>(); });
  return taille;
}

// Upper bound on the stored columns that 'octets' bytes of runs can cover: each length field adds at
// most its largest value.
long long ColonnesPossibles(long long octets, const CodageLongueurs& c) {
  return octets / c.octets * static_cast<long long>(c.maximum);
}

template <class N>
bool MemeValeur(N a, N b) {
  if constexpr (std::is_floating_point_v<N>) {
    // Bit patterns, so that NaN and -0.0 come back as they were written.
    return std::memcmp(&a, &b, sizeof(N)) == 0;
  } else {
    return a == b;
  }
}

// The field plus the offset, in the stored type: integers wrap as the plain cast does; floating
// values add in their own type (overflow gives infinity, never an undefined cast).
template <class N>
N AjouterDecalage(N v, long long decalage) {
  if constexpr (std::is_same_v<N, bool>) {
    return decalage != 0;  // a bool field holds nothing: the value is the offset alone
  } else if constexpr (std::is_floating_point_v<N>) {
    return v + static_cast<N>(decalage);
  } else {
    return static_cast<N>(static_cast<long long>(v) + decalage);
  }
}

char* EcrireChamp16(char* sortie, unsigned v) {
  sortie[0] = static_cast<char>(v & 0xFF);
  sortie[1] = static_cast<char>((v >> 8) & 0xFF);
  return sortie + 2;
}

}  // namespace

EnteteRLE EnteteRLE::DecoderFixe(const unsigned char* octets) {
  EnteteRLE e;
  e.colonnes = DecoderChamp<int32_t>(octets + kColonnes);
  e.lignes = DecoderChamp<int32_t>(octets + kLignes);
  e.zoom = DecoderChamp<int32_t>(octets + kZoom);
  e.typeValeurs = octets[kTypeValeurs];
  e.typeLongueurs = octets[kTypeLongueurs];
  e.decalage = DecoderChamp<int32_t>(octets + kDecalage);
  return e;
}

std::vector<char> EnteteRLE::Encoder() const {
  std::vector<char> o(static_cast<size_t>(SizeOfHeader(static_cast<long long>(debutsLignes.size()))));
  char* p = o.data();
  p = gb_write_et<int32_t>(p, colonnes);
  p = gb_write_et<int32_t>(p, lignes);
  p = gb_write_et<int32_t>(p, zoom);
  p = gb_write_et<uint8_t>(p, typeValeurs);
  p = gb_write_et<uint8_t>(p, typeLongueurs);
  p = gb_write_et<int32_t>(p, decalage);
  for (int32_t d : debutsLignes) p = gb_write_et<int32_t>(p, d);
  return o;
}

bool CodageLongueurs::Depuis(int typeOctet, CodageLongueurs& codage) {
  switch (typeOctet) {
    case 40:
      codage = CodageLongueurs{1, 255, true};
      return true;
    case 50:
      codage = CodageLongueurs{2, 65535, true};
      return true;
    case 10:
      // The Bit1 byte has no largest field, so no continuation. We read one unsigned byte per
      // length, the smallest field: a field of 255 is a whole run of 255.
      codage = CodageLongueurs{1, 255, false};
      return true;
    default:
      return false;
  }
}

LecteurOctets::LecteurOctets(const std::string& nom, const std::string& tag)
    : m_nom(nom), m_tag(tag), m_tampon(1 << 15) {
  Systeme::OuvrirLecture(m_flux, nom);
}

void LecteurOctets::Placer(long long position) {
  if (position >= m_debut && position <= m_debut + static_cast<long long>(m_fin)) {
    m_curseur = static_cast<size_t>(position - m_debut);
    return;
  }
  m_debut = position;
  m_fin = m_curseur = 0;
}

void LecteurOctets::Remplir(int n) {
  if (!m_flux.is_open()) ZEPRA_ERREUR(m_tag << " Probleme a l'ouverture du fichier " << m_nom);
  // Keeps the bytes not yet taken at the start of the buffer.
  const size_t reste = m_fin - m_curseur;
  std::memmove(m_tampon.data(), m_tampon.data() + m_curseur, reste);
  m_debut += static_cast<long long>(m_curseur);
  m_curseur = 0;
  m_fin = reste;
  m_flux.clear();
  m_flux.seekg(m_debut + static_cast<long long>(reste));
  m_flux.read(reinterpret_cast<char*>(m_tampon.data() + reste),
              static_cast<std::streamsize>(m_tampon.size() - reste));
  m_fin += static_cast<size_t>(std::max<std::streamsize>(0, m_flux.gcount()));
  if (m_fin < static_cast<size_t>(n))
    ZEPRA_ERREUR(m_tag << " Fin du fichier " << m_nom << " a l'octet "
                       << m_debut + static_cast<long long>(m_fin) << " : " << n
                       << " octets attendus a l'octet " << m_debut);
}

// What the examination of a file found: Ok, or the first fault.
struct ImageFicIn_RLE::Examen {
  enum Verdict { Ok, Ouverture, TypeValeurs, TypeSansValeur, TypeLongueurs, Incoherent, Demesure };
  Verdict verdict = Ok;
  std::string detail;
};

ImageFicIn_RLE::Examen ImageFicIn_RLE::Examiner(const std::string& nom, EnteteRLE& e, long long& taille) {
  Examen ex;
  auto refus = [&ex](Examen::Verdict v, const std::ostringstream& detail) {
    ex.verdict = v;
    ex.detail = detail.str();
    return ex;
  };
  std::ostringstream d;
  struct stat etat;
  if (stat(nom.c_str(), &etat) != 0 || !S_ISREG(etat.st_mode)) return refus(Examen::Ouverture, d);
  taille = static_cast<long long>(etat.st_size);
  LecteurOctets f(nom, "[ImageFicIn_RLE::Open(" + nom + ")] :");
  if (!f.Ouvert()) return refus(Examen::Ouverture, d);
  if (taille < EnteteRLE::kTailleFixe) {
    d << "fichier de " << taille << " octets, plus court que l'entete fixe (" << EnteteRLE::kTailleFixe
      << " octets)";
    return refus(Examen::Incoherent, d);
  }
  e = EnteteRLE::DecoderFixe(f.Prendre(EnteteRLE::kTailleFixe));

  eEnumType stocke = eIndetermine;
  if (!OctetTypeConnu(e.typeValeurs, stocke)) {
    d << "octet de type des valeurs " << static_cast<int>(e.typeValeurs) << " inconnu";
    return refus(Examen::TypeValeurs, d);
  }
  const eEnumType presente = TypePresente(stocke);
  if (presente == eIndetermine) {
    d << "valeurs de type " << InfoType::NomType(stocke) << " : rien a lire";
    return refus(Examen::TypeSansValeur, d);
  }
  CodageLongueurs c;
  if (!CodageLongueurs::Depuis(e.typeLongueurs, c)) {
    d << "octet de type des longueurs " << static_cast<int>(e.typeLongueurs) << " non autorise";
    return refus(Examen::TypeLongueurs, d);
  }
  if (e.colonnes < 1 || e.lignes < 1 || e.zoom < 1) {
    d << "taille stockee " << e.colonnes << " x " << e.lignes << " et zoom " << e.zoom
      << " : il faut au moins 1 pour chacun";
    return refus(Examen::Incoherent, d);
  }
  const long long tailleEntete = EnteteRLE::SizeOfHeader(e.lignes);
  const long long runMin = c.octets + TailleValeur(presente);
  if (tailleEntete + runMin > taille) {
    d << "entete de " << tailleEntete << " octets pour " << e.lignes
      << " lignes, plus au moins un run, dans un "
      << "fichier de " << taille << " octets";
    return refus(Examen::Incoherent, d);
  }
  const long long largeur = static_cast<long long>(e.zoom) * e.colonnes;
  const long long hauteur = static_cast<long long>(e.zoom) * e.lignes;
  if (largeur > INT_MAX || hauteur > INT_MAX) {
    d << "zoom " << e.zoom << " sur " << e.colonnes << " x " << e.lignes << " : image de " << largeur << " x "
      << hauteur << " au-dela de " << INT_MAX;
    return refus(Examen::Incoherent, d);
  }
  // The table is read until its first inconsistent entry, so a file of another format is turned
  // down without reading it whole. Its size (4 bytes per line) is bounded by the file's.
  e.debutsLignes.resize(static_cast<size_t>(e.lignes));
  for (int y = 0; y < e.lignes; ++y) {
    const long long debut = DecoderChamp<int32_t>(f.Prendre(4));
    if (debut < tailleEntete || debut > taille - runMin) {
      d << "ligne " << y << " : debut des runs a l'octet " << debut << ", hors de [" << tailleEntete << ", "
        << taille - runMin << "]";
      return refus(Examen::Incoherent, d);
    }
    if (e.colonnes > ColonnesPossibles(taille - debut, c)) {
      d << "ligne " << y << " : " << e.colonnes << " colonnes ne tiennent pas dans les " << taille - debut
        << " octets qui suivent l'octet " << debut;
      return refus(Examen::Incoherent, d);
    }
    e.debutsLignes[static_cast<size_t>(y)] = static_cast<int32_t>(debut);
  }
  if (largeur * hauteur > kPixelsParOctetMax * taille) {
    d << "image presentee de " << largeur << " x " << hauteur << " (zoom " << e.zoom
      << ") pour un fichier de " << taille << " octets : plus de " << kPixelsParOctetMax
      << " pixels par octet";
    return refus(Examen::Demesure, d);
  }
  return ex;
}

ImageFicIn_RLE::ImageFicIn_RLE(const std::string& nom)
    : m_nom(nom), m_lecteur(nom, "[ImageFicIn_RLE] (GetValeurs)") {
  const Examen ex = Examiner(nom, m_entete, m_taille);
  const std::string tag = "[ImageFicIn_RLE::Open(" + nom + ")] : ";
  switch (ex.verdict) {
    case Examen::Ok:
      break;
    case Examen::Ouverture:
      ZEPRA_ERREUR(tag << "Probleme a l'ouverture du fichier");
    case Examen::TypeValeurs:
      InfoType::ValType(m_entete.typeValeurs);  // raises its own Erreur for an unknown byte
      ZEPRA_ERREUR(tag << ex.detail);
    case Examen::TypeLongueurs:
      ZEPRA_ERREUR(tag << "codage des longueurs de run sur " << static_cast<char>(m_entete.typeLongueurs)
                       << " octets non autorise");
    case Examen::TypeSansValeur:
    case Examen::Incoherent:
    case Examen::Demesure:
      ZEPRA_ERREUR(tag << ex.detail);
  }
  m_type = TypePresente(InfoType::ValType(m_entete.typeValeurs));
  CodageLongueurs::Depuis(m_entete.typeLongueurs, m_codage);
}

ImageFicIn_RLE::ImageFicIn_RLE(const std::string& nom, EnteteRLE&& entete, long long taille)
    : m_nom(nom),
      m_entete(std::move(entete)),
      m_taille(taille),
      m_type(TypePresente(InfoType::ValType(m_entete.typeValeurs))),
      m_lecteur(nom, "[ImageFicIn_RLE] (GetValeurs)") {
  CodageLongueurs::Depuis(m_entete.typeLongueurs, m_codage);
}

ImageFicIn_RLE::ImageFicIn_RLE(const ImageFicIn_RLE& autre)
    : ImplGetValeurs<ImageFicIn_RLE>(),
      m_nom(autre.m_nom),
      m_entete(autre.m_entete),
      m_taille(autre.m_taille),
      m_type(autre.m_type),
      m_codage(autre.m_codage),
      m_decalageLecteur(autre.m_decalageLecteur),
      m_lecteur(autre.m_nom, "[ImageFicIn_RLE] (GetValeurs)") {}

std::unique_ptr<ImageFicIn_RLE> ImageFicIn_RLE::SiFichierRLE(const std::string& nom) {
  EnteteRLE entete;
  long long taille = 0;
  const Examen ex = Examiner(nom, entete, taille);
  if (ex.verdict == Examen::Ok)
    return std::unique_ptr<ImageFicIn_RLE>(new ImageFicIn_RLE(nom, std::move(entete), taille));
  // Every check but this one says whether the content is RLE at all; this one refuses a file that is.
  if (ex.verdict == Examen::Demesure) ZEPRA_ERREUR("[ImageFicIn_RLE::Open(" << nom << ")] : " << ex.detail);
  // Another reader may still accept the file; a file named .rle gets a word in the log.
  if (ex.verdict != Examen::Ouverture && TChaine(nom).Extension().ToLowCase() == "rle")
    Systeme::Warning("[ImageFicIn_RLE] (CreateReader_RLE) " + nom +
                     " n'est pas un fichier RLE coherent : " + ex.detail);
  return nullptr;
}

TPoint2D<int> ImageFicIn_RLE::GetTaille() const {
  // Within int: checked when the file was opened.
  return TPoint2D<int>(m_entete.zoom * m_entete.colonnes, m_entete.zoom * m_entete.lignes);
}

long long ImageFicIn_RLE::LireLongueur(long long couvert, int ligne) const {
  const long long reste = m_entete.colonnes - couvert;
  long long n = 0;
  for (;;) {
    const unsigned char* p = m_lecteur.Prendre(m_codage.octets);
    const unsigned champ = m_codage.octets == 1 ? p[0] : (p[0] | static_cast<unsigned>(p[1]) << 8);
    n += champ;
    // Checked at every field, so that a long continuation stops as soon as it leaves the line.
    if (n > reste)
      ZEPRA_ERREUR("[ImageFicIn_RLE] (GetValeurs) Run depassant la ligne "
                   << ligne << " du fichier " << m_nom << " : colonne " << couvert << " + " << n << " > "
                   << m_entete.colonnes);
    if (!m_codage.continuation || champ < m_codage.maximum) break;
  }
  // Never written by a run coder; refusing it keeps the work of a line bounded by its columns.
  if (n == 0)
    ZEPRA_ERREUR("[ImageFicIn_RLE] (GetValeurs) Run de longueur nulle a la colonne "
                 << couvert << " de la ligne " << ligne << " du fichier " << m_nom);
  return n;
}

template <class N>
RunRLE<N> ImageFicIn_RLE::ImageFicInRLE_TNextRun(long long& couvert, int ligne) const {
  const long long n = LireLongueur(couvert, ligne);
  couvert += n;
  const N v = gb_read_et<N>(m_lecteur);
  const long long decalage = static_cast<long long>(m_entete.decalage) + m_decalageLecteur;
  return RunRLE<N>{n * m_entete.zoom, decalage == 0 ? v : AjouterDecalage<N>(v, decalage)};
}

template <class N, class D>
void ImageFicIn_RLE::LireRectangle(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest,
                                   int yDest, int pas) const {
  const long long zoom = m_entete.zoom;
  const long long nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
  long long precedenteStockee = -1;
  LigneDe<D> precedente{};
  long long j = 0;
  for (long long y = y0; y < y1; y += pas, ++j) {
    const LigneDe<D> sortie = lignes[yDest + j] + static_cast<long>(xDest);
    const long long stockee = y / zoom;
    if (stockee == precedenteStockee) {
      // The zoom repeats a stored line: the same columns as the line just produced.
      std::copy(precedente, precedente + nx, sortie);
      continue;
    }
    precedenteStockee = stockee;
    precedente = sortie;
    m_lecteur.Placer(m_entete.debutsLignes[static_cast<size_t>(stockee)]);
    long long couvert = 0;  // stored columns of the runs read so far
    long long finRun = 0;   // image column where the current run ends
    D valeur{};
    long long x = x0;
    for (long long i = 0; i < nx;) {
      while (x >= finRun) {
        const RunRLE<N> run = ImageFicInRLE_TNextRun<N>(couvert, static_cast<int>(stockee));
        finRun += run.longueur;
        valeur = Convertir<D, N>(run.valeur);
      }
      // Pixels of this run taken by the step; no division in the common step 1.
      const long long k = std::min(nx - i, pas == 1 ? finRun - x : (finRun - x + pas - 1) / pas);
      // One pixel per run is the worst case of the format: a store, not a call to memset.
      if (k == 1)
        sortie[static_cast<long>(i)] = valeur;
      else
        std::fill_n(sortie + static_cast<long>(i), k, valeur);
      i += k;
      x += k * pas;
    }
  }
}

template <class D>
void ImageFicIn_RLE::GetValeursT(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest,
                                 int yDest, int pas) const {
  if (!RectangleALire("ImageFicIn_RLE", m_nom, GetTaille(), x0, y0, x1, y1, pas)) return;
  AppliquerType(m_type, [&](auto tag) {
    LireRectangle<typename decltype(tag)::type, D>(lignes, x0, y0, x1, y1, xDest, yDest, pas);
  });
}

struct ImageFicOut_RLE::Lignes {
  virtual ~Lignes() = default;
};

template <class N>
struct ImageFicOut_RLE::LignesT : ImageFicOut_RLE::Lignes {
  std::vector<N> tampon;                    // a line received whole
  std::map<int, std::vector<N>> enAttente;  // lines received in pieces, until complete
};

ImageFicOut_RLE::ImageFicOut_RLE(const std::string& nom, const ImageInfos& infos)
    : ImplSetValeurs(nom, "ImageFicOut_RLE", infos.taille, 1, infos.type),
      m_typeStocke(infos.type == eBool ? eUInt1 : infos.type) {
  SetNbCanaux(TagNbCanaux(infos.canaux));
  const bool typeGere = m_typeStocke >= eInt1 && AppliquerType(m_typeStocke, [this](auto tag) {
                          m_lignes = std::make_unique<LignesT<typename decltype(tag)::type>>();
                        });
  if (!typeGere)
    ZEPRA_ERREUR("[ImageFicOut_RLE::SetTypePixel(" << static_cast<int>(infos.type)
                                                   << ")] type de pixel non gere pour " << nom);
  if (infos.taille.x < 1 || infos.taille.y < 1)
    ZEPRA_ERREUR("[ImageFicOut_RLE::SetTaille(" << infos.taille.x << ", " << infos.taille.y
                                                << ")] image vide : " << nom
                                                << " aurait au moins une colonne et une ligne");
  m_entete.colonnes = infos.taille.x;
  m_entete.lignes = infos.taille.y;
  m_entete.zoom = 1;
  m_entete.typeValeurs = static_cast<uint8_t>(InfoType::TypeVal(m_typeStocke));
  m_entete.typeLongueurs = kLongueursEcrites;
  m_entete.decalage = 0;
  m_entete.debutsLignes.assign(static_cast<size_t>(infos.taille.y), 0);
  Ouvrir();
  // The header's place; its line table is known only at the end.
  m_position = EnteteRLE::SizeOfHeader(m_entete.lignes);
  const std::vector<char> zeros(1 << 16, 0);
  for (long long reste = m_position; reste > 0; reste -= static_cast<long long>(zeros.size()))
    m_fichier->flux().write(zeros.data(), std::min<long long>(reste, static_cast<long long>(zeros.size())));
}

ImageFicOut_RLE::~ImageFicOut_RLE() = default;

void ImageFicOut_RLE::SetNbCanaux(TagNbCanaux n) {
  if (n.nb != 1) ZEPRA_ERREUR("[ImageFicOut_RLE::SetNbCanaux(" << n.nb << ")] images multi-canal non gerees");
}

void ImageFicOut_RLE::SetTypePixel(eEnumType type) {
  if (type != m_type)
    ZEPRA_ERREUR("[ImageFicOut_RLE::SetTypePixel(" << static_cast<int>(type) << ")] type deja fixe a "
                                                   << static_cast<int>(m_type) << " pour " << m_nom);
}

void ImageFicOut_RLE::SetTaille(int colonnes, int lignes) {
  if (colonnes != m_entete.colonnes || lignes != m_entete.lignes)
    ZEPRA_ERREUR("[ImageFicOut_RLE::SetTaille(" << colonnes << ", " << lignes << ")] taille deja fixee a "
                                                << m_entete.colonnes << " x " << m_entete.lignes << " pour "
                                                << m_nom);
}

void ImageFicOut_RLE::RawWrite(const char*, unsigned int) {
  ZEPRA_ERREUR("ImageFicOut_RLE::RawWrite impossible");
}

template <class N>
void ImageFicOut_RLE::CoderLigne(int y, const N* v) {
  if (m_position > INT32_MAX)
    ZEPRA_ERREUR("[ImageFicOut_RLE] (SetValeurs) Fichier "
                 << m_nom << " : la ligne " << y << " commencerait a l'octet " << m_position
                 << ", au-dela de ce qu'adresse l'entete (" << INT32_MAX << ")");
  m_entete.debutsLignes[static_cast<size_t>(y)] = static_cast<int32_t>(m_position);
  CodageLongueurs codage;
  CodageLongueurs::Depuis(kLongueursEcrites, codage);
  // A run of n columns takes at most 2 n + value bytes: the line's worst case is one run per column.
  m_runs.resize(static_cast<size_t>(m_entete.colonnes) * (2 + sizeof(N)));
  char* p = m_runs.data();
  const int colonnes = m_entete.colonnes;
  for (int i = 0; i < colonnes;) {
    int k = i + 1;
    while (k < colonnes && MemeValeur(v[k], v[i])) ++k;
    // A run longer than the largest field goes on in more fields; a run of exactly the largest
    // field ends with a zero field.
    long long n = k - i;
    for (; n >= codage.maximum; n -= codage.maximum) p = EcrireChamp16(p, codage.maximum);
    p = EcrireChamp16(p, static_cast<unsigned>(n));
    p = gb_write_et<N>(p, v[i]);
    i = k;
  }
  const long long octets = p - m_runs.data();
  m_fichier->flux().write(m_runs.data(), static_cast<std::streamsize>(octets));
  m_position += octets;
}

template <class S, class N>
void ImageFicOut_RLE::Recevoir(LigneDe<S> const* lignes, int x0, int y0, int x1, int /*y1*/, int xDest,
                               int yDest, int pas, long long ny) {
  LignesT<N>& l = static_cast<LignesT<N>&>(*m_lignes);
  const int colonnes = m_entete.colonnes;
  const int nx = static_cast<int>((static_cast<long long>(x1) - x0 + pas - 1) / pas);
  for (long long j = 0; j < ny; ++j) {
    const int y = static_cast<int>(yDest + j);
    const int ys = static_cast<int>(y0 + j * pas);
    if (m_suivi.Complete(y))
      ZEPRA_ERREUR("[ImageFicOut_RLE] (SetValeurs) Ligne "
                   << y << " du fichier " << m_nom << " deja ecrite : une ligne codee ne se reecrit pas");
    const bool entiere = xDest == 0 && nx == colonnes;
    std::vector<N>& v = entiere ? l.tampon : l.enAttente[y];
    v.resize(static_cast<size_t>(colonnes));
    N* d = v.data();
    CopierPixels<S, N>(lignes, &d, x0, ys, x1, ys + 1, xDest, 0, pas, 1);
    if (m_suivi.Recevoir(y, xDest, xDest + nx)) {
      CoderLigne<N>(y, d);
      l.enAttente.erase(y);  // also a piece received before the whole line
    }
  }
}

template <class S>
void ImageFicOut_RLE::SetValeursT(LigneDe<S> const* lignes, int x0, int y0, int x1, int y1, int xDest,
                                  int yDest, int pas) {
  long long nx, ny;
  if (!RectangleAEcrire(x0, y0, x1, y1, xDest, yDest, pas, nx, ny)) return;
  AppliquerType(m_typeStocke, [&](auto tag) {
    using N = typename decltype(tag)::type;
    if constexpr (!std::is_same_v<N, bool>)  // bool images are stored as UInt1
      Recevoir<S, N>(lignes, x0, y0, x1, y1, xDest, yDest, pas, ny);
  });
}

void ImageFicOut_RLE::Finir() {
  const std::vector<char> entete = m_entete.Encoder();
  std::ofstream& f = m_fichier->flux();
  f.seekp(0);
  f.write(entete.data(), static_cast<std::streamsize>(entete.size()));
}

void ImageFicOut_RLE::Terminer() {
  EcrivainParLignes::Terminer();
  m_lignes.reset();
}

#define ZEPRA_INST_RLE(T)                                                                                   \
  template void ImageFicIn_RLE::GetValeursT<T>(LigneDe<T> const*, int, int, int, int, int, int, int) const; \
  template void ImageFicOut_RLE::SetValeursT<T>(LigneDe<T> const*, int, int, int, int, int, int, int);
ZEPRA_NEUF_TYPES(ZEPRA_INST_RLE)
#undef ZEPRA_INST_RLE

std::unique_ptr<SpecifImageIn> CreateReader_RLE(const std::string& nom) {
  return ImageFicIn_RLE::SiFichierRLE(nom);
}

std::unique_ptr<EcrivainImage> CreateWriter_RLE(const std::string& nom, const ImageInfos& infos) {
  return std::make_unique<ImageFicOut_RLE>(nom, infos);
}
