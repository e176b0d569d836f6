// The XML reader on arbitrary bytes: parses or refuses, and what it parses writes and parses again to
// the same tree.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "zepra/xml.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  std::istringstream flux(std::string(reinterpret_cast<const char*>(donnees), taille));
  XParserXML p;
  if (!p.Parse(flux)) return 0;
  std::ostringstream ecrit;
  p.Write(ecrit);
  std::istringstream relu(ecrit.str());
  XParserXML q;
  if (!q.Parse(relu)) std::abort();
  std::ostringstream reecrit;
  q.Write(reecrit);
  if (reecrit.str() != ecrit.str()) std::abort();
  return 0;
}
