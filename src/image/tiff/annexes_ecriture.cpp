// The directory of the files the writer makes: one uncompressed little-endian strip.
#include "annexes.h"
#include "zepra/erreur.h"

namespace tiff {

void TIFF_Annexes::SetImage(const TPoint2D<int>& taille, int canaux, eEnumType type) {
  int bits = 0;
  switch (type) {
    case eBit1:
    case eBool:
      bits = 1;
      break;
    case eInt1:
    case eUInt1:
      bits = 8;
      break;
    case eInt2:
    case eUInt2:
      bits = 16;
      break;
    case eInt4:
    case eUInt4:
    case eFloat4:
      bits = 32;
      break;
    case eFloat8:
      bits = 64;
      break;
    default:
      ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) NomType : cas imprevu.");
  }
  int format = 0;
  switch (type) {
    case eBit1:
    case eBool:
    case eUInt1:
    case eUInt2:
    case eUInt4:
      format = 1;
      break;
    case eInt1:
    case eInt2:
    case eInt4:
      format = 2;
      break;
    case eFloat4:
    case eFloat8:
      format = 3;
      break;
    default:
      ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) Type (" << type << ") non prevu pour SampleFormat.");
  }
  // A file we could not read back is not written.
  if (taille.x < 1 || taille.y < 1 || canaux < 1 || canaux > 65535)
    ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) Taille (" << taille.x << " x " << taille.y << " x " << canaux
                                                      << " canaux) impossible dans un fichier TIFF.");
  uint64_t echantillonsLigne = static_cast<uint64_t>(taille.x) * canaux;
  if (bits == 1) echantillonsLigne = (echantillonsLigne + 7) / 8 * 8;
  const uint64_t octets = echantillonsLigne * bits * static_cast<uint64_t>(taille.y) / 8;
  // Offsets and byte counts are 32-bit: the directory and the values come before the pixels.
  if (octets > 0xFFFFFFFFull - 1024 - 6ull * canaux)
    ZEPRA_ERREUR("[TIFF_Annexes] (SetImage) Image de "
                 << octets << " octets trop grande pour un fichier TIFF (4 Go au plus).");

  m_tags.clear();
  auto entree = [this](uint16_t tag, uint16_t t, uint32_t n, double v) {
    Directory d(t, n);
    for (uint32_t i = 0; i < n; ++i) d.SetValue(v, i);
    m_tags[tag] = std::move(d);
  };
  entree(kImageWidth, 4, 1, taille.x);
  entree(kImageLength, 4, 1, taille.y);
  entree(kBitsPerSample, 3, static_cast<uint32_t>(canaux), bits);
  entree(kCompression, 3, 1, kSans);
  entree(kPhotometric, 3, 1, canaux == 1 ? 1 : 2);
  entree(kStripOffsets, 4, 1, 0);
  entree(kSamplesPerPixel, 3, 1, canaux);
  entree(kRowsPerStrip, 4, 1, taille.y);
  entree(kStripByteCounts, 4, 1, static_cast<double>(octets));
  Directory resolution(5, 1);
  resolution.SetRationalValue(72, 1, 0);
  m_tags[kXResolution] = resolution;
  m_tags[kYResolution] = resolution;
  entree(kResolutionUnit, 3, 1, 2);
  if (canaux >= 4) entree(kExtraSamples, 3, static_cast<uint32_t>(canaux - 3), 0);
  entree(kSampleFormat, 3, static_cast<uint32_t>(canaux), format);
}

uint32_t TIFF_Annexes::PrecalculeOffset() const {
  uint64_t offset = 12 * m_tags.size() + 18;
  for (const auto& t : m_tags)
    if (t.second.Octets() > 4) offset += t.second.Octets();
  return static_cast<uint32_t>(offset);
}

uint32_t TIFF_Annexes::OctetsPixels() const {
  const auto it = m_tags.find(kStripByteCounts);
  return it == m_tags.end() ? 0 : static_cast<uint32_t>(it->second.GetValue(0));
}

void TIFF_Annexes::EcrireEntete(std::ostream& flux, const std::string& nom) {
  const auto bandes = m_tags.find(kStripOffsets);
  if (bandes == m_tags.end())
    ZEPRA_ERREUR("[TIFF_Annexes] (EcrireEntete) Tag STRIPOFFSETS non present en ecriture : Erreur interne.");
  bandes->second.SetValue(PrecalculeOffset(), 0);
  // The directory at 8, four zero bytes after the next-directory offset, then the long values.
  std::string octets, valeurs;
  EcrireEnteteTIFF(octets, kClassique, 8);
  EcrireRepertoire(octets, valeurs, kClassique, m_tags, 12 * m_tags.size() + 18, 0);
  octets.append(4, '\0');
  octets += valeurs;
  flux.write(octets.data(), static_cast<std::streamsize>(octets.size()));
  if (!flux) ZEPRA_ERREUR("[TIFF_Annexes] (EcrireEntete) Ecriture impossible de l'entete du fichier " << nom);
}

}  // namespace tiff
