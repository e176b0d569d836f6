// The default job of the tool: equalize a set of ortho-images laid on one map grid and compose them
// into one mosaic with its orientation. Its command line; the job itself runs the stages of the
// pipeline library (zepra/pipeline).
#pragma once

#include <string>
#include <vector>

// Fusion rules, held as these small integers.
enum ModeFusion { eFusionVoronoi = 0, eFusionMoyenne = 1, eFusionMin = 2, eFusionMax = 3 };

struct OptionsMosaique {
  bool referenceWalis = false;
  int fusion = eFusionMoyenne;
  bool multiplicatif = false;
  bool noegal = false;
  double ssechfinal = 2.0;
  double pas = 50;
  bool prelissewalis = false;
  std::string sortie = "big_image.tif";
  std::vector<std::string> entrees;
};

// Reads the words after the program name, left to right: each word equal to an option sets it (the
// last one wins), any other word is an input name. Refuses, naming the option, a missing value after
// "--pas", "--ssechfinal" or "--output", a step or a subsampling factor that is not strictly positive
// and finite, and a command line without any input name.
OptionsMosaique LireOptionsMosaique(int argc, char** argv);

// The name of the fusion table's row for a fusion mode.
const char* NomFusion(int mode);
