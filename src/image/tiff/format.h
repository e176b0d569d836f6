// The container layout, described once. Classic TIFF and BigTIFF differ only in the widths of a few
// fields; one small description, chosen from the header, drives the code that reads and writes them.
// Private to src/image.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "directory.h"
#include "lecteur_octets.h"

namespace tiff {

struct FormatTIFF {
  uint16_t version;         // 42 classic, 43 BigTIFF
  int octetsEntete;         // byte order, version, [offset width and 0,] first directory offset
  int octetsNombreEntrees;  // the entry count that opens a directory
  int octetsEntree;         // tag, type, count, value field
  int octetsOffset;         // offsets, counts, the value field and the next-directory offset

  bool Big() const { return version == 43; }
  // Bytes of a directory of n entries, next-directory offset included.
  uint64_t OctetsRepertoire(uint64_t n) const {
    return octetsNombreEntrees + n * octetsEntree + octetsOffset;
  }
};

extern const FormatTIFF kClassique;
extern const FormatTIFF kBigTIFF;

struct EnteteTIFF {
  const FormatTIFF* format = nullptr;
  uint64_t premier = 0;  // offset of the first directory
};

// Reads the header and sets the reader's byte order: anything but "II" is taken as big-endian, and
// a version other than the two known ones is refused. 'nom' is for the messages.
EnteteTIFF LireEnteteTIFF(LecteurOctets& f, const std::string& nom);

// One entry as stored. When the value fits in the value field it is there, left-aligned, in file
// order; otherwise the field holds the offset of the value.
struct EntreeTIFF {
  uint16_t tag = 0;
  uint16_t type = 0;
  uint64_t count = 0;
  unsigned char champ[8] = {};
  uint64_t offset = 0;  // the value field read as an offset
};
EntreeTIFF LireEntree(LecteurOctets& f, const FormatTIFF& format);

// Places the reader on the first entry of the directory at 'offset' and gives its entry count;
// false, with the reader anywhere, when the directory does not lie whole in the file.
bool OuvrirRepertoire(LecteurOctets& f, const FormatTIFF& format, uint64_t offset, uint64_t& entrees);

// Writing, little-endian.
void EcrireNombre(std::string& sortie, uint64_t v, int octets);
void EcrireEnteteTIFF(std::string& sortie, const FormatTIFF& format, uint64_t premier);
// A directory: entry count, entries in tag order, next-directory offset. Values (in host order) that
// do not fit in the value field go one after another to 'valeurs', which will lie at file offset
// 'offsetValeurs'.
void EcrireRepertoire(std::string& sortie, std::string& valeurs, const FormatTIFF& format,
                      const std::map<uint16_t, Directory>& tags, uint64_t offsetValeurs, uint64_t suivant);

}  // namespace tiff
