// Helpers of the orientation tests: files written by hand, carto orientations from their numbers and
// compared by them, stand-ins for the models whose files this tool refuses.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>
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

// The seven numbers, with all the digits that tell two doubles apart.
inline std::string Nombres(const CartoProjOrientation& o) {
  std::ostringstream s;
  s << std::setprecision(17) << o.GetXOrigine() << ' ' << o.GetYOrigine() << ' ' << o.GetZoneLambert() << ' '
    << o.GetNs() << ' ' << o.GetNl() << ' ' << o.GetXStep() << ' ' << o.GetYStep();
  return s.str();
}
inline void MemeCarto(const CartoProjOrientation& a, const CartoProjOrientation& b) {
  EXPECT_EQ(Nombres(a), Nombres(b));
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
