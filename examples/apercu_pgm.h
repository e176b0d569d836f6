// Quick-looks: a float image (a mosaic) stretched to 8 bits and written as a binary PGM (P5) file.
#pragma once

#include <string>

#include "zepra/ttimage.h"

// The grey levels 1..255 cover [bas, haut] linearly (values beyond are clipped); no data (0.0) and
// values that are not finite are written 0, so they stay apart from the darkest data.
struct Etirement {
  double bas = 0, haut = 0;
};

// bas and haut at the given fractions (0..1) of the sorted data values of channel 0 (0.0 and values
// that are not finite left out). An image without data gives [0, 0].
Etirement EtirementPercentiles(const TTImage<float>& image, double fractionBas, double fractionHaut);

// Channel 0 as P5 with maxval 255; the file is complete or absent.
void EcrireApercuPGM(const TTImage<float>& image, const Etirement& e, const std::string& nom);
