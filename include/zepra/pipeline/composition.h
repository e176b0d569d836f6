// Stage "composition": the mosaic on an output grid, composed by bands of output rows. For each band,
// each input in input order maps the band's pixels into itself (nearest pixel: the position truncated
// toward zero), pulls the rows it needs from its source, and hands them to the fusion rule; the fused
// rows then go to the sink. Bands are independent: they run in parallel and the result does not
// depend on the thread count.
#pragma once

#include <string>
#include <vector>

#include "zepra/pipeline/fusion.h"
#include "zepra/pipeline/geometrie_carto.h"
#include "zepra/pipeline/sources.h"

// One input to compose: its rows and where they lie on the map.
struct ImageComposee {
  const SourceLignes* source = nullptr;
  GeoCarto geo;
};

// Output rows per band of rows unless told otherwise: enough to amortise the per-input set-up, small
// enough to balance the threads and bound the memory.
constexpr int kLignesParBandeComposition = 64;

// Composes the output grid 'sortie' (map-projected; its pixel stands for the map point of its corner)
// from the inputs, all of the same band count, by the rule, into the sink: every band of every output
// row, and its coverage.
void Composer(const std::vector<ImageComposee>& images, const GeoCarto& sortie, const RegleFusion& regle,
              PuitsLignes& puits, int lignesParBande = kLignesParBandeComposition);

// Stages "composition" and "writing" for one file: the mosaic of the grid 'sortie' (one band) composed
// from the inputs by the rule, saved under 'nom' (format by its extension, default options) with the
// orientation 'ori' beside it (the name with the extension "ori", and its world file), as a pair that
// is complete or absent. The orientation is written and the image's writer opened before the mosaic
// is allocated: a mosaic the writer refuses (too big for its format, a type it lacks) costs nothing.
void ComposerEtSauver(const std::vector<ImageComposee>& images, const GeoCarto& sortie,
                      const RegleFusion& regle, const OrientationOld& ori, const std::string& nom);
