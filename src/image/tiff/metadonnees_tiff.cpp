// Metadata of a TIFF file from its first directory: GeoTIFF tags and keys, GDAL no-data, extra
// samples, and the tags the pixel reader does not interpret.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "annexes.h"
#include "masque.h"
#include "zepra/erreur.h"
#include "zepra/metadonnees.h"
#include "zepra/systeme.h"

namespace {

constexpr uint16_t kModelPixelScale = 33550, kModelTiepoint = 33922, kModelTransformation = 34264;
constexpr uint16_t kGeoKeyDirectory = 34735, kGeoDoubleParams = 34736, kGeoAsciiParams = 34737;
constexpr uint16_t kGdalNodata = 42113;
// Tags kept for copying are small in sound files; a larger one is dropped, not kept, and so are
// those past a total that no sound file reaches.
constexpr uint64_t kMaxOctetsTagGarde = 1 << 20, kMaxOctetsTagsGardes = 4 << 20;

// Tags the pixel reader or this file interprets, and the block offsets that mean nothing in another
// file: none of them is kept for copying.
bool Interprete(uint16_t tag) {
  switch (tag) {
    case 254:
    case 256:
    case 257:
    case 258:
    case 259:
    case 262:
    case 273:
    case 277:
    case 278:
    case 279:
    case 284:
    case 317:
    case 320:
    case 322:
    case 323:
    case 324:
    case 325:
    case 338:
    case 339:
    case 347:
    case 530:
    case 532:
    case 529:
    case kModelPixelScale:
    case kModelTiepoint:
    case kModelTransformation:
    case kGeoKeyDirectory:
    case kGeoDoubleParams:
    case kGeoAsciiParams:
    case kGdalNodata:
      return true;
    default:
      return false;
  }
}

// Value 0 of a code-like tag (compression, photometric...), clamped into int.
int Code(const tiff::Directory& d) {
  const double v = d.count > 0 ? d.GetValue(0) : -1.0;
  return v >= -1.0 && v <= 65536.0 ? static_cast<int>(v) : -1;
}

// A numeric field, whatever its type; a type without numbers (ASCII, unknown) is refused here, where
// the file can be named.
std::vector<double> Reels(const std::string& nom, uint16_t tag, const tiff::Directory& d) {
  if (d.type == 2 || tiff::Directory::SizeOfValue(d.type) == 0)
    ZEPRA_ERREUR("[LireMetadonnees] Tag " << tag << " de type " << d.type
                                          << " : des nombres sont attendus, dans le fichier " << nom << ".");
  std::vector<double> v(d.count);
  for (uint64_t i = 0; i < d.count; ++i) v[i] = d.GetValue(i);
  return v;
}

// Width or length: SHORT or LONG; anything else counts as absent (0), which the users refuse.
long long Taille(const tiff::Directory& d) {
  return d.count > 0 && (d.type == 3 || d.type == 4 || d.type == 16) ? static_cast<long long>(d.GetValue(0))
                                                                     : 0;
}

std::string Texte(const tiff::Directory& d) {
  std::string s(d.values.begin(), d.values.end());
  const size_t fin = s.find('\0');
  if (fin != std::string::npos) s.resize(fin);
  return s;
}

// Reads the GeoKey directory: header (version, revision, minor, count) then four shorts per key
// (id, location, count, value or index). Counts and indices are checked against the parameter tags.
void LireCles(const std::string& nom, MetadonneesImage& m) {
  const std::vector<uint16_t>& k = m.crs.cles;
  if (k.size() < 4 || k.size() < 4 + 4 * static_cast<size_t>(k[3]))
    ZEPRA_ERREUR("[LireMetadonnees] GeoKeyDirectory de " << k.size() << " valeurs incoherent dans le fichier "
                                                         << nom << ".");
  for (size_t e = 0; e < k[3]; ++e) {
    const uint16_t id = k[4 + 4 * e], lieu = k[5 + 4 * e], n = k[6 + 4 * e], valeur = k[7 + 4 * e];
    const size_t taille = lieu == 0                  ? 1
                          : lieu == kGeoDoubleParams ? m.crs.doubles.size()
                          : lieu == kGeoAsciiParams  ? m.crs.ascii.size()
                          : lieu == kGeoKeyDirectory ? k.size()
                                                     : 0;
    // A value held in the directory itself is one short.
    if (lieu == 0 && n != 1)
      ZEPRA_ERREUR("[LireMetadonnees] Cle GeoTIFF "
                   << id << " : " << n
                   << " valeurs dans le repertoire de cles (1 attendue) dans "
                      "le fichier "
                   << nom << ".");
    if (lieu != 0 && static_cast<size_t>(valeur) + n > taille)
      ZEPRA_ERREUR("[LireMetadonnees] Cle GeoTIFF " << id << " : " << n << " valeurs a l'indice " << valeur
                                                    << " hors du tag " << lieu << " dans le fichier " << nom
                                                    << ".");
    if (lieu != 0) continue;
    if (id == 1024) m.crs.geographique = valeur == 2;
    if (id == 1025) m.typeRaster = valeur;
    if (id == 3072 && valeur != 0 && valeur != 32767) m.crs.epsg = valeur;
    if (id == 2048 && valeur != 0 && valeur != 32767 && m.crs.epsg == 0) m.crs.epsg = valeur;
  }
}

}  // namespace

namespace tiff {

std::unique_ptr<MetadonneesImage> MetadonneesDe(TIFF_Annexes& annexes) {
  const std::string& nom = annexes.Nom();
  auto m = std::make_unique<MetadonneesImage>();
  uint64_t gardes = 0;
  for (const auto& [tag, d] : annexes.Tags()) {
    switch (tag) {
      case kModelPixelScale:
        m->pixelScale = Reels(nom, tag, d);
        break;
      case kModelTiepoint:
        m->tiepoints = Reels(nom, tag, d);
        break;
      case kModelTransformation:
        m->transformation = Reels(nom, tag, d);
        break;
      case kGeoKeyDirectory:
        // SHORT only: any other type could hold values that are no key at all.
        if (d.type != 3)
          ZEPRA_ERREUR("[LireMetadonnees] GeoKeyDirectory de type "
                       << d.type << " (SHORT attendu) dans le fichier " << nom << ".");
        for (uint64_t i = 0; i < d.count; ++i) m->crs.cles.push_back(static_cast<uint16_t>(d.GetValue(i)));
        break;
      case tiff::kImageWidth:
        m->colonnes = Taille(d);
        break;
      case tiff::kImageLength:
        m->lignes = Taille(d);
        break;
      case kGeoDoubleParams:
        m->crs.doubles = Reels(nom, tag, d);
        break;
      case kGeoAsciiParams:
        m->crs.ascii = Texte(d);
        break;
      case kGdalNodata: {
        m->nodataTexte = Texte(d);
        const char* debut = m->nodataTexte.c_str();
        char* fin = nullptr;
        const double v = std::strtod(debut, &fin);
        if (fin == debut)
          ZEPRA_ERREUR("[LireMetadonnees] Valeur de no-data \""
                       << m->nodataTexte << "\" illisible dans le fichier " << nom << ".");
        m->nodataPresent = true;
        m->nodata = v;
        break;
      }
      case kExtraSamples:
        for (uint64_t i = 0; i < d.count; ++i) {
          const double r = d.GetValue(i);
          m->extras.push_back(r == 1   ? RoleExtra::kAlphaAssocie
                              : r == 2 ? RoleExtra::kAlphaNonAssocie
                                       : RoleExtra::kNonPrecise);
        }
        break;
      case kCompression:
        m->compression = Code(d);
        break;
      case kPhotometric:
        m->photometrique = Code(d);
        break;
      case kPlanarConfiguration:
        m->planaire = Code(d);
        break;
      default:
        if (!Interprete(tag) && d.Octets() <= kMaxOctetsTagGarde &&
            gardes + d.Octets() <= kMaxOctetsTagsGardes) {
          gardes += d.Octets();
          m->autresTags.push_back(TagTIFF{tag, d.type, d.count, d.values});
        }
    }
  }
  if (!m->crs.cles.empty()) LireCles(nom, *m);
  // The alpha is the first extra sample declared as one; the extras follow the colour channels.
  const auto& tags = annexes.Tags();
  const auto spp = tags.find(kSamplesPerPixel);
  const long long canaux = spp == tags.end() ? 1 : Code(spp->second);
  for (size_t i = 0; i < m->extras.size(); ++i)
    if (m->extras[i] != RoleExtra::kNonPrecise) {
      const long long c = canaux - static_cast<long long>(m->extras.size()) + static_cast<long long>(i);
      if (c >= 0 && c < canaux) m->canalAlpha = static_cast<int>(c);
      break;
    }
  m->bigtiff = annexes.Format().Big();
  m->masqueInterne = OffsetMasqueInterne(annexes) != 0;
  m->masqueExterne = Systeme::ExisteFichier((nom + ".msk").c_str());
  return m;
}

void JoindreMetadonnees(TIFF_Annexes& annexes, DescriptionTIFF& d) {
  try {
    d.metadonnees = MetadonneesDe(annexes);
  } catch (const Erreur& e) {
    d.erreurMetadonnees = std::make_shared<Erreur>(e);
  }
}

}  // namespace tiff

std::unique_ptr<MetadonneesImage> LireMetadonnees(const std::string& nom) {
  if (!tiff::CheckMagic_TIFF(nom)) return nullptr;
  tiff::TIFF_Annexes annexes(nom);
  annexes.LireEntete(false);
  return tiff::MetadonneesDe(annexes);
}
