// The directories of the files the GeoTIFF writer makes: one per image (the full resolution, each
// overview, and with JPEG the mask of each). Private to src/image.
#pragma once

#include <map>
#include <vector>

#include "directory.h"
#include "format.h"
#include "zepra/metadonnees.h"
#include "zepra/optionsecriture.h"

namespace tiff {

// One image of the file as its directory describes it.
struct ImageEcrite {
  int niveau = 0;  // 0: full resolution
  bool masque = false;
  TPoint2D<int> taille;
};

// PhotometricInterpretation of the data: YCbCr for 3-band JPEG, RGB for colours (PlanEcriture::rvb),
// else min-is-black; 4 for a mask.
int PhotometrieEcrite(const PlanEcriture& p, bool masque);

// Blocks of an image: per plane, rows of blocks, blocks from left to right.
uint64_t NombreBlocs(const PlanEcriture& p, const ImageEcrite& image);

// The tags of one image, in host order, its block offsets and counts zero (FixerBlocs sets them).
// Every level gets the no-data tag; the full resolution also gets 'supplementaires' (georeferencing, no-data,
// copied tags), except the tags this writer sets itself.
std::map<uint16_t, Directory> TagsImage(const PlanEcriture& p, const ImageEcrite& image,
                                        const FormatTIFF& format,
                                        const std::vector<unsigned char>& tablesJpeg,
                                        const std::vector<TagTIFF>& supplementaires);

// Tags that describe the layout, georeferencing or no-data of a file: copied from another file they
// would contradict this one's.
bool TagStructurel(uint16_t tag);

void FixerBlocs(std::map<uint16_t, Directory>& tags, const std::vector<uint64_t>& offsets,
                const std::vector<uint64_t>& octets);

}  // namespace tiff
