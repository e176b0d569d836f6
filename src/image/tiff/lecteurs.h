// The TIFF readers. Private to src/image.
#pragma once

#include <memory>

#include "annexes.h"
#include "zepra/erreur.h"
#include "zepra/metadonnees.h"
#include "zepra/specifimage.h"

namespace tiff {

// The reader of what GetImage decided: strips and tiles (ImageFicIn_Raster), palette
// (ImageFicInColorMap) or a "Dallage MPD" (RasterArray).
std::unique_ptr<SpecifImageIn> CreerLecteur(const DescriptionTIFF& d);
std::unique_ptr<SpecifImageIn> CreerLecteurDallage(const DescriptionTIFF& d);

// The metadata of the directory read into 'annexes' (metadonnees_tiff.cpp).
std::unique_ptr<MetadonneesImage> MetadonneesDe(TIFF_Annexes& annexes);
// The same into d; when they cannot be read, the Erreur is kept for Metadonnees() to raise, and the
// pixels are read all the same.
void JoindreMetadonnees(TIFF_Annexes& annexes, DescriptionTIFF& d);
// What a reader built from d answers to Metadonnees().
const MetadonneesImage* Metadonnees(const DescriptionTIFF& d);

}  // namespace tiff
