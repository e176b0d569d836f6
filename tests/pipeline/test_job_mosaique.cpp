// The conventional front end's job on generated GeoTIFF tiles with known distortions: the mosaic is
// closer to the truth than without equalization, the same bytes for any thread count and for the
// phased run, and the work folder refuses what does not belong to it.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "outils_test.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/pipeline/mosaique.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/ttimage.h"

namespace {

constexpr int kN = 160, kRecouvrement = 40, kBandes = 3;
constexpr double kPas = 0.5, kX0 = 650000, kY0 = 6860000;

double Verite(int b, int x, int y) {
  return 100 + 40 * std::sin(x / 11.0 + b) + 30 * std::cos(y / 17.0 - b) + 10 * b;
}

// A 2 x 2 block of 3-band 8-bit tiles of n x n pixels, each band of each tile with its own gain and
// offset.
std::vector<std::string> Tuiles(const std::string& dossier, int n = kN) {
  std::vector<std::string> noms;
  OptionsEcriture o;
  o.tuile = 64;
  o.nodataPresent = true;
  o.nodata = 0;
  o.type = eUInt1;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) {
      const int c0 = j * (n - kRecouvrement), l0 = i * (n - kRecouvrement);
      GeoreferenceEcriture g;
      g.grille = true;
      g.x0 = kX0 + c0 * kPas;
      g.y0 = kY0 - l0 * kPas;
      g.pasX = g.pasY = kPas;
      g.crs = CrsDepuisEpsg(2154);
      const std::string nom = dossier + "/t" + std::to_string(i) + std::to_string(j) + ".tif";
      EcrivainGeoTIFF e(nom, o, TPoint2D<int>(n, n), kBandes, eFloat4, g);
      std::vector<float> ligne(static_cast<size_t>(n) * kBandes);
      for (int y = 0; y < n; ++y) {
        for (int x = 0; x < n; ++x)
          for (int b = 0; b < kBandes; ++b) {
            const double gain = 1 + 0.04 * std::sin(3.0 * i + 5.0 * j + b),
                         offset = 12 * std::cos(2.0 * i - 7.0 * j + b);
            ligne[x * kBandes + b] =
                static_cast<float>(std::round(gain * Verite(b, c0 + x, l0 + y) + offset));
          }
        e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1);
      }
      e.Terminer();
      noms.push_back(nom);
    }
  return noms;
}

// RMSE of the mosaic against the truth after one global gain and offset per band (least squares).
double Ecart(const std::string& mosaique, int b) {
  const TTImage<float> m(mosaique.c_str());
  double sx = 0, sy = 0, sxx = 0, sxy = 0, n = 0;
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x) {
      const double v = m(x, y, b), t = Verite(b, x, y);
      sx += v, sy += t, sxx += v * v, sxy += v * t, n += 1;
    }
  const double a = (n * sxy - sx * sy) / (n * sxx - sx * sx), c = (sy - a * sx) / n;
  double e = 0;
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x) e += std::pow(a * m(x, y, b) + c - Verite(b, x, y), 2);
  return std::sqrt(e / n);
}

ParametresMosaique Parametres(const std::vector<std::string>& entrees, const std::string& sortie) {
  ParametresMosaique p;
  p.entrees = entrees;
  p.sortie = sortie;
  p.ecriture.tuile = 64;
  return p;
}

TEST(JobMosaique, PlusProcheDeLaVeriteQueSansEgalisationSurChaqueBande) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  auto ecarts = [&](const char* modele, const char* fusion, bool noegal) {
    ParametresMosaique p = Parametres(t, d / "m.tif");
    p.modele = modele;
    p.fusion = fusion;
    p.noegal = noegal;
    JobMosaique(p).Executer();
    const TTImage<float> m((d / "m.tif").c_str());
    EXPECT_TRUE(m.iGetNbColonnes() == 2 * kN - kRecouvrement && m.GetNbCanaux() == kBandes);
    std::vector<double> e;
    for (int b = 0; b < kBandes; ++b) e.push_back(Ecart(d / "m.tif", b));
    return e;
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
  for (const bool multibande : {false, true}) {
    std::string reference;
    for (const int fils : {1, 2}) {
      FixerNbFils(fils);
      ParametresMosaique p = Parametres(t, d / "f.tif");
      if (multibande) p.fusion = "multibande";
      JobMosaique(p).Executer();
      const std::string octets = test::LireFichier(d / "f.tif");
      if (reference.empty()) reference = octets;
      EXPECT_TRUE(octets == reference) << fils << " fils, multibande " << multibande;
    }
    FixerNbFils(0);
  }
  for (const bool cog : {false, true}) {
    std::string reference;
    for (const int fils : {1, 2, 8}) {
      FixerNbFils(fils);
      ParametresMosaique p = Parametres(t, d / "f.tif");
      p.ecriture.cog = cog;
      JobMosaique(p).Executer();
      const std::string octets = test::LireFichier(d / "f.tif");
      if (reference.empty()) reference = octets;
      EXPECT_TRUE(octets == reference) << fils << " fils, cog " << cog;
    }
    // The phases, parts in any order, each in a fresh job as separate processes would.
    ParametresMosaique p = Parametres(t, d / "p.tif");
    p.ecriture.cog = cog;
    const std::string travail = d / (cog ? "travail_cog" : "travail");
    for (int i = 4; i >= 1; --i) JobMosaique(p).PhaseObserver(travail, i);
    JobMosaique(p).PhaseResoudre(travail);
    for (int k : {3, 1, 2}) JobMosaique(p).PhaseComposer(travail, k, 3);
    JobMosaique(p).PhaseComposer(travail, 2, 3);  // a finished part is not redone
    JobMosaique(p).PhaseAssembler(travail);
    EXPECT_TRUE(test::LireFichier(d / "p.tif") == reference) << "phases, cog " << cog;
    FixerNbFils(0);
  }
}

TEST(JobMosaique, DossierDeTravailRefuseCeQuiNeLuiAppartientPas) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const ParametresMosaique p = Parametres(t, d / "p.tif");
  const std::string w = d / "w";
  auto refus = [&](const std::function<void()>& f, const std::string& debut) {
    try {
      f();
      ADD_FAILURE() << "accepte : " << debut;
    } catch (const Erreur& e) {
      EXPECT_NE(std::string(e.Texte()).find(debut), std::string::npos) << e.Texte();
    }
  };
  refus([&] { JobMosaique(p).PhaseResoudre(w); }, "L'observation de l'image 1");
  refus([&] { JobMosaique(p).PhaseComposer(w, 1, 2); }, "corrections.bin manque");
  refus([&] { JobMosaique(p).PhaseComposer(w, 5, 4); }, "--partie 5/4");
  refus([&] { JobMosaique(p).PhaseObserver(w, 5); }, "--index 5");
  for (int i = 1; i <= 4; ++i) JobMosaique(p).PhaseObserver(w, i);
  JobMosaique(p).PhaseResoudre(w);
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
  // A 1-band tile and a tile in another system.
  OptionsEcriture o;
  o.type = eUInt1;
  GeoreferenceEcriture g;
  g.grille = true;
  g.x0 = kX0;
  g.y0 = kY0;
  g.pasX = g.pasY = kPas;
  g.crs = CrsDepuisEpsg(2154);
  std::vector<float> ligne(kN * kBandes, 50.0f);
  {
    EcrivainGeoTIFF e(d / "une.tif", o, TPoint2D<int>(kN, kN), 1, eFloat4, g);
    for (int y = 0; y < kN; ++y) e.EcrireLignes(eFloat4, ligne.data(), kN * sizeof(float), 1);
    e.Terminer();
  }
  g.crs = CrsDepuisEpsg(32631);
  {
    EcrivainGeoTIFF e(d / "utm.tif", o, TPoint2D<int>(kN, kN), kBandes, eFloat4, g);
    for (int y = 0; y < kN; ++y) e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1);
    e.Terminer();
  }
  // One strip of 2400 x 2400 x 3 bytes, more than a ceiling of 16 MiB.
  {
    OptionsEcriture bande = o;
    bande.tuilee = false;
    bande.lignesBande = 2400;
    g.crs = CrsDepuisEpsg(2154);
    std::vector<float> large(2400 * kBandes, 50.0f);
    EcrivainGeoTIFF e(d / "bande.tif", bande, TPoint2D<int>(2400, 2400), kBandes, eFloat4, g);
    for (int y = 0; y < 2400; ++y) e.EcrireLignes(eFloat4, large.data(), large.size() * sizeof(float), 1);
    e.Terminer();
  }
  struct Cas {
    std::string entree;
    const char* message;
  };
  const Cas cas[] = {{d / "une.tif", "a 1 bande(s)"},
                     {d / "utm.tif", "dans le systeme EPSG:32631"},
                     {d / "bande.tif", "se lit par blocs de 17 Mio"}};
  for (const Cas& c : cas) {
    ParametresMosaique p = Parametres(t, d / "m.tif");
    p.entrees.push_back(c.entree);
    p.memoireMio = 16;
    try {
      JobMosaique job(p);
      ADD_FAILURE() << c.entree;
    } catch (const Erreur& e) {
      EXPECT_NE(std::string(e.Texte()).find(c.message), std::string::npos) << e.Texte();
    }
    EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  }
}

// Peak resident memory of a child run, in MiB.
double MemoireMaxEnfant(const std::string& dossier, const std::string& commande) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dossier.c_str()) != 0) _exit(127);
    execl("/bin/sh", "sh", "-c", commande.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int statut = 0;
  struct rusage u;
  wait4(pid, &statut, 0, &u);
  EXPECT_TRUE(WIFEXITED(statut) && WEXITSTATUS(statut) == 0) << commande;
  return u.ru_maxrss / 1024.0;
}

// Inputs whose samples, as float, take three times the ceiling: the run stays under the ceiling plus
// the process's own constant (code, libraries, the statistics and the system: under 48 MiB here).
TEST(JobMosaique, MemoireSousLePlafond) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer's shadow memory and quarantine are not the job's memory";
#endif
  test::DossierTemp d;
  Tuiles(d.chemin(), 1024);
  const double plafond = 16, octetsFloat = 4.0 * 1024 * 1024 * kBandes * 4 / (1 << 20);
  ASSERT_GE(octetsFloat, 3 * plafond);
  const double pic =
      MemoireMaxEnfant(d.chemin(), std::string("exec '") + EGALISE_EXE +
                                       "' mosaique t00.tif t01.tif t10.tif t11.tif -o m.tif --tuile 128 "
                                       "--quiet --memoire 16");
  EXPECT_LT(pic, plafond + 48) << "pic " << pic << " Mio";
  EXPECT_TRUE(std::filesystem::exists(d / "m.tif"));
}

// A coarser output pixel is the mean of the input pixels in it (rounded to the 8-bit output), by
// default; nearest when asked.
TEST(JobMosaique, PixelPlusGrosMoyenneParDefaut) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const TTImage<float> e(t[0].c_str());
  for (const char* methode : {"", "proche"}) {
    ParametresMosaique p = Parametres({t[0]}, d / "g.tif");
    p.noegal = true;
    p.resolutionX = p.resolutionY = 2 * kPas;
    p.reechantillonnage = methode;
    JobMosaique(p).Executer();
    const TTImage<float> m((d / "g.tif").c_str());
    ASSERT_EQ(m.iGetNbColonnes(), kN / 2);
    long differents = 0;
    for (int y = 0; y < kN / 2; ++y)
      for (int x = 0; x < kN / 2; ++x)
        for (int b = 0; b < kBandes; ++b) {
          const double attendu = *methode ? e(2 * x + 1, 2 * y + 1, b)
                                          : std::round((e(2 * x, 2 * y, b) + e(2 * x + 1, 2 * y, b) +
                                                        e(2 * x, 2 * y + 1, b) + e(2 * x + 1, 2 * y + 1, b)) /
                                                       4);
          differents += std::fabs(m(x, y, b) - attendu) > 0.51;
        }
    EXPECT_EQ(differents, 0) << methode;
  }
}

// Bilinear interpolation on a grid twice finer: between the four input pixels around each centre.
TEST(JobMosaique, BilineaireSurUneGrillePlusFine) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  const TTImage<float> e(t[0].c_str());
  ParametresMosaique p = Parametres({t[0]}, d / "b.tif");
  p.noegal = true;
  p.resolutionX = p.resolutionY = kPas / 2;
  p.reechantillonnage = "bilineaire";
  p.ecriture.type = eFloat4;
  JobMosaique(p).Executer();
  const TTImage<float> m((d / "b.tif").c_str());
  ASSERT_EQ(m.iGetNbColonnes(), 2 * kN);
  long differents = 0;
  for (int y = 2; y < 2 * kN - 2; ++y)
    for (int x = 2; x < 2 * kN - 2; ++x) {
      const double u = (x + 0.5) / 2 - 0.5, v = (y + 0.5) / 2 - 0.5;
      const int k = static_cast<int>(std::floor(u)), r = static_cast<int>(std::floor(v));
      const double fx = u - k, fy = v - r;
      for (int b = 0; b < kBandes; ++b) {
        const double attendu = (1 - fy) * ((1 - fx) * e(k, r, b) + fx * e(k + 1, r, b)) +
                               fy * ((1 - fx) * e(k, r + 1, b) + fx * e(k + 1, r + 1, b));
        differents += std::fabs(m(x, y, b) - attendu) > 1e-3;
      }
    }
  EXPECT_EQ(differents, 0);
}

// An exclusion mask beside the input (its name without extension and the suffix) takes its non-zero
// pixels out: there the mosaic is no-data.
TEST(JobMosaique, MasqueDExclusionParSuffixe) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  {
    OptionsEcriture o;
    o.type = eUInt1;
    EcrivainGeoTIFF e(d / "t00_masque.tif", o, TPoint2D<int>(kN, kN), 1, eFloat4);
    std::vector<float> ligne(kN);
    for (int x = 0; x < kN; ++x) ligne[x] = x < kN / 2 ? 1.0f : 0.0f;
    for (int y = 0; y < kN; ++y) e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1);
    e.Terminer();
  }
  ParametresMosaique p = Parametres({t[0]}, d / "x.tif");
  p.noegal = true;
  p.masqueSuffixe = "_masque.tif";
  JobMosaique(p).Executer();
  const TTImage<float> m((d / "x.tif").c_str()), e(t[0].c_str());
  long faux = 0;
  for (int y = 0; y < kN; ++y)
    for (int x = 0; x < kN; ++x)
      for (int b = 0; b < kBandes; ++b) faux += m(x, y, b) != (x < kN / 2 ? 0.0f : e(x, y, b));
  EXPECT_EQ(faux, 0);
  // A missing mask is refused before any work.
  p.masqueSuffixe = "_absent.tif";
  EXPECT_THROW(JobMosaique job(p), Erreur);
}

}  // namespace
