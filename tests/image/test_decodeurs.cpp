// LZW and PackBits decoders on streams written by hand, on libtiff's own LZW streams, and on corrupt
// streams that must not make them write past their output or read past their input.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "image/tiff/codec.h"
#include "image/tiff/decodeurs.h"
#include "outils_codecs_test.h"
#include "outils_image_test.h"

namespace {

using Octets = std::vector<unsigned char>;

// Decodes with outputs of 'pas' bytes at a time, as the reader does line by line.
template <class Decodeur>
Octets Decoder(const Octets& flux, size_t total, size_t pas) {
  Decodeur d(flux.data(), flux.size());
  Octets out(total);
  size_t n = 0;
  for (size_t k = 1; n < total && k > 0; n += k) k = d.Decode(out.data() + n, std::min(pas, total - n));
  out.resize(n);
  return out;
}
Octets Lzw(const Octets& f, size_t n, size_t pas = 1 << 20) { return Decoder<LZW_Decoder>(f, n, pas); }
Octets PackBits(const Octets& f, size_t n, size_t pas = 1 << 20) {
  return Decoder<PackBits_Decoder>(f, n, pas);
}

// Codes packed most significant bit first, each with its width: the oracle for long streams.
Octets Empaqueter(const std::vector<std::pair<int, int>>& codes) {
  Octets o;
  uint64_t bits = 0;
  int n = 0;
  for (const auto& c : codes) {
    bits = bits << c.second | static_cast<uint64_t>(c.first);
    for (n += c.second; n >= 8; n -= 8) o.push_back(static_cast<unsigned char>(bits >> (n - 8)));
  }
  if (n > 0) o.push_back(static_cast<unsigned char>(bits << (8 - n)));
  return o;
}

// Libtiff's streams below cover ordinary decoding, code widths and Clear; these cover what its
// encoder never writes.
TEST(LZW, FinDeFluxEtTablePleine) {
  // Clear 100000000 | 65 001000001 | End 100000001, then bytes that are not read.
  EXPECT_EQ(Lzw({0x80, 0x10, 0x60, 0x20, 0xFF, 0xFF}, 10), Octets({'A'}));
  // Clear | 65 | cut in the middle of 66: the stream ends there.
  EXPECT_EQ(Lzw({0x80, 0x10, 0x48}, 10), Octets({'A'}));
  // Without Clear the table fills at 4096 codes (widths 9, 10, 11, 12) and then stays as it is:
  // after 3900 single bytes, code 4095 (the last string added, bytes 3837 and 3838) is still valid.
  std::vector<std::pair<int, int>> codes = {{256, 9}};
  Octets attendu;
  for (int i = 0, libre = 258; i < 3900; ++i) {
    codes.push_back({i % 200, libre < 511 ? 9 : libre < 1023 ? 10 : libre < 2047 ? 11 : 12});
    attendu.push_back(static_cast<unsigned char>(i % 200));
    if (i > 0 && libre < 4096) ++libre;
  }
  codes.insert(codes.end(), {{4095, 12}, {257, 12}});
  attendu.insert(attendu.end(), {3837 % 200, 3838 % 200});
  EXPECT_EQ(Lzw(Empaqueter(codes), 10000), attendu);
  EXPECT_EQ(Lzw(Empaqueter(codes), 10000, 7), attendu);
}

TEST(LZW, FluxDeLibtiffAvecChainesLonguesEtTableRemiseAZero) {
  // 36000 bytes: runs of 300 (long strings), a four-letter alphabet, then noise; libtiff's encoder
  // fills its table and clears it several times in the one strip. Lines of 3 and 60 bytes cut the
  // strings anywhere.
  std::mt19937 alea(7);
  std::vector<unsigned char> donnees(36000);
  for (size_t i = 0; i < donnees.size(); ++i)
    donnees[i] = static_cast<unsigned char>(i % 1000 < 300 ? i / 1000 : alea() % (i < 18000 ? 4 : 256));
  test::DossierTemp dir;
  for (int largeur : {3, 60}) {
    TTImage<unsigned char> image(largeur, 36000 / largeur, TagNbCanaux(1));
    std::copy(donnees.begin(), donnees.end(), image.InternalData());
    image.Sauver((dir / "a.tif").c_str());
    ASSERT_EQ(test::Tiffcp(dir, "-c lzw -r 20000", "a.tif", "lzw.tif"), "");
    EXPECT_TRUE(test::MemesEchantillons(image, TTImage<unsigned char>((dir / "lzw.tif").c_str()))) << largeur;
  }
}

TEST(LZW, FluxCorrompusSansDebordement) {
  // Clear | 65 | 300: beyond the next free code (258). Clear | 258: a string code where only a single
  // byte can come.
  const Octets saut = Empaqueter({{256, 9}, {65, 9}, {300, 9}, {65, 9}}),
               apresClear = Empaqueter({{256, 9}, {258, 9}});
  LZW_Decoder d1(saut.data(), saut.size()), d2(apresClear.data(), apresClear.size());
  Octets out(8, 0xEE);
  EXPECT_TRUE(d1.Decode(out.data(), 8) == 1u && d1.Corrompu() && d1.CodeInvalide() == 300);
  EXPECT_TRUE(d2.Decode(out.data(), 8) == 0u && d2.Corrompu());

  // Random streams: never more than asked for, never past the input (the sanitizer build checks
  // the reads), whatever the output size of each call.
  std::mt19937 alea(12345);
  for (int essai = 0; essai < 2000; ++essai) {
    Octets flux(alea() % 64);
    for (auto& o : flux) o = static_cast<unsigned char>(alea());
    if (!flux.empty() && essai % 2) flux[0] = 0x80;  // a Clear first, so that decoding goes further
    LZW_Decoder d(flux.data(), flux.size());
    const size_t pas = 1 + alea() % 50;
    Octets tampon(pas + 16, 0xEE);
    for (size_t n = pas, appel = 0; n == pas && appel < 100; ++appel) {
      n = d.Decode(tampon.data(), pas);
      ASSERT_LE(n, pas);
      for (size_t i = pas; i < tampon.size(); ++i) ASSERT_EQ(tampon[i], 0xEE);
    }
  }
}

TEST(PackBits, FluxEcritsALaMainEtDepassements) {
  // 0: one literal | -1: 'z' twice | -128: nothing | 1: two literal bytes; cut at every size
  const Octets melange = {0x00, 'x', 0xFF, 'z', 0x80, 0x01, 'p', 'q'};
  for (size_t pas = 1; pas <= 6; ++pas)
    EXPECT_EQ(PackBits(melange, 5, pas), Octets({'x', 'z', 'z', 'p', 'q'})) << pas;
  EXPECT_EQ(test::Avertissements([] { EXPECT_EQ(PackBits({0x80}, 4), Octets()); }),
            "WARNING : [PackBits_Decoder] (Decode) Cas n==-128 : noop ???\n");

  // Overruns, reported after the call; nothing is written past the output or what the input holds.
  // Through the codec interface, on a block of 'taille' bytes: reported once, by the call that
  // completes the block, whatever the requests; a block left short is not complete.
  struct Cas {
    Octets flux;
    size_t taille, ecrits;
    std::string avertissement;
  };
  const std::string w = "WARNING : [PackBits_Decoder] (Decode) Depassement de ";
  const Cas cas[] = {{{0xFD, 0x41}, 2, 2, w + "out de 2\n"},     // -3: 0x41 four times, two fit
                     {{0x05, 'a', 'b'}, 6, 2, w + "in de 4\n"},  // 5: six literal bytes, two present
                     {{0x05, 'a', 'b'}, 2, 2, w + "in de 4\n"},
                     {{0xFE}, 6, 0, w + "in de 1\n"}};  // a repeat with no byte to repeat
  for (const Cas& c : cas) {
    PackBits_Decoder d(c.flux.data(), c.flux.size());
    Octets tampon(c.taille + 16, 0xEE);
    EXPECT_EQ(d.Decode(tampon.data(), c.taille), c.ecrits);
    EXPECT_EQ(tampon[c.ecrits], 0xEE);
    EXPECT_EQ(test::Avertissements([&] { d.SignalerDepassements(); }), c.avertissement);
    const auto decodeur = tiff::TrouverCodec(32773)->decodeur();
    for (size_t pas : {size_t{0}, size_t{1}, c.taille + 3})
      EXPECT_EQ(test::Avertissements([&] {
                  test::Decoder(*decodeur, c.flux, test::Bloc(static_cast<int>(c.taille), 1), pas);
                }),
                c.ecrits == c.taille ? c.avertissement : "")
          << pas;
  }
}

}  // namespace
