// The progressive GeoTIFF writer: lines converted to the output type into one row of blocks, the
// row compressed when complete, the overviews (COG) fed line by line, the directories written last.
#include "zepra/ecrivaingeotiff.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>

#include "blocs_ecriture.h"
#include "format.h"
#include "geotiff_ecriture.h"
#include "image/ecriture/apercus.h"
#include "image/ecriture/conversion_sortie.h"
#include "tags_ecriture.h"
#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"

namespace {

using tiff::Compresseur;

constexpr const char* kClasse = "[EcrivainGeoTIFF]";

// Converts one line of 'pixels' pixels of the data type into the output type, writing the validity
// of each pixel.
using Conversion = std::function<void(const void* source, const unsigned char* valide, size_t pixels,
                                      unsigned char* cible, unsigned char* valideCible)>;

template <class S, class D>
Conversion ConversionTypee(int canaux, const PlanEcriture& p) {
  ecriture::ParametresSortie<D> parametres;
  parametres.nodataPresent = p.nodataPresent;
  parametres.nodata = ecriture::VersSortie<D>(p.nodata);
  parametres.alpha = p.alpha;
  if constexpr (std::is_same_v<D, bool>) {
    // 1-bit samples travel one per byte.
    auto ligne = std::make_shared<std::vector<char>>();
    return [=](const void* s, const unsigned char* v, size_t n, unsigned char* c, unsigned char* vc) {
      const size_t echantillons = n * static_cast<size_t>(p.canaux);
      if (ligne->size() < echantillons) ligne->resize(echantillons);
      bool* b = reinterpret_cast<bool*>(ligne->data());
      ecriture::ConvertirLigne(static_cast<const S*>(s), canaux, v, n, b, parametres, vc);
      for (size_t i = 0; i < echantillons; ++i) c[i] = b[i];
    };
  } else {
    return [=](const void* s, const unsigned char* v, size_t n, unsigned char* c, unsigned char* vc) {
      ecriture::ConvertirLigne(static_cast<const S*>(s), canaux, v, n, reinterpret_cast<D*>(c), parametres,
                               vc);
    };
  }
}

Conversion ChoisirConversion(eEnumType source, int canaux, const PlanEcriture& p, const std::string& nom) {
  Conversion c;
  AppliquerType(source, [&](auto s) {
    AppliquerType(p.type, [&](auto d) {
      c = ConversionTypee<typename decltype(s)::type, typename decltype(d)::type>(canaux, p);
    });
  });
  if (!c)
    ZEPRA_ERREUR(kClasse << " Type " << InfoType::NomType(source) << " vers " << InfoType::NomType(p.type)
                         << " impossible pour le fichier " << nom << ".");
  return c;
}

// One pixel as the parts of blocks outside the image get it: the no-data value (0 without one),
// the alpha transparent.
std::vector<unsigned char> PixelVide(const PlanEcriture& p) {
  std::vector<unsigned char> pixel;
  AppliquerType(p.type, [&](auto tag) {
    using D = typename decltype(tag)::type;
    for (int c = 0; c < p.canaux; ++c) {
      const bool alpha = p.alpha && c == p.canaux - 1;
      const D v = p.nodataPresent && !alpha ? ecriture::VersSortie<D>(p.nodata) : D{};
      const unsigned char* o = reinterpret_cast<const unsigned char*>(&v);
      pixel.insert(pixel.end(), o, o + sizeof(D));
    }
  });
  return pixel;
}

// Full-resolution lines converted into one row of blocks.
struct RangeeConvertie {
  RangeeConvertie(const PlanEcriture& p, eEnumType typeDonnees, int canauxDonnees, const std::string& n)
      : plan(p),
        canaux(canauxDonnees),
        nom(n),
        type(typeDonnees),
        conversion(ChoisirConversion(typeDonnees, canauxDonnees, p, n)),
        octetsLigne(static_cast<size_t>(p.taille.x) * p.canaux * (p.bits == 1 ? 1 : p.bits / 8)),
        largeur(p.taille.x) {}

  // Room for 'lignes' lines, made on first use: a file assembled from rows encoded elsewhere converts
  // one line at a time (a COG's overviews) or none, and a row of a wide mosaic is tens of MiB.
  void Reserver(int lignes) {
    if (donnees.size() < octetsLigne * lignes) {
      donnees.resize(octetsLigne * lignes);
      valide.resize(static_cast<size_t>(largeur) * lignes);
    }
  }

  // Line i of the row from a line of samples of 'typeSource'.
  void Convertir(int i, eEnumType typeSource, const void* source, const unsigned char* valideSource) {
    if (typeSource != type) {
      conversion = ChoisirConversion(typeSource, canaux, plan, nom);
      type = typeSource;
    }
    conversion(source, valideSource, static_cast<size_t>(largeur), Ligne(i), Valide(i));
  }
  unsigned char* Ligne(int i) { return donnees.data() + static_cast<size_t>(i) * octetsLigne; }
  unsigned char* Valide(int i) { return valide.data() + static_cast<size_t>(i) * largeur; }

  PlanEcriture plan;
  int canaux;
  std::string nom;
  eEnumType type;  // of the samples the conversion takes
  Conversion conversion;
  size_t octetsLigne;
  int largeur;
  std::vector<unsigned char> donnees, valide;
};

// The spool of one level's blocks in a COG, beside the output; removed with it.
struct Depot {
  explicit Depot(const std::string& n) : nom(n) {
    flux.open(nom, std::ios::out | std::ios::binary | std::ios::trunc);
    if (!flux.is_open()) ZEPRA_ERREUR(kClasse << " Impossible de creer le fichier temporaire " << nom);
    place = EnregistrerTemporaire(nom);
  }
  ~Depot() {
    flux.close();
    std::remove(nom.c_str());
    OublierTemporaire(place);
  }
  std::string nom;
  std::ofstream flux;
  int place = -1;
};

std::string EnteteCog(bool masque) {
  // The space after NO leaves room to say YES in place, as GDAL does.
  std::string s =
      "LAYOUT=IFDS_BEFORE_DATA\nBLOCK_ORDER=ROW_MAJOR\nBLOCK_LEADER=SIZE_AS_UINT4\n"
      "BLOCK_TRAILER=LAST_4_BYTES_REPEATED\nKNOWN_INCOMPATIBLE_EDITION=NO\n ";
  if (masque) s += "MASK_INTERLEAVED_WITH_IMAGERY=YES\n";
  char debut[64];
  std::snprintf(debut, sizeof debut, "GDAL_STRUCTURAL_METADATA_SIZE=%06zu bytes\n", s.size());
  return debut + s;
}

void Ecrire32(std::ostream& flux, uint32_t v) {
  const unsigned char o[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                              static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
  flux.write(reinterpret_cast<const char*>(o), 4);
}

}  // namespace

struct EcrivainGeoTIFF::Impl {
  struct Image : tiff::ImageEcrite {
    std::map<uint16_t, tiff::Directory> tags;
    std::vector<uint64_t> offsets, octets;  // offsets relative to the level's data until Terminer
    uint64_t repertoire = 0;
  };
  struct Niveau {
    TPoint2D<int> taille;
    std::unique_ptr<Compresseur> compresseur;
    std::unique_ptr<Depot> depot;  // COG only
    std::ostream* flux = nullptr;
    uint64_t ecrits = 0;         // bytes of this level's data so far
    int rangee = 0;              // next row of blocks
    int image = 0, masque = -1;  // indices in 'images'
  };

  std::string nom;
  PlanEcriture plan;
  const tiff::FormatTIFF* format = &tiff::kClassique;
  eEnumType typeDonnees = eIndetermine;
  int canauxDonnees = 0;
  std::unique_ptr<FichierAtomique> fichier;
  std::string entete;  // header and, for a COG, GDAL's layout text
  std::vector<Image> images;
  std::vector<Niveau> niveaux;
  uint64_t debutDonnees = 0;
  std::unique_ptr<RangeeConvertie> rangee;
  int lignesRangee = 0;
  int lignes = 0;
  std::unique_ptr<ecriture::PyramideApercus> pyramide;
  std::vector<std::vector<unsigned char>> blocs;
  bool termine = false;

  void Preparer(const OptionsEcriture& options, const GeoreferenceEcriture& georef,
                const std::vector<TagTIFF>& autresTags);
  void Placer(int niveau, const std::vector<std::vector<unsigned char>>& b);
  void RangeeComplete();
  std::string Repertoires();
};

void EcrivainGeoTIFF::Impl::Preparer(const OptionsEcriture& options, const GeoreferenceEcriture& georef,
                                     const std::vector<TagTIFF>& autresTags) {
  format = plan.bigtiff ? &tiff::kBigTIFF : &tiff::kClassique;
  if (plan.cog && plan.bits == 1)
    ZEPRA_ERREUR(kClasse << " Pas d'apercus pour des echantillons de 1 bit (fichier " << nom << ").");
  std::vector<TagTIFF> supplementaires = tiff::TagsGeoTIFF(georef, options.epsg, nom);
  for (const TagTIFF& t : autresTags)
    if (!tiff::TagStructurel(t.code)) supplementaires.push_back(t);

  // Levels, and the images in directory order: data then mask of the full resolution, then the
  // overviews, then their masks, as GDAL orders them.
  const std::vector<unsigned char> vide = PixelVide(plan);
  std::vector<TPoint2D<int>> tailles = {plan.taille};
  tailles.insert(tailles.end(), plan.apercus.begin(), plan.apercus.end());
  for (size_t n = 0; n < tailles.size(); ++n) {
    Niveau v;
    v.taille = tailles[n];
    v.compresseur = std::make_unique<Compresseur>(plan, v.taille, vide, nom);
    niveaux.push_back(std::move(v));
  }
  auto ajouter = [&](int n, bool masque) {
    Image i;
    i.niveau = n;
    i.masque = masque;
    i.taille = tailles[n];
    const uint64_t blocs = tiff::NombreBlocs(plan, i);
    i.offsets.assign(blocs, 0);
    i.octets.assign(blocs, 0);
    i.tags = tiff::TagsImage(plan, i, *format, niveaux[n].compresseur->TablesJpeg(), supplementaires);
    (masque ? niveaux[n].masque : niveaux[n].image) = static_cast<int>(images.size());
    images.push_back(std::move(i));
  };
  ajouter(0, false);
  if (plan.masqueInterne) ajouter(0, true);
  for (size_t n = 1; n < tailles.size(); ++n) ajouter(static_cast<int>(n), false);
  if (plan.masqueInterne)
    for (size_t n = 1; n < tailles.size(); ++n) ajouter(static_cast<int>(n), true);

  std::string octets;
  tiff::EcrireEnteteTIFF(octets, *format, 0);
  entete = octets + (plan.cog ? EnteteCog(plan.masqueInterne) : "");
  debutDonnees = Repertoires().size();

  fichier = std::make_unique<FichierAtomique>(nom, std::string(kClasse) + " (Constructeur)");
  if (plan.cog) {
    for (size_t n = 0; n < niveaux.size(); ++n) {
      niveaux[n].depot = std::make_unique<Depot>(nom + ".niveau" + std::to_string(n) + SuffixeTemporaire());
      niveaux[n].flux = &niveaux[n].depot->flux;
    }
  } else {
    // The directories' room, written at the end.
    const std::string zeros(static_cast<size_t>(debutDonnees), '\0');
    fichier->flux().write(zeros.data(), static_cast<std::streamsize>(zeros.size()));
    niveaux[0].flux = &fichier->flux();
  }
  rangee = std::make_unique<RangeeConvertie>(plan, typeDonnees, canauxDonnees, nom);
  if (plan.cog && !plan.apercus.empty()) {
    ecriture::FormePyramide f;
    f.taille = plan.taille;
    f.canaux = plan.canaux;
    f.canalAlpha = plan.alpha ? plan.canaux - 1 : -1;
    f.type = plan.type;
    f.niveaux = plan.apercus;
    f.hauteurRangee = plan.hauteurBloc;
    f.nodataPresent = plan.nodataPresent;
    f.nodata = plan.nodata;
    pyramide = ecriture::PyramideApercus::Creer(
        f, [this](int n, int, int, const unsigned char* d, const unsigned char* v) {
          Niveau& niveau = niveaux[n];
          const size_t octetsLigne = static_cast<size_t>(niveau.taille.x) * plan.canaux * (plan.bits / 8);
          blocs.clear();
          niveau.compresseur->Rangee(niveau.rangee, d, octetsLigne, v, niveau.taille.x, blocs);
          Placer(n, blocs);
        });
  }
}

// The header and every directory, offsets as they stand: the same size before and after the data.
std::string EcrivainGeoTIFF::Impl::Repertoires() {
  std::string sortie = entete;
  for (size_t i = 0; i < images.size(); ++i) {
    if (sortie.size() % 2) sortie += '\0';
    images[i].repertoire = sortie.size();
    std::string repertoire, valeurs;
    const uint64_t offsetValeurs = images[i].repertoire + format->OctetsRepertoire(images[i].tags.size());
    tiff::EcrireRepertoire(repertoire, valeurs, *format, images[i].tags, offsetValeurs, 0);
    sortie += repertoire + valeurs;
  }
  // Each directory points at the next one.
  for (size_t i = 0; i + 1 < images.size(); ++i) {
    std::string suivant;
    tiff::EcrireNombre(suivant, images[i + 1].repertoire, format->octetsOffset);
    const uint64_t champ = images[i].repertoire + format->OctetsRepertoire(images[i].tags.size()) -
                           static_cast<uint64_t>(format->octetsOffset);
    sortie.replace(static_cast<size_t>(champ), suivant.size(), suivant);
  }
  std::string premier;
  tiff::EcrireNombre(premier, images[0].repertoire, format->octetsOffset);
  sortie.replace(static_cast<size_t>(format->octetsEntete - format->octetsOffset), premier.size(), premier);
  if (sortie.size() % 2) sortie += '\0';
  return sortie;
}

// Blocks of the next row of blocks of a level, in the order the compressor gives them.
void EcrivainGeoTIFF::Impl::Placer(int n, const std::vector<std::vector<unsigned char>>& b) {
  Niveau& niveau = niveaux[n];
  const int colonnes = (niveau.taille.x + plan.largeurBloc - 1) / plan.largeurBloc;
  const int rangees = (niveau.taille.y + plan.hauteurBloc - 1) / plan.hauteurBloc;
  const int plans = plan.planaire ? plan.canaux : 1;
  if (niveau.rangee >= rangees || b.size() != static_cast<size_t>(niveau.compresseur->BlocsParRangee()))
    ZEPRA_ERREUR(kClasse << " (Placer) " << b.size() << " blocs pour la rangee " << niveau.rangee
                         << " du niveau " << n << " du fichier " << nom << " : "
                         << niveau.compresseur->BlocsParRangee() << " attendus sur " << rangees
                         << " rangees.");
  size_t k = 0;
  for (int p = 0; p < plans; ++p)
    for (int x = 0; x < colonnes; ++x)
      for (int masque = 0; masque <= (plan.masqueInterne ? 1 : 0); ++masque) {
        const std::vector<unsigned char>& bloc = b[k++];
        Image& image = images[masque ? niveau.masque : niveau.image];
        const size_t index = static_cast<size_t>(masque ? 0 : p) * colonnes * rangees +
                             static_cast<size_t>(niveau.rangee) * colonnes + x;
        if (plan.cog) Ecrire32(*niveau.flux, static_cast<uint32_t>(bloc.size()));
        image.offsets[index] = niveau.ecrits + (plan.cog ? 4 : 0);
        image.octets[index] = bloc.size();
        niveau.flux->write(reinterpret_cast<const char*>(bloc.data()),
                           static_cast<std::streamsize>(bloc.size()));
        niveau.ecrits += bloc.size();
        if (plan.cog) {
          // The last four bytes again (zeros complete a shorter block).
          unsigned char fin[4] = {0, 0, 0, 0};
          const size_t n4 = std::min<size_t>(4, bloc.size());
          if (n4) std::memcpy(fin + 4 - n4, bloc.data() + bloc.size() - n4, n4);
          niveau.flux->write(reinterpret_cast<const char*>(fin), 4);
          niveau.ecrits += 8;
        }
        if (!format->Big() && debutDonnees + niveau.ecrits > 0xFFFFFFFFull)
          ZEPRA_ERREUR(kClasse << " Le fichier " << nom
                               << " depasse 4 Gio : format bigtiff ou auto attendu pour ces donnees.");
      }
  if (!*niveau.flux)
    ZEPRA_ERREUR(kClasse << " Echec de l'ecriture du fichier " << nom << CauseEchecEcriture());
  ++niveau.rangee;
}

void EcrivainGeoTIFF::Impl::RangeeComplete() {
  blocs.clear();
  niveaux[0].compresseur->Rangee(niveaux[0].rangee, rangee->donnees.data(), rangee->octetsLigne,
                                 rangee->valide.data(), static_cast<size_t>(plan.taille.x), blocs);
  Placer(0, blocs);
  lignesRangee = 0;
}

EcrivainGeoTIFF::EcrivainGeoTIFF(const std::string& nom, const OptionsEcriture& options,
                                 const TPoint2D<int>& taille, int canaux, eEnumType typeDonnees,
                                 const GeoreferenceEcriture& georef, const std::vector<TagTIFF>& autresTags)
    : m(std::make_unique<Impl>()) {
  m->nom = nom;
  m->plan = PlanifierEcriture(options, taille, canaux, typeDonnees, nom);
  m->typeDonnees = typeDonnees;
  m->canauxDonnees = canaux;
  m->Preparer(options, georef, autresTags);
}

EcrivainGeoTIFF::~EcrivainGeoTIFF() = default;

const PlanEcriture& EcrivainGeoTIFF::Plan() const { return m->plan; }
const std::string& EcrivainGeoTIFF::Nom() const { return m->nom; }
int EcrivainGeoTIFF::Lignes() const { return m->lignes; }

void EcrivainGeoTIFF::EcrireLignes(const void* donnees, size_t pas, int lignes, const unsigned char* valide,
                                   size_t pasValide) {
  EcrireLignes(m->typeDonnees, donnees, pas, lignes, valide, pasValide);
}

void EcrivainGeoTIFF::EcrireLignes(eEnumType type, const void* donnees, size_t pas, int lignes,
                                   const unsigned char* valide, size_t pasValide) {
  Impl& e = *m;
  if (e.termine || lignes < 0 || lignes > e.plan.taille.y - e.lignes)
    ZEPRA_ERREUR(kClasse << " (EcrireLignes) " << lignes << " lignes de plus que les " << e.plan.taille.y
                         << " du fichier " << e.nom << " (" << e.lignes << " deja ecrites).");
  const unsigned char* source = static_cast<const unsigned char*>(donnees);
  if (lignes > 0) e.rangee->Reserver(e.plan.hauteurBloc);
  for (int i = 0; i < lignes; ++i) {
    const int j = e.lignesRangee;
    e.rangee->Convertir(j, type, source + i * pas, valide ? valide + i * pasValide : nullptr);
    if (e.pyramide) e.pyramide->AjouterLigne(e.rangee->Ligne(j), e.rangee->Valide(j));
    ++e.lignes;
    if (++e.lignesRangee == e.plan.hauteurBloc || e.lignes == e.plan.taille.y) e.RangeeComplete();
  }
}

void EcrivainGeoTIFF::EcrireRangeeEncodee(const std::vector<std::vector<unsigned char>>& blocs,
                                          const void* donnees, size_t pas, const unsigned char* valide,
                                          size_t pasValide) {
  Impl& e = *m;
  const int lignes = std::min(e.plan.hauteurBloc, e.plan.taille.y - e.lignes);
  if (e.termine || e.lignesRangee != 0 || lignes <= 0)
    ZEPRA_ERREUR(kClasse << " (EcrireRangeeEncodee) Pas de rangee de blocs attendue a la ligne " << e.lignes
                         << " du fichier " << e.nom << ".");
  if (e.pyramide) {
    if (!donnees)
      ZEPRA_ERREUR(
          kClasse << " (EcrireRangeeEncodee) Les lignes de la rangee manquent pour les apercus du fichier "
                  << e.nom << ".");
    const unsigned char* source = static_cast<const unsigned char*>(donnees);
    e.rangee->Reserver(1);
    for (int i = 0; i < lignes; ++i) {
      e.rangee->Convertir(0, e.typeDonnees, source + i * pas, valide ? valide + i * pasValide : nullptr);
      e.pyramide->AjouterLigne(e.rangee->Ligne(0), e.rangee->Valide(0));
    }
  }
  e.Placer(0, blocs);
  e.lignes += lignes;
}

void EcrivainGeoTIFF::Terminer() {
  Impl& e = *m;
  if (e.termine) return;
  if (e.lignes != e.plan.taille.y)
    ZEPRA_ERREUR(kClasse << " (Terminer) Image incomplete : " << e.plan.taille.y - e.lignes
                         << " lignes non ecrites dans " << e.nom);
  // Where each level's data lies: after the directories; in a COG from the smallest overview.
  std::vector<uint64_t> debut(e.niveaux.size(), e.debutDonnees);
  uint64_t position = e.debutDonnees;
  for (size_t n = e.niveaux.size(); n-- > 0;) {
    debut[n] = position;
    position += e.niveaux[n].ecrits;
  }
  if (!e.format->Big() && position > 0xFFFFFFFFull)
    ZEPRA_ERREUR(kClasse << " Le fichier " << e.nom
                         << " depasse 4 Gio : format bigtiff ou auto attendu pour ces donnees.");
  for (auto& image : e.images) {
    std::vector<uint64_t> offsets = image.offsets;
    for (uint64_t& o : offsets) o += debut[image.niveau];
    tiff::FixerBlocs(image.tags, offsets, image.octets);
  }
  const std::string repertoires = e.Repertoires();
  std::ofstream& flux = e.fichier->flux();
  if (e.plan.cog) {
    flux.write(repertoires.data(), static_cast<std::streamsize>(repertoires.size()));
    std::vector<char> tampon(1 << 22);
    for (size_t n = e.niveaux.size(); n-- > 0;) {
      Depot& d = *e.niveaux[n].depot;
      d.flux.close();
      if (d.flux.fail())
        ZEPRA_ERREUR(kClasse << " Echec de l'ecriture du fichier temporaire " << d.nom
                             << CauseEchecEcriture());
      std::ifstream lu(d.nom, std::ios::binary);
      while (lu) {
        lu.read(tampon.data(), static_cast<std::streamsize>(tampon.size()));
        flux.write(tampon.data(), lu.gcount());
      }
      e.niveaux[n].depot.reset();
    }
  } else {
    flux.seekp(0);
    flux.write(repertoires.data(), static_cast<std::streamsize>(repertoires.size()));
  }
  e.fichier->Valider();
  e.termine = true;
}

struct EncodeurRangees::Impl {
  PlanEcriture plan;
  std::unique_ptr<RangeeConvertie> rangee;
  std::unique_ptr<Compresseur> compresseur;
};

EncodeurRangees::EncodeurRangees(const std::string& nom, const OptionsEcriture& options,
                                 const TPoint2D<int>& taille, int canaux, eEnumType typeDonnees)
    : m(std::make_unique<Impl>()) {
  m->plan = PlanifierEcriture(options, taille, canaux, typeDonnees, nom);
  m->rangee = std::make_unique<RangeeConvertie>(m->plan, typeDonnees, canaux, nom);
  m->compresseur = std::make_unique<Compresseur>(m->plan, taille, PixelVide(m->plan), nom);
}

EncodeurRangees::~EncodeurRangees() = default;

const PlanEcriture& EncodeurRangees::Plan() const { return m->plan; }

std::vector<std::vector<unsigned char>> EncodeurRangees::Encoder(int r, const void* donnees, size_t pas,
                                                                 const unsigned char* valide,
                                                                 size_t pasValide) {
  const PlanEcriture& p = m->plan;
  const int lignes = std::min(p.hauteurBloc, p.taille.y - r * p.hauteurBloc);
  std::vector<std::vector<unsigned char>> blocs;
  if (r < 0 || lignes <= 0)
    ZEPRA_ERREUR(kClasse << " (Encoder) Rangee de blocs " << r << " hors de l'image.");
  const unsigned char* source = static_cast<const unsigned char*>(donnees);
  m->rangee->Reserver(p.hauteurBloc);
  for (int i = 0; i < lignes; ++i)
    m->rangee->Convertir(i, m->rangee->type, source + i * pas, valide ? valide + i * pasValide : nullptr);
  m->compresseur->Rangee(r, m->rangee->donnees.data(), m->rangee->octetsLigne, m->rangee->valide.data(),
                         static_cast<size_t>(p.taille.x), blocs);
  return blocs;
}
