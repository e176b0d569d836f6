// 8-bit PNG quick-looks through libpng, grey or RGB (not through the image registry, whose format
// lists stay as they are).
#pragma once

#include <string>
#include <vector>

// Writes largeur x hauteur pixels of 'canaux' interleaved 8-bit samples (1 grey, 3 RGB), line by line,
// through a temporary file renamed when complete.
void EcrirePng(const std::string& chemin, int largeur, int hauteur, int canaux,
               const std::vector<unsigned char>& octets);
