// 8-bit grey PNG quick-looks through libpng.
#pragma once

#include <string>
#include <vector>

// Writes largeur x hauteur grey levels, line by line, through a temporary file renamed when complete.
void EcrirePng(const std::string& chemin, int largeur, int hauteur, const std::vector<unsigned char>& gris);
