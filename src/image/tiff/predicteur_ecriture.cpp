#include "predicteur_ecriture.h"

#include <cstdint>
#include <cstring>

#include "zepra/erreur.h"

namespace tiff {

namespace {

template <class U>
void Differences(unsigned char* ligne, size_t echantillons, int pas) {
  U* v = reinterpret_cast<U*>(ligne);
  // From the end, so that each sample loses the value its neighbour had before.
  for (size_t i = echantillons; i-- > static_cast<size_t>(pas);) v[i] = static_cast<U>(v[i] - v[i - pas]);
}

constexpr bool kHotePetitBoutiste = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

}  // namespace

void AppliquerPredicteur(int predicteur, unsigned char* bloc, const ContexteBloc& c,
                         std::vector<unsigned char>& travail) {
  if (predicteur == 1) return;
  const size_t ligne = c.OctetsLigne(), echantillons = static_cast<size_t>(c.largeur) * c.echantillons;
  const int pas = c.echantillons;
  if (predicteur == 2 && (c.bits == 8 || c.bits == 16 || c.bits == 32 || c.bits == 64)) {
    for (int y = 0; y < c.hauteur; ++y) {
      unsigned char* l = bloc + y * ligne;
      switch (c.bits) {
        case 8:
          Differences<uint8_t>(l, echantillons, pas);
          break;
        case 16:
          Differences<uint16_t>(l, echantillons, pas);
          break;
        case 32:
          Differences<uint32_t>(l, echantillons, pas);
          break;
        default:
          Differences<uint64_t>(l, echantillons, pas);
      }
    }
    return;
  }
  if (predicteur == 3 && (c.bits == 32 || c.bits == 64)) {
    const int octets = c.bits / 8;
    travail.resize(ligne);
    for (int y = 0; y < c.hauteur; ++y) {
      unsigned char* l = bloc + y * ligne;
      std::memcpy(travail.data(), l, ligne);
      // Plane p holds byte p of each sample counted from the most significant.
      for (size_t i = 0; i < echantillons; ++i)
        for (int b = 0; b < octets; ++b) {
          const int plan = kHotePetitBoutiste ? octets - 1 - b : b;
          l[plan * echantillons + i] = travail[i * octets + b];
        }
      Differences<uint8_t>(l, ligne, pas);
    }
    return;
  }
  ZEPRA_ERREUR("[Predicteur] (Appliquer) Predicteur " << predicteur << " impossible pour des echantillons de "
                                                      << c.bits << " bits (fichier " << c.nom << ").");
}

}  // namespace tiff
