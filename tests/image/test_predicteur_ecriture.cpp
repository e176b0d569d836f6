// Predictors of the writer against libtiff: a block predicted here, compressed by zlib (Python's),
// put in a TIFF file with its Predictor tag, is decoded by tiffcp to the samples we started from.
#include <gtest/gtest.h>

#include "image/outils_image_test.h"
#include "image/tiff/predicteur_ecriture.h"
#include "image/tiff/predicteurs.h"

namespace {

using test::DossierTemp;

template <class T>
void Verifier(const DossierTemp& dir, int predicteur, int canaux, int format) {
  SCOPED_TRACE(::testing::Message() << "predicteur " << predicteur << ", " << sizeof(T) * 8 << " bits, "
                                    << canaux << " canaux");
  const int largeur = 13, hauteur = 5;
  const TTImage<T> image = test::ImageMotif<T>(largeur, hauteur, canaux);
  std::string octets;
  for (int y = 0; y < hauteur; ++y)
    octets.append(reinterpret_cast<const char*>(image.GetLines()[y]), sizeof(T) * largeur * canaux);
  tiff::ContexteBloc c;
  c.nom = "bloc";
  c.largeur = largeur;
  c.hauteur = hauteur;
  c.echantillons = canaux;
  c.bits = 8 * sizeof(T);
  std::vector<unsigned char> travail;
  tiff::AppliquerPredicteur(predicteur, reinterpret_cast<unsigned char*>(octets.data()), c, travail);
  test::EcrireFichier(dir / "bloc", octets);
  ASSERT_EQ(test::Lancer(dir.chemin(),
                         "/usr/bin/python3 -c \"import zlib,sys; "
                         "sys.stdout.buffer.write(zlib.compress(open('bloc','rb').read()))\" > z")
                .statut,
            0);
  test::TiffTest t = test::TiffSimple(largeur, hauteur, canaux, test::LireFichier(dir / "z"));
  t.Court(258, std::vector<uint32_t>(canaux, 8 * sizeof(T)))
      .Court(259, {8})
      .Court(317, {static_cast<uint32_t>(predicteur)});
  t.Court(339, std::vector<uint32_t>(canaux, format));
  if (canaux == 2) t.Court(262, {1}).Court(338, {0});
  t.Ecrire(dir / "p.tif");
  ASSERT_EQ(test::Tiffcp(dir, "-c none", "p.tif", "n.tif"), "");
  EXPECT_TRUE(test::MemesEchantillons(image, TTImage<T>((dir / "n.tif").c_str())));
}

TEST(PredicteurEcriture, CommeLibtiff) {
  DossierTemp dir;
  for (int canaux : {1, 3}) {
    Verifier<unsigned char>(dir, 2, canaux, 1);
    Verifier<short>(dir, 2, canaux, 2);
    Verifier<unsigned int>(dir, 2, canaux, 1);
    Verifier<float>(dir, 2, canaux, 3);
    Verifier<double>(dir, 2, canaux, 3);
    Verifier<float>(dir, 3, canaux, 3);
    Verifier<double>(dir, 3, canaux, 3);
  }
  Verifier<unsigned short>(dir, 2, 2, 1);
  Verifier<float>(dir, 3, 2, 3);
}

TEST(PredicteurEcriture, Refus) {
  tiff::ContexteBloc c;
  c.nom = "m.tif";
  c.largeur = c.hauteur = 1;
  std::vector<unsigned char> travail, bloc(8);
  c.bits = 16;
  test::Refuse(
      [&] { tiff::AppliquerPredicteur(3, bloc.data(), c, travail); },
      "[Predicteur] (Appliquer) Predicteur 3 impossible pour des echantillons de 16 bits (fichier m.tif).");
  c.bits = 1;
  test::Refuse([&] { tiff::AppliquerPredicteur(2, bloc.data(), c, travail); },
               "[Predicteur] (Appliquer) Predicteur 2");
  c.bits = 8;
  test::Refuse([&] { tiff::AppliquerPredicteur(4, bloc.data(), c, travail); },
               "[Predicteur] (Appliquer) Predicteur 4");
}

// The reader undoes the horizontal predictor of 8-bit rows by groups of 16 bytes: rows predicted by the
// writer (checked against libtiff above) come back whole, for widths around the group's size and one
// to three samples per pixel.
TEST(PredicteurLecture, AllerRetourDesOctets) {
  for (int canaux : {1, 2, 3})
    for (int largeur : {1, 2, 15, 16, 17, 18, 31, 32, 33, 100, 256, 257}) {
      std::vector<unsigned char> ligne(static_cast<size_t>(largeur) * canaux);
      for (size_t k = 0; k < ligne.size(); ++k)
        ligne[k] = static_cast<unsigned char>((k * 7919 + 13) * 31 >> 3);
      std::vector<unsigned char> predite = ligne, travail;
      tiff::ContexteBloc c;
      c.nom = "ligne";
      c.largeur = largeur;
      c.hauteur = 1;
      c.echantillons = canaux;
      c.bits = 8;
      tiff::AppliquerPredicteur(2, predite.data(), c, travail);
      tiff::PostTraitement(2, 8, canaux, largeur, false).Appliquer(predite.data());
      EXPECT_EQ(predite, ligne) << largeur << " x " << canaux;
    }
}

}  // namespace
