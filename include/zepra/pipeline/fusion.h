// The fusion rule of the composition: a policy chosen once by name from a table. The composition
// hands each rule the contributions of one input row to one output row at a time; the rule's own loop
// walks the pixels, so no call is made per pixel.
#pragma once

#include <string>
#include <vector>

#include "zepra/pipeline/politiques.h"

// What one input row brings to one output row. Output column c (c0 <= c < c1) maps into the input
// when dedans[c] is 1, on the input column x0 + colonne[c]; the input row's samples and validity are
// indexed by colonne[c] (0 is input column x0).
struct LigneContribution {
  int image;                         // the input, in input order
  int y;                             // the output row
  int c0, c1;                        // the output columns to look at
  const unsigned char* dedans;       // per output column
  const int* colonne;                // per output column
  int ligne;                         // the input row
  int x0;                            // the input column of sample 0
  int colonnesEntree, lignesEntree;  // the input's size
  const float* const* valeurs;       // per band, the input row's samples
  const unsigned char* valide;       // the input row's validity
  const float* poids = nullptr;      // the input row's feathering weights, for rules that ask for them
  // Every output column of [c0, c1) maps into the input, on consecutive input columns from
  // colonne[c0]: a rule may then walk both rows side by side.
  bool contigu = false;
};

// A band of output rows [y0, y1) of 'colonnes' pixels and 'bandes' bands, all zero when handed to a
// rule: row y of band b is at valeurs[b] + (y - y0) x colonnes, its coverage at couvert + (y - y0) x
// colonnes.
struct BandeSortie {
  int colonnes = 0, y0 = 0, y1 = 0, bandes = 0;
  float* const* valeurs = nullptr;
  unsigned char* couvert = nullptr;
};

// Fuses the contributions into one band of output rows. They come input after input in input order,
// and for each input its rows in increasing order. One per band of rows and per thread.
class AccumulateurFusion {
 public:
  virtual ~AccumulateurFusion() = default;
  virtual void Ajouter(const LigneContribution& l) = 0;
  // Starts over on another band, as a new accumulator of the rule would, keeping the memory it holds:
  // a composer reusing one per thread spares the system zeroing fresh pages for every band.
  virtual void Reprendre(const BandeSortie& bande) = 0;
  // Leaves the fused values in the band, and 1 in its coverage where some input contributed (the
  // value is 0 where none did).
  virtual void Terminer() = 0;
};

class RegleFusion {
 public:
  virtual ~RegleFusion() = default;
  // An accumulator that may keep its running values in the band itself; the band outlives it.
  virtual std::unique_ptr<AccumulateurFusion> Accumulateur(const BandeSortie& bande) const = 0;
  // Width in metres over which the rule fades an input out toward the edge of its valid region; the
  // composer then hands it each input pixel's feathering weight. Negative: the rule takes no weights.
  virtual double LargeurPlume() const { return -1.0; }
  // Whether the rule blends Laplacian pyramids: a composer that can hand it whole windows does so
  // (MelangerMultibande); row by row it is the feathered mean.
  virtual bool Pyramide() const { return false; }
};

// The settings a rule may read; each rule reads only its own.
struct ParametresFusion {
  double plume = 0.0;  // plume: width of the transition in metres (0: every valid pixel weighs 1)
};

using LigneFusion = LignePolitique<RegleFusion, ParametresFusion>;
// The rules, in the order of the help text.
const std::vector<LigneFusion>& TableFusions();
inline const LigneFusion* ChercherFusion(const std::string& nom) {
  return ChercherLigne(TableFusions(), nom);
}
