// Predictors applied to a block before it is encoded; the reader undoes them after decoding.
// Private to src/image.
#pragma once

#include <vector>

#include "codec.h"

namespace tiff {

// Applies the TIFF predictor to a block (ContexteBloc::Octets() bytes, rows of contexte.largeur
// pixels of contexte.echantillons samples), in place:
//  1  nothing;
//  2  each sample minus the same sample of the previous pixel, modulo its width (8 to 64 bits;
//     floats differenced as integers of their width); samples in host byte order, left so;
//  3  floating point (32 or 64 bits): each row's samples split into byte planes, most significant
//     first, then each byte minus the byte one pixel before; the result is in the file's order
//     whatever the host's. 'travail' is scratch room for one row.
// Any other predictor, or a sample width it does not take, is an Erreur.
void AppliquerPredicteur(int predicteur, unsigned char* bloc, const ContexteBloc& contexte,
                         std::vector<unsigned char>& travail);

}  // namespace tiff
