// Wallis local radiometric normalisation: per-pixel gain and offset fields that bring the mean and
// standard deviation of each pixel's neighbourhood (under a mask) onto a target, so that the corrected
// value is value x gain + offset.
//
// Images are one-channel TTImage<float>; masks are one-channel TTImage<bool> of the image's size, true
// where a pixel takes part. The window of a pixel is the square of half-width h around it, clamped to
// the image. Every field costs a constant number of table look-ups per pixel, whatever h; fields are
// computed in double and stored as float. Each output line depends only on the tables, never on
// another output line. Sizes or channel counts that do not fit raise an Erreur before any work.
#pragma once

#include "zepra/geometrie.h"
#include "zepra/ttimage.h"

// Half-width of the fixed-window forms (the sub-commands and the mosaic job's reference image).
constexpr int kDemiLargeurWalis = 25;

// gain and offset become one-channel images of the image's size; half-width taille / 2. Only pixels
// set in the mask are written: the others keep the zero of a new image. A target of (0, 0) means the
// image's own masked mean and standard deviation. Per pixel: an empty window gives gain 1 and offset
// the target mean; a flat window gain 1 and offset target mean - mean; otherwise gain target deviation
// / deviation and offset target mean - mean x gain. A slightly negative variance from rounding gives a
// NaN deviation, which is kept and propagates into gain and offset (established behaviour).
void GainOffsetWalis(const TTImage<float>& image, const TTImage<bool>& masque, TTImage<float>& gain,
                     TTImage<float>& offset, int taille, double moyenneCible, double ecartTypeCible);

// The same with half-width kDemiLargeurWalis; gainOffset becomes a two-channel image (gain, offset).
// cible.x is the target mean, cible.y the target standard deviation.
void GainOffsetWalisFenetre(const TTImage<float>& image, const TTImage<bool>& masque,
                            TTImage<float>& gainOffset, const T2D<double>& cible);

// Fields that bring the local masked statistics of the image onto those of a reference image of the
// same size, over the same windows of half-width demiLargeur. For each pixel set in the image's mask:
// (m1, s1) over the image, (m2, s2) over the reference (an empty window gives (0, 0)); s1 = 0 gives
// gain 1 and offset m2 - m1, otherwise gain s2 / s1 and offset m2 - m1 x gain. gainOffset becomes a
// two-channel image (gain, offset); unmasked pixels keep zeros.
void GainOffsetWalisReference(const TTImage<float>& image, const TTImage<bool>& masque,
                              const TTImage<float>& reference, const TTImage<bool>& masqueReference,
                              TTImage<float>& gainOffset, int demiLargeur = kDemiLargeurWalis);

// Every pixel of image becomes image x gain + offset (single-precision multiply, then add), over the
// whole image, whatever any mask says.
void AppliqueGainOffset(TTImage<float>& image, const TTImage<float>& gain, const TTImage<float>& offset);
// The same with the two fields as the channels (gain, offset) of one image.
void AppliqueGainOffset(TTImage<float>& image, const TTImage<float>& gainOffset);

// The mosaic job's Wallis reference image: reference becomes a one-channel image of the image's size
// where each value v is mapped by the unmasked statistics (m, s) of its window of half-width
// demiLargeur: (v - m) x cible.y / s + cible.x, or (v - m) + cible.x where s is 0. A target of (0, 0)
// stands for the image's own global mean and deviation.
void ImageReferenceWalis(const TTImage<float>& image, TTImage<float>& reference, int demiLargeur,
                         const T2D<double>& cible);

// Local masked mean and standard deviation of every pixel, masked or not, over its window of half-width
// demiLargeur; both are 0 where the window holds no masked pixel. moyenne and ecartType become
// one-channel images of the image's size.
void StatsLocales(const TTImage<float>& image, const TTImage<bool>& masque, int demiLargeur,
                  TTImage<float>& moyenne, TTImage<float>& ecartType);

// Checks shared by the radiometric functions, with the caller's "[Classe] (Methode)" tag.
void VerifierUnCanal(const TTImage<float>& image, const char* tag, const char* role);
void VerifierMasque(const TTImage<float>& image, const TTImage<bool>& masque, const char* tag);
void VerifierDemiLargeur(int demiLargeur, const char* tag);
