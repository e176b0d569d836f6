// Images placed without an orientation file of ours: GeoTIFF tags made by gdal_translate or written
// tag by tag, and world files, each checked against gdalinfo's geotransform; our own CARTO .ori ->
// .tfw -> read back; which source wins; the CRS carried through copies; each orientation file opened
// once; and the refusals.
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cmath>
#include <functional>
#include <map>

#include "image/outils_image_test.h"
#include "outils_orientation.h"
#include "zepra/metadonnees.h"
#include "zepra/orientedimage.h"

namespace {

using test::Refuse;

const CartoProjOrientation& Carto(const ImageOrientation& o) {
  return dynamic_cast<const CartoProjOrientation&>(o);
}

std::unique_ptr<ImageOrientation> Chercher(const std::string& image) {
  return ImageOrientation::CreateImageOrientation(image.c_str());
}

void Lancer(const test::DossierTemp& d, const std::string& commande) {
  const test::Resultat r = test::Lancer(d.chemin(), commande);
  ASSERT_EQ(r.statut, 0) << commande << "\n" << r.sortie;
}

// gdalinfo -json's geoTransform of a file (empty when it has none).
std::vector<double> GeoTransform(const test::DossierTemp& d, const std::string& fichier) {
  const test::Resultat r = test::Lancer(d.chemin(), "gdalinfo -json '" + fichier + "'");
  EXPECT_EQ(r.statut, 0) << r.sortie;
  return test::TableauJson(r.sortie, "geoTransform");
}

// Pixel centres (corners and middle of the image) where gdalinfo's geotransform puts them, to a
// millionth of a pixel: gdalinfo prints 16 decimals, GDAL's world files 10.
void CentresCommeGdal(const ImageOrientation& o, const std::vector<double>& gt) {
  ASSERT_EQ(gt.size(), 6u);
  ASSERT_TRUE(gt[2] == 0 && gt[4] == 0);
  const double nc = static_cast<double>(o.GetNs()), nl = static_cast<double>(o.GetNl());
  for (const auto& [c, l] :
       {std::pair{0.0, 0.0}, {nc - 1, nl - 1}, {std::floor(nc / 2), std::floor(nl / 2)}}) {
    double X, Y;
    o.PhotoAndZToMap(c + 0.5, l + 0.5, 0, X, Y);
    EXPECT_NEAR(X, gt[0] + (c + 0.5) * gt[1], 1e-6 * gt[1]) << c << " " << l;
    EXPECT_NEAR(Y, gt[3] + (l + 0.5) * gt[5], -1e-6 * gt[5]) << c << " " << l;
  }
}

// Bytes of doubles, as a TIFF on this (little-endian) host holds them.
std::string Doubles(const std::vector<double>& v) {
  return std::string(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(double));
}

// A 7 x 5 8-bit TIFF written tag by tag, without georeferencing until tags are added.
test::TiffTest Tiff75() { return test::TiffSimple(7, 5, 1, std::string(35, '\x11')); }

// GeoKey directory: header then (id, location, count, value) per key.
std::string Cles(const std::vector<std::array<uint32_t, 4>>& cles) {
  std::string o = test::Le(1, 2) + test::Le(1, 2) + test::Le(0, 2) + test::Le(cles.size(), 2);
  for (const auto& k : cles)
    for (uint32_t v : k) o += test::Le(v, 2);
  return o;
}
test::TiffTest& AvecCles(test::TiffTest& t, const std::vector<std::array<uint32_t, 4>>& cles) {
  return t.Brut(34735, 3, static_cast<uint32_t>(4 + 4 * cles.size()), Cles(cles));
}

// Every GeoTIFF way to place a grid, made by gdal_translate or tag by tag, read as gdalinfo reads it.
TEST(Georeference, GeoTIFFCommeGdalinfo) {
  test::DossierTemp d;
  TTImage<unsigned char>(7, 5, TagNbCanaux(1)).Sauver((d / "base.tif").c_str());
  struct Cas {
    std::string gdal;                           // gdal_translate options, or
    std::function<void(const std::string&)> f;  // the file written tag by tag
    int epsg;
    bool geographique;
  };
  const auto tags = [&](std::function<void(test::TiffTest&)> g) {
    return [g](const std::string& nom) {
      test::TiffTest t = Tiff75();
      g(t);
      t.Ecrire(nom);
    };
  };
  const Cas cas[] = {
      {"-a_ullr 651000 6862000 651003.5 6861997.5 -a_srs EPSG:2154", {}, 2154, false},
      {"-a_ullr 1000.25 5000 1001.125 4999.0625", {}, 0, false},  // 0.125 x 0.1875, no CRS
      {"-a_ullr 2.25 48.875 2.3046875 48.85546875 -a_srs EPSG:4326", {}, 4326, true},
      {"-a_ullr 651234.567 6862345.678 651235.967 6862344.278 -a_srs EPSG:2154 -mo AREA_OR_POINT=Point",
       {},
       2154,
       false},
      {"-a_ullr 1000 2000 1007 1995 -mo AREA_OR_POINT=Point -a_nodata 0", {}, 0, false},
      {"", tags([](test::TiffTest& t) {  // a transformation matrix without rotation
         t.Brut(34264, 12, 16, Doubles({0.5, 0, 0, 1000, 0, -0.25, 0, 2000, 0, 0, 0, 0, 0, 0, 0, 1}));
       }),
       0, false},
      {"", tags([](test::TiffTest& t) {  // the same, pixel-is-point
         t.Brut(34264, 12, 16, Doubles({0.5, 0, 0, 1000, 0, -0.25, 0, 2000, 0, 0, 0, 0, 0, 0, 0, 1}));
         AvecCles(t, {{1025, 0, 1, 2}});  // GTRasterTypeGeoKey: pixel-is-point
       }),
       0, false},
      {"", tags([](test::TiffTest& t) {  // two tiepoints on one grid, the first not at (0, 0)
         t.Brut(33550, 12, 3, Doubles({2, 3, 0}));
         t.Brut(33922, 12, 12, Doubles({2, 1, 0, 504, 297, 0, 6, 5, 0, 512, 285, 0}));
         AvecCles(t, {{1024, 0, 1, 1}, {3072, 0, 1, 2154}});
       }),
       2154, false},
  };
  int i = 0;
  for (const Cas& c : cas) {
    const std::string nom = "g" + std::to_string(i++) + ".tif";
    SCOPED_TRACE(nom + " " + c.gdal);
    if (c.f)
      c.f(d / nom);
    else
      Lancer(d, "gdal_translate -q " + c.gdal + " base.tif " + nom);
    const std::unique_ptr<ImageOrientation> o = Chercher(d / nom);
    const CartoProjOrientation& carto = Carto(*o);
    EXPECT_TRUE(carto.GetZoneLambert() == 0 && o->GetNs() == 7 && o->GetNl() == 5 &&
                o->FileNameToString() == d / nom);
    CentresCommeGdal(*o, GeoTransform(d, nom));
    const SystemeReference* crs = carto.GetSystemeReference();
    EXPECT_EQ(crs ? crs->epsg : 0, c.epsg);
    EXPECT_EQ(crs && crs->geographique, c.geographique);
  }
  // Numbers that binary fractions hold come out exact: the corner of pixel-is-point g4 included.
  EXPECT_EQ(test::Nombres(Carto(*Chercher(d / "g4.tif"))), "1000 2000 0 7 5 1 1");
  EXPECT_EQ(test::Nombres(Carto(*Chercher(d / "g6.tif"))), "999.75 2000.125 0 7 5 0.5 0.25");
}

// World files under every name and case we look for, with or without a .prj: the grid gdalinfo reads
// from the same text, the .prj text as the CRS (else the GeoKeys a TIFF has without a grid).
TEST(Georeference, WorldFilesEtPrj) {
  test::DossierTemp d;
  TTImage<unsigned char>(7, 5, TagNbCanaux(1)).Sauver((d / "base.tif").c_str());
  Lancer(d,
         "gdal_translate -q -co PROFILE=BASELINE -co TFW=YES -a_ullr 651234.567 6862345.678 651235.967 "
         "6862344.278 base.tif g.tif");
  const std::string tfw = test::LireFichier(d / "g.tfw");
  const std::vector<double> gt = GeoTransform(d, "g.tif");
  Lancer(d, "gdalsrsinfo -o wkt_esri EPSG:2154 > l93.txt");
  std::string wkt = test::LireFichier(d / "l93.txt");
  wkt = wkt.substr(wkt.find("PROJCS["));
  while (std::isspace(static_cast<unsigned char>(wkt.back()))) wkt.pop_back();
  const std::tuple<const char*, const char*, const char*> cas[] = {
      // world file, .prj, expected CRS text ("" none)
      {"w.tfw", nullptr, ""},     {"w.TFW", "w.prj", "l93"}, {"w.Tfw", "w.PRJ", "l93"},
      {"w.tifw", "w.Prj", "l93"}, {"w.TIFW", nullptr, ""},   {"w.wld", "w.prj", "l93"},
      {"w.WLD", nullptr, ""},     {"w.Wld", "w.prj", "l93"},
  };
  for (const auto& [monde, prj, attendu] : cas) {
    SCOPED_TRACE(monde);
    test::DossierTemp e;
    TTImage<unsigned char>(7, 5, TagNbCanaux(1)).Sauver((e / "w.tif").c_str());
    test::EcrireFichier(e / monde, tfw);
    if (prj) test::EcrireFichier(e / prj, wkt + "\r\n");
    const std::unique_ptr<ImageOrientation> o = Chercher(e / "w.tif");
    EXPECT_EQ(o->FileNameToString(), e / monde);
    CentresCommeGdal(*o, gt);
    const SystemeReference* crs = Carto(*o).GetSystemeReference();
    EXPECT_EQ(crs ? crs->wkt : "", *attendu ? wkt : "");
  }
  // A TIFF with GeoKeys but no grid: placed by its world file, its keys kept as the CRS.
  test::TiffTest t = Tiff75();
  AvecCles(t, {{1024, 0, 1, 1}, {3072, 0, 1, 2154}}).Ecrire(d / "k.tif");
  test::EcrireFichier(d / "k.tfw", tfw);
  const std::unique_ptr<ImageOrientation> k = Chercher(d / "k.tif");
  CentresCommeGdal(*k, gt);
  EXPECT_EQ(Carto(*k).GetSystemeReference()->epsg, 2154);
}

// Our CARTO .ori written with its world file: read back through the world file alone, the same grid
// bit for bit (zone apart: a world file has none), where gdalinfo puts it. Exact as long as the
// centre of the first pixel stays in the binade of the origin; one unit in the last place otherwise.
TEST(Georeference, OriVersTfwEtRetour) {
  test::DossierTemp d;
  std::vector<std::tuple<double, double, int, double, double>> cas = {
      {651234.567, 250000.125, 2, 0.2, 0.3},
      {1000, 5000, 0, 0.5, 0.25},
      {0.001, -12.5, 0, 0.001, 1000},
      {524287.9, 6862000.5, 0, 0.5, 0.5},  // the centre crosses 2^19
  };
  uint64_t graine = 12345;
  const auto tirage = [&](uint64_t n) {
    graine = graine * 6364136223846793005u + 1442695040888963407u;
    return (graine >> 33) % n;
  };
  for (int i = 0; i < 200; ++i)
    cas.emplace_back(
        static_cast<double>(tirage(1000000000)) / 1000, static_cast<double>(tirage(2000000000)) / 1000, 0,
        static_cast<double>(1 + tirage(50000)) / 1000, static_cast<double>(1 + tirage(50000)) / 1000);
  TTImage<unsigned char>(3, 2, TagNbCanaux(1)).Sauver((d / "w.tif").c_str());
  int i = 0;
  for (const auto& [x0, y0, zone, px, py] : cas) {
    SCOPED_TRACE(testing::Message() << i++ << ": " << x0 << " " << y0 << " " << px << " " << py);
    const OrientationOld ori(eORICarto, x0, y0, zone, 3, 2, px, py);
    ori.Sauver((d / "o.ori").c_str());
    std::rename((d / "o.tfw").c_str(), (d / "w.tfw").c_str());
    const std::unique_ptr<ImageOrientation> relu = Chercher(d / "w.tif");
    const CartoProjOrientation& lu = Carto(*relu);
    const CartoProjOrientation& o = Carto(*ori.GetInternalImageOrientation());
    EXPECT_TRUE(lu.GetXStep() == px && lu.GetYStep() == py && lu.GetZoneLambert() == 0);
    const double xc = o.GetXOrigine() + 0.5 * px, yc = o.GetYOrigine() - 0.5 * py;
    const bool memeBinade =
        std::ilogb(xc) == std::ilogb(o.GetXOrigine()) && std::ilogb(yc) == std::ilogb(o.GetYOrigine());
    if (memeBinade) {
      EXPECT_EQ(lu.GetXOrigine(), o.GetXOrigine());
      EXPECT_EQ(lu.GetYOrigine(), o.GetYOrigine());
    } else {
      EXPECT_LE(std::fabs(lu.GetXOrigine() - o.GetXOrigine()), std::nextafter(xc, INFINITY) - xc);
      EXPECT_LE(std::fabs(lu.GetYOrigine() - o.GetYOrigine()), std::nextafter(yc, INFINITY) - yc);
    }
    if (i < 6) CentresCommeGdal(lu, GeoTransform(d, "w.tif"));
  }
}

// Which source places an image: its orientation file first (the nine candidates), then its GeoTIFF
// tags, then the world files in their order; nothing at all keeps the established message.
TEST(Georeference, OrdreDesSources) {
  test::DossierTemp d;
  const char* const mondes[] = {"tfw", "TFW", "Tfw", "tifw", "TIFW", "Tifw", "wld", "WLD", "Wld"};
  for (int i = 0; i < 9; ++i)
    test::EcrireFichier(d / "a." + mondes[i], std::to_string(i + 1) + "\n0\n0\n-1\n0.5\n-0.5\n");
  TTImage<unsigned char>(7, 5, TagNbCanaux(1)).Sauver((d / "a.tif").c_str());
  test::EcrireFichier(d / "a.Hdr", "MAPUNITS XDIM 42 , YDIM 1 , NROWS 5 NCOLS 7");
  EXPECT_EQ(Chercher(d / "a.tif")->GetApproxGroundPixSize(), 42);
  std::remove((d / "a.Hdr").c_str());
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(Chercher(d / "a.tif")->GetApproxGroundPixSize(), i + 1) << mondes[i];
    std::remove((d / "a." + mondes[i]).c_str());
  }
  Refuse([&] { Chercher(d / "a.tif"); },
         "ImageOrientation : fichier d'orientation introuvable pour " + d / "a.tif");
  // Tags win over a world file; an oriented image that finds nothing names the .ori it looked for.
  test::TiffTest t = Tiff75();
  t.Brut(33550, 12, 3, Doubles({8, 8, 0}))
      .Brut(33922, 12, 6, Doubles({0, 0, 0, 0, 0, 0}))
      .Ecrire(d / "a.tif");
  test::EcrireFichier(d / "a.tfw", "1\n0\n0\n-1\n0.5\n-0.5\n");
  EXPECT_EQ(Chercher(d / "a.tif")->GetApproxGroundPixSize(), 8);
  Refuse([&] { TTOrientedImage<float> x((d / "b.tif").c_str()); },
         "ImageOrientation : fichier d'orientation introuvable pour " + d / "b.ori");
  // An orientation file name is not an image: no world file is looked for beside it.
  Refuse([&] { OrientationOld((d / "a.ori").c_str()); },
         "ImageOrientation : fichier d'orientation introuvable");
}

// Oriented images read by the image's name alone, pixels and grid; the CRS goes with every copy and
// cut-out, and nothing of it reaches the files we write.
TEST(Georeference, ImagesOrienteesEtCRSTransmis) {
  test::DossierTemp d;
  TTImage<unsigned char> base(7, 5, TagNbCanaux(1));
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 7; ++x) base(x, y) = static_cast<unsigned char>(10 * y + x);
  base.Sauver((d / "base.tif").c_str());
  Lancer(d, "gdal_translate -q -a_ullr 1000 2000 1007 1995 -a_srs EPSG:2154 base.tif g.tif");
  const TTOrientedImage<float> im((d / "g.tif").c_str());
  EXPECT_TRUE(im(6, 4) == 46 && im.GetOrientation().GetMinXCarto() == 1000 &&
              im.GetOrientation().GetSystemeReference()->epsg == 2154);
  const OrientedImageFicIn fic((d / "g.tif").c_str());
  EXPECT_EQ(fic.GetOrientation().GetSystemeReference()->epsg, 2154);
  OrientationOld copie(im.GetOrientation()), crop(copie), sous(copie), sur(copie);
  crop.Crop(TRectangle<int>(1, 1, 4, 3));
  sous.SousEchantillonnage(2);
  sur.SurEchantillonnage(2);
  TTOrientedImage<float> decoupe;
  decoupe.Crop(im, TRectangle<int>(2, 1, 6, 4), 2);
  for (const OrientationOld* o : {&copie, &crop, &sous, &sur, &decoupe.GetOrientation()})
    EXPECT_EQ(o->GetSystemeReference(), im.GetOrientation().GetSystemeReference());
  EXPECT_EQ(OrientationOld(eORICarto, 1000, 2000, 0, 7, 5, 1, 1).GetSystemeReference(), nullptr);
  // Saved: the same bytes as the same grid without a CRS.
  im.GetOrientation().Sauver((d / "avec.ori").c_str());
  OrientationOld(eORICarto, 1000, 2000, 0, 7, 5, 1, 1).Sauver((d / "sans.ori").c_str());
  for (const char* ext : {".ori", ".tfw"})
    EXPECT_EQ(test::LireFichier(d / "avec" + ext), test::LireFichier(d / "sans" + ext)) << ext;
}

// How many times f opens each file of the folder.
std::map<std::string, int> Ouvertures(const std::string& dossier, const std::function<void()>& f) {
  const int fd = inotify_init1(IN_NONBLOCK);
  // Closes watched too: identical events in a row are merged into one, so a file opened again after
  // being closed counts twice only when its close is seen in between.
  const int w = inotify_add_watch(fd, dossier.c_str(), IN_OPEN | IN_CLOSE_NOWRITE);
  f();
  std::map<std::string, int> n;
  alignas(inotify_event) char tampon[1 << 16];
  for (ssize_t lu; (lu = read(fd, tampon, sizeof tampon)) > 0;)
    for (char* p = tampon; p < tampon + lu;) {
      const auto* e = reinterpret_cast<const inotify_event*>(p);
      if (e->len && (e->mask & IN_OPEN)) ++n[e->name];
      p += sizeof(inotify_event) + e->len;
    }
  inotify_rm_watch(fd, w);
  close(fd);
  return n;
}

// Each orientation file, world file and .prj is opened once per reading, however it is reached.
TEST(Georeference, FichiersOuvertsUneFois) {
  test::DossierTemp d;
  TTImage<unsigned char>(7, 5, TagNbCanaux(1)).Sauver((d / "a.tif").c_str());
  const std::pair<const char*, std::string> fichiers[] = {
      {"a.ori", "CARTO\n1000 2000\n0\n7 5\n1000 1000\n"},
      {"a.XML",
       "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>7 5</NombrePixels>"
       "<ResolutionPlani>1 -1</ResolutionPlani></FileOriMnt>"},
      {"a.hdr", "MAPUNITS XDIM 1 , YDIM 1 , NROWS 5 NCOLS 7"},
      {"a.wld", "1\n0\n0\n-1\n0.5\n-0.5\n"},
  };
  for (const auto& [nom, contenu] : fichiers) {
    SCOPED_TRACE(nom);
    test::EcrireFichier(d / nom, contenu);
    test::EcrireFichier(d / "a.prj", "GEOGCS[]");
    const std::function<void()> lectures[] = {
        [&] { Chercher(d / "a.tif"); },
        [&] { OrientationOld((d / "a.tif").c_str()); },
        [&] { TTOrientedImage<float>((d / "a.tif").c_str()); },
        [&] { OrientedImageFicIn((d / "a.tif").c_str()); },
    };
    std::vector<std::function<void()>> toutes(std::begin(lectures), std::end(lectures));
    if (std::string(nom) != "a.wld") toutes.push_back([&] { OrientationOld((d / nom).c_str()); });
    for (const auto& lecture : toutes) {
      const std::map<std::string, int> n = Ouvertures(d.chemin(), lecture);
      EXPECT_EQ(n.count(nom) ? n.at(nom) : 0, 1);
      if (std::string(nom) == "a.wld") {
        EXPECT_EQ(n.count("a.prj") ? n.at("a.prj") : 0, 1);
      }
    }
    std::remove((d / nom).c_str());
  }
}

// Every fault of the tags or of the files beside the image: an Erreur naming the file, and in the
// mosaic job exit status 255 with the message in the log.
TEST(Georeference, RefusParTable) {
  test::DossierTemp d;
  using Tiff = std::function<void(test::TiffTest&)>;
  const auto echelle = [](std::vector<double> s) {
    return [s](test::TiffTest& t) {
      t.Brut(33550, 12, static_cast<uint32_t>(s.size()), Doubles(s));
      t.Brut(33922, 12, 6, Doubles({0, 0, 0, 1000, 2000, 0}));
    };
  };
  const auto matrice = [](std::vector<double> m) {
    return [m](test::TiffTest& t) { t.Brut(34264, 12, static_cast<uint32_t>(m.size()), Doubles(m)); };
  };
  const auto pointsAppui = [](std::vector<double> p, bool avecEchelle) {
    return [p, avecEchelle](test::TiffTest& t) {
      t.Brut(33922, 12, static_cast<uint32_t>(p.size()), Doubles(p));
      if (avecEchelle) t.Brut(33550, 12, 3, Doubles({1, 1, 0}));
    };
  };
  struct Refus {
    Tiff tags;
    const char* monde;  // world file written beside, or null
    const char* message;
    const char* prj = nullptr;  // .prj written beside, or null
  };
  const Refus cas[] = {
      {echelle({1}), nullptr, "ModelPixelScale de 1 valeur(s)"},
      {echelle({0, 1, 0}), nullptr, "ModelPixelScale du fichier"},
      {echelle({1, -1, 0}), nullptr, "pas (1, -1)"},
      {echelle({NAN, 1, 0}), nullptr, "pas (nan, 1)"},
      {pointsAppui({0, 0, 0, 1, 2}, true), nullptr, "ModelTiepoint de 5 valeurs"},
      {pointsAppui({0, 0, 0, 1, 2, 0}, false), nullptr, "1 point(s) d'appui sans ModelPixelScale"},
      {pointsAppui({0, 0, 0, 1, 2, 0, 6, 0, 0, 9, 2, 0, 0, 4, 0, 1, 0, 0}, false), nullptr,
       "3 point(s) d'appui sans ModelPixelScale"},
      {pointsAppui({0, 0, 0, 1, 2, 0, 6, 0, 0, 9, 2, 0}, true), nullptr, "point d'appui 1 (6, 0) -> (9, 2)"},
      {matrice({1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0}), nullptr, "ModelTransformation de 15 valeurs"},
      {matrice({1, 0.1, 0, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), nullptr,
       "avec rotation ou cisaillement (0.1, 0)"},
      {matrice({1, 0, 0, 0, 0.2, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), nullptr,
       "avec rotation ou cisaillement (0, 0.2)"},
      {matrice({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), nullptr, "pas (1, -1)"},  // north down
      {[](test::TiffTest& t) { t.Brut(33550, 2, 4, "abc"); }, nullptr, "Tag 33550 de type 2"},
      {[&](test::TiffTest& t) {
         echelle({1, 1, 0})(t);
         AvecCles(t, {{1025, 0, 1, 3}});
       },
       nullptr, "GTRasterTypeGeoKey 3 inconnu"},
      {[&](test::TiffTest& t) {  // three keys announced, one given
         echelle({1, 1, 0})(t);
         t.Brut(34735, 3, 8,
                test::Le(1, 2) + test::Le(1, 2) + test::Le(0, 2) + test::Le(3, 2) +
                    Cles({{1024, 0, 1, 1}}).substr(8));
       },
       nullptr, "GeoKeyDirectory de 8 valeurs incoherent"},
      {[&](test::TiffTest& t) {  // a key past the end of the double parameters
         echelle({1, 1, 0})(t);
         AvecCles(t, {{2057, 34736, 1, 2}});
         t.Brut(34736, 12, 2, Doubles({6378137, 298.25}));
       },
       nullptr, "Cle GeoTIFF 2057 : 1 valeurs a l'indice 2 hors du tag 34736"},
      {[&](test::TiffTest& t) {
         echelle({1, 1, 0})(t);
         AvecCles(t, {{1024, 0, 2, 1}});
       },
       nullptr, "Cle GeoTIFF 1024 : 2 valeurs dans le repertoire de cles"},
      {[&](test::TiffTest& t) {
         echelle({1, 1, 0})(t);
         t.Brut(34735, 12, 4, Doubles({1, 1, 0, 0}));
       },
       nullptr, "GeoKeyDirectory de type 12"},
      // World files beside a TIFF without grid.
      {{}, "1\n0\n0\n-1\n0.5\n", "5 nombre(s), six attendus"},
      {{}, "1\n0\n0\n-1\n0.5\nabc\n", "'abc' n'est pas un nombre (nombre 6 sur six)"},
      {{}, "1\n0\n0\n-1\n0.5\n0.5\n7\n", "plus de six nombres ('7' en trop)"},
      {{}, "1,5\n0\n0\n-1\n0.5\n0.5\n", "'1,5' n'est pas un nombre"},
      {{}, "1\n0.1\n0\n-1\n0.5\n0.5\n", "avec rotation (0.1, 0)"},
      {{}, "1\n0\n0\n1\n0.5\n0.5\n", "pas (1, -1)"},
      {{}, "0\n0\n0\n-1\n0.5\n0.5\n", "pas (0, 1)"},
      {{}, "", "0 nombre(s)"},
      {{}, "1\n0\n0\n-1\n0.5\n-0.5\n", "vide : le texte d'un systeme de reference est attendu", " \n"},
  };
  int i = 0;
  for (const auto& [tags, monde, message, prj] : cas) {
    SCOPED_TRACE(message);
    const std::string n = "t" + std::to_string(i++), image = d / ("Ort_" + n + ".tif");
    test::TiffTest t = Tiff75();
    if (tags) tags(t);
    t.Ecrire(image);
    if (monde) test::EcrireFichier(d / ("Ort_" + n + ".tfw"), monde);
    if (prj) test::EcrireFichier(d / ("Ort_" + n + ".prj"), prj);
    const std::string fautif = d / ("Ort_" + n + (prj ? ".prj" : monde ? ".tfw" : ".tif"));
    Refuse([&] { Chercher(image); }, "", {message, fautif});
    const test::Resultat r = test::Egalise(d.chemin(), n + ".tif");
    EXPECT_EQ(r.statut, 255) << r.sortie;
    const std::string log = test::LireFichier(d / "log.txt");
    EXPECT_NE(log.find("Exception :"), std::string::npos);
    EXPECT_NE(log.find(message), std::string::npos) << log;
  }
}

}  // namespace
