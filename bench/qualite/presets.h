// The quality benchmark's data sets: tiles of the demo scene with known distortions.
#pragma once

#include <string>
#include <vector>

#include "scene_demo.h"

struct Preset {
  std::string nom, description;
  std::vector<TuileQualite> tuiles;
  bool masques = false;  // exclusion masks: written as Incid_ files
  // The draw of every tile's fields: uniform within +-a for the constant, +-a/2 for the slopes, +-a/4
  // for the curvatures; 0 where the field is not drawn (none, or the same for every tile).
  double amplitudeOffset = 0, amplitudeGain = 0;
};

// The scene's grid: pixel size, origin, zone and seed shared by every preset.
ParametresDemo GrilleScene();

// Every preset, in the order of the results table.
// tirage > 0 draws every random field and mask anew (other seeds), to tell a setting's effect from
// the luck of one draw.
std::vector<Preset> Presets(unsigned tirage = 0);
