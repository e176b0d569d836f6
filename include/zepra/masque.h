// Validity masks as GDAL writes them beside an image: the pixels a lossy or clipped image really has.
#pragma once

#include <memory>
#include <string>

#include "zepra/specifimage.h"

// The validity mask of an image file, as a one-channel reader of the image's size: 0 where the
// pixel is not valid, anything else where it is. It is the first later directory of a TIFF image
// that is a transparency mask of the image's size (NewSubfileType with the mask bit, not reduced),
// else the file named the image's name followed by ".msk" (its channel 0). Null when there is none;
// an Erreur naming the file when the mask cannot be read or has another size.
std::unique_ptr<SpecifImageIn> OuvrirMasqueValidite(const std::string& image);
