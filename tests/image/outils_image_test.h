// Helpers of the image library tests: the nine element types, patterned images compared sample by
// sample, files written from bytes, TIFF files assembled entry by entry, warnings captured, libtiff's
// tools run as an independent oracle.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "outils_test.h"
#include "zepra/systeme.h"
#include "zepra/ttimage.h"

namespace test {

using NeufTypes = ::testing::Types<bool, unsigned char, signed char, unsigned short, short, unsigned int, int,
                                   float, double>;

// Calls f(TypeTag<T>{}) for each of the nine element types.
template <class F>
void PourNeufTypes(F&& f) {
  for (int code = eBool; code <= eFloat8; ++code) AppliquerType(static_cast<eEnumType>(code), f);
}

// Values that use every byte of the sample, negative ones included, so that byte order and sign
// faults show.
template <class T>
T Motif(int x, int y, int c) {
  if constexpr (std::is_same_v<T, bool>) {
    return ((x * 3 + y * 5 + c) % 7) < 3;
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(x * 0.375 - y * 1.5e3 + c * 1.0e6 + 0.1);
  } else {
    return static_cast<T>(static_cast<uint64_t>(x) * 2654435761u +
                          static_cast<uint64_t>(y) * 40503u * 65537u + static_cast<uint64_t>(c) * 97u);
  }
}

template <class T>
TTImage<T> ImageMotif(int colonnes, int lignes, int canaux) {
  TTImage<T> im(colonnes, lignes, TagNbCanaux(canaux));
  for (int y = 0; y < lignes; ++y)
    for (int x = 0; x < colonnes; ++x)
      for (int c = 0; c < canaux; ++c) im(x, y, c) = Motif<T>(x, y, c);
  return im;
}

// Every sample of b against a converted by the plain cast, bit for bit (NaN and -0.0 included); the
// first difference is reported with its place.
template <class A, class B>
::testing::AssertionResult MemesEchantillons(const TTImage<A>& a, const TTImage<B>& b) {
  if (a.GetTaille() != b.GetTaille() || a.GetNbCanaux() != b.GetNbCanaux())
    return ::testing::AssertionFailure() << "have " << b.GetTaille() << " x " << b.GetNbCanaux() << " / want "
                                         << a.GetTaille() << " x " << a.GetNbCanaux();
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      for (int c = 0; c < a.GetNbCanaux(); ++c) {
        const B voulu = Convertir<B, A>(a(x, y, c)), lu = b(x, y, c);
        if (std::memcmp(&voulu, &lu, sizeof(B)) != 0)
          return ::testing::AssertionFailure()
                 << "(" << x << ", " << y << ", " << c << ") have " << +lu << " / want " << +voulu;
      }
  return ::testing::AssertionSuccess();
}

inline void EcrireFichier(const std::string& chemin, const std::string& octets) {
  std::ofstream(chemin, std::ios::binary).write(octets.data(), static_cast<std::streamsize>(octets.size()));
}

// Warnings written while f runs.
template <class F>
std::string Avertissements(F&& f) {
  struct Remise {
    bool w = Systeme::m_doWarnings, c = Systeme::m_hascout;
    ~Remise() { Systeme::m_doWarnings = w, Systeme::m_hascout = c; }
  } remise;
  Systeme::m_doWarnings = Systeme::m_hascout = true;
  testing::internal::CaptureStdout();
  try {
    f();
  } catch (...) {
    testing::internal::GetCapturedStdout();
    throw;
  }
  return testing::internal::GetCapturedStdout();
}

// tiffcp in a folder: "" when it succeeds, else what it said.
inline std::string Tiffcp(const DossierTemp& dir, const std::string& options, const std::string& de,
                          const std::string& vers) {
  const Resultat r = Lancer(dir.chemin(), "tiffcp " + options + " " + de + " " + vers);
  return r.statut == 0 ? r.sortie : "tiffcp " + options + " : " + r.sortie;
}

// What tiffinfo finds wrong in a file (its standard error), "" for a clean file.
inline std::string Tiffinfo(const DossierTemp& dir, const std::string& nom) {
  return Lancer(dir.chemin(), "(tiffinfo " + nom + " >/dev/null)").sortie;
}

// A little-endian TIFF file written entry by entry: pixels at offset 8, then the directory (entries
// sorted by tag), then the values that do not fit in four bytes.
class TiffTest {
 public:
  explicit TiffTest(const std::string& pixels = "") : m_pixels(pixels) {}
  // Values of type SHORT (3) or LONG (4).
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

  std::string Octets() const {
    const uint32_t repertoire = static_cast<uint32_t>(8 + m_pixels.size() + (m_pixels.size() & 1));
    std::string f = "II" + Nombre(42, 2) + Nombre(repertoire, 4) + m_pixels;
    if (m_pixels.size() & 1) f += '\0';
    const uint32_t valeurs = static_cast<uint32_t>(repertoire + 2 + 12 * m_entrees.size() + 4);
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
    return f + Nombre(0, 4) + horsLigne;
  }
  void Ecrire(const std::string& chemin) const { EcrireFichier(chemin, Octets()); }

 private:
  struct Valeur {
    uint16_t type;
    uint32_t count;
    std::string octets;
  };
  TiffTest& Entree(uint16_t tag, uint16_t type, const std::vector<uint32_t>& valeurs) {
    std::string o;
    for (uint32_t v : valeurs) o += Nombre(v, type == 3 ? 2 : 4);
    return Brut(tag, type, static_cast<uint32_t>(valeurs.size()), o);
  }
  static std::string Nombre(uint64_t v, int octets) {
    std::string o(static_cast<size_t>(octets), '\0');
    for (int i = 0; i < octets; ++i) o[static_cast<size_t>(i)] = static_cast<char>((v >> (8 * i)) & 0xFF);
    return o;
  }
  std::string m_pixels;
  std::map<uint16_t, Valeur> m_entrees;
};

// A one-strip uncompressed image with the usual tags, ready to be altered.
inline TiffTest TiffSimple(int colonnes, int lignes, int canaux, int bits, int format,
                           const std::string& pixels) {
  const auto c = static_cast<uint32_t>(colonnes), l = static_cast<uint32_t>(lignes),
             n = static_cast<uint32_t>(canaux), b = static_cast<uint32_t>(bits);
  TiffTest t(pixels);
  t.Long(256, {c}).Long(257, {l}).Court(258, std::vector<uint32_t>(n, b)).Court(259, {1});
  t.Court(262, {n >= 3 ? 2u : 1u}).Long(273, {8}).Court(277, {n}).Long(278, {l});
  t.Long(279, {static_cast<uint32_t>(pixels.size())}).Court(339, std::vector<uint32_t>(n, format));
  return t;
}

}  // namespace test
