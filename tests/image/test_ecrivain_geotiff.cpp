// The GeoTIFF writer against independent readers: every layout and sample type written here is read
// back by our reader and by GDAL and libtiff, sample by sample, without a warning; its georeferencing
// as GDAL sees it; COG files through GDAL's own validator; failed writes leave nothing behind.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>
#include <cmath>
#include <csignal>
#include <cstring>

#include "image/outils_image_test.h"
#include "image/tiff/codec.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"

namespace {

using test::DossierTemp;
using test::Lancer;
using Valeurs = std::vector<std::pair<std::string, std::string>>;

// GDAL without its side files, its warnings kept apart.
std::string Gdal(const DossierTemp& dir, const std::string& commande, std::string* erreurs = nullptr) {
  const test::Resultat r = Lancer(dir.chemin(), "GDAL_PAM_ENABLED=NO " + commande + " 2>err.txt");
  const std::string e = test::LireFichier(dir / "err.txt");
  if (erreurs)
    *erreurs = e;
  else
    EXPECT_EQ(e, "") << commande;
  EXPECT_EQ(r.statut, 0) << commande << "\n" << r.sortie;
  return r.sortie;
}

// A field of gdalinfo -json, as Python prints it.
std::string Json(const DossierTemp& dir, const std::string& fichier, const std::string& expression) {
  const std::string sortie =
      Gdal(dir, "gdalinfo -json -stats " + fichier +
                    " | /usr/bin/python3 -c \"import json,sys; d=json.load(sys.stdin); print(" + expression +
                    ")\"");
  return sortie.substr(0, sortie.find_last_not_of('\n') + 1);
}

// What libtiff's tools say besides their notes on the GeoTIFF and GDAL tags they do not register.
std::string SansTagsInconnus(const std::string& texte) {
  std::string reste;
  for (const std::string& l : test::Lignes(texte)) {
    bool connu = false;
    for (const char* tag : {"33550", "33922", "34264", "34735", "34736", "34737", "42112", "42113"})
      connu = connu || l.find("Unknown field with tag " + std::string(tag)) != std::string::npos;
    if (!connu) reste += l + "\n";
  }
  return reste;
}

bool Encodable(const std::string& compression) {
  if (compression == "none") return true;
  const tiff::Codec* c = tiff::TrouverCodecParNom(compression);
  return c && c->encodeur && (compression != "jpeg" || Encodable("deflate"));
}

// Whether our reader reads such a file: its codec, and BigTIFF and planar files once it reads a
// copy of a small file that tiffcp makes so. Else only the tools check it.
bool LisibleParNous(const PlanEcriture& p) {
  auto lit = [](const std::string& options) {
    DossierTemp dir;
    test::ImageMotif<unsigned char>(4, 4, 3).Sauver((dir / "c.tif").c_str());
    return test::Tiffcp(dir, options, "c.tif", "b.tif").empty() &&
           test::TexteErreur([&] { TTImage<unsigned char>((dir / "b.tif").c_str()); }) == "(pas d'Erreur)";
  };
  static const bool bigtiff = lit("-8"), planaire = lit("-p separate");
  const tiff::Codec* c = tiff::TrouverCodec(static_cast<int>(p.compression));
  return c && c->decodeur && (bigtiff || !p.bigtiff) && (planaire || !p.planaire);
}

bool Valide(int x, int y) { return (x + 2 * y) % 13 != 0 && !(x < 5 && y < 3); }

// Exact values of T that stay away from the no-data values used here.
template <class T>
T Valeur(int x, int y, int c) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(x * 0.5 - y * 1.25 + c * 1000 + 0.125);
  } else {
    const long long v = (x * 37 + y * 11 + c * 101) % 200 + 3;
    return static_cast<T>(std::is_signed_v<T> ? v - 100 + (v >= 100 ? 3 : 0) : v);
  }
}

struct Cas {
  const char* nom;
  Valeurs options;
  TPoint2D<int> taille;
  int canaux;
};

// Writes the image of T samples with a validity mask and checks it through our reader, GDAL and
// libtiff: each valid pixel its value, each invalid one the no-data value (or the alpha at 0).
template <class T>
void AllerRetour(const DossierTemp& dir, const Cas& c) {
  const std::string nom = dir / "e.tif";
  const OptionsEcriture options = LireOptionsEcriture(c.options);
  const int w = c.taille.x, h = c.taille.y, n = c.canaux;
  PlanEcriture plan;
  {
    EcrivainGeoTIFF e(nom, options, c.taille, n, CodeType<T>::value);
    plan = e.Plan();
    std::vector<T> lignes(static_cast<size_t>(w) * n * 3);
    std::vector<unsigned char> valide(static_cast<size_t>(w) * 3);
    // Three lines at a time, the last call shorter.
    for (int y0 = 0; y0 < h; y0 += 3) {
      const int k = std::min(3, h - y0);
      for (int j = 0; j < k; ++j)
        for (int x = 0; x < w; ++x) {
          valide[j * w + x] = Valide(x, y0 + j);
          for (int b = 0; b < n; ++b)
            lignes[(static_cast<size_t>(j) * w + x) * n + b] = Valeur<T>(x, y0 + j, b);
        }
      e.EcrireLignes(lignes.data(), w * n * sizeof(T), k, valide.data(), w);
    }
    e.Terminer();
  }
  TTImage<T> attendu(w, h, TagNbCanaux(plan.canaux));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int b = 0; b < plan.canaux; ++b) {
        const bool v = Valide(x, y);
        T a = plan.nodataPresent ? static_cast<T>(plan.nodata) : T{};
        if (b == n)
          a = v ? static_cast<T>(sizeof(T) <= 2 && std::is_integral_v<T> ? std::numeric_limits<T>::max()
                                                                         : 255)
                : T{};
        else if (v)
          a = Valeur<T>(x, y, b);
        else if (std::is_floating_point_v<T> && !plan.nodataPresent)
          a = static_cast<T>(NAN);
        attendu(x, y, b) = a;
      }
  if (LisibleParNous(plan)) {
    EXPECT_TRUE(test::MemesEchantillons(attendu, TTImage<T>(nom.c_str())));
  }
  // GDAL decodes into a plain file that our reader reads.
  Gdal(dir, "gdal_translate -q -co COMPRESS=NONE -co INTERLEAVE=PIXEL e.tif g.tif");
  EXPECT_TRUE(test::MemesEchantillons(attendu, TTImage<T>((dir / "g.tif").c_str())));
  EXPECT_EQ(SansTagsInconnus(test::Tiffinfo(dir, "e.tif")), "");
  // libtiff decodes too. Its tiffcp interleaves planes of 8-bit samples only, and does not copy
  // planar tiles wider than their image (GDAL's neither), as the smallest overviews of a planar COG.
  const bool planaireCopiable =
      !plan.planaire ||
      (plan.bits == 8 && (plan.apercus.empty() || plan.apercus.back().x >= plan.largeurBloc));
  if (!plan.bigtiff && planaireCopiable) {
    EXPECT_EQ(SansTagsInconnus(test::Tiffcp(dir, "-c none -p contig", "e.tif", "t.tif")), "");
    EXPECT_TRUE(test::MemesEchantillons(attendu, TTImage<T>((dir / "t.tif").c_str())));
  }
  std::string erreurs;
  Gdal(dir, "gdalinfo -stats e.tif", &erreurs);
  EXPECT_EQ(erreurs, "");
  if (plan.cog) {
    EXPECT_EQ(Json(dir, "e.tif", "d['metadata']['IMAGE_STRUCTURE'].get('LAYOUT')"), "COG");
    const test::Resultat v =
        Lancer(dir.chemin(),
               "/usr/bin/python3 "
               "/usr/lib/python3/dist-packages/osgeo_utils/samples/validate_cloud_optimized_geotiff.py "
               "--full-check=yes e.tif");
    EXPECT_EQ(v.statut, 0) << v.sortie;
    EXPECT_NE(v.sortie.find("is a valid cloud optimized GeoTIFF"), std::string::npos) << v.sortie;
    EXPECT_EQ(Json(dir, "e.tif", "len(d['bands'][0].get('overviews', []))"),
              std::to_string(plan.apercus.size()));
  }
  // Nothing left beside the file.
  const test::Resultat ls = Lancer(dir.chemin(), "ls | grep -c part");
  EXPECT_EQ(ls.sortie, "0\n");
}

class EcrivainGeoTIFFCodec : public ::testing::TestWithParam<const char*> {};

TEST_P(EcrivainGeoTIFFCodec, AllersRetours) {
  const std::string compression = GetParam();
  if (!Encodable(compression)) GTEST_SKIP() << compression << " : pas d'encodeur";
  const std::vector<Cas> cas = {
      {"bandes", {{"bandes", "0"}}, {37, 23}, 1},
      {"bandes de 5 lignes", {{"bandes", "5"}, {"nodata", "0"}}, {37, 23}, 3},
      {"tuiles partielles", {{"tuile", "16"}, {"nodata", "1"}}, {37, 23}, 3},
      {"planaire en tuiles", {{"tuile", "16"}, {"entrelacement", "planaire"}}, {37, 23}, 3},
      {"planaire en bandes", {{"bandes", "4"}, {"entrelacement", "planaire"}, {"nodata", "2"}}, {21, 9}, 2},
      {"alpha", {{"tuile", "32"}, {"alpha", ""}}, {40, 33}, 3},
      {"bigtiff", {{"tuile", "16"}, {"format", "bigtiff"}, {"nodata", "1"}}, {37, 23}, 1},
      {"bigtiff en bandes", {{"bandes", "3"}, {"format", "bigtiff"}}, {20, 7}, 4},
      {"une tuile plus grande que l'image", {{"tuile", "64"}}, {20, 7}, 2},
      {"cog", {{"cog", ""}, {"tuile", "16"}, {"nodata", "1"}}, {70, 45}, 3},
      {"cog avec alpha", {{"cog", ""}, {"tuile", "32"}, {"alpha", ""}}, {70, 45}, 1},
      {"cog planaire", {{"cog", ""}, {"tuile", "16"}, {"entrelacement", "planaire"}}, {50, 37}, 2},
      {"cog bigtiff", {{"cog", ""}, {"tuile", "16"}, {"format", "bigtiff"}}, {40, 20}, 1},
  };
  DossierTemp dir;
  for (const Cas& c : cas) {
    Cas avec = c;
    avec.options.insert(avec.options.begin(), {"compression", compression});
    test::PourNeufTypes([&](auto tag) {
      using T = typename decltype(tag)::type;
      if constexpr (!std::is_same_v<T, bool>) {
        // Every type in one case; 8-bit and float samples in the others.
        if (std::string(c.nom) != "tuiles partielles" && !std::is_same_v<T, unsigned char> &&
            !std::is_same_v<T, float>)
          return;
        SCOPED_TRACE(::testing::Message()
                     << compression << ", " << c.nom << ", " << InfoType::NomType(CodeType<T>::value));
        const std::string erreur = test::TexteErreur([&] { AllerRetour<T>(dir, avec); });
        EXPECT_EQ(erreur, "(pas d'Erreur)");
      }
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Codecs, EcrivainGeoTIFFCodec,
                         ::testing::Values("none", "lzw", "deflate", "zstd", "packbits"));

}  // namespace
