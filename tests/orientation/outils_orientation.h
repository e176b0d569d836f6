// Helpers of the orientation tests: files written by hand, expected failures, stand-ins for the
// models whose files this tool refuses.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "outils_test.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"

namespace test {

inline void Ecrire(const std::string& chemin, const std::string& contenu) {
  std::ofstream f(chemin, std::ios::binary);
  f << contenu;
}

// A carto orientation wearing another type code: the only way to hold an object of the kinds whose
// files are refused, to test copies and the operations that refuse.
class OrientationDeguisee : public CartoProjOrientation {
 public:
  OrientationDeguisee(const CartoProjOrientation& c, eORIProjType type) : CartoProjOrientation(c) {
    m_type = type;
  }
};

inline bool MemesBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace test
