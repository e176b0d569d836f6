// Pre-smoothing under masks: Wallis gain and offset fields smoothed (by a masked moving mean or by
// polynomial models) before they are applied, so that the correction varies slowly across the image.
// The masks given to the Prelisse functions mark the pixels to leave out (true = excluded): they are
// inverted first, and the fields are computed and smoothed over the remaining pixels only.
#pragma once

#include "zepra/geometrie.h"
#include "zepra/ttimage.h"

// inverse becomes a copy of masque with every pixel negated (the two may be the same image).
void InverseMasque(const TTImage<bool>& masque, TTImage<bool>& inverse);

// Replaces every pixel, masked or not, by the mean of the masked pixels (masque true) of its window of
// half-width rayon, or by 0 where the window holds none. All means use the input values.
void MoyMasque(TTImage<float>& image, const TTImage<bool>& masque, int rayon);

// Wallis correction in place with the fields of GainOffsetWalis (half-width tailleWalis / 2) over the
// pixels not excluded, each field smoothed by MoyMasque of half-width tailleMoy when tailleMoy > 0.
void PrelisseMoyWalis(TTImage<float>& image, const TTImage<bool>& masqueExclu, int tailleMoy, int tailleWalis,
                      double moyenneCible, double ecartTypeCible);

// Wallis correction in place whose fields are replaced, over the pixels not excluded, by polynomial
// models of the given degree fitted every pas-th pixel; each fit writes its count of equations on
// standard output. The argument order (degree, window size, target, step) is the established one.
void PrelissePolyWalis(TTImage<float>& image, const TTImage<bool>& masqueExclu, int degre, int tailleWalis,
                       double moyenneCible, double ecartTypeCible, int pas);

// Smoothing half-width of the "PrelisseWalis:Moy" command.
constexpr int kRayonPrelisseMoy = 100;

// The routine of the "PrelisseWalis:Moy" command, with a given target (cible.x the mean, cible.y the
// deviation): fields of half-width kDemiLargeurWalis, each smoothed with half-width kRayonPrelisseMoy.
void PrelisseWalisMoy(TTImage<float>& image, const TTImage<bool>& masqueExclu, const T2D<double>& cible);
