// PackBits (TIFF compression 32773): a signed control byte n, then n + 1 literal bytes (0 <= n <= 127)
// or one byte to repeat 1 - n times (-127 <= n <= -1); n = -128 is a no-op. Decoder and encoder.
#include <algorithm>
#include <cstring>
#include <string>

#include "codec.h"
#include "codecs_externes.h"
#include "decodeurs.h"
#include "zepra/systeme.h"

void PackBits_Decoder::SetData(const unsigned char* donnees, size_t taille) {
  *this = PackBits_Decoder();
  m_in = donnees;
  m_taille = taille;
}

size_t PackBits_Decoder::Decode(unsigned char* out, size_t size) {
  size_t n = 0;
  while (n < size) {
    if (m_literal > 0) {
      const size_t k = std::min(m_literal, size - n);
      std::memcpy(out + n, m_in + m_pos, k);
      m_pos += k;
      n += k;
      m_literal -= k;
      continue;
    }
    if (m_repetition > 0) {
      const size_t k = std::min(m_repetition, size - n);
      std::memset(out + n, m_valeur, k);
      n += k;
      m_repetition -= k;
      continue;
    }
    if (m_pos >= m_taille) break;
    const int c = static_cast<signed char>(m_in[m_pos++]);
    if (c >= 0) {
      // A literal run longer than what is left of the input copies only what is there.
      const size_t voulu = static_cast<size_t>(c) + 1;
      const size_t dispo = m_taille - m_pos;
      if (dispo < voulu) m_manque += voulu - dispo;
      m_literal = std::min(voulu, dispo);
    } else if (c != -128) {
      if (m_pos >= m_taille) {
        ++m_manque;
      } else {
        m_valeur = m_in[m_pos++];
        m_repetition = static_cast<size_t>(1 - c);
      }
    } else if (!m_averti) {
      // Once per block: a hostile block of no-ops must not flood the log.
      m_averti = true;
      Systeme::Warning("[PackBits_Decoder] (Decode) Cas n==-128 : noop ???");
    }
  }
  return n;
}

void PackBits_Decoder::SignalerDepassements() const {
  if (DepassementOut() > 0)
    Systeme::Warning("[PackBits_Decoder] (Decode) Depassement de out de " + std::to_string(DepassementOut()));
  if (m_manque > 0)
    Systeme::Warning("[PackBits_Decoder] (Decode) Depassement de in de " + std::to_string(m_manque));
}

namespace tiff {

namespace {

// Streams, like LZW. Warns of the overruns once the block's last byte has been handed out.
class DecodeurPackbits : public Decodeur {
 protected:
  void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc&) override {
    m_packbits.SetData(donnees, taille);
  }
  size_t Decoder(unsigned char* sortie, size_t octets) override {
    const size_t n = m_packbits.Decode(sortie, octets);
    if (n > 0 && n == Reste()) m_packbits.SignalerDepassements();
    return n;
  }

 private:
  PackBits_Decoder m_packbits;
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

std::unique_ptr<Decodeur> DecodeurPackBits() { return std::make_unique<DecodeurPackbits>(); }
std::unique_ptr<Encodeur> CreerEncodeurPackBits(int, int) { return std::make_unique<EncodeurPackBits>(); }

// Two bytes give at most a run of 128.
uint64_t BornePackBits(uint64_t octets) { return (octets + 1) / 2 * 128; }

}  // namespace tiff
