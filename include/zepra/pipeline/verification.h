// Stage "open and validate inputs", the part that needs only the file system: what can be refused
// before any image is opened, so that a run that cannot finish writes nothing.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Refuses, naming the file and the reason: an input that does not exist or is not a regular file (a
// directory), an input given twice (the same file under any name), an output that is an input or an
// existing non-file, an output whose extension is not .tif or .tiff (any case), an output folder where no
// file can be created, and, when 'corriges' is not empty, a corrected-images folder that does not exist or
// cannot be written, or where a corrected image would replace an input or another corrected image.
// Also an output whose .ori and .tfw (written beside it, same name) would land where an input's
// georeferencing is read, and, for each (option, file) of 'annexes' with a file (the report, the log):
// a file that is an input, the output or another annexe's, or in a folder where no file can be created.
// The output, the annexes and the corrected images must not be a file read with an input either: its
// exclusion mask (its name without extension followed by 'suffixeMasque', when not empty), its .msk,
// its .ori, world file or .prj. A 'reference' (--reference), when not empty, is checked as an input is,
// and must not be one, but has no corrected image.
void VerifierChemins(const std::vector<std::string>& entrees, const std::string& sortie,
                     const std::string& corriges,
                     const std::vector<std::pair<std::string, std::string>>& annexes = {},
                     const std::string& suffixeMasque = std::string(),
                     const std::string& reference = std::string());

// Whether the path ends in .tif or .tiff, any case: the mosaic is a GeoTIFF.
bool ExtensionGeoTIFF(const std::string& chemin);

// Whether a file can be created in the folder: one is made under a temporary name and removed.
bool DossierInscriptible(const std::string& dossier);
