// Stages "open and validate inputs", "masks" and "radiometric preparation" of a job held in memory.
#pragma once

#include <string>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/orientedimage.h"
#include "zepra/ttimage.h"

// One input in memory: its values (the channels are the bands) with its orientation, and its
// exclusion mask (one channel, the image's size, true where the pixel is left out).
struct ImageEntree {
  TTOrientedImage<float> image;
  TTImage<bool> masque;
};

// Reads an image file and its orientation as float; with canal >= 0 only that channel is kept. The
// mask is left as it is.
void LireImageEntree(const std::string& chemin, int canal, ImageEntree& e);

// A float mask image as an exclusion mask: true where the value is not 0 (NaN included).
void masqueflou2masquenet(const TTImage<float>& flou, TTImage<bool>& net);
// In place: every value that is not 0 (NaN included) becomes 1.
void masqueflou2masquenet(TTImage<float>& flou);
// A mask made from the image itself: true (excluded) where the value is exactly 0, no data.
template <class T>
void image2masque(const TTImage<T>& image, TTImage<bool>& masque);

// The input's mask from a mask file (masqueflou2masquenet of its channel 0 read as float). Refuses a
// file whose size is not the image's, naming both files.
void MasqueDepuisFichier(const std::string& cheminMasque, const std::string& cheminImage, ImageEntree& e);

// Widens the excluded zones of a mask by a set of offsets (a disc).
void DilaterMasque(TTImage<bool>& masque, const std::vector<T2D<int>>& disque);

// Pooled mean (x) and deviation (y) of all inputs' channel 0 over their pixels not excluded: each
// input's sums by the whole-image raw statistics of the integral images (their first row left out),
// summed in input order.
T2D<double> StatistiquesCommunes(const std::vector<ImageEntree>& entrees);
