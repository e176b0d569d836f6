// Window reads (LecteurFenetres, MasqueFenetres) against the whole-image read of the same file: files
// made at run time by gdal_translate, tiffcp and our writers in every layout we decode, each read
// through windows at the corners, across block edges, over the last partial block and whole.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "outils_image_test.h"
#include "zepra/imagefic.h"
#include "zepra/lecteurfenetres.h"
#include "zepra/masque.h"

namespace {

using test::ImageMotif;
using test::Refuse;

constexpr int kL = 45, kH = 37;  // 16 x 16 tiles and 5-line strips leave partial ones

struct Disposition {
  std::string fichier;   // the file read
  std::string commande;  // makes it from src.tif; "" writes it directly with our writer
  eEnumType type;
  int canaux;
};

const std::string kGdal = "gdal_translate -q ",
                  kTuiles = " -co TILED=YES -co BLOCKXSIZE=16 -co BLOCKYSIZE=16 ";

const std::vector<Disposition> kDispositions = {
    {"v.tif", "", eUInt1, 1},
    {"v.tif", "", eFloat4, 3},
    {"v.tif", kGdal + "-co BLOCKYSIZE=5", eUInt2, 4},
    {"v.tif", kGdal + kTuiles, eUInt1, 3},
    {"v.tif", kGdal + kTuiles + "-co INTERLEAVE=BAND", eInt2, 3},
    {"v.tif", kGdal + "-co INTERLEAVE=BAND -co BLOCKYSIZE=5", eUInt1, 4},
    {"v.tif", kGdal + "-co COMPRESS=LZW -co PREDICTOR=2 -co BLOCKYSIZE=5", eUInt2, 3},
    {"v.tif", kGdal + "-co COMPRESS=LZW -co PREDICTOR=3" + kTuiles, eFloat4, 1},
    {"v.tif", kGdal + "-co COMPRESS=PACKBITS -co INTERLEAVE=BAND" + kTuiles, eUInt1, 4},
    {"v.tif", kGdal + "-co COMPRESS=DEFLATE -co PREDICTOR=2" + kTuiles, eUInt1, 3},
    {"v.tif", kGdal + "-co COMPRESS=DEFLATE -co PREDICTOR=3 -co INTERLEAVE=BAND -co BLOCKYSIZE=5", eFloat4,
     3},
    {"v.tif", kGdal + "-co COMPRESS=ZSTD -co INTERLEAVE=BAND -co BLOCKYSIZE=7", eUInt2, 3},
    {"v.tif", kGdal + "-co COMPRESS=ZSTD -co PREDICTOR=2" + kTuiles, eInt4, 1},
    {"v.tif", kGdal + "-co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR" + kTuiles, eUInt1, 3},
    {"v.tif", kGdal + "-co COMPRESS=JPEG -co BLOCKYSIZE=8", eUInt1, 1},
    {"v.tif", kGdal + "-co COMPRESS=JPEG -co INTERLEAVE=BAND" + kTuiles, eUInt1, 4},
    {"v.tif", kGdal + "-co BIGTIFF=YES -co COMPRESS=LZW" + kTuiles, eUInt1, 4},
    {"v.tif", kGdal + "-co BIGTIFF=YES -co COMPRESS=DEFLATE -co ENDIANNESS=BIG -co BLOCKYSIZE=5", eFloat8, 2},
    {"v.tif", "tiffcp -B -c lzw:2 -r 5", eUInt4, 3},
    {"v.tif", "tiffcp -c packbits -t -w 16 -l 16", eBool, 1},
    {"v.tif", "tiffcp -c lzw -r 3", eBool, 3},
    {"v.pgm", "", eUInt2, 1},
    {"v.ppm", "", eUInt1, 3},
    {"v.rle", "", eInt2, 1},
};

struct Rect {
  int x0, y0, nx, ny;
};
const std::vector<Rect> kFenetres = {
    {0, 0, kL, kH},       {0, 0, 1, 1},       {kL - 1, kH - 1, 1, 1}, {kL - 1, 0, 1, 1},
    {0, kH - 1, 1, 1},    {20, 17, 1, 1},     {10, 12, 20, 9},        {15, 15, 2, 2},
    {32, 32, kL - 32, 5}, {0, kH - 2, kL, 2}, {7, 0, 1, kH},          {3, 4, 0, 5},
};

// The window r of channels [c0, c0 + nc) read as D, against the whole read 'image' converted by the
// plain cast; the destination's padding must stay untouched.
template <class D>
::testing::AssertionResult MemeFenetre(const LecteurFenetres& l, const TTImage<double>& image, const Rect& r,
                                       int c0, int nc) {
  const size_t pasLigne = static_cast<size_t>(r.nx) + 3, pasPlan = pasLigne * static_cast<size_t>(r.ny) + 5;
  const D temoin = static_cast<D>(-12345.25);
  std::vector<D> dest(pasPlan * nc + 2, temoin);
  l.Lire(r.x0, r.y0, r.nx, r.ny, dest.data() + 1, pasLigne, pasPlan, c0, nc == image.GetNbCanaux() ? -1 : nc);
  for (size_t i = 0; i < dest.size(); ++i) {
    const long long k = static_cast<long long>(i) - 1;
    const long long c = k / static_cast<long long>(pasPlan), y = k % pasPlan / pasLigne,
                    x = k % pasPlan % pasLigne;
    const bool dedans = k >= 0 && c < nc && y < r.ny && x < r.nx;
    const D voulu = dedans ? Convertir<D, double>(image(r.x0 + static_cast<int>(x),
                                                        r.y0 + static_cast<int>(y), c0 + static_cast<int>(c)))
                           : temoin;
    if (std::memcmp(&voulu, &dest[i], sizeof(D)) != 0)
      return ::testing::AssertionFailure()
             << "fenetre (" << r.x0 << ", " << r.y0 << ") " << r.nx << " x " << r.ny << " canaux " << c0
             << "+" << nc << (dedans ? "" : " marge") << " : (" << x << ", " << y << ", " << c << ") have "
             << dest[i] << " / want " << voulu;
  }
  return ::testing::AssertionSuccess();
}

void Fabriquer(const test::DossierTemp& dir, const Disposition& d) {
  AppliquerType(d.type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    const TTImage<T> image = ImageMotif<T>(kL, kH, d.canaux);
    image.Sauver((dir / (d.commande.empty() ? d.fichier : "src.tif")).c_str());
  });
  if (d.commande.empty()) return;
  const test::Resultat r = test::Lancer(dir.chemin(), d.commande + " src.tif " + d.fichier);
  ASSERT_EQ(r.statut, 0) << r.sortie;
}

TEST(Fenetres, ChaqueDispositionCommeLaLectureEntiere) {
  test::DossierTemp dir;
  for (const Disposition& d : kDispositions) {
    SCOPED_TRACE(d.fichier + " / " + d.commande + " / type " + std::to_string(d.type));
    Fabriquer(dir, d);
    const std::string nom = dir / d.fichier;
    const ImageFicIn fichier(nom.c_str());
    const TTImage<double> image(nom.c_str());
    const LecteurFenetres l(nom);
    ASSERT_EQ(l.Taille(), fichier.GetTaille());
    ASSERT_EQ(l.Canaux(), fichier.GetNbCanaux());
    EXPECT_EQ(l.Type(), fichier.TypePixel());
    EXPECT_GT(l.OctetsBloc(), 0u);
    const bool tuiles = d.commande.find("TILED=YES") != std::string::npos;
    const bool bandes5 = d.commande.find("BLOCKYSIZE=5") != std::string::npos;
    if (tuiles || bandes5) {
      EXPECT_EQ(l.TailleBloc(), tuiles ? TPoint2D<int>(16, 16) : TPoint2D<int>(kL, 5));
    }
    std::vector<std::pair<int, int>> canaux = {{0, l.Canaux()}};
    if (l.Canaux() > 1) canaux.push_back({l.Canaux() - 1, 1});
    if (l.Canaux() > 2) canaux.push_back({1, l.Canaux() - 1});
    for (const Rect& r : kFenetres)
      for (const auto& [c0, nc] : canaux) {
        EXPECT_TRUE(MemeFenetre<float>(l, image, r, c0, nc));
        EXPECT_TRUE(MemeFenetre<double>(l, image, r, c0, nc));
      }
  }
}

// A palette file (three channels from one index) and a window past every side of the image.
TEST(Fenetres, PaletteEtRectanglesRefuses) {
  test::DossierTemp dir;
  test::TiffPalette().Ecrire(dir / "p.tif");
  ASSERT_EQ(test::Tiffcp(dir, "-c lzw -r 2", "p.tif", "pl.tif"), "");
  for (const std::string& nom : {dir / "p.tif", dir / "pl.tif"}) {
    const LecteurFenetres l(nom);
    ASSERT_EQ(l.Canaux(), 3);
    const TTImage<double> image(nom.c_str());
    for (const Rect& r : {Rect{0, 0, 8, 5}, Rect{3, 1, 4, 3}, Rect{7, 4, 1, 1}})
      EXPECT_TRUE(MemeFenetre<float>(l, image, r, 1, 2));
  }

  const LecteurFenetres l(dir / "p.tif");
  std::vector<float> dest(1000);
  for (const auto& [r, c0, nc] : std::vector<std::tuple<Rect, int, int>>{{{-1, 0, 1, 1}, 0, -1},
                                                                         {{0, -1, 1, 1}, 0, -1},
                                                                         {{0, 0, 9, 1}, 0, -1},
                                                                         {{8, 0, 1, 1}, 0, -1},
                                                                         {{0, 4, 1, 2}, 0, -1},
                                                                         {{2, 2, -1, 1}, 0, -1},
                                                                         {{2, 2, 1, 1}, 3, -1},
                                                                         {{2, 2, 1, 1}, -1, 1},
                                                                         {{2, 2, 1, 1}, 1, 3},
                                                                         {{2, 2, 1, 1}, 0, 0},
                                                                         {{2147483647, 0, 1, 1}, 0, -1}})
    Refuse([&] { l.Lire(r.x0, r.y0, r.nx, r.ny, dest.data(), 10, 100, c0, nc); },
           "[LecteurFenetres] (Lire) Rectangle", {"hors de l'image 8 x 5 x 3 du fichier " + dir / "p.tif"});
  Refuse([&] { LecteurFenetres(dir / "absent.tif"); }, "", {dir / "absent.tif"});
}

// The masks GDAL writes (internal directory, .msk file): the alpha they were made from, read whole by
// OuvrirMasqueValidite and by windows; the image itself is still the first directory only, read with
// the usual warning, and the metadata say which mask there is.
TEST(Fenetres, MasquesCommeGdalLesEcrit) {
  test::DossierTemp dir;
  TTImage<unsigned char> rvba = ImageMotif<unsigned char>(kL, kH, 4);
  TTImage<bool> attendu(kL, kH, TagNbCanaux(1));
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kL; ++x) {
      attendu(x, y) = x > 0 && std::abs(x - 2 * y) > 3;
      rvba(x, y, 3) = attendu(x, y) ? 255 : 0;
    }
  rvba.Sauver((dir / "rvba.tif").c_str());
  const std::string gdal =
      "gdal_translate -q -b 1 -b 2 -b 3 -mask 4" + kTuiles + "--config GDAL_TIFF_INTERNAL_MASK ";
  ASSERT_EQ(
      test::Lancer(dir.chemin(), gdal + "YES rvba.tif interne.tif && " + gdal + "NO rvba.tif externe.tif")
          .statut,
      0);
  const auto entier = [&](const std::string& nom) {
    const std::unique_ptr<SpecifImageIn> masque = OuvrirMasqueValidite(nom);
    TTImage<bool> lu;
    if (masque) lu.Crop(*masque, 0, 0, kL, kH);
    return test::MemesEchantillons(attendu, lu);
  };
  for (const std::string nom : {"interne.tif", "externe.tif"}) {
    SCOPED_TRACE(nom);
    const bool interne = nom == std::string("interne.tif");
    EXPECT_TRUE(entier(dir / nom));
    const ImageFicIn fichier((dir / nom).c_str());
    EXPECT_TRUE(fichier.Metadonnees()->masqueInterne == interne &&
                fichier.Metadonnees()->masqueExterne == !interne);
    TTImage<unsigned char> image;
    EXPECT_EQ(test::Avertissements([&] { image.Lire((dir / nom).c_str()); }),
              interne ? "WARNING : [TIFF_Annexes] (LireEntete) Il y a plus d'une image dans le fichier. "
                        "Traitement de la premiere image seulement !\n"
                      : "");
    EXPECT_EQ(image.GetNbCanaux(), 3);
    const std::unique_ptr<MasqueFenetres> m = OuvrirMasqueFenetres(dir / nom);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->Nom(), dir / (interne ? nom : "externe.tif.msk"));
    ASSERT_EQ(m->Taille(), TPoint2D<int>(kL, kH));
    for (const Rect& r : kFenetres) {
      const size_t pas = static_cast<size_t>(r.nx) + 2;
      std::vector<unsigned char> dest(pas * r.ny, 7);
      m->Lire(r.x0, r.y0, r.nx, r.ny, dest.data(), pas);
      for (int y = 0; y < r.ny; ++y)
        for (size_t x = 0; x < pas; ++x) {
          const int voulu = x < static_cast<size_t>(r.nx) ? attendu(r.x0 + static_cast<int>(x), r.y0 + y) : 7;
          ASSERT_EQ(dest[y * pas + x], voulu) << r.x0 << ", " << r.y0 << " : " << x << ", " << y;
        }
    }
    std::vector<unsigned char> dest(10);
    Refuse([&] { m->Lire(kL - 1, 0, 2, 1, dest.data(), 2); }, "[MasqueFenetres] (Lire) Rectangle");
  }
  EXPECT_FALSE(OuvrirMasqueFenetres(dir / "rvba.tif"));
  EXPECT_FALSE(OuvrirMasqueValidite(dir / "rvba.tif"));
  // A .msk of another size is refused; one of several channels gives its channel 0.
  ImageMotif<unsigned char>(5, 5, 1).Sauver((dir / "petit.tif").c_str());
  ASSERT_EQ(std::rename((dir / "petit.tif").c_str(), (dir / "rvba.tif.msk").c_str()), 0);
  Refuse(
      [&] { OuvrirMasqueFenetres(dir / "rvba.tif"); },
      "[OuvrirMasqueValidite] Le masque " + dir / "rvba.tif.msk" + " (5 x 5) n'a pas la taille de l'image ");
  TTImage<unsigned char> quatre = rvba;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kL; ++x) quatre(x, y, 0) = rvba(x, y, 3);
  quatre.Sauver((dir / "m.tif").c_str());
  ASSERT_EQ(std::rename((dir / "m.tif").c_str(), (dir / "rvba.tif.msk").c_str()), 0);
  EXPECT_TRUE(entier(dir / "rvba.tif"));
}

// WebP (lossy in tiles, lossless in strips, RGBA) and LZMA (with a predictor, in planes), as GDAL
// writes them, are read by the windows reader as GDAL decodes them; the whole-image reader of the
// compatibility mode refuses them as it always did.
TEST(Fenetres, CodecsDesFenetresSeulement) {
  test::DossierTemp dir;
  ImageMotif<unsigned char>(kL, kH, 3).Sauver((dir / "src3.tif").c_str());
  ImageMotif<unsigned char>(kL, kH, 4).Sauver((dir / "src4.tif").c_str());
  for (const std::string& options :
       std::vector<std::string>{"-co COMPRESS=WEBP" + kTuiles + "src3.tif",
                                "-co COMPRESS=WEBP -co WEBP_LOSSLESS=YES -co BLOCKYSIZE=5 src3.tif",
                                "-co COMPRESS=WEBP -co ALPHA=YES -co BLOCKYSIZE=8 src4.tif",
                                "-co COMPRESS=LZMA -co PREDICTOR=2" + kTuiles + "src4.tif",
                                "-co COMPRESS=LZMA -co INTERLEAVE=BAND -co BLOCKYSIZE=5 src3.tif"}) {
    SCOPED_TRACE(options);
    ASSERT_EQ(test::Lancer(dir.chemin(), kGdal + options + " w.tif && " + kGdal + "w.tif gdal.tif").statut,
              0);
    const TTImage<double> gdal((dir / "gdal.tif").c_str());
    const LecteurFenetres l(dir / "w.tif");
    ASSERT_EQ(l.Canaux(), gdal.GetNbCanaux());
    for (const Rect& r : kFenetres) EXPECT_TRUE(MemeFenetre<float>(l, gdal, r, 0, l.Canaux()));
    TTImage<unsigned char> image;
    const std::string code = options.find("LZMA") != std::string::npos ? "34925, LZMA" : "50001, WebP";
    Refuse([&] { image.Lire((dir / "w.tif").c_str()); },
           "[ImageFicIn_Raster] (GetValeurs) Compression (" + code + ") non geree : pixels du fichier ");
  }
}

// Headers no WebP or LZMA stream can back are refused at the open, before any block is allocated: a
// WebP block wider than WebP codes, an LZMA block larger than its bytes could give.
TEST(Fenetres, CodecsDesFenetresSeulementBornes) {
  test::DossierTemp dir;
  const struct {
    const char* nom;
    test::TiffTest tiff;
    const char* attendu;
  } cas[] = {
      {"webp.tif", test::TiffSimple(16400, 1, 3, std::string(64, '\x05')).Court(259, {50001}),
       "Blocs WebP de 16400 x 1 pixels dans le fichier "},
      {"webp2.tif", test::TiffSimple(16, 16400, 3, std::string(64, '\x05')).Court(259, {50001}),
       "Blocs WebP de 16 x 16400 pixels dans le fichier "},
      {"lzma.tif", test::TiffSimple(10000, 10000, 1, std::string(1000, '\x05')).Court(259, {34925}),
       "Le bloc 0 (1000 octets compresses) ne peut pas donner les 100000000 octets"},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(c.nom);
    test::TiffTest t = c.tiff;
    t.Ecrire(dir / c.nom);
    Refuse([&] { LecteurFenetres l(dir / c.nom); }, "[TIFF_Annexes] (GetImage) ", {c.attendu});
  }
}

// Two threads reading windows of one reader at once get the bytes one thread gets.
TEST(Fenetres, DeuxFilsCommeUn) {
  test::DossierTemp dir;
  ImageMotif<unsigned char>(300, 260, 3).Sauver((dir / "src.tif").c_str());
  for (const std::string options :
       {" -co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR -co TILED=YES", " -co COMPRESS=LZW -co PREDICTOR=2",
        " -co COMPRESS=DEFLATE -co INTERLEAVE=BAND -co TILED=YES -co BLOCKXSIZE=32 -co BLOCKYSIZE=32"}) {
    SCOPED_TRACE(options);
    ASSERT_EQ(test::Lancer(dir.chemin(), kGdal + options + " src.tif v.tif").statut, 0);
    const LecteurFenetres l(dir / "v.tif");
    std::vector<Rect> fenetres;
    for (int y = 0; y < 260; y += 37)
      for (int x = 0; x < 300; x += 41)
        fenetres.push_back({x, y, std::min(70, 300 - x), std::min(50, 260 - y)});
    auto tout = [&](std::vector<float>& sortie) {
      sortie.assign(fenetres.size() * 70 * 50 * 3, 0.0f);
      for (size_t i = 0; i < fenetres.size(); ++i) {
        const Rect& r = fenetres[i];
        l.Lire(r.x0, r.y0, r.nx, r.ny, sortie.data() + i * 70 * 50 * 3, 70, 70 * 50);
      }
    };
    std::vector<float> seul, a, b;
    tout(seul);
    std::thread ta([&] { tout(a); }), tb([&] { tout(b); });
    ta.join();
    tb.join();
    EXPECT_TRUE(a == seul);
    EXPECT_TRUE(b == seul);
  }
}

// Sparse files as GDAL writes them (SPARSE_OK): blocks never written have 0 bytes, and read as the
// no-data value, else 0. Each case, made by GDAL with some blocks absent, read whole and by windows
// as GDAL reads it.
TEST(Fenetres, FichiersCreuxCommeGdal) {
  const std::string script =
      "import sys, numpy as np\n"
      "from osgeo import gdal\n"
      "out, typ, nd, opts = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]\n"
      "ds = gdal.GetDriverByName('GTiff').Create(out, 37, 29, 2, gdal.GetDataTypeByName(typ),\n"
      "                                          ['SPARSE_OK=TRUE'] + opts)\n"
      "y, x = np.mgrid[0:12, 0:20]\n"
      "for b in (1, 2):\n"
      "    band = ds.GetRasterBand(b)\n"
      "    if nd != '-': band.SetNoDataValue(float(nd))\n"
      "    band.WriteArray((x * 3 + y * 7 + b * 11 + 1).astype(np.float64), 17, 17)\n"
      "ds = None\n"
      "ds = gdal.Open(out)\n"
      "ds.ReadAsArray().astype(np.float64).tofile(out + '.bin')\n"
      "band = ds.GetRasterBand(1)\n"
      "bx, by = band.GetBlockSize()\n"
      "print(sum(1 for j in range((29 + by - 1) // by) for i in range((37 + bx - 1) // bx)\n"
      "          if not band.GetMetadataItem('BLOCK_SIZE_%d_%d' % (i, j), 'TIFF')))\n";
  test::DossierTemp dir;
  test::EcrireFichier(dir / "creux.py", script);
  const std::string tuiles = " TILED=YES BLOCKXSIZE=16 BLOCKYSIZE=16";
  const struct {
    std::string type, nodata, options;
  } cas[] = {
      {"Byte", "-", tuiles + " COMPRESS=DEFLATE"},
      {"UInt16", "65535", tuiles + " COMPRESS=LZW PREDICTOR=2"},
      {"Float32", "-9999", " BLOCKYSIZE=5 COMPRESS=ZSTD PREDICTOR=3"},
      {"Int16", "-7", tuiles + " COMPRESS=DEFLATE INTERLEAVE=BAND"},
      {"Float32", "nan", tuiles},
      {"Byte", "9", " BLOCKYSIZE=4"},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(c.type + " " + c.nodata + c.options);
    const test::Resultat r =
        test::Lancer(dir.chemin(), "/usr/bin/python3 creux.py c.tif " + c.type + " " + c.nodata + c.options);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    ASSERT_GT(std::stoi(r.sortie), 0) << "aucun bloc absent";
    std::vector<double> gdal(37 * 29 * 2);
    FILE* f = std::fopen((dir / "c.tif.bin").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(std::fread(gdal.data(), sizeof(double), gdal.size(), f), gdal.size());
    std::fclose(f);
    const auto pareil = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    const TTImage<double> image((dir / "c.tif").c_str());
    const LecteurFenetres l(dir / "c.tif");
    std::vector<double> fenetre(gdal.size());
    l.Lire(0, 0, 37, 29, fenetre.data(), 37, 37 * 29);
    int differences = 0;
    for (int b = 0; b < 2; ++b)
      for (int y = 0; y < 29; ++y)
        for (int x = 0; x < 37; ++x) {
          const size_t k = (static_cast<size_t>(b) * 29 + y) * 37 + x;
          differences += !pareil(image.GetLines(y)[x * 2 + b], gdal[k]) + !pareil(fenetre[k], gdal[k]);
        }
    EXPECT_EQ(differences, 0);
  }
}

// The malformed files end in an Erreur when opened or read window after window, as they do when read
// whole.
TEST(Fenetres, FichiersMalformes) {
  const std::string dossier = std::string(ZEPRA_SOURCE_DIR) + "/tests/image/malformes/";
  for (const std::string& n : test::Lignes(test::Lancer(dossier, "ls *.tif").sortie)) {
    const std::string texte = test::TexteErreur([&] {
      const LecteurFenetres l(dossier + n);
      const TPoint2D<int> t = l.Taille();
      std::vector<float> dest(16 * 16 * static_cast<size_t>(l.Canaux()));
      int lus = 0;
      for (int y = 0; y < t.y && lus < 20000; y += 16)
        for (int x = 0; x < t.x && lus < 20000; x += 16, ++lus)
          l.Lire(x, y, std::min(16, t.x - x), std::min(16, t.y - y), dest.data(), 16, 256);
    });
    EXPECT_NE(texte, "(pas d'Erreur)") << n;
  }
}

}  // namespace
