// LZW and PackBits decoders on streams written by hand, on streams cut anywhere, and on corrupt
// streams that must not make them write past their output or read past their input.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "image/decodeurs.h"
#include "tiff_outils_test.h"

namespace {

using Octets = std::vector<unsigned char>;

::testing::AssertionResult Egaux(const Octets& have, const Octets& want) {
  if (have == want) return ::testing::AssertionSuccess();
  auto texte = [](const Octets& o) {
    std::string t;
    for (unsigned char c : o) t += std::to_string(c) + " ";
    return t;
  };
  return ::testing::AssertionFailure() << "have " << texte(have) << "/ want " << texte(want);
}

// Decodes with outputs of 'pas' bytes at a time, as the reader does line by line.
template <class Decodeur>
Octets Decoder(Decodeur& d, size_t total, size_t pas) {
  Octets out(total);
  size_t n = 0;
  while (n < total) {
    const size_t k = d.Decode(out.data() + n, std::min(pas, total - n));
    n += k;
    if (k == 0) break;
  }
  out.resize(n);
  return out;
}

Octets Lzw(const Octets& flux, size_t total, size_t pas = 1000000) {
  LZW_Decoder d(flux.data(), flux.size());
  return Decoder(d, total, pas);
}

// Codes packed most significant bit first, each with its width: the oracle for long streams.
Octets Empaqueter(const std::vector<std::pair<int, int>>& codes) {
  Octets o;
  uint64_t bits = 0;
  int n = 0;
  for (const auto& c : codes) {
    bits = bits << c.second | static_cast<uint64_t>(c.first);
    n += c.second;
    while (n >= 8) {
      o.push_back(static_cast<unsigned char>(bits >> (n - 8)));
      n -= 8;
    }
  }
  if (n > 0) o.push_back(static_cast<unsigned char>(bits << (8 - n)));
  return o;
}

TEST(LZW, FluxEcritsALaMain) {
  // 9-bit codes: Clear 100000000 | 65 001000001 | 66 001000010 | 258 100000010 | End 100000001 | pad 000
  const Octets abab = {0x80, 0x10, 0x48, 0x50, 0x28, 0x08};
  EXPECT_TRUE(Egaux(Lzw(abab, 10), Octets({'A', 'B', 'A', 'B'})));
  EXPECT_TRUE(Egaux(Empaqueter({{256, 9}, {65, 9}, {66, 9}, {258, 9}, {257, 9}}), abab));
  // One byte per call: a string cut by the end of the output goes on at the next call.
  EXPECT_TRUE(Egaux(Lzw(abab, 4, 1), Octets({'A', 'B', 'A', 'B'})));
  // Clear 100000000 | 65 001000001 | 258 100000010 (not yet in the table: "A" + "A") | End 100000001
  const Octets aaa = {0x80, 0x10, 0x60, 0x50, 0x10};
  EXPECT_TRUE(Egaux(Lzw(aaa, 10), Octets({'A', 'A', 'A'})));
  // Clear | 65 | End: nothing is read after End.
  const Octets fin = {0x80, 0x10, 0x60, 0x20, 0xFF, 0xFF};
  EXPECT_TRUE(Egaux(Lzw(fin, 10), Octets({'A'})));
}

TEST(LZW, LargeurDesCodesEtTablePleine) {
  // Clear, then 254 single bytes: 253 strings are added, the next free code is 511 and the
  // following codes have 10 bits. A Clear brings back 9 bits.
  std::vector<std::pair<int, int>> codes = {{256, 9}};
  Octets attendu;
  for (int i = 0; i < 254; ++i) {
    codes.push_back({i, 9});
    attendu.push_back(static_cast<unsigned char>(i));
  }
  codes.push_back({258, 10});  // "\0\1"
  codes.push_back({256, 10});
  codes.push_back({66, 9});
  codes.push_back({257, 9});
  for (int c : {0, 1, 66}) attendu.push_back(static_cast<unsigned char>(c));
  EXPECT_TRUE(Egaux(Lzw(Empaqueter(codes), 1000), attendu));
  EXPECT_TRUE(Egaux(Lzw(Empaqueter(codes), 1000, 7), attendu));

  // Without Clear the table fills at 4096 codes (widths 9, 10, 11, 12) and then stays as it is:
  // every string of 3838 + 1 single bytes, then code 4095 (the last string added) is still valid.
  codes = {{256, 9}};
  attendu.clear();
  int libre = 258;
  for (int i = 0; i < 3900; ++i) {
    const int largeur = libre < 511 ? 9 : libre < 1023 ? 10 : libre < 2047 ? 11 : 12;
    codes.push_back({i % 200, largeur});
    attendu.push_back(static_cast<unsigned char>(i % 200));
    if (i > 0 && libre < 4096) ++libre;
  }
  codes.push_back({4095, 12});
  attendu.push_back(static_cast<unsigned char>(3837 % 200));
  attendu.push_back(static_cast<unsigned char>(3838 % 200));
  codes.push_back({257, 12});
  EXPECT_TRUE(Egaux(Lzw(Empaqueter(codes), 10000), attendu));
}

// A plain LZW writer, the oracle of the round trips below: each code gets the width the decoder
// will read it with (its next free code before the code, early change included), and a Clear is
// sent before the table would overflow.
Octets EncoderLZW(const Octets& donnees) {
  std::vector<std::pair<int, int>> codes;
  std::map<std::string, int> table;
  int emis = 0;  // codes since the last Clear
  auto emettre = [&](int code) {
    const int libre = emis == 0 ? 258 : 258 + emis - 1;
    codes.push_back({code, libre < 511 ? 9 : libre < 1023 ? 10 : libre < 2047 ? 11 : 12});
    ++emis;
  };
  auto code = [&](const std::string& w) {
    return w.size() == 1 ? static_cast<unsigned char>(w[0]) : table[w];
  };
  codes.push_back({256, 9});
  std::string w;
  for (unsigned char c : donnees) {
    const std::string wc = w + static_cast<char>(c);
    if (w.empty() || table.count(wc)) {
      w = wc;
      continue;
    }
    emettre(code(w));
    table[wc] = 258 + static_cast<int>(table.size());
    w = std::string(1, static_cast<char>(c));
    if (table.size() == 3800) {
      emettre(256);
      table.clear();
      emis = 0;
    }
  }
  if (!w.empty()) emettre(code(w));
  emettre(257);
  return Empaqueter(codes);
}

TEST(LZW, ChainesLonguesEtAllerRetourAvecUnEncodeur) {
  // A run of 'A': Clear, 65, then 258 ("AA"), 259 ("AAA")... each one the code being defined.
  std::vector<std::pair<int, int>> codes = {{256, 9}, {65, 9}};
  for (int c = 258; c < 258 + 19; ++c) codes.push_back({c, 9});
  codes.push_back({257, 9});
  for (size_t pas : {1, 7, 13, 1000}) EXPECT_TRUE(Egaux(Lzw(Empaqueter(codes), 1000, pas), Octets(210, 'A')));

  // Random data with repeats (runs, copies of earlier stretches), through a writer independent of
  // the decoder, decoded in pieces of several sizes.
  std::mt19937 alea(7);
  for (int essai = 0; essai < 20; ++essai) {
    Octets donnees;
    while (donnees.size() < 30000) {
      const unsigned r = alea() % 3;
      if (r == 0 || donnees.size() < 50) {
        donnees.push_back(static_cast<unsigned char>(alea() % (essai % 2 ? 4 : 256)));
      } else if (r == 1) {
        donnees.insert(donnees.end(), alea() % 40, static_cast<unsigned char>(alea()));
      } else {
        const size_t debut = alea() % (donnees.size() - 30), n = 1 + alea() % 30;
        for (size_t i = 0; i < n; ++i) donnees.push_back(donnees[debut + i]);
      }
    }
    const Octets flux = EncoderLZW(donnees);
    for (size_t pas : {3, 64, 1000000}) ASSERT_TRUE(Egaux(Lzw(flux, donnees.size(), pas), donnees)) << pas;
  }
}

TEST(LZW, FluxCorrompusSansDebordement) {
  // Clear | 65 | 300: beyond the next free code (258).
  LZW_Decoder d1;
  const Octets saut = Empaqueter({{256, 9}, {65, 9}, {300, 9}, {65, 9}});
  d1.SetData(saut.data(), saut.size());
  Octets out(8, 0xEE);
  EXPECT_EQ(d1.Decode(out.data(), 8), 1u);
  EXPECT_TRUE(d1.Corrompu());
  EXPECT_EQ(d1.CodeInvalide(), 300);
  // Clear | 258: a string code where only a single byte can come.
  const Octets apresClear = Empaqueter({{256, 9}, {258, 9}});
  LZW_Decoder d2(apresClear.data(), apresClear.size());
  EXPECT_EQ(d2.Decode(out.data(), 8), 0u);
  EXPECT_TRUE(d2.Corrompu());
  // A stream cut in the middle of a code ends there.
  const Octets coupe = {0x80, 0x10, 0x48};
  EXPECT_TRUE(Egaux(Lzw(coupe, 10), Octets({'A'})));

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
    for (int appel = 0; appel < 100; ++appel) {
      const size_t n = d.Decode(tampon.data(), pas);
      ASSERT_LE(n, pas);
      for (size_t i = pas; i < tampon.size(); ++i) ASSERT_EQ(tampon[i], 0xEE);
      if (n < pas) break;
    }
  }
}

Octets PackBits(const Octets& flux, size_t total, size_t pas = 1000000) {
  PackBits_Decoder d(flux.data(), flux.size());
  return Decoder(d, total, pas);
}

TEST(PackBits, FluxEcritsALaMainEtDepassements) {
  EXPECT_TRUE(Egaux(PackBits({0xFE, 0x41}, 10), Octets({0x41, 0x41, 0x41})));        // -2: 0x41 three times
  EXPECT_TRUE(Egaux(PackBits({0x02, 'a', 'b', 'c'}, 10), Octets({'a', 'b', 'c'})));  // 2: three literal bytes
  // 0: one literal | -1: 'z' twice | -128: nothing | 1: two literal bytes; cut at every size
  const Octets melange = {0x00, 'x', 0xFF, 'z', 0x80, 0x01, 'p', 'q'};
  for (size_t pas = 1; pas <= 6; ++pas)
    EXPECT_TRUE(Egaux(PackBits(melange, 5, pas), Octets({'x', 'z', 'z', 'p', 'q'}))) << pas;

  std::string w = test::Avertissements([] { EXPECT_TRUE(Egaux(PackBits({0x80}, 4), Octets())); });
  EXPECT_EQ(w, "WARNING : [PackBits_Decoder] (Decode) Cas n==-128 : noop ???\n");

  // A run past the end of the output: two bytes written, two reported.
  const Octets run = {0xFD, 0x41};  // -3: 0x41 four times
  PackBits_Decoder d(run.data(), run.size());
  Octets out(2);
  EXPECT_EQ(d.Decode(out.data(), 2), 2u);
  w = test::Avertissements([&] { d.SignalerDepassements(); });
  EXPECT_EQ(w, "WARNING : [PackBits_Decoder] (Decode) Depassement de out de 2\n");
  // A literal run longer than the input: what is there is copied, the rest reported.
  const Octets court = {0x05, 'a', 'b'};
  PackBits_Decoder e(court.data(), court.size());
  Octets tampon(6 + 16, 0xEE);
  EXPECT_EQ(e.Decode(tampon.data(), 6), 2u);
  EXPECT_EQ(tampon[2], 0xEE);
  w = test::Avertissements([&] { e.SignalerDepassements(); });
  EXPECT_EQ(w, "WARNING : [PackBits_Decoder] (Decode) Depassement de in de 4\n");
  // A repeat control byte with nothing after it.
  const Octets seul = {0xFE};
  PackBits_Decoder f(seul.data(), seul.size());
  EXPECT_EQ(f.Decode(tampon.data(), 6), 0u);
  EXPECT_EQ(f.DepassementIn(), 1u);
}

}  // namespace
