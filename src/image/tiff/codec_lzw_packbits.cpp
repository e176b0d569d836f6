// Encoders of TIFF LZW (5) and PackBits (32773); the decoders are in src/image (lzw.cpp,
// packbits.cpp).
//
// LZW. Codes of 9 to 12 bits, most significant bit first; 256 is Clear, 257 End of Information, 258
// upwards the strings added while encoding. After each code but the last, the encoder adds the
// string just coded plus the next byte. It widens as soon as it has assigned code 511 (1023, 2047):
// TIFF's "early change", one code sooner than GIF, which the decoder mirrors one code later (see
// lzw.cpp). At the end the decoder still adds a string for the last code (unless it followed a
// Clear), so when that string is 511 (1023, 2047) it reads End with one bit more: End must be
// written that wide. Before the table would reach 4094 strings the encoder sends Clear and starts
// again at 9 bits, as libtiff does.
//
// The strings are found by hashing (prefix code, next byte) into a table of 8192 slots, twice the
// codes: each slot is stamped with the generation of the table, so that a Clear costs one increment
// instead of emptying the slots.
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "image/tiff/codecs_externes.h"

namespace tiff {
namespace {

class EncodeurLzw : public Encodeur {
 public:
  void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
               std::vector<unsigned char>& sortie) override {
    const size_t n = static_cast<size_t>(contexte.Octets());
    // At most 12 bits per input byte, plus Clear codes and End.
    sortie.resize(n + n / 2 + n / 1000 * 2 + 16);
    m_sortie = sortie.data();
    m_octets = 0;
    m_bits = 0;
    m_nbBits = 0;
    Vider();
    int largeur = 9;
    Ecrire(kClear, largeur);
    if (n > 0) {
      int libre = kPremier;
      int chaine = bloc[0];
      for (size_t i = 1; i < n; ++i) {
        const uint32_t cle = static_cast<uint32_t>(chaine) << 8 | bloc[i];
        uint32_t s = Case(cle);
        while (m_cases[s].generation == m_generation && m_cases[s].cle != cle) s = (s + 1) & (kCases - 1);
        if (m_cases[s].generation == m_generation) {
          chaine = m_cases[s].code;
          continue;
        }
        Ecrire(chaine, largeur);
        m_cases[s] = {m_generation, cle, static_cast<uint16_t>(libre)};
        if (++libre == kPlein) {
          Ecrire(kClear, largeur);
          Vider();
          libre = kPremier;
          largeur = 9;
        } else if (libre == (1 << largeur)) {
          ++largeur;
        }
        chaine = bloc[i];
      }
      Ecrire(chaine, largeur);
      if (libre + 1 == (1 << largeur)) ++largeur;
    }
    Ecrire(kFin, largeur);
    if (m_nbBits > 0) m_sortie[m_octets++] = static_cast<unsigned char>(m_bits << (8 - m_nbBits));
    sortie.resize(m_octets);
  }

 private:
  static constexpr int kClear = 256, kFin = 257, kPremier = 258, kPlein = 4094;
  static constexpr uint32_t kCases = 8192;

  struct Case_ {
    uint32_t generation;
    uint32_t cle;  // prefix code << 8 | byte
    uint16_t code;
  };

  static uint32_t Case(uint32_t cle) { return (cle * 2654435761u) >> (32 - 13); }

  void Vider() {
    if (++m_generation == 0) {  // after 2^32 Clears the stamps would come round again
      std::memset(m_cases.get(), 0, sizeof(Case_) * kCases);
      m_generation = 1;
    }
  }

  void Ecrire(int code, int largeur) {
    m_bits = m_bits << largeur | static_cast<uint32_t>(code);
    for (m_nbBits += largeur; m_nbBits >= 8; m_nbBits -= 8)
      m_sortie[m_octets++] = static_cast<unsigned char>(m_bits >> (m_nbBits - 8));
  }

  std::unique_ptr<Case_[]> m_cases{new Case_[kCases]()};
  uint32_t m_generation = 0;
  unsigned char* m_sortie = nullptr;
  size_t m_octets = 0;
  uint64_t m_bits = 0;
  int m_nbBits = 0;
};

// PackBits, row by row as TIFF asks: a run of three equal bytes or more is a repeat (control byte
// 1 - length), anything else goes into literal runs (control byte length - 1) of at most 128 bytes.
class EncodeurPackBits : public Encodeur {
 public:
  void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
               std::vector<unsigned char>& sortie) override {
    const size_t ligne = static_cast<size_t>(contexte.OctetsLigne());
    const size_t lignes = static_cast<size_t>(contexte.hauteur);
    sortie.resize(lignes * (ligne + (ligne + 127) / 128));
    unsigned char* o = sortie.data();
    for (size_t y = 0; y < lignes; ++y) {
      const unsigned char* l = bloc + y * ligne;
      for (size_t i = 0; i < ligne;) {
        size_t j = i + 1;
        while (j < ligne && j - i < 128 && l[j] == l[i]) ++j;
        if (j - i >= 3) {
          *o++ = static_cast<unsigned char>(1 - static_cast<int>(j - i));
          *o++ = l[i];
          i = j;
          continue;
        }
        const size_t debut = i;
        while (i < ligne && i - debut < 128 && !(i + 2 < ligne && l[i] == l[i + 1] && l[i] == l[i + 2])) ++i;
        *o++ = static_cast<unsigned char>(i - debut - 1);
        std::memcpy(o, l + debut, i - debut);
        o += i - debut;
      }
    }
    sortie.resize(static_cast<size_t>(o - sortie.data()));
  }
};

}  // namespace

std::unique_ptr<Encodeur> CreerEncodeurLzw(int, int) { return std::make_unique<EncodeurLzw>(); }
std::unique_ptr<Encodeur> CreerEncodeurPackBits(int, int) { return std::make_unique<EncodeurPackBits>(); }

}  // namespace tiff
