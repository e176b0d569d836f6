// The two decoders of compressed TIFF blocks (one strip or one tile at a time). Private to src/image.
//
// Both decode in steps: Decode(out, size) writes at most 'size' bytes and returns how many it wrote;
// the next call goes on where the previous one stopped, so that a reader can decode a block line by
// line straight into the lines of an image. Neither reads past its input nor writes past 'size', and
// neither throws: a corrupt stream yields fewer bytes (and, for LZW, Corrompu()), which the caller
// turns into an Erreur naming the file.
#pragma once

#include <cstddef>
#include <cstdint>

class LZW_Decoder {
 public:
  LZW_Decoder() {
    InitLitteraux();
    InitTable();
  }
  LZW_Decoder(const unsigned char* donnees, size_t taille) {
    InitLitteraux();
    SetData(donnees, taille);
  }
  // Starts a new stream; the input must outlive the decoding.
  void SetData(const unsigned char* donnees, size_t taille);
  size_t Decode(unsigned char* out, size_t size);
  // End of Information read, or input exhausted.
  bool Fini() const { return m_fini; }
  // A code that cannot occur in a valid stream was read; decoding stopped there.
  bool Corrompu() const { return m_corrompu; }
  int CodeInvalide() const { return m_codeInvalide; }

  static constexpr int kClear = 256;
  static constexpr int kEnd = 257;
  static constexpr int kTailleTable = 4096;

 private:
  void InitLitteraux();
  void InitTable();

  // One string: its prefix's string plus one byte, and its first eight bytes (fewer when shorter),
  // so that most strings are written by one 8-byte copy.
  struct Entree {
    unsigned char debut[8];
    uint16_t prefixe;
    uint16_t longueur;
    unsigned char suffixe;
  };

  const unsigned char* m_in = nullptr;
  size_t m_taille = 0;
  size_t m_pos = 0;
  uint64_t m_bits = 0;  // pending input bits, the oldest first, in the low m_nbBits bits
  int m_nbBits = 0;
  int m_largeur = 9;
  int m_libre = 258;   // next free code
  int m_limite = 511;  // the next free code at which codes widen
  int m_ancien = -1;   // previous code, -1 after a Clear
  bool m_fini = false;
  bool m_corrompu = false;
  int m_codeInvalide = 0;
  // The rest of a string that did not fit in the previous output.
  unsigned char m_reste[kTailleTable];
  int m_resteDebut = 0, m_resteFin = 0;
  Entree m_table[kTailleTable];
};

class PackBits_Decoder {
 public:
  PackBits_Decoder() = default;
  PackBits_Decoder(const unsigned char* donnees, size_t taille) { SetData(donnees, taille); }
  void SetData(const unsigned char* donnees, size_t taille);
  size_t Decode(unsigned char* out, size_t size);
  // To call once the block's last byte has been asked for: warns of the bytes of the last run that
  // went past it and of the bytes the last literal run lacked in the input.
  void SignalerDepassements() const;
  size_t DepassementOut() const { return m_literal + m_repetition; }
  size_t DepassementIn() const { return m_manque; }

 private:
  const unsigned char* m_in = nullptr;
  size_t m_taille = 0;
  size_t m_pos = 0;
  size_t m_literal = 0;     // literal bytes still to copy
  size_t m_repetition = 0;  // copies of m_valeur still to write
  unsigned char m_valeur = 0;
  size_t m_manque = 0;  // bytes a run needed beyond the end of the input
  bool m_averti = false;
};
