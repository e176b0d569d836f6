// RLE: the library's own run-length raster format, one channel, numbers little-endian.
//
// A header of SizeOfHeader(lines) bytes (EnteteRLE), then the runs. A run is one or more run-length
// fields followed by one value field; a length field equal to the largest value of its width means
// that the run goes on (the next field is added), so a run of exactly 255 in 8-bit lengths is stored
// 255, 0. The runs of a stored line cover exactly its columns. The reader presents Z times the stored
// size: image line y is stored line y / Z, and a run of n stored columns covers Z x n image columns.
// Values are the field read plus the header's value offset.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "fichier_lignes.h"

// The header, shared by reader and writer.
struct EnteteRLE {
  // Byte positions of the fields.
  static constexpr int kColonnes = 0, kLignes = 4, kZoom = 8, kTypeValeurs = 12, kTypeLongueurs = 13,
                       kDecalage = 14, kTailleFixe = 18;

  int32_t colonnes = 0;
  int32_t lignes = 0;
  int32_t zoom = 1;
  uint8_t typeValeurs = 40;           // InfoType::TypeVal of the values
  uint8_t typeLongueurs = 50;         // 40: 8-bit lengths, 50: 16-bit, 10: 8-bit without continuation
  int32_t decalage = 0;               // added to every value read
  std::vector<int32_t> debutsLignes;  // file offset of the first run of each stored line

  static long long SizeOfHeader(long long lignes) { return kTailleFixe + 4 * lignes; }
  // The fixed part from its 18 bytes (the line table is left empty).
  static EnteteRLE DecoderFixe(const unsigned char* octets);
  // The whole header, line table included.
  std::vector<char> Encoder() const;
};

// How run lengths are coded, from the run-length type byte.
struct CodageLongueurs {
  int octets = 2;            // bytes of one length field
  unsigned maximum = 65535;  // largest field
  bool continuation = true;  // a largest field continues the run
  // False for a type byte the reader does not accept.
  static bool Depuis(int typeOctet, CodageLongueurs& codage);
};

// A buffered reader of a file's bytes, for the run decoder: one bounds check per field, and a clean
// Erreur (naming 'tag', the file and the offset) when the file ends early.
class LecteurOctets {
 public:
  LecteurOctets(const std::string& nom, const std::string& tag);
  bool Ouvert() const { return m_flux.is_open(); }
  void Placer(long long position);
  long long Position() const { return m_debut + static_cast<long long>(m_curseur); }
  // The next n bytes (n far below the buffer's 32 KiB).
  const unsigned char* Prendre(int n) {
    if (m_curseur + static_cast<size_t>(n) > m_fin) Remplir(n);
    const unsigned char* p = m_tampon.data() + m_curseur;
    m_curseur += static_cast<size_t>(n);
    return p;
  }

 private:
  void Remplir(int n);
  std::string m_nom, m_tag;
  std::ifstream m_flux;
  std::vector<unsigned char> m_tampon;
  long long m_debut = 0;  // file offset of m_tampon[0]
  size_t m_fin = 0;       // valid bytes in the buffer
  size_t m_curseur = 0;
};

// Bytes of the value field of stored type T: none for bool, whose values come from the offset alone.
template <class T>
constexpr int TailleChamp() {
  return std::is_same_v<T, bool> ? 0 : static_cast<int>(sizeof(T));
}

// The unsigned integer of the same size as T, to move its bytes.
template <class T>
using MotDe = std::conditional_t<
    sizeof(T) == 1, uint8_t,
    std::conditional_t<sizeof(T) == 2, uint16_t, std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>>>;

// Decodes one little-endian value field of stored type T.
template <class T>
T DecoderChamp(const unsigned char* p) {
  if constexpr (std::is_same_v<T, bool>) {
    return false;
  } else {
    using U = MotDe<T>;
    U u = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
      u = static_cast<U>(u | static_cast<U>(static_cast<U>(p[i]) << (8 * i)));
    T v;
    std::memcpy(&v, &u, sizeof(T));
    return v;
  }
}

// Reads one value of stored type T.
template <class T>
T gb_read_et(LecteurOctets& f) {
  if constexpr (TailleChamp<T>() == 0) {
    return T();
  } else {
    return DecoderChamp<T>(f.Prendre(TailleChamp<T>()));
  }
}

// Writes one value of stored type T, little-endian, at 'sortie' (TailleChamp<T>() bytes); returns the
// end of what it wrote.
template <class T>
char* gb_write_et(char* sortie, T v) {
  if constexpr (TailleChamp<T>() > 0) {
    using U = MotDe<T>;
    U u;
    std::memcpy(&u, &v, sizeof(T));
    for (size_t i = 0; i < sizeof(T); ++i) *sortie++ = static_cast<char>((u >> (8 * i)) & 0xFF);
  }
  return sortie;
}

// One run as the reader presents it: its length in image columns and its value.
template <class N>
struct RunRLE {
  long long longueur;
  N valeur;
};

class ImageFicIn_RLE : public ImplGetValeurs<ImageFicIn_RLE> {
 public:
  // Opens and checks the file; every fault is an Erreur naming it.
  explicit ImageFicIn_RLE(const std::string& nom);
  ImageFicIn_RLE(const ImageFicIn_RLE& autre);
  // What CreateReader_RLE does: a reader when the content is a consistent RLE file, null otherwise
  // (the format has no magic number, so this is strict). Throws only for a consistent file too large
  // to present.
  static std::unique_ptr<ImageFicIn_RLE> SiFichierRLE(const std::string& nom);

  SpecifImageIn* dup() const override { return new ImageFicIn_RLE(*this); }
  TPoint2D<int> GetTaille() const override;
  int GetNbCanaux() const override { return 1; }
  eEnumType TypePixel() const override { return m_type; }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override { RawReadImpossible("ImageFicIn_RLE"); }
  const EnteteRLE& Entete() const { return m_entete; }

  template <class D>
  void GetValeursT(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const;

 private:
  struct Examen;
  ImageFicIn_RLE(const std::string& nom, EnteteRLE&& entete, long long taille);
  static Examen Examiner(const std::string& nom, EnteteRLE& entete, long long& taille);
  template <class N, class D>
  void LireRectangle(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest,
                     int pas) const;
  // The stored length of the next run of stored line 'ligne', whose runs so far cover 'couvert'
  // stored columns.
  long long LireLongueur(long long couvert, int ligne) const;
  // The next run: Z x the sum of its length fields, and the value field plus the offsets. 'couvert'
  // advances by its stored length.
  template <class N>
  RunRLE<N> ImageFicInRLE_TNextRun(long long& couvert, int ligne) const;

  std::string m_nom;
  EnteteRLE m_entete;
  long long m_taille = 0;  // bytes of the file
  eEnumType m_type = eIndetermine;
  CodageLongueurs m_codage;
  // A second offset held by the reader and added to the header's; nothing sets it but it is kept at
  // zero so that values are exactly the field plus the header's offset.
  int m_decalageLecteur = 0;
  mutable LecteurOctets m_lecteur;
};

// Writes one-channel images with 16-bit run lengths, zoom 1 and value offset 0. A bool image is
// stored as UInt1 0 / 1 (a bool value field would hold nothing). Lines may come in any order and in
// pieces; each line is coded when it is complete.
class ImageFicOut_RLE : public ImplSetValeurs<ImageFicOut_RLE, EcrivainParLignes> {
 public:
  ImageFicOut_RLE(const std::string& nom, const ImageInfos& infos);
  ~ImageFicOut_RLE() override;

  // The format's own messages, not those of EcrivainForme.
  void SetNbCanaux(TagNbCanaux n) override;
  void SetTypePixel(eEnumType type) override;
  using EcrivainParLignes::SetTaille;
  void SetTaille(int colonnes, int lignes) override;
  void RawWrite(const char*, unsigned int) override;
  void Terminer() override;

  template <class S>
  void SetValeursT(LigneDe<S> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas);

 private:
  struct Lignes;
  template <class N>
  struct LignesT;
  template <class S, class N>
  void Recevoir(LigneDe<S> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas,
                long long ny);
  template <class N>
  void CoderLigne(int y, const N* valeurs);

  // Writes the header, whose line table is now known.
  void Finir() override;

  eEnumType m_typeStocke;  // the type of the value fields
  EnteteRLE m_entete;
  std::unique_ptr<Lignes> m_lignes;  // lines received in pieces, by stored type
  long long m_position = 0;          // where the next line's runs go
  std::vector<char> m_runs;
};
