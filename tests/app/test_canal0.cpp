// The sub-commands read channel 0 of any file: run on files of several channels (RGB, RGBA, palette,
// two samples, planar floats), each command writes the same bytes and prints the same lines as on
// the files holding only that channel 0.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "image/outils_image_test.h"
#include "outils_test.h"
#include "pipeline/outils_radiometrie.h"

namespace {

// A way of storing channel 0 among others: 'ecrire' writes 'canal0' (one channel) as a file of
// several channels whose channel 0 it is, and as the one-channel file of the same sample type.
struct Forme {
  const char* nom;
  std::function<void(const TTImage<float>& canal0, const test::DossierTemp& dir, const std::string& nom,
                     bool seul)>
      ecrire;
};

template <class T>
void Canaux(const TTImage<float>& canal0, const std::string& chemin, int canaux) {
  TTImage<T> im(canal0.iGetNbColonnes(), canal0.iGetNbLignes(), TagNbCanaux(canaux));
  for (int y = 0; y < im.iGetNbLignes(); ++y)
    for (int x = 0; x < im.iGetNbColonnes(); ++x)
      for (int c = 0; c < canaux; ++c)
        im(x, y, c) =
            c == 0 ? Convertir<T, float>(canal0(x, y)) : static_cast<T>((x * 7 + y * 3 + c * 50) % 120);
  im.Sauver(chemin.c_str());
}

template <class T>
Forme Entrelacee(const char* nom, int canaux) {
  return {nom, [canaux](const TTImage<float>& c0, const test::DossierTemp& dir, const std::string& f,
                        bool seul) { Canaux<T>(c0, dir / f, seul ? 1 : canaux); }};
}

const std::vector<Forme> kFormes = {
    Entrelacee<unsigned char>("RVB 8 bits", 3),
    Entrelacee<unsigned char>("RVBA 8 bits", 4),
    Entrelacee<short>("deux echantillons 16 bits", 2),
    // Planar floats, rewritten by GDAL one plane after the other.
    {"flottants en plans",
     [](const TTImage<float>& c0, const test::DossierTemp& dir, const std::string& f, bool seul) {
       Canaux<float>(c0, dir / "plan.tif", seul ? 1 : 3);
       const test::Resultat r =
           test::Lancer(dir.chemin(), "gdal_translate -q -co INTERLEAVE=BAND -co COMPRESS=LZW plan.tif " + f);
       ASSERT_EQ(r.statut, 0) << r.sortie;
     }},
    // A palette whose red is the index: channel 0 is the index, as an 8-bit sample.
    {"palette",
     [](const TTImage<float>& c0, const test::DossierTemp& dir, const std::string& f, bool seul) {
       if (seul) return Canaux<unsigned char>(c0, dir / f, 1);
       std::string indices;
       for (int y = 0; y < c0.iGetNbLignes(); ++y)
         for (int x = 0; x < c0.iGetNbColonnes(); ++x)
           indices += static_cast<char>(Convertir<unsigned char>(c0(x, y)));
       std::vector<uint32_t> carte(768);
       for (int i = 0; i < 768; ++i) carte[i] = (i < 256 ? i : (i * 13) % 256) * 257u;
       test::TiffSimple(c0.iGetNbColonnes(), c0.iGetNbLignes(), 1, indices)
           .Court(262, {3})
           .Court(320, carte)
           .Ecrire(dir / f);
     }},
};

TEST(SousCommandes, CanalZeroDeToutFichier) {
  std::mt19937 g(7);
  const int w = 40, h = 14;
  const TTImage<float> image = test::ImageAleatoire(w, h, g, 20.0f, 230.0f),
                       reference = test::ImageAleatoire(w, h, g, 20.0f, 230.0f),
                       gain = test::ImageAleatoire(w, h, g, 1.0f, 3.0f),
                       offset = test::ImageAleatoire(w, h, g, 1.0f, 50.0f);
  TTImage<float> masque(w, h, 0.0f), masqueRef = masque;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      masque(x, y) = (x * 5 + y * 3) % 7 < 5 ? 1.0f : 0.0f;
      masqueRef(x, y) = x >= 4 ? 1.0f : 0.0f;
    }
  const std::pair<const char*, const TTImage<float>*> fichiers[] = {
      {"i.tif", &image},      {"m.tif", &masque}, {"r.tif", &reference},
      {"mr.tif", &masqueRef}, {"g.tif", &gain},   {"o.tif", &offset}};
  const std::pair<const char*, std::vector<const char*>> commandes[] = {
      {"PrelisseWalis:Moy i.tif m.tif", {"imreet.tif"}},
      {"PrelisseWalis:Poly i.tif m.tif", {"imreet.tif"}},
      {"WalisImageReference i.tif m.tif r.tif mr.tif", {"imfin.tif"}},
      {"AppliqueGainOffset i.tif g.tif o.tif", {"res.tif"}},
      {"ModelePolynomialMonoImage i.tif m.tif", {"res.tif", "fout.txt"}},
      {"ModelePolynomialMultiImages i.tif m.tif r.tif mr.tif", {"i.tifres.tif", "r.tifres.tif", "fout.txt"}},
      {"MoyMasque i.tif m.tif 3", {"imlisse.tif"}},
      {"Stats i.tif m.tif", {"moy.tif", "stdev.tif"}},
      {"GainOffsetWalis i.tif m.tif", {"imreet.tif"}},
  };
  for (const Forme& forme : kFormes) {
    SCOPED_TRACE(forme.nom);
    test::DossierTemp seul, plusieurs;
    for (const auto& [nom, im] : fichiers) {
      forme.ecrire(*im, seul, nom, true);
      forme.ecrire(*im, plusieurs, nom, false);
    }
    for (const auto& [arguments, sorties] : commandes) {
      SCOPED_TRACE(arguments);
      const test::Resultat a = test::Egalise(seul.chemin(), arguments),
                           b = test::Egalise(plusieurs.chemin(), arguments);
      EXPECT_EQ(a.statut, 0) << a.sortie << test::LireFichier(seul / "log.txt");
      EXPECT_EQ(b.statut, 0) << b.sortie << test::LireFichier(plusieurs / "log.txt");
      EXPECT_EQ(a.sortie, b.sortie);
      for (const char* sortie : sorties) {
        const std::string attendu = test::LireFichier(seul / sortie);
        EXPECT_FALSE(attendu.empty()) << sortie;
        EXPECT_TRUE(attendu == test::LireFichier(plusieurs / sortie)) << sortie;
      }
    }
  }
}

}  // namespace
