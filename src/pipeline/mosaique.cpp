// The conventional front end's job (zepra/pipeline/mosaique.h).
//
// Memory. Nothing holds a whole input or the whole mosaic. Observation reads each input by windows
// of full-width rows and keeps its block statistics. The statistics, the observations and the solve
// are estimated before any pixel is read (EstimerMemoireEgalisation) and held within a share of
// --memoire (ParametresMosaique::partEgalisation, half), the reading windows in the rest: the block
// side grows beyond 16 when they would not fit, a --bloc that does not fit is refused. Composition works by
// rows of output tiles: a row is composed by sub-bands of lines, each input contributing the window it covers
// (grown by the feathering margin), corrected and fused by the rule; the row is then compressed in the worker
// that made it and written in order. The memory plan decides, before any pixel is read, how many rows are in
// flight at once and how tall a sub-band is, so that these buffers stay under --memoire; the rest of the
// process (code, libraries, statistics, the system) is outside it.
//
// Same bytes whatever the threads. Each row of tiles is the same computation whoever makes it; rows
// are written in order. Observations are per input, combined in input order.
#include "zepra/pipeline/mosaique.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <sstream>
#include <tuple>

#include "image/pam.h"
#include "pipeline/blocs_stats.h"
#include "pipeline/gain_offset.h"
#include "pipeline/mosaique_entrees.h"
#include "pipeline/multibande.h"
#include "pipeline/plume.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"
#include "zepra/orientation.h"
#include "zepra/pipeline/fusion.h"
#include "zepra/pipeline/modeles.h"
#include "zepra/pipeline/observations.h"
#include "zepra/pipeline/parallele.h"

namespace {

constexpr size_t kMio = size_t(1) << 20;
// The widest default feathering, in output pixels.
constexpr double kPlumeMax = 64;
// The statistics' block side when --bloc is not given, and the largest it may grow to (--bloc's bound).
constexpr int kBlocDefaut = 16, kBlocMax = 4096;

// One line of an input corrected in place. A gain can carry a value near the float limit past it (or a
// historical multiplicative model divide by almost 0): the result is held at the largest float, so that
// the mosaic and the corrected images never hold an infinity.
void CorrigerFini(const CorrectionImage& c, int bande, int y, int x0, int n, float* v) {
  c.CorrigerLigne(bande, y, x0, n, v);
  constexpr float kMax = std::numeric_limits<float>::max();
  for (int k = 0; k < n; ++k) v[k] = v[k] > kMax ? kMax : v[k] < -kMax ? -kMax : v[k];
}

unsigned long long LimiteFichiers() {
  struct rlimit l;
  return getrlimit(RLIMIT_NOFILE, &l) == 0 ? static_cast<unsigned long long>(l.rlim_cur) : 0;
}

// The statistics and the solve, freed, leave holes in the heap that the composition's buffers do not
// fill (the front end keeps freed memory below 256 MiB for reuse): the two would add up in the peak.
void RendreLaMemoire() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

double MemoireMaxMio() {
  struct rusage u;
  getrusage(RUSAGE_SELF, &u);
  return u.ru_maxrss / 1024.0;  // KiB on Linux
}

// A correction that leaves the values as they are.
class Identite : public CorrectionImage {
 public:
  void CorrigerLigne(int, int, int, int, float*) const override {}
};

class CorrectionGO : public CorrectionImage {
 public:
  explicit CorrectionGO(CorrectionGainOffset c) : m_c(std::move(c)) {}
  void CorrigerLigne(int bande, int y, int x0, int n, float* v) const override {
    m_c.CorrigerLigne(bande, y, x0, n, v, v);
  }
  const CorrectionGainOffset& C() const { return m_c; }

 private:
  CorrectionGainOffset m_c;
};

// Rows of an input for the observation stage of the historical models: each call reads its own row
// window, so that the source keeps no state and may be read from several threads.
class SourceEntree : public SourceLignes {
 public:
  explicit SourceEntree(const EntreeMosaique& e) : m_e(e) {}
  int Colonnes() const override { return m_e.Colonnes(); }
  int Lignes() const override { return m_e.Lignes(); }
  int Bandes() const override { return m_e.Bandes(); }
  const float* Ligne(int bande, int y, int x0, int n, float* tampon) const override {
    std::vector<float> v(static_cast<size_t>(n) * m_e.Canaux());
    std::vector<unsigned char> ok(n);
    m_e.Lire(x0, y, n, 1, v.data(), ok.data());
    const float* plan = v.data() + static_cast<size_t>(m_e.Canal(bande)) * n;
    std::copy(plan, plan + n, tampon);
    return tampon;
  }
  void Validite(int y, int x0, int n, unsigned char* valide) const override {
    std::vector<float> v(static_cast<size_t>(n) * m_e.Canaux());
    m_e.Lire(x0, y, n, 1, v.data(), valide);
  }

 private:
  const EntreeMosaique& m_e;
};

// FNV-1a over bytes, continued from h.
uint64_t Empreinte64(uint64_t h, const void* p, size_t n) {
  const unsigned char* o = static_cast<const unsigned char*>(p);
  for (size_t k = 0; k < n; ++k) h = (h ^ o[k]) * 0x100000001b3ull;
  return h;
}
constexpr uint64_t kEmpreinte64 = 0xcbf29ce484222325ull;

// Binary files of the work folder: a magic word, the payload, the payload's FNV-1a hash, and the
// length of what precedes it at the end: a truncated file is seen as such, a changed one by its hash.
class Ecriture {
 public:
  Ecriture(const std::string& nom, const char* magique) : m_f(nom, "[Mosaique] (Travail)") {
    m_f.flux().write(magique, 8);
    m_taille = 8;
  }
  void Octets(const void* p, size_t n) {
    m_f.flux().write(static_cast<const char*>(p), static_cast<std::streamsize>(n));
    m_taille += n;
    m_hash = Empreinte64(m_hash, p, n);
  }
  template <class T>
  void Valeur(T v) {
    Octets(&v, sizeof v);
  }
  void Valider() {
    const uint64_t h = m_hash, t = m_taille + sizeof h;
    m_f.flux().write(reinterpret_cast<const char*>(&h), sizeof h);
    m_f.flux().write(reinterpret_cast<const char*>(&t), sizeof t);
    m_f.Valider();
  }

 private:
  FichierAtomique m_f;
  uint64_t m_taille = 0, m_hash = kEmpreinte64;
};

class Lecture {
 public:
  // Null (nothing read) when the file does not exist; an Erreur when it is not a complete file of
  // this kind. Read as it goes: a part holds compressed rows of the mosaic, and with a COG their
  // samples, which memory need not hold at once.
  static std::unique_ptr<Lecture> Ouvrir(const std::string& nom, const char* magique) {
    std::unique_ptr<Lecture> l(new Lecture);
    l->m_flux.open(nom, std::ios::binary);
    if (!l->m_flux) return nullptr;
    l->m_nom = nom;
    l->m_flux.seekg(0, std::ios::end);
    const std::streamoff t = l->m_flux.tellg();
    char debut[8] = {};
    uint64_t fin = 0;
    if (t >= 24) {
      l->m_flux.seekg(t - 16);
      l->m_flux.read(reinterpret_cast<char*>(&l->m_attendu), 8);
      l->m_flux.read(reinterpret_cast<char*>(&fin), 8);
      l->m_flux.seekg(0);
      l->m_flux.read(debut, 8);
    }
    if (t < 24 || !l->m_flux || fin != static_cast<uint64_t>(t) - 8 || std::memcmp(debut, magique, 8) != 0)
      ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << nom << " est incomplet ou d'un autre genre.");
    l->m_pos = 8;
    l->m_fin = static_cast<uint64_t>(t) - 16;
    return l;
  }
  void Octets(void* p, size_t n) {
    if (n > m_fin - m_pos) ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << m_nom << " est corrompu.");
    m_flux.read(static_cast<char*>(p), static_cast<std::streamsize>(n));
    if (!m_flux) ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << m_nom << " ne peut pas etre lu.");
    m_pos += n;
    m_hash = Empreinte64(m_hash, p, n);
  }
  // Everything read, and as written: else an Erreur. Before any use of what was read that cannot be
  // undone.
  void Terminer() const {
    if (m_pos != m_fin || m_hash != m_attendu)
      ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << m_nom
                                                      << " est corrompu : le retirer, sa phase le refera.");
  }
  template <class T>
  T Valeur() {
    T v;
    Octets(&v, sizeof v);
    return v;
  }
  // The bytes left: the bound of any count read before what it counts is allocated.
  uint64_t Reste() const { return m_fin - m_pos; }
  const std::string& Nom() const { return m_nom; }

 private:
  std::string m_nom;
  std::ifstream m_flux;
  uint64_t m_pos = 0, m_fin = 0, m_hash = kEmpreinte64, m_attendu = 0;
};

std::string EchapperJson(const std::string& s) {
  std::string r;
  for (const char c : s) {
    if (c == '"' || c == '\\') {
      r += '\\';
      r += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char t[8];
      std::snprintf(t, sizeof t, "\\u%04x", c);
      r += t;
    } else {
      r += c;
    }
  }
  return r;
}

std::string NombreJson(double v) {
  if (!std::isfinite(v)) return "null";
  char t[32];
  std::snprintf(t, sizeof t, "%.10g", v);
  return t;
}

// One array of n numbers per band: [[...], [...]].
std::string TableauJson(int bandes, int n, const std::function<const double*(int)>& coefficients) {
  std::string r = "[";
  for (int b = 0; b < bandes; ++b) {
    const double* c = coefficients(b);
    r += b ? ", [" : "[";
    for (int k = 0; k < n; ++k) r += (k ? ", " : "") + NombreJson(c[k]);
    r += "]";
  }
  return r + "]";
}

// Ends a GeoTIFF we write. GDAL takes NAME.aux.xml (statistics, no-data), NAME.ovr (overviews) and
// NAME.msk (mask) as parts of NAME: those an earlier file of that name left would describe this one
// wrongly, so they go once it is in place, as GDAL's own writers remove them.
void Terminer(EcrivainGeoTIFF& ecrivain, const std::string& nom) {
  ecrivain.Terminer();
  for (const char* annexe : {".aux.xml", ".ovr", ".msk"}) std::remove((nom + annexe).c_str());
}

// What the data bands of a file are, as its header says: colours for RGB, YCbCr and a palette (read
// as colours), grey otherwise; kAuto when nothing says it.
CouleursTIFF CouleursDe(const EntreeMosaique& e) {
  if (!e.Metadonnees()) return CouleursTIFF::kAuto;
  const int p = e.Metadonnees()->photometrique;
  return p == 2 || p == 3 || p == 6 ? CouleursTIFF::kRVB : CouleursTIFF::kGris;
}

// The GDAL_METADATA of input e for a file of its data bands, then an alpha when 'alpha'.
std::string MetadonneesGdalDe(const EntreeMosaique& e, bool alpha) {
  std::vector<int> carte(static_cast<size_t>(e.Canaux()), -1);
  for (int b = 0; b < e.Bandes(); ++b) carte[e.Canal(b)] = b;
  if (e.Alpha() && alpha) carte[e.Metadonnees()->canalAlpha] = e.Bandes();
  return MetadonneesGdal(e.Metadonnees(), carte);
}

std::vector<TagTIFF> TagsMetadonneesGdal(const std::string& texte) {
  if (texte.empty()) return {};
  TagTIFF t{42112, 2, texte.size() + 1, std::vector<unsigned char>(texte.begin(), texte.end())};
  t.valeurs.push_back(0);
  return {t};
}

struct Chrono {
  std::chrono::steady_clock::time_point debut = std::chrono::steady_clock::now();
  double Secondes() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - debut).count();
  }
};

}  // namespace

struct JobMosaique::Impl {
  ParametresMosaique p;
  SuiviMosaique* suivi = nullptr;
  SuiviMosaique muet;
  std::vector<std::unique_ptr<EntreeMosaique>> entrees;
  int bandes = 0;
  bool alpha = false;

  // The mosaic's grid: corner of its first pixel and steps.
  double mx0 = 0, my0 = 0, rx = 1, ry = 1;
  int W = 0, H = 0;
  OptionsEcriture ecriture;
  GeoreferenceEcriture georef;
  PlanEcriture plan;
  std::vector<TagTIFF> tags;  // the inputs' GDAL_METADATA, when they agree

  std::unique_ptr<RegleFusion> regle;
  double plume = 0;  // metres
  bool gainOffset = false;
  GrilleBlocs grille;
  std::vector<ZoneBlocs> emprises;  // the blocks each input reaches
  std::vector<std::unique_ptr<StatsBlocs>> stats;
  std::vector<std::unique_ptr<CorrectionImage>> corrections;
  // The radiometric reference: observed, never corrected nor composed.
  std::unique_ptr<EntreeMosaique> reference;
  std::unique_ptr<StatsBlocs> statsReference;

  // Memory plan.
  int enVol = 1;      // rows of tiles composed at once
  int sousBande = 0;  // lines composed at once within a row
  int lignesObservation = 0;
  int corrigesEnVol = 1;  // corrected images written at once
  bool mosaiqueEcrite = false;
  bool moyenne = false;     // output pixels averaged from the input pixels in them
  bool bilineaire = false;  // output pixels interpolated between the four input pixels around them

  RapportMosaique rapport;

  SuiviMosaique& S() { return suivi ? *suivi : muet; }
  void Avertir(const std::string& t) {
    rapport.avertissements.push_back(t);
    S().Avertissement(t);
  }
  template <class F>
  void Etape(const std::string& nom, F&& f) {
    S().Etape(nom);
    Chrono c;
    f();
    rapport.etapes.push_back({nom, c.Secondes(), MemoireMaxMio()});
  }

  void Preparer();
  void PreparerReference(const SystemeReference* epsg);
  void VerifierPixelReference() const;
  // The block side: --bloc, or the default doubled until the equalization's estimate fits its share of
  // --memoire; refuses a --bloc whose estimate does not.
  void ChoisirBloc();
  size_t PartEgalisation() const;
  // Lines of an input 'largeur' wide read at once by each of 'fils' observing threads.
  int LignesObservation(int largeur, int canaux, int fils) const;
  MemoireEgalisation EstimerEgalisation(int bloc) const;
  void Grille();
  void PlanMemoire();
  // The model's settings from the job's options (degrees chosen once Preparer has run).
  ParametresGainOffset ModeleGainOffset() const { return ParametresGainOffset::De(p.gainOffset); }
  std::string Empreinte() const;
  void VerifierTravail(const std::string& travail) const;

  Placement PlacementDe(const EntreeMosaique& e) const {
    Placement pl;
    pl.x0 = (e.X0() - mx0) / rx;
    pl.y0 = (my0 - e.Y0()) / ry;
    pl.sx = e.PasX() / rx;
    pl.sy = e.PasY() / ry;
    return pl;
  }
  // Input i's block statistics, empty, keeping the blocks other inputs reach.
  std::unique_ptr<StatsBlocs> Statistiques(size_t i) const;
  std::unique_ptr<StatsBlocs> Observer(size_t i) const;
  std::unique_ptr<StatsBlocs> ObserverReference() const;
  // Whether the reference is observed through cells that tile the blocks (ObserverReference): its pixels
  // do not (not a whole number of them per block, or their edges not on the blocks').
  bool ReferenceEnCellules() const;
  void Resoudre();
  // Why an input with valid pixels has no observation: it overlaps nothing, or its overlaps hold no
  // block valid in both images.
  std::string SansObservation(size_t i) const;
  // Whether an input reaches the map rectangle [X0, X1) x [Y0, Y1).
  static bool Atteint(const EntreeMosaique& e, double X0, double Y0, double X1, double Y1) {
    return e.X0() < X1 && e.X0() + e.Colonnes() * e.PasX() > X0 && e.Y0() > Y0 &&
           e.Y0() - e.Lignes() * e.PasY() < Y1;
  }
  // Whether an input lies at least partly on the mosaic (an extent asked for may leave it out).
  bool SurLaMosaique(const EntreeMosaique& e) const {
    return Atteint(e, mx0, my0 - H * ry, mx0 + W * rx, my0);
  }
  // Multi-band blending works in windows of LargeurMultibande() columns of the mosaic: the window of
  // columns [x0, x1) and lines [y0, y1), grown by the pyramids' margin, its origin on a multiple of
  // 2^NiveauxFusion() of the mosaic grid.
  int NiveauxFusion() const { return NiveauxMultibande(plume / std::min(rx, ry)); }
  int LargeurMultibande() const { return plan.tuilee ? plan.largeurBloc : 512; }
  Fenetre FenetreMultibande(int x0, int x1, int y0, int y1) const {
    const int pas = 1 << NiveauxFusion(), marge = MargeMultibande(NiveauxFusion());
    auto plancher = [pas](int v) { return static_cast<int>(std::floor(static_cast<double>(v) / pas)) * pas; };
    const int gx = plancher(x0 - marge), gy = plancher(y0 - marge);
    return Fenetre{gx, gy, x1 + marge - gx, y1 + marge - gy};
  }
  void ResoudreHistorique();
  void EcrireCorrections(const std::string& nom) const;
  void LireCorrections(const std::string& nom);

  // One row of tiles: its lines interleaved (float, bandes per pixel) and their validity.
  struct Atelier;
  void ComposerRangee(int r, std::vector<float>& valeurs, std::vector<unsigned char>& valide,
                      Atelier& a) const;
  void ComposerBande(int y0, int y1, float* valeurs, unsigned char* valide, Atelier& a) const;
  // Multi-band blending of the same lines, by windows of output tiles grown by the pyramids' margin.
  void ComposerMultibande(int y0, int y1, float* valeurs, unsigned char* valide) const;
  // An input's window, corrected, with its feathering weights when asked and its validity.
  struct FenetreCorrigee {
    Fenetre f, g;  // the window, and the one read (grown by the feathering margin)
    int dx = 0, dy = 0;
    size_t plan = 0;
    std::vector<float> lu, valeurs, poids;
    std::vector<unsigned char> ok;
    TravailPlume plume;
    // Validity of row r of the window, from its first column.
    const unsigned char* Valide(int r) const {
      return ok.data() + static_cast<size_t>(r + dy) * g.nbColonnes + dx;
    }
  };
  // What one composing thread keeps from band to band: its large buffers are reused rather than
  // allocated again, which would have the system map and zero their pages each time.
  struct Atelier {
    FenetreCorrigee t;
    std::vector<float> plans;
    std::vector<unsigned char> couvert;
    std::unique_ptr<AccumulateurFusion> acc;
  };
  void LireCorrigee(size_t i, const Fenetre& f, bool pondere, FenetreCorrigee& t) const;
  // Rows [r0, r1) composed and compressed, handed in order to 'ecrire'.
  void ComposerRangees(
      int r0, int r1,
      const std::function<void(int, std::vector<std::vector<unsigned char>>&, const std::vector<float>&,
                               const std::vector<unsigned char>&)>& ecrire) const;
  void EcrireCorrige(size_t i) const;
  void EcrireOri() const;
  int Rangees() const { return (H + plan.hauteurBloc - 1) / plan.hauteurBloc; }
};

int DegreAutomatique(int n) { return n >= 6 ? 2 : 0; }

// ---------------------------------------------------------------------------------------------------
// Preparation: every check that needs no pixel.

void JobMosaique::Impl::Preparer() {
  if (p.entrees.empty()) ZEPRA_ERREUR("[Mosaique] (Entrees) Aucune image en entree.");
  // Every input stays open from here on, its masks too: hundreds of them meet the process's limit on
  // open files, which must be named rather than the file that could not be opened.
  for (const std::string& n : p.entrees) {
    errno = 0;
    try {
      entrees.push_back(std::make_unique<EntreeMosaique>(n, p.nodataDonne, p.nodata, p.masqueSuffixe));
    } catch (const Erreur&) {
      if (errno != EMFILE && errno != ENFILE) throw;
      ZEPRA_ERREUR("[Mosaique] (Entrees) Trop de fichiers ouverts a l'image "
                   << n << " : " << entrees.size() << " images sur " << p.entrees.size()
                   << " sont ouvertes, la limite du processus est de " << LimiteFichiers()
                   << " fichiers (ulimit -n).");
    }
  }
  // The files the run writes (the mosaic, a COG's levels, corrected images, work files) need a few
  // more: refused now rather than after the observation.
  std::vector<int> reserve;
  for (int k = 0; k < 32 + NbFils(); ++k) {
    const int f = ::open("/dev/null", O_RDONLY);
    if (f < 0) break;
    reserve.push_back(f);
  }
  const bool manque = reserve.size() < static_cast<size_t>(32 + NbFils());
  for (const int f : reserve) ::close(f);
  if (manque)
    ZEPRA_ERREUR("[Mosaique] (Entrees) Trop de fichiers ouverts : les "
                 << p.entrees.size() << " images ouvertes laissent moins de " << 32 + NbFils()
                 << " fichiers pour les ecritures, la limite du processus est de " << LimiteFichiers()
                 << " fichiers (ulimit -n).");
  const EntreeMosaique& e0 = *entrees[0];
  bandes = e0.Bandes();
  std::unique_ptr<SystemeReference> epsg;
  if (p.ecriture.epsg != 0) epsg = std::make_unique<SystemeReference>(CrsDepuisEpsg(p.ecriture.epsg));
  for (const auto& e : entrees) {
    // An alpha says where the data is, as a mask or a no-data value do: tiles may mix them, and the
    // mosaic has an alpha when one of them has.
    alpha = alpha || e->Alpha();
    if (e->Bandes() != bandes)
      ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << e->Nom() << " a " << e->Bandes() << " bande(s), "
                                                   << e0.Nom() << " en a " << bandes << ".");
    if (e->Type() != e0.Type())
      ZEPRA_ERREUR("[Mosaique] (Entrees) L'image "
                   << e->Nom() << " est de type " << NomTypeSortie(e->Type()) << ", " << e0.Nom()
                   << " de type " << NomTypeSortie(e0.Type())
                   << " : les convertir a un meme type (gdal_translate -ot, avec "
                      "-scale si leurs plages different).");
    // A tile placed by a world file has no system: --epsg gives it, and is checked against those that
    // have one (nothing reprojects them).
    const SystemeReference* a = e0.Crs();
    const SystemeReference* b = e->Crs();
    const bool ca = a && a->Connu(), cb = b && b->Connu();
    if (epsg) {
      if (cb && ComparerCrs(*epsg, *b) == EgaliteCrs::kDifferent)
        ZEPRA_ERREUR("[Mosaique] (Entrees) --epsg " << p.ecriture.epsg << " : l'image " << e->Nom()
                                                    << " est dans le systeme " << DecrireCrs(*b)
                                                    << " ; la mosaique ne la reprojette pas.");
    } else if (ca != cb || (ca && ComparerCrs(*a, *b) == EgaliteCrs::kDifferent)) {
      ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << e->Nom() << " est dans le systeme "
                                                   << (cb ? DecrireCrs(*b) : std::string("inconnu")) << ", "
                                                   << e0.Nom() << " dans le systeme "
                                                   << (ca ? DecrireCrs(*a) : std::string("inconnu"))
                                                   << (ca != cb ? " : donner --epsg." : "."));
    }
  }

  // Model and fusion, by their table rows.
  if (!p.noegal) {
    gainOffset = p.modele == "gain-offset";
    if (!gainOffset) {
      const LigneModele* m = ChercherModele(p.modele);
      if (!m || !m->creer) ZEPRA_ERREUR("[Mosaique] (Options) Modele inconnu : " << p.modele << ".");
    }
  }
  const LigneFusion* f = ChercherFusion(p.fusion);
  if (!f || !f->creer)
    ZEPRA_ERREUR("[Mosaique] (Options) Regle de fusion indisponible : " << p.fusion << ".");

  Grille();

  if (gainOffset) {
    // Inputs an extent leaves out take no part in the solve, and do not count for its degree: a sheet
    // cut from a block is equalized as its own tiles alone would be.
    int surLaMosaique = 0;
    for (const auto& e : entrees) surLaMosaique += SurLaMosaique(*e);
    const int d = DegreAutomatique(surLaMosaique);
    if (p.gainOffset.degreGain < 0) p.gainOffset.degreGain = d;
    if (p.gainOffset.degreOffset < 0) p.gainOffset.degreOffset = d;
    ModeleGainOffset().Verifier();
  }

  // The file, planned now: a refusal (type, no-data, EPSG, size) comes before any pixel.
  ecriture = p.ecriture;
  if (ecriture.type == eIndetermine) ecriture.type = e0.Type();
  ecriture.nodataPresent = true;
  if (p.nodataDonne) {
    ecriture.nodata = p.nodata;
    // The writer would refuse it naming neither option.
    if (ecriture.type != eFloat4 && ecriture.type != eFloat8 &&
        !NodataEntierPossible(p.nodata, ecriture.type))
      ZEPRA_ERREUR("[Mosaique] (Options) --nodata " << TexteNodata(p.nodata) << " ne tient pas en "
                                                    << NomTypeSortie(ecriture.type)
                                                    << " (le type ecrit, voir --type).");
  } else {
    const EntreeMosaique* avec = nullptr;
    for (const auto& e : entrees)
      if (e->NodataFichier()) {
        if (avec && !(avec->NodataFichierValeur() == e->NodataFichierValeur() ||
                      (std::isnan(avec->NodataFichierValeur()) && std::isnan(e->NodataFichierValeur()))))
          ZEPRA_ERREUR("[Mosaique] (Entrees) Les images "
                       << avec->Nom() << " et " << e->Nom() << " ont des valeurs sans donnee differentes ("
                       << TexteNodata(avec->NodataFichierValeur()) << ", "
                       << TexteNodata(e->NodataFichierValeur()) << ") : donner --nodata.");
        avec = e.get();
      }
    ecriture.nodata = avec ? avec->NodataFichierValeur() : 0.0;
    // The writer would refuse it without saying how to choose another.
    if (avec && ecriture.type != eFloat4 && ecriture.type != eFloat8 &&
        !NodataEntierPossible(ecriture.nodata, ecriture.type))
      ZEPRA_ERREUR("[Mosaique] (Entrees) La valeur sans donnee "
                   << TexteNodata(ecriture.nodata) << " de " << avec->Nom() << " ne tient pas en "
                   << NomTypeSortie(ecriture.type) << " : donner --nodata.");
  }
  // JPEG holds no alpha: the validity goes to its internal mask.
  ecriture.alpha = alpha && ecriture.compression != CompressionTIFF::kJPEG;
  // Colours when every input that says it has colours; the band descriptions, units... when every
  // input has the same.
  ecriture.couleurs = CouleursTIFF::kAuto;
  std::string metadonnees = MetadonneesGdalDe(e0, ecriture.alpha);
  for (const auto& e : entrees) {
    const CouleursTIFF c = CouleursDe(*e);
    if (c != CouleursTIFF::kAuto && ecriture.couleurs != CouleursTIFF::kGris) ecriture.couleurs = c;
    if (MetadonneesGdalDe(*e, ecriture.alpha) != metadonnees) metadonnees.clear();
  }
  tags = TagsMetadonneesGdal(metadonnees);
  georef.grille = true;
  georef.x0 = mx0;
  georef.y0 = my0;
  georef.pasX = rx;
  georef.pasY = ry;
  if (e0.Crs()) georef.crs = *e0.Crs();
  plan = PlanifierEcriture(ecriture, TPoint2D<int>(W, H), bandes, eFloat4, p.sortie);
  // One footprint twice is most often one image under two names: it would weigh twice in the
  // equalization and the blend.
  std::map<std::tuple<double, double, double, double, int, int>, const EntreeMosaique*> vues;
  for (const auto& e : entrees) {
    const auto cle = std::make_tuple(e->X0(), e->Y0(), e->PasX(), e->PasY(), e->Colonnes(), e->Lignes());
    const auto [it, nouvelle] = vues.emplace(cle, e.get());
    if (!nouvelle)
      Avertir("Les images " + it->second->Nom() + " et " + e->Nom() +
              " couvrent exactement la meme emprise : la meme image sous deux noms ?");
  }
  // A narrower integer type clips what it cannot hold, which a user may have taken for a stretch.
  if (ecriture.type != e0.Type() && ecriture.type != eFloat4 && ecriture.type != eFloat8) {
    double bas[2], haut[2];
    PlageType(e0.Type(), bas[0], haut[0]);
    PlageType(ecriture.type, bas[1], haut[1]);
    if (bas[0] < bas[1] || haut[0] > haut[1])
      Avertir(std::string("--type ") + NomTypeSortie(ecriture.type) + " : les valeurs des entrees (" +
              NomTypeSortie(e0.Type()) + ") hors de [" + TexteNodata(bas[1]) + ", " + TexteNodata(haut[1]) +
              "] seront ramenees a ces bornes.");
  }

  // Feathering width: half the median overlap width, when not given.
  plume = p.plume;
  if ((p.fusion == "plume" || p.fusion == "multibande") && plume <= 0) {
    std::vector<double> largeurs;
    for (size_t i = 0; i < entrees.size(); ++i)
      for (size_t j = i + 1; j < entrees.size(); ++j) {
        const EntreeMosaique &a = *entrees[i], &b = *entrees[j];
        const double lx = std::min(a.X0() + a.Colonnes() * a.PasX(), b.X0() + b.Colonnes() * b.PasX()) -
                          std::max(a.X0(), b.X0());
        const double ly = std::min(a.Y0(), b.Y0()) -
                          std::max(a.Y0() - a.Lignes() * a.PasY(), b.Y0() - b.Lignes() * b.PasY());
        if (lx > 0 && ly > 0) largeurs.push_back(std::min(lx, ly));
      }
    // Half the median overlap, at most kPlumeMax pixels: wider fades cost reading margins and blur
    // nothing more once the tiles are equalized.
    std::sort(largeurs.begin(), largeurs.end());
    plume =
        largeurs.empty() ? 0.0 : std::min(largeurs[largeurs.size() / 2] / 2, kPlumeMax * std::max(rx, ry));
  }
  // A width given beyond the feathering's reach, named by its option.
  if (p.fusion == "plume" || p.fusion == "multibande")
    for (const auto& e : entrees)
      if (plume / e->PasX() > 1e6) {
        std::ostringstream t;
        t.precision(15);
        t << "[Mosaique] (Plume) --plume " << p.plume << " : " << plume / e->PasX() << " pixels des entrees ("
          << e->Nom() << "), au plus 1000000.";
        ZEPRA_ERREUR(t.str());
      }
  ParametresFusion pf;
  pf.plume = plume;
  regle = f->creer(pf);

  if (gainOffset) {
    grille.colonnes = W;
    grille.lignes = H;
    grille.bloc = p.gainOffset.bloc > 0 ? p.gainOffset.bloc : 16;
    grille.Verifier();
  }
  if (!p.reference.empty()) PreparerReference(epsg.get());
  if (gainOffset) {
    ChoisirBloc();
    for (const auto& e : entrees)
      emprises.push_back(EmpriseBlocs(grille, PlacementDe(*e), e->Colonnes(), e->Lignes()));
    if (reference) VerifierPixelReference();
  }
  rapport.bloc = gainOffset ? grille.bloc : 0;
  PlanMemoire();
}

size_t JobMosaique::Impl::PartEgalisation() const {
  return static_cast<size_t>(std::floor(p.partEgalisation * static_cast<double>(p.memoireMio) * kMio));
}

MemoireEgalisation JobMosaique::Impl::EstimerEgalisation(int bloc) const {
  GrilleBlocs g = grille;
  g.bloc = bloc;
  std::vector<ZoneBlocs> z;
  for (const auto& e : entrees) z.push_back(EmpriseBlocs(g, PlacementDe(*e), e->Colonnes(), e->Lignes()));
  // The reference: every block its footprint touches, which holds its pixels' blocks and, when it is
  // observed through cells (ObserverReference), the cells' too.
  ZoneBlocs r;
  if (reference) {
    const Placement pl = PlacementDe(*reference);
    const double x0 = std::max(0.0, pl.x0), x1 = std::min<double>(W, pl.x0 + pl.sx * reference->Colonnes());
    const double y0 = std::max(0.0, pl.y0), y1 = std::min<double>(H, pl.y0 + pl.sy * reference->Lignes());
    if (x1 > x0 && y1 > y0) {
      r.bx0 = static_cast<long long>(std::floor(x0 / bloc));
      r.by0 = static_cast<long long>(std::floor(y0 / bloc));
      r.nbBx = static_cast<long long>(std::ceil(x1 / bloc)) - r.bx0;
      r.nbBy = static_cast<long long>(std::ceil(y1 / bloc)) - r.by0;
    }
  }
  const ParametresGainOffset m = ModeleGainOffset();
  return EstimerMemoireEgalisation(
      z, reference ? &r : nullptr, bandes,
      base_polynome::NbTermes(m.degreGain) + base_polynome::NbTermes(m.degreOffset));
}

void JobMosaique::Impl::ChoisirBloc() {
  if (!(p.partEgalisation > 0 && p.partEgalisation <= 1))
    ZEPRA_ERREUR("[Mosaique] (Memoire) Part de la memoire pour l'egalisation " << p.partEgalisation
                                                                               << " : ]0, 1] attendu.");
  const size_t part = PartEgalisation();
  const auto tient = [&](int bloc) { return EstimerEgalisation(bloc).Pic() <= part; };
  // The --memoire whose share would hold the equalization in blocks of 'bloc'.
  const auto memoire = [&](int bloc) {
    const double mio = static_cast<double>(EstimerEgalisation(bloc).Pic()) / p.partEgalisation / kMio;
    return std::max<long long>(16, static_cast<long long>(std::ceil(mio)));
  };
  const auto mio = [](size_t o) { return (o + kMio - 1) / kMio; };
  const int donne = p.gainOffset.bloc;
  if (donne > 0) {
    if (tient(donne)) return;
    // The smallest block that fits, the estimate falling as the block grows.
    int haut = donne;
    while (haut < kBlocMax && !tient(haut)) haut = std::min(kBlocMax, 2 * haut);
    std::ostringstream t;
    t << "[Mosaique] (Memoire) --memoire " << p.memoireMio << " Mio : en blocs de " << donne
      << " pixels (--bloc " << donne << "), les statistiques, les observations et la resolution de "
      << "l'egalisation demandent " << mio(EstimerEgalisation(donne).Pic()) << " Mio, plus que leur part ("
      << mio(part) << " Mio) ; donner ";
    if (tient(haut)) {
      int bas = haut / 2 < donne ? donne : haut / 2;
      while (haut - bas > 1) {
        const int milieu = bas + (haut - bas) / 2;
        (tient(milieu) ? haut : bas) = milieu;
      }
      t << "--bloc " << haut << " ou ";
    }
    t << "--memoire " << memoire(donne) << ".";
    ZEPRA_ERREUR(t.str());
  }
  int bloc = kBlocDefaut;
  while (bloc < kBlocMax && !tient(bloc)) bloc *= 2;
  if (!tient(bloc)) {
    // The estimate is not monotonic in the block (past the tiles' size, larger blocks cost more):
    // name the least of the sides tried, which the doubling above reaches at that --memoire.
    int moindre = kBlocDefaut;
    for (int b = kBlocDefaut; b <= kBlocMax; b *= 2)
      if (EstimerEgalisation(b).Pic() < EstimerEgalisation(moindre).Pic()) moindre = b;
    ZEPRA_ERREUR("[Mosaique] (Memoire) --memoire "
                 << p.memoireMio << " Mio : les statistiques, les observations et la resolution de "
                 << "l'egalisation demandent " << mio(EstimerEgalisation(moindre).Pic())
                 << " Mio au moins (en blocs de " << moindre << " pixels), plus que leur part (" << mio(part)
                 << " Mio) ; donner --memoire " << memoire(moindre) << ".");
  }
  if (bloc == kBlocDefaut) return;
  grille.bloc = bloc;
  std::ostringstream t;
  t << "Blocs de statistiques de " << bloc << " pixels (et non " << kBlocDefaut << ") : en blocs de "
    << kBlocDefaut << ", les statistiques, les observations et la resolution de l'egalisation demanderaient "
    << mio(EstimerEgalisation(kBlocDefaut).Pic()) << " Mio, plus que leur part de --memoire " << p.memoireMio
    << " Mio (" << mio(part) << " Mio) ; donner --memoire " << memoire(kBlocDefaut) << " pour les garder.";
  Avertir(t.str());
}

void JobMosaique::Impl::PreparerReference(const SystemeReference* epsg) {
  const std::string& n = p.reference;
  if (!gainOffset)
    ZEPRA_ERREUR("[Mosaique] (Reference) --reference " << n << " : seulement avec le modele gain-offset"
                                                       << (p.noegal ? ", pas avec --noegal." : "."));
  for (const std::string& e : p.entrees)
    if (e == n) ZEPRA_ERREUR("[Mosaique] (Reference) --reference " << n << " est aussi une image en entree.");
  try {
    reference = std::make_unique<EntreeMosaique>(n, p.nodataDonne, p.nodata, p.masqueSuffixe, true);
  } catch (const Erreur& e) {
    ZEPRA_ERREUR("[Mosaique] (Reference) --reference " << n << " : " << e.Phrase());
  }
  const EntreeMosaique& r = *reference;
  const EntreeMosaique& e0 = *entrees[0];
  if (r.Bandes() != bandes)
    ZEPRA_ERREUR("[Mosaique] (Reference) --reference " << n << " a " << r.Bandes()
                                                       << " bande(s), les entrees " << bandes << ".");
  // The same system as the inputs (or --epsg's): nothing reprojects it.
  const SystemeReference* a = epsg ? epsg : e0.Crs();
  const SystemeReference* b = r.Crs();
  const bool ca = a && a->Connu(), cb = b && b->Connu();
  if ((epsg ? cb && ComparerCrs(*a, *b) == EgaliteCrs::kDifferent
            : ca != cb || (ca && ComparerCrs(*a, *b) == EgaliteCrs::kDifferent)))
    ZEPRA_ERREUR("[Mosaique] (Reference) --reference "
                 << n << " est dans le systeme " << (cb ? DecrireCrs(*b) : std::string("inconnu"))
                 << ", la mosaique dans le systeme " << (ca ? DecrireCrs(*a) : std::string("inconnu"))
                 << " ; la reference n'est pas reprojetee.");
  // Somewhere on an input inside the mosaic, or it anchors nothing.
  const double rx1 = r.X0() + r.Colonnes() * r.PasX(), ry1 = r.Y0() - r.Lignes() * r.PasY();
  bool touche = false;
  for (const auto& e : entrees) {
    const double x0 = std::max({r.X0(), e->X0(), mx0}),
                 x1 = std::min({rx1, e->X0() + e->Colonnes() * e->PasX(), mx0 + W * rx});
    const double y1 = std::min({r.Y0(), e->Y0(), my0}),
                 y0 = std::max({ry1, e->Y0() - e->Lignes() * e->PasY(), my0 - H * ry});
    touche = touche || (x1 > x0 && y1 > y0);
  }
  if (!touche)
    ZEPRA_ERREUR("[Mosaique] (Reference) --reference " << n << " ne recouvre aucune entree de la mosaique.");
  if (r.OctetsLecture(1, 1) > static_cast<size_t>(p.memoireMio) * kMio)
    ZEPRA_ERREUR("[Mosaique] (Memoire) --memoire " << p.memoireMio << " Mio : la reference " << n
                                                   << " se lit par blocs plus grands.");
}

// Each block (the block side used) must hold the centre of a reference pixel at least.
void JobMosaique::Impl::VerifierPixelReference() const {
  const EntreeMosaique& r = *reference;
  const double fx = r.PasX() / rx, fy = r.PasY() / ry;
  if (fx > grille.bloc * (1 + 1e-6) || fy > grille.bloc * (1 + 1e-6)) {
    std::ostringstream t;
    t << "[Mosaique] (Reference) --reference " << p.reference << " : son pixel (" << r.PasX() << " x "
      << r.PasY() << ") depasse les blocs de " << grille.bloc << " pixels de la mosaique ("
      << grille.bloc * rx << " x " << grille.bloc * ry << ") ; donner --bloc "
      << static_cast<long long>(std::ceil(std::max(fx, fy) - 1e-6)) << " au moins.";
    ZEPRA_ERREUR(t.str());
  }
}

void JobMosaique::Impl::Grille() {
  const EntreeMosaique& e0 = *entrees[0];
  if (p.resolutionX > 0) {
    rx = p.resolutionX;
    ry = p.resolutionY > 0 ? p.resolutionY : p.resolutionX;
  } else {
    for (const auto& e : entrees)
      if (std::fabs(e->PasX() - e0.PasX()) > 1e-6 * e0.PasX() ||
          std::fabs(e->PasY() - e0.PasY()) > 1e-6 * e0.PasY())
        ZEPRA_ERREUR("[Mosaique] (Grille) Les pixels de "
                     << e->Nom() << " (" << e->PasX() << " x " << e->PasY() << ") et de " << e0.Nom() << " ("
                     << e0.PasX() << " x " << e0.PasY() << ") different : donner --resolution.");
    rx = e0.PasX();
    ry = e0.PasY();
  }
  // Averaging by default when the output pixel is coarser than the inputs'.
  moyenne = p.reechantillonnage == "moyenne" ||
            (p.reechantillonnage.empty() && (rx > e0.PasX() * (1 + 1e-6) || ry > e0.PasY() * (1 + 1e-6)));
  bilineaire = p.reechantillonnage == "bilineaire";
  if ((moyenne || bilineaire) && bandes > 64)
    ZEPRA_ERREUR("[Mosaique] (Grille) Le reechantillonnage " << (moyenne ? "moyenne" : "bilineaire")
                                                             << " prend au plus 64 bandes.");
  double minX = e0.X0(), maxY = e0.Y0(), maxX = minX, minY = maxY;
  for (const auto& e : entrees) {
    minX = std::min(minX, e->X0());
    maxX = std::max(maxX, e->X0() + e->Colonnes() * e->PasX());
    maxY = std::max(maxY, e->Y0());
    minY = std::min(minY, e->Y0() - e->Lignes() * e->PasY());
  }
  if (p.empriseDonnee) {
    // Snapped outward onto the grid of the first input.
    const double ox = e0.X0(), oy = e0.Y0();
    minX = ox + std::floor((p.emprise[0] - ox) / rx + 1e-9) * rx;
    maxX = ox + std::ceil((p.emprise[2] - ox) / rx - 1e-9) * rx;
    minY = oy - std::ceil((oy - p.emprise[1]) / ry - 1e-9) * ry;
    maxY = oy - std::floor((oy - p.emprise[3]) / ry + 1e-9) * ry;
  }
  const double w = std::round((maxX - minX) / rx), h = std::round((maxY - minY) / ry);
  if (!(w >= 1 && h >= 1))
    ZEPRA_ERREUR("[Mosaique] (Grille) L'emprise de la mosaique est vide (moins d'un pixel de "
                 << rx << " x " << ry << " m).");
  if (w > 2147483647.0 || h > 2147483647.0)
    ZEPRA_ERREUR("[Mosaique] (Grille) Une mosaique de " << w << " x " << h << " pixels est trop grande.");
  W = static_cast<int>(w);
  H = static_cast<int>(h);
  mx0 = minX;
  my0 = maxY;
  // Inputs far apart: the empty tiles cost little, but say so.
  double couvert = 0;
  for (const auto& e : entrees) couvert += e->Colonnes() * e->PasX() * e->Lignes() * e->PasY();
  const double surface = w * rx * h * ry;
  if (p.empriseDonnee) {
    // An extent beside every input is more often a mistake (units, system) than a wish.
    bool touche = false;
    for (const auto& e : entrees)
      touche = touche || (e->X0() < maxX && e->X0() + e->Colonnes() * e->PasX() > minX && e->Y0() > minY &&
                          e->Y0() - e->Lignes() * e->PasY() < maxY);
    if (!touche) Avertir("L'emprise demandee ne recouvre aucune entree : la mosaique sera vide.");
  }
  if (!p.empriseDonnee && couvert < 0.25 * surface)
    Avertir("Les entrees ne couvrent que " + std::to_string(static_cast<int>(100 * couvert / surface)) +
            " % de la mosaique de " + std::to_string(W) + " x " + std::to_string(H) +
            " pixels : elles sont eloignees les unes des autres.");
}

void JobMosaique::Impl::PlanMemoire() {
  const size_t budget = static_cast<size_t>(p.memoireMio) * kMio;
  const size_t T = static_cast<size_t>(plan.hauteurBloc), Wz = static_cast<size_t>(W);
  int largeurMax = 0, lignesMax = 0, canauxMax = 0;
  for (const auto& e : entrees) {
    largeurMax = std::max(largeurMax, e->Colonnes());
    lignesMax = std::max(lignesMax, e->Lignes());
    canauxMax = std::max(canauxMax, e->Canaux());
  }
  const double pasMin = std::min(rx, ry);
  int marge = 0;
  if (regle->LargeurPlume() >= 0)
    for (const auto& e : entrees) marge = std::max(marge, MargePlume(plume / e->PasX()));
  const size_t octetsSortie = static_cast<size_t>(plan.bits == 1 ? 1 : plan.bits / 8) * plan.canaux;
  // The encoding of a row of tiles of an image 'largeur' wide: its compressed blocks (at worst their
  // samples, tiles whole beyond the right edge), its encoder's block, a copy of it and the codec's output.
  const size_t L = static_cast<size_t>(plan.largeurBloc);
  const auto encodage = [&](size_t largeur) {
    return ((largeur + L - 1) / L * L + 3 * L) * T * octetsSortie;
  };
  // A row of tiles of the mosaic: its float lines and validity, and its encoding.
  const size_t rangee = Wz * T * (sizeof(float) * bandes + 1) + encodage(Wz);
  // Multi-band blending holds every input a window reaches at once: the most any window of a row of
  // tiles reaches (a sub-band's windows reach no more).
  size_t imagesFenetre = 0;
  if (regle->Pyramide())
    for (int y0 = 0; y0 < H; y0 += static_cast<int>(T))
      for (int x0 = 0; x0 < W; x0 += LargeurMultibande()) {
        const Fenetre g = FenetreMultibande(x0, std::min(W, x0 + LargeurMultibande()), y0,
                                            std::min(H, y0 + static_cast<int>(T)));
        size_t n = 0;
        for (const auto& e : entrees)
          n += Atteint(*e, mx0 + g.colonne0 * rx, my0 - (g.ligne0 + g.nbLignes) * ry,
                       mx0 + (g.colonne0 + g.nbColonnes) * rx, my0 - g.ligne0 * ry);
        imagesFenetre = std::max(imagesFenetre, n);
      }
  auto sousBandeOctets = [&](size_t h) {
    // The fused band (planes, coverage, the rule's sums) and one input's window grown by the margin,
    // the weights' reaching one pixel beyond the input at most.
    const size_t hEntree = std::min(static_cast<size_t>(std::ceil(h * ry / pasMin)) + 2 + 2 * marge,
                                    static_cast<size_t>(lignesMax) + 2);
    const size_t fenetre =
        std::min(static_cast<size_t>(largeurMax) + 2 * marge, static_cast<size_t>(largeurMax) + 2) * hEntree *
        (sizeof(float) * (canauxMax + bandes + 2) + 2);
    size_t pyramide = 0;
    if (regle->Pyramide()) {
      // A window of a tile grown by the pyramids' margin: each input's planes and weights (float) and,
      // where it wins, its seam weights' pyramid (double, 4/3 of a plane); shared, the coverage's
      // pyramid, the feathered mean, the sums' pyramid, an input's continuation, its expansions and
      // the collapse (under 16 doubles a pixel); the blend.
      const size_t pas = size_t(1) << NiveauxFusion(), marge2 = 2 * MargeMultibande(NiveauxFusion());
      const size_t pixels = (static_cast<size_t>(LargeurMultibande()) + marge2 + pas) * (h + marge2 + pas);
      pyramide = pixels * (imagesFenetre * (sizeof(float) * (bandes + 1) + 11) + 16 * sizeof(double) +
                           sizeof(float) * bandes);
    }
    return Wz * h * (sizeof(float) * bandes + 1 + sizeof(double) * (bandes + 1) + sizeof(unsigned)) +
           fenetre + pyramide;
  };
  // An input is read a block (strip or tile) at a time: one that does not fit is refused now.
  for (const auto& e : entrees) {
    const size_t bloc = e->OctetsLecture(1, 1);
    if (bloc > budget)
      ZEPRA_ERREUR("[Mosaique] (Memoire) --memoire " << p.memoireMio << " Mio : l'image " << e->Nom()
                                                     << " se lit par blocs de " << (bloc + kMio - 1) / kMio
                                                     << " Mio.");
  }
  // Rows of tiles in flight keep the threads busy: the fused sub-band is halved (down to a quarter of a
  // row) until one per thread fits, at the cost of reading an input block once per sub-band; then, if
  // even one row does not fit, down to 16 lines.
  const size_t fils = static_cast<size_t>(NbFils());
  size_t h = T;
  while (h > std::max<size_t>(16, T / 4) && fils * (rangee + sousBandeOctets(h)) > budget) h /= 2;
  if (fils * (rangee + sousBandeOctets(h)) > budget) h = T;
  while (h > 16 && rangee + sousBandeOctets(h) > budget) h /= 2;
  const size_t parRangee = rangee + sousBandeOctets(h);
  if (parRangee > budget)
    ZEPRA_ERREUR("[Mosaique] (Memoire) --memoire "
                 << p.memoireMio << " Mio : une rangee de tuiles de la mosaique (" << W << " x " << T
                 << " pixels) demande au moins " << (parRangee + kMio - 1) / kMio << " Mio (des tuiles de "
                 << T << " pixels : voir --tuile).");
  sousBande = static_cast<int>(h);
  enVol = static_cast<int>(std::max<size_t>(1, std::min<size_t>(NbFils(), budget / parRangee)));
  // Corrected images: each is written a row of its tiles at a time (read, corrected, encoded), as many
  // at once as fit.
  if (!p.corriges.empty()) {
    size_t parImage = 0;
    for (const auto& e : entrees) {
      const size_t w = static_cast<size_t>(e->Colonnes());
      const size_t octets = w * T * (sizeof(float) * (e->Canaux() + bandes) + 1) + encodage(w) +
                            e->OctetsLecture(e->Colonnes(), 1);
      if (octets > budget)
        ZEPRA_ERREUR("[Mosaique] (Memoire) --memoire "
                     << p.memoireMio << " Mio : l'image corrigee de " << e->Nom() << " (" << w << " x " << T
                     << " pixels par rangee de tuiles) demande au moins " << (octets + kMio - 1) / kMio
                     << " Mio (des tuiles de " << T << " pixels : voir --tuile).");
      parImage = std::max(parImage, octets);
    }
    corrigesEnVol = static_cast<int>(std::max<size_t>(1, std::min<size_t>(NbFils(), budget / parImage)));
  }
  // Observation windows: full-width rows of the widest input, one per thread, with the lines of blocks
  // they fill, in what the statistics' share leaves.
  lignesObservation = LignesObservation(largeurMax, canauxMax, NbFils());
}

int JobMosaique::Impl::LignesObservation(int largeur, int canaux, int fils) const {
  const size_t budget = static_cast<size_t>(p.memoireMio) * kMio;
  const size_t reste = budget - std::min(budget, gainOffset ? PartEgalisation() : 0);
  size_t parLigne = static_cast<size_t>(largeur) * (sizeof(float) * canaux + 1), blocs = 0;
  if (gainOffset) {
    // A line of blocks across the input, filled until its last line is read: 2 beside the window's.
    const size_t bloc = static_cast<size_t>(grille.bloc);
    blocs =
        (static_cast<size_t>(largeur) / bloc + 2) * (1 + 2 * static_cast<size_t>(bandes)) * sizeof(double);
    parLigne += (blocs + bloc - 1) / bloc;
  }
  const size_t parFil = reste / static_cast<size_t>(std::max(1, fils));
  const size_t lignes = parFil > 2 * blocs ? (parFil - 2 * blocs) / parLigne : 0;
  return static_cast<int>(std::max<size_t>(1, std::min<size_t>(512, lignes)));
}

// ---------------------------------------------------------------------------------------------------
// Observation and solve.

std::unique_ptr<StatsBlocs> JobMosaique::Impl::Statistiques(size_t i) const {
  // The observations compare two inputs' blocks where both footprints reach: only those are kept, the
  // rest of the input's blocks go into its summary as soon as they are complete.
  std::vector<ZoneBlocs> gardees;
  const ZoneBlocs& a = emprises[i];
  const auto garder = [&](const ZoneBlocs& b) {
    if (a.Rencontre(b)) gardees.push_back(b);
  };
  for (size_t j = 0; j < entrees.size(); ++j)
    if (j != i) garder(emprises[j]);
  // The reference is compared with the inputs as another input is.
  if (reference)
    garder(EmpriseBlocs(grille, PlacementDe(*reference), reference->Colonnes(), reference->Lignes()));
  const EntreeMosaique& e = *entrees[i];
  return std::make_unique<StatsBlocs>(grille, PlacementDe(e), e.Colonnes(), e.Lignes(), bandes, gardees);
}

std::unique_ptr<StatsBlocs> JobMosaique::Impl::Observer(size_t i) const {
  const EntreeMosaique& e = *entrees[i];
  std::unique_ptr<StatsBlocs> s = Statistiques(i);
  const int w = e.Colonnes(), canaux = e.Canaux();
  std::vector<float> v;
  std::vector<unsigned char> ok;
  std::vector<const float*> parBande(bandes);
  for (int l0 = 0; l0 < e.Lignes(); l0 += lignesObservation) {
    const int n = std::min(lignesObservation, e.Lignes() - l0);
    v.resize(static_cast<size_t>(w) * n * canaux);
    ok.resize(static_cast<size_t>(w) * n);
    e.Lire(0, l0, w, n, v.data(), ok.data());
    for (int b = 0; b < bandes; ++b) parBande[b] = v.data() + static_cast<size_t>(e.Canal(b)) * w * n;
    s->Ajouter<float>(0, l0, w, n, parBande.data(), 1, w, ok.data(), w);
  }
  e.Liberer();  // read again only when the mosaic reaches it
  return s;
}

bool JobMosaique::Impl::ReferenceEnCellules() const {
  const Placement pl = PlacementDe(*reference);
  const auto entier = [](double v) {
    return std::fabs(v - std::round(v)) <= 1e-6 * std::max(1.0, std::fabs(v));
  };
  // Beyond this many pixels across a block, the centre rule's shift is under 1/8192 of a block.
  constexpr double kPixelsParBlocMax = 4096;
  const bool alignee = entier(grille.bloc / pl.sx) && entier(grille.bloc / pl.sy) && entier(pl.x0 / pl.sx) &&
                       entier(pl.y0 / pl.sy);
  return !alignee && grille.bloc / pl.sx <= kPixelsParBlocMax && grille.bloc / pl.sy <= kPixelsParBlocMax;
}

namespace {

// Along one axis, the source pixels [0, n) of size 'pas' from 'origine' against cells of size 'cote'
// (at most 'pas') from 'debut': cell k meets at most two pixels, premier[k] and premier[k] + 1, the
// first over the fraction poids[k] of the cell, the second over the rest (none when premier[k] + 1 is
// outside or the rest is 0). A cell that the pixels do not cover whole gets premier -1.
struct AxeCellules {
  std::vector<int> premier;
  std::vector<double> poids;
  AxeCellules(double origine, double pas, int n, double debut, double cote, long long cellules) {
    premier.assign(static_cast<size_t>(cellules), -1);
    poids.assign(static_cast<size_t>(cellules), 0.0);
    for (long long k = 0; k < cellules; ++k) {
      const double a = (debut + k * cote - origine) / pas, b = (debut + (k + 1) * cote - origine) / pas;
      if (a < -1e-9 || b > n + 1e-9) continue;
      const int p = std::max(0, std::min(n - 1, static_cast<int>(std::floor(a + 1e-9))));
      premier[k] = p;
      poids[k] = std::min(1.0, std::max(0.0, (std::min<double>(b, p + 1) - a) / (b - a)));
    }
  }
};

}  // namespace

// The reference, only its part over the mosaic's grid (a satellite scene may be much larger). A block
// compares the inputs' pixels inside it with the reference's whose centre falls in it: when the
// reference's pixels straddle the blocks' edges (another origin, a pixel that does not divide the
// block), those cover up to half a pixel more ground on one side than on the other, and on a scene with
// a gradient the two means differ by the gradient over that shift (twice the error of an aligned
// reference on the tests' scene, five times with a pixel of 4 shifted by 2). Such a reference is then
// observed through cells that tile the blocks exactly, as small as its pixel or smaller, each the mean
// of the reference over its area (the pixels as constant over theirs), a cell not wholly covered by valid
// pixels left out.
std::unique_ptr<StatsBlocs> JobMosaique::Impl::ObserverReference() const {
  const EntreeMosaique& e = *reference;
  const Placement pl = PlacementDe(e);
  if (ReferenceEnCellules()) {
    const int mx = static_cast<int>(std::ceil(grille.bloc / pl.sx - 1e-6)),
              my = static_cast<int>(std::ceil(grille.bloc / pl.sy - 1e-6));
    const double cx = static_cast<double>(grille.bloc) / mx, cy = static_cast<double>(grille.bloc) / my;
    // The cells over the reference's footprint on the grid.
    const double gx0 = std::max(0.0, pl.x0), gx1 = std::min<double>(W, pl.x0 + pl.sx * e.Colonnes()),
                 gy0 = std::max(0.0, pl.y0), gy1 = std::min<double>(H, pl.y0 + pl.sy * e.Lignes());
    const long long kx0 = static_cast<long long>(std::floor(gx0 / cx)),
                    kx1 = static_cast<long long>(std::ceil(gx1 / cx)),
                    ky0 = static_cast<long long>(std::floor(gy0 / cy)),
                    ky1 = static_cast<long long>(std::ceil(gy1 / cy));
    Placement pc;
    pc.x0 = kx0 * cx;
    pc.y0 = ky0 * cy;
    pc.sx = cx;
    pc.sy = cy;
    const int nx = static_cast<int>(std::max(1LL, kx1 - kx0)),
              ny = static_cast<int>(std::max(1LL, ky1 - ky0));
    auto s = std::make_unique<StatsBlocs>(grille, pc, nx, ny, bandes);
    if (kx1 <= kx0 || ky1 <= ky0) return s;
    const AxeCellules ax(pl.x0, pl.sx, e.Colonnes(), pc.x0, cx, nx),
        ay(pl.y0, pl.sy, e.Lignes(), pc.y0, cy, ny);
    // The reference's columns the cells read.
    int c0 = e.Colonnes(), c1 = 0;
    for (int k = 0; k < nx; ++k)
      if (ax.premier[k] >= 0) {
        c0 = std::min(c0, ax.premier[k]);
        c1 = std::max(c1, std::min(e.Colonnes(), ax.premier[k] + 2));
      }
    std::vector<float> cellules(static_cast<size_t>(nx) * bandes);
    std::vector<unsigned char> okCellules(nx);
    std::vector<const float*> parBande(bandes);
    for (int b = 0; b < bandes; ++b) parBande[b] = cellules.data() + static_cast<size_t>(b) * nx;
    const int w = c1 - c0, canaux = e.Canaux();
    // A cell can straddle two of the reference's lines.
    const int lignes = std::max(2, LignesObservation(std::max(1, w), canaux, 1));
    std::vector<float> v;
    std::vector<unsigned char> ok;
    int l0 = 0, l1 = 0;  // the reference's lines held: [l0, l1)
    for (int j = 0; j < ny; ++j) {
      std::fill(okCellules.begin(), okCellules.end(), 0);
      const int la = ay.premier[j];
      if (la >= 0 && w > 0) {
        const int lb = std::min(e.Lignes() - 1, la + 1);
        if (la < l0 || lb >= l1) {
          l0 = la;
          l1 = std::min(e.Lignes(), la + lignes);
          v.resize(static_cast<size_t>(w) * (l1 - l0) * canaux);
          ok.resize(static_cast<size_t>(w) * (l1 - l0));
          e.Lire(c0, l0, w, l1 - l0, v.data(), ok.data());
        }
        const size_t plan = static_cast<size_t>(w) * (l1 - l0);
        const double wy = ay.poids[j];
        const int lignesCellule = wy < 1 && la + 1 < e.Lignes() ? 2 : 1;
        for (int k = 0; k < nx; ++k) {
          const int ca = ax.premier[k];
          if (ca < 0) continue;
          const double wx = ax.poids[k];
          const int colonnesCellule = wx < 1 && ca + 1 < e.Colonnes() ? 2 : 1;
          bool valide = true;
          for (int dl = 0; dl < lignesCellule && valide; ++dl)
            for (int dc = 0; dc < colonnesCellule && valide; ++dc)
              valide = ok[static_cast<size_t>(la + dl - l0) * w + (ca + dc - c0)] != 0;
          if (!valide) continue;
          for (int b = 0; b < bandes; ++b) {
            const float* plane = v.data() + static_cast<size_t>(e.Canal(b)) * plan;
            double somme = 0;
            for (int dl = 0; dl < lignesCellule; ++dl) {
              const float* ligne = plane + static_cast<size_t>(la + dl - l0) * w - c0;
              const double px = ligne[ca] * (colonnesCellule == 2 ? wx : 1.0) +
                                (colonnesCellule == 2 ? ligne[ca + 1] * (1 - wx) : 0.0);
              somme += px * (lignesCellule == 2 ? (dl == 0 ? wy : 1 - wy) : 1.0);
            }
            cellules[static_cast<size_t>(b) * nx + k] = static_cast<float>(somme);
          }
          okCellules[k] = 1;
        }
      }
      s->Ajouter<float>(0, j, nx, 1, parBande.data(), 1, nx, okCellules.data(), nx);
    }
    return s;
  }
  auto s = std::make_unique<StatsBlocs>(grille, pl, e.Colonnes(), e.Lignes(), bandes);
  const auto borne = [](double v, int n) { return static_cast<int>(std::min<double>(n, std::max(0.0, v))); };
  const int c0 = borne(std::floor(-pl.x0 / pl.sx), e.Colonnes()),
            c1 = borne(std::ceil((W - pl.x0) / pl.sx), e.Colonnes());
  const int l0 = borne(std::floor(-pl.y0 / pl.sy), e.Lignes()),
            l1 = borne(std::ceil((H - pl.y0) / pl.sy), e.Lignes());
  const int w = c1 - c0, canaux = e.Canaux();
  if (w <= 0) return s;
  const int lignes = LignesObservation(w, canaux, 1);
  std::vector<float> v;
  std::vector<unsigned char> ok;
  std::vector<const float*> parBande(bandes);
  for (int y = l0; y < l1; y += lignes) {
    const int n = std::min(lignes, l1 - y);
    v.resize(static_cast<size_t>(w) * n * canaux);
    ok.resize(static_cast<size_t>(w) * n);
    e.Lire(c0, y, w, n, v.data(), ok.data());
    for (int b = 0; b < bandes; ++b) parBande[b] = v.data() + static_cast<size_t>(e.Canal(b)) * w * n;
    s->Ajouter<float>(c0, y, w, n, parBande.data(), 1, w, ok.data(), w);
  }
  return s;
}

void JobMosaique::Impl::Resoudre() {
  corrections.clear();
  rapport.entrees.clear();
  for (const auto& e : entrees) {
    RapportMosaique::Entree r;
    r.nom = e->Nom();
    r.bandes = e->Bandes();
    r.colonnes = e->Colonnes();
    r.lignes = e->Lignes();
    r.correction = "null";
    rapport.entrees.push_back(r);
  }
  if (reference) {
    rapport.avecReference = true;
    rapport.reference = RapportMosaique::Entree();
    rapport.reference.nom = reference->Nom();
    rapport.reference.bandes = reference->Bandes();
    rapport.reference.colonnes = reference->Colonnes();
    rapport.reference.lignes = reference->Lignes();
    rapport.reference.correction = "null";
  }
  if (p.noegal) {
    for (size_t i = 0; i < entrees.size(); ++i) corrections.push_back(std::make_unique<Identite>());
    return;
  }
  if (!gainOffset) {
    ResoudreHistorique();
    return;
  }
  std::vector<ResumeImage> resumes;
  std::vector<const StatsBlocs*> ptrs;
  for (const auto& s : stats) {
    resumes.push_back(Resumer(*s));
    ptrs.push_back(s.get());
  }
  // The reference comes last: observed with the inputs, its correction held at identity.
  std::vector<std::string> noms = p.entrees;
  ReferenceGainOffset ref;
  if (reference) {
    resumes.push_back(Resumer(*statsReference));
    ptrs.push_back(statsReference.get());
    noms.push_back(reference->Nom());
    ref.image = static_cast<int>(entrees.size());
    // A coarser pixel holds less contrast within a block than the inputs', and so do cells that average
    // several pixels.
    ref.ecarts = reference->PasX() <= rx * (1 + 1e-6) && reference->PasY() <= ry * (1 + 1e-6) &&
                 !ReferenceEnCellules();
  }
  const ObservationsBlocs obs = ObserverBlocs(ptrs, ParametresObservationsBlocs());
  // The observations and summaries are all the solve needs: the block statistics go before it.
  ptrs.clear();
  stats.clear();
  stats.shrink_to_fit();
  statsReference.reset();
  // As many bands and groups solved at once as the share holds beside the observations, one at least
  // (the estimate counts one).
  ParametresGainOffset modele = ModeleGainOffset();
  const MemoireEgalisation m = EstimerEgalisation(grille.bloc);
  const size_t part = PartEgalisation(), tenu = m.observations + m.resolutionCommune;
  modele.enParallele = static_cast<int>(std::max<size_t>(
      1, std::min<size_t>(64, part > tenu ? (part - tenu) / std::max<size_t>(1, m.resolutionParBande) : 1)));
  const ResultatGainOffset R = ResoudreGainOffset(resumes, obs, modele, noms, ref);
  if (reference) {
    RapportMosaique::Entree& r = rapport.reference;
    r.observations = R.images[ref.image].observations;
    r.groupe = R.images[ref.image].groupe;
    if (r.groupe < 0)
      ZEPRA_ERREUR("[Mosaique] (Reference) --reference "
                   << reference->Nom() << " ne partage aucun bloc de " << grille.bloc << " x " << grille.bloc
                   << " pixels valide a 90 % avec une entree : elle n'ancre rien.");
    // Inputs tied to the reference by no chain of overlaps keep the set's own level.
    for (const std::vector<int>& g : R.groupes) {
      if (static_cast<int>(&g - R.groupes.data()) == r.groupe) continue;
      std::string liste;
      for (size_t k = 0; k < g.size() && k < 10; ++k) liste += (k ? ", " : "") + entrees[g[k]]->Nom();
      if (g.size() > 10) liste += " et " + std::to_string(g.size() - 10) + " autre(s)";
      Avertir("Les images " + liste + " ne sont reliees a la reference " + reference->Nom() +
              " par aucun recouvrement : elles gardent leur niveau d'ensemble, sans la reference.");
    }
    // Each of its pairs is named already; this says what it means for the run.
    if (!R.bandesSansReference.empty()) {
      std::string liste;
      for (size_t k = 0; k < R.bandesSansReference.size(); ++k)
        liste += (k ? ", " : "") + std::to_string(R.bandesSansReference[k] + 1);
      Avertir("La reference " + reference->Nom() + " ne montre le contenu d'aucune image (bande(s) " + liste +
              ") : ces bandes sont egalisees sans elle.");
    }
  }
  for (size_t i = 0; i < entrees.size(); ++i) {
    const CorrectionGainOffset& c = R.corrections[i];
    const DiagnosticImage& d = R.images[i];
    RapportMosaique::Entree& r = rapport.entrees[i];
    r.observations = d.observations;
    r.groupe = d.groupe;
    r.correction =
        "{\"gain\": " +
        TableauJson(bandes, base_polynome::NbTermes(c.DegreGain()), [&](int b) { return c.Gain(b); }) +
        ", \"offset\": " +
        TableauJson(bandes, base_polynome::NbTermes(c.DegreOffset()), [&](int b) { return c.Offset(b); }) +
        "}";
    // Inputs off the extent asked for are left out as asked, without a word.
    const bool surLaMosaique = SurLaMosaique(*entrees[i]);
    if (d.sansDonnees && surLaMosaique)
      Avertir("L'image " + entrees[i]->Nom() + " n'a aucun pixel valide.");
    else if (d.groupe < 0 && surLaMosaique)
      Avertir(SansObservation(i));
    if (!d.termesIndetermines.empty())
      Avertir("L'image " + entrees[i]->Nom() + " : termes non determines par les recouvrements (" +
              d.termesIndetermines + "), gardes a l'identite.");
    corrections.push_back(std::make_unique<CorrectionGO>(c));
  }
  // One warning per pair, its bands listed; the small overlaps of an image set aside as a whole, too
  // small to be judged, go without one.
  for (size_t k = 0; k < R.differents.size(); ++k) {
    const ContenuDifferent& d = R.differents[k];
    bool vue = !std::isfinite(d.correlation);
    for (size_t l = 0; l < k; ++l) vue = vue || (R.differents[l].i == d.i && R.differents[l].j == d.j);
    if (vue) continue;
    std::ostringstream t;
    t << "Les images " << noms[d.i] << " et " << noms[d.j]
      << " ne montrent pas le meme contenu sur leur recouvrement (bande";
    std::string liste;
    for (const ContenuDifferent& e : R.differents)
      if (e.i == d.i && e.j == d.j && std::isfinite(e.correlation))
        liste += (liste.empty() ? " " : ", ") + std::to_string(e.bande + 1);
    t.precision(2);
    t << (liste.find(',') != std::string::npos ? "s" : "") << liste
      << " : correlation des variations d'un bloc au suivant " << std::fixed << d.correlation << " sur "
      << d.blocs << " blocs) : il est ecarte (georeferencement faux, prises de vue de dates differentes, "
      << "image uniforme ou saturee ?).";
    Avertir(t.str());
  }
  rapport.bandes.clear();
  for (const BilanBande& b : R.bandes)
    rapport.bandes.push_back({b.rmsAvant, b.rmsApres, static_cast<long long>(b.pairesEcartees),
                              static_cast<long long>(b.blocsEcartes)});
}

std::string JobMosaique::Impl::SansObservation(size_t i) const {
  const EntreeMosaique& a = *entrees[i];
  // The input it overlaps most on the mosaic, and the overlap's size in mosaic pixels.
  double aire = 0, lx = 0, ly = 0;
  size_t voisine = i;
  for (size_t j = 0; j < entrees.size(); ++j) {
    const EntreeMosaique& b = *entrees[j];
    const double x =
        std::min({a.X0() + a.Colonnes() * a.PasX(), b.X0() + b.Colonnes() * b.PasX(), mx0 + W * rx}) -
        std::max({a.X0(), b.X0(), mx0});
    const double y = std::min({a.Y0(), b.Y0(), my0}) -
                     std::max({a.Y0() - a.Lignes() * a.PasY(), b.Y0() - b.Lignes() * b.PasY(), my0 - H * ry});
    if (j != i && x > 0 && y > 0 && x * y > aire) aire = x * y, lx = x, ly = y, voisine = j;
  }
  if (voisine == i) return "L'image " + a.Nom() + " ne recouvre aucune autre image : elle garde ses valeurs.";
  std::ostringstream t;
  t << "L'image " << a.Nom() << " recouvre " << entrees[voisine]->Nom() << " (sur " << std::lround(lx / rx)
    << " x " << std::lround(ly / ry) << " pixels au plus) mais aucun bloc de " << grille.bloc << " x "
    << grille.bloc
    << " pixels n'y est valide a 90 % dans les deux images (recouvrement trop etroit, masque ou sans "
       "donnee) : elle garde ses valeurs.";
  return t.str();
}

// The historical models: point observations on a grid of map points every 'pas' metres.
void JobMosaique::Impl::ResoudreHistorique() {
  std::vector<std::unique_ptr<SourceEntree>> sources;
  std::vector<ImageObservee> images;
  Emprise emprise;
  emprise.minX = mx0;
  emprise.maxX = mx0 + W * rx;
  emprise.maxY = my0;
  emprise.minY = my0 - H * ry;
  double aireMin = -1;
  for (size_t i = 0; i < entrees.size(); ++i) {
    const EntreeMosaique& e = *entrees[i];
    sources.push_back(std::make_unique<SourceEntree>(e));
    ImageObservee im;
    im.source = sources.back().get();
    GeoCarto& g = im.geo;
    g.x0 = e.X0();
    g.y0 = e.Y0();
    g.pasX = e.PasX();
    g.pasY = e.PasY();
    g.colonnes = e.Colonnes();
    g.lignes = e.Lignes();
    g.minX = e.X0();
    g.maxX = e.X0() + e.Colonnes() * e.PasX();
    g.maxY = e.Y0();
    g.minY = e.Y0() - e.Lignes() * e.PasY();
    images.push_back(im);
    for (size_t j = 0; j < i; ++j) {
      const GeoCarto& a = images[j].geo;
      const double lx = std::min(a.maxX, g.maxX) - std::max(a.minX, g.minX),
                   ly = std::min(a.maxY, g.maxY) - std::max(a.minY, g.minY);
      if (lx > 0 && ly > 0 && (aireMin < 0 || lx * ly < aireMin)) aireMin = lx * ly;
    }
  }
  // A few hundred points in the smallest overlap, never under a pixel.
  double pas = p.pas;
  if (pas <= 0) pas = aireMin > 0 ? std::max(std::sqrt(aireMin / 400.0), std::max(rx, ry)) : 50 * rx;
  Observations obs = ::Observer(images, emprise, pas);
  // An input with no observation (outside the extent asked for, or without a valid pixel) would be
  // columns of zeros in the system: it is left out and keeps its values.
  std::vector<int> rang(entrees.size(), -1);
  for (const Observation& o : obs.obs) rang[o.image] = 0;
  int observees = 0;
  for (int& r : rang)
    if (r == 0) r = observees++;
  obs.nbImages = observees;
  for (Observation& o : obs.obs) o.image = rang[o.image];
  std::vector<std::unique_ptr<CorrectionImage>> resolues;
  ParametresModele pm;
  const std::unique_ptr<ModeleCorrection> modele = ChercherModele(p.modele)->creer(pm);
  if (observees > 0 && !modele->Ajuster(obs, nullptr, resolues))
    ZEPRA_ERREUR("[Mosaique] (Resoudre) Le systeme du modele "
                 << p.modele
                 << " n'a pas pu etre resolu : les recouvrements ne "
                    "determinent pas les corrections.");
  const bool multiplicatif = p.modele == "multiplicatif";
  corrections.clear();
  for (size_t i = 0; i < entrees.size(); ++i) {
    if (rang[i] >= 0) {
      corrections.push_back(std::move(resolues[rang[i]]));
      continue;
    }
    // The identity: P = 0 taken away, or P = 1 divided by.
    Polynome2D identite(2);
    std::vector<double> c(6, 0.0);
    c[0] = multiplicatif ? 1.0 : 0.0;
    identite.SetCoefficients(c);
    corrections.push_back(std::make_unique<CorrectionPolynome>(
        std::vector<Polynome2D>(static_cast<size_t>(bandes), identite), multiplicatif));
  }
  for (size_t i = 0; i < corrections.size() && i < rapport.entrees.size(); ++i) {
    const auto* c = dynamic_cast<const CorrectionPolynome*>(corrections[i].get());
    if (!c) continue;
    rapport.entrees[i].correction =
        "{\"polynome\": " +
        TableauJson(bandes, 6, [&](int b) { return c->Polynome(b).Coefficients().data(); }) + "}";
  }
}

// ---------------------------------------------------------------------------------------------------
// Composition.

namespace {

// Output pixels [debut, fin) along one axis whose centre may fall in [a, b) (map units along the
// axis, counted from the mosaic's origin in its pixels): a bound, each is tested exactly after.
void Bornes(double a, double b, int n, int& debut, int& fin) {
  const double lo = std::floor(std::min(a, b)) - 1, hi = std::ceil(std::max(a, b)) + 1;
  debut = lo <= 0 ? 0 : (lo >= n ? n : static_cast<int>(lo));
  fin = hi <= 0 ? 0 : (hi >= n ? n : static_cast<int>(hi));
}

// The pixels [k0, k1) of [0, n) that the positions [a, b) cover, and the covered share of the first
// and of the last (1 inside): what an output pixel averages, each input pixel by the area it covers,
// as gdalwarp's average does. False when none is covered.
inline bool Couverture(double a, double b, int n, int& k0, int& k1, double& part0, double& part1) {
  // A position a division's rounding leaves a hair off a pixel edge is on it: no sliver of the next.
  const auto net = [](double x) {
    const double r = std::round(x);
    return std::fabs(x - r) <= 1e-9 * std::max(1.0, std::fabs(x)) ? r : x;
  };
  const double lo = std::max(net(a), 0.0), hi = std::min(net(b), static_cast<double>(n));
  if (!(hi > lo)) return false;
  k0 = static_cast<int>(std::floor(lo));
  k1 = std::min(static_cast<int>(std::ceil(hi)), n);
  part0 = std::min(hi, k0 + 1.0) - lo;
  part1 = hi - std::max(lo, k1 - 1.0);
  return true;
}

// The index of a position inside [0, n), false outside (NaN included).
inline bool Indice(double position, int n, int& k) {
  if (!(position >= 0.0 && position < n)) return false;
  k = static_cast<int>(position);
  return true;
}

}  // namespace

void JobMosaique::Impl::LireCorrigee(size_t i, const Fenetre& f, bool pondere, FenetreCorrigee& t) const {
  const EntreeMosaique& e = *entrees[i];
  const int w = e.Colonnes(), h = e.Lignes();
  const double L = pondere ? plume / e.PasX() : 0.0;
  t.f = f;
  t.g = pondere ? FenetreAgrandie(f, MargePlume(L), w, h) : f;
  const Fenetre& g = t.g;
  t.lu.resize(static_cast<size_t>(g.nbColonnes) * g.nbLignes * e.Canaux());
  t.ok.resize(static_cast<size_t>(g.nbColonnes) * g.nbLignes);
  e.Lire(g.colonne0, g.ligne0, g.nbColonnes, g.nbLignes, t.lu.data(), t.ok.data());
  const int nx = f.nbColonnes, ny = f.nbLignes;
  t.dx = f.colonne0 - g.colonne0;
  t.dy = f.ligne0 - g.ligne0;
  if (pondere) {
    t.poids.resize(static_cast<size_t>(nx) * ny);
    PoidsPlume(w, h, f, L, t.ok.data(), g.nbColonnes, t.poids.data(), nx, &t.plume);
  }
  // Planes of the corrected bands over the window.
  t.plan = static_cast<size_t>(nx) * ny;
  t.valeurs.resize(t.plan * bandes);
  for (int b = 0; b < bandes; ++b) {
    const int canal = e.Canal(b);
    for (int r = 0; r < ny; ++r) {
      float* v = t.valeurs.data() + b * t.plan + static_cast<size_t>(r) * nx;
      const float* s = t.lu.data() + static_cast<size_t>(canal) * g.nbColonnes * g.nbLignes +
                       static_cast<size_t>(r + t.dy) * g.nbColonnes + t.dx;
      std::copy(s, s + nx, v);
      CorrigerFini(*corrections[i], b, f.ligne0 + r, f.colonne0, nx, v);
    }
  }
}

void JobMosaique::Impl::ComposerBande(int y0, int y1, float* sortie, unsigned char* valide,
                                      Atelier& atelier) const {
  const int hb = y1 - y0;
  const size_t taille = static_cast<size_t>(hb) * W;
  // Lines that no input reaches (inputs far apart) are no-data at once.
  bool atteinte = false;
  for (const auto& e : entrees) {
    int l0, l1;
    Bornes((my0 - e->Y0()) / ry, (my0 - e->Y0() + e->Lignes() * e->PasY()) / ry, H, l0, l1);
    atteinte = atteinte || (std::max(l0, y0) < std::min(l1, y1));
  }
  if (!atteinte) {
    std::fill(sortie, sortie + taille * bandes, 0.0f);
    std::fill(valide, valide + taille, 0);
    return;
  }
  // One band is fused in place; several go through planes, interleaved at the end.
  std::vector<float*> parBande(bandes);
  unsigned char* couvert = valide;
  if (bandes == 1) {
    parBande[0] = sortie;
  } else {
    atelier.plans.resize(taille * bandes);
    for (int b = 0; b < bandes; ++b) parBande[b] = atelier.plans.data() + taille * b;
  }
  for (int b = 0; b < bandes; ++b) std::fill(parBande[b], parBande[b] + taille, 0.0f);
  std::fill(couvert, couvert + taille, 0);
  const BandeSortie bande{W, y0, y1, bandes, parBande.data(), couvert};
  if (atelier.acc)
    atelier.acc->Reprendre(bande);
  else
    atelier.acc = regle->Accumulateur(bande);
  AccumulateurFusion* acc = atelier.acc.get();
  const bool pondere = regle->LargeurPlume() >= 0;

  std::vector<unsigned char> dedans(W, 0);
  std::vector<int> colonne(W, 0), ligneDe(hb, -1), finColonne(W, 0), finLigne(hb, 0), colonneMoyenne(W, 0);
  std::vector<float> moyennes, part(W), partLigne(hb);
  std::vector<double> partDebut(W), partFin(W), partDebutLigne(hb), partFinLigne(hb);
  FenetreCorrigee& t = atelier.t;
  std::vector<const float*> lignesBandes(bandes);
  for (size_t i = 0; i < entrees.size(); ++i) {
    const EntreeMosaique& e = *entrees[i];
    const int w = e.Colonnes(), h = e.Lignes();
    int c0, c1, l0, l1;
    Bornes((e.X0() - mx0) / rx, (e.X0() + w * e.PasX() - mx0) / rx, W, c0, c1);
    Bornes((my0 - e.Y0()) / ry, (my0 - e.Y0() + h * e.PasY()) / ry, H, l0, l1);
    const bool derniere = l1 <= y1;  // the last band that reads it
    l0 = std::max(l0, y0);
    l1 = std::min(l1, y1);
    if (c0 >= c1 || l0 >= l1) continue;
    // Nearest input pixel of each output pixel's centre; averaging, the input pixels whose centres
    // fall in the output pixel: [colonne, finColonne) and [ligneDe, finLigne).
    int xa = w, xb = -1, ya = h, yb = -1;
    for (int c = c0; c < c1; ++c) {
      int k = 0;
      if (bilineaire) {
        // The pixel before the centre and its share: k and k + 1, clamped at the image's edges.
        const double u = (mx0 + (c + 0.5) * rx - e.X0()) / e.PasX() - 0.5;
        dedans[c] = u >= -0.5 && u < w - 0.5;
        const double k0 = dedans[c] ? std::floor(u) : 0.0;
        k = static_cast<int>(k0);
        part[c] = static_cast<float>(u - k0);
        if (dedans[c]) xa = std::min(xa, std::max(k, 0)), xb = std::max(xb, std::min(k + 1, w - 1));
      } else if (moyenne) {
        dedans[c] = Couverture((mx0 + c * rx - e.X0()) / e.PasX(), (mx0 + (c + 1) * rx - e.X0()) / e.PasX(),
                               w, k, finColonne[c], partDebut[c], partFin[c]);
        if (dedans[c]) xa = std::min(xa, k), xb = std::max(xb, finColonne[c] - 1);
      } else {
        dedans[c] = Indice((mx0 + (c + 0.5) * rx - e.X0()) / e.PasX(), w, k);
        if (dedans[c]) xa = std::min(xa, k), xb = std::max(xb, k);
      }
      colonne[c] = k;
    }
    for (int y = l0; y < l1; ++y) {
      int k = 0;
      if (bilineaire) {
        const double v = (e.Y0() - (my0 - (y + 0.5) * ry)) / e.PasY() - 0.5;
        const bool dans = v >= -0.5 && v < h - 0.5;
        const double k0 = dans ? std::floor(v) : 0.0;
        k = static_cast<int>(k0);
        ligneDe[y - y0] = k;
        finLigne[y - y0] = dans;
        partLigne[y - y0] = static_cast<float>(v - k0);
        if (dans) ya = std::min(ya, std::max(k, 0)), yb = std::max(yb, std::min(k + 1, h - 1));
      } else if (moyenne) {
        const bool dans =
            Couverture((e.Y0() - (my0 - y * ry)) / e.PasY(), (e.Y0() - (my0 - (y + 1) * ry)) / e.PasY(), h, k,
                       finLigne[y - y0], partDebutLigne[y - y0], partFinLigne[y - y0]);
        ligneDe[y - y0] = dans ? k : -1;
        if (dans) ya = std::min(ya, k), yb = std::max(yb, finLigne[y - y0] - 1);
      } else {
        ligneDe[y - y0] = Indice((e.Y0() - (my0 - (y + 0.5) * ry)) / e.PasY(), h, k) ? k : -1;
        if (ligneDe[y - y0] >= 0) ya = std::min(ya, k), yb = std::max(yb, k);
      }
    }
    if (xb < xa || yb < ya) continue;
    const Fenetre f{xa, ya, xb - xa + 1, yb - ya + 1};
    LireCorrigee(i, f, pondere, t);
    if (derniere) e.Liberer();
    const Fenetre& g = t.g;
    const int nx = f.nbColonnes, dx = t.dx, dy = t.dy;
    const size_t plan = t.plan;
    const std::vector<float>&valeurs = t.valeurs, &poids = t.poids;
    const std::vector<unsigned char>& ok = t.ok;
    if (moyenne || bilineaire) {
      // Each output pixel gets the mean of the input's valid pixels in it (weights likewise), or the
      // bilinear interpolation of the valid ones among the four around its centre, and is valid when
      // one of them is; the rule then sees the input on the output grid.
      const int nc = c1 - c0;
      moyennes.assign(static_cast<size_t>(nc) * (bandes + 2), 0.0f);
      std::vector<unsigned char> okMoyen(nc);
      const double sx = rx / e.PasX(), sy = ry / e.PasY();
      LigneContribution l{static_cast<int>(i),
                          0,
                          c0,
                          c1,
                          dedans.data(),
                          colonne.data(),
                          0,
                          static_cast<int>(std::floor((mx0 + c0 * rx - e.X0()) / rx)),
                          static_cast<int>(std::lround(w / sx)),
                          static_cast<int>(std::lround(h / sy)),
                          lignesBandes.data(),
                          okMoyen.data()};
      for (int c = c0; c < c1; ++c) colonneMoyenne[c] = c - c0;
      l.colonne = colonneMoyenne.data();
      for (int y = l0; y < l1; ++y) {
        if (bilineaire ? !finLigne[y - y0] : ligneDe[y - y0] < 0) continue;
        std::fill(moyennes.begin(), moyennes.end(), 0.0f);
        for (int c = c0; c < c1; ++c) {
          if (!dedans[c]) {
            okMoyen[c - c0] = 0;
            continue;
          }
          // The valid input pixels, each by its share: the bilinear weights among the four around the
          // centre, or the area of it the output pixel covers (1 inside, so that at a whole ratio the
          // mean is the plain mean of the pixels in it).
          double somme[64] = {}, sw = 0, total = 0;
          const auto ajouter = [&](int r, int k, double a) {
            const size_t q = static_cast<size_t>(r - ya) * nx + (k - xa);
            if (a <= 0 || !ok[static_cast<size_t>(r - ya + dy) * g.nbColonnes + (k - xa + dx)]) return;
            for (int b = 0; b < bandes; ++b) somme[b] += a * valeurs[b * plan + q];
            if (pondere) sw += a * poids[q];
            total += a;
          };
          if (bilineaire) {
            const int k0 = colonne[c], r0 = ligneDe[y - y0];
            const double fx = part[c], fy = partLigne[y - y0];
            for (int j = 0; j < 2; ++j)
              for (int m = 0; m < 2; ++m)
                ajouter(std::min(std::max(r0 + j, 0), h - 1), std::min(std::max(k0 + m, 0), w - 1),
                        (j ? fy : 1 - fy) * (m ? fx : 1 - fx));
          } else {
            const int r0 = ligneDe[y - y0], r1 = finLigne[y - y0], k0 = colonne[c], k1 = finColonne[c];
            for (int r = r0; r < r1; ++r) {
              const double ay = r == r0 ? partDebutLigne[y - y0] : r == r1 - 1 ? partFinLigne[y - y0] : 1.0;
              for (int k = k0; k < k1; ++k)
                ajouter(r, k, ay * (k == k0 ? partDebut[c] : k == k1 - 1 ? partFin[c] : 1.0));
            }
          }
          okMoyen[c - c0] = total > 0;
          for (int b = 0; b < bandes && total > 0; ++b)
            moyennes[static_cast<size_t>(b) * nc + (c - c0)] = static_cast<float>(somme[b] / total);
          if (total > 0)
            moyennes[static_cast<size_t>(bandes) * nc + (c - c0)] = static_cast<float>(sw / total);
        }
        for (int b = 0; b < bandes; ++b) lignesBandes[b] = moyennes.data() + static_cast<size_t>(b) * nc;
        l.y = y;
        l.ligne = static_cast<int>(std::floor((e.Y0() - (my0 - y * ry)) / ry));
        l.poids = pondere ? moyennes.data() + static_cast<size_t>(bandes) * nc : nullptr;
        acc->Ajouter(l);
      }
      std::fill(dedans.begin() + c0, dedans.begin() + c1, 0);
      continue;
    }
    bool contigu = true;
    for (int c = c0; c < c1; ++c) {
      colonne[c] -= xa;
      contigu = contigu && dedans[c] && colonne[c] == colonne[c0] + (c - c0);
    }
    LigneContribution l{static_cast<int>(i), 0,      c0, c1, dedans.data(), colonne.data(), 0, xa, w, h,
                        lignesBandes.data(), nullptr};
    l.contigu = contigu;
    for (int y = l0; y < l1; ++y) {
      const int ly = ligneDe[y - y0];
      if (ly < 0) continue;
      const size_t r = static_cast<size_t>(ly - ya);
      for (int b = 0; b < bandes; ++b) lignesBandes[b] = valeurs.data() + b * plan + r * nx;
      l.y = y;
      l.ligne = ly;
      l.valide = ok.data() + (r + dy) * g.nbColonnes + dx;
      l.poids = pondere ? poids.data() + r * nx : nullptr;
      acc->Ajouter(l);
    }
    std::fill(dedans.begin() + c0, dedans.begin() + c1, 0);
  }
  acc->Terminer();
  if (bandes > 1)
    for (size_t k = 0; k < taille; ++k)
      for (int b = 0; b < bandes; ++b) sortie[k * bandes + b] = parBande[b][k];
}

void JobMosaique::Impl::ComposerMultibande(int y0, int y1, float* sortie, unsigned char* valide) const {
  // Windows of one tile's width, grown by the pyramids' margin, their origin on a multiple of 2^niveaux
  // of the mosaic grid: inside, the blend is that of the whole mosaic.
  const int niveaux = NiveauxFusion(), largeur = LargeurMultibande();
  FenetreCorrigee t;
  std::vector<std::vector<float>> plans;
  std::vector<ContributionMultibande> images;
  std::vector<float> fusion;
  std::vector<int> colonne, ligne;
  for (int x0 = 0; x0 < W; x0 += largeur) {
    const int x1 = std::min(W, x0 + largeur);
    const Fenetre g = FenetreMultibande(x0, x1, y0, y1);
    const int gx = g.colonne0, gy = g.ligne0, gw = g.nbColonnes, gh = g.nbLignes;
    const size_t n = static_cast<size_t>(gw) * gh;
    images.clear();
    size_t k = 0;
    for (size_t i = 0; i < entrees.size(); ++i) {
      const EntreeMosaique& e = *entrees[i];
      const int w = e.Colonnes(), h = e.Lignes();
      // Nearest input pixel of each window pixel's centre, -1 outside the input.
      colonne.assign(gw, -1);
      ligne.assign(gh, -1);
      int xa = w, xb = -1, ya = h, yb = -1;
      for (int c = 0; c < gw; ++c) {
        int q = 0;
        if (Indice((mx0 + (gx + c + 0.5) * rx - e.X0()) / e.PasX(), w, q)) {
          colonne[c] = q;
          xa = std::min(xa, q), xb = std::max(xb, q);
        }
      }
      for (int r = 0; r < gh; ++r) {
        int q = 0;
        if (Indice((e.Y0() - (my0 - (gy + r + 0.5) * ry)) / e.PasY(), h, q)) {
          ligne[r] = q;
          ya = std::min(ya, q), yb = std::max(yb, q);
        }
      }
      if (xb < xa || yb < ya) continue;
      LireCorrigee(i, Fenetre{xa, ya, xb - xa + 1, yb - ya + 1}, true, t);
      if (plans.size() <= k) plans.emplace_back();
      std::vector<float>& p = plans[k++];
      p.assign(n * (bandes + 1), 0.0f);
      const int nx = t.f.nbColonnes;
      for (int r = 0; r < gh; ++r) {
        if (ligne[r] < 0) continue;
        const int lr = ligne[r] - ya;
        const unsigned char* ok = t.Valide(lr);
        for (int c = 0; c < gw; ++c) {
          if (colonne[c] < 0) continue;
          const int lc = colonne[c] - xa;
          if (!ok[lc]) continue;
          const size_t o = static_cast<size_t>(r) * gw + c, q = static_cast<size_t>(lr) * nx + lc;
          for (int b = 0; b < bandes; ++b) p[b * n + o] = t.valeurs[b * t.plan + q];
          p[bandes * n + o] = t.poids[q];
        }
      }
      images.push_back({p.data(), p.data() + bandes * n});
    }
    fusion.assign(n * bandes, 0.0f);
    if (!images.empty()) MelangerMultibande(images, gw, gh, bandes, niveaux, fusion.data(), 0.0f);
    for (int y = y0; y < y1; ++y)
      for (int x = x0; x < x1; ++x) {
        const size_t o = static_cast<size_t>(y - gy) * gw + (x - gx), d = static_cast<size_t>(y - y0) * W + x;
        bool couvert = false;
        for (const ContributionMultibande& im : images) couvert = couvert || im.poids[o] > 0;
        valide[d] = couvert;
        for (int b = 0; b < bandes; ++b) sortie[d * bandes + b] = couvert ? fusion[b * n + o] : 0.0f;
      }
  }
}

void JobMosaique::Impl::ComposerRangee(int r, std::vector<float>& valeurs, std::vector<unsigned char>& valide,
                                       Atelier& a) const {
  const int y0 = r * plan.hauteurBloc, y1 = std::min(H, y0 + plan.hauteurBloc);
  valeurs.resize(static_cast<size_t>(y1 - y0) * W * bandes);
  valide.resize(static_cast<size_t>(y1 - y0) * W);
  for (int y = y0; y < y1; y += sousBande) {
    const int fin = std::min(y1, y + sousBande);
    const size_t d = static_cast<size_t>(y - y0) * W;
    if (regle->Pyramide())
      ComposerMultibande(y, fin, valeurs.data() + d * bandes, valide.data() + d);
    else
      ComposerBande(y, fin, valeurs.data() + d * bandes, valide.data() + d, a);
  }
}

void JobMosaique::Impl::ComposerRangees(
    int r0, int r1,
    const std::function<void(int, std::vector<std::vector<unsigned char>>&, const std::vector<float>&,
                             const std::vector<unsigned char>&)>& ecrire) const {
  std::vector<std::unique_ptr<EncodeurRangees>> encodeurs;
  for (int k = 0; k < enVol; ++k)
    encodeurs.push_back(
        std::make_unique<EncodeurRangees>(p.sortie, ecriture, TPoint2D<int>(W, H), bandes, eFloat4));
  struct EnVol {
    std::vector<float> valeurs;
    std::vector<unsigned char> valide;
    std::vector<std::vector<unsigned char>> blocs;
    Atelier atelier;
  };
  std::vector<EnVol> lot(enVol);
  for (int r = r0; r < r1; r += enVol) {
    const int n = std::min(enVol, r1 - r);
    PourChaque(static_cast<size_t>(n), [&](size_t k) {
      EnVol& v = lot[k];
      ComposerRangee(r + static_cast<int>(k), v.valeurs, v.valide, v.atelier);
      v.blocs = encodeurs[k]->Encoder(r + static_cast<int>(k), v.valeurs.data(),
                                      static_cast<size_t>(W) * bandes * sizeof(float), v.valide.data(),
                                      static_cast<size_t>(W));
    });
    for (int k = 0; k < n; ++k) ecrire(r + k, lot[k].blocs, lot[k].valeurs, lot[k].valide);
    suivi->Progression(static_cast<double>(r + n - r0) / (r1 - r0));
    // The inputs above the next rows are done with: what reading them keeps goes (a window that
    // reaches one still, as a blend's margin may, decodes again what it needs).
    const int suite = (r + n) * plan.hauteurBloc;
    for (const auto& e : entrees) {
      int l0, l1;
      Bornes((my0 - e->Y0()) / ry, (my0 - e->Y0() + e->Lignes() * e->PasY()) / ry, H, l0, l1);
      if (l1 <= suite) e->Liberer();
    }
  }
}

// One input corrected on its own grid, in the same file options, streamed by rows of blocks.
void JobMosaique::Impl::EcrireCorrige(size_t i) const {
  const EntreeMosaique& e = *entrees[i];
  // An input an extent leaves out is not corrected: its copy would be the input itself.
  if (!SurLaMosaique(e)) return;
  const std::string base =
      e.Nom().substr(e.Nom().rfind('/') == std::string::npos ? 0 : e.Nom().rfind('/') + 1);
  const std::string nom = p.corriges + "/" + base;
  OptionsEcriture o = ecriture;
  o.cog = false;
  o.alpha = ecriture.alpha && e.Alpha();
  o.couleurs = CouleursDe(e);
  o.masque = e.Masque();
  // Its own no-data value, where the written type holds it; the mosaic's otherwise.
  const double nodata = e.NodataFichierValeur();
  if (e.NodataFichier() && NodataPossible(nodata, o.type)) o.nodata = nodata;
  GeoreferenceEcriture g;
  g.grille = true;
  g.x0 = e.X0();
  g.y0 = e.Y0();
  g.pasX = e.PasX();
  g.pasY = e.PasY();
  if (e.Crs()) g.crs = *e.Crs();
  EcrivainGeoTIFF ecrivain(nom, o, TPoint2D<int>(e.Colonnes(), e.Lignes()), bandes, eFloat4, g,
                           TagsMetadonneesGdal(MetadonneesGdalDe(e, o.alpha)));
  const int w = e.Colonnes(), canaux = e.Canaux(), T = ecrivain.Plan().hauteurBloc;
  std::vector<float> lu, v;
  std::vector<unsigned char> ok;
  std::vector<float> ligne(w);
  for (int y0 = 0; y0 < e.Lignes(); y0 += T) {
    const int n = std::min(T, e.Lignes() - y0);
    lu.resize(static_cast<size_t>(w) * n * canaux);
    ok.resize(static_cast<size_t>(w) * n);
    v.resize(static_cast<size_t>(w) * n * bandes);
    e.Lire(0, y0, w, n, lu.data(), ok.data());
    for (int r = 0; r < n; ++r)
      for (int b = 0; b < bandes; ++b) {
        const float* s = lu.data() + static_cast<size_t>(e.Canal(b)) * w * n + static_cast<size_t>(r) * w;
        std::copy(s, s + w, ligne.begin());
        CorrigerFini(*corrections[i], b, y0 + r, 0, w, ligne.data());
        float* d = v.data() + static_cast<size_t>(r) * w * bandes + b;
        for (int x = 0; x < w; ++x) d[static_cast<size_t>(x) * bandes] = ligne[x];
      }
    ecrivain.EcrireLignes(eFloat4, v.data(), static_cast<size_t>(w) * bandes * sizeof(float), n, ok.data(),
                          w);
  }
  Terminer(ecrivain, nom);
  e.Liberer();
}

void JobMosaique::Impl::EcrireOri() const {
  // A CARTO orientation beside the mosaic when its grid is one (metric steps, an origin that reads back).
  std::string nom = p.sortie;
  const size_t point = nom.rfind('.');
  nom = nom.substr(0, point) + ".ori";
  try {
    const OrientationOld ori(eORICarto, mx0, my0, 0, W, H, rx, ry);
    ori.Sauver(nom.c_str());
  } catch (const Erreur&) {
  }
}

// ---------------------------------------------------------------------------------------------------
// The work folder of the phases.

std::string JobMosaique::Impl::Empreinte() const {
  std::ostringstream o;
  o.precision(17);
  o << "egalise mosaique " << EGALISE_VERSION << "\n";
  std::vector<std::string> lues = p.entrees;
  if (!p.reference.empty()) lues.push_back(p.reference);
  for (const std::string& n : lues) {
    struct stat s;
    if (::stat(n.c_str(), &s) != 0) ZEPRA_ERREUR("[Mosaique] (Travail) L'image " << n << " n'existe plus.");
    o << (&n == &lues.back() && !p.reference.empty() ? "reference " : "entree ") << n << " " << s.st_size
      << " " << s.st_mtim.tv_sec << "." << s.st_mtim.tv_nsec << "\n";
    // The files read beside it that are there: one changed, added (a world file now read before the
    // tags) or removed changes what the phases would read.
    for (const std::string& f : FichiersLusAvec(n, p.masqueSuffixe))
      if (f != n + ".aux.xml" && ::stat(f.c_str(), &s) == 0)
        o << "avec " << f << " " << s.st_size << " " << s.st_mtim.tv_sec << "." << s.st_mtim.tv_nsec << "\n";
    // GDAL's side file changes whenever a GIS opening the tile stores statistics there: only what the
    // job takes from it counts.
    if (const AnnexePam pam = LireAnnexePam(n); !pam.fichier.empty()) {
      o << "annexe " << pam.fichier << " " << pam.geotransform;
      for (const double v : pam.gt) o << " " << v;
      for (const AnnexePam::NoData& v : pam.nodata) o << " " << v.bande << ":" << v.texte;
      o << "\n" << pam.srs << "\n";
    }
  }
  const ParametresModele& m = p.gainOffset;
  o << "sortie " << p.sortie << "\nmodele " << (p.noegal ? "aucun" : p.modele) << " " << m.degreGain << " "
    << m.degreOffset << " " << m.rigidite << " " << m.pentes << " " << m.courbures << " " << m.formesGain
    << " " << grille.bloc << " " << p.pas << "\nfusion " << p.fusion << " " << plume << "\nnodata "
    << ecriture.nodata << " " << p.masqueSuffixe << "\ngrille " << mx0 << " " << my0 << " " << rx << " " << ry
    << " " << W << " " << H << " " << moyenne << bilineaire << "\necriture " << NomTypeSortie(ecriture.type)
    << " " << NomCompression(ecriture.compression) << " " << ecriture.niveau << " " << ecriture.qualite << " "
    << ecriture.tuile << " " << ecriture.cog << " " << ecriture.epsg << "\ncorriges " << p.corriges << "\n";
  return o.str();
}

void JobMosaique::Impl::VerifierTravail(const std::string& travail) const {
  struct stat s;
  if (::stat(travail.c_str(), &s) == 0) {
    if (!S_ISDIR(s.st_mode)) ZEPRA_ERREUR("[Mosaique] (Travail) " << travail << " n'est pas un dossier.");
  } else if (::mkdir(travail.c_str(), 0777) != 0 && errno != EEXIST) {
    ZEPRA_ERREUR("[Mosaique] (Travail) Le dossier de travail " << travail << " ne peut pas etre cree.");
  }
  const std::string nom = travail + "/empreinte.txt", attendue = Empreinte();
  std::ifstream f(nom);
  if (f) {
    std::stringstream lu;
    lu << f.rdbuf();
    if (lu.str() != attendue)
      ZEPRA_ERREUR("[Mosaique] (Travail) Le dossier de travail "
                   << travail << " appartient a un autre calcul (entrees ou options differentes).");
    return;
  }
  // Every phase writes the fingerprint before its own file: results without it come from elsewhere
  // (a fingerprint removed, files copied) and would be taken for this job's.
  std::error_code ec;
  for (std::filesystem::directory_iterator i(travail, ec), fin; !ec && i != fin; i.increment(ec)) {
    const std::string n = i->path().filename().string();
    const bool resultat =
        n.size() > 4 && n.compare(n.size() - 4, 4, ".bin") == 0 &&
        (n.rfind("observation_", 0) == 0 || n.rfind("partie_", 0) == 0 || n == "corrections.bin");
    if (resultat)
      ZEPRA_ERREUR("[Mosaique] (Travail) Le dossier de travail "
                   << travail << " contient " << n
                   << " sans l'empreinte du calcul qui l'a fait : prendre un dossier vide.");
  }
  FichierAtomique e(nom, "[Mosaique] (Travail)");
  e.flux() << attendue;
  e.Valider();
}

namespace {
// Whether a phase's file is there and complete: a damaged one is made again (over it, atomically).
bool Fait(const std::string& nom, const char* magique) {
  try {
    return Lecture::Ouvrir(nom, magique) != nullptr;
  } catch (const Erreur&) {
    return false;
  }
}

// Version 2: the summary's sums, then the kept blocks only (version 1 held every block's).
// Version 3 of the observations, 3 of the corrections and 2 of the parts: with the payload's hash.
constexpr char kMagiqueObs[9] = "EGOBSV03";
constexpr char kMagiqueCorr[9] = "EGCORR03";
constexpr char kMagiquePartie[9] = "EGPART02";

std::string NomObservation(const std::string& t, size_t i) {
  return t + "/observation_" + std::to_string(i + 1) + ".bin";
}
std::string NomPartie(const std::string& t, int k, int n) {
  return t + "/partie_" + std::to_string(k) + "_sur_" + std::to_string(n) + ".bin";
}
// The N of the parts "partie_1_sur_N.bin" in the folder, in increasing order.
std::vector<int> NombresDeParties(const std::string& t) {
  std::vector<int> n;
  std::error_code ec;
  const std::string debut = "partie_1_sur_", fin = ".bin";
  for (std::filesystem::directory_iterator i(t, ec), e; !ec && i != e; i.increment(ec)) {
    const std::string nom = i->path().filename().string();
    if (nom.size() <= debut.size() + fin.size() || nom.size() > debut.size() + fin.size() + 7 ||
        nom.compare(0, debut.size(), debut) != 0 ||
        nom.compare(nom.size() - fin.size(), fin.size(), fin) != 0)
      continue;
    const std::string chiffres = nom.substr(debut.size(), nom.size() - debut.size() - fin.size());
    if (chiffres.find_first_not_of("0123456789") != std::string::npos || chiffres[0] == '0') continue;
    n.push_back(std::stoi(chiffres));
  }
  std::sort(n.begin(), n.end());
  return n;
}
}  // namespace

void JobMosaique::Impl::EcrireCorrections(const std::string& nom) const {
  Ecriture f(nom, kMagiqueCorr);
  f.Valeur<uint32_t>(static_cast<uint32_t>(corrections.size()));
  for (const auto& c : corrections) {
    if (const auto* go = dynamic_cast<const CorrectionGO*>(c.get())) {
      const CorrectionGainOffset& k = go->C();
      f.Valeur<int32_t>(1);
      f.Valeur<int32_t>(k.DegreGain());
      f.Valeur<int32_t>(k.DegreOffset());
      for (int b = 0; b < bandes; ++b) {
        f.Octets(k.Gain(b), sizeof(double) * base_polynome::NbTermes(k.DegreGain()));
        f.Octets(k.Offset(b), sizeof(double) * base_polynome::NbTermes(k.DegreOffset()));
      }
    } else if (const auto* pc = dynamic_cast<const CorrectionPolynome*>(c.get())) {
      f.Valeur<int32_t>(p.modele == "multiplicatif" ? 3 : 2);
      for (int b = 0; b < bandes; ++b) f.Octets(pc->Polynome(b).Coefficients().data(), 6 * sizeof(double));
    } else {
      f.Valeur<int32_t>(0);
    }
  }
  // The report's part that the solve made.
  f.Valeur<uint32_t>(static_cast<uint32_t>(rapport.bandes.size()));
  for (const auto& b : rapport.bandes) {
    f.Valeur(b.rmseAvant);
    f.Valeur(b.rmseApres);
    f.Valeur<int64_t>(b.pairesEcartees);
    f.Valeur<int64_t>(b.blocsEcartes);
  }
  f.Valider();
}

void JobMosaique::Impl::LireCorrections(const std::string& nom) {
  std::unique_ptr<Lecture> f = Lecture::Ouvrir(nom, kMagiqueCorr);
  if (!f) ZEPRA_ERREUR("[Mosaique] (Travail) " << nom << " manque : lancer --etape resoudre d'abord.");
  corrections.clear();
  const uint32_t n = f->Valeur<uint32_t>();
  if (n != entrees.size()) ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << nom << " ne convient pas.");
  for (uint32_t i = 0; i < n; ++i) {
    const EntreeMosaique& e = *entrees[i];
    const int32_t genre = f->Valeur<int32_t>();
    if (genre == 1) {
      const int dg = f->Valeur<int32_t>(), dof = f->Valeur<int32_t>();
      if (dg < 0 || dg > 2 || dof < 0 || dof > 2)
        ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << nom << " ne convient pas.");
      CorrectionGainOffset c(e.Colonnes(), e.Lignes(), bandes, dg, dof);
      for (int b = 0; b < bandes; ++b) {
        f->Octets(c.Gain(b), sizeof(double) * base_polynome::NbTermes(dg));
        f->Octets(c.Offset(b), sizeof(double) * base_polynome::NbTermes(dof));
      }
      corrections.push_back(std::make_unique<CorrectionGO>(std::move(c)));
    } else if (genre == 2 || genre == 3) {
      std::vector<Polynome2D> polys;
      for (int b = 0; b < bandes; ++b) {
        std::vector<double> k(6);
        f->Octets(k.data(), 6 * sizeof(double));
        Polynome2D poly(2);
        poly.SetCoefficients(k);
        polys.push_back(poly);
      }
      corrections.push_back(std::make_unique<CorrectionPolynome>(std::move(polys), genre == 3));
    } else if (genre == 0) {
      corrections.push_back(std::make_unique<Identite>());
    } else {
      ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << nom << " ne convient pas.");
    }
  }
  const uint32_t nb = f->Valeur<uint32_t>();
  if (nb > 4096) ZEPRA_ERREUR("[Mosaique] (Travail) Le fichier " << nom << " ne convient pas.");
  rapport.bandes.assign(nb, {});
  for (auto& b : rapport.bandes) {
    b.rmseAvant = f->Valeur<double>();
    b.rmseApres = f->Valeur<double>();
    b.pairesEcartees = f->Valeur<int64_t>();
    b.blocsEcartes = f->Valeur<int64_t>();
  }
  f->Terminer();
}

// ---------------------------------------------------------------------------------------------------

JobMosaique::JobMosaique(const ParametresMosaique& p, SuiviMosaique* suivi) : m(std::make_unique<Impl>()) {
  m->p = p;
  m->suivi = suivi ? suivi : &m->muet;
  m->Etape("preparation", [&] { m->Preparer(); });
}

JobMosaique::~JobMosaique() = default;

bool JobMosaique::MosaiqueEcrite() const { return m->mosaiqueEcrite; }

const RapportMosaique& JobMosaique::Rapport() const { return m->rapport; }

void JobMosaique::Executer() {
  Impl& j = *m;
  if (j.gainOffset && !j.p.noegal)
    j.Etape("observation", [&] {
      j.stats.resize(j.entrees.size());
      PourChaque(j.entrees.size(), [&](size_t i) { j.stats[i] = j.Observer(i); });
      if (j.reference) j.statsReference = j.ObserverReference();
    });
  // Without equalization there is nothing to solve: the identity corrections are set unannounced.
  if (j.p.noegal)
    j.Resoudre();
  else
    j.Etape("resolution", [&] { j.Resoudre(); });
  j.stats.clear();
  j.statsReference.reset();
  RendreLaMemoire();
  j.Etape("composition", [&] {
    EcrivainGeoTIFF ecrivain(j.p.sortie, j.ecriture, TPoint2D<int>(j.W, j.H), j.bandes, eFloat4, j.georef,
                             j.tags);
    const bool cog = j.plan.cog;
    j.ComposerRangees(0, j.Rangees(),
                      [&](int, std::vector<std::vector<unsigned char>>& blocs, const std::vector<float>& v,
                          const std::vector<unsigned char>& ok) {
                        ecrivain.EcrireRangeeEncodee(blocs, cog ? v.data() : nullptr,
                                                     static_cast<size_t>(j.W) * j.bandes * sizeof(float),
                                                     cog ? ok.data() : nullptr, static_cast<size_t>(j.W));
                      });
    Terminer(ecrivain, j.p.sortie);
    j.mosaiqueEcrite = true;
    j.EcrireOri();
  });
  if (!j.p.corriges.empty())
    j.Etape("images corrigees", [&] {
      // corrigesEnVol writers, each taking every corrigesEnVol-th image.
      const size_t k = static_cast<size_t>(j.corrigesEnVol);
      PourChaque(std::min(k, j.entrees.size()), [&](size_t s) {
        for (size_t i = s; i < j.entrees.size(); i += k) j.EcrireCorrige(i);
      });
    });
  j.rapport.colonnes = j.W;
  j.rapport.lignes = j.H;
  j.rapport.bandesSortie = j.plan.canaux;
  j.rapport.typeSortie = NomTypeSortie(j.plan.type);
}

void JobMosaique::PhaseObserver(const std::string& travail, int index) {
  Impl& j = *m;
  if (index < 1 || index > static_cast<int>(j.entrees.size()))
    ZEPRA_ERREUR("[Mosaique] (Observer) --index " << index << " : 1 a " << j.entrees.size() << " attendu.");
  j.VerifierTravail(travail);
  if (!j.gainOffset || j.p.noegal) return;  // the other models observe while they solve
  const std::string nom = NomObservation(travail, index - 1);
  if (Fait(nom, kMagiqueObs)) return;  // already done
  j.Etape("observation", [&] {
    const std::unique_ptr<StatsBlocs> s = j.Observer(index - 1);
    Ecriture f(nom, kMagiqueObs);
    const std::vector<double> d = s->Exporter();
    f.Valeur<uint64_t>(d.size());
    f.Octets(d.data(), d.size() * sizeof(double));
    f.Valider();
  });
}

void JobMosaique::PhaseResoudre(const std::string& travail) {
  Impl& j = *m;
  j.VerifierTravail(travail);
  const std::string nom = travail + "/corrections.bin";
  if (Fait(nom, kMagiqueCorr)) return;
  if (j.gainOffset && !j.p.noegal) {
    j.stats.clear();
    for (size_t i = 0; i < j.entrees.size(); ++i) {
      std::unique_ptr<Lecture> f = Lecture::Ouvrir(NomObservation(travail, i), kMagiqueObs);
      if (!f)
        ZEPRA_ERREUR("[Mosaique] (Resoudre) L'observation de l'image "
                     << i + 1 << " (" << j.entrees[i]->Nom() << ") manque : lancer --etape observer --index "
                     << i + 1 << ".");
      std::unique_ptr<StatsBlocs> s = j.Statistiques(i);
      const uint64_t n = f->Valeur<uint64_t>();
      if (n != s->TailleExport())
        ZEPRA_ERREUR("[Mosaique] (Resoudre) Le fichier " << f->Nom() << " ne convient pas.");
      std::vector<double> d(n);
      f->Octets(d.data(), n * sizeof(double));
      f->Terminer();
      s->Importer(d);
      j.stats.push_back(std::move(s));
    }
    // The reference is observed here, once: it has no index of its own.
    if (j.reference)
      j.Etape("observation de la reference", [&] { j.statsReference = j.ObserverReference(); });
  }
  j.Etape("resolution", [&] { j.Resoudre(); });
  j.stats.clear();
  j.statsReference.reset();
  j.EcrireCorrections(nom);
}

void JobMosaique::PhaseComposer(const std::string& travail, int k, int n) {
  Impl& j = *m;
  if (n < 1 || k < 1 || k > n)
    ZEPRA_ERREUR("[Mosaique] (Composer) --partie " << k << "/" << n << " : K de 1 a N attendu.");
  j.VerifierTravail(travail);
  const std::string nom = NomPartie(travail, k, n);
  if (Fait(nom, kMagiquePartie)) return;
  j.LireCorrections(travail + "/corrections.bin");
  const int R = j.Rangees(), r0 = static_cast<int>(static_cast<long long>(R) * (k - 1) / n),
            r1 = static_cast<int>(static_cast<long long>(R) * k / n);
  j.Etape("composition", [&] {
    Ecriture f(nom, kMagiquePartie);
    f.Valeur<int32_t>(r0);
    f.Valeur<int32_t>(r1);
    const bool cog = j.plan.cog;
    j.ComposerRangees(r0, r1,
                      [&](int, std::vector<std::vector<unsigned char>>& blocs, const std::vector<float>& v,
                          const std::vector<unsigned char>& ok) {
                        f.Valeur<uint32_t>(static_cast<uint32_t>(blocs.size()));
                        for (const auto& b : blocs) {
                          f.Valeur<uint64_t>(b.size());
                          f.Octets(b.data(), b.size());
                        }
                        if (cog) {
                          f.Valeur<uint64_t>(v.size());
                          f.Octets(v.data(), v.size() * sizeof(float));
                          f.Octets(ok.data(), ok.size());
                        }
                      });
    f.Valider();
  });
  if (!j.p.corriges.empty())
    j.Etape("images corrigees", [&] {
      for (size_t i = static_cast<size_t>(k - 1); i < j.entrees.size(); i += static_cast<size_t>(n))
        j.EcrireCorrige(i);
    });
}

void JobMosaique::PhaseAssembler(const std::string& travail) {
  Impl& j = *m;
  j.VerifierTravail(travail);
  j.LireCorrections(travail + "/corrections.bin");
  // The parts: every K of one N, the smallest N whose parts are all there (an earlier run may have
  // cut the mosaic otherwise, and N may exceed the rows of tiles: its last parts are empty).
  const std::vector<int> nombres = NombresDeParties(travail);
  if (nombres.empty())
    ZEPRA_ERREUR("[Mosaique] (Assembler) Aucune partie dans " << travail << " : lancer --etape composer.");
  int n = 0, manque = 0;
  for (size_t i = 0; i < nombres.size() && n == 0; ++i) {
    int k = 1;
    while (k <= nombres[i] && Lecture::Ouvrir(NomPartie(travail, k, nombres[i]), kMagiquePartie)) ++k;
    if (k > nombres[i])
      n = nombres[i];
    else if (i == 0)
      manque = k;
  }
  if (n == 0)
    ZEPRA_ERREUR("[Mosaique] (Assembler) La partie "
                 << manque << "/" << nombres[0] << " manque : lancer --etape composer --partie " << manque
                 << "/" << nombres[0] << ".");
  j.Etape("assemblage", [&] {
    EcrivainGeoTIFF ecrivain(j.p.sortie, j.ecriture, TPoint2D<int>(j.W, j.H), j.bandes, eFloat4, j.georef,
                             j.tags);
    const int R = j.Rangees();
    int attendue = 0;
    std::vector<std::vector<unsigned char>> blocs;
    std::vector<float> v;
    std::vector<unsigned char> ok;
    for (int k = 1; k <= n; ++k) {
      // One part open at a time: N may be in the thousands.
      const std::unique_ptr<Lecture> partie = Lecture::Ouvrir(NomPartie(travail, k, n), kMagiquePartie);
      if (!partie) ZEPRA_ERREUR("[Mosaique] (Assembler) La partie " << k << "/" << n << " a disparu.");
      Lecture& f = *partie;
      const int r0 = f.Valeur<int32_t>(), r1 = f.Valeur<int32_t>();
      if (r0 != attendue || r1 < r0 || r1 > R)
        ZEPRA_ERREUR("[Mosaique] (Assembler) La partie " << f.Nom() << " ne suit pas la precedente.");
      for (int r = r0; r < r1; ++r) {
        const uint32_t nb = f.Valeur<uint32_t>();
        // Each block takes at least its length's 8 bytes.
        if (nb > f.Reste() / 8)
          ZEPRA_ERREUR("[Mosaique] (Assembler) La partie " << f.Nom() << " est corrompue.");
        blocs.resize(nb);
        for (auto& b : blocs) {
          const uint64_t t = f.Valeur<uint64_t>();
          if (t > f.Reste())
            ZEPRA_ERREUR("[Mosaique] (Assembler) La partie " << f.Nom() << " est corrompue.");
          b.resize(t);
          f.Octets(b.data(), t);
        }
        if (j.plan.cog) {
          const uint64_t t = f.Valeur<uint64_t>();
          const int lignes = std::min(j.H - r * j.plan.hauteurBloc, j.plan.hauteurBloc);
          if (t != static_cast<uint64_t>(lignes) * j.W * j.bandes)
            ZEPRA_ERREUR("[Mosaique] (Assembler) La partie " << f.Nom() << " est corrompue.");
          v.resize(t);
          ok.resize(static_cast<size_t>(lignes) * j.W);
          f.Octets(v.data(), t * sizeof(float));
          f.Octets(ok.data(), ok.size());
        }
        ecrivain.EcrireRangeeEncodee(blocs, j.plan.cog ? v.data() : nullptr,
                                     static_cast<size_t>(j.W) * j.bandes * sizeof(float),
                                     j.plan.cog ? ok.data() : nullptr, static_cast<size_t>(j.W));
      }
      f.Terminer();
      attendue = r1;
    }
    if (attendue != R) ZEPRA_ERREUR("[Mosaique] (Assembler) Les parties ne couvrent pas la mosaique.");
    Terminer(ecrivain, j.p.sortie);
    j.mosaiqueEcrite = true;
    j.EcrireOri();
  });
  j.rapport.colonnes = j.W;
  j.rapport.lignes = j.H;
  j.rapport.bandesSortie = j.plan.canaux;
  j.rapport.typeSortie = NomTypeSortie(j.plan.type);
}

std::string JobMosaique::RapportJson(const std::vector<std::pair<std::string, std::string>>& options) const {
  const RapportMosaique& r = m->rapport;
  std::ostringstream o;
  o << "{\n  \"version\": \"" << EGALISE_VERSION << "\",\n  \"options\": {";
  for (size_t k = 0; k < options.size(); ++k)
    o << (k ? ", " : "") << "\"" << EchapperJson(options[k].first) << "\": \""
      << EchapperJson(options[k].second) << "\"";
  o << "},\n  \"bloc\": ";
  if (m->rapport.bloc > 0)
    o << m->rapport.bloc;
  else
    o << "null";
  o << ",\n  \"entrees\": [";
  for (size_t k = 0; k < r.entrees.size(); ++k) {
    const auto& e = r.entrees[k];
    o << (k ? "," : "") << "\n    {\"nom\": \"" << EchapperJson(e.nom) << "\", \"bandes\": " << e.bandes
      << ", \"colonnes\": " << e.colonnes << ", \"lignes\": " << e.lignes
      << ", \"observations\": " << e.observations << ", \"groupe\": " << e.groupe
      << ", \"correction\": " << (e.correction.empty() ? "null" : e.correction) << "}";
  }
  o << "\n  ],\n  \"reference\": ";
  if (r.avecReference)
    o << "{\"nom\": \"" << EchapperJson(r.reference.nom) << "\", \"bandes\": " << r.reference.bandes
      << ", \"colonnes\": " << r.reference.colonnes << ", \"lignes\": " << r.reference.lignes
      << ", \"observations\": " << r.reference.observations << ", \"groupe\": " << r.reference.groupe
      << ", \"correction\": null}";
  else
    o << "null";
  o << ",\n  \"bandes\": [";
  for (size_t k = 0; k < r.bandes.size(); ++k)
    o << (k ? ", " : "") << "{\"rmse_avant\": " << NombreJson(r.bandes[k].rmseAvant)
      << ", \"rmse_apres\": " << NombreJson(r.bandes[k].rmseApres)
      << ", \"paires_ecartees\": " << r.bandes[k].pairesEcartees
      << ", \"blocs_ecartes\": " << r.bandes[k].blocsEcartes << "}";
  o << "],\n  \"etapes\": [";
  for (size_t k = 0; k < r.etapes.size(); ++k)
    o << (k ? ", " : "") << "{\"nom\": \"" << EchapperJson(r.etapes[k].nom)
      << "\", \"secondes\": " << NombreJson(r.etapes[k].secondes)
      << ", \"memoire_mio\": " << NombreJson(r.etapes[k].memoireMio) << "}";
  o << "],\n  \"avertissements\": [";
  for (size_t k = 0; k < r.avertissements.size(); ++k)
    o << (k ? ", " : "") << "\"" << EchapperJson(r.avertissements[k]) << "\"";
  o << "],\n  \"sortie\": {\"nom\": \"" << EchapperJson(m->p.sortie) << "\", \"colonnes\": " << m->W
    << ", \"lignes\": " << m->H << ", \"bandes\": " << m->plan.canaux << ", \"type\": \""
    << NomTypeSortie(m->plan.type) << "\"}\n}\n";
  return o.str();
}
