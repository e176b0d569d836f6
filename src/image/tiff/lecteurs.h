// The TIFF readers. Private to src/image.
#pragma once

#include <memory>

#include "annexes.h"
#include "zepra/specifimage.h"

namespace tiff {

// The reader of what GetImage decided: strips and tiles (ImageFicIn_Raster), palette
// (ImageFicInColorMap) or a "Dallage MPD" (RasterArray).
std::unique_ptr<SpecifImageIn> CreerLecteur(const DescriptionTIFF& d);
std::unique_ptr<SpecifImageIn> CreerLecteurDallage(const DescriptionTIFF& d);

}  // namespace tiff
