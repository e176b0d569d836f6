// Writer options read from users' strings, and the plan of a file decided from them.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "zepra/crs.h"
#include "zepra/erreur.h"
#include "zepra/optionsecriture.h"

namespace {

// The names users write for each value of an option.
template <class V>
struct Nom {
  const char* nom;
  V valeur;
};
constexpr Nom<CompressionTIFF> kCompressions[] = {{"none", CompressionTIFF::kAucune},
                                                  {"lzw", CompressionTIFF::kLZW},
                                                  {"deflate", CompressionTIFF::kDeflate},
                                                  {"zstd", CompressionTIFF::kZSTD},
                                                  {"jpeg", CompressionTIFF::kJPEG}};
constexpr Nom<eEnumType> kTypes[] = {{"uint8", eUInt1},    {"int8", eInt1},     {"uint16", eUInt2},
                                     {"int16", eInt2},     {"uint32", eUInt4},  {"int32", eInt4},
                                     {"float32", eFloat4}, {"float64", eFloat8}};
constexpr Nom<PredicteurTIFF> kPredicteurs[] = {
    {"auto", PredicteurTIFF::kAuto},    {"none", PredicteurTIFF::kAucun},
    {"1", PredicteurTIFF::kAucun},      {"horizontal", PredicteurTIFF::kHorizontal},
    {"2", PredicteurTIFF::kHorizontal}, {"flottant", PredicteurTIFF::kFlottant},
    {"3", PredicteurTIFF::kFlottant}};
constexpr Nom<ConteneurTIFF> kFormats[] = {{"classique", ConteneurTIFF::kClassique},
                                           {"bigtiff", ConteneurTIFF::kBigTIFF},
                                           {"auto", ConteneurTIFF::kSiNecessaire}};
constexpr Nom<bool> kEntrelacements[] = {{"pixel", false}, {"planaire", true}};

constexpr const char* kTag = "[OptionsEcriture] (Lire)";

long long Entier(const std::string& nom, const std::string& valeur) {
  const char* debut = valeur.c_str();
  char* fin = nullptr;
  errno = 0;
  const long long v = std::strtoll(debut, &fin, 10);
  if (valeur.empty() || *fin != '\0' || errno == ERANGE ||
      std::isspace(static_cast<unsigned char>(valeur[0])))
    ZEPRA_ERREUR(kTag << " Valeur \"" << valeur << "\" de l'option " << nom << " : un entier est attendu.");
  return v;
}

int EntierDans(const std::string& nom, const std::string& valeur, long long min, long long max) {
  const long long v = Entier(nom, valeur);
  if (v < min || v > max)
    ZEPRA_ERREUR(kTag << " Valeur " << v << " de l'option " << nom << " hors de [" << min << ", " << max
                      << "].");
  return static_cast<int>(v);
}

bool Drapeau(const std::string& nom, const std::string& valeur) {
  if (valeur.empty() || valeur == "oui") return true;
  if (valeur == "non") return false;
  ZEPRA_ERREUR(kTag << " Valeur \"" << valeur << "\" de l'option " << nom << " : oui ou non est attendu.");
}

double Reel(const std::string& nom, const std::string& valeur) {
  if (valeur == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (valeur == "inf") return std::numeric_limits<double>::infinity();
  if (valeur == "-inf") return -std::numeric_limits<double>::infinity();
  const char* debut = valeur.c_str();
  char* fin = nullptr;
  const double v = std::strtod(debut, &fin);
  // strtod also takes "nan(...)", "infinity" and hexadecimal: only plain decimal numbers here.
  if (valeur.empty() || *fin != '\0' || !std::isfinite(v) ||
      valeur.find_first_not_of("0123456789+-.eE") != std::string::npos)
    ZEPRA_ERREUR(kTag << " Valeur \"" << valeur << "\" de l'option " << nom << " : un nombre est attendu.");
  return v;
}

template <class V, size_t N>
V Choisir(const std::string& nom, const std::string& valeur, const Nom<V> (&table)[N]) {
  std::string attendu;
  for (size_t i = 0; i < N; ++i) {
    if (valeur == table[i].nom) return table[i].valeur;
    attendu += (i == 0 ? "" : i + 1 == N ? " ou " : ", ") + std::string(table[i].nom);
  }
  ZEPRA_ERREUR(kTag << " Valeur \"" << valeur << "\" inconnue pour l'option " << nom << " (" << attendu
                    << ").");
}

// The ranges of the level, by compression; the level given with LZW or no compression means nothing.
void VerifieNiveau(const OptionsEcriture& o, bool niveauDonne) {
  if (!niveauDonne) return;
  switch (o.compression) {
    case CompressionTIFF::kDeflate:
      if (o.niveau < 1 || o.niveau > 12)
        ZEPRA_ERREUR(kTag << " Niveau " << o.niveau << " hors de [1, 12] pour la compression deflate.");
      break;
    case CompressionTIFF::kZSTD:
      if (o.niveau < 1 || o.niveau > 22)
        ZEPRA_ERREUR(kTag << " Niveau " << o.niveau << " hors de [1, 22] pour la compression zstd.");
      break;
    case CompressionTIFF::kJPEG:
      if (o.niveau < 1 || o.niveau > 100)
        ZEPRA_ERREUR(kTag << " Qualite " << o.niveau << " hors de [1, 100] pour la compression jpeg.");
      break;
    default:
      ZEPRA_ERREUR(kTag << " Un niveau (" << o.niveau << ") n'a pas de sens pour la compression "
                        << NomCompression(o.compression) << ".");
  }
}

int BitsType(eEnumType type) { return type == eBool || type == eBit1 ? 1 : 8 * InfoType::TailleType(type); }
bool Flottant(eEnumType type) { return type == eFloat4 || type == eFloat8; }

// The no-data value as a value of the output type; an Erreur when the type cannot hold it.
double NodataDuType(double v, eEnumType type, const std::string& nom) {
  if (type == eFloat8) return v;
  if (type == eFloat4) {
    if (!NodataPossible(v, type))
      ZEPRA_ERREUR("[OptionsEcriture] (Planifier) No-data "
                   << TexteNodata(v) << " hors des valeurs float32 pour le fichier " << nom << ".");
    return static_cast<double>(static_cast<float>(v));
  }
  if (!NodataEntierPossible(v, type))
    ZEPRA_ERREUR("[OptionsEcriture] (Planifier) No-data " << TexteNodata(v) << " impossible en "
                                                          << NomTypeSortie(type) << " pour le fichier " << nom
                                                          << ".");
  return v + 0.0;  // -0 is 0 in an integer type
}

}  // namespace

bool PlageType(eEnumType type, double& bas, double& haut) {
  bas = haut = 0;
  return AppliquerType(type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    bas = static_cast<double>(std::numeric_limits<T>::lowest());
    haut = static_cast<double>(std::numeric_limits<T>::max());
  });
}

bool NodataEntierPossible(double v, eEnumType type) {
  double min = 0, max = 0;
  PlageType(type, min, max);
  return v >= min && v <= max && v == std::floor(v);
}

bool NodataPossible(double v, eEnumType type) {
  if (type == eFloat8) return true;
  if (type == eFloat4) return !(std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max());
  return NodataEntierPossible(v, type);
}

bool OptionsEcriture::operator==(const OptionsEcriture& o) const {
  const bool memeNodata = nodataPresent == o.nodataPresent && (!nodataPresent || nodata == o.nodata ||
                                                               (std::isnan(nodata) && std::isnan(o.nodata)));
  return compression == o.compression && niveau == o.niveau && qualite == o.qualite &&
         predicteur == o.predicteur && tuilee == o.tuilee && tuile == o.tuile &&
         lignesBande == o.lignesBande && format == o.format && planaire == o.planaire && cog == o.cog &&
         type == o.type && memeNodata && alpha == o.alpha && epsg == o.epsg && couleurs == o.couleurs &&
         masque == o.masque;
}

const char* NomCompression(CompressionTIFF c) {
  for (const auto& n : kCompressions)
    if (n.valeur == c) return n.nom;
  return "?";
}

const char* NomTypeSortie(eEnumType type) {
  for (const auto& n : kTypes)
    if (n.valeur == type) return n.nom;
  return "?";
}

OptionsEcriture LireOptionsEcriture(const std::vector<std::pair<std::string, std::string>>& valeurs) {
  OptionsEcriture o;
  bool niveauDonne = false, tuileDonnee = false, bandesDonnees = false;
  for (const auto& [nom, valeur] : valeurs) {
    if (nom == "compression") {
      o.compression = Choisir(nom, valeur, kCompressions);
    } else if (nom == "niveau") {
      o.niveau = EntierDans(nom, valeur, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
      niveauDonne = true;
    } else if (nom == "qualite") {
      o.qualite = EntierDans(nom, valeur, 1, 100);
    } else if (nom == "predicteur") {
      o.predicteur = Choisir(nom, valeur, kPredicteurs);
    } else if (nom == "tuile") {
      o.tuile = EntierDans(nom, valeur, 16, 65536);
      if (o.tuile % 16 != 0)
        ZEPRA_ERREUR(kTag << " Taille de tuile " << o.tuile << " : un multiple de 16 est attendu.");
      o.tuilee = true;
      tuileDonnee = true;
    } else if (nom == "bandes") {
      o.lignesBande = EntierDans(nom, valeur, 0, std::numeric_limits<int>::max());
      o.tuilee = false;
      bandesDonnees = true;
    } else if (nom == "format") {
      o.format = Choisir(nom, valeur, kFormats);
    } else if (nom == "entrelacement") {
      o.planaire = Choisir(nom, valeur, kEntrelacements);
    } else if (nom == "cog") {
      o.cog = Drapeau(nom, valeur);
    } else if (nom == "alpha") {
      o.alpha = Drapeau(nom, valeur);
    } else if (nom == "type") {
      o.type = Choisir(nom, valeur, kTypes);
    } else if (nom == "nodata") {
      o.nodata = Reel(nom, valeur);
      o.nodataPresent = true;
    } else if (nom == "epsg") {
      o.epsg = EntierDans(nom, valeur, 1, 999999);
    } else {
      ZEPRA_ERREUR(kTag << " Option d'ecriture inconnue : " << nom << ".");
    }
  }
  if (tuileDonnee && bandesDonnees) ZEPRA_ERREUR(kTag << " Les options tuile et bandes s'excluent.");
  if (o.cog && bandesDonnees) ZEPRA_ERREUR(kTag << " Un COG est tuile : l'option bandes est refusee.");
  VerifieNiveau(o, niveauDonne);
  if (o.compression == CompressionTIFF::kJPEG && niveauDonne) {
    // With JPEG the level is the quality.
    o.qualite = o.niveau;
    o.niveau = 0;
  }
  return o;
}

uint64_t PlanEcriture::OctetsNonCompresses() const {
  auto octets = [&](const TPoint2D<int>& t) {
    const uint64_t ligne = (static_cast<uint64_t>(t.x) * canaux * bits + 7) / 8;
    uint64_t total = ligne * static_cast<uint64_t>(t.y);
    if (masqueInterne) total += (static_cast<uint64_t>(t.x) + 7) / 8 * static_cast<uint64_t>(t.y);
    return total;
  };
  uint64_t total = octets(taille);
  for (const TPoint2D<int>& t : apercus) total += octets(t);
  return total;
}

PlanEcriture PlanifierEcriture(const OptionsEcriture& o, const TPoint2D<int>& taille, int canaux,
                               eEnumType typeDonnees, const std::string& nom) {
  constexpr const char* kTagP = "[OptionsEcriture] (Planifier)";
  if (taille.x < 1 || taille.y < 1 || canaux < 1 || canaux > 65535)
    ZEPRA_ERREUR(kTagP << " Image de " << taille.x << " x " << taille.y << " x " << canaux
                       << " impossible pour le fichier " << nom << ".");
  PlanEcriture p;
  p.taille = taille;
  p.canauxDonnees = canaux;
  p.alpha = o.alpha;
  p.canaux = canaux + (o.alpha ? 1 : 0);
  p.type = o.type == eIndetermine ? typeDonnees : o.type;
  if (p.type == eBit1) p.type = eBool;
  if (std::string(NomTypeSortie(p.type)) == "?" && p.type != eBool)
    ZEPRA_ERREUR(kTagP << " Type " << InfoType::NomType(p.type) << " impossible pour le fichier " << nom
                       << ".");
  p.bits = BitsType(p.type);
  p.rvb = canaux >= 3 &&
          (o.couleurs == CouleursTIFF::kAuto ? p.type == eUInt1 : o.couleurs == CouleursTIFF::kRVB);
  p.compression = o.compression;
  p.qualite = o.qualite;
  p.planaire = o.planaire && p.canaux > 1;
  p.cog = o.cog;
  p.masqueInterne = o.masque;

  switch (o.compression) {
    case CompressionTIFF::kDeflate:
      p.niveau = o.niveau == 0 ? 6 : o.niveau;
      break;
    case CompressionTIFF::kZSTD:
      p.niveau = o.niveau == 0 ? 9 : o.niveau;
      break;
    case CompressionTIFF::kJPEG:
      if (p.type != eUInt1 || (p.canaux != 1 && p.canaux != 3))
        ZEPRA_ERREUR(kTagP << " JPEG seulement pour 1 ou 3 canaux de 8 bits : " << p.canaux << " canaux "
                           << NomTypeSortie(p.type) << " demandes pour le fichier " << nom << ".");
      if (p.planaire)
        ZEPRA_ERREUR(kTagP << " JPEG et entrelacement planaire s'excluent pour le fichier " << nom << ".");
      p.masqueInterne = true;
      break;
    default:
      break;
  }

  const bool sansPredicteur =
      o.compression == CompressionTIFF::kAucune || o.compression == CompressionTIFF::kJPEG;
  switch (o.predicteur) {
    case PredicteurTIFF::kAuto:
      p.predicteur = sansPredicteur || p.bits == 1 ? 1 : Flottant(p.type) ? 3 : 2;
      break;
    case PredicteurTIFF::kAucun:
      p.predicteur = 1;
      break;
    case PredicteurTIFF::kHorizontal:
    case PredicteurTIFF::kFlottant:
      p.predicteur = static_cast<int>(o.predicteur);
      if (sansPredicteur)
        ZEPRA_ERREUR(kTagP << " Pas de predicteur avec la compression " << NomCompression(o.compression)
                           << " pour le fichier " << nom << ".");
      if ((p.predicteur == 2 && p.bits == 1) || (p.predicteur == 3 && !Flottant(p.type)))
        ZEPRA_ERREUR(kTagP << " Predicteur " << p.predicteur << " impossible pour des echantillons "
                           << (p.bits == 1 ? "1 bit" : NomTypeSortie(p.type)) << " (fichier " << nom << ").");
      break;
  }

  p.tuilee = o.tuilee || o.cog;
  if (p.tuilee) {
    if (o.tuile < 16 || o.tuile % 16 != 0)
      ZEPRA_ERREUR(kTagP << " Taille de tuile " << o.tuile << " : un multiple de 16 est attendu (fichier "
                         << nom << ").");
    p.largeurBloc = p.hauteurBloc = o.tuile;
  } else {
    p.largeurBloc = taille.x;
    int lignes = o.lignesBande;
    if (lignes == 0) {
      const uint64_t ligne = (static_cast<uint64_t>(taille.x) * (p.planaire ? 1 : p.canaux) * p.bits + 7) / 8;
      lignes = static_cast<int>(std::max<uint64_t>(1, (256u << 10) / ligne));
      // JPEG strips hold whole MCU rows of 4:2:0 data.
      if (o.compression == CompressionTIFF::kJPEG) lignes = std::max(16, lignes / 16 * 16);
    } else if (o.compression == CompressionTIFF::kJPEG && lignes % 16 != 0 && lignes < taille.y) {
      ZEPRA_ERREUR(kTagP << " " << lignes
                         << " lignes par bande : un multiple de 16 est attendu avec JPEG (fichier " << nom
                         << ").");
    }
    p.hauteurBloc = std::min(lignes, taille.y);
  }

  // Overviews halve the size (rounding down) until the image holds in one tile.
  if (p.cog) {
    TPoint2D<int> t = taille;
    for (int facteur = 2; t.x > p.largeurBloc || t.y > p.hauteurBloc; facteur *= 2) {
      t = TPoint2D<int>(std::max(1, taille.x / facteur), std::max(1, taille.y / facteur));
      p.apercus.push_back(t);
    }
  }

  if (o.nodataPresent) {
    p.nodataPresent = true;
    p.nodata = NodataDuType(o.nodata, p.type, nom);
  }
  if (o.epsg != 0) CrsDepuisEpsg(o.epsg);  // refuses a code PROJ does not know

  // Room for directories and block tables beside the samples.
  const uint64_t blocs =
      static_cast<uint64_t>(p.BlocsParLigne()) * p.BlocsParColonne() * (p.planaire ? p.canaux : 1);
  const uint64_t estimation = p.OctetsNonCompresses() + blocs * 16 * (p.apercus.size() + 1) * 2 + (1u << 20);
  const bool depasse = estimation > 0xFFFFFFFFull;
  p.bigtiff = o.format == ConteneurTIFF::kBigTIFF || (o.format == ConteneurTIFF::kSiNecessaire && depasse);
  if (o.format == ConteneurTIFF::kClassique && depasse)
    ZEPRA_ERREUR(kTagP << " Le fichier " << nom << " peut depasser 4 Gio (" << estimation
                       << " octets non compresses) : format classique impossible, bigtiff ou auto attendu.");
  return p;
}

std::string TexteNodata(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char tampon[40];
  std::snprintf(tampon, sizeof tampon, "%.18g", v);
  return tampon;
}
