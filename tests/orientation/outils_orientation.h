// Helpers of the orientation tests: files written by hand, carto orientations from their numbers,
// bit-for-bit comparisons, stand-ins for the models whose files this tool refuses.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "outils_test.h"
#include "zepra/cartoproj.h"

namespace test {

inline void Ecrire(const std::string& chemin, const std::string& contenu) {
  std::ofstream f(chemin, std::ios::binary);
  f << contenu;
}

inline std::unique_ptr<CartoProjOrientation> Carto(double x0, double y0, int zone, long nc, long nl,
                                                   double px, double py) {
  return std::unique_ptr<CartoProjOrientation>(static_cast<CartoProjOrientation*>(
      ImageOrientation::CreateCartoProjOrientation(x0, y0, zone, nc, nl, px, py).release()));
}

inline bool MemesBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The seven numbers, bit for bit.
inline void MemeCarto(const CartoProjOrientation& a, const CartoProjOrientation& b) {
  const double va[] = {a.GetXOrigine(), a.GetYOrigine(), a.GetXStep(), a.GetYStep()};
  const double vb[] = {b.GetXOrigine(), b.GetYOrigine(), b.GetXStep(), b.GetYStep()};
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(MemesBits(va[i], vb[i])) << i << ": " << va[i] << " / " << vb[i];
  EXPECT_EQ(a.GetZoneLambert(), b.GetZoneLambert());
  EXPECT_EQ(a.GetNs(), b.GetNs());
  EXPECT_EQ(a.GetNl(), b.GetNl());
}

// A carto orientation (zone 0, origin (0, 0), steps 1) wearing another type code: the only way to hold
// an object of the kinds whose files are refused, to test copies and the operations that refuse.
class OrientationDeguisee : public CartoProjOrientation {
 public:
  explicit OrientationDeguisee(eORIProjType type, long colonnes = 30, long lignes = 40)
      : CartoProjOrientation(*Carto(0, 0, 0, colonnes, lignes, 1, 1)) {
    m_type = type;
  }
};

}  // namespace test
