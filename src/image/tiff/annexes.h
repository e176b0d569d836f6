// The TIFF header and directory (TIFF_Annexes) and the description of an image the readers are built
// from (DescriptionTIFF). Private to src/image.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "directory.h"
#include "format.h"
#include "lecteur_octets.h"
#include "tags.h"
#include "zepra/geometrie.h"
#include "zepra/infotype.h"

class Erreur;
struct MetadonneesImage;

namespace tiff {

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
  int photometrique = kNoirZero;
  bool permuter = false;
  Disposition disposition = kBandes;
  // Strips are blocks as wide as the image.
  int largeurBloc = 0, hauteurBloc = 0;
  // Planar files (planaire 2 with several channels) store one plane after the other: the blocks
  // of channel c are those from c x BlocsParPlan(). A block of 0 bytes is absent, as in the sparse
  // files GDAL writes (SPARSE_OK): its pixels are the file's no-data value, else 0.
  std::vector<uint64_t> offsets, octets;
  // Palette: 256 red, then 256 green, then 256 blue, 8 bits each.
  std::vector<unsigned char> palette;
  int dallesColonnes = 0, dallesLignes = 0;
  // Read by the windows reader: its codecs include those the compatibility mode does not read
  // (Codec::etendu).
  bool codecsEtendus = false;
  // JPEG: the shared tables (JPEGTables) and the chroma subsampling of YCbCr data.
  std::vector<unsigned char> tablesJpeg;
  int sousEchH = 2, sousEchV = 2;
  // What the file says besides its pixels, or why it could not be read (the pixels may still be).
  std::shared_ptr<const MetadonneesImage> metadonnees;
  std::shared_ptr<const Erreur> erreurMetadonnees;

  // Channels and sample type a reader delivers: a palette gives three unsigned 8-bit channels.
  int CanauxLus() const { return disposition == kPalette ? 3 : canaux; }
  eEnumType TypeLu() const { return disposition == kPalette ? eUInt1 : type; }
  bool Plans() const { return planaire == 2 && canaux > 1; }
  bool Absent(size_t bloc) const { return octets[bloc] == 0; }
  // Samples of one pixel in one block: all of them, or one per plane.
  int EchantillonsBloc() const { return Plans() ? 1 : canaux; }
  uint64_t OctetsLigneBloc() const {
    return (static_cast<uint64_t>(largeurBloc) * EchantillonsBloc() * bits + 7) / 8;
  }
  long long BlocsParLigne() const {
    return (static_cast<long long>(colonnes) + largeurBloc - 1) / largeurBloc;
  }
  uint64_t BlocsParPlan() const {
    return static_cast<uint64_t>(BlocsParLigne()) *
           static_cast<uint64_t>((static_cast<long long>(lignes) + hauteurBloc - 1) / hauteurBloc);
  }
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
  // Another directory of the same file, after LireEntete: its tags replace the map.
  void LireRepertoire(uint64_t offset);
  // Swaps the values of an entry, element by element by its type. Every entry passes here, so an
  // unknown field type is refused whatever the byte order of the file.
  static void Permut(Directory& d, bool permuter);
  // The decisions of the reader. 'dallageAutorise' is false for the tile files of a "Dallage MPD",
  // which may not be one themselves; 'masque' true for a transparency mask (PhotometricInterpretation
  // 4), read as its samples stand.
  DescriptionTIFF GetImage(bool dallageAutorise = true, bool masque = false);
  // For the windows reader: GetImage then takes the codecs only it reads (Codec::etendu).
  void CodecsEtendus(bool oui) { m_etendus = oui; }

  void SetImage(const TPoint2D<int>& taille, int canaux, eEnumType type);
  // Start of the pixels: header, directory and the values longer than four bytes come first.
  uint32_t PrecalculeOffset() const;
  // Header and directory, little-endian; 'nom' is for the messages.
  void EcrireEntete(std::ostream& flux, const std::string& nom);
  uint32_t OctetsPixels() const;

  const std::map<uint16_t, Directory>& Tags() const { return m_tags; }
  bool Permuter() const { return m_swap; }
  const FormatTIFF& Format() const { return *m_format; }
  // Offset of the directory after the one read (0: none).
  uint64_t Suivant() const { return m_suivant; }
  LecteurOctets& Lecteur() { return *m_lecteur; }
  const std::string& Nom() const { return m_nom; }

 private:
  bool Present(uint16_t tag) const { return m_tags.count(tag) != 0; }
  // Value i of a tag as an integer; an Erreur when it is missing, not whole or out of range.
  long long Entier(uint16_t tag, uint64_t i = 0) const;
  void VerifieChaine(uint64_t suivant);
  void LireBlocs(DescriptionTIFF& d, uint16_t tagOffsets, uint16_t tagOctets, uint64_t nbBlocs);
  void LirePalette(DescriptionTIFF& d);
  void LireJpeg(DescriptionTIFF& d);
  void LireDallage(DescriptionTIFF& d);

  std::unique_ptr<LecteurOctets> m_lecteur;
  std::string m_nom;
  bool m_swap = false;
  const FormatTIFF* m_format = &kClassique;
  uint64_t m_suivant = 0;
  bool m_etendus = false;
  std::map<uint16_t, Directory> m_tags;
};

// The largest number of bytes a block of 'octets' compressed bytes can decode to (see codec.h);
// the largest value for a codec that gives no bound. Sizes read from a file are checked against it
// before anything is allocated. An unknown compression gets the LZW bound: its pixels cannot be read
// anyway, but the image is still sized from the header.
uint64_t MaxDecode(int compression, uint64_t octets, bool etendus = false);

// Name of the tile file (column i, line j) of a "Dallage MPD" main file: "dir/nom.tif" gives
// "dir/nom_Tile_i_j.tif"; a name without extension gets none.
std::string NomDalle(const std::string& nom, int i, int j);

// True when the file starts with a classic or BigTIFF header of either byte order.
bool CheckMagic_TIFF(const std::string& nom);

}  // namespace tiff
