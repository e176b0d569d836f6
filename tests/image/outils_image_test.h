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
#include <tuple>
#include <vector>

#include "outils_test.h"
#include "zepra/imagefic.h"
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

// A stepped crop of a file against the same crop of the image in memory, both read as D.
template <class D, class T>
::testing::AssertionResult MemeCrop(const SpecifImageIn& fichier, const TTImage<T>& image, int x, int y,
                                    int colonnes, int lignes, int pas) {
  TTImage<D> lu, attendu;
  lu.Crop(fichier, x, y, colonnes, lignes, pas);
  attendu.Crop(image, x, y, colonnes, lignes, pas);
  return MemesEchantillons(attendu, lu);
}

// v in 'octets' little-endian bytes.
inline std::string Le(uint64_t v, int octets) {
  std::string o;
  for (int i = 0; i < octets; ++i) o += static_cast<char>((v >> (8 * i)) & 0xFF);
  return o;
}

// Warnings written while f runs (f lets no exception out).
template <class F>
std::string Avertissements(F&& f) {
  const bool w = Systeme::m_doWarnings, c = Systeme::m_hascout;
  Systeme::m_doWarnings = Systeme::m_hascout = true;
  testing::internal::CaptureStdout();
  f();
  Systeme::m_doWarnings = w, Systeme::m_hascout = c;
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

// The file 'chemin' read by our reader against 'image', sample by sample: whole, through a stepped
// crop that starts inside a block, and band after band as the band copies read, then back to the top.
template <class T>
void RelectureComplete(const std::string& chemin, const TTImage<T>& image) {
  const int h = image.iGetNbLignes();
  EXPECT_TRUE(MemesEchantillons(image, TTImage<T>(chemin.c_str())));
  const ImageFicIn fichier(chemin.c_str());
  EXPECT_TRUE(MemeCrop<double>(fichier, image, 3, 5, 31, 22, 3));
  TTImage<T> bandes(image.iGetNbColonnes(), h, TagNbCanaux(image.GetNbCanaux()));
  for (int y = 0; y < h + 4; y += 4) {  // 4 lines at a time, then lines 0-3 again
    const int y0 = y < h ? y : 0;
    fichier.GetValeurs(bandes.GetLines(), 0, y0, image.iGetNbColonnes(), std::min(h, y0 + 4), 0, y0, 1);
  }
  EXPECT_TRUE(MemesEchantillons(image, bandes));
}

// The TIFF file 'nom' of 'image' rewritten by libtiff in every layout we read, each read by
// RelectureComplete. Layouts: strips (single compressed ones: the decoder resumes there band after
// band), both byte orders, tiles with partial tiles, the horizontal predictor.
template <class T>
void VariantesTiffcp(const DossierTemp& dir, const TTImage<T>& image, const std::string& nom) {
  for (const std::string v :
       {"-c lzw", "-c packbits", "-c lzw -r 4", "-c packbits -r 3", "-r 1", "-B", "-B -c lzw -r 5",
        "-L -c lzw -r 7", "-t -w 16 -l 16", "-t -w 32 -l 16 -c lzw", "-c lzw:2 -r 6",
        "-t -w 16 -l 48 -c packbits", "-B -t -w 16 -l 16 -c packbits"}) {
    if (std::is_same_v<T, bool> && v == "-c lzw:2 -r 6") continue;  // no predictor for 1-bit samples
    SCOPED_TRACE(v);
    ASSERT_EQ(Tiffcp(dir, v, nom, "v.tif"), "");
    RelectureComplete(dir / "v.tif", image);
  }
}

// A little-endian TIFF file written entry by entry: pixels at offset 8, then the directory (entries
// sorted by tag), then the values that do not fit in four bytes.
struct TiffTest {
  std::string pixels;
  std::map<uint16_t, std::tuple<uint16_t, uint32_t, std::string>> entrees;  // type, count, value bytes

  TiffTest& Brut(uint16_t tag, uint16_t type, uint32_t count, const std::string& octets) {
    entrees[tag] = {type, count, octets};
    return *this;
  }
  // Values of type SHORT (3) or LONG (4).
  TiffTest& Court(uint16_t tag, const std::vector<uint32_t>& v) { return Valeurs(tag, 3, v); }
  TiffTest& Long(uint16_t tag, const std::vector<uint32_t>& v) { return Valeurs(tag, 4, v); }
  TiffTest& Valeurs(uint16_t tag, uint16_t type, const std::vector<uint32_t>& v) {
    std::string o;
    for (uint32_t x : v) o += Le(x, type == 3 ? 2 : 4);
    return Brut(tag, type, static_cast<uint32_t>(v.size()), o);
  }
  TiffTest& Retirer(uint16_t tag) {
    entrees.erase(tag);
    return *this;
  }
  void Ecrire(const std::string& chemin) const { EcrireFichier(chemin, Octets()); }
  std::string Octets() const {
    const size_t pad = pixels.size() & 1, repertoire = 8 + pixels.size() + pad;
    const size_t valeurs = repertoire + 6 + 12 * entrees.size();
    std::string f =
        "II" + Le(42, 2) + Le(repertoire, 4) + pixels + std::string(pad, '\0') + Le(entrees.size(), 2);
    std::string horsLigne;
    for (const auto& [tag, e] : entrees) {
      const std::string& o = std::get<2>(e);
      f += Le(tag, 2) + Le(std::get<0>(e), 2) + Le(std::get<1>(e), 4);
      f += o.size() <= 4 ? o + std::string(4 - o.size(), '\0') : Le(valeurs + horsLigne.size(), 4);
      if (o.size() > 4) horsLigne += o + std::string(o.size() & 1, '\0');
    }
    return f + Le(0, 4) + horsLigne;
  }
};

// A one-strip uncompressed 8-bit image with the usual tags, ready to be altered.
inline TiffTest TiffSimple(uint32_t c, uint32_t l, uint32_t n, const std::string& pixels) {
  TiffTest t{pixels, {}};
  t.Long(256, {c}).Long(257, {l}).Court(258, std::vector<uint32_t>(n, 8)).Court(259, {1});
  t.Court(262, {n >= 3 ? 2u : 1u}).Long(273, {8}).Court(277, {n}).Long(278, {l});
  return t.Long(279, {static_cast<uint32_t>(pixels.size())}).Court(339, std::vector<uint32_t>(n, 1));
}

// An 8 x 5 palette image: indices 0, 5, 10, ... and a color map whose entries use both bytes.
inline TiffTest TiffPalette() {
  std::vector<uint32_t> carte(768);
  for (int i = 0; i < 768; ++i) carte[i] = static_cast<uint32_t>((i * 37) % 256) * 257u;
  std::string indices;
  for (int i = 0; i < 40; ++i) indices += static_cast<char>(i * 5);
  return TiffSimple(8, 5, 1, indices).Court(262, {3}).Court(320, carte);
}

}  // namespace test
