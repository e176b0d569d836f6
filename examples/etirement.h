// Quick-looks: a float image (a mosaic) stretched to 8 bits, one channel, written by the library (the
// demo writes .pgm files).
#pragma once

#include <string>

#include "zepra/ttimage.h"

// The grey levels 1..255 cover [bas, haut] linearly (values beyond are clipped); no data (0.0) and
// values that are not finite become 0, so they stay apart from the darkest data.
struct Etirement {
  double bas = 0, haut = 0;
};

// bas and haut at the given fractions (0..1) of the sorted data values of channel 0 (0.0 and values
// that are not finite left out). An image without data gives [0, 0].
Etirement EtirementPercentiles(const TTImage<float>& image, double fractionBas, double fractionHaut);

// Channel 0 stretched to one 8-bit channel.
TTImage<unsigned char> Etirer(const TTImage<float>& image, const Etirement& e);
