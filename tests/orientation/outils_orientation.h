// Helpers of the orientation tests: files written by hand, carto orientations from their numbers and
// compared by them, stand-ins for the models whose files this tool refuses.
#pragma once

#include <charconv>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "outils_test.h"
#include "zepra/autresorientations.h"
#include "zepra/cartoproj.h"
#include "zepra/orientation.h"

namespace test {

inline std::unique_ptr<CartoProjOrientation> Carto(double x0, double y0, int zone, long nc, long nl,
                                                   double px, double py) {
  return std::unique_ptr<CartoProjOrientation>(static_cast<CartoProjOrientation*>(
      ImageOrientation::CreateCartoProjOrientation(x0, y0, zone, nc, nl, px, py).release()));
}

// "X0 Y0 zone columns lines pasX pasY", each number in the shortest text that reads back to its bits
// (std::to_chars): two orientations are the same exactly when their texts are.
inline std::string Nombres(const CartoProjOrientation& o) {
  std::string s;
  char t[32];
  for (double v :
       {o.GetXOrigine(), o.GetYOrigine(), static_cast<double>(o.GetZoneLambert()),
        static_cast<double>(o.GetNs()), static_cast<double>(o.GetNl()), o.GetXStep(), o.GetYStep()})
    s.append(t, std::to_chars(t, t + sizeof t, v).ptr).push_back(' ');
  s.pop_back();
  return s;
}

// A carto orientation (zone 0, origin (0, 0), steps 1) wearing another type code: the only way to hold
// an object of the kinds whose files are refused, to test copies and the operations that refuse.
class OrientationDeguisee : public CartoProjOrientation {
 public:
  explicit OrientationDeguisee(eORIProjType type) : CartoProjOrientation(*Carto(0, 0, 0, 30, 40, 1, 1)) {
    m_type = type;
  }
};

}  // namespace test
