// The equalization stages on toy cases: observations and the two historical models against rows
// built here from their description and a dense solve of the weighted normal equations, for one band
// and for two bands sharing one factorisation.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <memory>
#include <sstream>
#include <utility>

#include "outils_test.h"
#include "zepra/orientation.h"
#include "zepra/pipeline/modeles.h"
#include "zepra/pipeline/observations.h"

namespace {

struct Toy {
  std::vector<TTImage<float>> images;
  std::vector<TTImage<bool>> masques;
  std::vector<OrientationOld> oris;
};

// Three small images on one grid (pixel 1 m), overlapping, with smooth values and a few holes.
Toy FaireToy() {
  Toy t;
  const double x0[3] = {1000, 1012, 1005}, y0[3] = {5000, 4998, 4988};
  for (int i = 0; i < 3; ++i) {
    TTImage<float>& im = t.images.emplace_back(24, 20, TagNbCanaux(1));
    TTImage<bool>& m = t.masques.emplace_back(24, 20, false);
    for (int y = 0; y < 20; ++y)
      for (int x = 0; x < 24; ++x) {
        const double X = x0[i] + x, Y = y0[i] - y;
        im(x, y) = static_cast<float>(100 + 0.3 * (X - 1000) - 0.2 * (Y - 4980) + 5 * i + 0.01 * x * y);
        if ((x + 2 * y) % 17 == 0) im(x, y) = 0.0f;  // no data
        if ((3 * x + y) % 23 == 0) m(x, y) = true;   // excluded
      }
    t.oris.emplace_back(eORICarto, x0[i], y0[i], 0, 24, 20, 1.0, 1.0);
  }
  return t;
}

// Rows written from the description of the system, accumulated into dense weighted normal equations
// and solved by a dense factorisation.
// 'bande' gives the value of each band from the toy's value (band 0: the value itself).
double Bande(int bande, double v) { return bande == 0 || v == 0 ? v : 2 * v + 7; }

std::pair<Eigen::VectorXd, std::string> ResoudreDense(const Toy& t, const Emprise& e, double pas,
                                                      bool multiplicatif, int bande = 0) {
  struct Obs {
    int image;
    double col, lin, v;
  };
  std::vector<std::pair<long long, std::vector<Obs>>> points;  // grid index, observations
  std::vector<double> V;
  long long g = 0;
  for (double x = e.minX; x < e.maxX; x += pas)
    for (double y = e.minY; y < e.maxY; y += pas, ++g) {
      std::vector<Obs> vus;
      for (int i = 0; i < 3; ++i) {
        const OrientationOld& o = t.oris[i];
        if (!(o.GetMinXCarto() < x && x < o.GetMaxXCarto() && o.GetMinYCarto() < y && y < o.GetMaxYCarto()))
          continue;
        double col, lin, z;
        o.MapToPhoto(x, y, 0.0, col, lin, z);
        const int c = static_cast<int>(std::trunc(col)), l = static_cast<int>(std::trunc(lin));
        if (c < 0 || l < 0 || c >= 24 || l >= 20 || t.images[i](c, l) == 0.0f || t.masques[i](c, l)) continue;
        const double v = Bande(bande, t.images[i](c, l));
        vus.push_back(Obs{i, col, lin, v});
        V.push_back(v);
      }
      if (!vus.empty()) points.emplace_back(g, vus);
    }
  const long long n = static_cast<long long>(points.size());
  Eigen::MatrixXd N = Eigen::MatrixXd::Zero(18 + n, 18 + n);
  Eigen::VectorXd S = Eigen::VectorXd::Zero(18 + n);
  const auto Ligne = [&](const std::vector<std::pair<long long, double>>& a, double b, double w) {
    for (const auto& [i, u] : a) {
      S(i) += w * u * b;
      for (const auto& [j, v] : a) N(i, j) += w * u * v;
    }
  };
  for (long long p = 0; p < n; ++p) {
    const auto& [g, vus] = points[p];
    double ref = 0;
    for (const Obs& o : vus) ref += o.v / static_cast<double>(vus.size());
    if (g < static_cast<long long>(V.size())) ref = V[g];
    for (const Obs& o : vus) {
      const double m[6] = {1, o.col, o.lin, o.col * o.col, o.col * o.lin, o.lin * o.lin};
      std::vector<std::pair<long long, double>> a;
      for (int k = 0; k < 6; ++k) a.emplace_back(o.image * 6 + k, m[k]);
      if (!multiplicatif) a.emplace_back(18 + p, 1.0);
      Ligne(a, multiplicatif ? o.v / ref : o.v, 1.0);
      Ligne({{18 + p, 1.0}}, o.v, 0.1);
    }
    Ligne({{18 + p, 1.0}}, ref, 0.1);
  }
  // Two equations per observation.
  return {N.colPivHouseholderQr().solve(S),
          std::to_string(n) + " points " + std::to_string(2 * V.size()) + " eqs\n"};
}

// The observations against the walk of the grid as described: x outer, y inner, images inner, each
// point mapped by the orientation itself. Steps that are not whole numbers accumulate rounding along
// the walk, and the finest one starts two inputs past the thousandth position along X.
TEST(Observations, MemesObservationsQueLeParcoursDeLaGrille) {
  const Toy t = FaireToy();
  std::vector<std::unique_ptr<SourceMemoire>> sources;
  std::vector<ImageObservee> observees;
  for (int i = 0; i < 3; ++i) {
    sources.push_back(std::make_unique<SourceMemoire>(t.images[i], &t.images[i], &t.masques[i]));
    observees.push_back(ImageObservee{sources.back().get(), GeoCarto(t.oris[i])});
  }
  for (const auto& [pas, minY] : {std::pair(0.7, 4980.5), {2.3, 4969.0}, {0.013, 4985.1}}) {
    Emprise e;
    e.minX = 990.2, e.maxX = 1012 + 23.5, e.minY = minY, e.maxY = minY + (pas < 0.1 ? 2 : 30);
    const Observations o = Observer(observees, e, pas);
    size_t k = 0, p = 0;
    long long g = 0;
    for (double x = e.minX; x < e.maxX; x += pas)
      for (double y = e.minY; y < e.maxY; y += pas, ++g) {
        const size_t debut = k;
        for (int i = 0; i < 3; ++i) {
          const OrientationOld& ori = t.oris[i];
          if (!(ori.GetMinXCarto() < x && x < ori.GetMaxXCarto() && ori.GetMinYCarto() < y &&
                y < ori.GetMaxYCarto()))
            continue;
          double col, lin, z;
          ori.MapToPhoto(x, y, 0.0, col, lin, z);
          if (!(col > -1 && col < 24 && lin > -1 && lin < 20)) continue;
          const int c = static_cast<int>(col), l = static_cast<int>(lin);
          if (t.images[i](c, l) == 0.0f || t.masques[i](c, l)) continue;
          ASSERT_LT(k, o.obs.size());
          const Observation& ob = o.obs[k];
          ASSERT_TRUE(ob.image == i && ob.col == col && ob.lin == lin && o.Valeur(k, 0) == t.images[i](c, l))
              << "pas " << pas << " observation " << k << " : image " << ob.image << " (" << ob.col << ", "
              << ob.lin << ") / " << i << " (" << col << ", " << lin << ")";
          ++k;
        }
        if (k == debut) continue;
        ASSERT_LT(p, o.points.size());
        EXPECT_TRUE(o.points[p].debut == debut && o.points[p].fin == k && o.points[p].g == g) << p;
        ++p;
      }
    EXPECT_EQ(k, o.obs.size()) << pas;
    EXPECT_EQ(p, o.points.size()) << pas;
    EXPECT_EQ(g, o.nbPointsGrille) << pas;
    EXPECT_GT(k, 50u) << pas;
  }
  // The grid that no step can walk, and bands that differ, are refused.
  Emprise loin;
  loin.maxX = loin.maxY = 1e17;
  test::Refuse([&] { Observer(observees, loin, 1e8); },
               "[Main_nouveau] (Egaliser) Grille d'echantillonnage demesuree");
  loin.minX = loin.minY = 1e17;
  loin.maxX = loin.maxY = 1e17 + 64;
  test::Refuse([&] { Observer(observees, loin, 1); },
               "[Main_nouveau] (Egaliser) Le pas 1 ne fait pas avancer");
  const TTImage<float> deux(24, 20, TagNbCanaux(2));
  const SourceMemoire autre(deux);
  observees[1].source = &autre;
  test::Refuse([&] { Observer(observees, Emprise(), 1); },
               "[Observations] (Observer) Les images n'ont pas toutes 1 bandes.");
}

// The observations of the toy, and the model's fit of them with its progress lines.
struct Ajustement {
  Observations obs;
  std::vector<std::unique_ptr<CorrectionImage>> corrections;
  std::string console;
};
Ajustement Ajuster(const std::vector<TTImage<float>>& images, const Toy& t, const Emprise& e, double pas,
                   bool multiplicatif) {
  std::vector<std::unique_ptr<SourceMemoire>> sources;
  std::vector<ImageObservee> observees;
  for (int i = 0; i < 3; ++i) {
    sources.push_back(std::make_unique<SourceMemoire>(images[i], &images[i], &t.masques[i]));
    observees.push_back(ImageObservee{sources.back().get(), GeoCarto(t.oris[i])});
  }
  Ajustement a;
  a.obs = Observer(observees, e, pas);
  std::ostringstream console;
  console << a.obs.points.size() << " points " << 2 * a.obs.obs.size() << " eqs" << std::endl;
  const LigneModele* m = ChercherModele(multiplicatif ? "multiplicatif" : "additif");
  EXPECT_TRUE(m && m->creer);
  EXPECT_TRUE(m->creer(ParametresModele())->Ajuster(a.obs, &console, a.corrections)) << console.str();
  a.console = console.str();
  return a;
}

TEST(Egalisation, SystemeContreUneResolutionDenseIndependante) {
  const Toy t = FaireToy();
  // The same images with a second band: one factorisation, a right-hand side per band.
  std::vector<TTImage<float>> deuxBandes;
  for (const TTImage<float>& im : t.images) {
    TTImage<float>& d = deuxBandes.emplace_back(24, 20, TagNbCanaux(2));
    for (int y = 0; y < 20; ++y)
      for (int x = 0; x < 24; ++x)
        for (int b = 0; b < 2; ++b) d(x, y, b) = static_cast<float>(Bande(b, im(x, y)));
  }
  Emprise e;
  e.minX = 1000, e.maxX = 1012 + 23, e.minY = 4988 - 19, e.maxY = 5000;
  for (bool multiplicatif : {false, true})
    for (double pas : {2.0, 3.0})
      for (const std::vector<TTImage<float>>* images : {&t.images, &std::as_const(deuxBandes)}) {
        const Ajustement a = Ajuster(*images, t, e, pas, multiplicatif);
        const int bandes = images->front().GetNbCanaux();
        ASSERT_EQ(a.obs.nbBandes, bandes);
        ASSERT_EQ(a.corrections.size(), 3u);
        for (int b = 0; b < bandes; ++b) {
          const auto [solution, comptes] = ResoudreDense(t, e, pas, multiplicatif, b);
          if (b == 0) {
            EXPECT_TRUE(test::Commence(a.console, comptes + "Calcul de tAA et tAB\nCompression\nResolution\n"
                                                            "Decomposition LDLt OK\nSolution : "));
          }
          EXPECT_NE(a.console.find("\nResidus : "), std::string::npos);
          for (int i = 0; i < 3; ++i) {
            const auto* c = dynamic_cast<const CorrectionPolynome*>(a.corrections[i].get());
            ASSERT_TRUE(c);
            const Polynome2D& p = c->Polynome(b);
            const double* X = solution.data() + 6 * i;
            for (int k = 0; k < 6; ++k)
              EXPECT_NEAR(p.Coefficients()[k], X[k], 1e-7 * (1 + std::abs(X[k])))
                  << "image " << i << " terme " << k << " pas " << pas << " multiplicatif " << multiplicatif
                  << " bande " << b << "/" << bandes;
            // Corrected pixels are the polynomial's values to the last bit; no data stays no data.
            TTImage<float> corrige = (*images)[i];
            PuitsMemoire puits(corrige);
            Corriger(SourceMemoire((*images)[i]), *c, puits);
            for (int y = 0; y < 20; ++y)
              for (int x = 0; x < 24; ++x) {
                const double v = (*images)[i](x, y, b), P = p(x, y);
                ASSERT_EQ(corrige(x, y, b), v == 0 ? 0.0f : static_cast<float>(multiplicatif ? v / P : v - P))
                    << x << "," << y;
              }
          }
        }
      }
}

}  // namespace
