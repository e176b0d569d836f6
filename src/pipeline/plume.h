// Feathered blending: each image's contribution to the mosaic is weighted by a smooth function of its
// distance to the edge of its valid region (no-data, exclusion masks and the image's own border), so
// that a seam fades over a settable width instead of showing as a step:
//   w = t^2 (3 - 2 t),  t = min(d, L) / L,
// d the Euclidean distance, in pixels, from the pixel's centre to the centre of the nearest pixel that
// is not valid (pixels beyond the image's border count as not valid, so d >= 1 for a valid pixel and
// its weight is never 0), L the width in pixels (the width in metres over the pixel size; L = 0 gives
// every valid pixel the weight 1, the plain mean). The mosaic is sum(w v) / sum(w) over the images
// that cover a pixel.
//
// Streaming: the weights of a window depend only on the validity of the window grown by
// MargePlume(L) pixels on each side (the distance is exact up to L, and beyond L only its cap matters),
// so a composition by bands of output tiles reads each input's window with that margin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A rectangle of pixels of an image: columns [colonne0, colonne0 + nbColonnes), lines likewise.
struct Fenetre {
  int colonne0 = 0, ligne0 = 0, nbColonnes = 0, nbLignes = 0;
};

// Squared Euclidean distance from each pixel to the nearest pixel where source is not 0, exact (lower
// envelope of parabolas, Felzenszwalb and Huttenlocher, linear in the number of pixels); +infinity when
// there is no such pixel. Rows of source and d2 are pasSource and pasD2 elements apart.
void DistanceCarree(const unsigned char* source, int largeur, int hauteur, std::ptrdiff_t pasSource,
                    float* d2, std::ptrdiff_t pasD2);

// Pixels of margin a window needs around it for the weights of a width of L pixels.
int MargePlume(double largeurPixels);

// The window grown by the margin on each side and clipped to an image of largeur x hauteur pixels.
Fenetre FenetreAgrandie(const Fenetre& f, int marge, int largeurImage, int hauteurImage);

// The buffers of PoidsPlume, kept by a caller that computes many windows so that they are not allocated
// (and their pages zeroed by the system) again each time.
// Columns [debut, fin) of a line.
struct Etendue {
  int debut, fin;
};

struct TravailPlume {
  std::vector<unsigned char> source;
  std::vector<float> ligne;
  // Column distances in the narrowest type the width allows.
  std::vector<unsigned char> colonnes8;
  std::vector<uint16_t> colonnes16;
  std::vector<int> colonnes32;
  std::vector<int> v;
  std::vector<double> z;
  std::vector<Etendue> etendues;
};

// The weights of a window of an image, for a width of L pixels (L >= 0). valide holds the validity
// (not 0 = valid) of FenetreAgrandie(fenetre, MargePlume(L), largeurImage, hauteurImage), its rows
// pasValide apart; poids receives the window's weights, rows pasPoids apart (0 for invalid pixels).
void PoidsPlume(int largeurImage, int hauteurImage, const Fenetre& fenetre, double largeurPixels,
                const unsigned char* valide, std::ptrdiff_t pasValide, float* poids, std::ptrdiff_t pasPoids,
                TravailPlume* travail = nullptr);

// The weighted sums of one output window of nbBandes bands, for the feathered mean.
class FusionPlume {
 public:
  FusionPlume(int largeur, int hauteur, int nbBandes);

  // Adds pixels [colonne0, colonne0 + n) of window line 'ligne' of one band: valeurs[k] with weight
  // poids[k] (0 = no contribution). No bounds check.
  void Ajouter(int bande, int ligne, int colonne0, int n, const float* valeurs, const float* poids);
  // Window line 'ligne' of the band: sum(w v) / sum(w), or nodata where no image contributes.
  void Terminer(int bande, int ligne, float* sortie, float nodata) const;

 private:
  int m_largeur, m_hauteur;
  std::vector<double> m_sommes, m_poids;  // per band, lines of the window
};
