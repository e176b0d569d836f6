// The GeoTIFF writer against independent readers: every layout and sample type written here is read
// back by our reader and by GDAL and libtiff, sample by sample, without a warning; its georeferencing
// as GDAL sees it; COG files through GDAL's own validator; failed writes leave nothing behind.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <sstream>

#include "image/outils_image_test.h"
#include "image/tiff/codec.h"
#include "zepra/cartoproj.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/masque.h"

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

// Writes an image of T samples given by f(x, y, band), valid where v(x, y), 'parAppel' lines per call
// (the last call shorter); returns the file's plan.
template <class T, class F, class V>
PlanEcriture Ecrire(const std::string& nom, const Valeurs& options, TPoint2D<int> taille, int canaux, F f,
                    V v, const GeoreferenceEcriture& georef = GeoreferenceEcriture(), int parAppel = 1) {
  EcrivainGeoTIFF e(nom, LireOptionsEcriture(options), taille, canaux, CodeType<T>::value, georef);
  const int w = taille.x;
  std::vector<T> lignes(static_cast<size_t>(w) * canaux * parAppel);
  std::vector<unsigned char> valide(static_cast<size_t>(w) * parAppel);
  for (int y0 = 0; y0 < taille.y; y0 += parAppel) {
    const int k = std::min(parAppel, taille.y - y0);
    for (int j = 0; j < k; ++j)
      for (int x = 0; x < w; ++x) {
        valide[j * w + x] = v(x, y0 + j);
        for (int b = 0; b < canaux; ++b)
          lignes[(static_cast<size_t>(j) * w + x) * canaux + b] = f(x, y0 + j, b);
      }
    e.EcrireLignes(lignes.data(), w * canaux * sizeof(T), k, valide.data(), w);
  }
  const PlanEcriture plan = e.Plan();
  e.Terminer();
  return plan;
}

// GDAL's validator of cloud-optimized files, with its full check, on e.tif.
test::Resultat ValiderCog(const DossierTemp& dir) {
  return Lancer(dir.chemin(),
                "/usr/bin/python3 /usr/lib/python3/dist-packages/osgeo_utils/samples/"
                "validate_cloud_optimized_geotiff.py --full-check=yes e.tif");
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
  const int w = c.taille.x, h = c.taille.y, n = c.canaux;
  // Three lines at a time, the last call shorter.
  const PlanEcriture plan =
      Ecrire<T>(nom, c.options, c.taille, n, Valeur<T>, Valide, GeoreferenceEcriture(), 3);
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
  // libtiff decodes too. Its tiffcp interleaves planes of 8-bit samples only, from compressed strips
  // of one line only, and does not copy planar tiles wider than their image (GDAL's neither), as the
  // smallest overviews of a planar COG are.
  const bool planaireCopiable =
      !plan.planaire || (plan.bits == 8 && (plan.tuilee || plan.compression == CompressionTIFF::kAucune) &&
                         (plan.apercus.empty() || plan.apercus.back().x >= plan.largeurBloc));
  if (!plan.bigtiff && planaireCopiable) {
    EXPECT_EQ(SansTagsInconnus(test::Tiffcp(dir, "-c none -p contig", "e.tif", "t.tif")), "");
    EXPECT_TRUE(test::MemesEchantillons(attendu, TTImage<T>((dir / "t.tif").c_str())));
  }
  std::string erreurs;
  Gdal(dir, "gdalinfo -stats e.tif", &erreurs);
  EXPECT_EQ(erreurs, "");
  if (plan.cog) {
    EXPECT_EQ(Json(dir, "e.tif", "d['metadata']['IMAGE_STRUCTURE'].get('LAYOUT')"), "COG");
    const test::Resultat v = ValiderCog(dir);
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

INSTANTIATE_TEST_SUITE_P(Codecs, EcrivainGeoTIFFCodec, ::testing::Values("none", "lzw", "deflate", "zstd"));

std::vector<double> Nombres(const std::string& texte) {
  std::vector<double> v;
  std::istringstream s(texte);
  for (double x; s >> x;) v.push_back(x);
  return v;
}

// The grid and system as GDAL reads them back: the geotransform of the grid, the EPSG code GDAL finds
// equivalent, pixel-is-area; a grid alone has no system.
TEST(EcrivainGeoTIFF, GeoreferenceVueParGdal) {
  DossierTemp dir;
  // A pixel-is-point file: GDAL gives the corner of its first pixel, which we write as such.
  Gdal(dir,
       "gdal_create -q -outsize 8 6 -mo AREA_OR_POINT=POINT -a_srs EPSG:27572 "
       "-a_ullr 600000 2400010 600080 2399950 p.tif");
  const auto point = LireMetadonnees(dir / "p.tif");
  ASSERT_TRUE(point);
  ASSERT_EQ(point->typeRaster, 2);
  struct Cas {
    const char* nom;
    GeoreferenceEcriture g;
    int epsg;
    std::string code;  // "" when GDAL finds no system
  };
  auto grille = [](double x0, double y0, double pasX, double pasY, const SystemeReference& crs) {
    GeoreferenceEcriture g;
    g.grille = true;
    g.x0 = x0, g.y0 = y0, g.pasX = pasX, g.pasY = pasY;
    g.crs = crs;
    return g;
  };
  const GeoreferenceEcriture seule = grille(650000.25, 6860000.75, 0.2, 0.25, SystemeReference());
  const GeoreferenceEcriture lu = grille(650000.25, 6860000.75, 0.2, 0.25, CrsDepuisEpsg(2154));
  const GeoreferenceEcriture pointLu = grille(600000, 2400010, 10, 10, point->crs);
  const std::vector<Cas> cas = {{"grille seule", seule, 0, ""},
                                {"code donne", seule, 2154, "EPSG:2154"},
                                {"systeme lu", lu, 0, "EPSG:2154"},
                                {"systeme lu et meme code", lu, 2154, "EPSG:2154"},
                                {"pixel-is-point", pointLu, 0, "EPSG:27572"},
                                {"geographique", seule, 4326, "EPSG:4326"}};
  for (const Cas& c : cas) {
    SCOPED_TRACE(c.nom);
    Valeurs options = {{"compression", "none"}, {"tuile", "16"}};
    if (c.epsg) options.push_back({"epsg", std::to_string(c.epsg)});
    Ecrire<unsigned char>(
        dir / "e.tif", options, {8, 6}, 1, [](int x, int y, int) { return x + y; },
        [](int, int) { return true; }, c.g);
    EXPECT_EQ(Nombres(Json(dir, "e.tif", "' '.join(repr(v) for v in d['geoTransform'])")),
              (std::vector<double>{c.g.x0, c.g.pasX, 0, c.g.y0, 0, -c.g.pasY}));
    EXPECT_EQ(Json(dir, "e.tif", "d.get('metadata', {}).get('', {}).get('AREA_OR_POINT')"),
              c.code.empty() ? "None" : "Area");
    // gdalsrsinfo fails on a file without a system.
    const std::string srs = Lancer(dir.chemin(), "gdalsrsinfo -e -o epsg e.tif").sortie;
    EXPECT_EQ(srs.find(c.code.empty() ? "EPSG" : c.code) != std::string::npos, !c.code.empty()) << srs;
  }
  // A code that is not the grid's system is refused before anything is written.
  test::Refuse(
      [&] {
        Ecrire<unsigned char>(
            dir / "r.tif", {{"epsg", "4326"}}, {8, 6}, 1, [](int, int, int) { return 1; },
            [](int, int) { return true; }, lu);
      },
      "[TagsGeoTIFF] EPSG:4326 n'est pas le systeme EPSG:2154 de la grille du fichier");
  EXPECT_EQ(Lancer(dir.chemin(), "ls r.tif*").statut, 2);
}

// Overviews read by GDAL against the means of the level above, holes left out.
TEST(EcrivainGeoTIFF, ApercusLusParGdal) {
  DossierTemp dir;
  const int w = 70, h = 45;
  auto valeur = [](int x, int y, int b) {
    return static_cast<unsigned char>(1 + (x * 31 + y * 17 + b * 5) % 250);
  };
  auto valide = [](int x, int y) { return (x * 3 + y) % 7 != 0 && !(x >= 32 && y < 12); };
  Ecrire<unsigned char>(dir / "e.tif",
                        {{"compression", "none"}, {"cog", ""}, {"tuile", "16"}, {"nodata", "0"}}, {w, h}, 2,
                        valeur, valide);
  TTImage<unsigned char> niveau(w, h, TagNbCanaux(2));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int b = 0; b < 2; ++b) niveau(x, y, b) = valide(x, y) ? valeur(x, y, b) : 0;
  for (int n = 0; n < 3; ++n) {
    SCOPED_TRACE(n);
    TTImage<unsigned char> moyennes(niveau.iGetNbColonnes() / 2, niveau.iGetNbLignes() / 2, TagNbCanaux(2));
    for (int y = 0; y < moyennes.iGetNbLignes(); ++y)
      for (int x = 0; x < moyennes.iGetNbColonnes(); ++x)
        for (int b = 0; b < 2; ++b) {
          int somme = 0, nombre = 0;
          for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i)
              if (niveau(2 * x + i, 2 * y + j, 0) != 0) somme += niveau(2 * x + i, 2 * y + j, b), ++nombre;
          // Half up, and a mean that would read as the no-data value is 1.
          moyennes(x, y, b) =
              static_cast<unsigned char>(nombre ? std::max(1, (2 * somme + nombre) / (2 * nombre)) : 0);
        }
    Gdal(dir, "gdal_translate -q -ovr " + std::to_string(n) + " e.tif o.tif");
    EXPECT_TRUE(test::MemesEchantillons(moyennes, TTImage<unsigned char>((dir / "o.tif").c_str())));
    niveau = moyennes;
  }
}

// Floats into 8 bits: rounded to nearest, clamped, NaN and holes to the no-data value, and valid
// values kept off it; without no-data the same samples as GDAL's own conversion.
TEST(EcrivainGeoTIFF, ConversionVersHuitBits) {
  DossierTemp dir;
  const std::vector<float> source = {0.4999f, 254.6f, -0.6f, NAN, 255.5f, 1e6f, 3.5f, 2.5f, 7.0f, 0.5f};
  const int w = static_cast<int>(source.size());
  auto valeur = [&](int x, int, int) { return source[x]; };
  auto valide = [](int x, int) { return x != 8; };
  Ecrire<float>(dir / "n.tif", {{"compression", "none"}, {"type", "uint8"}, {"nodata", "0"}}, {w, 1}, 1,
                valeur, valide);
  Ecrire<float>(dir / "s.tif", {{"compression", "none"}, {"type", "uint8"}}, {w, 1}, 1, valeur, valide);
  Ecrire<float>(dir / "f.tif", {{"compression", "none"}}, {w, 1}, 1, valeur, [](int, int) { return true; });
  const TTImage<unsigned char> n((dir / "n.tif").c_str()), s((dir / "s.tif").c_str());
  const std::vector<int> avecNodata = {1, 255, 1, 0, 255, 255, 4, 3, 0, 1},
                         sans = {0, 255, 0, 0, 255, 255, 4, 3, 0, 1};
  for (int x = 0; x < w; ++x) {
    EXPECT_EQ(n(x, 0, 0), avecNodata[x]) << x;
    EXPECT_EQ(s(x, 0, 0), sans[x]) << x;
  }
  EXPECT_EQ(Json(dir, "n.tif", "d['bands'][0]['noDataValue']"), "0.0");
  // GDAL's conversion of the same floats (the hole aside).
  Gdal(dir, "gdal_translate -q -ot Byte f.tif g.tif");
  const TTImage<unsigned char> g((dir / "g.tif").c_str());
  for (int x = 0; x < w; ++x)
    if (x != 8) {
      EXPECT_EQ(g(x, 0, 0), s(x, 0, 0)) << x;
    }
}

// Whatever fails, no file under the final name and no temporary beside it.
TEST(EcrivainGeoTIFF, EchecsSansFichier) {
  DossierTemp dir;
  const std::string nom = dir / "e.tif";
  auto rien = [&] { return Lancer(dir.chemin(), "ls -A | wc -l").sortie == "0\n"; };
  const OptionsEcriture options = LireOptionsEcriture({{"compression", "none"}, {"tuile", "16"}});
  test::Refuse(
      [&] {
        EcrivainGeoTIFF(dir / "absent/e.tif", options, {8, 8}, 1, eUInt1);
      },
      "[EcrivainGeoTIFF] (Constructeur) Impossible de creer le fichier " + dir / "absent/e.tif");
  {
    EcrivainGeoTIFF e(nom, options, {8, 8}, 1, eUInt1);
    const std::vector<unsigned char> ligne(8 * 9, 1);
    e.EcrireLignes(ligne.data(), 8, 5);
    test::Refuse([&] { e.Terminer(); },
                 "[EcrivainGeoTIFF] (Terminer) Image incomplete : 3 lignes non ecrites");
    test::Refuse([&] { e.EcrireLignes(ligne.data(), 8, 4); },
                 "[EcrivainGeoTIFF] (EcrireLignes) 4 lignes de plus");
  }
  EXPECT_TRUE(rien());
  for (const Valeurs& v :
       {Valeurs{{"compression", "none"}}, Valeurs{{"compression", "none"}, {"cog", ""}, {"tuile", "16"}}}) {
    // A full disk, as a file size limit in a child process: the write fails, nothing stays.
    const pid_t pid = fork();
    if (pid == 0) {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit limite = {1 << 16, 1 << 16};
      setrlimit(RLIMIT_FSIZE, &limite);
      int statut = 0;
      try {
        Ecrire<unsigned char>(
            nom, v, {300, 300}, 3, [](int x, int y, int b) { return x * y + b; },
            [](int, int) { return true; });
      } catch (const Erreur&) {
        statut = 3;
      }
      _exit(statut);
    }
    int statut = 0;
    waitpid(pid, &statut, 0);
    EXPECT_TRUE(WIFEXITED(statut) && WEXITSTATUS(statut) == 3) << statut;
    EXPECT_TRUE(rien());
  }
}

// The same writer through the registry: TTImage::Sauver and ImageFicOut with GeoTIFF options.
TEST(EcrivainGeoTIFF, ParLeRegistre) {
  DossierTemp dir;
  const OptionsEcriture huitBits =
      LireOptionsEcriture({{"compression", "none"}, {"type", "uint8"}, {"nodata", "0"}});
  TTImage<float> image(20, 10, TagNbCanaux(3));
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x)
      for (int c = 0; c < 3; ++c) image(x, y, c) = static_cast<float>(x * 10 + y + c) + 0.5f;
  image(3, 4, 1) = NAN;
  image.Sauver((dir / "r.tif").c_str(), huitBits);
  const TTImage<unsigned char> lu((dir / "r.tif").c_str());
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x)
      for (int c = 0; c < 3; ++c) {
        const int attendu = x == 3 && y == 4 ? 0 : std::min(255, x * 10 + y + c + 1);
        ASSERT_EQ(lu(x, y, c), attendu) << x << " " << y << " " << c;
      }

  // Bits, and lines pasted with a step.
  const TTImage<bool> bits = test::ImageMotif<bool>(37, 5, 2);
  bits.Sauver((dir / "b.tif").c_str(), LireOptionsEcriture({{"compression", "none"}, {"tuile", "16"}}));
  EXPECT_TRUE(test::MemesEchantillons(bits, TTImage<bool>((dir / "b.tif").c_str())));
  {
    ParametresGeoTIFF p;
    p.options = LireOptionsEcriture({{"compression", "none"}, {"bandes", "2"}});
    ImageFicOut sortie((dir / "p.tif").c_str(), p);
    sortie.SetTypePixel(eInt2);
    sortie.SetNbCanaux(TagNbCanaux(1));
    sortie.SetTaille(10, 5);
    const TTImage<short> source = test::ImageMotif<short>(20, 10, 1);
    source.Paste(sortie, 0, 0, 20, 10, 0, 0, 2);
    sortie.Fermer();
    TTImage<short> attendu;
    attendu.Crop(source, 0, 0, 20, 10, 2);
    EXPECT_TRUE(test::MemesEchantillons(attendu, TTImage<short>((dir / "p.tif").c_str())));
  }

  ParametresGeoTIFF p;
  p.options = huitBits;
  test::Refuse([&] { ImageFicOut((dir / "r.pgm").c_str(), p); },
               "[ImageFicOut] (Constructeur) Options GeoTIFF pour le fichier " + dir / "r.pgm" +
                   ", qui n'est pas un TIFF.");
  ImageFicOut sortie((dir / "o.tif").c_str(), p);
  sortie.SetTypePixel(eFloat4);
  sortie.SetNbCanaux(TagNbCanaux(3));
  sortie.SetTaille(20, 10);
  test::Refuse([&] { image.Paste(sortie, 0, 0, 20, 5, 0, 5, 1); },
               "[ImageFicOut_GeoTIFF] (SetValeurs) 20 x 5 pixels en (0, 5) : le fichier " + dir / "o.tif" +
                   " attend des lignes entieres a partir de la ligne 0.");
  test::Refuse([&] { sortie.SetNbCanaux(TagNbCanaux(1)); },
               "[ImageFicOut] (SetNbCanaux) Valeur non identique pour l'image");
}

// A file assembled from rows of blocks compressed apart is the file written line by line, byte for
// byte; a COG gets its overviews from the rows' lines.
TEST(EcrivainGeoTIFF, RangeesEncodeesAilleurs) {
  DossierTemp dir;
  const TPoint2D<int> taille(45, 40);
  const TTImage<unsigned short> image = test::ImageMotif<unsigned short>(taille.x, taille.y, 2);
  const size_t pas = static_cast<size_t>(taille.x) * 2 * sizeof(unsigned short);
  for (const Valeurs& v : {Valeurs{{"compression", "none"}, {"tuile", "16"}, {"nodata", "7"}},
                           Valeurs{{"compression", "none"}, {"bandes", "6"}, {"entrelacement", "planaire"}},
                           Valeurs{{"compression", "none"}, {"cog", ""}, {"tuile", "16"}}}) {
    const OptionsEcriture o = LireOptionsEcriture(v);
    {
      EcrivainGeoTIFF e(dir / "direct.tif", o, taille, 2, eUInt2);
      e.EcrireLignes(image.GetLines()[0], pas, taille.y);
      e.Terminer();
    }
    EcrivainGeoTIFF e(dir / "parts.tif", o, taille, 2, eUInt2);
    EncodeurRangees encodeur(dir / "parts.tif", o, taille, 2, eUInt2);
    const int h = e.Plan().hauteurBloc;
    for (int r = 0; r * h < taille.y; ++r) {
      const auto blocs = encodeur.Encoder(r, image.GetLines()[r * h], pas);
      e.EcrireRangeeEncodee(blocs, o.cog ? image.GetLines()[r * h] : nullptr, pas);
    }
    e.Terminer();
    EXPECT_EQ(test::LireFichier(dir / "parts.tif"), test::LireFichier(dir / "direct.tif"));
  }
  EcrivainGeoTIFF e(dir / "x.tif",
                    LireOptionsEcriture({{"compression", "none"}, {"cog", ""}, {"tuile", "16"}}), taille, 2,
                    eUInt2);
  test::Refuse([&] { e.EcrireRangeeEncodee({}); },
               "[EcrivainGeoTIFF] (EcrireRangeeEncodee) Les lignes de la rangee manquent pour les apercus");
}

// An orientation written as GeoTIFF tags reads back the same, and GDAL places the file as it places
// the same grid given by the world file we write.
TEST(EcrivainGeoTIFF, OrientationEtWorldFile) {
  DossierTemp dir;
  std::unique_ptr<ImageOrientation> o =
      ImageOrientation::CreateCartoProjOrientation(650000.125, 6860000.875, 0, 8, 6, 0.2, 0.3);
  CartoProjOrientation& carto = static_cast<CartoProjOrientation&>(*o);
  carto.SetSystemeReference(std::make_shared<const SystemeReference>(CrsDepuisEpsg(2154)));
  const TTImage<unsigned char> image = test::ImageMotif<unsigned char>(8, 6, 1);
  image.Sauver((dir / "g.tif").c_str(), LireOptionsEcriture({{"compression", "none"}}),
               carto.GeoreferencePourEcriture());
  const std::unique_ptr<CartoProjOrientation> lu =
      CartoProjOrientation::LireGeoreference((dir / "g.tif").c_str());
  ASSERT_TRUE(lu);
  EXPECT_EQ(lu->GetXOrigine(), carto.GetXOrigine());
  EXPECT_EQ(lu->GetYOrigine(), carto.GetYOrigine());
  EXPECT_EQ(lu->GetXStep(), carto.GetXStep());
  EXPECT_EQ(lu->GetYStep(), carto.GetYStep());
  ASSERT_TRUE(lu->GetSystemeReference());
  EXPECT_EQ(ComparerCrs(*lu->GetSystemeReference(), CrsDepuisEpsg(2154)), EgaliteCrs::kMeme);
  // The same image without tags, placed by the world file.
  image.Sauver((dir / "w.tif").c_str());
  carto.EcrireWorldFile((dir / "w.tfw").c_str());
  const std::string transformation = "' '.join(repr(v) for v in d['geoTransform'])";
  EXPECT_EQ(Json(dir, "g.tif", transformation), Json(dir, "w.tif", transformation));
}

// Tags read from an input are copied, those of its layout and georeferencing are not.
TEST(EcrivainGeoTIFF, TagsCopies) {
  DossierTemp dir;
  Gdal(dir,
       "gdal_create -q -outsize 4 4 -a_srs EPSG:4326 -a_ullr 0 4 4 0 -mo TIFFTAG_SOFTWARE=essai "
       "-mo TIFFTAG_DATETIME='2024:01:02 03:04:05' -co TILED=YES -co BLOCKXSIZE=16 -co BLOCKYSIZE=16 s.tif");
  const auto m = LireMetadonnees(dir / "s.tif");
  ASSERT_TRUE(m);
  std::vector<TagTIFF> tags = m->autresTags;
  tags.push_back(TagTIFF{33550, 12, 3, std::vector<unsigned char>(24, 0)});
  tags.push_back(TagTIFF{322, 3, 1, {64, 0}});
  {
    EcrivainGeoTIFF e(dir / "e.tif", LireOptionsEcriture({{"compression", "none"}, {"bandes", "0"}}), {4, 4},
                      1, eUInt1, GeoreferenceEcriture(), tags);
    const std::vector<unsigned char> l(16, 9);
    e.EcrireLignes(l.data(), 4, 4);
    e.Terminer();
  }
  const std::string info = test::Lancer(dir.chemin(), "tiffinfo e.tif").sortie;
  EXPECT_NE(info.find("Software: essai"), std::string::npos) << info;
  EXPECT_NE(info.find("DateTime: 2024:01:02 03:04:05"), std::string::npos) << info;
  EXPECT_EQ(info.find("Tile"), std::string::npos) << info;
  EXPECT_EQ(info.find("33550"), std::string::npos) << info;
}

// JPEG: the loss of GDAL's JPEG at the same quality, away from the holes, and the internal mask that
// GDAL and our reader find exactly.
TEST(EcrivainGeoTIFF, JpegEtSonMasque) {
  if (!Encodable("jpeg")) GTEST_SKIP() << "pas d'encodeur JPEG";
  DossierTemp dir;
  const int w = 75, h = 53;
  auto valeur = [](int x, int y, int b) {
    return static_cast<unsigned char>(60 + x + y * 2 + b * 30 + ((x * 7 + y * 13) % 5) * 3);
  };
  // Holes in whole 16-pixel cells, and single pixels at the bottom.
  auto valide = [](int x, int y) { return !(x < 32 && y < 16) && !(y >= 40 && (x * 3 + y * 5) % 29 == 0); };
  auto loin = [&](int x, int y) {
    for (int j = std::max(0, y - 16); j < std::min(h, y + 17); ++j)
      for (int i = std::max(0, x - 16); i < std::min(w, x + 17); ++i)
        if (!valide(i, j)) return false;
    return true;
  };
  for (int canaux : {1, 3})
    for (const Valeurs& v :
         {Valeurs{{"tuile", "16"}}, Valeurs{{"bandes", "0"}}, Valeurs{{"cog", ""}, {"tuile", "16"}}}) {
      SCOPED_TRACE(::testing::Message() << canaux << " canaux, " << v[0].first);
      Valeurs options = v;
      options.insert(options.end(), {{"compression", "jpeg"}, {"qualite", "75"}});
      Ecrire<unsigned char>(dir / "e.tif", options, {w, h}, canaux, valeur, valide);
      Ecrire<unsigned char>(dir / "s.tif", {{"compression", "none"}}, {w, h}, canaux, valeur,
                            [](int, int) { return true; });
      Gdal(dir, std::string("gdal_translate -q -co COMPRESS=JPEG -co JPEG_QUALITY=75 -co TILED=YES ") +
                    "-co BLOCKXSIZE=16 -co BLOCKYSIZE=16 " + (canaux == 3 ? "-co PHOTOMETRIC=YCBCR " : "") +
                    "s.tif gdal.tif");
      Gdal(dir, "gdal_translate -q -co COMPRESS=NONE e.tif ed.tif");
      Gdal(dir, "gdal_translate -q -co COMPRESS=NONE gdal.tif gd.tif");
      const TTImage<unsigned char> nous((dir / "ed.tif").c_str()), gdal((dir / "gd.tif").c_str());
      double ecartNous = 0, ecartGdal = 0;
      int maxNous = 0, maxGdal = 0, n = 0;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          for (int b = 0; b < canaux; ++b)
            if (loin(x, y)) {
              const int a = std::abs(nous(x, y, b) - valeur(x, y, b)),
                        g = std::abs(gdal(x, y, b) - valeur(x, y, b));
              ecartNous += a, ecartGdal += g, ++n;
              maxNous = std::max(maxNous, a), maxGdal = std::max(maxGdal, g);
            }
      ASSERT_GT(n, 0);
      EXPECT_LE(ecartNous / n, ecartGdal / n * 1.1 + 0.1);
      EXPECT_LE(maxNous, maxGdal + 2);
      // The mask as GDAL reads it, and as our reader does.
      Gdal(dir, "gdal_translate -q -b mask e.tif m.tif");
      const TTImage<unsigned char> masque((dir / "m.tif").c_str());
      const std::unique_ptr<SpecifImageIn> notreMasque = OuvrirMasqueValidite(dir / "e.tif");
      ASSERT_TRUE(notreMasque);
      TTImage<unsigned char> lu;
      lu.Crop(*notreMasque, 0, 0, w, h, 1);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          ASSERT_EQ(masque(x, y, 0), valide(x, y) ? 255 : 0) << x << " " << y;
          ASSERT_EQ(lu(x, y, 0) != 0, valide(x, y)) << x << " " << y;
        }
      EXPECT_EQ(SansTagsInconnus(test::Tiffinfo(dir, "e.tif")), "");
      if (v[0].first == "cog") {
        const test::Resultat r = ValiderCog(dir);
        EXPECT_EQ(r.statut, 0) << r.sortie;
      }
    }
}

}  // namespace
