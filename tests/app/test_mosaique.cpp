// The mosaic job: its command line, and whole runs of the built tool on generated tiles whose
// distortions and overlaps are known.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <numeric>
#include <sstream>

#include "egalise.h"
#include "mosaique.h"
#include "outils_test.h"
#include "pipeline/outils_radiometrie.h"
#include "zepra/erreur.h"
#include "zepra/pipeline/parallele.h"

namespace {

OptionsMosaique Options(std::vector<std::string> mots) {
  std::vector<char*> argv{const_cast<char*>("egalise")};
  for (std::string& m : mots) argv.push_back(m.data());
  argv.push_back(nullptr);
  return LireOptionsMosaique(static_cast<int>(mots.size()) + 1, argv.data());
}

TEST(OptionsMosaique, DefautsRegleDuDernierEtMotsEntiers) {
  const OptionsMosaique d = Options({"a.tif"});
  EXPECT_TRUE(!d.referenceWalis && d.fusion == eFusionMoyenne && !d.multiplicatif && !d.noegal);
  EXPECT_TRUE(d.ssechfinal == 2.0 && d.pas == 50.0 && d.sortie == "big_image.tif");
  // A mistyped option is an input name; the last option of a kind wins; the step is an integer.
  const OptionsMosaique o =
      Options({"--fusion:min", "a.tif", "--fusion:moyen", "--reference:walis", "--reference:moyenne", "b.tif",
               "--modele:multiplicatif", "--pas", "12.5", "--ssechfinal", "1.5abc", "--output", "m.tif",
               "--fusion:max", "--modele:additif"});
  EXPECT_EQ(o.entrees, (std::vector<std::string>{"a.tif", "--fusion:moyen", "b.tif"}));
  EXPECT_TRUE(o.fusion == eFusionMax && !o.referenceWalis && !o.multiplicatif && o.pas == 12.0 &&
              o.ssechfinal == 1.5 && o.sortie == "m.tif");
}

// ---------------------------------------------------------------------------------------------------
// Whole runs of the built tool.

struct Tuile {
  std::string nom;
  double x0, y0;
  int colonnes, lignes;
  // distortion: value = scene * gain + (a + b * col + c * lin)
  double gain, a, b, c;
};

// Writes "Ort_<nom>" with its orientation, pixel 1 m: a smooth scene with texture, distorted, as
// 'canaux' channels of T (channel 0 the scene, the others 7), 0 for no data.
template <class T = float>
void EcrireTuile(const std::string& dossier, const Tuile& t,
                 const std::function<bool(int, int)>& sansDonnee = {}, int zone = 0, int canaux = 1) {
  TTOrientedImage<T> im(t.lignes, t.colonnes, TagNbCanaux(canaux),
                        OrientationOld(eORICarto, t.x0, t.y0, zone, t.colonnes, t.lignes, 1.0, 1.0));
  for (int y = 0; y < t.lignes; ++y)
    for (int x = 0; x < t.colonnes; ++x) {
      const double X = t.x0 + x, Y = t.y0 - y;
      const double scene =
          120 + 20 * std::sin(X / 37.0) * std::cos(Y / 23.0) + 4 * std::sin((X + 2 * Y) / 5.0);
      for (int k = 1; k < canaux; ++k) im(x, y, k) = 7;
      im(x, y) =
          sansDonnee && sansDonnee(x, y) ? 0 : static_cast<T>(scene * t.gain + t.a + t.b * x + t.c * y);
    }
  im.Sauver((dossier + "/Ort_" + t.nom).c_str());
}

// Writes 3 x 3 tiles of 80 x 80 overlapping by 20 pixels, each with its own distortion; returns the
// words naming them on the command line.
template <class T = float>
std::string EcrireGrille(const std::string& dossier, bool multiplicatif, double y0 = 5000, int zone = 0,
                         int canaux = 1) {
  std::string noms;
  for (int k = 0; k < 9; ++k) {
    Tuile t{"t" + std::to_string(k) + ".tif", 1000.0 + 60 * (k % 3), y0 - 60 * (k / 3), 80, 80, 1, 0, 0, 0};
    if (multiplicatif) {
      t.gain = 0.8 + 0.05 * ((k * 5) % 9);
    } else {
      t.a = -20 + 5 * ((k * 7) % 9), t.b = 0.1 * ((k % 3) - 1), t.c = -0.08 * ((k % 2) * 2 - 1);
    }
    EcrireTuile<T>(dossier, t, {}, zone, canaux);
    noms += t.nom + " ";
  }
  return noms;
}

TEST(MosaiqueJob, EgalisationAdditiveEtMultiplicativeReduitLesDesaccords) {
  for (bool multiplicatif : {false, true}) {
    test::DossierTemp d;
    const std::string noms = EcrireGrille(d.chemin(), multiplicatif);
    const std::string arguments = noms + (multiplicatif ? "--modele:multiplicatif --pas 4" : "--pas 4");
    const test::Resultat r = test::Egalise(d.chemin(), arguments);
    ASSERT_EQ(r.statut, 0) << r.sortie << test::LireFichier(d / "log.txt");
    for (const char* lignes :
         {"Lecture de Ort_t0.tif\nLecture de Ort_t1.tif\n",
          "\nLecture de Ort_t8.tif\nusemask : non\nCalcul de l'emprise : \n1000 4801 --> "
          "1199 5000\nDebut du calcul\n",
          "\nDecomposition LDLt OK\nSolution : ",
          "\nFin du calcul\nDebut de la creation de l'image finale\n"})
      EXPECT_NE(r.sortie.find(lignes), std::string::npos) << lignes << "\n" << r.sortie;

    // The tiles disagree by 15 (additive) and 25 (multiplicative) grey levels on average before. The
    // system ties every point's common value to its observations and most points are seen by one tile
    // only, which pulls the corrections back: on these tiles the additive model divides the
    // disagreement by 11, the multiplicative one by 3.4. The test holds them to 10 and 3.
    const double avant = test::Desaccord(d.chemin(), "Ort_", noms);
    const double apres = test::Desaccord(d.chemin(), "Solution_", noms);
    EXPECT_GT(avant, 10.0);
    EXPECT_LT(apres, avant / (multiplicatif ? 3 : 10)) << "avant " << avant << " apres " << apres;

    // The mosaic and its orientation: half the resolution by default, over the footprint, no hole.
    const TTOrientedImage<float> m((d / "big_image.tif").c_str());
    EXPECT_EQ(m.GetTaille(), TPoint2D<int>(99, 99));
    EXPECT_TRUE(m.GetOrientation().GetMinXCarto() == 1000 && m.GetOrientation().GetMaxYCarto() == 5000);
    for (const char* f : {"big_image.tfw", "Solution_t4.ori", "Solution_t4.tfw"})
      EXPECT_TRUE(std::ifstream(d / f).is_open()) << f;
    EXPECT_EQ(std::count(m.begin(), m.end(), 0.0f), 0);

    // A run confined to one CPU, its threads taking turns in another order, writes the same bytes.
    const std::string octets =
        test::LireFichier(d / "big_image.tif") + test::LireFichier(d / "Solution_t7.tif");
    ASSERT_EQ(test::Lancer(d.chemin(), "taskset -c 0 '" EGALISE_EXE "' " + arguments).statut, 0);
    EXPECT_EQ(test::LireFichier(d / "big_image.tif") + test::LireFichier(d / "Solution_t7.tif"), octets);
  }
}

// The job run in this process with one thread, then with two: every file it writes and every console
// line are the same.
TEST(MosaiqueJob, MemesOctetsAvecUnOuDeuxFils) {
  test::DossierTemp d;
  std::vector<std::string> mots{"egalise"};
  std::istringstream noms(EcrireGrille(d.chemin(), false));
  for (std::string n; noms >> n;) mots.push_back(d / n);
  const size_t nbEntrees = mots.size();
  for (const char* options :
       {"--pas 4 --ssechfinal 1", "--pas 3 --modele:multiplicatif --fusion:voronoi --reference:walis",
        "--pas 5 --prelissewalis --fusion:min --ssechfinal 1.5", "--noegal --fusion:max --ssechfinal 0.7"}) {
    mots.resize(nbEntrees);
    std::istringstream o(options);
    for (std::string m; o >> m;) mots.push_back(m);
    mots.insert(mots.end(), {"--output", d / "m.tif"});
    std::map<std::string, std::string> ecrits[2];
    for (int fils : {1, 2}) {
      FixerNbFils(fils);
      std::vector<char*> argv;
      for (std::string& m : mots) argv.push_back(m.data());
      argv.push_back(nullptr);
      test::CaptureSortie console;
      Main_nouveau(static_cast<int>(mots.size()), argv.data());
      FixerNbFils(0);
      ecrits[fils - 1]["console"] = console.texte();
      for (const auto& f : std::filesystem::directory_iterator(d.chemin())) {
        const std::string nom = f.path().filename();
        if (nom.rfind("Solution_", 0) != 0 && nom.rfind("m.", 0) != 0) continue;
        ecrits[fils - 1][nom] = test::LireFichier(f.path());
        std::filesystem::remove(f.path());
      }
    }
    EXPECT_GE(ecrits[0].size(), std::string(options).find("noegal") == std::string::npos ? 31u : 4u)
        << options;
    EXPECT_TRUE(ecrits[0] == ecrits[1]) << options;
  }
}

// Writes "Incid_<nom>" of 20 x 8, excluding (255) the column 'exclue' if any.
void EcrireIncid(const std::string& dossier, const std::string& nom, int exclue) {
  TTImage<unsigned char> m(20, 8, TagNbCanaux(1));
  for (int y = 0; y < 8 && exclue >= 0; ++y) m(exclue, y) = 255;
  m.Sauver((dossier + "/Incid_" + nom).c_str());
}

// Runs of n equal values.
std::vector<float> Paliers(std::initializer_list<std::pair<int, float>> paliers) {
  std::vector<float> v;
  for (const auto& p : paliers) v.insert(v.end(), p.first, p.second);
  return v;
}

// Two constant images of 20 x 8 overlapping on 10 columns: fusion rules, no-data and masks give known
// values.
TEST(MosaiqueJob, FusionSansDonneeEtMasquesSurUnRecouvrementConnu) {
  test::DossierTemp d;
  const Tuile a{"a.tif", 1000, 5000, 20, 8, 0, 10, 0, 0}, b{"b.tif", 1010, 5000, 20, 8, 0, 30, 0, 0};
  EcrireTuile(d.chemin(), a);
  EcrireTuile(d.chemin(), b);
  const std::string commande = "a.tif b.tif --noegal --ssechfinal 1 --output m.tif ";
  // The value in the overlap; 0 for Voronoi.
  for (const auto& f : {std::pair("--fusion:moyenne", 20.0f),
                        {"--fusion:min", 10.0f},
                        {"--fusion:max", 30.0f},
                        {"--fusion:voronoi", 0.0f}}) {
    const test::Resultat r = test::Egalise(d.chemin(), commande + f.first);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    EXPECT_EQ(r.sortie.find("Debut du calcul"), std::string::npos);  // no equalization
    const TTOrientedImage<float> m((d / "m.tif").c_str());
    // The footprint runs to the last pixel's corner: 29 x 7 pixels.
    ASSERT_EQ(m.GetTaille(), TPoint2D<int>(29, 7));
    for (int l = 0; l < 7; ++l)
      for (int x = 0; x < 29; ++x) {
        // Voronoi: distances to each image's centre (10, 4), truncated; a tie or a kept 0 goes to b.
        const unsigned da = static_cast<unsigned>(std::hypot(x - 10.0, l - 4.0)),
                       db = static_cast<unsigned>(std::hypot(x - 20.0, l - 4.0));
        float attendu = x < 10 ? 10.0f : x < 20 ? f.second : 30.0f;
        if (attendu == 0.0f) attendu = (da != 0 && db > da) ? 10.0f : 30.0f;
        ASSERT_EQ(m(x, l), attendu) << f.first << " " << x << "," << l;
      }
  }
  const auto Ligne3 = [&](const char* usemask) {
    const test::Resultat r = test::Egalise(d.chemin(), commande);
    EXPECT_NE(r.sortie.find(std::string("\nusemask : ") + usemask + "\n"), std::string::npos) << r.sortie;
    const TTImage<float> m((d / "m.tif").c_str());
    return std::vector<float>(m.GetLines(3), m.GetLines(3) + m.iGetNbColonnes());
  };
  // b's no-data column 19, widened by the disc of radius 10, excludes its columns 9 to 19: only its
  // columns 0 to 8 (mosaic 10 to 18) still contribute. A's mask alone is not used.
  EcrireTuile(d.chemin(), b, [](int x, int) { return x == 19; });
  EcrireIncid(d.chemin(), "a.tif", 0);
  EXPECT_EQ(Ligne3("non"), Paliers({{10, 10.0f}, {9, 20.0f}, {1, 10.0f}, {9, 0.0f}}));
  // Both masks: a's column 0, widened by 10, excludes its columns 0 to 10.
  EcrireTuile(d.chemin(), b);
  EcrireIncid(d.chemin(), "b.tif", -1);
  EXPECT_EQ(Ligne3("OK"), Paliers({{10, 0.0f}, {1, 30.0f}, {9, 20.0f}, {9, 30.0f}}));
}

// Zone 2 tiles, written as 8-bit three-channel images (the job works on channel 0, read as float): a
// run that cannot solve, the Wallis reference and pre-smoothing, then the refusals of a run.
TEST(MosaiqueJob, Zone2RateWalisPrelissageEtRefus) {
  test::DossierTemp d;
  const std::string arguments = EcrireGrille<unsigned char>(d.chemin(), false, 2250000, 2, 3);
  // A tile laid far away: the footprint's grid is huge around it, so a large step keeps it sparse; the
  // far tile is seen by no grid point.
  EcrireTuile(d.chemin(), Tuile{"loin.tif", 1000000, 2250000, 8, 8, 1, 0, 0, 0}, {}, 2);
  const test::Resultat rate = test::Egalise(d.chemin(), arguments + "loin.tif --pas 7");
  EXPECT_EQ(rate.statut, 0) << rate.sortie;
  EXPECT_EQ(test::Lignes(rate.sortie).back(), "rate");
  EXPECT_FALSE(std::ifstream(d / "big_image.tif").is_open() ||
               std::ifstream(d / "Solution_t0.tif").is_open());

  for (const char* options : {"--reference:walis", "--prelissewalis --reference:walis --noegal"}) {
    const test::Resultat r = test::Egalise(d.chemin(), arguments + "--pas 4 --output m.tif " + options);
    ASSERT_EQ(r.statut, 0) << options << r.sortie << test::LireFichier(d / "log.txt");
    EXPECT_NE(r.sortie.find("\n1000 2.2498e+06 --> 1199 2.25e+06\n"), std::string::npos) << r.sortie;
    EXPECT_NE(r.sortie.find("\nWalis 0\nOK\nWalis 1\nOK\n"), std::string::npos) << r.sortie;
    const TTOrientedImage<float> m((d / "m.tif").c_str());
    EXPECT_EQ(m.GetNbCanaux(), 1);
    EXPECT_EQ(m.GetOrientation().GetZoneLambert(), 2);
    EXPECT_EQ(m.GetOrientation().GetMaxYCarto(), 2250000);
    if (std::string(options).find("prelisse") == std::string::npos) continue;
    // Pre-smoothing prints the pooled mean and deviation of all tiles after the masks; the composed
    // Wallis images are then centred on 127.5 whatever the tiles' levels.
    std::istringstream stats(test::Lignes(r.sortie).at(10));
    double moyenne = 0, ecart = 0;
    stats >> moyenne >> ecart;
    EXPECT_NEAR(moyenne, 120, 15) << stats.str();
    EXPECT_GT(ecart, 5) << stats.str();
    EXPECT_NEAR(std::accumulate(m.begin(), m.end(), 0.0) / static_cast<double>(m.size()), 127.5, 10.0);
  }

  // Refusals end the run with status 255 and the message in the log.
  EcrireIncid(d.chemin(), "t8.tif", -1);
  const char* refus[][2] = {
      {"t0.tif --pas", "(Options) L'option --pas attend une valeur."},
      {"t0.tif --ssechfinal", "(Options) L'option --ssechfinal attend une valeur."},
      {"t0.tif --output", "(Options) L'option --output attend une valeur."},
      {"t0.tif --pas 0.9", "(Options) --pas doit etre un entier strictement positif (valeur lue : 0)"},
      {"t0.tif --ssechfinal 0", "(Options) --ssechfinal doit etre un reel strictement positif"},
      {"t0.tif --ssechfinal nan", "(Options) --ssechfinal doit etre un reel strictement positif"},
      {"t0.tif --ssechfinal inf", "(Options) --ssechfinal doit etre un reel strictement positif"},
      {"--noegal --pas 10", "(Options) Aucune image en entree."},
      {"absent.tif", "introuvable pour Ort_absent.ori"},
      {"t0.tif --noegal --output sans", "(Sauver) Aucune extension pour le fichier sans"},
      {"t8.tif --noegal",
       "(Masques) Le masque Incid_t8.tif (20 x 8) n'a pas la taille de l'image Ort_t8.tif (80 x 80)."}};
  for (const auto& c : refus) {
    EXPECT_EQ(test::Egalise(d.chemin(), c[0]).statut, 255) << c[0];
    const std::string log = test::LireFichier(d / "log.txt");
    EXPECT_NE(log.find("\nException :\n"), std::string::npos) << c[0];
    EXPECT_NE(log.find(c[1]), std::string::npos) << c[0] << "\n" << log;
    EXPECT_FALSE(std::ifstream(d / "sans.ori").is_open()) << c[0];  // the pair is complete or absent
  }
}

// Mosaics their writer refuses (too big for a classic TIFF, a type or a name the format lacks) and a
// grid too wide to address: refused with the writer's own message, after the same console lines,
// before the mosaic exists (the first case would take 4 GiB; the ceiling below is far from that) and
// leaving no file of the mosaic behind.
TEST(MosaiqueJob, SortieRefuseeAvantLaComposition) {
  struct Cas {
    const char* tuiles;  // "loin": two 8 x 8 tiles; "ligne": two 8 x 2 tiles on one row; else the grid
    double ecart;        // between the two tiles, in pixels of 1 m
    const char* options;
    const char* message;  // its beginning
  } cas[] = {
      // 32768 x 32768 float pixels: 4 GiB, just past what a classic TIFF holds.
      {"loin", 32761, "--noegal --ssechfinal 1 --output m.tif",
       "[TIFF_Annexes] (SetImage) Image de 4294967296 octets trop grande pour un fichier TIFF (4 Go au "
       "plus)."},
      {"grille", 0, "--pas 4 --ssechfinal 0.005 --output m.tif", "[TIFF_Annexes] (SetImage) Image de 63"},
      {"loin", 32761, "--noegal --fusion:voronoi --output m.pgm",
       "[ImageFicOut_PNM] (Constructeur) Type de pixel Float4 (float) non gere pour m.pgm"},
      {"grille", 0, "--pas 4 --output m.xyz",
       "[ImageFicOut] (Contructeur) Extension non reconnue pour le fichier m.xyz"},
      {"ligne", 3e9, "--noegal --ssechfinal 1 --output m.tif",
       "[Main_nouveau] (Composition) Taille de mosaique impossible : 3e+09 x 1 pixels de 1."},
  };
  for (const Cas& c : cas) {
    test::DossierTemp d;
    std::string noms = "a.tif b.tif ";
    if (std::string(c.tuiles) == "grille") {
      noms = EcrireGrille(d.chemin(), false);
    } else {
      const int lignes = std::string(c.tuiles) == "loin" ? 8 : 2;
      const double dy = std::string(c.tuiles) == "loin" ? c.ecart : 0;
      EcrireTuile(d.chemin(), Tuile{"a.tif", 1000, 5000, 8, lignes, 1, 0, 0, 0});
      EcrireTuile(d.chemin(), Tuile{"b.tif", 1000 + c.ecart, 5000 - dy, 8, lignes, 1, 0, 0, 0});
    }
    long memoire = -1;
    const test::Resultat r = test::Lancer(d.chemin(), "'" EGALISE_EXE "' " + noms + c.options, memoire);
    EXPECT_EQ(r.statut, 255) << c.options << "\n" << r.sortie;
    const std::string fin = "\nDebut de la creation de l'image finale\n";
    EXPECT_EQ(r.sortie.substr(r.sortie.size() - std::min(r.sortie.size(), fin.size())), fin) << c.options;
    const std::string log = test::LireFichier(d / "log.txt");
    EXPECT_NE(log.find("\nException :\n" + std::string(c.message)), std::string::npos) << c.options << "\n"
                                                                                       << log;
    EXPECT_GT(memoire, 0);
    EXPECT_LT(memoire, 1024 * 1024) << c.options;
    for (const auto& f : std::filesystem::directory_iterator(d.chemin()))
      EXPECT_NE(f.path().filename().string().rfind("m.", 0), 0u) << c.options << " " << f.path();
  }
}

// A run that fails once corrected images are written (one of them, or the mosaic, cannot be) leaves
// none of them: the error comes after the same console lines, and no "Solution_" file remains.
TEST(MosaiqueJob, UneErreurApresLesCorrectionsNeLaisseAucuneSolution) {
  struct Cas {
    const char* preparation;  // shell commands run in the folder first
    const char* t4;           // the word naming the fifth tile
    const char* options;
    const char* message;  // its beginning
  } cas[] = {
      // The tile's file without an extension: its corrected image has none either.
      {"mv Ort_t4.tif Ort_t4", "t4", "", "[TTIMAGE] (Sauver) Aucune extension pour le fichier Solution_t4"},
      // Read by its content, written by its name: no float PGM.
      {"mv Ort_t4.tif Ort_t4.pgm", "t4.pgm", "",
       "[ImageFicOut_PNM] (Constructeur) Type de pixel Float4 (float) non gere pour Solution_t4.pgm"},
      {"mkdir Solution_t4.tif", "t4.tif", "", "[ImageFicOut_Raster] (Constructeur) Impossible de renommer"},
      {"", "t4.tif", "--output m.xyz",
       "[ImageFicOut] (Contructeur) Extension non reconnue pour le fichier m.xyz"},
      {"", "t4.tif", "--output nul/m.tif",
       "[CartoProjOrientation] (Dump) Impossible de creer le fichier nul/m.ori"},
  };
  for (const Cas& c : cas) {
    test::DossierTemp d;
    std::string noms = EcrireGrille(d.chemin(), false);
    noms.replace(noms.find("t4.tif"), 6, c.t4);
    ASSERT_EQ(
        test::Lancer(d.chemin(), std::string("true ") + (*c.preparation ? "&& " : "") + c.preparation).statut,
        0);
    const test::Resultat r = test::Egalise(d.chemin(), noms + "--pas 4 " + c.options);
    EXPECT_EQ(r.statut, 255) << c.preparation << c.options << "\n" << r.sortie;
    EXPECT_NE(r.sortie.find("\nDecomposition LDLt OK\n"), std::string::npos) << r.sortie;
    const std::string log = test::LireFichier(d / "log.txt");
    EXPECT_NE(log.find("\nException :\n" + std::string(c.message)), std::string::npos) << log;
    for (const auto& f : std::filesystem::directory_iterator(d.chemin()))
      EXPECT_FALSE(f.is_regular_file() && f.path().filename().string().rfind("Solution_", 0) == 0)
          << c.preparation << c.options << " " << f.path();
  }
}

// An input given several times, under one name or another: its corrected image is written once and
// the run ends as a run on one thread does, whatever the threads' timing (they once shared the
// temporary file and one of them failed to rename it).
TEST(MosaiqueJob, LaMemeImageDonneePlusieursFois) {
  test::DossierTemp d;
  const std::string arguments = EcrireGrille(d.chemin(), false) + "t4.tif ./t4.tif t4.tif --pas 4";
  ASSERT_EQ(test::Lancer(d.chemin(), "taskset -c 0 '" EGALISE_EXE "' " + arguments).statut, 0);
  const std::string octets =
      test::LireFichier(d / "Solution_t4.tif") + test::LireFichier(d / "big_image.tif");
  for (int k = 0; k < 4; ++k) {
    const test::Resultat r = test::Egalise(d.chemin(), arguments);
    ASSERT_EQ(r.statut, 0) << k << "\n" << test::LireFichier(d / "log.txt");
    EXPECT_EQ(test::LireFichier(d / "Solution_t4.tif") + test::LireFichier(d / "big_image.tif"), octets);
  }
}

}  // namespace

// A named pipe where an image, its orientation or its mask is looked for: opening it to read would
// wait for a writer forever. Each run must end, refused like a folder of that name, or without it when
// the file is optional. The runs are bounded by timeout so that a regression fails rather than hangs.
TEST(MosaiqueJob, UnTubeNommeAuLieuDUnFichierNeBloquePas) {
  struct Cas {
    const char* tube;
    const char* arguments;
    int statut;
  };
  const Cas cas[] = {
      {"Ort_t0.tif", "t0.tif t1.tif --pas 4", 255},
      {"Ort_t0.ori", "t0.tif t1.tif --pas 4", 255},
      {"Incid_t0.tif", "t0.tif t1.tif --pas 4", 255},
      {"Ort_t2.rle", "t0.tif t2.rle --pas 4", 255},
      {"Ort_t0.ori", "mosaique Ort_t0.tif Ort_t1.tif -o m.tif --quiet", 1},
      {"Ort_t0.tif.msk", "mosaique Ort_t0.tif Ort_t1.tif -o m.tif --quiet", 1},
  };
  for (const Cas& c : cas) {
    test::DossierTemp d;
    EcrireGrille(d.chemin(), false);
    EcrireIncid(d.chemin(), "t1.tif", -1);  // the masks are read when every input has one
    std::filesystem::remove(d / c.tube);
    ASSERT_EQ(mkfifo((d / c.tube).c_str(), 0600), 0) << c.tube;
    const test::Resultat r =
        test::Lancer(d.chemin(), "timeout 60 '" EGALISE_EXE "' " + std::string(c.arguments));
    EXPECT_EQ(r.statut, c.statut) << c.tube << " " << c.arguments << "\n" << r.sortie;
    if (c.statut == 255) {
      EXPECT_NE(test::LireFichier(d / "log.txt").find("Exception :"), std::string::npos);
    }
    EXPECT_FALSE(std::filesystem::exists(d / "big_image.tif") || std::filesystem::exists(d / "m.tif"));
  }
}
