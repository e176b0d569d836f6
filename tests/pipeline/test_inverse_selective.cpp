// The diagonal of a sparse symmetric matrix's inverse from its LDLT factor, against the dense inverse,
// on patterns of several shapes (the factor's fill-in and Eigen's reordering included).
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <functional>
#include <string>
#include <vector>

#include "outils_pipeline.h"
#include "pipeline/inverse_selective.h"

namespace {

// A symmetric positive definite matrix of the given pattern: random off-diagonal couplings (pattern(i,
// j) for i > j), the diagonal made dominant, or nearly singular when 'faible' (one direction weakly
// held, as the blind spot of the equalization's systems).
Eigen::SparseMatrix<double> Matrice(int n, const std::function<bool(int, int)>& motif, uint32_t graine,
                                    bool faible) {
  std::vector<Eigen::Triplet<double>> t;
  std::vector<double> somme(n, 0.0);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < i; ++j)
      if (motif(i, j)) {
        const double v = 2 * test::Hasard(i, j, graine) - 1;
        t.emplace_back(i, j, v);
        t.emplace_back(j, i, v);
        somme[i] += std::fabs(v);
        somme[j] += std::fabs(v);
      }
  for (int i = 0; i < n; ++i)
    t.emplace_back(i, i, somme[i] + (faible ? 1e-6 : 0.5 + test::Hasard(i, i, graine)));
  Eigen::SparseMatrix<double> A(n, n);
  A.setFromTriplets(t.begin(), t.end());
  return A;
}

TEST(InverseSelective, DiagonaleContreInverseDense) {
  // Blocks of 12 unknowns per image, images on a grid meeting their eight neighbours: the gain-offset
  // systems' pattern.
  const auto grille = [](int cote) {
    return [cote](int i, int j) {
      const int a = i / 12, b = j / 12;
      return std::abs(a % cote - b % cote) <= 1 && std::abs(a / cote - b / cote) <= 1;
    };
  };
  struct Cas {
    std::string nom;
    int n;
    std::function<bool(int, int)> motif;
    bool faible;
  };
  const std::vector<Cas> cas = {
      {"une inconnue", 1, [](int, int) { return false; }, false},
      {"diagonale", 7, [](int, int) { return false; }, false},
      {"tridiagonale", 40, [](int i, int j) { return i - j == 1; }, false},
      {"fleche", 30, [](int, int j) { return j == 0; }, false},
      {"pleine", 20, [](int, int) { return true; }, false},
      {"aleatoire creuse", 80, [](int i, int j) { return test::Hasard(i, j, 99) < 0.05; }, false},
      {"deux blocs disjoints", 24, [](int i, int j) { return i / 12 == j / 12; }, false},
      {"bande d'images", 12 * 12, [](int i, int j) { return i / 12 - j / 12 <= 1; }, false},
      {"grille 4 x 4 d'images", 16 * 12, grille(4), false},
      {"grille 3 x 3, presque singuliere", 9 * 12, grille(3), true},
  };
  for (const Cas& c : cas) {
    SCOPED_TRACE(c.nom);
    const Eigen::SparseMatrix<double> A = Matrice(c.n, c.motif, 5, c.faible);
    Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>> ldlt(A);
    ASSERT_EQ(ldlt.info(), Eigen::Success);
    const Eigen::VectorXd d = DiagonaleInverse(ldlt);
    const Eigen::MatrixXd inverse = Eigen::MatrixXd(A).inverse();
    ASSERT_EQ(d.size(), c.n);
    for (int i = 0; i < c.n; ++i) EXPECT_NEAR(d(i), inverse(i, i), 1e-9 * std::fabs(inverse(i, i))) << i;
  }
}

}  // namespace
