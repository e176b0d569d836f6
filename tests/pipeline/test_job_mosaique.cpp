// The conventional front end's job on generated GeoTIFF tiles with known distortions: the mosaic is
// closer to the truth than without equalization, the same bytes for any thread count and for the
// phased run, and the work folder refuses what does not belong to it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <set>

#include "outils_test.h"
#include "pipeline/gain_offset.h"
#include "pipeline/outils_pipeline.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/fichieratomique.h"
#include "zepra/lecteurfenetres.h"
#include "zepra/orientation.h"
#include "zepra/pipeline/mosaique.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/ttimage.h"

namespace {

using test::Grille;
using test::kBandes;
using test::kN;
using test::kPas;
using test::kRecouvrement;
using test::kX0;
using test::kY0;
using test::Verite;

// An 8-bit file of n x n pixels of 'bandes' bands, every sample 'valeur'.
void Uniforme(const std::string& nom, OptionsEcriture o, int n, int bandes, float valeur,
              const GeoreferenceEcriture& g = GeoreferenceEcriture()) {
  o.type = eUInt1;
  const std::vector<float> ligne(static_cast<size_t>(n) * bandes, valeur);
  EcrivainGeoTIFF e(nom, o, TPoint2D<int>(n, n), bandes, eFloat4, g);
  e.EcrireLignes(eFloat4, ligne.data(), 0, n);
  e.Terminer();
}

// Tile (i, j) of a block of 3-band 8-bit tiles of n x n pixels, each band with its own gain and offset;
// its content is the truth 'ailleurs' pixels further right and down (0: where it lies). With
// 'vignettage', the lens's fall-off too: the gain times 1 - vignettage r^2, r = 1 in the tile's corners.
// The block starts 'decalage' pixels to the right of the grid's origin; its tiles overlap by
// 'recouvrement' pixels.
void EcrireTuile(const std::string& nom, int i, int j, int n, int ailleurs = 0, double vignettage = 0,
                 int decalage = 0, int recouvrement = kRecouvrement) {
  OptionsEcriture o;
  o.tuile = 64;
  o.nodataPresent = true;
  o.nodata = 0;
  o.type = eUInt1;
  const int c0 = decalage + j * (n - recouvrement), l0 = i * (n - recouvrement);
  EcrivainGeoTIFF e(nom, o, TPoint2D<int>(n, n), kBandes, eFloat4, Grille(c0, l0));
  std::vector<float> ligne(static_cast<size_t>(n) * kBandes);
  for (int y = 0; y < n; ++y) {
    for (int x = 0; x < n; ++x)
      for (int b = 0; b < kBandes; ++b) {
        const double u = (x + 0.5) / n - 0.5, v = (y + 0.5) / n - 0.5;
        const double gain = (1 + 0.04 * std::sin(3.0 * i + 5.0 * j + b)) *
                            (1 - 2 * vignettage * (u * u + v * v)),
                     offset = 12 * std::cos(2.0 * i - 7.0 * j + b);
        ligne[x * kBandes + b] =
            static_cast<float>(std::round(gain * Verite(b, c0 + x + ailleurs, l0 + y + ailleurs) + offset));
      }
    e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1);
  }
  e.Terminer();
}

// The block of 'lignes' x 'colonnes' tiles (2 x 2 by default) of n x n pixels named <prefixe><i><j>.tif,
// overlapping by 'recouvrement' pixels; 'vignettage' and 'decalage' as EcrireTuile takes them.
std::vector<std::string> Tuiles(const std::string& dossier, int n = kN, int recouvrement = kRecouvrement,
                                int lignes = 2, int colonnes = 2, const std::string& prefixe = "t",
                                double vignettage = 0, int decalage = 0) {
  std::vector<std::string> noms;
  for (int i = 0; i < lignes; ++i)
    for (int j = 0; j < colonnes; ++j) {
      noms.push_back(dossier + "/" + prefixe + std::to_string(i) + std::to_string(j) + ".tif");
      EcrireTuile(noms.back(), i, j, n, 0, vignettage, decalage, recouvrement);
    }
  return noms;
}

// Runs the job; the RMSE of each band of its mosaic against the truth after one global gain and offset
// (least squares).
std::vector<double> Ecarts(const ParametresMosaique& p) {
  JobMosaique(p).Executer();
  std::vector<double> e;
  for (int b = 0; b < kBandes; ++b) e.push_back(test::EcartALaVerite(p.sortie, true, b, b + 1));
  return e;
}

// How many samples of the file (every band) satisfy 'test'.
template <class Test>
long Compter(const std::string& fichier, Test test) {
  const TTImage<float> m(fichier.c_str());
  long n = 0;
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x)
      for (int b = 0; b < m.GetNbCanaux(); ++b) n += test(m(x, y, b));
  return n;
}

bool NonFini(float v) { return !std::isfinite(v); }

// Two float tiles f0.tif and f1.tif side by side, the second kN - kRecouvrement pixels to the right, of
// 'bandes' interleaved bands; remplir(j, y, c0, ligne) makes line y of tile j, whose first column is
// column c0 of the block.
std::vector<std::string> PaireFlottante(
    const std::string& dossier, int bandes,
    const std::function<void(int, int, int, std::vector<float>&)>& remplir) {
  std::vector<std::string> t;
  OptionsEcriture o;
  o.type = eFloat4;
  for (int j = 0; j < 2; ++j) {
    const int c0 = j * (kN - kRecouvrement);
    t.push_back(dossier + "/f" + std::to_string(j) + ".tif");
    EcrivainGeoTIFF e(t.back(), o, TPoint2D<int>(kN, kN), bandes, eFloat4, Grille(c0, 0));
    std::vector<float> ligne(static_cast<size_t>(kN) * bandes);
    for (int y = 0; y < kN; ++y) {
      remplir(j, y, c0, ligne);
      e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1);
    }
    e.Terminer();
  }
  return t;
}

TEST(JobMosaique, PlusProcheDeLaVeriteQueSansEgalisationSurChaqueBande) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  auto ecarts = [&](const char* modele, const char* fusion, bool noegal) {
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.modele = modele;
    p.fusion = fusion;
    p.noegal = noegal;
    return Ecarts(p);
  };
  const std::vector<double> sans = ecarts("gain-offset", "voronoi", true);
  // The new model recovers the tiles' levels; the historical additive one only has to do no harm.
  const struct {
    const char *modele, *fusion;
    double facteur;
  } cas[] = {{"gain-offset", "plume", 0.3},
             {"gain-offset", "multibande", 0.3},
             {"gain-offset", "moyenne", 0.3},
             {"additif", "moyenne", 1.0}};
  for (const auto& c : cas) {
    const std::vector<double> e = ecarts(c.modele, c.fusion, false);
    for (int b = 0; b < kBandes; ++b)
      EXPECT_LT(e[b], c.facteur * sans[b])
          << c.modele << " " << c.fusion << " bande " << b << " : " << e[b] << " / " << sans[b];
  }
}

TEST(JobMosaique, MemesOctetsPourToutNombreDeFilsEtEnPhases) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  // Multi-band blending composes by windows of its own: the same bytes too.
  for (const char* cas : {"", "multibande", "cog"}) {
    const std::string c = cas;
    ParametresMosaique p = test::Parametres(t, d / "f.tif");
    if (c == "multibande") p.fusion = "multibande";
    p.ecriture.cog = c == "cog";
    std::string reference;
    for (const int fils : {1, 2, 8}) {
      FixerNbFils(fils);
      JobMosaique(p).Executer();
      const std::string octets = test::LireFichier(d / "f.tif");
      if (reference.empty()) reference = octets;
      EXPECT_TRUE(octets == reference) << fils << " fils, " << c;
    }
    FixerNbFils(0);
    if (c == "multibande") continue;
    // The phases, parts in any order, each in a fresh job as separate processes would.
    p.sortie = d / "p.tif";
    const std::string travail = d / ("travail" + c);
    for (int i = 4; i >= 1; --i) JobMosaique(p).PhaseObserver(travail, i);
    JobMosaique(p).PhaseResoudre(travail);
    for (int k : {3, 1, 2}) JobMosaique(p).PhaseComposer(travail, k, 3);
    JobMosaique(p).PhaseComposer(travail, 2, 3);  // a finished part is not redone
    JobMosaique(p).PhaseAssembler(travail);
    EXPECT_TRUE(test::LireFichier(d / "p.tif") == reference) << "phases, " << c;
  }
}

TEST(JobMosaique, DossierDeTravailRefuseCeQuiNeLuiAppartientPas) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const ParametresMosaique p = test::Parametres(t, d / "p.tif");
  const std::string w = d / "w";
  auto refus = [&](const std::function<void()>& f, const std::string& fragment) {
    test::Refuse(f, "", {fragment});
  };
  refus([&] { JobMosaique(p).PhaseResoudre(w); }, "L'observation de l'image 1");
  refus([&] { JobMosaique(p).PhaseComposer(w, 1, 2); }, "corrections.bin manque");
  refus([&] { JobMosaique(p).PhaseComposer(w, 5, 4); }, "--partie 5/4");
  refus([&] { JobMosaique(p).PhaseObserver(w, 5); }, "--index 5");
  test::ObserverEtResoudre(p, w);
  refus([&] { JobMosaique(p).PhaseAssembler(w); }, "Aucune partie");
  JobMosaique(p).PhaseComposer(w, 1, 2);
  refus([&] { JobMosaique(p).PhaseAssembler(w); }, "La partie 2/2 manque");
  // Another job's options on this folder.
  ParametresMosaique autre = p;
  autre.fusion = "moyenne";
  refus([&] { JobMosaique(autre).PhaseComposer(w, 2, 2); }, "appartient a un autre calcul");
  // A part cut short is seen, not assembled.
  JobMosaique(p).PhaseComposer(w, 2, 2);
  const std::string partie = w + "/partie_2_sur_2.bin";
  std::filesystem::resize_file(partie, std::filesystem::file_size(partie) - 5);
  refus([&] { JobMosaique(p).PhaseAssembler(w); }, "incomplet");
  EXPECT_FALSE(std::filesystem::exists(d / "p.tif"));
}

TEST(JobMosaique, EntreesRefuseesAvantToutTravail) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  // A 1-band tile, a tile in another system, and one strip of 2400 x 2400 x 3 bytes, more than a
  // ceiling of 16 MiB.
  Uniforme(d / "une.tif", OptionsEcriture(), kN, 1, 50, Grille(0, 0));
  Uniforme(d / "utm.tif", OptionsEcriture(), kN, kBandes, 50, Grille(0, 0, kPas, 32631));
  OptionsEcriture bande;
  bande.tuilee = false;
  bande.lignesBande = 2400;
  Uniforme(d / "bande.tif", bande, 2400, kBandes, 50, Grille(0, 0));
  // (An EPSG code for the mosaic that is not the tiles' system: SystemeDesEntreesEtEpsg.)
  const std::pair<const char*, const char*> cas[] = {{"une.tif", "a 1 bande(s)"},
                                                     {"utm.tif", "dans le systeme EPSG:32631"},
                                                     {"bande.tif", "se lit par blocs de 17 Mio"}};
  for (const auto& [entree, message] : cas) {
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.entrees.push_back(d / entree);
    p.memoireMio = 16;
    test::Refuse([&] { JobMosaique job(p); }, "", {message});
    EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  }
}

// Tiles placed by a world file have no system: --epsg gives it, and must be the system of the tiles
// that have one; without it, they do not mix with those.
TEST(JobMosaique, SystemeDesEntreesEtEpsg) {
  test::DossierTemp d;
  const struct {
    int crs[2];  // of each tile, 0 for none
    int epsg;
    const char* message;  // empty: accepted, the mosaic in EPSG:epsg
  } cas[] = {
      {{2154, 0}, 0, "est dans le systeme inconnu, "},
      {{0, 2154}, 0, "dans le systeme inconnu : donner --epsg."},
      {{0, 2154}, 2154, ""},
      {{0, 0}, 2154, ""},
      {{2154, 2154}, 2154, ""},
      {{0, 2154}, 32631, "--epsg 32631 : l'image"},
      {{2154, 0}, 32631, "dans le systeme EPSG:2154 ; la mosaique ne la reprojette pas."},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(std::to_string(c.crs[0]) + " " + std::to_string(c.crs[1]) + " --epsg " +
                 std::to_string(c.epsg));
    ParametresMosaique p = test::Parametres({d / "a.tif", d / "b.tif"}, d / "m.tif");
    for (int k = 0; k < 2; ++k) {
      GeoreferenceEcriture g = Grille(k * 40, k * 30);
      g.crs = c.crs[k] ? CrsDepuisEpsg(c.crs[k]) : SystemeReference();
      Uniforme(p.entrees[k], OptionsEcriture(), 64, kBandes, 50 + 20 * k, g);
    }
    p.ecriture.epsg = c.epsg;
    std::filesystem::remove(d / "m.tif");
    if (*c.message) {
      test::Refuse([&] { JobMosaique job(p); }, "[Mosaique] (Entrees) ", {c.message});
      EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
      continue;
    }
    JobMosaique(p).Executer();
    const LecteurFenetres m(d / "m.tif");
    ASSERT_NE(m.Metadonnees(), nullptr);
    EXPECT_EQ(m.Metadonnees()->crs.epsg, c.epsg);
  }
}

// A tile is written whole, padded beyond the mosaic's edge: on a mosaic of 280 x 280 pixels, rows of
// tiles of 2048 (resp. 8192) lines fit a ceiling of 16 (resp. 64) MiB, their tiles of 2048 x 2048 x 3
// (resp. 8192 x 8192 x 3) bytes do not. (The same mosaic with --tuile 65536 took 12 GiB a tile.)
TEST(JobMosaique, TuilesCompletesAuDelaDuPlafondRefusees) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  for (const auto& [tuile, plafond] : {std::pair<int, int>(2048, 16), {8192, 64}}) {
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.ecriture.tuile = tuile;
    p.memoireMio = plafond;
    test::Refuse([&] { JobMosaique(p).Executer(); }, "",
                 {"--memoire " + std::to_string(plafond) + " Mio", "x " + std::to_string(tuile)});
    EXPECT_FALSE(std::filesystem::exists(d / "m.tif")) << tuile;
  }
  // The corrected images too: given what one input's mosaic needs, its corrected image (its own
  // channels read beside the corrected bands) does not fit, and is refused before any work.
  ParametresMosaique p = test::Parametres({t[0]}, d / "m.tif");
  p.ecriture.tuile = 8192;
  p.memoireMio = 16;
  const std::string texte = test::TexteErreur([&] { JobMosaique(p).Executer(); });
  const size_t k = texte.find("demande au moins ");
  ASSERT_NE(k, std::string::npos) << texte;
  p.memoireMio = std::stoi(texte.substr(k + 17));
  std::filesystem::create_directory(d / "corr");
  p.corriges = d / "corr";
  test::Refuse([&] { JobMosaique(p).Executer(); }, "", {"l'image corrigee de " + t[0]});
  EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  EXPECT_TRUE(std::filesystem::is_empty(d / "corr"));
}

// Inputs whose samples, as float, take three times the ceiling: the run stays under the ceiling plus
// the process's own constant (code, libraries, the statistics and the system: under 48 MiB here). The
// same through the phases, each its own process, a COG: the assembly streams the parts (which hold the
// rows' samples for the overviews, here 2360 x 2360 x 3 floats) rather than holding them.
TEST(JobMosaique, MemoireSousLePlafond) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer's shadow memory and quarantine are not the job's memory";
#endif
  const double plafond = 16;
  const struct {
    int n;
    const char* options;
    std::vector<std::string> etapes;
  } cas[] = {{1024, "", {""}},
             {1200,
              " --cog --travail w --etape ",
              {"observer --index 1", "observer --index 2", "observer --index 3", "observer --index 4",
               "resoudre", "composer --partie 1/1", "assembler"}}};
  for (const auto& c : cas) {
    SCOPED_TRACE(c.n);
    test::DossierTemp d;
    Tuiles(d.chemin(), c.n);
    ASSERT_GE(4.0 * c.n * c.n * kBandes * 4 / (1 << 20), 3 * plafond);
    const std::string job = std::string("exec '") + EGALISE_EXE +
                            "' mosaique t00.tif t01.tif t10.tif t11.tif -o m.tif --tuile 128 --quiet "
                            "--memoire 16" +
                            c.options;
    for (const std::string& etape : c.etapes) {
      long kio = 0;
      const test::Resultat r = test::Lancer(d.chemin(), job + etape, kio);
      EXPECT_EQ(r.statut, 0) << etape << " " << r.sortie;
      EXPECT_LT(kio / 1024.0, plafond + 48) << etape << " : pic " << kio / 1024.0 << " Mio";
    }
    EXPECT_TRUE(std::filesystem::exists(d / "m.tif"));
  }
}

// Multi-band blending holds every input a window reaches at once: 3 x 3 tiles with a 64-pixel blend,
// whose windows grown by the pyramids' margin reach all nine. Priced as four, the run went past the
// ceiling (326 Mio at --memoire 200); it stays under it, with the mosaic of a larger ceiling.
TEST(JobMosaique, MultibandeSousLePlafond) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer's shadow memory and quarantine are not the job's memory";
#endif
  test::DossierTemp d;
  Tuiles(d.chemin(), 400, 80, 3, 3);
  std::string job = std::string("exec '") + EGALISE_EXE + "' mosaique";
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) job += " t" + std::to_string(i) + std::to_string(j) + ".tif";
  job += " --fusion multibande --plume " + std::to_string(64 * kPas) + " --tuile 128 --quiet --memoire ";
  for (const int plafond : {200, 1024}) {
    long kio = 0;
    const test::Resultat r = test::Lancer(
        d.chemin(), job + std::to_string(plafond) + " -o m" + std::to_string(plafond) + ".tif", kio);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    EXPECT_LT(kio / 1024.0, plafond + 48) << "pic " << kio / 1024.0 << " Mio";
  }
  EXPECT_TRUE(test::LireFichier(d / "m200.tif") == test::LireFichier(d / "m1024.tif"));
}

// Many inputs: what reading one keeps between two windows (its decoded block) goes once the job is
// done with it, so that the peak does not grow with their number. 100 images of 100 x 100 pixels in
// one TIFF tile of 512 x 512 each: kept, their decoded blocks alone would weigh 75 Mio.
TEST(JobMosaique, MemoireSousLePlafondAvecBeaucoupDEntrees) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer's shadow memory and quarantine are not the job's memory";
#endif
  test::DossierTemp d;
  OptionsEcriture o;
  o.tuile = 512;
  std::string noms;
  for (int i = 0; i < 10; ++i)
    for (int j = 0; j < 10; ++j) {
      const std::string nom = "t" + std::to_string(i) + std::to_string(j) + ".tif";
      Uniforme(d / nom, o, 100, kBandes, static_cast<float>(50 + i + j), Grille(90 * j, 90 * i));
      noms += nom + " ";
    }
  const double plafond = 32;
  const struct { const char* options; } cas[] = {{""}, {"--noegal"}, {"--noegal --corriges c"}};
  std::filesystem::create_directory(d / "c");
  for (const auto& c : cas) {
    SCOPED_TRACE(c.options);
    std::filesystem::remove(d / "m.tif");
    long kio = 0;
    const test::Resultat r = test::Lancer(d.chemin(),
                                          std::string("exec '") + EGALISE_EXE + "' mosaique " + noms +
                                              "-o m.tif --quiet --threads 2 --memoire " +
                                              std::to_string(int(plafond)) + " " + c.options,
                                          kio);
    EXPECT_EQ(r.statut, 0) << r.sortie;
    EXPECT_LT(kio / 1024.0, plafond + 48) << "pic " << kio / 1024.0 << " Mio";
    EXPECT_TRUE(std::filesystem::exists(d / "m.tif"));
  }
}

// Another grid: a coarser output pixel is the mean of the input pixels in it (rounded to the 8-bit
// output) by default, nearest when asked; bilinear on a grid twice finer lies between the four input
// pixels around each centre. Asked for at a ratio that is not whole, coarser or finer, the mean weighs
// each input pixel by the area of it the output pixel covers, as gdalwarp -r average does.
TEST(JobMosaique, ReechantillonnageVersUneAutreGrille) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const TTImage<float> e(t[0].c_str());
  const auto moyenne = [&](int x, int y, int b) {
    return std::round(
        (e(2 * x, 2 * y, b) + e(2 * x + 1, 2 * y, b) + e(2 * x, 2 * y + 1, b) + e(2 * x + 1, 2 * y + 1, b)) /
        4);
  };
  const auto bilineaire = [&](int x, int y, int b) {
    const double u = (x + 0.5) / 2 - 0.5, v = (y + 0.5) / 2 - 0.5;
    const int k = static_cast<int>(std::floor(u)), r = static_cast<int>(std::floor(v));
    const double fx = u - k, fy = v - r;
    return (1 - fy) * ((1 - fx) * e(k, r, b) + fx * e(k + 1, r, b)) +
           fy * ((1 - fx) * e(k, r + 1, b) + fx * e(k + 1, r + 1, b));
  };
  // Output pixel (x, y) at s input pixels a side: [s x, s (x + 1)) x [s y, s (y + 1)).
  const auto aire = [&](double s) {
    return [&e, s](int x, int y, int b) {
      double somme = 0, poids = 0;
      for (int r = static_cast<int>(std::floor(s * y)); r < std::ceil(s * (y + 1)); ++r)
        for (int k = static_cast<int>(std::floor(s * x)); k < std::ceil(s * (x + 1)); ++k) {
          const double a = (std::min(s * (x + 1), k + 1.0) - std::max(s * x, 1.0 * k)) *
                           (std::min(s * (y + 1), r + 1.0) - std::max(s * y, 1.0 * r));
          somme += a * e(k, r, b);
          poids += a;
        }
      return somme / poids;
    };
  };
  const struct {
    const char* methode;
    double pas;
    std::function<double(int, int, int)> attendu;
    int marge;  // output pixels left out at each border
    double tolerance;
  } cas[] = {{"", 2 * kPas, moyenne, 0, 0.51},
             {"moyenne", 1.5 * kPas, aire(1.5), 1, 1e-3},
             {"moyenne", 0.7 * kPas, aire(0.7), 1, 1e-3},
             {"proche", 2 * kPas, [&](int x, int y, int b) { return e(2 * x + 1, 2 * y + 1, b); }, 0, 0.51},
             {"bilineaire", kPas / 2, bilineaire, 2, 1e-3}};
  for (const auto& c : cas) {
    ParametresMosaique p = test::Parametres({t[0]}, d / "g.tif");
    p.noegal = true;
    p.resolutionX = p.resolutionY = c.pas;
    p.reechantillonnage = c.methode;
    if (c.tolerance < 0.5) p.ecriture.type = eFloat4;
    JobMosaique(p).Executer();
    const TTImage<float> m((d / "g.tif").c_str());
    const int n = static_cast<int>(std::ceil(kN * kPas / c.pas - 1e-9));  // a partial last pixel counts
    ASSERT_EQ(m.iGetNbColonnes(), n) << c.methode;
    long differents = 0;
    for (int y = c.marge; y < n - c.marge; ++y)
      for (int x = c.marge; x < n - c.marge; ++x)
        for (int b = 0; b < kBandes; ++b)
          differents += std::fabs(m(x, y, b) - c.attendu(x, y, b)) > c.tolerance;
    EXPECT_EQ(differents, 0) << c.methode;
  }
}

// Infinite samples of float inputs hold no data, as NaN ones: they reach neither the statistics nor the
// blend, where one would have spread over every level of the pyramids, and the mosaic is finite.
TEST(JobMosaique, EchantillonsInfinisSansDonnee) {
  test::DossierTemp d;
  const std::vector<std::string> t =
      PaireFlottante(d.chemin(), kBandes, [](int j, int y, int c0, std::vector<float>& ligne) {
        for (int x = 0; x < kN; ++x)
          for (int b = 0; b < kBandes; ++b) ligne[x * kBandes + b] = static_cast<float>(Verite(b, c0 + x, y));
        // One infinite sample in the overlap, one outside.
        if (j == 0 && y == 50) ligne[(kN - 10) * kBandes] = INFINITY;
        if (j == 1 && y == 10) ligne[(kN - 10) * kBandes + 1] = -INFINITY;
      });
  const std::pair<const char*, const char*> cas[] = {{"gain-offset", "plume"},
                                                     {"gain-offset", "multibande"},
                                                     {"additif", "moyenne"},
                                                     {"additif", "multibande"}};
  for (const auto& [modele, fusion] : cas) {
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.modele = modele;
    p.fusion = fusion;
    JobMosaique(p).Executer();
    EXPECT_EQ(Compter(d / "m.tif", NonFini), 0) << modele << " " << fusion;
    // The pixel outside the overlap is no-data on every band.
    EXPECT_LE(Compter(d / "m.tif", [](float v) { return v == 0; }), kBandes) << modele << " " << fusion;
  }
}

// A feathering wider than the images: the weights' window reaches one pixel beyond the image at most,
// and the memory plan counts no more (it counted the image grown by the width on each side: refused at
// --memoire 64 from 4 images' width, and beyond, an allocation of that size). Beyond a million input
// pixels the width is refused by its option.
TEST(JobMosaique, PlumePlusLargeQueLesImages) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const struct {
    double pixels;  // the width, in input pixels
    const char* message;
  } cas[] = {{4.0 * kN, ""}, {1000.0 * kN, ""}, {2e6, "--plume 1000000 : 2000000 pixels des entrees"}};
  const auto valide = [](float v) { return v != 0; };
  ParametresMosaique p = test::Parametres(t, d / "m.tif");
  p.fusion = "voronoi";
  JobMosaique(p).Executer();
  const long couverts = Compter(d / "m.tif", valide);
  for (const auto& c : cas) {
    SCOPED_TRACE(c.pixels);
    p.fusion = "plume";
    p.plume = c.pixels * kPas;
    p.memoireMio = 64;
    if (*c.message) {
      test::Refuse([&] { JobMosaique(p).Executer(); }, "", {c.message});
      continue;
    }
    JobMosaique(p).Executer();
    EXPECT_EQ(Compter(d / "m.tif", valide), couverts);
    EXPECT_EQ(Compter(d / "m.tif", [](float v) { return !std::isfinite(v); }), 0);
  }
}

// Float tiles near the float limit, the second at half the first's level with one spot at the limit
// outside the overlap: its gain goes above 1 and carries that spot past the largest float. The mosaic
// and the corrected images hold it there, never an infinity.
TEST(JobMosaique, ValeursAuBordDesFlottants) {
  test::DossierTemp d;
  std::filesystem::create_directory(d / "corr");
  const std::vector<std::string> t =
      PaireFlottante(d.chemin(), 1, [](int j, int y, int c0, std::vector<float>& ligne) {
        for (int x = 0; x < kN; ++x)
          ligne[x] = static_cast<float>((j == 0 ? 1e36 : 0.5e36) * Verite(0, c0 + x, y));
        if (j == 1 && y < 10) std::fill(ligne.end() - 10, ligne.end(), 3.3e38f);
      });
  for (const char* fusion : {"plume", "multibande", "moyenne"}) {
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.fusion = fusion;
    p.corriges = d / "corr";
    JobMosaique(p).Executer();
    for (const std::string& f : {d / "m.tif", d / "corr/f1.tif"}) {
      EXPECT_EQ(Compter(f, NonFini), 0) << fusion << " " << f;
      EXPECT_EQ(Compter(f, [](float v) { return v == std::numeric_limits<float>::max(); }), 100)
          << fusion << " " << f;
    }
  }
}

// Every malformed file, georeferenced by a world file, is refused by the job with a message that names
// it, whether the reader's own message does or not.
TEST(JobMosaique, FichiersMalformesNommes) {
  test::DossierTemp d;
  const std::string dossier = std::string(ZEPRA_SOURCE_DIR) + "/tests/image/malformes/";
  for (const std::string& n : test::Lignes(test::Lancer(dossier, "ls *.tif").sortie)) {
    const std::string entree = d / n;
    std::filesystem::copy_file(dossier + n, entree, std::filesystem::copy_options::overwrite_existing);
    std::ofstream(entree.substr(0, entree.size() - 4) + ".tfw") << "0.5\n0\n0\n-0.5\n650000.25\n6860000\n";
    ParametresMosaique p = test::Parametres({entree}, d / "m.tif");
    p.noegal = true;
    const std::string texte = test::TexteErreur([&] { JobMosaique(p).Executer(); });
    EXPECT_NE(texte.find(entree), std::string::npos) << n << " : " << texte;
    // One place where it was raised, at the end.
    EXPECT_EQ(texte.find(" (Fichier : "), texte.rfind(" (Fichier : ")) << n << " : " << texte;
    EXPECT_FALSE(std::filesystem::exists(d / "m.tif")) << n;
  }
}

// Records the stages announced and the warnings.
struct Suivi : SuiviMosaique {
  std::string etapes;
  std::vector<std::string> textes;
  void Etape(const std::string& nom) override { etapes += nom + ";"; }
  void Avertissement(const std::string& t) override { textes.push_back(t); }
};

// What the job warns about, on its progress interface and in the report: an image that overlaps no
// other or too narrowly to be observed, a pair whose overlap shows different content (an image set aside
// whole, another place's or a constant one, gets only these), inputs far apart, an image with no valid
// pixel, an extent that misses every input. The stages announced on the progress interface: only those that
// do something.
TEST(JobMosaique, EtapesAnnoncees) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const struct {
    const char* modele;
    bool noegal;
    const char* etapes;
  } cas[] = {
      {"gain-offset", false, "preparation;observation;resolution;composition;"},
      {"additif", false, "preparation;resolution;composition;"},
      {"gain-offset", true, "preparation;composition;"},
      {"additif", true, "preparation;composition;"},
  };
  for (const auto& c : cas) {
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.modele = c.modele;
    p.noegal = c.noegal;
    Suivi s;
    JobMosaique(p, &s).Executer();
    EXPECT_EQ(s.etapes, c.etapes) << c.modele << " " << c.noegal;
  }
}

TEST(JobMosaique, Avertissements) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  OptionsEcriture o;
  o.nodataPresent = true;
  o.nodata = 0;
  Uniforme(d / "loin.tif", o, kN, kBandes, 80, Grille(4000, 0));
  Uniforme(d / "vide.tif", o, kN, kBandes, std::nanf(""), Grille(60, 60));  // NaN: written as no-data
  Uniforme(d / "constante.tif", o, kN, kBandes, 90, Grille(60, 60));
  // In t11's place, the content of another place.
  EcrireTuile(d / "ailleurs.tif", 1, 1, kN, 1000);
  std::filesystem::copy_file(t[3], d / "copie.tif");
  // Beside t01, overlapping it by 3 pixels: less than a block.
  Uniforme(d / "mince.tif", o, kN, kBandes, 80, Grille(2 * kN - kRecouvrement - 3, 0));
  const std::string kUniforme =
      " ne montrent pas le meme contenu sur leur recouvrement (bandes 1, 2, 3 : correlation des variations "
      "d'un bloc au suivant 0.00 sur ";
  const struct {
    std::vector<std::string> entrees;
    bool emprise;
    std::vector<std::string> attendus;
  } cas[] = {
      {t, false, {}},
      {{t[0], t[1], t[2], t[3], d / "loin.tif"},
       false,
       {"Les entrees ne couvrent que ",
        "L'image " + d / "loin.tif" + " ne recouvre aucune autre image : elle garde ses valeurs."}},
      {{t[0], t[1], t[2], t[3], d / "vide.tif"},
       false,
       {"L'image " + d / "vide.tif" + " n'a aucun pixel valide."}},
      {{t[0], t[1], t[2], t[3], d / "mince.tif"},
       false,
       {"L'image " + d / "mince.tif" + " recouvre " + t[1] +
        " (sur 3 x 160 pixels au plus) mais aucun bloc de 16 x 16 pixels n'y est valide a 90 % dans les "
        "deux images (recouvrement trop etroit, masque ou sans donnee) : elle garde ses valeurs."}},
      {{t[0], t[1], t[2], d / "ailleurs.tif"},
       false,
       {"Les images " + t[1] + " et " + d / "ailleurs.tif" +
            " ne montrent pas le meme contenu sur leur recouvrement (bandes 1, 2, 3 : correlation des "
            "variations d'un bloc au suivant -0.",
        "Les images " + t[2] + " et " + d / "ailleurs.tif" +
            " ne montrent pas le meme contenu sur leur recouvrement (bandes 1, 2, 3 : correlation des "
            "variations d'un bloc au suivant -0."}},
      {{t[0], t[1], t[2], t[3], d / "constante.tif"},
       false,
       {"Les images " + t[0] + " et " + d / "constante.tif" + kUniforme,
        "Les images " + t[1] + " et " + d / "constante.tif" + kUniforme,
        "Les images " + t[2] + " et " + d / "constante.tif" + kUniforme,
        "Les images " + t[3] + " et " + d / "constante.tif" + kUniforme}},
      {{t[0], t[1], t[2], t[3], d / "copie.tif"},
       false,
       {"Les images " + t[3] + " et " + d / "copie.tif" +
        " couvrent exactement la meme emprise : la meme image sous deux noms ?"}},
      // An extent leaves out what it does not cover: inputs outside it are not said to have no valid
      // pixel, nor an input to overlap another outside it.
      {t, true, {"L'emprise demandee ne recouvre aucune entree : la mosaique sera vide."}},
      {t, true, {"L'image " + t[0] + " ne recouvre aucune autre image : elle garde ses valeurs."}},
  };
  // Beside the block; t00 alone.
  const double emprises[2][4] = {{kX0 - 100, kY0 + 50, kX0 - 50, kY0 + 100},
                                 {kX0, kY0 - 110 * kPas, kX0 + 110 * kPas, kY0}};
  int emprise = 0;
  for (const auto& c : cas) {
    ParametresMosaique p = test::Parametres(c.entrees, d / "m.tif");
    if (c.emprise) {
      p.empriseDonnee = true;
      std::copy(emprises[emprise], emprises[emprise] + 4, p.emprise);
      ++emprise;
    }
    Suivi s;
    JobMosaique job(p, &s);
    job.Executer();
    const std::string rapport = job.RapportJson({});
    ASSERT_EQ(s.textes.size(), c.attendus.size())
        << c.entrees.size() << (s.textes.empty() ? "" : s.textes[0]);
    for (size_t k = 0; k < s.textes.size(); ++k) {
      EXPECT_TRUE(test::Commence(s.textes[k], c.attendus[k])) << s.textes[k];
      EXPECT_NE(rapport.find(c.attendus[k]), std::string::npos) << c.attendus[k];
    }
  }
}

// Inputs that give the historical models no observation, outside the extent asked for or without a
// valid pixel, keep their values and change nothing: the mosaic is the one made without them. (Each
// was a column of zeros in the system, which then could not be solved.)
TEST(JobMosaique, ModelesHistoriquesEtEntreesSansObservation) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  OptionsEcriture o;
  o.nodataPresent = true;
  o.nodata = 0;
  Uniforme(d / "vide.tif", o, kN, kBandes, std::nanf(""), Grille(60, 60));  // NaN: written as no-data
  // The first row of tiles, short of the second's.
  const double rangee[4] = {kX0, kY0 - 110 * kPas, kX0 + (2 * kN - kRecouvrement) * kPas, kY0};
  const struct {
    std::vector<std::string> entrees, observees;
    bool emprise;
  } cas[] = {
      {t, {t[0], t[1]}, true},
      {{t[0], t[1], d / "vide.tif", t[2], t[3]}, t, false},
  };
  for (const char* modele : {"additif", "multiplicatif"})
    for (const auto& c : cas) {
      SCOPED_TRACE(std::string(modele) + " " + std::to_string(c.entrees.size()));
      const auto mosaique = [&](const std::vector<std::string>& entrees, const std::string& sortie) {
        ParametresMosaique p = test::Parametres(entrees, sortie);
        p.modele = modele;
        p.pas = 4;  // by default, from the smallest overlap of all inputs
        p.empriseDonnee = c.emprise;
        std::copy(rangee, rangee + 4, p.emprise);
        JobMosaique(p).Executer();
      };
      ASSERT_NO_THROW(mosaique(c.entrees, d / "m.tif"));
      mosaique(c.observees, d / "observees.tif");
      EXPECT_EQ(test::LireFichier(d / "m.tif"), test::LireFichier(d / "observees.tif"));
    }
}

// A sheet cut by --emprise from a block of 6 tiles is the sheet its 3 tiles alone make: the tiles left
// out count neither in the solve nor for the degrees chosen from the number of images (6 would give
// degree 2, 3 give 0), and get no corrected image.
TEST(JobMosaique, FeuilleDUnBlocCommeSesSeulesTuiles) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin(), kN, kRecouvrement, 2, 3);
  const double rangee[4] = {kX0, kY0 - 110 * kPas, kX0 + (3 * kN - 2 * kRecouvrement) * kPas, kY0};
  const auto feuille = [&](const std::vector<std::string>& entrees, const std::string& sortie) {
    std::filesystem::remove_all(d / "c");
    std::filesystem::create_directory(d / "c");
    ParametresMosaique p = test::Parametres(entrees, sortie);
    p.empriseDonnee = true;
    std::copy(rangee, rangee + 4, p.emprise);
    p.corriges = d / "c";
    JobMosaique(p).Executer();
  };
  feuille(t, d / "bloc.tif");
  for (size_t i = 0; i < t.size(); ++i)
    EXPECT_EQ(std::filesystem::exists(d / ("c/" + t[i].substr(t[i].rfind('/') + 1))), i < 3) << t[i];
  feuille({t[0], t[1], t[2]}, d / "seules.tif");
  EXPECT_TRUE(test::LireFichier(d / "bloc.tif") == test::LireFichier(d / "seules.tif"));
}

// Blocks of 6 and 8 tiles: with the degrees chosen from their number (2) and the prior learnt from the
// data, tiles that differ in level only are corrected to the rounding, as degree 1 now does, and a
// lens's fall-off shared by every tile (a degree-2 gain, which degree 1, the former choice, made worse
// than no correction) is mostly removed. Plain RMSE against the truth, every band, against degree 1
// and against no correction.
TEST(JobMosaique, ReglagesAutomatiquesDe6A8Images) {
  test::DossierTemp d;
  const struct {
    int colonnes;
    double vignettage, contreUn, contreSans;
  } cas[] = {{3, 0, 1.2, 0.1}, {4, 0, 1.2, 0.1}, {3, 0.15, 0.4, 0.75}, {4, 0.15, 0.4, 0.75}};
  for (const auto& c : cas) {
    const std::vector<std::string> t =
        Tuiles(d.chemin(), kN, kRecouvrement, 2, c.colonnes, "t", c.vignettage);
    const auto ecarts = [&](int degre, bool noegal) {
      ParametresMosaique p = test::Parametres(t, d / "m.tif");
      p.noegal = noegal;
      if (degre >= 0) p.gainOffset.degreGain = p.gainOffset.degreOffset = degre;
      return Ecarts(p);
    };
    const std::vector<double> automatique = ecarts(-1, false), un = ecarts(1, false), sans = ecarts(-1, true);
    for (int b = 0; b < kBandes; ++b) {
      const std::string quoi = std::to_string(t.size()) + " tuiles, vignettage " +
                               std::to_string(c.vignettage) + ", bande " + std::to_string(b + 1);
      EXPECT_LT(automatique[b], c.contreUn * un[b]) << quoi;
      EXPECT_LT(automatique[b], c.contreSans * sans[b]) << quoi;
    }
  }
}

// Groups of tiles that no chain of overlaps ties are solved apart, each as a job of its own tiles
// would solve it, but with the job's degrees: two blocks far apart (the second 1024 pixels to the
// right, a whole number of blocks), solved in one job and each alone. A group of 6 tiles or more gets
// the very coefficients of its lone run; a smaller one, in a job of 6 or more, keeps the job's degree 2
// (with the set prior) where alone it would get 0: on the disconnected benchmark preset its own degree
// left the pair's overlap 1.56 to 2.07 against a floor of 1.47 (bench/README.md, "Degrees on small
// blocks"). Each lone run is given the whole run's grid over its tiles (its extent ending where the whole
// grid's blocks do): a block cut by the grid's edge is observed where the same block whole, half
// covered, is not.
TEST(JobMosaique, GroupesDeconnectesResolusCommeSeulsAuDegreDuJob) {
  test::DossierTemp d;
  const struct {
    int lignesA, colonnesA, lignesB, colonnesB;
  } cas[] = {{2, 2, 2, 2}, {2, 3, 1, 2}, {2, 3, 2, 3}};
  // The numbers of a correction in the report, in order.
  const auto nombres = [](const std::string& json) {
    std::vector<double> v;
    for (const char* c = json.c_str(); *c;) {
      char* fin = nullptr;
      const double x = std::strchr("-.0123456789", *c) ? std::strtod(c, &fin) : 0;
      if (fin && fin != c) {
        v.push_back(x);
        c = fin;
      } else {
        ++c;
      }
    }
    return v;
  };
  for (const auto& c : cas) {
    const std::string quoi = std::to_string(c.lignesA) + " x " + std::to_string(c.colonnesA) + " et " +
                             std::to_string(c.lignesB) + " x " + std::to_string(c.colonnesB);
    SCOPED_TRACE(quoi);
    const std::vector<std::string> a = Tuiles(d.chemin(), kN, kRecouvrement, c.lignesA, c.colonnesA, "a"),
                                   b = Tuiles(d.chemin(), kN, kRecouvrement, c.lignesB, c.colonnesB, "b", 0,
                                              1024);
    std::vector<std::string> toutes = a;
    toutes.insert(toutes.end(), b.begin(), b.end());
    const int largeurA = kN + (c.colonnesA - 1) * (kN - kRecouvrement),
              largeurB = kN + (c.colonnesB - 1) * (kN - kRecouvrement),
              hauteur = kN + (std::max(c.lignesA, c.lignesB) - 1) * (kN - kRecouvrement);
    const auto seul = [&](const std::vector<std::string>& tuiles, const std::string& sortie, int c0, int c1) {
      ParametresMosaique p = test::Parametres(tuiles, sortie);
      p.empriseDonnee = true;
      p.emprise[0] = kX0 + c0 * kPas;
      p.emprise[1] = kY0 - hauteur * kPas;
      p.emprise[2] = kX0 + c1 * kPas;
      p.emprise[3] = kY0;
      return p;
    };
    JobMosaique ensemble(test::Parametres(toutes, d / "m.tif")),
        seulA(seul(a, d / "a.tif", 0, (largeurA + 15) / 16 * 16)),
        seulB(seul(b, d / "b.tif", 1024, 1024 + largeurB));
    ensemble.Executer();
    seulA.Executer();
    seulB.Executer();
    const RapportMosaique& r = ensemble.Rapport();
    ASSERT_EQ(r.entrees.size(), toutes.size());
    for (size_t k = 0; k < toutes.size(); ++k) {
      const bool deA = k < a.size();
      const RapportMosaique::Entree& seule =
          deA ? seulA.Rapport().entrees[k] : seulB.Rapport().entrees[k - a.size()];
      EXPECT_EQ(r.entrees[k].groupe, deA ? r.entrees[0].groupe : r.entrees.back().groupe) << toutes[k];
      const std::vector<double> x = nombres(r.entrees[k].correction), y = nombres(seule.correction);
      if ((deA ? a : b).size() < 6) {
        // Gain and offset, 3 bands: 6 terms each at degree 2, 1 at degree 0.
        EXPECT_EQ(x.size(), 36u) << toutes[k] << " " << r.entrees[k].correction;
        EXPECT_EQ(y.size(), 6u) << toutes[k] << " " << seule.correction;
        continue;
      }
      ASSERT_EQ(x.size(), y.size()) << toutes[k] << "\n"
                                    << r.entrees[k].correction << "\n"
                                    << seule.correction;
      for (size_t t = 0; t < x.size(); ++t)
        EXPECT_NEAR(x[t], y[t], 1e-9 * (1 + std::fabs(y[t]))) << toutes[k] << " " << t;
    }
    EXPECT_NE(r.entrees[0].groupe, r.entrees.back().groupe);
    for (const std::string& f : toutes) std::filesystem::remove(f);
  }
}

// The report's overlap figures cover the pairs compared: with a tile of another place added and set
// aside, the same blocks as without it before correction, and nearly the same after (the group's
// constant gain counts it); the set-aside pairs and blocks are counted, in one run and in phases.
TEST(JobMosaique, RapportSurLesPairesComparees) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  EcrireTuile(d / "ailleurs.tif", 1, 1, kN, 1000);
  ParametresMosaique sans = test::Parametres({t[0], t[1], t[2]}, d / "m.tif"), avec = sans;
  avec.entrees.push_back(d / "ailleurs.tif");
  JobMosaique a(sans), b(avec);
  a.Executer();
  b.Executer();
  const RapportMosaique &ra = a.Rapport(), &rb = b.Rapport();
  ASSERT_EQ(ra.bandes.size(), static_cast<size_t>(kBandes));
  ASSERT_EQ(rb.bandes.size(), static_cast<size_t>(kBandes));
  // Its overlaps, from pixel 120 to 160 across and to the mosaic's edge at 280 along with t01 and t10,
  // from 120 to 160 both ways with t00: the blocks of 16 x 16 pixels of the mosaic's grid wholly inside
  // (the last one cut by the edge), 2 x 10 and 2 x 2.
  const long long blocs = 2 * 2 * 10 + 2 * 2;
  for (int k = 0; k < kBandes; ++k) {
    const RapportMosaique::Bande &x = ra.bandes[k], &y = rb.bandes[k];
    EXPECT_GT(x.rmseAvant, 3 * x.rmseApres) << k;
    EXPECT_NEAR(y.rmseAvant, x.rmseAvant, 1e-9 * x.rmseAvant) << k;
    EXPECT_NEAR(y.rmseApres, x.rmseApres, 0.2 * x.rmseApres + 0.01) << k;
    EXPECT_EQ(x.pairesEcartees, 0) << k;
    EXPECT_EQ(x.blocsEcartes, 0) << k;
    EXPECT_EQ(y.pairesEcartees, 3) << k;
    EXPECT_EQ(y.blocsEcartes, blocs) << k;
  }
  const std::string json = b.RapportJson({});
  EXPECT_EQ(test::Occurrences(json, "\"paires_ecartees\": 3, \"blocs_ecartes\": " + std::to_string(blocs)),
            static_cast<size_t>(kBandes))
      << json;
  EXPECT_EQ(test::Occurrences(a.RapportJson({}), "\"paires_ecartees\": 0, \"blocs_ecartes\": 0"),
            static_cast<size_t>(kBandes));
  // The same report from the phases, which hand it over through the work folder.
  avec.sortie = d / "p.tif";
  const RapportMosaique phases = test::EnPhases(avec, d / "travail");
  for (int k = 0; k < kBandes; ++k) {
    EXPECT_EQ(phases.bandes[k].rmseAvant, rb.bandes[k].rmseAvant) << k;
    EXPECT_EQ(phases.bandes[k].rmseApres, rb.bandes[k].rmseApres) << k;
    EXPECT_EQ(phases.bandes[k].pairesEcartees, 3) << k;
    EXPECT_EQ(phases.bandes[k].blocsEcartes, blocs) << k;
  }
}

// An exclusion mask beside the input (its name without extension and the suffix) takes its non-zero
// pixels out: there the mosaic is no-data. One placed on the map must lie where its image does: of the
// same size, the mask of another tile would take out the wrong pixels. (A missing one:
// DossierDeTravailEtFichiersLusAvecLesEntrees.)
TEST(JobMosaique, MasqueDExclusionParSuffixe) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const struct {
    const char* cas;
    int colonne;        // of the block's grid where the mask's grid starts; -1: no grid
    bool annexe;        // the grid in the mask's .aux.xml (as GDAL's BASELINE profile puts it), not its tags
    std::string refus;  // empty: applied
  } cas[] = {
      {"sans grille", -1, false, ""},
      {"sur la grille de l'image", 0, false, ""},
      {"sur celle de la tuile voisine", kN - kRecouvrement, false,
       "[Mosaique] (Entrees) Le masque d'exclusion " + d / "t00_masque.tif"},
      {"sur la grille de l'image, par son .aux.xml", 0, true, ""},
      {"sur celle de la tuile voisine, par son .aux.xml", kN - kRecouvrement, true,
       "[Mosaique] (Entrees) Le masque d'exclusion " + d / "t00_masque.tif"},
  };
  for (const auto& c : cas) {
    std::filesystem::remove(d / "t00_masque.tif.aux.xml");
    if (c.annexe) {
      const GeoreferenceEcriture g = Grille(c.colonne, 0);
      std::ofstream a(d / "t00_masque.tif.aux.xml");
      a.precision(17);
      a << "<PAMDataset>\n  <GeoTransform>" << g.x0 << ", " << g.pasX << ", 0, " << g.y0 << ", 0, " << -g.pasY
        << "</GeoTransform>\n</PAMDataset>\n";
    }
    {
      OptionsEcriture o;
      o.type = eUInt1;
      EcrivainGeoTIFF e(d / "t00_masque.tif", o, TPoint2D<int>(kN, kN), 1, eFloat4,
                        c.colonne < 0 || c.annexe ? GeoreferenceEcriture() : Grille(c.colonne, 0));
      std::vector<float> ligne(kN);
      for (int x = 0; x < kN; ++x) ligne[x] = x < kN / 2 ? 1.0f : 0.0f;
      e.EcrireLignes(eFloat4, ligne.data(), 0, kN);
      e.Terminer();
    }
    std::filesystem::remove(d / "x.tif");
    ParametresMosaique p = test::Parametres({t[0]}, d / "x.tif");
    p.noegal = true;
    p.masqueSuffixe = "_masque.tif";
    if (!c.refus.empty()) {
      try {
        JobMosaique(p).Executer();
        ADD_FAILURE() << c.cas;
      } catch (const Erreur& e) {
        EXPECT_TRUE(test::Commence(e.Phrase(), c.refus)) << c.cas << "\n" << e.Phrase();
      }
      EXPECT_FALSE(std::filesystem::exists(d / "x.tif")) << c.cas;
      continue;
    }
    JobMosaique(p).Executer();
    const TTImage<float> m((d / "x.tif").c_str()), e(t[0].c_str());
    long faux = 0;
    for (int y = 0; y < kN; ++y)
      for (int x = 0; x < kN; ++x)
        for (int b = 0; b < kBandes; ++b) faux += m(x, y, b) != (x < kN / 2 ? 0.0f : e(x, y, b));
    EXPECT_EQ(faux, 0) << c.cas;
  }
}

// A run stopped by SIGINT or SIGTERM (Ctrl-C, a scheduler's end of time) while it writes: it ends by
// that signal, and leaves neither the file it was writing nor a temporary one (the COG's levels, a
// part of the work folder). Each run in a child process, which the signal ends.
TEST(JobMosaique, InterrompuSansFichierLaisse) {
  struct Signal : SuiviMosaique {
    int signal;
    explicit Signal(int s) : signal(s) {}
    void Progression(double) override { raise(signal); }
  };
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const ParametresMosaique base = test::Parametres(t, d / "sortie/m.tif");
  const std::string travail = d / "sortie/travail";
  std::filesystem::create_directories(travail);
  test::ObserverEtResoudre(base, travail);
  const struct {
    const char* cas;
    int signal;
    bool cog, phase;
  } cas[] = {{"un processus", SIGTERM, false, false},
             {"un processus, COG", SIGINT, true, false},
             {"composer", SIGTERM, false, true}};
  for (const auto& c : cas) {
    SCOPED_TRACE(c.cas);
    const pid_t pid = fork();
    if (pid == 0) {
      NettoyerAuxSignaux();
      FixerNbFils(1);
      ParametresMosaique p = base;
      p.ecriture.cog = c.cog;
      Signal s(c.signal);
      JobMosaique job(p, &s);
      if (c.phase)
        job.PhaseComposer(travail, 1, 1);
      else
        job.Executer();
      _exit(0);
    }
    int statut = 0;
    ASSERT_EQ(waitpid(pid, &statut, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(statut) && WTERMSIG(statut) == c.signal) << statut;
    std::string laisses;
    for (const auto& f : std::filesystem::recursive_directory_iterator(d / "sortie"))
      if (f.is_regular_file() && f.path().filename() != "empreinte.txt" &&
          f.path().filename().string().rfind("observation_", 0) != 0 &&
          f.path().filename() != "corrections.bin")
        laisses += f.path().filename().string() + " ";
    EXPECT_EQ(laisses, "");
  }
}

// The assembly takes the parts of whichever N is complete: an earlier cut of the mosaic may have left
// parts of another N, and N may exceed the rows of tiles (280 lines in tiles of 64: 5 rows), some
// parts then empty. The mosaic is that of one process.
TEST(JobMosaique, AssemblageDesPartiesDUnNComplet) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  ParametresMosaique p = test::Parametres(t, d / "un.tif");
  JobMosaique(p).Executer();
  const std::string reference = test::LireFichier(d / "un.tif");
  p.sortie = d / "p.tif";
  const struct {
    std::vector<std::pair<int, int>> parties;  // composed, in this order
    const char* refus;                         // empty: assembled
  } cas[] = {
      {{{1, 7}, {2, 7}, {3, 7}, {4, 7}, {5, 7}, {6, 7}, {7, 7}}, ""},
      {{{1, 2}, {1, 3}, {2, 3}, {3, 3}}, ""},
      {{{2, 3}, {1, 1}, {1, 3}}, ""},
      {{{1, 2}, {1, 3}, {3, 3}}, "La partie 2/2 manque : lancer --etape composer --partie 2/2."},
  };
  int numero = 0;
  for (const auto& c : cas) {
    const std::string w = d / ("w" + std::to_string(numero++));
    test::ObserverEtResoudre(p, w);
    for (const auto& [k, n] : c.parties) JobMosaique(p).PhaseComposer(w, k, n);
    std::filesystem::remove(p.sortie);
    if (*c.refus) {
      test::Refuse([&] { JobMosaique(p).PhaseAssembler(w); }, "[Mosaique] (Assembler) ", {c.refus});
      EXPECT_FALSE(std::filesystem::exists(p.sortie));
      continue;
    }
    JobMosaique(p).PhaseAssembler(w);
    EXPECT_TRUE(test::LireFichier(p.sortie) == reference) << numero;
  }
}

// Hundreds of tiles each keep their file open. Here 100 small ones under a limit of 64 open files:
// the tool raises its soft limit up to the hard one and runs; a hard limit too low is named before any
// pixel, not taken for a file that cannot be opened.
TEST(JobMosaique, LimiteDesFichiersOuverts) {
  test::DossierTemp d;
  std::string noms;
  for (int k = 0; k < 100; ++k) {
    const std::string nom = "u" + std::to_string(k) + ".tif";
    Uniforme(d / nom, OptionsEcriture(), 32, 1, 50 + k % 7, Grille(24 * (k % 10), 24 * (k / 10)));
    noms += nom + " ";
  }
  const struct {
    const char* limite;
    const char* message;  // empty: the run succeeds
  } cas[] = {
      {"ulimit -S -n 64", ""},
      {"ulimit -n 64", "egalise mosaique : [Mosaique] (Entrees) Trop de fichiers ouverts a l'image u"},
      {"ulimit -n 130", "egalise mosaique : [Mosaique] (Entrees) Trop de fichiers ouverts : les 100 images"}};
  for (const auto& c : cas) {
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizers' runtime reads files of its own to check types: it fails first at the limit.
    if (*c.message) continue;
#endif
    std::filesystem::remove(d / "m.tif");
    const test::Resultat r =
        test::Lancer(d.chemin(), std::string(c.limite) + " && '" + EGALISE_EXE + "' mosaique " + noms +
                                     "-o m.tif --quiet --threads 2");
    EXPECT_EQ(r.statut, *c.message ? 1 : 0) << c.limite << "\n" << r.sortie;
    EXPECT_TRUE(test::Commence(r.sortie, c.message)) << c.limite << "\n" << r.sortie;
    EXPECT_EQ(std::filesystem::exists(d / "m.tif"), !*c.message) << c.limite;
  }
}

// The fingerprint of the work folder covers the files read beside each input as it covers the inputs:
// one changed, added or removed between two phases makes the folder another job's, and the phase
// writes nothing; left alone, the next phase goes on with the results there.
TEST(JobMosaique, DossierDeTravailEtFichiersLusAvecLesEntrees) {
  test::DossierTemp d;
  using Changement = std::function<void(const std::string&)>;  // on tile t00, given without ".tif"
  const Changement rien = [](const std::string&) {};
  const auto masque = [](const std::string& nom, float valeur) {
    Uniforme(nom + ".tif", OptionsEcriture(), kN, 1, valeur);
    std::filesystem::rename(nom + ".tif", nom);
  };
  const auto ecrire = [](const std::string& suffixe, const std::string& texte) {
    return [=](const std::string& t) { test::EcrireFichier(t + suffixe, texte); };
  };
  const auto retirer = [](const std::string& suffixe) {
    return [=](const std::string& t) { std::filesystem::remove(t + suffixe); };
  };
  // t00's grid, as its tags give it.
  const std::string monde = "0.5\n0\n0\n-0.5\n650000.25\n6859999.75\n";
  const Changement ori = [](const std::string& t) {
    OrientationOld(eORICarto, kX0, kY0, 0, kN, kN, kPas, kPas).Sauver((t + ".ori").c_str());
  };
  const Changement msk = [&](const std::string& t) { masque(t + ".tif.msk", 255); };
  const std::string prj = CrsDepuisEpsg(2154).wkt;
  const std::string autre =
      "egalise mosaique : [Mosaique] (Travail) Le dossier de travail w appartient a un autre calcul "
      "(entrees ou options differentes).\n";
  const struct {
    const char* cas;
    Changement avant, apres;
    std::string refus;  // empty: the phase goes on
  } cas[] = {
      {"rien", rien, rien, ""},
      {".msk ajoute", rien, msk, autre},
      {".msk modifie", msk, [&](const std::string& t) { masque(t + ".tif.msk", 1); }, autre},
      {".msk retire", msk, retirer(".tif.msk"), autre},
      {"masque d'exclusion modifie", rien, [&](const std::string& t) { masque(t + "_m.tif", 1); }, autre},
      {"masque d'exclusion retire", rien, retirer("_m.tif"),
       "egalise mosaique : [Mosaique] (Entrees) Le masque d'exclusion t00_m.tif de l'image t00.tif n'existe "
       "pas.\n"},
      {".tfw ajoute", rien, ecrire(".tfw", monde), autre},
      {".TFW ajoute", rien, ecrire(".TFW", monde), autre},
      {".wld ajoute", rien, ecrire(".wld", monde), autre},
      {".tfw modifie", ecrire(".tfw", monde), ecrire(".tfw", "0.50\n0\n0\n-0.50\n650000.25\n6859999.75\n"),
       autre},
      {".tfw retire", ecrire(".tfw", monde), retirer(".tfw"), autre},
      {".prj ajoute", ecrire(".tfw", monde), ecrire(".prj", prj), autre},
      {".prj modifie",
       [&](const std::string& t) {
         test::EcrireFichier(t + ".tfw", monde);
         test::EcrireFichier(t + ".prj", prj);
       },
       ecrire(".prj", prj + "\n"), autre},
      {".ori ajoute", rien, ori, autre},
      {".ori reecrit", ori, ori, autre},
      {".ori retire", ori, retirer(".ori"), autre},
      {".xml ajoute pres du .ori", ori, ecrire(".xml", "<FileOriMnt/>"), autre},
      {".hdr ajoute pres du .ori", ori, ecrire(".hdr", "MAPUNITS"), autre},
  };
  const std::string job =
      "mosaique t00.tif t01.tif t10.tif t11.tif -o p.tif --quiet --epsg 2154 "
      "--masque-suffixe _m.tif --travail w --etape ";
  // The names and sizes of the files in the work folder.
  const auto contenu = [](const std::string& w) {
    std::set<std::pair<std::string, uintmax_t>> f;
    for (const auto& e : std::filesystem::directory_iterator(w))
      f.insert({e.path().filename().string(), e.file_size()});
    return f;
  };
  int numero = 0;
  for (const auto& c : cas) {
    SCOPED_TRACE(c.cas);
    const std::string dossier = d / std::to_string(numero++);
    std::filesystem::create_directory(dossier);
    for (const std::string& t : Tuiles(dossier)) masque(t.substr(0, t.size() - 4) + "_m.tif", 0);
    const std::string t00 = dossier + "/t00";
    c.avant(t00);
    for (int i = 1; i <= 4; ++i) {
      const test::Resultat r = test::Egalise(dossier, job + "observer --index " + std::to_string(i));
      ASSERT_EQ(r.statut, 0) << r.sortie;
    }
    const auto avant = contenu(dossier + "/w");
    c.apres(t00);
    const test::Resultat r = test::Egalise(dossier, job + "resoudre");
    if (c.refus.empty()) {
      EXPECT_EQ(r.statut, 0) << r.sortie;
      EXPECT_TRUE(std::filesystem::exists(dossier + "/w/corrections.bin"));
    } else {
      EXPECT_EQ(r.statut, 1);
      EXPECT_EQ(r.sortie, c.refus);
      EXPECT_TRUE(contenu(dossier + "/w") == avant);
    }
    EXPECT_FALSE(std::filesystem::exists(dossier + "/p.tif"));
  }
}

// Gives a work file the label of version 1 of the observations, its size left as it is.
void Reetiqueter(const std::string& nom) {
  std::fstream f(nom, std::ios::in | std::ios::out | std::ios::binary);
  f.write("EGOBSV01", 8);
}

// A work folder after an incident: a damaged result is made again by its phase; results whose
// fingerprint was removed, or a garbled fingerprint, are another job's; a file is not a folder.
TEST(JobMosaique, DossierDeTravailApresUnIncident) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const ParametresMosaique p = test::Parametres(t, d / "p.tif");
  const struct {
    const char* cas;
    std::function<void(const std::string&)> incident;
    const char* refus;  // empty: the phases end the job
  } cas[] = {
      {"observation tronquee",
       [](const std::string& w) { std::filesystem::resize_file(w + "/observation_2.bin", 100); }, ""},
      {"partie vide", [](const std::string& w) { std::ofstream(w + "/partie_1_sur_1.bin"); }, ""},
      // Version 1 held every block's sums, not the summary: made again, never read as version 2.
      {"observation de la version 1", [](const std::string& w) { Reetiqueter(w + "/observation_3.bin"); },
       ""},
      {"empreinte retiree", [](const std::string& w) { std::filesystem::remove(w + "/empreinte.txt"); },
       "sans l'empreinte du calcul qui l'a fait : prendre un dossier vide."},
      {"empreinte brouillee", [](const std::string& w) { std::ofstream(w + "/empreinte.txt") << "x"; },
       "appartient a un autre calcul"},
      {"un fichier",
       [](const std::string& w) {
         std::filesystem::remove_all(w);
         std::ofstream(w) << "x";
       },
       "n'est pas un dossier."},
  };
  int numero = 0;
  for (const auto& c : cas) {
    SCOPED_TRACE(c.cas);
    const std::string w = d / ("w" + std::to_string(numero++));
    test::ObserverEtResoudre(p, w);
    std::filesystem::remove(w + "/corrections.bin");
    c.incident(w);
    std::filesystem::remove(p.sortie);
    const auto phases = [&] { test::EnPhases(p, w); };
    if (*c.refus) {
      test::Refuse(phases, "[Mosaique] (Travail) ", {c.refus});
      EXPECT_FALSE(std::filesystem::exists(p.sortie));
    } else {
      phases();
      EXPECT_TRUE(std::filesystem::exists(p.sortie));
    }
  }
  // The solve alone refuses an observation of version 1.
  const std::string w = d / "v1";
  for (int i = 1; i <= 4; ++i) JobMosaique(p).PhaseObserver(w, i);
  Reetiqueter(w + "/observation_1.bin");
  test::Refuse([&] { JobMosaique(p).PhaseResoudre(w); }, "[Mosaique] (Travail) Le fichier ",
               {"observation_1.bin est incomplet ou d'un autre genre."});
}

// One bit changed in the middle of a work file, its length kept: the phase that reads it refuses it by
// name, and no mosaic is written from it (a sum, a coefficient or a compressed block would have given
// a wrong one).
TEST(JobMosaique, FichierDeTravailAuBitChangeRefuse) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const ParametresMosaique p = test::Parametres(t, d / "p.tif");
  const struct {
    const char* fichier;
    std::function<void(const std::string&)> phase;  // the phase that reads it
  } cas[] = {
      {"observation_2.bin", [&](const std::string& w) { JobMosaique(p).PhaseResoudre(w); }},
      {"corrections.bin", [&](const std::string& w) { JobMosaique(p).PhaseComposer(w, 1, 1); }},
      {"partie_1_sur_1.bin", [&](const std::string& w) { JobMosaique(p).PhaseAssembler(w); }},
  };
  int numero = 0;
  for (const auto& c : cas) {
    SCOPED_TRACE(c.fichier);
    const std::string w = d / ("w" + std::to_string(numero++));
    test::ObserverEtResoudre(p, w);
    JobMosaique(p).PhaseComposer(w, 1, 1);
    const std::string nom = w + "/" + c.fichier;
    std::filesystem::remove(w + "/partie_1_sur_1.bin");
    if (std::string(c.fichier) == "partie_1_sur_1.bin") JobMosaique(p).PhaseComposer(w, 1, 1);
    if (std::string(c.fichier) == "observation_2.bin") std::filesystem::remove(w + "/corrections.bin");
    {
      std::fstream f(nom, std::ios::in | std::ios::out | std::ios::binary);
      const std::streamoff milieu = static_cast<std::streamoff>(std::filesystem::file_size(nom) / 2);
      f.seekg(milieu);
      char octet = 0;
      f.read(&octet, 1);
      octet = static_cast<char>(octet ^ 0x10);
      f.seekp(milieu);
      f.write(&octet, 1);
    }
    std::filesystem::remove(p.sortie);
    test::Refuse([&] { c.phase(w); }, "", {nom + " est corrompu"});
    EXPECT_FALSE(std::filesystem::exists(p.sortie));
  }
}

// A part of the right length whose counts are garbled: refused by name, before any allocation the
// garbled count would ask for (the first row's block count at byte 16, its first block's length at 20).
TEST(JobMosaique, PartieAuxComptesBrouillesRefuseeSansAllocation) {
  test::DossierTemp d;
  Tuiles(d.chemin());
  const std::string job = "'" + std::string(EGALISE_EXE) +
                          "' mosaique t00.tif t01.tif t10.tif t11.tif -o p.tif --quiet --travail w --etape ";
  for (int i = 1; i <= 4; ++i)
    ASSERT_EQ(test::Lancer(d.chemin(), job + "observer --index " + std::to_string(i)).statut, 0);
  const struct {
    const char* cas;
    size_t position;
    uint64_t valeur;
    size_t octets;
  } cas[] = {
      {"longueur d'un bloc de 4 Gio", 20, 0xFFFFFFF0u, 8},
      {"16 millions de blocs", 16, 0x00FFFFFFu, 4},
  };
  const std::string partie = d / "w/partie_1_sur_1.bin";
  for (const auto& c : cas) {
    SCOPED_TRACE(c.cas);
    std::filesystem::remove(partie);
    ASSERT_EQ(test::Lancer(d.chemin(), job + "resoudre && " + job + "composer --partie 1/1").statut, 0);
    {
      std::fstream f(partie, std::ios::in | std::ios::out | std::ios::binary);
      f.seekp(static_cast<std::streamoff>(c.position));
      f.write(reinterpret_cast<const char*>(&c.valeur), static_cast<std::streamsize>(c.octets));
    }
    long memoireKio = 0;
    const test::Resultat r = test::Lancer(d.chemin(), job + "assembler", memoireKio);
    EXPECT_EQ(r.statut, 1);
    EXPECT_EQ(r.sortie,
              "egalise mosaique : [Mosaique] (Assembler) La partie w/partie_1_sur_1.bin est corrompue.\n");
    EXPECT_LT(memoireKio, 200 * 1024);
    EXPECT_FALSE(std::filesystem::exists(d / "p.tif"));
  }
}

}  // namespace

namespace {
// The equalization's estimate for the 2 x 2 block of kN tiles in blocks of 'bloc' (degree 0: 4 images).
size_t EstimationTuiles(int bloc) {
  GrilleBlocs g;
  g.bloc = bloc;
  g.colonnes = g.lignes = 2 * kN - kRecouvrement;
  std::vector<ZoneBlocs> z;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) {
      Placement p;
      p.x0 = j * (kN - kRecouvrement);
      p.y0 = i * (kN - kRecouvrement);
      z.push_back(EmpriseBlocs(g, p, kN, kN));
    }
  return EstimerMemoireEgalisation(z, nullptr, kBandes, 2).Pic();
}
}  // namespace

// Without --bloc, the block side doubles from 16 until the equalization's estimate fits its share of
// --memoire (made tiny here rather than the tiles huge): the run says so, reports the block used, and
// makes the very mosaic --bloc would with that block. The same block in every phase, whose folder
// refuses a run that would take another.
TEST(JobMosaique, BlocGranditJusquALaPartDeLaMemoire) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const double mio = 16.0 * (1 << 20);
  struct Cas {
    double part;  // of --memoire 16
    int bloc;
  };
  const Cas cas[] = {{0.5, 16},
                     {(EstimationTuiles(16) - 1) / mio, 32},
                     {(EstimationTuiles(32) - 1) / mio, 64},
                     {EstimationTuiles(32) / mio, 32}};
  for (const Cas& c : cas) {
    SCOPED_TRACE(c.bloc);
    ASSERT_LE(EstimationTuiles(c.bloc), c.part * mio);
    ParametresMosaique p = test::Parametres(t, d / "m.tif");
    p.memoireMio = 16;
    p.partEgalisation = c.part;
    JobMosaique job(p);
    job.Executer();
    EXPECT_EQ(job.Rapport().bloc, c.bloc);
    const std::string json = job.RapportJson({});
    EXPECT_NE(json.find("\"bloc\": " + std::to_string(c.bloc) + ","), std::string::npos) << json;
    const std::string avertissement =
        "Blocs de statistiques de " + std::to_string(c.bloc) + " pixels (et non 16)";
    EXPECT_EQ(test::Occurrences(json, avertissement), c.bloc == 16 ? 0u : 1u) << json;
    // The same bytes as the block given at the default memory.
    ParametresMosaique q = test::Parametres(t, d / "q.tif");
    q.gainOffset.bloc = c.bloc;
    JobMosaique(q).Executer();
    EXPECT_TRUE(test::LireFichier(d / "m.tif") == test::LireFichier(d / "q.tif"));
    // The phases derive the same block, and the same bytes.
    const std::string travail = d / ("w" + std::to_string(c.bloc) + std::to_string(&c - cas));
    p.sortie = d / "p.tif";
    test::EnPhases(p, travail);
    EXPECT_TRUE(test::LireFichier(d / "p.tif") == test::LireFichier(d / "m.tif"));
  }
  // A share that changes the block does not mix the observations of two block sides.
  ParametresMosaique p = test::Parametres(t, d / "p.tif");
  p.memoireMio = 16;
  const std::string travail = d / "melange";
  JobMosaique(p).PhaseObserver(travail, 1);
  p.partEgalisation = (EstimationTuiles(16) - 1) / mio;
  test::Refuse([&] { JobMosaique(p).PhaseObserver(travail, 2); }, "", {"appartient a un autre calcul"});
  test::Refuse([&] { JobMosaique(p).PhaseResoudre(travail); }, "", {"appartient a un autre calcul"});
  for (const double part : {0.0, -1.0, 1.5, std::nan("")}) {
    p.partEgalisation = part;
    test::Refuse([&] { JobMosaique j(p); }, "", {"Part de la memoire pour l'egalisation"});
  }
}

// A --bloc whose estimate passes the share is refused before any pixel is read, naming the smallest
// block and the --memoire that would do; nothing is written. Through the command: tiles overlapping by
// half, blocks of 4, --memoire 16.
TEST(JobMosaique, BlocDonneAuDelaDeLaPartRefuse) {
  test::DossierTemp d;
  Tuiles(d.chemin(), 600, 300);
  const std::string tuiles =
      "mosaique t00.tif t01.tif t10.tif t11.tif -o m.tif --tuile 128 --quiet --memoire 16 ";
  const test::Resultat r = test::Egalise(d.chemin(), tuiles + "--bloc 4 --rapport r.json");
  EXPECT_EQ(r.statut, 1) << r.sortie;
  for (const char* f :
       {"--memoire 16 Mio : en blocs de 4 pixels (--bloc 4)", "plus que leur part (8 Mio)", "donner --bloc "})
    EXPECT_NE(r.sortie.find(f), std::string::npos) << f << "\n" << r.sortie;
  EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  EXPECT_FALSE(std::filesystem::exists(d / "r.json"));
  // The block and the memory it names both do.
  const size_t k = r.sortie.find("donner --bloc "), m = r.sortie.find("ou --memoire ");
  ASSERT_NE(m, std::string::npos) << r.sortie;
  const int bloc = std::stoi(r.sortie.substr(k + 14)), memoire = std::stoi(r.sortie.substr(m + 13));
  EXPECT_GT(bloc, 4);
  EXPECT_EQ(test::Egalise(d.chemin(), tuiles + "--bloc " + std::to_string(bloc - 1)).statut, 1);
  const test::Resultat b =
      test::Egalise(d.chemin(), tuiles + "--bloc " + std::to_string(bloc) + " --rapport r.json");
  EXPECT_EQ(b.statut, 0) << b.sortie;
  EXPECT_NE(test::LireFichier(d / "r.json").find("\"bloc\": " + std::to_string(bloc) + ","),
            std::string::npos);
  std::filesystem::remove(d / "m.tif");
  const std::string avec =
      "mosaique t00.tif t01.tif t10.tif t11.tif -o m.tif --tuile 128 --quiet --bloc 4 --memoire ";
  EXPECT_EQ(test::Egalise(d.chemin(), avec + std::to_string(memoire)).statut, 0);
  EXPECT_EQ(test::Egalise(d.chemin(), avec + std::to_string(memoire - 1)).statut, 1);
}

// Without --bloc, a --memoire too small for every block side is refused with the least the
// equalization needs and the least --memoire that holds it: the estimate is not monotonic in the block
// (many small tiles: past the tiles' size, larger blocks cost more), so neither the largest block's nor
// the default one's. Nothing is written.
TEST(JobMosaique, MemoireTropPetitePourToutBlocRefuseeAvecLeMinimum) {
  test::DossierTemp d;
  std::string noms;
  for (const std::string& t : Tuiles(d.chemin(), 200, 20, 10, 10)) noms += t + " ";
  const std::string job = "mosaique " + noms + "-o m.tif --quiet --threads 1 --memoire ";
  const test::Resultat r = test::Egalise(d.chemin(), job + "16");
  ASSERT_EQ(r.statut, 1) << r.sortie;
  EXPECT_NE(r.sortie.find("--memoire 16 Mio : les statistiques"), std::string::npos) << r.sortie;
  EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  const size_t m = r.sortie.find("donner --memoire ");
  ASSERT_NE(m, std::string::npos) << r.sortie;
  const int memoire = std::stoi(r.sortie.substr(m + 17));
  // The need named is the one that --memoire holds in its share, half of it.
  const size_t k = r.sortie.find("demandent ");
  ASSERT_NE(k, std::string::npos) << r.sortie;
  EXPECT_LE(2 * std::stoi(r.sortie.substr(k + 10)), memoire + 2) << r.sortie;
  const struct {
    int memoire;
    int statut;
  } cas[] = {{memoire, 0}, {memoire - 1, 1}};
  for (const auto& c : cas) {
    std::filesystem::remove(d / "m.tif");
    const test::Resultat e = test::Egalise(d.chemin(), job + std::to_string(c.memoire));
    EXPECT_EQ(e.statut, c.statut) << c.memoire << "\n" << r.sortie << e.sortie;
    EXPECT_EQ(std::filesystem::exists(d / "m.tif"), c.statut == 0) << c.memoire;
  }
}
