// LZW of TIFF (compression 5): the decoder, then the encoder.
//
// Codes. The stream is a sequence of codes packed most significant bit first. Codes 0 to 255 stand
// for the single bytes, 256 is Clear (empty the table, back to 9-bit codes), 257 is End of
// Information, and 258 upwards are the strings added while decoding: after each code (but the first
// after a Clear) the decoder adds the previous code's string followed by the first byte of the
// current one. A code equal to the next free code is the one case where the writer used a string
// the decoder has not built yet; it can only be the previous string plus its own first byte.
//
// Widths. Codes start at 9 bits and grow to 10, 11 and 12. The writer widens as soon as it has
// assigned code 511 (1023, 2047), although 511 still fits in 9 bits: the "early change" of TIFF
// LZW, one code sooner than GIF. The decoder adds each string one code after the writer did (it
// needs the next code's first byte), so it widens when its own next free code becomes 511, 1023 and
// 2047. Waiting for 512 misreads every later code. With 12 bits nothing past 4095 can be referenced,
// so a table of 4096 entries is enough; a writer must send Clear before it would need more, and a
// stream that does not simply stops growing the table.
//
// Worked example, 9-bit codes: Clear, 65, 66, 258, End.
//   Clear  table reset, next free code 258
//   65     first code after Clear: output "A"
//   66     output "B"; add 258 = "A" + "B" = "AB"
//   258    output "AB"; add 259 = "B" + "A" = "BA"
//   End    stop. Output: A B A B.
// After 253 additions (258 + 253 = 511) the next code is read with 10 bits.
//
// Strings are kept as (prefix code, last byte, length, first eight bytes): a string of eight bytes
// or fewer, nearly all of them in image data, is written by one 8-byte copy; a longer one by
// walking its prefixes back to its first eight bytes. No string is stored whole.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "codec.h"
#include "codecs_externes.h"
#include "decodeurs.h"
#include "zepra/erreur.h"

void LZW_Decoder::SetData(const unsigned char* donnees, size_t taille) {
  m_in = donnees;
  m_taille = taille;
  m_pos = 0;
  m_bits = 0;
  m_nbBits = 0;
  m_fini = false;
  m_corrompu = false;
  m_codeInvalide = 0;
  m_resteDebut = m_resteFin = 0;
  InitTable();
}

void LZW_Decoder::InitLitteraux() {
  for (int i = 0; i < 256; ++i) {
    m_table[i] = Entree{{static_cast<unsigned char>(i)}, 0, 1, static_cast<unsigned char>(i)};
  }
}

// The 256 single-byte strings never change: a Clear only resets the counters.
void LZW_Decoder::InitTable() {
  m_libre = 258;
  m_limite = 511;
  m_largeur = 9;
  m_ancien = -1;
}

// The state lives in locals during the loop: every byte written through 'out' could otherwise alias
// the members and force the compiler to reload them.
size_t LZW_Decoder::Decode(unsigned char* out, size_t size) {
  size_t n = 0;
  if (m_resteDebut < m_resteFin) {
    const size_t k = std::min(size, static_cast<size_t>(m_resteFin - m_resteDebut));
    std::memcpy(out, m_reste + m_resteDebut, k);
    m_resteDebut += static_cast<int>(k);
    n = k;
  }
  if (m_fini || m_corrompu) return n;
  const unsigned char* const in = m_in;
  const size_t taille = m_taille;
  size_t pos = m_pos;
  uint64_t bits = m_bits;
  int nbBits = m_nbBits, largeur = m_largeur, libre = m_libre, limite = m_limite, ancien = m_ancien;
  Entree* const table = m_table;

  // Codes most significant bit first; 8 bytes at a time while there are, then byte by byte. The end
  // of the input counts as End of Information: nothing is read past the last byte.
  auto GetNextCode = [&]() -> int {
    if (nbBits < largeur) {
      if (taille - pos >= 8) {
        uint64_t v;
        std::memcpy(&v, in + pos, 8);
        v = __builtin_bswap64(v);
        const int k = (63 - nbBits) / 8;  // at most 7 bytes: the shift stays below 64
        bits = (bits << (8 * k)) | (v >> (64 - 8 * k));
        pos += static_cast<size_t>(k);
        nbBits += 8 * k;
      } else {
        while (nbBits < largeur && pos < taille) {
          bits = (bits << 8) | in[pos++];
          nbBits += 8;
        }
        if (nbBits < largeur) return kEnd;
      }
    }
    nbBits -= largeur;
    return static_cast<int>((bits >> nbBits) & ((1u << largeur) - 1));
  };
  // A full table stays as it is until the next Clear.
  auto AddStringToTable = [&](int prefixe, unsigned char octet) {
    if (libre >= kTailleTable) return;
    Entree& e = table[libre];
    e = table[prefixe];
    if (e.longueur < 8) e.debut[e.longueur] = octet;
    e.prefixe = static_cast<uint16_t>(prefixe);
    ++e.longueur;
    e.suffixe = octet;
    // The early change: one code before the current width runs out.
    if (++libre == limite) {
      ++largeur;
      limite = largeur < 12 ? 2 * limite + 1 : INT_MAX;
    }
  };

  while (n < size) {
    const int code = GetNextCode();
    if (code == kEnd) {
      m_fini = true;
      break;
    }
    if (code == kClear) {
      libre = 258;
      limite = 511;
      largeur = 9;
      ancien = -1;
      continue;
    }
    if (ancien < 0) {
      // After a Clear (or at the start) only a single byte can follow.
      if (code > 255) {
        m_corrompu = true;
        m_codeInvalide = code;
        break;
      }
      out[n++] = static_cast<unsigned char>(code);
      ancien = code;
      continue;
    }
    if (code < libre) {
      AddStringToTable(ancien, table[code].debut[0]);
    } else if (code == libre) {
      AddStringToTable(ancien, table[ancien].debut[0]);
    } else {
      m_corrompu = true;
      m_codeInvalide = code;
      break;
    }
    ancien = code;
    const Entree& e = table[code];
    const size_t longueur = e.longueur;
    if (longueur <= 8 && size - n >= 8) {
      // The common case: one copy of eight bytes, of which the string's own are kept.
      std::memcpy(out + n, e.debut, 8);
      n += longueur;
      continue;
    }
    const bool coupe = longueur > size - n;
    // Otherwise the string is written backwards from its end by walking the prefixes down to its
    // first eight bytes; one that does not fit goes whole to m_reste, and what fits is copied.
    unsigned char* const debut = coupe ? m_reste : out + n;
    unsigned char* fin = debut + longueur - 1;
    int c = code;
    while (table[c].longueur > 8) {
      *fin-- = table[c].suffixe;
      c = table[c].prefixe;
    }
    std::memcpy(debut, table[c].debut, table[c].longueur);
    if (coupe) {
      m_resteDebut = static_cast<int>(size - n);
      m_resteFin = static_cast<int>(longueur);
      std::memcpy(out + n, m_reste, size - n);
      n = size;
    } else {
      n += longueur;
    }
  }
  m_pos = pos;
  m_bits = bits;
  m_nbBits = nbBits;
  m_largeur = largeur;
  m_libre = libre;
  m_limite = limite;
  m_ancien = ancien;
  return n;
}

namespace tiff {

namespace {

// Streams: a padded last strip's stream goes on past the block, where Lire stops asking.
class DecodeurLzw : public Decodeur {
 protected:
  void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) override {
    m_lzw.SetData(donnees, taille);
    m_nom = bloc.nom;
  }
  size_t Decoder(unsigned char* sortie, size_t octets) override {
    const size_t n = m_lzw.Decode(sortie, octets);
    if (m_lzw.Corrompu())
      ZEPRA_ERREUR("[LZW_Decoder] (Decode) Code LZW " << m_lzw.CodeInvalide()
                                                      << " impossible dans le fichier " << m_nom << ".");
    return n;
  }

 private:
  LZW_Decoder m_lzw;
  std::string m_nom;
};

// The encoder. After each code but the last it adds the string just coded plus the next byte, and
// widens as soon as it has assigned 511 (1023, 2047), as the decoder above expects. At the end the
// decoder still adds a string for the last code (unless it followed a Clear), so when that string is
// 511 (1023, 2047) it reads End with one bit more: End must be written that wide. Before the table
// would reach 4094 strings the encoder sends Clear and starts again at 9 bits, as libtiff does.
//
// Strings are found by hashing (prefix code, next byte) into a table of 8192 slots, twice the codes;
// each slot is stamped with the generation of the table, so that a Clear costs one increment instead
// of emptying the slots.
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

}  // namespace

std::unique_ptr<Decodeur> DecodeurLZW() { return std::make_unique<DecodeurLzw>(); }
std::unique_ptr<Encodeur> CreerEncodeurLzw(int, int) { return std::make_unique<EncodeurLzw>(); }

// At most one code per 9 bits; the i-th code's string has at most i bytes (one more than the
// longest string before it) and never more than the 4096 a full table can hold.
uint64_t BorneLZW(uint64_t octets) {
  const uint64_t codes = octets / 9 * 8 + (octets % 9) * 8 / 9 + 1;
  return codes + 1 >= 2 * 4096 ? codes * 4096 : codes * (codes + 1) / 2;
}

}  // namespace tiff
