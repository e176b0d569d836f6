// The RLE format: round trips through real files, hand-made files with known answers, the error
// texts, malformed files and the content judgement of the factory.
#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "image/handlers.h"
#include "image/rle.h"
#include "outils_image_test.h"

namespace {

using test::EcrireFichier;
using test::Refuse;
using test::TexteErreur;

// Little-endian bytes of a hand-made file.
struct Octets {
  std::string o;
  Octets& i32(int32_t v) { return Ajoute({static_cast<uint32_t>(v)}, 4); }
  Octets& u16(std::initializer_list<uint32_t> v) { return Ajoute(v, 2); }
  Octets& u8(std::initializer_list<uint32_t> v) { return Ajoute(v, 1); }
  Octets& Ajoute(std::initializer_list<uint32_t> v, int taille) {
    for (uint32_t x : v) o += test::Le(x, taille);
    return *this;
  }
  // The fixed header: stored size, zoom, type bytes, value offset.
  Octets& entete(int c, int l, int z, uint32_t typeValeurs, uint32_t typeLongueurs, int decalage) {
    return i32(c).i32(l).i32(z).u8({typeValeurs, typeLongueurs}).i32(decalage);
  }
};

// One stored line, zoom 1, its runs after the 22-byte header.
Octets UneLigne(int colonnes, int typeValeurs, int typeLongueurs, int decalage = 0) {
  return Octets().entete(colonnes, 1, 1, typeValeurs, typeLongueurs, decalage).i32(22);
}

// A file of 'lignes' stored lines, all pointing at one run of 2 columns of value 1 at byte 'debut'.
Octets Simple(int colonnes, int lignes, int zoom, int typeValeurs, int typeLongueurs, int debut = 22) {
  return Octets().entete(colonnes, lignes, zoom, typeValeurs, typeLongueurs, 0).i32(debut).u8({2, 1});
}

// 140000 columns: a run of 140000 (two maximal fields and the rest), exactly 65535 then short runs,
// one run per pixel, exactly 2 x 65535 then the rest. Values: the extremes, and for floating types
// NaN, and -0.0 next to 0.0, which a run coder comparing with == would merge or split.
template <class T>
TTImage<T> ImageDeRuns() {
  using L = std::numeric_limits<T>;
  const T v[] = {L::max(),    L::has_quiet_NaN ? L::quiet_NaN() : L::lowest(),
                 T(-0.0),     T(L::is_iec559 ? 0 : 1),
                 L::lowest(), T(100)};
  TTImage<T> im(140000, 4, TagNbCanaux(1));
  for (int x = 0; x < 140000; ++x) {
    im(x, 0) = v[0];
    im(x, 1) = x < 65535 ? v[1] : v[(x / (1 + x % 3)) % 6];
    im(x, 2) = v[(static_cast<size_t>(x) * 7919u) % 6];
    im(x, 3) = x < 131070 ? v[2] : v[3];
  }
  return im;
}

TEST(RLE, AllerRetourParFichierPourChaqueType) {
  test::DossierTemp dossier;
  test::PourNeufTypes([&](auto tag) {
    using T = typename decltype(tag)::type;
    SCOPED_TRACE(typeid(T).name());
    const std::string nom = dossier / "runs.rle";
    const TTImage<T> im = ImageDeRuns<T>();
    im.Sauver(nom.c_str());
    EXPECT_TRUE(test::MemesEchantillons(im, TTImage<T>(nom.c_str())));
    // Rectangles and steps against the same crops of the image in memory.
    const ImageFicIn fichier(nom.c_str());
    const int rects[][5] = {
        {65530, 0, 20, 4, 1}, {3, 1, 139995, 3, 7}, {131060, 0, 8940, 4, 3}, {0, 0, 140000, 4, 65536}};
    for (const auto& r : rects)
      EXPECT_TRUE(test::MemeCrop<T>(fichier, im, r[0], r[1], r[2], r[3], r[4])) << r[0] << " " << r[4];
  });
}

TEST(RLE, FichiersFaitsMainAvecReponsesConnues) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "main.rle";
  struct Cas {
    Octets o;
    TPoint2D<int> taille;
    std::vector<std::array<double, 3>> pixels;  // x, y, value
  };
  const Cas cas[] = {
      // Zoom 3, Int2 values, 16-bit lengths, lines at 26 and 34: -5 | 7, 7, 7 and 1, 1 | 2, 2. Every
      // stored column covers 3 columns, every stored line 3 lines.
      {Octets().entete(4, 2, 3, 51, 50, 0).i32(26).i32(34).u16({1, 0xFFFB, 3, 7, 2, 1, 2, 2}),
       {12, 6},
       {{2, 0, -5}, {3, 2, 7}, {11, 2, 7}, {0, 3, 1}, {5, 5, 1}, {6, 5, 2}}},
      // UInt1 values, 8-bit lengths, line 0 after the 22-byte header:
      // 255 + 45 = 300 of 4; exactly 255 ends with a 0 field: 255 of 5; 1 of 6.
      {UneLigne(556, 40, 40).u8({255, 45, 4, 255, 0, 5, 1, 6}),
       {556, 1},
       {{0, 0, 4}, {299, 0, 4}, {300, 0, 5}, {554, 0, 5}, {555, 0, 6}}},
      // Float4 values, 16-bit lengths: 65535 + 4465 columns of 2.75 (0x40300000), then a field of
      // 65534, below the largest: a whole run of -2.75.
      {UneLigne(135534, 71, 50).u16({65535, 4465}).i32(0x40300000).u16({65534}).i32(0xC0300000),
       {135534, 1},
       {{0, 0, 2.75}, {69999, 0, 2.75}, {70000, 0, -2.75}, {135533, 0, -2.75}}},
      // Offset 100: stored 0 reads 100, and on unsigned bytes 200 + 100 wraps to 44.
      {UneLigne(3, 40, 40, 100).u8({2, 0, 1, 200}), {3, 1}, {{0, 0, 100}, {1, 0, 100}, {2, 0, 44}}},
      // Length type byte 10: one byte per length, no continuation: 255 is a whole run. Int1 values.
      {UneLigne(256, 41, 10).u8({255, 0xFD, 1, 8}), {256, 1}, {{254, 0, -3}, {255, 0, 8}}},
      // Bool values hold no byte: the value is the offset alone.
      {UneLigne(4, 20, 40, 1).u8({4}), {4, 1}, {{3, 0, 1}}},
  };
  for (const Cas& c : cas) {
    EcrireFichier(nom, c.o.o);
    const TTImage<double> im(nom.c_str());
    ASSERT_EQ(im.GetTaille(), c.taille) << &c - cas;
    for (const auto& p : c.pixels)
      EXPECT_EQ(im(static_cast<int>(p[0]), static_cast<int>(p[1])), p[2])
          << "case " << &c - cas << " x = " << p[0];
  }
}

TEST(RLE, ErreursFichiersMalformesEtJugementSurLeContenu) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "m.rle",
                    open = "[ImageFicIn_RLE::Open(" + nom + ")] : ", run = "[ImageFicIn_RLE] (GetValeurs) ";
  // A continuation chain longer than the line stops at the first field that leaves it.
  const Octets chaine{UneLigne(300, 40, 50).o + std::string(80, '\xff')};
  // The bytes, the beginning of the Erreur of the RLE reader, and whether the factory declines them.
  struct Cas {
    Octets o;
    std::string message;
    bool decline;
  };
  const Cas cas[] = {
      // Length type 60, printed as '<'.
      {Simple(1, 1, 1, 40, 60), open + "codage des longueurs de run sur < octets non autorise", true},
      {Simple(1, 1, 1, 99, 40), "[InfoType] (ValType (int)) mauvaise valeur de type", true},
      {Simple(2, 1, 0, 40, 40), open + "taille stockee 2 x 1 et zoom 0", true},
      {Simple(2, 1, 1, 40, 40, 99), open + "ligne 0 : debut des runs a l'octet 99", true},
      {Simple(2, 1, 1, 40, 40, -4), open + "ligne 0 : debut des runs a l'octet -4", true},
      {Simple(2, 1000000, 1, 40, 40), open + "entete de 4000018 octets", true},
      {Simple(5000, 1, 1, 40, 40), open + "ligne 0 : 5000 colonnes ne tiennent pas", true},
      {Simple(2, 1, 1 << 30, 40, 40), open + "zoom 1073741824 sur 2 x 1", true},
      {Simple(2, 1, 1, 2, 40), open + "valeurs de type Autre : rien a lire", true},
      // Consistent, but far more pixels than its bytes can justify: an Erreur of its own.
      {Simple(2, 1, 40000, 40, 40), open + "image presentee de 80000 x 40000", false},
      // Accepted headers, corrupt runs.
      {Simple(3, 1, 1, 40, 40).u8({2, 1}), run + "Run depassant la ligne 0", false},
      {Simple(3, 1, 1, 40, 40).u8({0, 1}), run + "Run de longueur nulle", false},
      // The line ends before its 600 columns.
      {UneLigne(600, 40, 40).u8({255, 255, 1, 0, 1}), run + "Fin du fichier", false},
      {chaine, run + "Run depassant la ligne 0", false},
  };
  auto lireDirect = [&] {
    ImageFicIn_RLE r(nom);
    TTImage<double>().Crop(r, 0, 0, r.GetTaille().x, r.GetTaille().y);
  };
  for (const Cas& c : cas) {
    EcrireFichier(nom, c.o.o);
    Refuse(lireDirect, c.message);
    Refuse([&] { TTImage<double> im(nom.c_str()); },
           c.decline ? "[ImageFicIn] (Constructeur) Aucun gestionnaire" : c.message);
  }
  const std::string absent = dossier / "absent.rle";
  Refuse([&] { ImageFicIn_RLE r(absent); },
         "[ImageFicIn_RLE::Open(" + absent + ")] : Probleme a l'ouverture du fichier (Fichier : ");
  EcrireFichier(nom, Simple(2, 1, 1, 40, 40).o);
  char tampon[4];
  Refuse([&] { ImageFicIn_RLE(nom).RawRead(tampon, 4); },
         "[ImageFicIn_RLE] (RawRead) Appel a une methode impossible.");

  // The writer: one channel only, no raw write, a folder that does not exist. No file is left.
  Refuse([&] { TTImage<unsigned char>(4, 4, TagNbCanaux(3)).Sauver((dossier / "rvb.rle").c_str()); },
         "[ImageFicOut_RLE::SetNbCanaux(3)] images multi-canal non gerees (Fichier : ");
  ImageInfos infos;
  infos.taille = TPoint2D<int>(2, 2);
  Refuse([&] { ImageFicOut_RLE(dossier / "w.rle", infos).RawWrite(tampon, 4); },
         "ImageFicOut_RLE::RawWrite impossible");
  const std::string perdu = dossier / "nul/part.rle";
  Refuse([&] { ImageFicOut_RLE w(perdu, infos); },
         "[ImageFicOut_RLE::Open(" + perdu + ")] : Probleme a l'ouverture du fichier\n (Fichier : ");
  EXPECT_EQ(test::Lancer(dossier.chemin(), "ls").sortie, "m.rle\n");

  // A valid file cut anywhere never reads as an image.
  test::ImageMotif<short>(40, 3, 1).Sauver((dossier / "complet.rle").c_str());
  const std::string octets = test::LireFichier(dossier / "complet.rle");
  for (size_t n = 0; n < octets.size(); ++n) {
    EcrireFichier(nom, octets.substr(0, n));
    EXPECT_NE(TexteErreur([&] { TTImage<short> im(nom.c_str()); }), "(pas d'Erreur)") << n << " octets";
  }

  // Nothing, a PNM file, a TIFF header and directory entry, a folder: declined.
  for (const std::string& o : {std::string(), std::string("P5\n2 2\n255\nabcd"),
                               Octets().u8({'I', 'I', 42, 0}).i32(8).u16({12, 256, 3}).i32(1).i32(640).o +
                                   std::string(200, '\x07')}) {
    EcrireFichier(nom, o);
    EXPECT_EQ(CreateReader_RLE(nom), nullptr) << o;
  }
  EXPECT_EQ(CreateReader_RLE(dossier.chemin()), nullptr);
  // The bytes of a real RLE file are accepted whatever the name.
  const std::string autre = dossier / "masque.tif";
  EcrireFichier(autre, Simple(2, 1, 1, 40, 40).o);
  EXPECT_NE(CreateReader_RLE(autre), nullptr);
  EXPECT_EQ(TTImage<unsigned char>(autre.c_str())(1, 0), 1);
}

}  // namespace
