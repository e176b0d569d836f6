// The image decisions of the reader: pixel type, layout and the blocks, from the tag map.
#include <algorithm>
#include <climits>

#include "annexes.h"
#include "codec.h"
#include "codecs_externes.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/systeme.h"

namespace tiff {

namespace {

// JPEG-compressed YCbCr: the JPEG codec gives it as RGB. Uncompressed YCbCr stays refused.
bool JpegYCbCr(const DescriptionTIFF& d) { return d.compression == kJPEG && d.photometrique == kYCbCr; }

}  // namespace

DescriptionTIFF TIFF_Annexes::GetImage(bool dallageAutorise, bool masque) {
  DescriptionTIFF d;
  d.nom = m_nom;
  d.permuter = m_swap;
  if (!Present(kPhotometric))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_PHOTOMETRICINTERPRETATION pas trouve !");
  if (!Present(kImageWidth)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_IMAGEWIDTH non trouve !");
  if (!Present(kImageLength)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_IMAGELENGTH non trouve !");

  if (!Present(kBitsPerSample)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_BITSPERSAMPLE non trouve");
  const Directory& bps = m_tags.at(kBitsPerSample);
  for (uint64_t i = 1; i < bps.count; ++i)
    if (bps.GetValue(i) != bps.GetValue(0))
      ZEPRA_ERREUR(
          "[TIFF_Annexes] (GetImage) TIFF_TAG_BITSPERSAMPLE : Tous les canaux n'ont pas le meme nombre de "
          "bits par "
          "pixel");
  long long format = 1;
  if (Present(kSampleFormat)) {
    const Directory& sf = m_tags.at(kSampleFormat);
    for (uint64_t i = 1; i < sf.count; ++i)
      if (sf.GetValue(i) != sf.GetValue(0))
        ZEPRA_ERREUR(
            "[TIFF_Annexes] (GetImage) TIFF_TAG_SAMPLEFORMAT : Tous les canaux n'ont pas le meme format par "
            "pixel");
    format = Entier(kSampleFormat);
  }

  if (Present(kPlanarConfiguration)) {
    d.planaire = static_cast<int>(std::clamp(Entier(kPlanarConfiguration), -1ll, 65536ll));
    if (d.planaire != 1 && d.planaire != 2)
      Systeme::Warning("[TIFF_Annexes] (GetImage) TIFF_TAG_PLANARCONFIGURATION " +
                       std::to_string(Entier(kPlanarConfiguration)) + " : valeur impossible.");
  }

  long long canaux = 1;
  if (!Present(kSamplesPerPixel))
    Systeme::Warning("[TIFF_Annexes] (GetImage) Samples per pixel non trouve. On suppose 1.");
  else
    canaux = Entier(kSamplesPerPixel);
  if (canaux < 1 || canaux > 65535)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) SamplesPerPixel (" << canaux << ") invalide dans le fichier "
                                                               << m_nom << ".");
  d.canaux = static_cast<int>(canaux);

  if (!Present(kCompression)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_COMPRESSION non trouve !");
  const long long compression = Entier(kCompression);
  if (!TrouverCodec(static_cast<int>(std::clamp(compression, -1ll, 65536ll)), m_etendus))
    Systeme::Warning("[TIFF_Annexes] (GetImage) Compression (" + std::to_string(compression) +
                     ") : non geree");
  d.compression = static_cast<int>(std::clamp(compression, -1ll, 65536ll));
  d.codecsEtendus = m_etendus;

  const long long bits = Entier(kBitsPerSample);
  if (bits == 1) {
    d.type = eBit1;
  } else if (format == 1 || format == 2) {
    const eEnumType types[2][3] = {{eUInt1, eUInt2, eUInt4}, {eInt1, eInt2, eInt4}};
    const int k = bits == 8 ? 0 : bits == 16 ? 1 : bits == 32 ? 2 : -1;
    if (k < 0)
      ZEPRA_ERREUR("[TIFF_Annexes] (Image) taille pixel (" << bits << ") non prevue pour format "
                                                           << (format == 1 ? "unsigned." : "signed."));
    d.type = types[format - 1][k];
  } else if (format == 3) {
    if (bits != 32 && bits != 64)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) taille pixel (" << bits
                                                              << ") non prevue pour format IEEE Floating.");
    d.type = bits == 32 ? eFloat4 : eFloat8;
  } else {
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) sampleformat (" << format << ") non prevu.");
  }
  d.bits = static_cast<int>(bits);

  const long long colonnes = Entier(kImageWidth), lignes = Entier(kImageLength);
  if (colonnes < 1 || lignes < 1 || colonnes > INT_MAX || lignes > INT_MAX)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Taille (" << colonnes << " x " << lignes
                                                      << ") invalide dans le fichier " << m_nom << ".");
  d.colonnes = static_cast<int>(colonnes);
  d.lignes = static_cast<int>(lignes);
  // Horizontal differencing (Predictor 2) is common in LZW files; the others are refused when the
  // pixels are read.
  if (Present(kPredictor)) d.predicteur = static_cast<int>(std::clamp(Entier(kPredictor), -1ll, 65536ll));

  if (Present(kDallageColonnes) || Present(kDallageLignes)) {
    if (!dallageAutorise || masque)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : la dalle " << m_nom << " en est elle-meme un.");
    LireDallage(d);
    return d;
  }
  const bool tuile = Present(kTileWidth), bande = Present(kStripOffsets);
  if (!tuile && !bande) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Image ni en Strip, ni en Tile !!!");
  if (tuile && bande) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Image a la fois en Strip, et en Tile !!!");
  const long long photometrie = Entier(kPhotometric);
  d.photometrique = static_cast<int>(std::clamp(photometrie, -1ll, 65536ll));
  if (d.compression == kJPEG) LireJpeg(d);
  const uint64_t plans = d.Plans() ? static_cast<uint64_t>(d.canaux) : 1;

  if (tuile) {
    if (!Present(kTileLength)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_TILELENGTH non trouve !");
    if (!Present(kTileOffsets)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_TILEOFFSETS non trouve !");
    if (!Present(kTileByteCounts))
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_TILEBYTECOUNTS non trouve !");
    const long long largeur = Entier(kTileWidth), hauteur = Entier(kTileLength);
    if (largeur < 1 || hauteur < 1 || largeur > INT_MAX || hauteur > INT_MAX)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Taille de tuile ("
                   << largeur << " x " << hauteur << ") invalide dans le fichier " << m_nom << ".");
    // Planar files have the tiles of each plane, one plane after the other.
    const uint64_t tuiles = static_cast<uint64_t>((colonnes + largeur - 1) / largeur) *
                            static_cast<uint64_t>((lignes + hauteur - 1) / hauteur) * plans;
    if (m_tags.at(kTileOffsets).count != tuiles)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de TILEOFFSETS != TilesPerImage.");
    if (m_tags.at(kTileByteCounts).count != tuiles)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de TILEBYTECOUNTS != TilesPerImage.");
    if (photometrie == 0)
      Systeme::Warning("[TIFF_Annexes] (GetImage) White is zero pas gere : utilisation de black is zero !!!");
    else if (photometrie != 1 && photometrie != 2 && !JpegYCbCr(d) && !(masque && photometrie == kMasque))
      Systeme::Warning(
          "[TIFF_Annexes] (GetImage) PHOTOMETRICINTERPRETATION de valeur non geree : utilisation de black is "
          "zero "
          "!!!");
    d.disposition = DescriptionTIFF::kTuiles;
    d.largeurBloc = static_cast<int>(largeur);
    d.hauteurBloc = static_cast<int>(hauteur);
    LireBlocs(d, kTileOffsets, kTileByteCounts, tuiles);
    return d;
  }

  if (!Present(kRowsPerStrip)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_ROWSPERSTRIP non trouve !");
  if (!Present(kStripOffsets)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_STRIPOFFSETS non trouve.");
  if (!Present(kStripByteCounts))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_STRIPBYTECOUNTS non trouve.");
  const long long parBande = Entier(kRowsPerStrip);
  if (parBande < 1)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) RowsPerStrip (" << parBande << ") invalide dans le fichier "
                                                            << m_nom << ".");
  if (photometrie == 0) Systeme::Warning("[TIFF_Annexes] (GetImage) White is zero pas gere !");
  if (photometrie == 3) {
    if (bits == 4) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) bitspersample = 4 non gere !");
    if (bits != 8) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) bitspersample != 4 ou 8 !");
    if (!Present(kColorMap)) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) TIFF_TAG_COLORMAP non trouve !");
    if (m_tags.at(kColorMap).count != 768)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dans COLORMAP, count pas conforme a bitspersample");
    if (d.canaux != 1)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Image a palette de " << d.canaux << " canaux dans le fichier "
                                                                   << m_nom << " : un seul attendu.");
    LirePalette(d);
    d.disposition = DescriptionTIFF::kPalette;
  } else if (photometrie == 0 || photometrie == 1 || photometrie == 2 || JpegYCbCr(d) ||
             (masque && photometrie == kMasque)) {
    if (d.type > eFloat8) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) typePixel (" << d.type << ") non prevu.");
    d.disposition = DescriptionTIFF::kBandes;
  } else {
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) PHOTOMETRICINTERPRETATION de valeur inconnue...");
  }
  d.largeurBloc = d.colonnes;
  d.hauteurBloc = static_cast<int>(std::min<long long>(parBande, lignes));
  LireBlocs(d, kStripOffsets, kStripByteCounts,
            static_cast<uint64_t>((lignes + d.hauteurBloc - 1) / d.hauteurBloc) * plans);
  return d;
}

// JPEG: the tables shared by the blocks, and for YCbCr data, which the codec turns into RGB, the
// chroma subsampling (2 x 2 unless said otherwise).
void TIFF_Annexes::LireJpeg(DescriptionTIFF& d) {
  if (Present(kJPEGTables)) d.tablesJpeg = m_tags.at(kJPEGTables).values;
  if (!JpegYCbCr(d)) return;
  if (d.canaux != 3 || d.bits != 8 || d.Plans())
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) JPEG YCbCr de "
                 << d.canaux << " canaux de " << d.bits << " bits (PlanarConfiguration " << d.planaire
                 << ") non prevu dans le fichier " << m_nom << " : 3 canaux de 8 bits entrelaces attendus.");
  if (Present(kYCbCrSubsampling)) {
    const Directory& s = m_tags.at(kYCbCrSubsampling);
    const long long h = Entier(kYCbCrSubsampling, 0), v = s.count > 1 ? Entier(kYCbCrSubsampling, 1) : h;
    auto valide = [](long long f) { return f == 1 || f == 2 || f == 4; };
    if (!valide(h) || !valide(v))
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) YCbCrSubsampling ("
                   << h << ", " << v << ") impossible dans le fichier " << m_nom << ".");
    d.sousEchH = static_cast<int>(h);
    d.sousEchV = static_cast<int>(v);
  }
}

// Offsets and byte counts of the blocks, each checked against the file before anything is read:
// the compressed bytes must lie in the file and be able to give the block's pixels, and all the
// blocks together may not ask for more than the whole file could give.
void TIFF_Annexes::LireBlocs(DescriptionTIFF& d, uint16_t tagOffsets, uint16_t tagOctets, uint64_t nbBlocs) {
  const char* nomOffsets = tagOffsets == kStripOffsets ? "STRIPOFFSETS" : "TILEOFFSETS";
  const char* nomOctets = tagOctets == kStripByteCounts ? "STRIPBYTECOUNTS" : "TILEBYTECOUNTS";
  if (m_tags.at(tagOffsets).count < nbBlocs)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de " << nomOffsets << " (" << m_tags.at(tagOffsets).count
                                                        << ") inferieur au nombre de blocs (" << nbBlocs
                                                        << ") dans le fichier " << m_nom << ".");
  if (m_tags.at(tagOctets).count < nbBlocs)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) nombre de " << nomOctets << " (" << m_tags.at(tagOctets).count
                                                        << ") inferieur au nombre de blocs (" << nbBlocs
                                                        << ") dans le fichier " << m_nom << ".");
  const uint64_t taille = m_lecteur->Taille();
  const uint64_t octetsLigne = d.OctetsLigneBloc();
  // A codec that cannot stream holds one decoded block.
  uint64_t octetsBloc = 0;
  if (__builtin_mul_overflow(octetsLigne, static_cast<uint64_t>(d.hauteurBloc), &octetsBloc) ||
      octetsBloc > LimiteOctetsDecodes())
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Blocs de "
                 << d.largeurBloc << " x " << d.hauteurBloc << " pixels (" << octetsLigne
                 << " octets par ligne) au-dela de la limite de " << LimiteOctetsDecodes()
                 << " octets dans le fichier " << m_nom << ".");
  // WebP has no useful byte bound, but its images are at most 16383 pixels a side.
  if (m_etendus && d.compression == kWebp &&
      (d.largeurBloc > kCoteWebpMax || std::min(d.hauteurBloc, d.lignes) > kCoteWebpMax))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Blocs WebP de "
                 << d.largeurBloc << " x " << std::min(d.hauteurBloc, d.lignes) << " pixels dans le fichier "
                 << m_nom << " : WebP ne code pas d'image de plus de " << kCoteWebpMax << " pixels de cote.");
  const bool bandes = tagOffsets == kStripOffsets;
  uint64_t total = 0;
  // A codec we do not read is bounded as LZW is; past that bound its blocks are not taken for corrupt:
  // the codec is named.
  const auto SiCodecInconnu = [&] {
    if (!TrouverCodec(d.compression, m_etendus))
      CompressionNonGeree("[TIFF_Annexes] (GetImage)", d.compression, m_nom);
  };
  d.offsets.resize(static_cast<size_t>(nbBlocs));
  d.octets.resize(static_cast<size_t>(nbBlocs));
  for (uint64_t b = 0; b < nbBlocs; ++b) {
    const long long offset = Entier(tagOffsets, b);
    const long long octets = Entier(tagOctets, b);
    if (octets == 0 && offset >= 0) {  // absent: nothing to check or to read
      d.offsets[static_cast<size_t>(b)] = static_cast<uint64_t>(offset);
      d.octets[static_cast<size_t>(b)] = 0;
      continue;
    }
    const uint64_t r0 = b % d.BlocsParPlan() / static_cast<uint64_t>(d.BlocsParLigne()) * d.hauteurBloc;
    const uint64_t lignes =
        bandes ? std::min<uint64_t>(d.hauteurBloc, d.lignes - r0) : static_cast<uint64_t>(d.hauteurBloc);
    uint64_t besoin = 0;
    if (offset < 0 || octets < 0 || __builtin_mul_overflow(octetsLigne, lignes, &besoin) ||
        __builtin_add_overflow(total, besoin, &total))
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Bloc "
                   << b << " (offset " << offset << ", " << octets << " octets) de " << lignes
                   << " lignes de " << octetsLigne << " octets : taille hors de toute mesure dans le fichier "
                   << m_nom << ".");
    if (static_cast<uint64_t>(offset) + static_cast<uint64_t>(octets) > taille)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Le bloc " << b << " (offset " << offset << ", " << octets
                                                        << " octets) depasse la fin du fichier " << m_nom
                                                        << " (" << taille << " octets).");
    if (d.compression == kSans && static_cast<uint64_t>(octets) < besoin)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Le bloc " << b << " n'a que " << octets << " octets pour les "
                                                        << besoin << " de ses " << lignes
                                                        << " lignes dans le fichier " << m_nom << ".");
    if (d.compression != kSans &&
        besoin > MaxDecode(d.compression, static_cast<uint64_t>(octets), m_etendus)) {
      SiCodecInconnu();
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Le bloc "
                   << b << " (" << octets << " octets compresses) ne peut pas donner les " << besoin
                   << " octets de ses " << lignes << " lignes dans le fichier " << m_nom << ".");
    }
    d.offsets[static_cast<size_t>(b)] = static_cast<uint64_t>(offset);
    d.octets[static_cast<size_t>(b)] = static_cast<uint64_t>(octets);
  }
  if (total > MaxDecode(d.compression, taille, m_etendus)) {
    SiCodecInconnu();
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Les blocs du fichier "
                 << m_nom << " demandent " << total << " octets de pixels, plus que ses " << taille
                 << " octets ne peuvent en donner.");
  }
}

// ColorMap values are 16-bit; the 8-bit sample is the high byte. Some writers store 8-bit values
// unscaled: when no value exceeds 255 they are taken as they stand.
void TIFF_Annexes::LirePalette(DescriptionTIFF& d) {
  std::vector<long long> v(768);
  long long max = 0;
  for (int i = 0; i < 768; ++i) {
    v[i] = Entier(kColorMap, i);
    if (v[i] < 0 || v[i] > 65535)
      ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Valeur de COLORMAP "
                   << v[i] << " hors de [0, 65535] dans le fichier " << m_nom << ".");
    max = std::max(max, v[i]);
  }
  d.palette.resize(768);
  for (int i = 0; i < 768; ++i) d.palette[i] = static_cast<unsigned char>(max > 255 ? v[i] >> 8 : v[i]);
}

// The tile files of a "Dallage MPD" lie beside the main file: tag 40000 counts them along the
// columns, tag 40001 along the lines, and tile (column i, line j) of "dir/nom.tif" is
// "dir/nom_Tile_i_j.tif" (see NomDalle).
void TIFF_Annexes::LireDallage(DescriptionTIFF& d) {
  if (!Present(kDallageColonnes) || !Present(kDallageLignes))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : il manque un des deux TAGs propriétaire !!!");
  const long long nx = Entier(kDallageColonnes), ny = Entier(kDallageLignes);
  if (nx < 1 || ny < 1 || nx > d.colonnes || ny > d.lignes)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : "
                 << nx << " x " << ny << " dalles impossibles pour une image de " << d.colonnes << " x "
                 << d.lignes << " dans le fichier " << m_nom << ".");
  d.dallesColonnes = static_cast<int>(nx);
  d.dallesLignes = static_cast<int>(ny);
  for (int j = 0; j < d.dallesLignes; ++j)
    for (int i = 0; i < d.dallesColonnes; ++i) {
      const std::string dalle = NomDalle(m_nom, i, j);
      if (!Systeme::ExisteFichier(dalle.c_str()))
        ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Dallage MPD : le fichier " << dalle << " n'existe pas !!!");
    }
  d.disposition = DescriptionTIFF::kDallage;
}

}  // namespace tiff
