// A radiometric reference (--reference) on generated tiles whose truth is known: each tile with its own
// gain and offset over one map-wide gain ramp and offset ramp shared by all. Overlaps cannot see the
// shared part, and the mosaic keeps it without a reference; the truth as reference, at the tiles'
// pixel or four times coarser, brings the mosaic to the truth. The reference is never composed.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "outils_test.h"
#include "pipeline/gain_offset.h"
#include "pipeline/outils_pipeline.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/pipeline/mosaique.h"
#include "zepra/ttimage.h"

namespace {

using test::Grille;
using test::kBandes;
using test::kN;
using test::kPas;
using test::kRecouvrement;
using test::kX0;
using test::kY0;
using test::Verite;

constexpr int kLignes = 2, kColonnes = 3;
constexpr int kW = kColonnes * kN - (kColonnes - 1) * kRecouvrement;  // 400
constexpr int kH = kLignes * kN - (kLignes - 1) * kRecouvrement;      // 280

// The shared distortion, smooth over the whole block: a gain ramp along x and an offset ramp along y.
double Commune(int b, double x, double y) {
  return Verite(b, x, y) * (1 + 0.12 * (x / kW - 0.5)) + 16 * (y / kH - 0.5);
}

// An 8-bit tile of n x n pixels whose first pixel is pixel (c0, l0) of the block: the shared
// distortion, then its own gain and offset per band.
void EcrireTuile(const std::string& nom, int c0, int l0, int k, int n = kN) {
  OptionsEcriture o;
  o.tuile = 64;
  o.type = eUInt1;
  EcrivainGeoTIFF e(nom, o, TPoint2D<int>(n, n), kBandes, eFloat4, Grille(c0, l0));
  std::vector<float> ligne(static_cast<size_t>(n) * kBandes);
  for (int y = 0; y < n; ++y) {
    for (int x = 0; x < n; ++x)
      for (int b = 0; b < kBandes; ++b) {
        const double gain = 1 + 0.05 * std::sin(3.0 * k + b), offset = 10 * std::cos(2.0 * k - b);
        ligne[x * kBandes + b] = static_cast<float>(std::round(gain * Commune(b, c0 + x, l0 + y) + offset));
      }
    e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1);
  }
  e.Terminer();
}

std::vector<std::string> Tuiles(const std::string& dossier) {
  std::vector<std::string> noms;
  for (int i = 0; i < kLignes; ++i)
    for (int j = 0; j < kColonnes; ++j) {
      noms.push_back(dossier + "/t" + std::to_string(i) + std::to_string(j) + ".tif");
      EcrireTuile(noms.back(), j * (kN - kRecouvrement), i * (kN - kRecouvrement), i * kColonnes + j);
    }
  return noms;
}

// The truth as a float image of 'bandes' bands, 'facteur' times coarser than the tiles (each pixel
// the mean of the truth over it), from block pixel (c0, l0) over w x h block pixels, altered:
enum class Alteration {
  kAucune,
  kTrou,               // no-data (tagged -9999) in a band of columns across the block
  kTrouSansEtiquette,  // the same columns at -9999 with no tag: values that are not the ground
  kNuage,              // a bright square inside the first tile, away from its overlaps
};
void EcrireVerite(const std::string& nom, int c0, int l0, int w, int h, int facteur, int bandes = kBandes,
                  int epsg = 2154, Alteration alteration = Alteration::kAucune) {
  const bool trou = alteration == Alteration::kTrou;
  OptionsEcriture o;
  o.type = eFloat4;
  o.nodataPresent = trou;
  o.nodata = -9999;
  const int n = w / facteur, m = h / facteur;
  EcrivainGeoTIFF e(nom, o, TPoint2D<int>(n, m), bandes, eFloat4, Grille(c0, l0, kPas * facteur, epsg));
  std::vector<float> ligne(static_cast<size_t>(n) * bandes);
  std::vector<unsigned char> valide(n);
  for (int y = 0; y < m; ++y) {
    for (int x = 0; x < n; ++x) {
      const int X = c0 + x * facteur, Y = l0 + y * facteur;
      const bool colonnes = X >= 150 && X < 250, carre = X >= 20 && X < 60 && Y >= 20 && Y < 60;
      valide[x] = !(trou && colonnes);
      for (int b = 0; b < bandes; ++b) {
        double s = 0;
        for (int v = 0; v < facteur; ++v)
          for (int u = 0; u < facteur; ++u) s += Verite(b, X + u, Y + v);
        ligne[x * bandes + b] = static_cast<float>(s / (facteur * facteur));
        if (alteration == Alteration::kTrouSansEtiquette && colonnes) ligne[x * bandes + b] = -9999;
        if (alteration == Alteration::kNuage && carre) ligne[x * bandes + b] = 250;
      }
    }
    e.EcrireLignes(eFloat4, ligne.data(), ligne.size() * sizeof(float), 1, valide.data(), n);
  }
  e.Terminer();
}

// The solve itself: 3 x 3 tiles with distortions that share a common part (the blind spot), two more
// tiles overlapping each other far away, and the scene itself as a reference over the 3 x 3 block. The
// reference's correction is exactly the identity (its unknowns are not solved, not merely held), the
// block's corrections give the scene back map-wide trend included, and the far pair, which the
// reference does not reach, gets the very coefficients of a solve without it.
TEST(ReferenceMosaique, ResolutionAvecReference) {
  std::vector<test::Tuile> tuiles;
  for (int k = 0; k < 9; ++k) {
    std::vector<double> a(3), b(6);
    // Each tile's own part, then the part they share.
    const double ga[3] = {0.08, 0.02, 0.02}, gc[3] = {0.03, 0.02, 0};
    const double oa[6] = {15, 3, 3, 1.5, 1.5, 1.5}, oc[6] = {8, 4, 0, 2, 0, 0};
    for (int t = 0; t < 3; ++t) a[t] = ga[t] * (2 * test::Hasard(k, t, 5) - 1) + gc[t];
    for (int t = 0; t < 6; ++t) b[t] = oa[t] * (2 * test::Hasard(k, t, 6) - 1) + oc[t];
    tuiles.push_back(test::FaireTuile(k % 3 * 84, k / 3 * 84, 120, 120, a, b));
  }
  for (int k = 0; k < 2; ++k)
    tuiles.push_back(test::FaireTuile(400 + 84 * k, 0, 120, 120, {0.05 * k}, {9.0 * k}));
  const test::Donnees sans = test::ObserverBlocs(tuiles, 8);
  std::vector<test::Tuile> avec = tuiles;
  avec.push_back(test::FaireTuile(0, 0, 288, 288, {0}, {0}));
  const test::Donnees d = test::ObserverBlocs(avec, 8);
  const std::vector<test::Tuile> bloc(tuiles.begin(), tuiles.begin() + 9);
  // The correction's own model throughout, in which these tiles' correction is exact.
  ParametresGainOffset p;
  p.gainDistorsion = false;
  const ResultatGainOffset R0 = ResoudreGainOffset(sans.resumes, sans.obs, p);
  const test::Ecarts e0 = test::EcartsAuVrai(bloc, R0.corrections);
  // Without the reference, the common part stays: 15 grey levels as a map-wide surface here (0.25 of
  // the rest). With it, under 0.1 of either (0.02 and 0.04 measured).
  EXPECT_GT(e0.surface, 10.0);
  for (const bool ecarts : {true, false}) {
    SCOPED_TRACE(ecarts ? "moyennes et ecarts types" : "moyennes seules");
    ReferenceGainOffset ref;
    ref.image = 11;
    ref.ecarts = ecarts;
    const ResultatGainOffset R = ResoudreGainOffset(d.resumes, d.obs, p, {}, ref);
    EXPECT_TRUE(R.corrections[11].EstIdentite());
    EXPECT_EQ(R.images[11].groupe, R.images[0].groupe);
    const test::Ecarts e = test::EcartsAuVrai(
        bloc, std::vector<CorrectionGainOffset>(R.corrections.begin(), R.corrections.begin() + 9));
    EXPECT_LT(e.surface, 0.1) << e0.surface;
    EXPECT_LT(e.residu, 0.1) << e0.residu;
    for (size_t i = 9; i < 11; ++i) {
      EXPECT_NE(R.images[i].groupe, R.images[11].groupe);
      for (int t = 0; t < 6; ++t) {
        EXPECT_EQ(R.corrections[i].Gain(0)[t], R0.corrections[i].Gain(0)[t]) << i << " a." << t;
        EXPECT_EQ(R.corrections[i].Offset(0)[t], R0.corrections[i].Offset(0)[t]) << i << " b." << t;
      }
    }
  }
  ReferenceGainOffset hors;
  hors.image = 12;
  test::Refuse([&] { ResoudreGainOffset(d.resumes, d.obs, p, {}, hors); }, "[GainOffset] (Resoudre) ",
               {"Reference 12 pour 12 images"});
}

TEST(ReferenceMosaique, LaVeriteEnReferenceRameneLaMosaiqueALaVerite) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  // The truth beyond the tiles by 32 pixels on every side, at the tiles' pixel and 4 times coarser. With
  // it the mosaic comes within 0.6 grey level of the truth (the tiles' 8-bit rounding alone leaves about
  // 0.3; 0.40 measured), against 5.5 without, even after a global gain and offset fit. A reference
  // whose no-data (its tag) runs across the block anchors it as well: no-data is never a value.
  EcrireVerite(d / "verite.tif", -32, -32, kW + 64, kH + 64, 1);
  EcrireVerite(d / "verite4.tif", -32, -32, kW + 64, kH + 64, 4);
  EcrireVerite(d / "trou.tif", -32, -32, kW + 64, kH + 64, 1, kBandes, 2154, Alteration::kTrou);
  EcrireVerite(d / "nuage.tif", -32, -32, kW + 64, kH + 64, 1, kBandes, 2154, Alteration::kNuage);
  EcrireVerite(d / "faux.tif", -32, -32, kW + 64, kH + 64, 1, kBandes, 2154, Alteration::kTrouSansEtiquette);
  // A cloud in the reference is set aside block by block. Values that are not the ground across the
  // block (a fill with no no-data tag) make every pair with the reference differ: it is set aside,
  // named, and the tiles are solved as without it, their own pairs kept (a reference that overlaps
  // each tile more than its neighbours do must not make them look misplaced).
  const struct {
    const char* reference;
    bool ancre;             // else: solved as without a reference
    double max, maxAjuste;  // the mosaic's distance to the truth, raw and after a global gain and offset
    const char* avertissement;
  } cas[] = {{"verite.tif", true, 0.6, 0.6, nullptr},
             {"verite4.tif", true, 0.6, 0.6, nullptr},
             {"trou.tif", true, 0.6, 0.6, nullptr},
             {"nuage.tif", true, 0.6, 0.6, nullptr},
             {"faux.tif", false, 1e9, 0, "faux.tif ne montrent pas le meme contenu"},
             {"faux.tif", false, 1e9, 0,
              "faux.tif ne montre le contenu d'aucune image (bande(s) 1, 2, 3) : ces bandes sont egalisees "
              "sans elle."}};
  // Without a reference the shared ramps stay, even once the set's global level and contrast are fitted.
  ParametresMosaique p = test::Parametres(t, d / "sans.tif");
  JobMosaique sans(p);
  sans.Executer();
  const double sansAjuste = test::EcartALaVerite(d / "sans.tif", true);
  EXPECT_GT(sansAjuste, 4.0);
  EXPECT_EQ(sans.Rapport().avecReference, false);
  for (const auto& c : cas) {
    SCOPED_TRACE(c.reference);
    p = test::Parametres(t, d / "m.tif");
    p.reference = d / c.reference;
    JobMosaique job(p);
    job.Executer();
    // The mosaic's grid stays the tiles' union: the reference is not composed.
    const TTImage<float> m((d / "m.tif").c_str());
    EXPECT_EQ(m.iGetNbColonnes(), kW);
    EXPECT_EQ(m.iGetNbLignes(), kH);
    const double brut = test::EcartALaVerite(d / "m.tif", false),
                 ajuste = test::EcartALaVerite(d / "m.tif", true);
    if (c.ancre) {
      EXPECT_LT(brut, c.max);
      EXPECT_LT(ajuste, c.maxAjuste);
    } else {
      EXPECT_NEAR(ajuste, sansAjuste, 0.05 * sansAjuste);
    }
    // Reported as the reference, with the tiles' group; its correction is no input's.
    const RapportMosaique& r = job.Rapport();
    EXPECT_TRUE(r.avecReference);
    EXPECT_EQ(r.entrees.size(), t.size());
    EXPECT_EQ(r.reference.nom, d / c.reference);
    EXPECT_GT(r.reference.observations, 0);
    EXPECT_EQ(r.reference.groupe, r.entrees[0].groupe);
    const std::string json = job.RapportJson({});
    EXPECT_NE(json.find("\"reference\": {\"nom\": \"" + d / c.reference + "\""), std::string::npos) << json;
    const std::string avertissements = test::Avertissements(r);
    if (c.avertissement)
      EXPECT_NE(avertissements.find(c.avertissement), std::string::npos) << avertissements;
    else
      EXPECT_EQ(avertissements, "");
    // The tiles' own pairs are kept: every term of every tile is determined.
    EXPECT_EQ(avertissements.find("termes non determines"), std::string::npos) << avertissements;
  }
}

// The reference as GDAL makes it: gdalwarp resamples a truth written at the tiles' pixel, 40 pixels
// beyond the block on every side, to a coarser pixel (the mean of the pixels under each, a ratio of 2.5
// included) or to the same pixel (bilinear), on the truth's grid or with its origin shifted by half a
// reference pixel. Every such reference anchors the mosaic as the truth itself does: after a global
// gain and offset fit, within 0.45 grey level of the truth (the tiles' 8-bit rounding alone leaves about
// 0.3; 0.395 to 0.403 measured), where the mosaic without a reference stays over 4 away; raw, within 0.65
// (0.60 for the pixel of 4 shifted by 2, whose cells each average two pixels: a slightly smoother
// reference, whose contrast the tiles take). A reference whose pixels straddle the blocks' edges was
// compared over other ground than the tiles' (1.79 after the fit for the pixel of 4 shifted, 0.88 for
// the ratio of 2.5, 0.75 for the pixel of 1 shifted by half).
TEST(ReferenceMosaique, ReferenceReechantillonneeParGdalwarp) {
  test::DossierTemp d;
  if (test::Lancer(d.chemin(), "command -v gdalwarp").statut != 0) GTEST_SKIP() << "gdalwarp absent";
  const std::vector<std::string> t = Tuiles(d.chemin());
  constexpr int kMarge = 40;
  EcrireVerite(d / "verite.tif", -kMarge, -kMarge, kW + 2 * kMarge, kH + 2 * kMarge, 1);
  EcrireVerite(d / "trou.tif", -kMarge, -kMarge, kW + 2 * kMarge, kH + 2 * kMarge, 1, kBandes, 2154,
               Alteration::kTrou);
  // The truth's extent in metres.
  const double x0 = kX0 - kMarge * kPas, x1 = kX0 + (kW + kMarge) * kPas, y1 = kY0 + kMarge * kPas,
               y0 = kY0 - (kH + kMarge) * kPas;
  const struct {
    const char* nom;
    const char* methode;
    double facteur;  // the reference's pixel over the tiles'
    bool decale;     // origin shifted by half a reference pixel (the extent one pixel smaller)
    const char* source = "verite.tif";
  } cas[] = {
      {"moyenne1.tif", "average", 1, false},
      {"moyenne4.tif", "average", 4, false},
      {"moyenne2_5.tif", "average", 2.5, false},
      {"bilineaire1.tif", "bilinear", 1, false},
      {"moyenne4_decale.tif", "average", 4, true},
      {"moyenne2_5_decale.tif", "average", 2.5, true},
      {"moyenne1_decale.tif", "average", 1, true},
      {"bilineaire1_decale.tif", "bilinear", 1, true},
      // No-data (tagged) in a band of columns across the block: gdalwarp carries the tag, and the cells
      // its pixels do not cover whole are left out.
      {"trou2_5_decale.tif", "average", 2.5, true, "trou.tif"},
  };
  ParametresMosaique p = test::Parametres(t, d / "sans.tif");
  JobMosaique(p).Executer();
  EXPECT_GT(test::EcartALaVerite(d / "sans.tif", true), 4.0);
  for (const auto& c : cas) {
    SCOPED_TRACE(c.nom);
    const double pas = kPas * c.facteur, demi = c.decale ? pas / 2 : 0;
    std::ostringstream commande;
    commande.precision(12);
    commande << "gdalwarp -q -overwrite -r " << c.methode << " -tr " << pas << " " << pas << " -te "
             << x0 + demi << " " << y0 + demi << " " << x1 - demi << " " << y1 - demi << " " << c.source
             << " " << c.nom;
    const test::Resultat r = test::Lancer(d.chemin(), commande.str());
    ASSERT_EQ(r.statut, 0) << commande.str() << "\n" << r.sortie;
    p = test::Parametres(t, d / "m.tif");
    p.reference = d / c.nom;
    JobMosaique job(p);
    job.Executer();
    EXPECT_GT(job.Rapport().reference.observations, 0);
    EXPECT_EQ(job.Rapport().reference.groupe, job.Rapport().entrees[0].groupe);
    EXPECT_EQ(test::Avertissements(job.Rapport()), "");
    EXPECT_LT(test::EcartALaVerite(d / "m.tif", false), 0.65);
    EXPECT_LT(test::EcartALaVerite(d / "m.tif", true), 0.45);
  }
  // gdalwarp's mean over 4 x 4 pixels is the truth's own at that pixel, as the other tests make it.
  EcrireVerite(d / "verite4.tif", -kMarge, -kMarge, kW + 2 * kMarge, kH + 2 * kMarge, 4);
  const TTImage<float> a((d / "verite4.tif").c_str()), b((d / "moyenne4.tif").c_str());
  ASSERT_EQ(a.iGetNbColonnes(), b.iGetNbColonnes());
  ASSERT_EQ(a.iGetNbLignes(), b.iGetNbLignes());
  double plusGrand = 0;
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      for (int k = 0; k < kBandes; ++k)
        plusGrand = std::max<double>(plusGrand, std::fabs(a(x, y, k) - b(x, y, k)));
  EXPECT_LT(plusGrand, 1e-3);
}

// The phases of a cluster run give the same mosaic as one process: the reference is observed by the
// solving phase, and its file is part of the work folder's fingerprint.
TEST(ReferenceMosaique, EnPhasesLesMemesOctets) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  EcrireVerite(d / "verite4.tif", -32, -32, kW + 64, kH + 64, 4);
  ParametresMosaique p = test::Parametres(t, d / "un.tif");
  p.reference = d / "verite4.tif";
  JobMosaique(p).Executer();
  p.sortie = d / "phases.tif";
  const std::string travail = d / "travail";
  test::EnPhases(p, travail);
  EXPECT_EQ(test::LireFichier(d / "un.tif"), test::LireFichier(d / "phases.tif"));
  // Another reference is another job.
  EcrireVerite(d / "verite4.tif", -32, -32, kW + 64, kH + 64, 4, kBandes);
  std::filesystem::last_write_time(
      d / "verite4.tif", std::filesystem::last_write_time(d / "verite4.tif") + std::chrono::hours(1));
  test::Refuse([&] { JobMosaique(p).PhaseResoudre(travail); }, "", {"appartient a un autre calcul"});
}

// The reference observes a tile wherever it covers it, not only where other tiles do: a lone tile is
// anchored by the reference alone (100 blocks of 16), as are the inner parts of a block's tiles.
TEST(ReferenceMosaique, UneTuileSeuleAncreeParLaReference) {
  test::DossierTemp d;
  EcrireTuile(d / "seule.tif", 0, 0, 4);
  EcrireVerite(d / "verite.tif", -32, -32, kN + 64, kN + 64, 1);
  ParametresMosaique p = test::Parametres({d / "seule.tif"}, d / "m.tif");
  p.gainOffset.degreGain = p.gainOffset.degreOffset = 2;
  p.reference = d / "verite.tif";
  JobMosaique job(p);
  job.Executer();
  EXPECT_EQ(job.Rapport().reference.observations, 100);
  EXPECT_LT(test::EcartALaVerite(d / "m.tif", false), 1.0);
}

// Tiles that no chain of overlaps ties to the reference keep today's behaviour, and are named.
TEST(ReferenceMosaique, GroupesSansLaReferenceNommes) {
  test::DossierTemp d;
  std::vector<std::string> t = Tuiles(d.chemin());
  // Two more tiles overlapping each other, far to the right of the block and of the reference.
  for (int k = 0; k < 2; ++k) {
    t.push_back(d / ("loin" + std::to_string(k) + ".tif"));
    EcrireTuile(t.back(), 1000 + k * (kN - kRecouvrement), 0, 10 + k);
  }
  EcrireVerite(d / "verite.tif", 0, 0, kW, kH, 1);
  ParametresMosaique p = test::Parametres(t, d / "m.tif");
  p.reference = d / "verite.tif";
  JobMosaique job(p);
  job.Executer();
  const RapportMosaique& r = job.Rapport();
  const std::string avertissements = test::Avertissements(r);
  EXPECT_NE(avertissements.find("Les images " + d / "loin0.tif" + ", " + d / "loin1.tif" +
                                " ne sont reliees a la reference"),
            std::string::npos)
      << avertissements;
  EXPECT_EQ(avertissements.find("t00.tif"), std::string::npos) << avertissements;
  EXPECT_NE(r.entrees[0].groupe, r.entrees[6].groupe);
}

// Every refusal through the built tool: a message naming the file or the option, exit 2 for the
// command line, 1 for a run that cannot be done, and no mosaic.
TEST(ReferenceMosaique, RefusesNommees) {
  test::DossierTemp d;
  Tuiles(d.chemin());
  EcrireVerite(d / "verite.tif", 0, 0, kW, kH, 1);
  EcrireVerite(d / "une_bande.tif", 0, 0, kW, kH, 1, 1);
  EcrireVerite(d / "utm.tif", 0, 0, kW, kH, 1, kBandes, 32631);
  EcrireVerite(d / "grossiere.tif", 0, 0, kW, kH, 20);
  EcrireVerite(d / "ailleurs.tif", 4000, 4000, 64, 64, 1);
  const std::string tuiles = "t00.tif t01.tif t02.tif t10.tif t11.tif t12.tif -o m.tif ";
  const struct {
    const char* arguments;
    int statut;
    const char* message;
  } cas[] = {
      {"--reference absente.tif", 1, "La reference (--reference) absente.tif n'existe pas"},
      {"--reference utm.tif", 1, "--reference utm.tif est dans le systeme EPSG:32631"},
      {"--reference une_bande.tif", 1, "--reference une_bande.tif a 1 bande(s), les entrees 3"},
      {"--reference grossiere.tif", 1,
       "depasse les blocs de 16 pixels de la mosaique (8 x 8) ; donner --bloc 20"},
      {"--reference ailleurs.tif", 1, "--reference ailleurs.tif ne recouvre aucune entree"},
      {"--reference t01.tif", 2, "--reference t01.tif est aussi une image en entree"},
      {"--reference ./t01.tif", 1, "La reference (--reference) ./t01.tif est aussi l'image d'entree t01.tif"},
      {"--reference verite.tif --modele additif", 2, "seulement avec le modele gain-offset (pas additif)"},
      {"--reference verite.tif --noegal", 2, "--reference verite.tif : sans objet avec --noegal"},
      {"--reference", 2, "--reference"},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(c.arguments);
    const test::Resultat r = test::Egalise(d.chemin(), std::string("mosaique ") + tuiles + c.arguments);
    EXPECT_EQ(r.statut, c.statut) << r.sortie;
    EXPECT_NE(r.sortie.find(c.message), std::string::npos) << r.sortie;
    EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  }
  // A coarse reference is taken with the block it asks for.
  const test::Resultat r =
      test::Egalise(d.chemin(), "mosaique " + tuiles + "--reference grossiere.tif --bloc 20 --quiet");
  EXPECT_EQ(r.statut, 0) << r.sortie;
  EXPECT_TRUE(std::filesystem::exists(d / "m.tif"));
}

// With --masque-suffixe every input needs its exclusion mask (a missing one is a typo), but a reference
// from elsewhere seldom has one: without it nothing of it is excluded, as with a mask of zeros; with
// it, it is applied (a mask over the whole reference leaves it nothing to anchor: refused).
TEST(ReferenceMosaique, MasqueDExclusionFacultatif) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  EcrireVerite(d / "verite.tif", -32, -32, kW + 64, kH + 64, 1);
  const auto masque = [](const std::string& nom, int n, int m, float valeur) {
    OptionsEcriture o;
    o.type = eUInt1;
    EcrivainGeoTIFF e(nom, o, TPoint2D<int>(n, m), 1, eFloat4);
    const std::vector<float> ligne(n, valeur);
    for (int y = 0; y < m; ++y) e.EcrireLignes(eFloat4, ligne.data(), 0, 1);
    e.Terminer();
  };
  for (const std::string& n : t) masque(n.substr(0, n.size() - 4) + "_m.tif", kN, kN, 0);
  const auto lancer = [&](const std::string& sortie, const std::string& reference) {
    ParametresMosaique p = test::Parametres(t, d / sortie);
    p.masqueSuffixe = "_m.tif";
    p.reference = reference.empty() ? "" : d / reference;
    JobMosaique(p).Executer();
    return test::LireFichier(d / sortie);
  };
  const std::string sansMasque = lancer("a.tif", "verite.tif");
  masque(d / "verite_m.tif", kW + 64, kH + 64, 0);
  EXPECT_EQ(lancer("b.tif", "verite.tif"), sansMasque);
  EXPECT_LT(test::EcartALaVerite(d / "b.tif", true), 0.6);
  masque(d / "verite_m.tif", kW + 64, kH + 64, 1);
  test::Refuse([&] { lancer("c.tif", "verite.tif"); },
               "[Mosaique] (Reference) --reference " + d / "verite.tif", {"elle n'ancre rien"});
}

// The reference's pixel is checked against the block actually used: a block grown to fit the
// equalization's share of --memoire (made small here) may hold a pixel that 16 does not.
TEST(ReferenceMosaique, PixelAuPlusLeBlocUtilise) {
  test::DossierTemp d;
  const std::vector<std::string> t = Tuiles(d.chemin());
  EcrireVerite(d / "grossiere.tif", 0, 0, kW, kH, 20);
  ParametresMosaique p = test::Parametres(t, d / "m.tif");
  p.reference = d / "grossiere.tif";
  p.memoireMio = 16;
  test::Refuse([&] { JobMosaique j(p); }, "", {"depasse les blocs de 16 pixels"});
  // The largest share, by steps of a tenth, that makes the block grow.
  int bloc = 0;
  for (double part = 0.5; bloc == 0 && part > 1e-3; part *= 0.9) {
    p.partEgalisation = part;
    try {
      bloc = JobMosaique(p).Rapport().bloc;
    } catch (const Erreur& e) {
      ASSERT_NE(e.Phrase().find("depasse les blocs de 16 pixels"), std::string::npos) << e.Phrase();
    }
  }
  EXPECT_EQ(bloc, 32);
  JobMosaique job(p);
  job.Executer();
  EXPECT_EQ(job.Rapport().bloc, 32);
  EXPECT_GT(job.Rapport().reference.observations, 0);
  EXPECT_TRUE(std::filesystem::exists(d / "m.tif"));
}

}  // namespace
