// Multi-band blending (Laplacian pyramids, after Burt and Adelson): each image's Laplacian pyramid
// level k is blended with its seam mask blurred down to level k, so low frequencies cross over wide
// transitions (about 2^niveaux pixels) and detail over narrow ones (a pixel or two): radiometric
// residues fade like a wide feather while misregistered detail is not averaged into a blur.
//
// The seam mask of an image is 1 where it has the largest feathering weight among the images that
// cover the pixel (the first in order on a tie), 0 elsewhere. Beyond its valid region each image is
// continued by the feathered mean of the others, so that its coarse levels there are the mosaic's and
// not an extrapolation: where images agree the result is their values. Pixels that no image covers
// never bleed into the result (the pyramids are built by normalised convolution over the coverage).
//
// Tiles: the result at a pixel depends on the inputs within MargeMultibande(niveaux) pixels. A window
// grown by that margin on each side, whose origin lies on a multiple of 2^niveaux of the mosaic grid
// (so that the pyramids' samples fall on the same pixels), gives inside the tile exactly the values of
// the whole mosaic.
#pragma once

#include <vector>

// One image on the blending window: nbBandes planes of largeur x hauteur values (band b starts at
// valeurs + b x largeur x hauteur, lines in order) and its feathering weights (0 = not valid).
struct ContributionMultibande {
  const float* valeurs = nullptr;
  const float* poids = nullptr;
};

// Pixels of margin a tile needs around it.
int MargeMultibande(int niveaux);

// Levels for a transition of about L pixels: log2(L) rounded, 0 to 12.
int NiveauxMultibande(double largeurPixels);

// Blends the images over the window into sortie (nbBandes planes); pixels no image covers get nodata.
// niveaux: 0 to 12 (0 is a hard seam along the mask).
void MelangerMultibande(const std::vector<ContributionMultibande>& images, int largeur, int hauteur,
                        int nbBandes, int niveaux, float* sortie, float nodata);
