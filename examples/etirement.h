// Quick-looks: an image (a mosaic, a tile) stretched to 8 bits per band, grey or RGB, for the demo's
// PNG files and the quality benchmark's.
#pragma once

#include <string>
#include <vector>

#include "zepra/ttimage.h"

// The levels 1..255 cover [bas, haut] linearly (values beyond are clipped); no data and values that
// are not finite become 0, so they stay apart from the darkest data.
struct Etirement {
  double bas = 0, haut = 0;
};

// bas and haut at the given fractions (0..1) of the sorted data values of channel 'canal': the pixels
// whose byte of 'valide' is non-zero, or without 'valide' the non-zero finite values. An image
// without data gives [0, 0].
Etirement EtirementPercentiles(const TTImage<float>& image, double fractionBas, double fractionHaut,
                               int canal = 0, const std::vector<unsigned char>* valide = nullptr);

// Channel 0 stretched to one 8-bit channel, 0.0 being no data.
TTImage<unsigned char> Etirer(const TTImage<float>& image, const Etirement& e);

// What a quick-look shows of an image file: its grey band or its three colour bands, and which pixels
// hold data in every band.
struct SourceApercu {
  TTImage<float> image;               // 1 or 3 channels
  std::vector<unsigned char> valide;  // one byte per pixel, non-zero: data
};

// Reads an image file of any registered format and sample type. No data: the file's no-data value
// when it has one, else 0, in any colour band, and NaN; a pixel whose alpha band is 0. The alpha band
// and other extra bands are left out; of three colour bands or more, the first three are shown.
SourceApercu LireSourceApercu(const std::string& chemin);

// Means of the valid pixels of blocks of facteur x facteur (a block without any has none).
SourceApercu Reduire(const SourceApercu& s, int facteur);

// Each channel with its own stretch, as interleaved 8-bit samples; pixels without data are 0.
std::vector<unsigned char> EtirerCanaux(const SourceApercu& s, const std::vector<Etirement>& e);
