// Helpers of the orientation tests: files written by hand, expected failures, stand-ins for the
// models whose files this tool refuses.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "zepra/cartoproj.h"
#include "zepra/erreur.h"

namespace test {

inline void Ecrire(const std::string& chemin, const std::string& contenu) {
  std::ofstream f(chemin, std::ios::binary);
  f << contenu;
}

// Runs f, expects an Erreur whose message begins with 'debut' (when not empty), contains every
// fragment and carries the location suffix.
template <class F>
std::string Refuse(F&& f, const std::string& debut, std::initializer_list<std::string> fragments = {}) {
  try {
    f();
  } catch (const Erreur& e) {
    const std::string t = e.Texte().str();
    if (!debut.empty()) {
      EXPECT_EQ(t.rfind(debut, 0), 0u) << t;
    }
    for (const std::string& frag : fragments)
      EXPECT_NE(t.find(frag), std::string::npos) << frag << " / " << t;
    EXPECT_NE(t.find(" (Fichier : ../"), std::string::npos) << t;
    return t;
  }
  ADD_FAILURE() << "pas d'Erreur, attendu : " << debut;
  return "";
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
