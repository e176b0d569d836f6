// LZW decoder of TIFF (compression 5).
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
// Strings are kept as (prefix code, last byte, length, first byte), so a string is written backwards
// from its end by walking the prefixes; no string is ever stored whole.
#include <algorithm>
#include <cstring>

#include "decodeurs.h"

namespace {
constexpr uint32_t kMasques[13] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x1FF, 0x3FF, 0x7FF, 0xFFF};
}

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
    m_prefixe[i] = 0;
    m_longueur[i] = 1;
    m_suffixe[i] = static_cast<unsigned char>(i);
    m_premier[i] = static_cast<unsigned char>(i);
  }
}

// The 256 single-byte strings never change: a Clear only resets the counters.
void LZW_Decoder::InitTable() {
  m_libre = 258;
  m_largeur = 9;
  m_ancien = -1;
}

// End of the input counts as End of Information: nothing is read past the last byte.
int LZW_Decoder::GetNextCode() {
  while (m_nbBits < m_largeur) {
    if (m_pos >= m_taille) return kEnd;
    m_bits = (m_bits << 8) | m_in[m_pos++];
    m_nbBits += 8;
  }
  m_nbBits -= m_largeur;
  return static_cast<int>((m_bits >> m_nbBits) & kMasques[m_largeur]);
}

void LZW_Decoder::AddStringToTable(int prefixe, unsigned char octet) {
  // A full table stays as it is until the next Clear.
  if (m_libre >= kTailleTable) return;
  const int c = m_libre;
  m_prefixe[c] = static_cast<uint16_t>(prefixe);
  m_suffixe[c] = octet;
  m_premier[c] = m_premier[prefixe];
  m_longueur[c] = static_cast<uint16_t>(m_longueur[prefixe] + 1);
  ++m_libre;
  // The early change: one code before the current width runs out.
  if (m_libre == 511)
    m_largeur = 10;
  else if (m_libre == 1023)
    m_largeur = 11;
  else if (m_libre == 2047)
    m_largeur = 12;
}

void LZW_Decoder::EcrireChaine(int code, unsigned char* dst) const {
  unsigned char* p = dst + m_longueur[code] - 1;
  while (code >= 258) {
    *p-- = m_suffixe[code];
    code = m_prefixe[code];
  }
  *p = static_cast<unsigned char>(code);
}

size_t LZW_Decoder::Decode(unsigned char* out, size_t size) {
  size_t n = 0;
  if (m_resteDebut < m_resteFin) {
    const size_t k = std::min(size, static_cast<size_t>(m_resteFin - m_resteDebut));
    std::memcpy(out, m_reste + m_resteDebut, k);
    m_resteDebut += static_cast<int>(k);
    n = k;
  }
  while (n < size && !m_fini && !m_corrompu) {
    const int code = GetNextCode();
    if (code == kEnd) {
      m_fini = true;
      break;
    }
    if (code == kClear) {
      InitTable();
      continue;
    }
    if (m_ancien < 0) {
      // After a Clear (or at the start) only a single byte can follow.
      if (code > 255) {
        m_corrompu = true;
        m_codeInvalide = code;
        break;
      }
      out[n++] = static_cast<unsigned char>(code);
      m_ancien = code;
      continue;
    }
    if (code < m_libre) {
      AddStringToTable(m_ancien, m_premier[code]);
    } else if (code == m_libre) {
      AddStringToTable(m_ancien, m_premier[m_ancien]);
    } else {
      m_corrompu = true;
      m_codeInvalide = code;
      break;
    }
    m_ancien = code;
    const size_t longueur = m_longueur[code];
    if (longueur <= size - n) {
      EcrireChaine(code, out + n);
      n += longueur;
    } else {
      EcrireChaine(code, m_reste);
      const size_t k = size - n;
      std::memcpy(out + n, m_reste, k);
      m_resteDebut = static_cast<int>(k);
      m_resteFin = static_cast<int>(longueur);
      n = size;
    }
  }
  return n;
}
