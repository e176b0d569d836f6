// The samples of strip and tile rows as every TIFF read delivers them, whatever the destination: the
// whole-image readers' line tables (lecteurs.cpp) and the window reads' planes (fenetres_tiff.cpp).
// Private to src/image.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "blocs.h"
#include "zepra/erreur.h"

namespace tiff {

// Visits [x0, x1) x [y0, y1), every pas-th pixel, as Blocs::Parcourir does, and hands each row segment
// to ecrire(yOut, xOut, src, n, pasSrc, parPixel, plan): n pixels of the output grid from column xOut
// of its line yOut, the first at src and each pasSrc pixels after the previous one, parPixel samples
// each; plan -1 when the samples are all the channels, else the one channel of a planar block. The
// samples are the file's T, except 1-bit samples, unpacked to 0 and 1, and palette indices, expanded
// to red, green and blue (unsigned char both). 'tampon' is scratch room for one segment. 'cible' is
// Blocs::Parcourir's: where a whole block row may be decoded in place, or null.
template <class T, class Cible, class Ecrire>
void LireSegments(Blocs& blocs, int x0, int y0, int x1, int y1, int pas, std::vector<unsigned char>& tampon,
                  Cible&& cible, Ecrire&& ecrire) {
  const DescriptionTIFF& d = blocs.Desc();
  const bool bits = d.bits == 1, palette = d.disposition == DescriptionTIFF::kPalette;
  auto segment = [&](const unsigned char* ligne, long long yOut, long long a, long long xPremier,
                     long long xFin, int plan) {
    const long long xOut = (xPremier - x0) / pas, n = (xFin - xPremier + pas - 1) / pas;
    const int parPixel = plan < 0 ? d.canaux : 1;
    if (palette) {
      const std::vector<unsigned char>& p = d.palette;
      tampon.resize(static_cast<size_t>(n * 3));
      unsigned char* o = tampon.data();
      for (long long x = xPremier; x < xFin; x += pas) {
        const unsigned char i = ligne[x - a];
        *o++ = p[i];
        *o++ = p[256 + i];
        *o++ = p[512 + i];
      }
      ecrire(yOut, xOut, static_cast<const unsigned char*>(tampon.data()), n, 1, 3, -1);
    } else if (bits) {
      // Unpacked, every pas-th pixel: the copy then reads them one after another.
      tampon.resize(static_cast<size_t>(n * parPixel));
      size_t o = 0;
      for (long long x = xPremier; x < xFin; x += pas)
        for (int c = 0; c < parPixel; ++c) {
          const uint64_t i = static_cast<uint64_t>(x - a) * parPixel + c;
          tampon[o++] = (ligne[i >> 3] >> (7 - (i & 7))) & 1;
        }
      ecrire(yOut, xOut, static_cast<const unsigned char*>(tampon.data()), n, 1, parPixel, plan);
    } else {
      ecrire(yOut, xOut, reinterpret_cast<const T*>(ligne) + (xPremier - a) * parPixel, n, pas, parPixel,
             plan);
    }
  };
  blocs.Parcourir(x0, y0, x1, y1, pas, cible, segment);
}

// Calls f(TypeTag<T>{}) with the type of the samples the blocks of d hold: unsigned char for 1-bit
// samples and palette indices, else the file's type; an Erreur for a type no block holds.
template <class F>
void AppliquerTypeBlocs(const DescriptionTIFF& d, F&& f) {
  if (d.type == eBit1 || d.disposition == DescriptionTIFF::kPalette) return f(TypeTag<unsigned char>{});
  bool fait = false;
  AppliquerType(d.type, [&](auto tag) {
    if constexpr (!std::is_same_v<typename decltype(tag)::type, bool>) {
      f(tag);
      fait = true;
    }
  });
  if (!fait) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) typePixel (" << d.type << ") non prevu.");
}

// The bytes a Blocs over d allocates besides its destination: the largest compressed block, one
// decoded block (a codec that cannot stream holds one), one decoded row and one converted segment.
// Planar files are read plane after plane, so one block is the block of one plane.
inline uint64_t OctetsTravail(const DescriptionTIFF& d) {
  uint64_t compresse = 0;
  if (d.compression != kSans)
    for (const uint64_t o : d.octets) compresse = std::max(compresse, o);
  const uint64_t ligne = d.OctetsLigneBloc();
  const uint64_t bloc = d.compression != kSans ? ligne * static_cast<uint64_t>(d.hauteurBloc) : 0;
  const uint64_t segment =
      static_cast<uint64_t>(d.largeurBloc) * static_cast<uint64_t>(std::max(3, d.canaux));
  return compresse + bloc + ligne + segment;
}

}  // namespace tiff
