// TIFF internals shared by the reader and the writer: the byte reader, one directory entry
// (Directory), the header and directory code (TIFF_Annexes) and the description of an image that the
// readers are built from. Private to src/image.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/infotype.h"

namespace tiff {

enum Tag : uint16_t {
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kPhotometric = 262,
  kStripOffsets = 273,
  kSamplesPerPixel = 277,
  kRowsPerStrip = 278,
  kStripByteCounts = 279,
  kXResolution = 282,
  kYResolution = 283,
  kPlanarConfiguration = 284,
  kResolutionUnit = 296,
  kPredictor = 317,
  kColorMap = 320,
  kTileWidth = 322,
  kTileLength = 323,
  kTileOffsets = 324,
  kTileByteCounts = 325,
  kExtraSamples = 338,
  kSampleFormat = 339,
  kDallageColonnes = 40000,  // "Dallage MPD": number of tile files along the columns
  kDallageLignes = 40001,    // and along the lines
};

enum Compression { kSans = 1, kLZW = 5, kPackBits = 32773 };

// The largest number of bytes a block of 'octets' compressed bytes can decode to. Sizes read from a
// file are checked against it before anything is allocated. An unknown compression gets the LZW
// bound: its pixels cannot be read anyway, but the image is still sized from the header.
uint64_t MaxDecode(int compression, uint64_t octets);

// Reads numbers of one byte order from a file and fails with an Erreur on any short read or seek
// past the end; every number of a TIFF file goes through it.
class LecteurOctets {
 public:
  explicit LecteurOctets(const std::string& nom);
  LecteurOctets(const LecteurOctets&) = delete;
  LecteurOctets& operator=(const LecteurOctets&) = delete;

  void SetPermuter(bool permuter) { m_permuter = permuter; }
  bool Permuter() const { return m_permuter; }
  uint64_t Taille() const { return m_taille; }
  uint64_t Position() const { return m_position; }
  const std::string& Nom() const { return m_nom; }

  void Aller(uint64_t offset);
  void Lire(void* destination, uint64_t octets);
  uint8_t Lire8();
  uint16_t Lire16();
  uint32_t Lire32();

 private:
  std::ifstream m_flux;
  std::string m_nom;
  uint64_t m_taille = 0;
  uint64_t m_position = 0;
  bool m_permuter = false;
};

// One directory entry's value: field type, count and the values in host byte order.
struct Directory {
  uint16_t type = 0;
  uint32_t count = 0;
  std::vector<unsigned char> values;

  Directory() = default;
  Directory(uint16_t t, uint32_t n) : type(t), count(n) { Alloc(); }

  // Bytes of one value of a TIFF field type; 0 for a type we do not know.
  static int SizeOfValue(int type);
  uint64_t Octets() const { return static_cast<uint64_t>(count) * SizeOfValue(type); }
  void Alloc() { values.assign(static_cast<size_t>(Octets()), 0); }
  // Value i as a double (a rational as numerator / denominator, NaN for a zero denominator).
  double GetValue(int i) const;
  void SetValue(double v, int i);
  void SetRationalValue(unsigned int numerateur, unsigned int denominateur, int i);
};

// What GetImage decided: enough to build the reader without going back to the directory.
struct DescriptionTIFF {
  enum Disposition { kBandes, kTuiles, kPalette, kDallage };
  std::string nom;
  int colonnes = 0, lignes = 0, canaux = 1;
  eEnumType type = eIndetermine;
  int bits = 0;
  int compression = kSans;
  int predicteur = 1;
  int planaire = 1;
  bool permuter = false;
  Disposition disposition = kBandes;
  // Strips are blocks as wide as the image.
  int largeurBloc = 0, hauteurBloc = 0;
  std::vector<uint64_t> offsets, octets;
  // Palette: 256 red, then 256 green, then 256 blue, 8 bits each.
  std::vector<unsigned char> palette;
  int dallesColonnes = 0, dallesLignes = 0;

  uint64_t OctetsLigneBloc() const { return (static_cast<uint64_t>(largeurBloc) * canaux * bits + 7) / 8; }
  int BlocsParLigne() const { return (colonnes + largeurBloc - 1) / largeurBloc; }
};

class TIFF_Annexes {
 public:
  // For reading: opens the file (no parsing yet).
  explicit TIFF_Annexes(const std::string& nom);
  // For writing.
  TIFF_Annexes();

  // Header and first directory into the tag map; values swapped to host order. 'avertir' false
  // reads the header without the warning about further directories (metadata reads).
  void LireEntete(bool avertir = true);
  // Swaps the values of an entry, element by element by its type. Every entry passes here, so an
  // unknown field type is refused whatever the byte order of the file.
  static void Permut(Directory& d, bool permuter);
  // The decisions of the reader. 'dallageAutorise' is false for the tile files of a "Dallage MPD",
  // which may not be one themselves.
  DescriptionTIFF GetImage(bool dallageAutorise = true);

  void SetImage(const TPoint2D<int>& taille, int canaux, eEnumType type);
  // Start of the pixels: header, directory and the values longer than four bytes come first.
  uint32_t PrecalculeOffset() const;
  // Header and directory, little-endian; 'nom' is for the messages.
  void EcrireEntete(std::ostream& flux, const std::string& nom);
  uint32_t OctetsPixels() const;

  const std::map<uint16_t, Directory>& Tags() const { return m_tags; }
  bool Permuter() const { return m_swap; }

 private:
  bool Present(uint16_t tag) const { return m_tags.count(tag) != 0; }
  // Value i of a tag as an integer; an Erreur when it is missing, not whole or out of range.
  long long Entier(uint16_t tag, int i = 0) const;
  void VerifieChaine(uint32_t suivant);
  void LireBlocs(DescriptionTIFF& d, uint16_t tagOffsets, uint16_t tagOctets, uint64_t nbBlocs);
  void LirePalette(DescriptionTIFF& d);
  void LireDallage(DescriptionTIFF& d);

  std::unique_ptr<LecteurOctets> m_lecteur;
  std::string m_nom;
  bool m_swap = false;
  std::map<uint16_t, Directory> m_tags;
};

// Name of the tile file (column i, line j) of a "Dallage MPD" main file: "dir/nom.tif" gives
// "dir/nom_Tile_i_j.tif"; a name without extension gets none.
std::string NomDalle(const std::string& nom, int i, int j);

// True when the file starts with a TIFF header of either byte order.
bool CheckMagic_TIFF(const std::string& nom);

}  // namespace tiff
