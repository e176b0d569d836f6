// Helpers of the TIFF tests: TIFF files assembled byte by byte, errors caught as text, libtiff's
// tools run as an independent oracle.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "outils_test.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace test {

// A TIFF file written entry by entry: pixels at offset 8, then the directory, then the values that
// do not fit in four bytes. Entries are written in the order given (sorted by tag unless told).
class TiffTest {
 public:
  explicit TiffTest(bool grosBoutiste = false) : m_gros(grosBoutiste) {}

  TiffTest& Pixels(const std::string& octets) {
    m_pixels = octets;
    return *this;
  }
  // Values of type SHORT (3) or LONG (4).
  TiffTest& Entree(uint16_t tag, uint16_t type, const std::vector<uint32_t>& valeurs) {
    std::string o;
    for (uint32_t v : valeurs) o += Nombre(v, type == 3 ? 2 : type == 4 ? 4 : 1);
    return Brut(tag, type, static_cast<uint32_t>(valeurs.size()), o);
  }
  TiffTest& Court(uint16_t tag, const std::vector<uint32_t>& v) { return Entree(tag, 3, v); }
  TiffTest& Long(uint16_t tag, const std::vector<uint32_t>& v) { return Entree(tag, 4, v); }
  // Any type and count with the value bytes as they go in the file.
  TiffTest& Brut(uint16_t tag, uint16_t type, uint32_t count, const std::string& octets) {
    m_entrees[tag] = {type, count, octets};
    return *this;
  }
  TiffTest& Retirer(uint16_t tag) {
    m_entrees.erase(tag);
    return *this;
  }
  TiffTest& Suivant(uint32_t offset) {
    m_suivant = offset;
    return *this;
  }
  uint32_t OffsetPixels() const { return 8; }

  std::string Nombre(uint64_t v, int octets) const {
    std::string o(static_cast<size_t>(octets), '\0');
    for (int i = 0; i < octets; ++i)
      o[m_gros ? octets - 1 - i : i] = static_cast<char>((v >> (8 * i)) & 0xFF);
    return o;
  }

  std::string Octets() const {
    std::string f = m_gros ? std::string("MM") + Nombre(42, 2) : std::string("II") + Nombre(42, 2);
    const uint32_t repertoire = static_cast<uint32_t>(8 + m_pixels.size() + (m_pixels.size() & 1));
    f += Nombre(repertoire, 4);
    f += m_pixels;
    if (m_pixels.size() & 1) f += '\0';
    uint32_t valeurs = static_cast<uint32_t>(repertoire + 2 + 12 * m_entrees.size() + 4);
    std::string horsLigne;
    f += Nombre(m_entrees.size(), 2);
    for (const auto& e : m_entrees) {
      f += Nombre(e.first, 2) + Nombre(e.second.type, 2) + Nombre(e.second.count, 4);
      if (e.second.octets.size() <= 4) {
        f += e.second.octets + std::string(4 - e.second.octets.size(), '\0');
      } else {
        f += Nombre(valeurs + horsLigne.size(), 4);
        horsLigne += e.second.octets;
        if (horsLigne.size() & 1) horsLigne += '\0';
      }
    }
    f += Nombre(m_suivant, 4);
    return f + horsLigne;
  }

  void Ecrire(const std::string& chemin) const { std::ofstream(chemin, std::ios::binary) << Octets(); }

 private:
  struct Valeur {
    uint16_t type;
    uint32_t count;
    std::string octets;
  };
  bool m_gros;
  std::string m_pixels;
  std::map<uint16_t, Valeur> m_entrees;
  uint32_t m_suivant = 0;
};

// A one-strip uncompressed image with the usual tags, ready to be altered.
inline TiffTest TiffSimple(int colonnes, int lignes, int canaux, int bits, int format,
                           const std::string& pixels, bool grosBoutiste = false) {
  TiffTest t(grosBoutiste);
  t.Pixels(pixels)
      .Long(256, {static_cast<uint32_t>(colonnes)})
      .Long(257, {static_cast<uint32_t>(lignes)})
      .Court(258, std::vector<uint32_t>(static_cast<size_t>(canaux), static_cast<uint32_t>(bits)))
      .Court(259, {1})
      .Court(262, {canaux >= 3 ? 2u : 1u})
      .Long(273, {8})
      .Court(277, {static_cast<uint32_t>(canaux)})
      .Long(278, {static_cast<uint32_t>(lignes)})
      .Long(279, {static_cast<uint32_t>(pixels.size())})
      .Court(339, std::vector<uint32_t>(static_cast<size_t>(canaux), static_cast<uint32_t>(format)));
  return t;
}

// Warnings written while f runs.
template <class F>
std::string Avertissements(F&& f) {
  const bool w = Systeme::m_doWarnings, c = Systeme::m_hascout;
  Systeme::m_doWarnings = true;
  Systeme::m_hascout = true;
  testing::internal::CaptureStdout();
  try {
    f();
  } catch (...) {
    testing::internal::GetCapturedStdout();
    Systeme::m_doWarnings = w;
    Systeme::m_hascout = c;
    throw;
  }
  Systeme::m_doWarnings = w;
  Systeme::m_hascout = c;
  return testing::internal::GetCapturedStdout();
}

// Runs a command and returns what it wrote on standard error only.
inline Resultat LancerErreurs(const std::string& dossier, const std::string& commande) {
  return Lancer(dossier, "(" + commande + " >/dev/null)");
}

}  // namespace test
