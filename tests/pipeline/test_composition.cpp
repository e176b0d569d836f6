// Composition by the four fusion rules against a pixel-by-pixel composition written here from their
// description: several bands, no data, masks, inputs of different sizes and a coarser output grid; the
// result the same whatever the band height and the thread count.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "zepra/orientation.h"
#include "zepra/pipeline/composition.h"
#include "zepra/pipeline/parallele.h"

namespace {

// Three inputs of two bands on a 1 m grid, with holes (0 in either band) and masked pixels.
struct Jeu {
  std::vector<TTImage<float>> images;
  std::vector<TTImage<bool>> masques;
  std::vector<OrientationOld> oris;
};
Jeu FaireJeu() {
  Jeu j;
  const int w[3] = {21, 16, 20}, h[3] = {12, 14, 9};
  const double x0[3] = {500, 511, 505}, y0[3] = {800, 796, 806};
  for (int i = 0; i < 3; ++i) {
    TTImage<float>& im = j.images.emplace_back(w[i], h[i], TagNbCanaux(2));
    TTImage<bool>& m = j.masques.emplace_back(w[i], h[i], false);
    for (int y = 0; y < h[i]; ++y)
      for (int x = 0; x < w[i]; ++x) {
        im(x, y, 0) = static_cast<float>(10 * (i + 1) + x * 0.5 - y * 0.25);
        im(x, y, 1) = static_cast<float>(100 - 7 * i + (x * y) % 5);
        if ((x + y + i) % 9 == 0) im(x, y, x % 2) = 0.0f;  // no data in one band
        m(x, y) = (2 * x + y) % 11 == 0;
      }
    j.oris.emplace_back(eORICarto, x0[i], y0[i], 0, w[i], h[i], 1.0, 1.0);
  }
  return j;
}

// Keeps what the composition writes, rows arriving from several threads.
class Releve : public PuitsLignes {
 public:
  Releve(int w, int h) : valeurs(w, h, TagNbCanaux(2)), couvert(w, h, TagNbCanaux(1)) {}
  void Ecrire(int bande, int y, const float* v) override {
    for (int x = 0; x < valeurs.iGetNbColonnes(); ++x) valeurs(x, y, bande) = v[x];
  }
  void Couverture(int y, const unsigned char* c) override {
    for (int x = 0; x < couvert.iGetNbColonnes(); ++x) couvert(x, y) = c[x];
  }
  TTImage<float> valeurs;
  TTImage<unsigned char> couvert;
};

// The rule applied pixel by pixel as described: each output pixel's corner mapped into each input in
// input order through the orientation, truncated toward zero; a contribution where the input pixel
// is inside, non-zero in both bands and not masked.
Releve Attendu(const Jeu& j, const OrientationOld& sortie, const std::string& regle) {
  const int W = static_cast<int>(sortie.GetNs()), H = static_cast<int>(sortie.GetNl());
  Releve r(W, H);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      double X, Y, Z, col, lin, z;
      sortie.PhotoToMap(x, y, X, Y, Z);
      float somme[2] = {0, 0}, v[2] = {0, 0};
      unsigned n = 0, gardee = 0;
      for (int i = 0; i < 3; ++i) {
        j.oris[i].MapToPhoto(X, Y, 0.0, col, lin, z);
        const TTImage<float>& im = j.images[i];
        if (!(col > -1 && col < im.iGetNbColonnes() && lin > -1 && lin < im.iGetNbLignes())) continue;
        const int c = static_cast<int>(col), l = static_cast<int>(lin);
        if (im(c, l, 0) == 0 || im(c, l, 1) == 0 || j.masques[i](c, l)) continue;
        if (regle == "voronoi") {
          const unsigned d = static_cast<unsigned>(std::sqrt(std::pow(c - im.iGetNbColonnes() / 2.0, 2) +
                                                             std::pow(l - im.iGetNbLignes() / 2.0, 2)));
          if (n > 0 && gardee != 0 && d > gardee) continue;
          gardee = d;
        }
        for (int b = 0; b < 2; ++b) {
          const float u = im(c, l, b);
          somme[b] += u;
          if (regle == "voronoi" || n == 0)
            v[b] = u;
          else if (regle == "min")
            v[b] = std::min(v[b], u);
          else if (regle == "max")
            v[b] = std::max(v[b], u);
        }
        ++n;
      }
      r.couvert(x, y) = n > 0;
      for (int b = 0; b < 2; ++b)
        r.valeurs(x, y, b) = regle == "moyenne" ? (n ? somme[b] / static_cast<float>(n) : 0.0f) : v[b];
    }
  return r;
}

TEST(Composition, QuatreReglesContreLeurDescriptionParBandesEtFils) {
  const Jeu j = FaireJeu();
  std::vector<std::unique_ptr<SourceMemoire>> sources;
  std::vector<ImageComposee> images;
  for (int i = 0; i < 3; ++i) {
    sources.push_back(std::make_unique<SourceMemoire>(j.images[i], &j.images[i], &j.masques[i]));
    images.push_back(ImageComposee{sources.back().get(), GeoCarto(j.oris[i])});
  }
  // The inputs' grid, and a coarser one shifted by a fraction of a pixel.
  for (const OrientationOld& sortie : {OrientationOld(eORICarto, 499, 807, 0, 30, 26, 1.0, 1.0),
                                       OrientationOld(eORICarto, 500.3, 806.6, 0, 14, 12, 2.0, 2.0)}) {
    const GeoCarto geo(sortie);
    for (const LigneFusion& f : TableFusions()) {
      // The historical rules; plume weighs by distances this test does not model.
      if (!f.creer || f.nom == std::string("plume") || f.nom == std::string("multibande")) continue;
      const Releve attendu = Attendu(j, sortie, f.nom);
      EXPECT_GT(std::count(attendu.couvert.begin(), attendu.couvert.end(), 0), 0);
      for (const auto& [lignes, fils] : {std::pair(64, 1), {1, 2}, {5, 2}, {7, 3}}) {
        FixerNbFils(fils);
        Releve r(geo.colonnes, geo.lignes);
        Composer(images, geo, *f.creer(ParametresFusion()), r, lignes);
        FixerNbFils(0);
        EXPECT_TRUE(test::MemesPixels(r.valeurs, attendu.valeurs)) << f.nom << " " << lignes << " lignes";
        EXPECT_TRUE(std::equal(r.couvert.begin(), r.couvert.end(), attendu.couvert.begin())) << f.nom;
      }
    }
  }
  // Inputs of different band counts are refused.
  const TTImage<float> petite(3, 3, TagNbCanaux(1));
  const SourceMemoire uneBande(petite);
  images[2].source = &uneBande;
  Releve r(5, 5);
  test::Refuse(
      [&] { Composer(images, GeoCarto(j.oris[0]), *TableFusions()[0].creer(ParametresFusion()), r); },
      "[Composition] (Composer) Les images n'ont pas toutes 2 bandes.");
}

TEST(Composition, TablesDesReglesEtDesModeles) {
  // Every rule has its factory; only multi-band blending asks for whole windows.
  for (const LigneFusion& f : TableFusions()) {
    ASSERT_TRUE(f.creer) << f.nom;
    EXPECT_EQ(f.creer(ParametresFusion())->Pyramide(), f.nom == std::string("multibande")) << f.nom;
  }
  EXPECT_EQ(ChercherFusion("moyen"), nullptr);
}

}  // namespace
