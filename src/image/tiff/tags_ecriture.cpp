#include "tags_ecriture.h"

#include <cstring>

#include "geotiff_ecriture.h"
#include "tags.h"

namespace tiff {

namespace {

constexpr uint16_t kReferenceBlackWhite = 532;

Directory Valeurs(uint16_t type, const std::vector<uint64_t>& v) {
  Directory d(type, v.size());
  for (size_t i = 0; i < v.size(); ++i) d.SetValue(static_cast<double>(v[i]), i);
  return d;
}

// A size as GDAL writes it: SHORT when it fits.
Directory Taille(int v) { return Valeurs(v < 65536 ? kShort : kLong, {static_cast<uint64_t>(v)}); }

}  // namespace

bool TagStructurel(uint16_t tag) {
  static const uint16_t structurels[] = {254, 255, 256, 257, 258,   259,   262,   266,   273,   277,   278,
                                         279, 284, 317, 320, 322,   323,   324,   325,   338,   339,   347,
                                         529, 530, 531, 532, 33550, 33922, 34264, 34735, 34736, 34737, 42113};
  for (uint16_t t : structurels)
    if (t == tag) return true;
  return false;
}

namespace {

int FormatEchantillon(eEnumType type) {
  switch (type) {
    case eInt1:
    case eInt2:
    case eInt4:
      return 2;
    case eFloat4:
    case eFloat8:
      return 3;
    default:
      return 1;
  }
}

}  // namespace

int PhotometrieEcrite(const PlanEcriture& p, bool masque) {
  if (masque) return kMasque;
  if (p.compression == CompressionTIFF::kJPEG && p.canaux == 3) return kYCbCr;
  return p.rvb ? kRVB : kNoirZero;
}

uint64_t NombreBlocs(const PlanEcriture& p, const ImageEcrite& image) {
  const uint64_t colonnes = (static_cast<uint64_t>(image.taille.x) + p.largeurBloc - 1) / p.largeurBloc;
  const uint64_t lignes = (static_cast<uint64_t>(image.taille.y) + p.hauteurBloc - 1) / p.hauteurBloc;
  return colonnes * lignes * (p.planaire && !image.masque ? p.canaux : 1);
}

std::map<uint16_t, Directory> TagsImage(const PlanEcriture& p, const ImageEcrite& image,
                                        const FormatTIFF& format,
                                        const std::vector<unsigned char>& tablesJpeg,
                                        const std::vector<TagTIFF>& supplementaires) {
  std::map<uint16_t, Directory> t;
  const int canaux = image.masque ? 1 : p.canaux;
  const uint32_t sousFichier =
      (image.niveau > 0 ? kSousFichierReduit : 0) | (image.masque ? kSousFichierMasque : 0);
  if (sousFichier != 0) t[kNewSubfileType] = Valeurs(kLong, {sousFichier});
  t[kImageWidth] = Taille(image.taille.x);
  t[kImageLength] = Taille(image.taille.y);
  t[kBitsPerSample] = Valeurs(kShort, std::vector<uint64_t>(canaux, image.masque ? 1 : p.bits));
  const int compression = image.masque ? 8 : static_cast<int>(p.compression);
  t[kCompression] = Valeurs(kShort, {static_cast<uint64_t>(compression)});
  const int photometrie = PhotometrieEcrite(p, image.masque);
  t[kPhotometric] = Valeurs(kShort, {static_cast<uint64_t>(photometrie)});
  t[kSamplesPerPixel] = Valeurs(kShort, {static_cast<uint64_t>(canaux)});
  t[kPlanarConfiguration] = Valeurs(kShort, {p.planaire && !image.masque ? 2u : 1u});
  const uint64_t blocs = NombreBlocs(p, image);
  const uint16_t typeOffsets = format.Big() ? kLong8 : kLong;
  if (p.tuilee) {
    t[kTileWidth] = Taille(p.largeurBloc);
    t[kTileLength] = Taille(p.hauteurBloc);
    t[kTileOffsets] = Directory(typeOffsets, blocs);
    t[kTileByteCounts] = Directory(typeOffsets, blocs);
  } else {
    t[kStripOffsets] = Directory(typeOffsets, blocs);
    t[kRowsPerStrip] = Taille(p.hauteurBloc);
    t[kStripByteCounts] = Directory(typeOffsets, blocs);
  }
  if (image.masque) return t;
  if (p.predicteur != 1) t[kPredictor] = Valeurs(kShort, {static_cast<uint64_t>(p.predicteur)});
  const int couleurs = photometrie == kRVB || photometrie == kYCbCr ? 3 : 1;
  if (canaux > couleurs) {
    std::vector<uint64_t> extras(static_cast<size_t>(canaux - couleurs), 0);
    if (p.alpha) extras.back() = 2;  // unassociated alpha
    t[kExtraSamples] = Valeurs(kShort, extras);
  }
  t[kSampleFormat] = Valeurs(kShort, std::vector<uint64_t>(canaux, FormatEchantillon(p.type)));
  if (p.compression == CompressionTIFF::kJPEG) {
    Directory tables(kUndefined, tablesJpeg.size());
    if (!tablesJpeg.empty()) std::memcpy(tables.values.data(), tablesJpeg.data(), tablesJpeg.size());
    t[kJPEGTables] = tables;
    if (photometrie == kYCbCr) {
      t[kYCbCrSubsampling] = Valeurs(kShort, {2, 2});
      Directory reference(kRational, 6);
      for (int i = 0; i < 6; ++i) reference.SetRationalValue(i == 0 ? 0 : i % 2 == 1 ? 255 : 128, 1, i);
      t[kReferenceBlackWhite] = reference;
    }
  }
  // The no-data value in every level, as GDAL writes it.
  if (p.nodataPresent) {
    const TagTIFF n = TagNodata(p.nodata);
    Directory d(n.type, n.count);
    d.values = n.valeurs;
    t[n.code] = d;
  }
  if (image.niveau == 0)
    for (const TagTIFF& s : supplementaires) {
      if (t.count(s.code) || s.code < 254 || Directory::SizeOfValue(s.type) == 0) continue;
      Directory d;
      d.type = s.type;
      d.count = s.count;
      d.values = s.valeurs;
      if (d.values.size() != d.Octets()) continue;
      t[s.code] = std::move(d);
    }
  return t;
}

void FixerBlocs(std::map<uint16_t, Directory>& tags, const std::vector<uint64_t>& offsets,
                const std::vector<uint64_t>& octets) {
  const bool tuiles = tags.count(kTileOffsets) != 0;
  Directory& o = tags[tuiles ? kTileOffsets : kStripOffsets];
  Directory& n = tags[tuiles ? kTileByteCounts : kStripByteCounts];
  for (size_t i = 0; i < offsets.size(); ++i) {
    o.SetValue(static_cast<double>(offsets[i]), i);
    n.SetValue(static_cast<double>(octets[i]), i);
  }
}

}  // namespace tiff
