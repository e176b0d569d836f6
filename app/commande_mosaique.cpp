#include "commande_mosaique.h"

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <limits>

#include "ligne_commande.h"
#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"
#include "zepra/optionsecriture.h"
#include "zepra/pipeline/mosaique.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/pipeline/verification.h"

namespace {

using O = OptionsCommandeMosaique;
using Option = OptionCommande<O>;

constexpr double kInfini = std::numeric_limits<double>::infinity();

template <class Ligne>
std::vector<std::string> Noms(const std::vector<Ligne>& table) {
  std::vector<std::string> n;
  for (const Ligne& l : table) n.push_back(l.nom);
  return n;
}
template <class Ligne>
bool Construit(const std::vector<Ligne>& table, const std::string& nom) {
  const Ligne* l = ChercherLigne(table, nom);
  return l && l->creer;
}

// Row makers, one per kind of value.
Option Drapeau(const char* nom, char court, const char* aide, void (*f)(O&, const Valeur&)) {
  return Option{nom, court, GenreValeur::kAucune, "", nullptr, aide, f};
}
Option Texte(const char* nom, char court, const char* metavar, const char* defaut, const char* aide,
             void (*f)(O&, const Valeur&)) {
  return Option{nom, court, GenreValeur::kTexte, metavar, defaut, aide, f};
}
Option Entier(const char* nom, const char* metavar, const char* defaut, const char* aide, double min,
              double max, void (*f)(O&, const Valeur&)) {
  Option o{nom, 0, GenreValeur::kEntier, metavar, defaut, aide, f};
  o.min = min;
  o.max = max;
  return o;
}
// Reals within [min, max], min excluded when minExclu; nb to nbMax of them separated by commas.
Option Reels(const char* nom, const char* metavar, const char* defaut, const char* aide, double min,
             bool minExclu, int nb, int nbMax, void (*f)(O&, const Valeur&)) {
  Option o{nom,  0, nb == 1 && nbMax == 1 ? GenreValeur::kReel : GenreValeur::kReels, metavar, defaut,
           aide, f};
  o.min = min;
  o.max = kInfini;
  o.minExclu = minExclu;
  o.nbMin = nb;
  o.nbMax = nbMax;
  return o;
}
Option Choix(const char* nom, const char* metavar, const char* defaut, const char* aide,
             std::vector<std::string> (*choix)(), bool (*disponible)(const std::string&),
             void (*f)(O&, const Valeur&)) {
  Option o{nom, 0, GenreValeur::kChoix, metavar, defaut, aide, f};
  o.choix = choix;
  o.choixDisponible = disponible;
  return o;
}
void Rigidite(const Valeur& v, ParametresModele& m) {
  m.rigidite = v.reels[0];
  if (v.reels.size() > 1) m.pentes = v.reels[1];
  if (v.reels.size() > 2) m.courbures = v.reels[2];
  if (v.reels.size() > 3) m.formesGain = v.reels[3];
}
const std::vector<Option>& Table() {
  static const std::vector<Option> table = {
      Texte("output", 'o', "FICHIER", nullptr, "la mosaique a ecrire, GeoTIFF (.tif ou .tiff) ; obligatoire",
            [](O& o, const Valeur& v) { o.sortie = v.texte; }),
      Choix(
          "modele", "MODELE", "gain-offset", "modele de correction radiometrique",
          [] { return Noms(TableModeles()); },
          // gain-offset is solved from block statistics by the job itself, not through the table.
          [](const std::string& n) { return n == "gain-offset" || Construit(TableModeles(), n); },
          [](O& o, const Valeur& v) { o.modele = v.texte; }),
      Entier("degre-gain", "D", "2 a partir de 6 images sur la mosaique, sinon 0",
             "gain-offset : degre du gain a(x, y)", 0, 2,
             [](O& o, const Valeur& v) { o.parametresModele.degreGain = static_cast<int>(v.entier); }),
      Entier("degre-offset", "D", "comme --degre-gain", "gain-offset : degre de l'offset b(x, y)", 0, 2,
             [](O& o, const Valeur& v) { o.parametresModele.degreOffset = static_cast<int>(v.entier); }),
      [] {
        Option o = Reels("rigidite", "W[,PENTES,COURBURES[,GAIN]]", "1e-7,10,3,30",
                         "gain-offset : poids du rappel des corrections vers l'identite ; ce rappel sur les "
                         "pentes et sur les courbures, relatif a celui sur les niveaux, et sur les pentes et "
                         "courbures du gain, relatif encore (1 a 10000) ; a partir de 6 images, les "
                         "dernieres resolutions apprennent ce rappel de la dispersion des corrections des "
                         "images",
                         0, false, 1, 4, [](O& o, const Valeur& v) { Rigidite(v, o.parametresModele); });
        // The model's own bounds, refused as a usage error.
        o.verifier = [](const Valeur& v) {
          ParametresModele m;
          Rigidite(v, m);
          return RefusGainOffset(m);
        };
        return o;
      }(),
      Entier("bloc", "PIXELS", "16, double tant que --memoire l'exige",
             "gain-offset : cote des blocs de statistiques", 4, 4096,
             [](O& o, const Valeur& v) { o.parametresModele.bloc = static_cast<int>(v.entier); }),
      Texte("reference", 0, "FICHIER", "aucune",
            "gain-offset : image de reference radiometrique (mosaique anterieure, image satellite), meme "
            "systeme et memes bandes que les entrees, pixel d'au plus un bloc ; sa correction reste "
            "l'identite et les images qu'elle relie en prennent le niveau ; elle n'entre pas dans la "
            "mosaique",
            [](O& o, const Valeur& v) { o.reference = v.texte; }),
      Drapeau("noegal", 0, "assembler sans egaliser", [](O& o, const Valeur&) { o.noegal = true; }),
      Reels("pas", "METRES", "choisi pour que le plus petit recouvrement ait environ 400 observations",
            "additif, multiplicatif : pas de la grille des observations, dans l'unite du systeme", 0, true, 1,
            1, [](O& o, const Valeur& v) { o.pas = v.reels[0]; }),
      Choix(
          "fusion", "REGLE", "plume", "regle de fusion des recouvrements",
          [] { return Noms(TableFusions()); },
          [](const std::string& n) { return Construit(TableFusions(), n); },
          [](O& o, const Valeur& v) { o.fusion = v.texte; }),
      Reels("plume", "METRES", "la moitie de la largeur mediane des recouvrements, au plus 64 pixels",
            "plume : largeur du fondu, dans l'unite du systeme comme --resolution", 0, true, 1, 1,
            [](O& o, const Valeur& v) { o.parametresFusion.plume = v.reels[0]; }),
      [] {
        Option o = Reels("nodata", "V", "l'etiquette commune des entrees, sinon 0",
                         "valeur sans donnee de la mosaique et des entrees sans etiquette", -kInfini, false,
                         1, 1, [](O& o, const Valeur& v) {
                           o.nodataDonne = true;
                           o.nodata = v.reels[0];
                         });
        o.nanPermis = true;
        return o;
      }(),
      Texte("masque-suffixe", 0, "SUFFIXE", nullptr,
            "masque d'exclusion a cote de chaque entree : son nom sans extension suivi de SUFFIXE, par "
            "exemple _masque.tif (non nul : exclu)",
            [](O& o, const Valeur& v) { o.masqueSuffixe = v.texte; }),
      Reels("resolution", "X[,Y]", "le pixel des entrees",
            "taille du pixel de la mosaique, dans l'unite du systeme (metres ; degres pour un systeme "
            "geographique)",
            0, true, 1, 2,
            [](O& o, const Valeur& v) {
              o.resolutionX = v.reels[0];
              o.resolutionY = v.reels.back();
            }),
      Reels("emprise", "XMIN,YMIN,XMAX,YMAX", "l'union des entrees",
            "rectangle de la carte auquel la mosaique est limitee, cale sur la grille", -kInfini, false, 4, 4,
            [](O& o, const Valeur& v) {
              o.empriseDonnee = true;
              for (int k = 0; k < 4; ++k) o.emprise[k] = v.reels[k];
            }),
      Choix(
          "reechantillonnage", "METHODE", "proche au pixel des entrees, moyenne sur un pixel plus grand",
          "reechantillonnage des entrees sur la grille de la mosaique",
          [] {
            return std::vector<std::string>{"proche", "bilineaire", "moyenne"};
          },
          nullptr, [](O& o, const Valeur& v) { o.reechantillonnage = v.texte; }),
      Texte("corriges", 0, "DOSSIER", "aucune image corrigee",
            "dossier existant dans lequel ecrire chaque entree corrigee, sous son nom",
            [](O& o, const Valeur& v) { o.corriges = v.texte; }),
      Choix(
          "type", "TYPE", "celui des entrees", "type des echantillons ecrits",
          [] {
            return std::vector<std::string>{"uint8",  "int8",  "uint16",  "int16",
                                            "uint32", "int32", "float32", "float64"};
          },
          nullptr, [](O& o, const Valeur& v) { o.type = v.texte; }),
      Choix(
          "compression", "CODEC", "deflate", "compression des images ecrites",
          [] {
            return std::vector<std::string>{"none", "lzw", "deflate", "zstd", "jpeg"};
          },
          nullptr, [](O& o, const Valeur& v) { o.compression = v.texte; }),
      Entier("niveau", "N", "celui du codec",
             "niveau de compression : deflate 1-12, zstd 1-22, qualite jpeg 1-100", 1, 100,
             [](O& o, const Valeur& v) { o.niveau = static_cast<int>(v.entier); }),
      Entier("tuile", "N", "512", "tuiles de N x N pixels, N multiple de 16", 16, 65536,
             [](O& o, const Valeur& v) { o.tuile = static_cast<int>(v.entier); }),
      Drapeau("cog", 0, "ecrire un GeoTIFF optimise pour le nuage (COG), avec ses apercus",
              [](O& o, const Valeur&) { o.cog = true; }),
      Entier(
          "epsg", "CODE", "le systeme des entrees",
          "systeme de reference (code EPSG) de la mosaique et des entrees placees sans systeme (world file)",
          1, 999999, [](O& o, const Valeur& v) { o.epsg = static_cast<int>(v.entier); }),
      Texte("rapport", 0, "FICHIER.json", nullptr, "rapport JSON du calcul",
            [](O& o, const Valeur& v) { o.rapport = v.texte; }),
      Entier("threads", "N", "les coeurs dont dispose le processus", "nombre de fils de calcul", 1, 4096,
             [](O& o, const Valeur& v) { o.threads = static_cast<int>(v.entier); }),
      Entier("memoire", "MIO", "1024", "plafond de la memoire de travail", 16, 1 << 30,
             [](O& o, const Valeur& v) { o.memoire = static_cast<int>(v.entier); }),
      Texte("travail", 0, "DOSSIER", nullptr, "dossier de travail partage par les etapes",
            [](O& o, const Valeur& v) { o.travail = v.texte; }),
      Choix(
          "etape", "ETAPE", nullptr, "une seule etape du calcul, avec --travail",
          [] {
            return std::vector<std::string>{"observer", "resoudre", "composer", "assembler"};
          },
          nullptr, [](O& o, const Valeur& v) { o.etape = v.texte; }),
      Entier("index", "I", nullptr, "--etape observer : l'entree a observer, a partir de 1", 1, 1e9,
             [](O& o, const Valeur& v) { o.index = static_cast<int>(v.entier); }),
      [] {
        Option o{"partie",
                 0,
                 GenreValeur::kFraction,
                 "K/N",
                 nullptr,
                 "--etape composer : la K-ieme de N bandes de tuiles, K a partir de 1",
                 [](O& o, const Valeur& v) {
                   o.partieK = static_cast<int>(v.k);
                   o.partieN = static_cast<int>(v.n);
                 }};
        o.min = 1;
        o.max = 1e6;
        return o;
      }(),
      Drapeau("quiet", 'q', "n'afficher que les erreurs", [](O& o, const Valeur&) { o.quiet = true; }),
      Texte("log", 0, "FICHIER", nullptr, "copie des erreurs et avertissements",
            [](O& o, const Valeur& v) { o.log = v.texte; }),
      Drapeau("help", 'h', "afficher cette aide et terminer", [](O& o, const Valeur&) { o.aide = true; }),
      Drapeau("version", 0, "afficher la version et terminer", [](O& o, const Valeur&) { o.version = true; }),
  };
  return table;
}

// Checks that involve several options; the reason of the first that fails.
std::string VerifierEnsemble(const O& o) {
  if (o.entrees.empty()) return "aucune image en entree";
  if (o.sortie.empty()) return "l'option -o/--output est obligatoire";
  if (!ExtensionGeoTIFF(o.sortie))
    return "-o " + o.sortie + " : l'extension .tif ou .tiff (GeoTIFF) est attendue";
  if (o.tuile % 16 != 0) return "--tuile " + std::to_string(o.tuile) + " : un multiple de 16 est attendu";
  if (o.niveau != 0) {
    const int max = o.compression == "deflate" ? 12
                    : o.compression == "zstd"  ? 22
                    : o.compression == "jpeg"  ? 100
                                               : 0;
    if (max == 0) return "--niveau ne s'applique pas a la compression " + o.compression;
    if (o.niveau > max)
      return "--niveau " + std::to_string(o.niveau) + " : 1 a " + std::to_string(max) + " pour " +
             o.compression;
  }
  if (o.empriseDonnee && !(o.emprise[0] < o.emprise[2] && o.emprise[1] < o.emprise[3]))
    return "--emprise : XMIN < XMAX et YMIN < YMAX sont attendus";
  if (!o.reference.empty()) {
    if (o.noegal) return "--reference " + o.reference + " : sans objet avec --noegal";
    if (o.modele != "gain-offset")
      return "--reference " + o.reference + " : seulement avec le modele gain-offset (pas " + o.modele + ")";
    for (const std::string& e : o.entrees)
      if (e == o.reference) return "--reference " + o.reference + " est aussi une image en entree";
  }
  if (!o.etape.empty() && o.travail.empty()) return "--etape demande --travail";
  // Ignored, it would let a user believe the intermediate results were kept.
  if (o.etape.empty() && !o.travail.empty())
    return "--travail va avec --etape (sans --etape, le calcul entier se fait en memoire)";
  if (o.etape == "observer" && o.index == 0) return "--etape observer demande --index I";
  if (o.etape == "composer" && o.partieN == 0) return "--etape composer demande --partie K/N";
  if ((o.etape == "observer") != (o.index != 0))
    return "--index va avec --etape observer, et seulement avec elle";
  if ((o.etape == "composer") != (o.partieN != 0))
    return "--partie va avec --etape composer, et seulement avec elle";
  return "";
}

constexpr const char* kIndication = "Essayez 'egalise mosaique --help' pour plus d'informations.";

}  // namespace

LectureMosaique LireCommandeMosaique(int argc, char** argv) {
  LectureMosaique l;
  O& o = l.options;
  const ResultatLecture r = LireCommande(Table(), argc, argv, 2, o);
  l.statut = r.statut;
  l.message = r.message;
  o.entrees.insert(o.entrees.end(), r.entrees.begin(), r.entrees.end());
  o.donnees = r.donnees;
  if (l.statut != 0 || o.aide || o.version) return l;
  l.message = VerifierEnsemble(o);
  if (!l.message.empty()) l.statut = 2;
  o.indisponibles = OptionsIndisponibles(Table(), o.donnees);
  return l;
}

std::string AideMosaique() {
  return "Usage : egalise mosaique IMAGE... -o MOSAIQUE.tif [OPTION]...\n"
         "Egalise la radiometrie d'images georeferencees qui se recouvrent, sur toutes leurs bandes, et les\n"
         "assemble en une mosaique GeoTIFF.\n"
         "IMAGE est un chemin ; @LISTE lit les chemins d'un fichier, un par ligne ; apres --, tout mot est\n"
         "une image. Les options longues s'ecrivent --nom VALEUR ou --nom=VALEUR.\n\n" +
         AideTable(Table()) +
         "\n"
         "Statut de sortie : 0 reussite, 1 echec du calcul, 2 ligne de commande incorrecte.\n"
         "Sans 'mosaique' en premier mot, egalise garde sa ligne de commande historique (mode compatible).\n";
}

namespace {

// Stage lines and warnings on stderr unless --quiet (warnings and errors in the --log file even then);
// a progress bar per stage when stderr is a terminal.
class SuiviConsole : public SuiviMosaique {
 public:
  SuiviConsole(bool quiet, std::ofstream* log) : m_quiet(quiet), m_log(log), m_terminal(isatty(2) != 0) {}
  ~SuiviConsole() override { Fermer(); }
  void Etape(const std::string& nom) override {
    Fermer();
    if (m_quiet) return;
    std::cerr << "egalise mosaique : " << nom << std::endl;
  }
  void Progression(double f) override {
    if (m_quiet || !m_terminal) return;
    const int n = static_cast<int>(f * 40 + 0.5);
    std::cerr << "\r  [" << std::string(n, '#') << std::string(40 - n, ' ') << "] "
              << static_cast<int>(f * 100) << " %" << std::flush;
    m_barre = true;
  }
  void Avertissement(const std::string& t) override {
    Fermer();
    if (!m_quiet) std::cerr << "egalise mosaique : avertissement : " << t << std::endl;
    if (m_log && *m_log) {
      *m_log << "avertissement : " << t << std::endl;
      // The cause is known only at the first write that fails.
      if (!*m_log) m_cause = CauseEchecEcriture();
    }
  }
  const std::string& CauseEchecLog() const { return m_cause; }
  void Fermer() {
    if (m_barre) std::cerr << std::endl;
    m_barre = false;
  }

 private:
  bool m_quiet;
  std::ofstream* m_log;
  bool m_terminal;
  bool m_barre = false;
  std::string m_cause;
};

ParametresMosaique Parametres(const O& o) {
  ParametresMosaique p;
  p.entrees = o.entrees;
  p.sortie = o.sortie;
  p.modele = o.modele;
  p.gainOffset = o.parametresModele;
  p.pas = o.pas;
  p.noegal = o.noegal;
  p.reference = o.reference;
  p.fusion = o.fusion;
  p.plume = o.parametresFusion.plume;
  p.nodataDonne = o.nodataDonne;
  p.nodata = o.nodata;
  p.masqueSuffixe = o.masqueSuffixe;
  p.resolutionX = o.resolutionX;
  p.resolutionY = o.resolutionY;
  p.empriseDonnee = o.empriseDonnee;
  for (int k = 0; k < 4; ++k) p.emprise[k] = o.emprise[k];
  p.reechantillonnage = o.reechantillonnage;
  p.corriges = o.corriges;
  p.memoireMio = o.memoire;
  std::vector<std::pair<std::string, std::string>> ecriture = {{"compression", o.compression},
                                                               {"tuile", std::to_string(o.tuile)}};
  if (o.niveau != 0) ecriture.push_back({"niveau", std::to_string(o.niveau)});
  if (!o.type.empty()) ecriture.push_back({"type", o.type});
  if (o.cog) ecriture.push_back({"cog", ""});
  if (o.epsg != 0) ecriture.push_back({"epsg", std::to_string(o.epsg)});
  p.ecriture = LireOptionsEcriture(ecriture);
  return p;
}

// After a failure, whether the mosaic itself was written whole: only what came after it is missing.
void MosaiqueComplete(const JobMosaique* job, const std::string& sortie, std::ofstream& log) {
  if (!job || !job->MosaiqueEcrite()) return;
  const std::string t = "la mosaique " + sortie + " est complete ; seul ce qui la suit n'a pas ete ecrit.";
  std::cerr << "egalise mosaique : " << t << std::endl;
  if (log.is_open()) log << t << std::endl;
}

}  // namespace

int Main_mosaique(int argc, char** argv) {
  const LectureMosaique l = LireCommandeMosaique(argc, argv);
  const O& o = l.options;
  if (l.statut != 0) {
    std::cerr << "egalise mosaique : " << l.message << std::endl;
    if (l.statut == 2) std::cerr << kIndication << std::endl;
    return l.statut;
  }
  if (o.aide) {
    std::cout << AideMosaique();
    return 0;
  }
  if (o.version) {
    std::cout << "egalise " << EGALISE_VERSION << std::endl;
    return 0;
  }
  std::ofstream log;
  std::unique_ptr<JobMosaique> job;
  try {
    if (!o.indisponibles.empty()) {
      std::string liste;
      for (const std::string& n : o.indisponibles) liste += (liste.empty() ? "" : ", ") + n;
      ZEPRA_ERREUR("[Main_mosaique] (Options) Pas encore disponible : " << liste << ".");
    }
    // Interrupted (Ctrl-C, a scheduler's TERM), the run leaves no temporary file.
    NettoyerAuxSignaux();
    // Every input stays open: hundreds of tiles need more than the usual soft limit of 1024 files.
    struct rlimit fichiers;
    if (getrlimit(RLIMIT_NOFILE, &fichiers) == 0 && fichiers.rlim_cur < fichiers.rlim_max) {
      fichiers.rlim_cur = fichiers.rlim_max;
      setrlimit(RLIMIT_NOFILE, &fichiers);
    }
    FixerNbFils(o.threads);
    // The composition's buffers of a few tens of MiB come and go for every band of rows: kept in the
    // heap rather than mapped and zeroed by the kernel each time (the peak stays the same).
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    // The assembling phase alone writes the mosaic; the other phases only check its name. Checked
    // before the log is opened: it must not grow an input.
    const bool ecritSortie = o.etape.empty() || o.etape == "assembler";
    VerifierChemins(o.entrees, o.sortie, ecritSortie ? o.corriges : std::string(),
                    {{"--rapport", o.rapport}, {"--log", o.log}}, o.masqueSuffixe, o.reference);
    if (!o.log.empty()) {
      log.open(o.log, std::ios::app);
      if (!log) ZEPRA_ERREUR("[Main_mosaique] (Log) Le fichier " << o.log << " ne peut pas etre ouvert.");
    }
    SuiviConsole suivi(o.quiet, log.is_open() ? &log : nullptr);
    job = std::make_unique<JobMosaique>(Parametres(o), &suivi);
    if (o.etape.empty())
      job->Executer();
    else if (o.etape == "observer")
      job->PhaseObserver(o.travail, o.index);
    else if (o.etape == "resoudre")
      job->PhaseResoudre(o.travail);
    else if (o.etape == "composer")
      job->PhaseComposer(o.travail, o.partieK, o.partieN);
    else
      job->PhaseAssembler(o.travail);
    if (!o.rapport.empty()) {
      FichierAtomique f(o.rapport, "[Main_mosaique] (Rapport)");
      f.flux() << job->RapportJson(o.donnees);
      f.Valider();
    }
    suivi.Fermer();
    // A log on a full disk would lose the warnings, which --quiet keeps nowhere else.
    if (log.is_open() && !log.flush())
      ZEPRA_ERREUR("[Main_mosaique] (Log) Echec de l'ecriture du fichier " << o.log << " de --log"
                                                                           << suivi.CauseEchecLog() << ".");
    if (!o.quiet) std::cerr << "egalise mosaique : termine" << std::endl;
    return 0;
  } catch (const Erreur& e) {
    // The log keeps where the error was raised; the console says what went wrong.
    std::cerr << "egalise mosaique : " << e.Phrase() << std::endl;
    if (log.is_open()) log << "erreur : " << e.Texte() << std::endl;
    MosaiqueComplete(job.get(), o.sortie, log);
    return 1;
  } catch (const std::exception& e) {
    std::cerr << "egalise mosaique : " << e.what() << std::endl;
    if (log.is_open()) log << "erreur : " << e.what() << std::endl;
    MosaiqueComplete(job.get(), o.sortie, log);
    return 1;
  }
}
