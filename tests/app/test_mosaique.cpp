// The mosaic job: its command line, the equalization system against an independent dense solve, and
// whole runs of the built tool on generated tiles whose distortions and overlaps are known.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

#include "mosaique.h"
#include "outils_test.h"
#include "zepra/erreur.h"
#include "zepra/orientedimage.h"

namespace {

OptionsMosaique Options(std::vector<std::string> mots) {
  std::vector<char*> argv;
  static char programme[] = "egalise";
  argv.push_back(programme);
  for (std::string& m : mots) argv.push_back(m.data());
  argv.push_back(nullptr);
  return LireOptionsMosaique(static_cast<int>(mots.size()) + 1, argv.data());
}

TEST(OptionsMosaique, RegleDuDernierMotsEntiersEtRefus) {
  const OptionsMosaique d = Options({"a.tif"});
  EXPECT_FALSE(d.referenceWalis);
  EXPECT_EQ(d.fusion, eFusionMoyenne);
  EXPECT_FALSE(d.multiplicatif);
  EXPECT_EQ(d.ssechfinal, 2.0);
  EXPECT_EQ(d.pas, 50.0);
  EXPECT_EQ(d.sortie, "big_image.tif");

  const OptionsMosaique o =
      Options({"--fusion:min", "a.tif", "--fusion:moyen", "--reference:walis", "--reference:moyenne", "b.tif",
               "--fusion:voronoi", "--pas", "12.5", "--modele:multiplicatif", "--ssechfinal", "1.5abc",
               "--noegal", "--prelissewalis", "--output", "m.tif", "--fusion:max"});
  // A mistyped option is an input name; the last option of a kind wins.
  EXPECT_EQ(o.entrees, (std::vector<std::string>{"a.tif", "--fusion:moyen", "b.tif"}));
  EXPECT_EQ(o.fusion, eFusionMax);
  EXPECT_FALSE(o.referenceWalis);
  EXPECT_TRUE(o.multiplicatif);
  EXPECT_EQ(o.pas, 12.0);  // the integer part
  EXPECT_EQ(o.ssechfinal, 1.5);
  EXPECT_TRUE(o.noegal);
  EXPECT_TRUE(o.prelissewalis);
  EXPECT_EQ(o.sortie, "m.tif");
  EXPECT_EQ(Options({"a", "--fusion:voronoi"}).fusion, eFusionVoronoi);
  EXPECT_EQ(Options({"a", "--fusion:min"}).fusion, eFusionMin);

  struct Cas {
    std::vector<std::string> mots;
    const char* message;
  };
  const Cas refus[] = {
      {{"a.tif", "--pas"}, "L'option --pas attend une valeur."},
      {{"a.tif", "--ssechfinal"}, "L'option --ssechfinal attend une valeur."},
      {{"a.tif", "--output"}, "L'option --output attend une valeur."},
      {{"a.tif", "--pas", "0.9"}, "--pas doit etre un entier strictement positif (valeur lue : 0)"},
      {{"a.tif", "--pas", "-5"}, "--pas doit etre un entier strictement positif (valeur lue : -5)"},
      {{"a.tif", "--ssechfinal", "0"}, "--ssechfinal doit etre un reel strictement positif"},
      {{"a.tif", "--ssechfinal", "nan"}, "--ssechfinal doit etre un reel strictement positif"},
      {{"--noegal", "--pas", "10"}, "Aucune image en entree."},
  };

  for (const Cas& c : refus) {
    test::Refuse([&] { Options(c.mots); }, "[Main_nouveau] (Options) ", {c.message});
  }
}

// ---------------------------------------------------------------------------------------------------
// The equalization system on toy cases, against rows built here from the description and a dense
// solve of the weighted normal equations.

struct Toy {
  std::vector<TTImage<float>> images;
  std::vector<TTImage<bool>> masques;
  std::vector<OrientationOld> oris;
};

// Three small images on one grid (pixel 1 m), overlapping, with smooth values and a few holes.
Toy FaireToy() {
  Toy t;
  const double x0[3] = {1000, 1012, 1005};
  const double y0[3] = {5000, 4998, 4988};
  for (int i = 0; i < 3; ++i) {
    TTImage<float> im(24, 20, TagNbCanaux(1));
    TTImage<bool> m(24, 20, false);
    for (int y = 0; y < 20; ++y)
      for (int x = 0; x < 24; ++x) {
        const double X = x0[i] + x, Y = y0[i] - y;
        im(x, y) = static_cast<float>(100 + 0.3 * (X - 1000) - 0.2 * (Y - 4980) + 5 * i + 0.01 * x * y);
        if ((x + 2 * y) % 17 == 0) im(x, y) = 0.0f;  // no data
        if ((3 * x + y) % 23 == 0) m(x, y) = true;   // excluded
      }
    t.images.push_back(im);
    t.masques.push_back(m);
    t.oris.emplace_back(eORICarto, x0[i], y0[i], 0, 24, 20, 1.0, 1.0);
  }
  return t;
}

struct Oracle {
  Eigen::VectorXd X;
  long long points = 0, obs = 0;
};

// Rows written from the description of the system, solved by a dense factorisation.
Oracle ResoudreDense(const Toy& t, const Emprise& e, double pas, bool multiplicatif) {
  struct Obs {
    int image;
    double col, lin, v;
  };
  std::vector<std::vector<Obs>> parPoint;
  std::vector<long long> indiceGrille;
  std::vector<double> V;
  long long g = 0;
  for (double x = e.minX; x < e.maxX; x += pas)
    for (double y = e.minY; y < e.maxY; y += pas, ++g) {
      std::vector<Obs> vus;
      for (int i = 0; i < static_cast<int>(t.images.size()); ++i) {
        const OrientationOld& o = t.oris[i];
        if (!(o.GetMinXCarto() < x && x < o.GetMaxXCarto() && o.GetMinYCarto() < y && y < o.GetMaxYCarto()))
          continue;
        double col, lin, z;
        o.MapToPhoto(x, y, 0.0, col, lin, z);
        const int c = static_cast<int>(std::trunc(col)), l = static_cast<int>(std::trunc(lin));
        if (c < 0 || l < 0 || c >= 24 || l >= 20) continue;
        if (t.images[i](c, l) == 0.0f || t.masques[i](c, l)) continue;
        vus.push_back(Obs{i, col, lin, t.images[i](c, l)});
        V.push_back(t.images[i](c, l));
      }
      if (!vus.empty()) {
        parPoint.push_back(vus);
        indiceGrille.push_back(g);
      }
    }
  Oracle r;
  r.points = static_cast<long long>(parPoint.size());
  for (const auto& p : parPoint) r.obs += static_cast<long long>(p.size());
  const long long nImg = 3, n = r.obs, np = r.points;
  Eigen::MatrixXd A = Eigen::MatrixXd::Zero(2 * n + np, nImg * 6 + np);
  Eigen::VectorXd B = Eigen::VectorXd::Zero(2 * n + np), W = Eigen::VectorXd::Zero(2 * n + np);
  long long ligne = 0;
  for (long long p = 0; p < np; ++p) {
    double ref = 0;
    if (indiceGrille[p] < static_cast<long long>(V.size())) {
      ref = V[indiceGrille[p]];
    } else {
      for (const Obs& o : parPoint[p]) ref += o.v;
      ref /= static_cast<double>(parPoint[p].size());
    }
    for (const Obs& o : parPoint[p]) {
      const double m[6] = {1, o.col, o.lin, o.col * o.col, o.col * o.lin, o.lin * o.lin};
      for (int k = 0; k < 6; ++k) A(ligne, o.image * 6 + k) = m[k];
      if (multiplicatif) {
        B(ligne) = o.v / ref;
      } else {
        A(ligne, nImg * 6 + p) = 1;
        B(ligne) = o.v;
      }
      W(ligne) = 1;
      A(n + ligne, nImg * 6 + p) = 1;
      B(n + ligne) = o.v;
      W(n + ligne) = 0.1;
      ++ligne;
    }
    A(2 * n + p, nImg * 6 + p) = 1;
    B(2 * n + p) = ref;
    W(2 * n + p) = 0.1;
  }
  const Eigen::MatrixXd N = A.transpose() * W.asDiagonal() * A;
  r.X = N.colPivHouseholderQr().solve(A.transpose() * W.asDiagonal() * B);
  return r;
}

TEST(Egalisation, SystemeContreUneResolutionDenseIndependante) {
  const Toy t = FaireToy();
  std::vector<ImageObservee> obs(3);
  Emprise e;
  for (int i = 0; i < 3; ++i) {
    obs[i].ortho = obs[i].valeurs = &t.images[i];
    obs[i].masque = &t.masques[i];
    obs[i].geo = GeoCarto(t.oris[i]);
  }
  e.minX = 1000, e.maxX = 1012 + 23, e.minY = 4988 - 19, e.maxY = 5000;
  for (bool multiplicatif : {false, true}) {
    for (double pas : {2.0, 3.0}) {
      std::ostringstream console;
      std::vector<Polynome2D> p;
      ASSERT_TRUE(Egaliser(obs, e, pas, multiplicatif, p, console)) << console.str();
      const Oracle o = ResoudreDense(t, e, pas, multiplicatif);
      EXPECT_TRUE(test::Commence(console.str(), std::to_string(o.points) + " points " +
                                                    std::to_string(2 * o.obs) +
                                                    " eqs\nCalcul de tAA et tAB\nCompression\nResolution\n"
                                                    "Decomposition LDLt OK\nSolution : "));
      EXPECT_NE(console.str().find("\nResidus : "), std::string::npos);
      ASSERT_EQ(p.size(), 3u);
      for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 6; ++k)
          EXPECT_NEAR(p[i].Coefficients()[k], o.X(i * 6 + k), 1e-7 * (1 + std::abs(o.X(i * 6 + k))))
              << "image " << i << " terme " << k << " pas " << pas << " multiplicatif " << multiplicatif;
      // Corrected pixels agree too; no data stays no data.
      for (int i = 0; i < 3; ++i) {
        TTImage<float> corrige = t.images[i];
        CorrigerImage(corrige, p[i], multiplicatif);
        for (int y = 0; y < 20; ++y)
          for (int x = 0; x < 24; ++x) {
            const double v = t.images[i](x, y);
            const double P = o.X(i * 6) + o.X(i * 6 + 1) * x + o.X(i * 6 + 2) * y + o.X(i * 6 + 3) * x * x +
                             o.X(i * 6 + 4) * x * y + o.X(i * 6 + 5) * y * y;
            const double attendu = v == 0 ? 0 : (multiplicatif ? v / P : v - P);
            ASSERT_NEAR(corrige(x, y), attendu, 1e-4 * (1 + std::abs(attendu))) << x << "," << y;
          }
      }
    }
  }
  // The inline evaluation is Polynome2D's to the last bit.
  Polynome2D r(2);
  r.SetCoefficients({1.5e3, -3.25, 0.1, 1e-5, -7.7e-4, 3.3e-6});
  for (double x : {0.0, 1.0, 17.5, 2999.0, -3.0})
    for (double y : {0.0, 0.3, 1234.0}) {
      const double a = r(x, y), b = ValeurDegre2(r.Coefficients().data(), x, y);
      EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << x << "," << y;
    }
}

// ---------------------------------------------------------------------------------------------------
// Whole runs of the built tool.

// A smooth scene with texture, in map coordinates.
double Scene(double X, double Y) {
  return 120 + 20 * std::sin(X / 37.0) * std::cos(Y / 23.0) + 4 * std::sin((X + 2 * Y) / 5.0);
}

struct Tuile {
  std::string nom;
  double x0, y0;
  int colonnes, lignes;
  // distortion: value = scene * gain + (a + b * col + c * lin)
  double gain, a, b, c;
};

// Writes "Ort_<nom>" (float values, 0 kept for no data) with its orientation, pixel 1 m.
void EcrireTuile(const std::string& dossier, const Tuile& t, int zone = 0,
                 const std::function<bool(int, int)>& sansDonnee = nullptr) {
  TTOrientedImage<float> im(t.lignes, t.colonnes, TagNbCanaux(1),
                            OrientationOld(eORICarto, t.x0, t.y0, zone, t.colonnes, t.lignes, 1.0, 1.0));
  for (int y = 0; y < t.lignes; ++y)
    for (int x = 0; x < t.colonnes; ++x) {
      const double v = Scene(t.x0 + x, t.y0 - y) * t.gain + t.a + t.b * x + t.c * y;
      im(x, y) = sansDonnee && sansDonnee(x, y) ? 0.0f : static_cast<float>(v);
    }
  im.Sauver((dossier + "/Ort_" + t.nom).c_str());
}

// Mean absolute difference of two sets of images where they overlap, at the map positions of the
// pixels of the first of each pair.
double Desaccord(const std::vector<TTOrientedImage<float>>& ims) {
  double somme = 0;
  long long n = 0;
  for (size_t i = 0; i < ims.size(); ++i)
    for (size_t j = i + 1; j < ims.size(); ++j) {
      const GeoCarto gi(ims[i].GetOrientation()), gj(ims[j].GetOrientation());
      for (int y = 0; y < ims[i].iGetNbLignes(); ++y)
        for (int x = 0; x < ims[i].iGetNbColonnes(); ++x) {
          double col, lin;
          gj.MapToPhoto(gi.x0 + x * gi.pasX, gi.y0 - y * gi.pasY, col, lin);
          int c, l;
          if (!PixelDedans(col, lin, ims[j].iGetNbColonnes(), ims[j].iGetNbLignes(), c, l)) continue;
          if (ims[i](x, y) == 0 || ims[j](c, l) == 0) continue;
          somme += std::abs(ims[i](x, y) - ims[j](c, l));
          ++n;
        }
    }
  return n ? somme / static_cast<double>(n) : 0;
}

std::vector<TTOrientedImage<float>> LireTout(const std::string& dossier, const std::vector<Tuile>& ts,
                                             const char* prefixe) {
  std::vector<TTOrientedImage<float>> v;
  for (const Tuile& t : ts) v.emplace_back((dossier + "/" + prefixe + t.nom).c_str());
  return v;
}

// 3 x 3 tiles of 80 x 80 overlapping by 20 pixels, each with its own distortion.
std::vector<Tuile> Grille3x3(bool multiplicatif, double y0 = 5000) {
  std::vector<Tuile> ts;
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i) {
      const int k = j * 3 + i;
      Tuile t{"t" + std::to_string(k) + ".tif", 1000.0 + 60 * i, y0 - 60 * j, 80, 80, 1, 0, 0, 0};
      if (multiplicatif) {
        t.gain = 0.8 + 0.05 * ((k * 5) % 9);
      } else {
        t.a = -20 + 5 * ((k * 7) % 9);
        t.b = 0.1 * ((k % 3) - 1);
        t.c = -0.08 * ((k % 2) * 2 - 1);
      }
      ts.push_back(t);
    }
  return ts;
}

std::string Noms(const std::vector<Tuile>& ts) {
  std::string s;
  for (const Tuile& t : ts) s += " " + t.nom;
  return s;
}

TEST(MosaiqueJob, EgalisationAdditiveEtMultiplicativeReduitLesDesaccords) {
  for (bool multiplicatif : {false, true}) {
    test::DossierTemp d;
    const std::vector<Tuile> ts = Grille3x3(multiplicatif);
    for (const Tuile& t : ts) EcrireTuile(d.chemin(), t);
    const test::Resultat r =
        test::Egalise(d.chemin(), Noms(ts) + " --pas 4" + (multiplicatif ? " --modele:multiplicatif" : ""));
    ASSERT_EQ(r.statut, 0) << r.sortie << test::LireFichier(d / "log.txt");
    const std::vector<std::string> l = test::Lignes(r.sortie);
    ASSERT_GE(l.size(), 12u) << r.sortie;
    EXPECT_EQ(l[0], "Lecture de Ort_t0.tif");
    EXPECT_EQ(l[9], "usemask : non");
    EXPECT_EQ(l[10], "Calcul de l'emprise : ");
    EXPECT_EQ(l[11], "1000 4801 --> 1199 5000");
    EXPECT_EQ(l[12], "Debut du calcul");
    EXPECT_NE(r.sortie.find("\nDecomposition LDLt OK\nSolution : "), std::string::npos);
    EXPECT_NE(r.sortie.find("\nFin du calcul\nDebut de la creation de l'image finale\n"), std::string::npos);

    const double avant = Desaccord(LireTout(d.chemin(), ts, "Ort_"));
    const double apres = Desaccord(LireTout(d.chemin(), ts, "Solution_"));
    // The tiles disagree by 15 (additive) and 25 (multiplicative) grey levels on average before. The
    // system ties every point's common value to its observations and most points are seen by one tile
    // only, which pulls the corrections back: on these tiles the additive model divides the
    // disagreement by 11, the multiplicative one by 3.4. The test holds them to 10 and 3.
    EXPECT_GT(avant, 10.0);
    EXPECT_LT(apres, avant / (multiplicatif ? 3 : 10)) << "avant " << avant << " apres " << apres;

    // The mosaic and its orientation: half the resolution by default, over the footprint.
    const TTOrientedImage<float> m((d / "big_image.tif").c_str());
    EXPECT_EQ(m.GetTaille(), TPoint2D<int>(99, 99));
    EXPECT_EQ(m.GetOrientation().GetMinXCarto(), 1000);
    EXPECT_EQ(m.GetOrientation().GetMaxYCarto(), 5000);
    EXPECT_TRUE(std::ifstream(d / "big_image.tfw").is_open());
    EXPECT_TRUE(std::ifstream(d / "Solution_t4.ori").is_open());
    EXPECT_TRUE(std::ifstream(d / "Solution_t4.tfw").is_open());
    for (int y = 0; y < 99; ++y)
      for (int x = 0; x < 99; ++x) ASSERT_NE(m(x, y), 0.0f) << x << "," << y;
  }
}

// Two constant images overlapping along X: the fusion rules give known values.
TEST(MosaiqueJob, ReglesDeFusionSurUnRecouvrementConnu) {
  test::DossierTemp d;
  const Tuile a{"a.tif", 1000, 5000, 20, 8, 0, 10, 0, 0};
  const Tuile b{"b.tif", 1010, 5000, 20, 8, 0, 30, 0, 0};
  EcrireTuile(d.chemin(), a);
  EcrireTuile(d.chemin(), b);
  struct Cas {
    const char* option;
    int fusion;
  };
  for (const Cas& c : {Cas{"--fusion:moyenne", eFusionMoyenne}, Cas{"--fusion:min", eFusionMin},
                       Cas{"--fusion:max", eFusionMax}, Cas{"--fusion:voronoi", eFusionVoronoi}}) {
    const test::Resultat r = test::Egalise(
        d.chemin(), std::string("a.tif b.tif --noegal --ssechfinal 1 --output m.tif ") + c.option);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    EXPECT_EQ(r.sortie.find("Debut du calcul"), std::string::npos);  // no equalization
    EXPECT_FALSE(std::ifstream(d / "Solution_a.tif").is_open());
    const TTOrientedImage<float> m((d / "m.tif").c_str());
    // The footprint runs to the last pixel's corner: 29 x 7 pixels.
    ASSERT_EQ(m.GetTaille(), TPoint2D<int>(29, 7));
    for (int l = 0; l < 7; ++l)
      for (int x = 0; x < 29; ++x) {
        float attendu = x < 10 ? 10.0f : 30.0f;
        if (x >= 10 && x < 20) {
          if (c.fusion == eFusionMoyenne) attendu = 20.0f;
          if (c.fusion == eFusionMin) attendu = 10.0f;
          if (c.fusion == eFusionMax) attendu = 30.0f;
          if (c.fusion == eFusionVoronoi) {
            // Distances to each image's centre (10, 4), truncated; a tie or a kept 0 goes to b.
            const unsigned da =
                static_cast<unsigned>(std::sqrt((x - 10.0) * (x - 10.0) + (l - 4.0) * (l - 4.0)));
            const unsigned db =
                static_cast<unsigned>(std::sqrt((x - 20.0) * (x - 20.0) + (l - 4.0) * (l - 4.0)));
            attendu = (da != 0 && db > da) ? 10.0f : 30.0f;
          }
        }
        ASSERT_EQ(m(x, l), attendu) << c.option << " " << x << "," << l;
      }
  }
  // b's own no-data column 19, widened by the disc of radius 10, excludes its columns 9 to 19: only
  // its columns 0 to 8 (mosaic 10 to 18) still contribute.
  EcrireTuile(d.chemin(), b, 0, [](int x, int) { return x == 19; });
  const test::Resultat r = test::Egalise(d.chemin(), "a.tif b.tif --noegal --ssechfinal 1 --output m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const TTOrientedImage<float> m((d / "m.tif").c_str());
  for (int x = 0; x < 29; ++x) {
    const float attendu = x < 10 ? 10.0f : x < 19 ? 20.0f : x == 19 ? 10.0f : 0.0f;
    EXPECT_EQ(m(x, 3), attendu) << x;
  }
}

// Writes "Incid_<nom>" for a tile: non-zero where excluded.
void EcrireIncid(const std::string& dossier, const Tuile& t, const std::function<bool(int, int)>& exclu,
                 int colonnes = -1) {
  TTImage<unsigned char> m(colonnes < 0 ? t.colonnes : colonnes, t.lignes, TagNbCanaux(1));
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x) m(x, y) = exclu(x, y) ? 255 : 0;
  m.Sauver((dossier + "/Incid_" + t.nom).c_str());
}

TEST(MosaiqueJob, MasquesIncidToutOuRien) {
  test::DossierTemp d;
  const Tuile a{"a.tif", 1000, 5000, 20, 8, 0, 10, 0, 0};
  const Tuile b{"b.tif", 1010, 5000, 20, 8, 0, 30, 0, 0};
  EcrireTuile(d.chemin(), a);
  EcrireTuile(d.chemin(), b);
  // Only a's mask: both images make their masks from their zeros (they have none).
  EcrireIncid(d.chemin(), a, [](int x, int) { return x == 0; });
  test::Resultat r = test::Egalise(d.chemin(), "a.tif b.tif --noegal --ssechfinal 1 --output m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  EXPECT_NE(r.sortie.find("\nusemask : non\n"), std::string::npos);
  EXPECT_EQ(TTImage<float>((d / "m.tif").c_str())(0, 3), 10.0f);

  // Both masks: a's column 0, widened by 10, excludes its columns 0 to 10.
  EcrireIncid(d.chemin(), b, [](int, int) { return false; });
  r = test::Egalise(d.chemin(), "a.tif b.tif --noegal --ssechfinal 1 --output m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  EXPECT_NE(r.sortie.find("\nusemask : OK\n"), std::string::npos);
  const TTImage<float> m((d / "m.tif").c_str());
  for (int x = 0; x < 29; ++x)
    EXPECT_EQ(m(x, 3), x < 10 ? 0.0f : x < 11 ? 30.0f : x < 20 ? 20.0f : 30.0f) << x;

  // A mask whose size differs from its image is refused.
  EcrireIncid(
      d.chemin(), b, [](int, int) { return false; }, 19);
  r = test::Egalise(d.chemin(), "a.tif b.tif --noegal");
  EXPECT_EQ(r.statut, 255);
  EXPECT_NE(test::LireFichier(d / "log.txt")
                .find("[Main_nouveau] (Masques) Le masque Incid_b.tif (19 x 8) n'a pas la "
                      "taille de l'image Ort_b.tif (20 x 8)."),
            std::string::npos);
}

TEST(MosaiqueJob, RateSansRienEcrireEtRefusDuLancement) {
  test::DossierTemp d;
  std::vector<Tuile> ts = Grille3x3(false);
  for (const Tuile& t : ts) EcrireTuile(d.chemin(), t);
  // A tile laid far away: the footprint's grid is huge around it, so a large step keeps it sparse; the
  // far tile is seen by no grid point.
  Tuile loin{"loin.tif", 1000000, 5000, 8, 8, 1, 0, 0, 0};
  EcrireTuile(d.chemin(), loin);
  const test::Resultat r = test::Egalise(d.chemin(), Noms(ts) + " loin.tif --pas 7");
  EXPECT_EQ(r.statut, 0) << r.sortie;
  EXPECT_EQ(test::Lignes(r.sortie).back(), "rate");
  EXPECT_FALSE(std::ifstream(d / "big_image.tif").is_open());
  EXPECT_FALSE(std::ifstream(d / "Solution_t0.tif").is_open());

  // Refusals end the run with status 255 and the message in the log.
  for (const char* arguments : {"t0.tif --pas", "--noegal", "absent.tif", "t0.tif --noegal --output sans"}) {
    const test::Resultat refus = test::Egalise(d.chemin(), arguments);
    EXPECT_EQ(refus.statut, 255) << arguments;
    EXPECT_NE(test::LireFichier(d / "log.txt").find("\nException :\n"), std::string::npos) << arguments;
    EXPECT_FALSE(std::ifstream(d / "sans.ori").is_open()) << arguments;  // the pair is complete or absent
  }
}

TEST(MosaiqueJob, Zone2HuitBitsMultiCanalWalisEtPrelissage) {
  test::DossierTemp d;
  // Zone 2 tiles, written as 8-bit three-channel images: the job works on channel 0, read as float.
  std::vector<Tuile> ts = Grille3x3(false, 2250000);
  for (const Tuile& t : ts) {
    TTOrientedImage<unsigned char> im(
        t.lignes, t.colonnes, TagNbCanaux(3),
        OrientationOld(eORICarto, t.x0, t.y0, 2, t.colonnes, t.lignes, 1.0, 1.0));
    for (int y = 0; y < t.lignes; ++y)
      for (int x = 0; x < t.colonnes; ++x) {
        const double v = Scene(t.x0 + x, t.y0 - y) + t.a + t.b * x + t.c * y;
        im(x, y, 0) = static_cast<unsigned char>(v);
        im(x, y, 1) = 0;
        im(x, y, 2) = 7;
      }
    im.Sauver((d / ("Ort_" + t.nom)).c_str());
  }
  // The orientation is written without the zone's millions.
  EXPECT_EQ(test::Lignes(test::LireFichier(d / "Ort_t0.ori"))[1], "1000000 250000000");
  for (const char* options : {" --reference:walis", " --prelissewalis --reference:walis --noegal"}) {
    const test::Resultat r = test::Egalise(d.chemin(), Noms(ts) + " --pas 4 --output m.tif" + options);
    ASSERT_EQ(r.statut, 0) << options << r.sortie << test::LireFichier(d / "log.txt");
    EXPECT_NE(r.sortie.find("\n1000 2.2498e+06 --> 1199 2.25e+06\n"), std::string::npos) << r.sortie;
    EXPECT_NE(r.sortie.find("\nWalis 0\nOK\nWalis 1\nOK\n"), std::string::npos) << r.sortie;
    const TTOrientedImage<float> m((d / "m.tif").c_str());
    EXPECT_EQ(m.GetNbCanaux(), 1);
    EXPECT_EQ(m.GetOrientation().GetZoneLambert(), 2);
    EXPECT_EQ(m.GetOrientation().GetMaxYCarto(), 2250000);
    EXPECT_EQ(test::Lignes(test::LireFichier(d / "m.ori"))[2], "2");
  }
  // Pre-smoothing prints the pooled mean and deviation of all tiles after the masks; the composed
  // Wallis images are then centred on 127.5 whatever the tiles' levels.
  const std::vector<std::string> l = test::Lignes(
      test::Egalise(d.chemin(),
                    Noms(ts) + " --pas 4 --prelissewalis --reference:walis --noegal --output m.tif")
          .sortie);
  ASSERT_GT(l.size(), 10u);
  std::istringstream stats(l[10]);
  double moyenne = 0, ecart = 0;
  stats >> moyenne >> ecart;
  EXPECT_NEAR(moyenne, 120, 15) << l[10];
  EXPECT_GT(ecart, 5) << l[10];
  double somme = 0;
  const TTImage<float> m((d / "m.tif").c_str());
  for (float v : m) somme += v;
  EXPECT_NEAR(somme / static_cast<double>(m.size()), 127.5, 10.0);
}

}  // namespace
