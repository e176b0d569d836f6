// The equalization quality benchmark: for each preset, the tiles written as the compatibility driver
// reads them, that driver run without correction and with its two models, the new model and blendings
// run in memory, every mosaic measured against the known truth. Prints markdown tables.
//
//   qualite_egalisation <egalise> <work folder> [--preset NAME] [--tirage K] [--bruit-tirage K] [--tuiles N]
//                       [--niveaux]
//                       [--ecart] [--commun] [--balayage] [--fusions] [--inverse] [--apercu FOLDER]
//                       [--reference F[,F...] [--reference-biaisee]]
//                       [--essai "bloc=16 rigidite=1e-6 degres=1/2 ecarts=1 iterations=6 fraction=0.9
//                                  pentes=10 courbures=3 formes_gain=30 appris=1 distorsion=1 plume=60
//                                  fusion=plume echelle_tenue=0 tukey=4.685 reponderation=1 vrais=0"]
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>

#include "apercu_png.h"
#include "etirement.h"
#include "lire_options.h"
#include "mesures.h"
#include "pipeline/base_polynome.h"
#include "presets.h"
#include "zepra/pipeline/mosaique.h"

#include <Eigen/Dense>

namespace {

constexpr const char* kProgramme = "qualite_egalisation";

void Usage() {
  std::cout << kProgramme
            << " <egalise> <dossier de travail> [--preset NOM] [--tirage K] [--bruit-tirage K] [--tuiles N] "
               "[--niveaux] [--ecart] [--commun] [--balayage] [--fusions] [--inverse] [--apercu DOSSIER] "
               "[--reference F[,F...] [--reference-biaisee]] [--essai \"cle=valeur ...\"]"
            << std::endl;
}

// The compatibility driver's runs: name, options, mosaic.
struct ModeleCompatibilite {
  const char *nom, *options, *mosaique;
};
const ModeleCompatibilite kModelesCompatibilite[] = {
    {"sans correction", "--noegal", "m_sans.tif"},
    {"additif (compatibilite)", "", "m_additif.tif"},
    {"multiplicatif (compatibilite)", "--modele:multiplicatif", "m_multiplicatif.tif"}};

std::string NomTuile(size_t i) { return "tuile_" + std::to_string(i) + ".tif"; }

struct Jeu {
  Preset preset;
  std::string dossier;
  std::vector<TuileMemoire> tuiles;
  Verite verite;
};

Jeu Ecrire(const Preset& preset, const std::string& racine) {
  const ParametresDemo p = GrilleScene();
  Jeu j;
  j.preset = preset;
  j.dossier = racine + "/" + preset.nom;
  std::system(("rm -rf '" + j.dossier + "' && mkdir -p '" + j.dossier + "'").c_str());
  for (size_t i = 0; i < preset.tuiles.size(); ++i) {
    const TuileQualite& t = preset.tuiles[i];
    const TTOrientedImage<unsigned char> image = GenererTuileQualite(p, t);
    image.Sauver((j.dossier + "/Ort_" + NomTuile(i)).c_str());
    if (preset.masques) MasqueExclusion(t).Sauver((j.dossier + "/Incid_" + NomTuile(i)).c_str());
    TuileMemoire m;
    m.def = t;
    m.pixels = image;
    m.valide.resize(static_cast<size_t>(t.largeur) * t.hauteur);
    for (int l = 0; l < t.hauteur; ++l)
      for (int c = 0; c < t.largeur; ++c)
        m.valide[static_cast<size_t>(l) * t.largeur + c] = image.GetLines(l)[c] != 0 && !t.Exclu(c, l);
    j.tuiles.push_back(std::move(m));
  }
  j.verite = FaireVerite(p, j.tuiles);
  return j;
}

// A float image file as a mosaic of the truth's size (what it lacks is no data).
Mosaique LireMosaique(const std::string& chemin, int largeur, int hauteur) {
  const TTImage<float> f(chemin.c_str());
  Mosaique m;
  m.largeur = largeur;
  m.hauteur = hauteur;
  m.v.assign(static_cast<size_t>(largeur) * hauteur, 0.0f);
  for (int l = 0; l < std::min(hauteur, f.iGetNbLignes()); ++l)
    for (int c = 0; c < std::min(largeur, f.iGetNbColonnes()); ++c)
      m.v[static_cast<size_t>(l) * largeur + c] = f(c, l);
  return m;
}

struct Resultat {
  std::string methode;
  Mosaique mosaique;
  std::vector<std::vector<float>> tuiles;  // corrected values
  std::vector<uint64_t> ensembles;
  Mesures m;
  double recouvrement = 0;
};

// The compatibility driver on the tiles; false when it wrote no mosaic.
bool LancerCompatibilite(const std::string& egalise, const Jeu& j, const ModeleCompatibilite& modele,
                         Resultat& r) {
  std::string commande = "cd '" + j.dossier + "' && '" + egalise + "'";
  for (size_t i = 0; i < j.tuiles.size(); ++i) commande += " " + NomTuile(i);
  const std::string sortie = modele.mosaique;
  commande += " --ssechfinal 1 --pas 10 --output " + sortie + " " + modele.options + " > /dev/null 2>&1";
  r.methode = modele.nom;
  if (std::system(commande.c_str()) != 0) return false;
  struct stat s;
  if (stat((j.dossier + "/" + sortie).c_str(), &s) != 0) return false;
  r.mosaique = LireMosaique(j.dossier + "/" + sortie, j.verite.largeur, j.verite.hauteur);
  const bool sans = std::string(modele.options) == "--noegal";
  for (size_t i = 0; i < j.tuiles.size(); ++i) {
    const TTImage<float> t((j.dossier + "/" + (sans ? "Ort_" : "Solution_") + NomTuile(i)).c_str());
    r.tuiles.emplace_back(t.begin(), t.end());
  }
  r.ensembles =
      Ensembles(j.tuiles, ValiditeDilatee(j.tuiles, j.preset.masques), j.verite.largeur, j.verite.hauteur);
  return true;
}

std::vector<std::vector<unsigned char>> Validites(const Jeu& j) {
  std::vector<std::vector<unsigned char>> v;
  for (const TuileMemoire& t : j.tuiles) v.push_back(t.valide);
  return v;
}

Resultat LancerNouveau(const Jeu& j, const Reglages& r, const std::string& nom,
                       const std::vector<std::vector<float>>* poids = nullptr) {
  Resultat res;
  res.methode = nom;
  res.tuiles = CorrigerGainOffset(j.tuiles, r);
  const std::vector<std::vector<float>> p =
      poids ? *poids : PoidsPlumes(j.tuiles, r.fusion == Fusion::moyenne ? 0.0 : r.plume);
  res.mosaique = Composer(j.tuiles, res.tuiles, p, j.verite.largeur, j.verite.hauteur, r);
  res.ensembles = Ensembles(j.tuiles, Validites(j), j.verite.largeur, j.verite.hauteur);
  return res;
}

// The truth as a radiometric reference (--reference), f times coarser: each pixel the truth's mean over
// it, no data where some of it is not covered (outside the tiles, the cloud's footprint). Biased
// (--reference-biaisee), as a real one is: another sensor's response (0.9 t + 8) and its own smooth
// field of map position (an offset ramp of +-6 along x, a bowl of 4 along y).
Reglages AvecReference(const Jeu& j, Reglages r, int f, bool biaisee = false) {
  const Verite& v = j.verite;
  r.referenceFacteur = f;
  r.referenceLargeur = v.largeur / f;
  r.referenceHauteur = v.hauteur / f;
  r.reference.assign(static_cast<size_t>(r.referenceLargeur) * r.referenceHauteur, std::nanf(""));
  for (int l = 0; l < r.referenceHauteur; ++l)
    for (int c = 0; c < r.referenceLargeur; ++c) {
      double s = 0;
      bool couverte = true;
      for (int y = l * f; y < (l + 1) * f; ++y)
        for (int x = c * f; x < (c + 1) * f; ++x) {
          const size_t k = static_cast<size_t>(y) * v.largeur + x;
          couverte = couverte && v.couverte[k];
          s += v.T[k];
        }
      if (!couverte) continue;
      double t = s / (f * f);
      if (biaisee) {
        const double u = (c + 0.5) / r.referenceLargeur, w = (l + 0.5) / r.referenceHauteur;
        t = 0.9 * t + 8 + 6 * (2 * u - 1) + 4 * (2 * w - 1) * (2 * w - 1);
      }
      r.reference[static_cast<size_t>(l) * r.referenceLargeur + c] = static_cast<float>(t);
    }
  return r;
}

// References for what a correction can reach:
//  - defaites: each tile with its known distortion undone (only the noise is left);
//  - ajustees: each tile corrected by the best degree-2 gain and offset fitted against the truth (the
//    floor of the model itself);
//  - aveugle: the known distortions undone up to what overlaps cannot see, one degree-2 gain and one
//    degree-2 offset surface of map position per connected group, estimated at best: the surfaces that
//    make the tiles' fields the likeliest under the generator's own distribution (levels, slopes at half
//    and curvatures at a quarter of the amplitude; a generalised least-squares fit, as if the fields
//    were Gaussian). A yardstick for what the blind spot allows, not a strict bound: on one draw luck
//    may beat it, and with the fields drawn uniformly a method may come slightly below it on average. A
//    field every tile has alike (the shared vignetting) is not drawn, so it is taken as known.
//  - recouvrements: each tile's fields at their likeliest given only what overlaps measure (below), in
//    one of the variants of kVariantesOracle.
enum class Reference { defaites, ajustees, aveugle, recouvrements };

// The overlaps' oracle (recouvrements), as is (the first) or made more like the gain-offset model, one
// difference at a time, to find where the model's gap to it comes from (--ecart): the gain's slopes and
// curvatures 30 times dearer in the prior (the model's poidsFormesGain); the estimated fields turned
// into the model's kind of correction, a v + b with a and b of degree 2 fitted to their inverse over
// each tile's valid pixels (polynome), then one constant gain and offset bringing the set's mean and
// local contrast (mean deviation inside 16 x 16 blocks) back to the inputs' (constante); the posterior
// mean given, as the model constrains, that the tiles' mean gain field, projected on degree-2 fields of
// map position, is 0 (all tiles taken as one group); the prior's precisions of every gain (or offset)
// coefficient divided or multiplied by 3, as a learnt prior might be off.
struct VarianteOracle {
  const char* nom;
  double formesGain = 1;
  bool gainMoyenNul = false;
  double echelleGain = 1, echelleOffset = 1;
  bool polynome = false, constante = false;
  // A gain field the preset does not draw (none, or the shared lens) taken as unknown, with the prior of
  // a field drawn within +-gainInconnu (0: known, as drawn).
  double gainInconnu = 0;
  // A prior shared by the tiles (0: independent): every tile's coefficients are a common vector mu plus
  // a deviation, the deviation with the generator's spread (ecartInconnu times gainInconnu's for the
  // gain not drawn), mu with commun times one tile's spread.
  double commun = 0, ecartInconnu = 1;
  bool offsetCommun = true;  // the offsets' prior shared too, or the gains' only
};
const VarianteOracle kVariantesOracle[] = {
    {"reference : meilleure estimation des recouvrements"},
    {"reference : recouvrements, formes du gain 30 fois plus cheres", 30},
    {"reference : recouvrements, corrige en a v + b", 1, false, 1, 1, true},
    {"reference : recouvrements, a v + b, moyenne et contraste gardes", 1, false, 1, 1, true, true},
    {"reference : recouvrements, gain moyen nul", 1, true},
    {"reference : recouvrements, formes du gain 30 fois plus cheres, gain moyen nul", 30, true},
    {"reference : recouvrements, precisions des gains / 3", 1, false, 1 / 3.0},
    {"reference : recouvrements, precisions des gains x 3", 1, false, 3},
    {"reference : recouvrements, precisions des offsets / 3", 1, false, 1, 1 / 3.0},
    {"reference : recouvrements, precisions des offsets x 3", 1, false, 1, 3}};

// The precision of a field's coefficients 1, u, v, u2, uv, v2 relative to its constant's: the generator
// draws slopes at half and curvatures at a quarter of the constant's amplitude.
const Eigen::Matrix<double, 6, 1> kPrecisionRelative =
    (Eigen::Matrix<double, 6, 1>() << 1, 4, 4, 16, 16, 16).finished();

// The tiles' fields with the likeliest map-wide surfaces added, one group of overlapping tiles at a time.
std::vector<TuileQualite> ChampsAveugles(const std::vector<TuileMemoire>& tuiles) {
  const size_t n = tuiles.size();
  std::vector<TuileQualite> d;
  for (const TuileMemoire& t : tuiles) d.push_back(t.def);
  std::vector<size_t> groupe(n);
  for (size_t i = 0; i < n; ++i) groupe[i] = i;
  const auto racine = [&](size_t i) {
    while (groupe[i] != i) i = groupe[i];
    return i;
  };
  for (size_t i = 0; i < n; ++i)
    for (size_t k = i + 1; k < n; ++k)
      if (d[i].colonne0 < d[k].colonne0 + d[k].largeur && d[k].colonne0 < d[i].colonne0 + d[i].largeur &&
          d[i].ligne0 < d[k].ligne0 + d[k].hauteur && d[k].ligne0 < d[i].ligne0 + d[i].hauteur)
        groupe[std::max(racine(i), racine(k))] = std::min(racine(i), racine(k));
  const Eigen::Matrix<double, 6, 1>& precision = kPrecisionRelative;
  for (size_t r = 0; r < n; ++r) {
    if (racine(r) != r) continue;
    double X0 = 1e300, X1 = -1e300, Y0 = 1e300, Y1 = -1e300;
    for (size_t i = 0; i < n; ++i)
      if (racine(i) == r) {
        X0 = std::min(X0, static_cast<double>(d[i].colonne0));
        X1 = std::max(X1, static_cast<double>(d[i].colonne0 + d[i].largeur));
        Y0 = std::min(Y0, static_cast<double>(d[i].ligne0));
        Y1 = std::max(Y1, static_cast<double>(d[i].ligne0 + d[i].hauteur));
      }
    // Each tile's local coefficients of the map monomials 1, X, Y, X2, XY, Y2 (X, Y normalised over the
    // group), with X = a u + b and Y = c v + e in the tile's normalised position.
    std::vector<Eigen::Matrix<double, 6, 6>> T(n);
    Eigen::Matrix<double, 6, 6> H = Eigen::Matrix<double, 6, 6>::Zero();
    for (size_t i = 0; i < n; ++i) {
      if (racine(i) != r) continue;
      const double hx = (X1 - X0) / 2, hy = (Y1 - Y0) / 2;
      const double a = d[i].largeur / 2.0 / hx, b = (d[i].largeur / 2.0 + d[i].colonne0 - X0 - hx) / hx;
      const double c = d[i].hauteur / 2.0 / hy, e = (d[i].hauteur / 2.0 + d[i].ligne0 - Y0 - hy) / hy;
      double M[6][6];
      base_polynome::MonomesAffines(a, b, c, e, M);
      T[i] = Eigen::Map<const Eigen::Matrix<double, 6, 6, Eigen::RowMajor>>(&M[0][0]).transpose();
      H += T[i].transpose() * precision.asDiagonal() * T[i];
    }
    for (const bool gain : {false, true}) {
      // A field the preset gives every tile alike (a shared vignetting) is not drawn: it is known.
      bool commun = true;
      for (size_t i = 0; i < n; ++i)
        for (int k = 0; k < 6; ++k)
          commun = commun && (gain ? d[i].gain.c[k] == d[0].gain.c[k] : d[i].offset.c[k] == d[0].offset.c[k]);
      if (commun) continue;
      Eigen::Matrix<double, 6, 1> g = Eigen::Matrix<double, 6, 1>::Zero();
      for (size_t i = 0; i < n; ++i)
        if (racine(i) == r)
          g += T[i].transpose() * precision.asDiagonal() *
               Eigen::Map<const Eigen::Matrix<double, 6, 1>>(gain ? d[i].gain.c : d[i].offset.c);
      const Eigen::Matrix<double, 6, 1> P = -H.ldlt().solve(g);
      for (size_t i = 0; i < n; ++i)
        if (racine(i) == r)
          Eigen::Map<Eigen::Matrix<double, 6, 1>>(gain ? d[i].gain.c : d[i].offset.c) += T[i] * P;
    }
  }
  return d;
}

// An oracle of what overlaps can tell: every tile's 12 field coefficients estimated from the differences
// of two tiles' means over the 16 x 16 map blocks both hold valid (90 % of the block at least, none of
// it under a cloud), knowing the scene (a difference is then linear in the coefficients) and the
// generator's distribution of the fields (taken as Gaussian: uniform within +-a has variance a2 / 3);
// the posterior mean. Fields not drawn (the shared lens) are known. Differences carry the noise and the
// rounding of both tiles. The information limit of overlap comparisons, not a method. It models the
// distortion as drawn by default, not --inverse's (there its row means nothing).
// formesGain: the gain's slopes and curvatures that many times dearer in the prior. gainMoyenNul: the
// posterior mean under the constraint that the tiles' gain fields, summed over their pixels against each
// map monomial 1, X, Y, X2, XY, Y2, give 0 (the distortion's gain, the opposite of the correction's to
// first order).
std::vector<TuileQualite> ChampsRecouvrements(const Jeu& j, const VarianteOracle& o) {
  const double formesGain = o.formesGain, echelleGain = o.echelleGain, echelleOffset = o.echelleOffset;
  const bool gainMoyenNul = o.gainMoyenNul;
  constexpr int kBloc = 16;
  const std::vector<TuileMemoire>& tuiles = j.tuiles;
  const size_t n = tuiles.size(), N = 12 * n;
  // The shared vector mu, when the prior is shared, after the tiles' coefficients.
  const size_t N2 = o.commun > 0 ? N + 12 : N;
  const uint32_t graine = GrilleScene().graine;
  Eigen::MatrixXd A = Eigen::MatrixXd::Zero(N2, N2), prior = Eigen::MatrixXd::Zero(N2, N2);
  Eigen::VectorXd B = Eigen::VectorXd::Zero(N2), connu = Eigen::VectorXd::Zero(N2),
                  precision = Eigen::VectorXd::Zero(N2);
  for (int k = 0; k < 12; ++k) {
    const bool inconnu = k < 6 && j.preset.amplitudeGain == 0 && o.gainInconnu > 0;
    const double a = k < 6 ? (inconnu ? o.gainInconnu : j.preset.amplitudeGain) : j.preset.amplitudeOffset;
    const double p = a > 0 ? 3 / (a * a) * kPrecisionRelative(k % 6) * (k < 6 && k > 0 ? formesGain : 1.0) *
                                 (k < 6 ? echelleGain : echelleOffset)
                           : 0;
    const double ecart = o.commun > 0 && inconnu ? o.ecartInconnu : 1.0;
    const bool partage = o.commun > 0 && (k < 6 || o.offsetCommun);
    for (size_t i = 0; i < n; ++i) {
      const size_t t = 12 * i + static_cast<size_t>(k);
      precision(t) = p / (ecart * ecart);
      connu(t) = k < 6 ? tuiles[i].def.gain.c[k] : tuiles[i].def.offset.c[k - 6];
      prior(t, t) += precision(t);
      if (partage) {
        const size_t m = N + static_cast<size_t>(k);
        prior(m, m) += precision(t);
        prior(t, m) -= precision(t);
        prior(m, t) -= precision(t);
      }
    }
    if (partage) {
      precision(N + k) = p / (o.commun * o.commun);
      prior(N + k, N + k) += precision(N + k);
    }
  }
  // Per tile over a block: sums of s m_k (the gain's columns), of m_k (the offset's), of the values and
  // of the scene s, over the pixels both tiles hold valid.
  using Sommes = Eigen::Matrix<double, 14, 1>;
  const auto ajouter = [&](const TuileMemoire& t, long long X, long long Y, Sommes& S) {
    const int c = static_cast<int>(X - t.def.colonne0), l = static_cast<int>(Y - t.def.ligne0);
    const double u = (c + 0.5 - t.def.largeur / 2.0) / (t.def.largeur / 2.0);
    const double v = (l + 0.5 - t.def.hauteur / 2.0) / (t.def.hauteur / 2.0);
    const double s = ValeurScene(X + t.def.decalageX, Y + t.def.decalageY, graine);
    const double m[6] = {1, u, v, u * u, u * v, v * v};
    for (int k = 0; k < 6; ++k) S(k) += s * m[k], S(6 + k) += m[k];
    S(12) += t.pixels.GetLines(l)[c];
    S(13) += s;
  };
  const auto dedans = [](const TuileQualite& t, long long X, long long Y) {
    return X >= t.colonne0 && X < t.colonne0 + t.largeur && Y >= t.ligne0 && Y < t.ligne0 + t.hauteur;
  };
  const auto valide = [](const TuileMemoire& t, long long X, long long Y) {
    const int c = static_cast<int>(X - t.def.colonne0), l = static_cast<int>(Y - t.def.ligne0);
    return t.valide[static_cast<size_t>(l) * t.def.largeur + c] != 0;
  };
  const auto nuage = [](const TuileMemoire& t, long long X, long long Y) {
    return t.def.intensiteNuage > 0 && t.def.nuage.Contient(static_cast<double>(X - t.def.colonne0),
                                                            static_cast<double>(Y - t.def.ligne0));
  };
  for (size_t p = 0; p < n; ++p)
    for (size_t q = p + 1; q < n; ++q) {
      const TuileQualite &P = tuiles[p].def, &Q = tuiles[q].def;
      const long long x0 = std::max(P.colonne0, Q.colonne0),
                      x1 = std::min(P.colonne0 + P.largeur, Q.colonne0 + Q.largeur);
      const long long y0 = std::max(P.ligne0, Q.ligne0),
                      y1 = std::min(P.ligne0 + P.hauteur, Q.ligne0 + Q.hauteur);
      for (long long by = (y0 + kBloc - 1) / kBloc * kBloc; by + kBloc <= y1; by += kBloc)
        for (long long bx = (x0 + kBloc - 1) / kBloc * kBloc; bx + kBloc <= x1; bx += kBloc) {
          Sommes Sp = Sommes::Zero(), Sq = Sommes::Zero();
          int compte = 0;
          bool nuageux = false;
          for (long long Y = by; Y < by + kBloc; ++Y)
            for (long long X = bx; X < bx + kBloc; ++X) {
              nuageux = nuageux || nuage(tuiles[p], X, Y) || nuage(tuiles[q], X, Y);
              if (!dedans(P, X, Y) || !dedans(Q, X, Y) || !valide(tuiles[p], X, Y) ||
                  !valide(tuiles[q], X, Y))
                continue;
              ajouter(tuiles[p], X, Y, Sp);
              ajouter(tuiles[q], X, Y, Sq);
              ++compte;
            }
          if (nuageux || compte < 0.9 * kBloc * kBloc) continue;
          // mean(v_p - v_q) - mean(s_p - s_q) = a_p . theta_p - a_q . theta_q + noise
          const Eigen::Matrix<double, 12, 1> ap = Sp.head<12>() / compte, aq = -Sq.head<12>() / compte;
          const double y = (Sp(12) - Sp(13) - Sq(12) + Sq(13)) / compte;
          const double poids = compte / (P.bruit * P.bruit + Q.bruit * Q.bruit + 2.0 / 12);
          const size_t ip = 12 * p, iq = 12 * q;
          A.block<12, 12>(ip, ip) += poids * ap * ap.transpose();
          A.block<12, 12>(iq, iq) += poids * aq * aq.transpose();
          A.block<12, 12>(ip, iq) += poids * ap * aq.transpose();
          A.block<12, 12>(iq, ip) += poids * aq * ap.transpose();
          B.segment<12>(ip) += poids * y * ap;
          B.segment<12>(iq) += poids * y * aq;
        }
    }
  // Known coefficients moved to the right-hand side; the others' prior mean is 0.
  std::vector<Eigen::Index> libres;
  for (size_t k = 0; k < N2; ++k)
    if (precision(k) > 0) libres.push_back(static_cast<Eigen::Index>(k));
  const Eigen::Index m = static_cast<Eigen::Index>(libres.size());
  Eigen::VectorXd c = connu;
  for (Eigen::Index k : libres) c(k) = 0;
  const Eigen::VectorXd b = B - A * c;
  Eigen::MatrixXd Al(m, m);
  Eigen::VectorXd bl(m);
  for (Eigen::Index a = 0; a < m; ++a) {
    bl(a) = b(libres[a]);
    for (Eigen::Index e = 0; e < m; ++e) Al(a, e) = A(libres[a], libres[e]) + prior(libres[a], libres[e]);
  }
  Eigen::VectorXd x = Al.ldlt().solve(bl);
  if (gainMoyenNul) {
    double X0 = 1e300, X1 = -1e300, Y0 = 1e300, Y1 = -1e300;
    for (const TuileMemoire& t : tuiles) {
      X0 = std::min(X0, static_cast<double>(t.def.colonne0));
      X1 = std::max(X1, static_cast<double>(t.def.colonne0 + t.def.largeur));
      Y0 = std::min(Y0, static_cast<double>(t.def.ligne0));
      Y1 = std::max(Y1, static_cast<double>(t.def.ligne0 + t.def.hauteur));
    }
    // Over a 32 x 32 grid of points per tile, weighted by the tile's area.
    constexpr int kPoints = 32;
    Eigen::MatrixXd C = Eigen::MatrixXd::Zero(6, N2);
    for (size_t i = 0; i < n; ++i) {
      const TuileQualite& t = tuiles[i].def;
      const double w = static_cast<double>(t.largeur) * t.hauteur / (kPoints * kPoints);
      for (int py = 0; py < kPoints; ++py)
        for (int px = 0; px < kPoints; ++px) {
          const double u = (px + 0.5) / kPoints * 2 - 1, v = (py + 0.5) / kPoints * 2 - 1;
          const double X = (t.colonne0 + (u + 1) / 2 * t.largeur - X0) / (X1 - X0) * 2 - 1;
          const double Y = (t.ligne0 + (v + 1) / 2 * t.hauteur - Y0) / (Y1 - Y0) * 2 - 1;
          const double m[6] = {1, u, v, u * u, u * v, v * v}, M[6] = {1, X, Y, X * X, X * Y, Y * Y};
          for (int k = 0; k < 6; ++k)
            for (int q = 0; q < 6; ++q) C(k, 12 * i + q) += w * M[k] * m[q];
        }
    }
    Eigen::MatrixXd Cl(6, m);
    for (Eigen::Index a = 0; a < m; ++a) Cl.col(a) = C.col(libres[a]);
    const Eigen::VectorXd cible = C * c;  // the known coefficients' part (c holds 0 for the free ones)
    const Eigen::MatrixXd K = Al.ldlt().solve(Cl.transpose());
    x -= K * (Cl * K).ldlt().solve(Cl * x + cible);
  }
  for (Eigen::Index a = 0; a < m; ++a) c(libres[a]) = x(a);
  std::vector<TuileQualite> d;
  for (size_t i = 0; i < n; ++i) {
    d.push_back(tuiles[i].def);
    for (int k = 0; k < 6; ++k) d.back().gain.c[k] = c(12 * i + k), d.back().offset.c[k] = c(12 * i + 6 + k);
  }
  return d;
}

Resultat LancerReference(const Jeu& j, Reference quoi, const VarianteOracle& oracle = kVariantesOracle[0]) {
  Resultat res;
  res.methode = quoi == Reference::defaites   ? "reference : distorsions defaites"
                : quoi == Reference::ajustees ? "reference : meilleur degre 2 par tuile"
                : quoi == Reference::aveugle  ? "reference : tache aveugle estimee au mieux"
                                              : oracle.nom;
  const std::vector<TuileQualite> estimes = quoi == Reference::aveugle ? ChampsAveugles(j.tuiles)
                                            : quoi == Reference::recouvrements
                                                ? ChampsRecouvrements(j, oracle)
                                                : std::vector<TuileQualite>();
  for (size_t i = 0; i < j.tuiles.size(); ++i) {
    const TuileMemoire& t = j.tuiles[i];
    const TuileQualite& def = estimes.empty() ? t.def : estimes[i];
    const int W = t.def.largeur, H = t.def.hauteur;
    res.tuiles.emplace_back(t.valide.size());
    std::vector<float>& x = res.tuiles.back();
    const auto base = [&](int c, int l, double* b) {
      const double u = 2.0 * c / W - 1, v = 2.0 * l / H - 1;
      const double m[6] = {1, u, v, u * u, u * v, v * v};
      for (int k = 0; k < 6; ++k) b[k] = m[k], b[6 + k] = m[k];
    };
    Eigen::Matrix<double, 12, 12> A = Eigen::Matrix<double, 12, 12>::Zero();
    Eigen::Matrix<double, 12, 1> B = Eigen::Matrix<double, 12, 1>::Zero(), b;
    // Fitted to the truth, or to the estimated fields' inverse.
    const bool versInverse = quoi == Reference::recouvrements && oracle.polynome;
    const bool ajuste = quoi == Reference::ajustees || versInverse;
    if (ajuste)
      for (int l = 0; l < H; ++l)
        for (int c = 0; c < W; ++c) {
          const size_t k = static_cast<size_t>(l) * W + c;
          const size_t g = static_cast<size_t>(t.def.ligne0 + l) * j.verite.largeur + t.def.colonne0 + c;
          if (!t.valide[k] || (!versInverse && !j.verite.couverte[g])) continue;
          const double v = t.pixels.GetLines(l)[c];
          base(c, l, b.data());
          b.head<6>() *= v;
          A += b * b.transpose();
          B += b * (versInverse ? def.Redresser(v, c, l) : j.verite.T[g]);
        }
    const Eigen::Matrix<double, 12, 1> s =
        ajuste ? Eigen::Matrix<double, 12, 1>(A.ldlt().solve(B)) : Eigen::Matrix<double, 12, 1>::Zero();
    for (int l = 0; l < H; ++l)
      for (int c = 0; c < W; ++c) {
        const double v = t.pixels.GetLines(l)[c];
        base(c, l, b.data());
        b.head<6>() *= v;
        x[static_cast<size_t>(l) * W + c] = static_cast<float>(ajuste ? b.dot(s) : def.Redresser(v, c, l));
      }
  }
  if (quoi == Reference::recouvrements && oracle.constante) {
    // The set's mean over valid pixels and its local contrast, before and after.
    double somme[2] = {}, contraste[2] = {}, pixels = 0, blocs = 0;
    constexpr int kCote = 16;
    for (size_t i = 0; i < j.tuiles.size(); ++i) {
      const TuileMemoire& t = j.tuiles[i];
      const int W = t.def.largeur, H = t.def.hauteur;
      for (int l = 0; l < H; ++l)
        for (int c = 0; c < W; ++c) {
          const size_t k = static_cast<size_t>(l) * W + c;
          if (!t.valide[k]) continue;
          somme[0] += t.pixels.GetLines(l)[c];
          somme[1] += res.tuiles[i][k];
          ++pixels;
        }
      for (int l0 = 0; l0 + kCote <= H; l0 += kCote)
        for (int c0 = 0; c0 + kCote <= W; c0 += kCote) {
          double s[2] = {}, s2[2] = {};
          bool plein = true;
          for (int l = l0; l < l0 + kCote && plein; ++l)
            for (int c = c0; c < c0 + kCote; ++c) {
              const size_t k = static_cast<size_t>(l) * W + c;
              plein = plein && t.valide[k] != 0;
              const double v[2] = {static_cast<double>(t.pixels.GetLines(l)[c]), res.tuiles[i][k]};
              for (int e = 0; e < 2; ++e) s[e] += v[e], s2[e] += v[e] * v[e];
            }
          if (!plein) continue;
          const double n = kCote * kCote;
          for (int e = 0; e < 2; ++e)
            contraste[e] += std::sqrt(std::max(0.0, s2[e] / n - s[e] * s[e] / n / n));
          ++blocs;
        }
    }
    const double G = contraste[0] / contraste[1], O = (somme[0] - G * somme[1]) / pixels;
    for (size_t i = 0; i < j.tuiles.size(); ++i)
      for (size_t k = 0; k < res.tuiles[i].size(); ++k)
        if (j.tuiles[i].valide[k]) res.tuiles[i][k] = static_cast<float>(G * res.tuiles[i][k] + O);
    std::cout << "  pas constant : gain " << G << ", offset " << O << " (" << blocs << " blocs)" << std::endl;
  }
  Reglages r;
  res.mosaique =
      Composer(j.tuiles, res.tuiles, PoidsPlumes(j.tuiles, r.plume), j.verite.largeur, j.verite.hauteur, r);
  res.ensembles = Ensembles(j.tuiles, Validites(j), j.verite.largeur, j.verite.hauteur);
  return res;
}

// The pixels where the truth and every mosaic have data.
std::vector<unsigned char> Commun(const Jeu& j, const std::vector<const Resultat*>& r) {
  std::vector<unsigned char> c = j.verite.couverte;
  for (const Resultat* x : r)
    for (size_t k = 0; k < c.size(); ++k) c[k] = c[k] && x->mosaique.v[k] != 0.0f;
  return c;
}

void Mesurer(const Jeu& j, const std::vector<unsigned char>& commun, Resultat& r) {
  r.m = Mesurer(j.verite, r.mosaique, commun, r.ensembles);
  r.recouvrement = RmseRecouvrement(j.verite, j.tuiles, r.tuiles);
}

double PlancherBruit(const Jeu& j) {
  std::vector<std::vector<float>> redressees;
  for (const TuileMemoire& t : j.tuiles) {
    redressees.emplace_back(t.valide.size());
    for (int l = 0; l < t.def.hauteur; ++l)
      for (int c = 0; c < t.def.largeur; ++c)
        redressees.back()[static_cast<size_t>(l) * t.def.largeur + c] =
            static_cast<float>(t.def.Redresser(t.pixels.GetLines(l)[c], c, l));
  }
  return RmseRecouvrement(j.verite, j.tuiles, redressees);
}

std::string F(double v, int decimales = 2) {
  std::ostringstream s;
  s << std::fixed << std::setprecision(decimales) << v;
  return s.str();
}

void Ligne(const std::string& preset, const Resultat& r) {
  std::cout << "| " << preset << " | " << r.methode << " | " << F(r.m.brut) << " | " << F(r.m.tendance)
            << " | " << F(r.m.tendanceGain) << " | " << F(r.m.bassesFrequences) << " | " << F(r.recouvrement)
            << " | " << F(r.m.raccord) << " | " << F(r.m.raccord / r.m.ailleurs) << " | " << F(r.m.nettete, 3)
            << " |" << std::endl;
}

void EnTete() {
  std::cout
      << "| preset (noise floor, blind spot) | method | plain | detrended | detrended, gain too | low freq. "
         "| overlap | "
         "seam | seam / elsewhere | sharpness |\n| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- "
         "|"
      << std::endl;
}

// The quick-look of a square crop of a mosaic, halved, stretched like the truth's crop.
void Apercu(const std::string& chemin, const Mosaique& m, const Verite& v, int x0, int y0, int cote) {
  TTImage<float> crop(cote / 2, cote / 2, TagNbCanaux(1)), vraie(cote / 2, cote / 2, TagNbCanaux(1));
  for (int l = 0; l < cote / 2; ++l)
    for (int c = 0; c < cote / 2; ++c) {
      double s = 0, t = 0;
      bool vide = false;
      for (int k = 0; k < 4; ++k) {
        const size_t i = static_cast<size_t>(y0 + 2 * l + k / 2) * m.largeur + x0 + 2 * c + k % 2;
        s += m.v[i] / 4;
        t += v.T[i] / 4;
        vide = vide || m.v[i] == 0.0f;
      }
      crop(c, l) = vide ? 0.0f : static_cast<float>(s);
      vraie(c, l) = static_cast<float>(t);
    }
  const TTImage<unsigned char> q = Etirer(crop, EtirementPercentiles(vraie, 0.01, 0.99));
  EcrirePng(chemin, q.iGetNbColonnes(), q.iGetNbLignes(), 1, std::vector<unsigned char>(q.begin(), q.end()));
}

void Tableau(const std::string& egalise, const std::vector<Jeu>& jeux, const std::string& apercu,
             const std::vector<int>& references, bool biaisee) {
  EnTete();
  for (const Jeu& j : jeux) {
    std::vector<Resultat> r(9);
    for (int k = 0; k < 3; ++k) LancerCompatibilite(egalise, j, kModelesCompatibilite[k], r[k]);
    // The front end's defaults: degrees from the number of tiles.
    Reglages defaut;
    defaut.modele.degreGain = defaut.modele.degreOffset = DegreAutomatique(static_cast<int>(j.tuiles.size()));
    r[3] = LancerNouveau(j, defaut, "gain-offset, plume");
    Reglages mb = defaut;
    mb.fusion = Fusion::multibande;
    r[4] = LancerNouveau(j, mb, "gain-offset, multibande");
    r[5] = LancerReference(j, Reference::defaites);
    r[6] = LancerReference(j, Reference::ajustees);
    r[7] = LancerReference(j, Reference::aveugle);
    r[8] = LancerReference(j, Reference::recouvrements);
    for (int f : references)
      r.push_back(LancerNouveau(j, AvecReference(j, defaut, f),
                                "gain-offset, plume, verite en reference 1:" + std::to_string(f)));
    if (biaisee)
      for (int f : references)
        r.push_back(LancerNouveau(j, AvecReference(j, defaut, f, true),
                                  "gain-offset, plume, verite biaisee en reference 1:" + std::to_string(f)));
    std::vector<const Resultat*> presents;
    for (const Resultat& x : r)
      if (!x.mosaique.v.empty()) presents.push_back(&x);
    const std::vector<unsigned char> commun = Commun(j, presents);
    for (Resultat& x : r)
      if (!x.mosaique.v.empty()) Mesurer(j, commun, x);
    // The part of the uncorrected mosaic's error that map-wide gain and offset surfaces explain: what
    // overlaps cannot see, the floor of any correction's plain figure.
    const Mesures& sans = r[0].m;
    const double aveugle =
        std::sqrt(std::max(0.0, sans.brut * sans.brut - sans.tendanceGain * sans.tendanceGain));
    const std::string titre = j.preset.nom + " (" + F(PlancherBruit(j)) + ", " + F(aveugle) + ")";
    for (const Resultat& x : r) {
      if (x.mosaique.v.empty())
        std::cout << "| " << titre << " | " << x.methode << " | pas de mosaique (\"rate\") | | | | | | | |"
                  << std::endl;
      else
        Ligne(titre, x);
    }
    if (!apercu.empty() && j.preset.nom == "bloc_6x6") {
      Apercu(apercu + "/qualite_avant.png", r[0].mosaique, j.verite, 240, 240, 1200);
      Apercu(apercu + "/qualite_apres.png", r[3].mosaique, j.verite, 240, 240, 1200);
    }
  }
}

// The new model's settings one at a time around the defaults; then the blendings.
void Balayage(const std::vector<Jeu>& jeux) {
  struct Variante {
    std::string nom;
    Reglages r;
  };
  std::vector<Variante> v;
  const Reglages d;
  const auto ajouter = [&](const std::string& nom, auto regler) {
    Reglages r = d;
    regler(r);
    v.push_back({nom, r});
  };
  ajouter("defaut", [](Reglages&) {});
  for (const auto& g : std::vector<std::pair<int, int>>{{0, 1}, {0, 2}, {1, 1}, {1, 2}, {2, 2}})
    ajouter("degres " + std::to_string(g.first) + "/" + std::to_string(g.second), [&](Reglages& r) {
      r.modele.degreGain = g.first;
      r.modele.degreOffset = g.second;
    });
  for (int b : {8, 32}) ajouter("bloc " + std::to_string(b), [&](Reglages& r) { r.bloc = b; });
  for (double w : {1e-11, 1e-7, 1e-5, 1e-3})
    ajouter("rigidite " + F(std::log10(w), 0), [&](Reglages& r) { r.modele.rigidite = w; });
  for (double f : {1.0, 3.0, 30.0})
    ajouter("pentes " + F(f, 0), [&](Reglages& r) { r.modele.poidsPentes = f; });
  for (double f : {1.0, 10.0})
    ajouter("courbures " + F(f, 0), [&](Reglages& r) { r.modele.poidsCourbures = f; });
  for (double f : {1.0, 10.0, 100.0})
    ajouter("formes du gain " + F(f, 0), [&](Reglages& r) { r.modele.poidsFormesGain = f; });
  ajouter("sans ecarts types", [](Reglages& r) { r.modele.poidsEcart = 0; });
  ajouter("prior fixe", [](Reglages& r) { r.modele.priorEmpirique = false; });
  ajouter("sans reponderation", [](Reglages& r) { r.modele.iterations = 1; });
  std::cout << "\n| preset | settings | plain | detrended | detrended, gain too | low freq. | overlap |\n"
               "| --- | --- | --- | --- | --- | --- | --- |"
            << std::endl;
  for (const Jeu& j : jeux) {
    if (j.preset.nom == "decale_3x3" || j.preset.nom == "deconnecte" || j.preset.nom == "bruit_3x3") continue;
    const std::vector<std::vector<float>> poids = PoidsPlumes(j.tuiles, d.plume);
    for (Variante& x : v) {
      Resultat r = LancerNouveau(j, x.r, x.nom, &poids);
      Mesurer(j, j.verite.couverte, r);
      std::cout << "| " << j.preset.nom << " | " << x.nom << " | " << F(r.m.brut) << " | " << F(r.m.tendance)
                << " | " << F(r.m.tendanceGain) << " | " << F(r.m.bassesFrequences) << " | "
                << F(r.recouvrement) << " |" << std::endl;
    }
  }
}

// The blendings, on the tiles as they are and corrected: seams and sharpness.
void BalayageFusions(const std::vector<Jeu>& jeux) {
  std::cout << "\n| preset | tiles | blending | width (px) | plain | seam | seam / elsewhere | sharpness |\n"
               "| --- | --- | --- | --- | --- | --- | --- | --- |"
            << std::endl;
  for (const Jeu& j : jeux) {
    if (j.preset.nom != "decale_3x3" && j.preset.nom != "additif_4x4") continue;
    Reglages r;
    std::vector<std::vector<float>> brutes;
    for (const TuileMemoire& t : j.tuiles) brutes.emplace_back(t.pixels.begin(), t.pixels.end());
    const std::vector<std::vector<float>> corrigees = CorrigerGainOffset(j.tuiles, r);
    const std::vector<uint64_t> ensembles =
        Ensembles(j.tuiles, Validites(j), j.verite.largeur, j.verite.hauteur);
    const std::vector<std::vector<float>>* ensemblesValeurs[2] = {&brutes, &corrigees};
    for (const std::vector<std::vector<float>>* valeurs : ensemblesValeurs)
      for (Fusion f : {Fusion::moyenne, Fusion::plume, Fusion::multibande})
        for (double w : {10.0, 30.0, 60.0, 120.0, 240.0}) {
          if ((f == Fusion::moyenne && w > 10) || (f == Fusion::multibande && w > 60)) continue;
          r.fusion = f;
          r.plume = w;
          const Mosaique m =
              Composer(j.tuiles, *valeurs, PoidsPlumes(j.tuiles, f == Fusion::moyenne ? 0.0 : w),
                       j.verite.largeur, j.verite.hauteur, r);
          const Mesures x = Mesurer(j.verite, m, j.verite.couverte, ensembles);
          const char* nom = f == Fusion::moyenne ? "moyenne" : f == Fusion::plume ? "plume" : "multibande";
          std::cout << "| " << j.preset.nom << " | "
                    << (valeurs == &brutes ? "sans correction" : "gain-offset") << " | " << nom << " | "
                    << (f == Fusion::moyenne ? "-" : F(w, 0)) << " | " << F(x.brut) << " | " << F(x.raccord)
                    << " | " << F(x.raccord / x.ailleurs) << " | " << F(x.nettete, 3) << " |" << std::endl;
        }
  }
}

// The true spread of each class of terms (the gain's level, slopes, curvatures, then the offset's), in
// the units of the model's learnt prior: the mean square, over the tiles and the class's coefficients,
// of each tile's best degree-2 correction against the truth (as the "meilleur degre 2 par tuile"
// reference fits it, here in the model's orthonormal basis), the gain as the model's unknowns are when
// it learns (the distortion's A = 1 - 1 / a projected over the tile with gainDistorsion, else a - 1).
// With sansFormes, the gain's shapes are given poidsFormesGain times their mean square, so that the
// model's extra weight on them cancels and the prior is the true spread alone.
std::vector<double> EtalementsVrais(const Jeu& j, const ParametresGainOffset& p, bool sansFormes) {
  std::vector<double> somme(6, 0.0), n(6, 0.0);
  for (const TuileMemoire& t : j.tuiles) {
    const int W = t.def.largeur, H = t.def.hauteur;
    Eigen::Matrix<double, 12, 12> A = Eigen::Matrix<double, 12, 12>::Zero();
    Eigen::Matrix<double, 12, 1> B = Eigen::Matrix<double, 12, 1>::Zero(), b;
    for (int l = 0; l < H; ++l)
      for (int c = 0; c < W; ++c) {
        const size_t k = static_cast<size_t>(l) * W + c;
        const size_t g = static_cast<size_t>(t.def.ligne0 + l) * j.verite.largeur + t.def.colonne0 + c;
        if (!t.valide[k] || !j.verite.couverte[g]) continue;
        base_polynome::Termes(base_polynome::Normaliser(c + 0.5, W), base_polynome::Normaliser(l + 0.5, H),
                              b.data());
        for (int q = 0; q < 6; ++q) b[6 + q] = b[q];
        b.head<6>() *= t.pixels.GetLines(l)[c];
        A += b * b.transpose();
        B += b * j.verite.T[g];
      }
    const Eigen::Matrix<double, 12, 1> x = A.ldlt().solve(B);
    double gain[6];
    for (int q = 0; q < 6; ++q) gain[q] = x[q] - (q == 0 ? 1.0 : 0.0);
    if (p.gainDistorsion) {
      // A = 1 - 1 / a, projected on the orthonormal terms over the tile's pixels.
      double proj[6] = {}, terme[6];
      for (int l = 0; l < H; ++l)
        for (int c = 0; c < W; ++c) {
          base_polynome::Termes(base_polynome::Normaliser(c + 0.5, W), base_polynome::Normaliser(l + 0.5, H),
                                terme);
          double a = 0;
          for (int q = 0; q < 6; ++q) a += x[q] * terme[q];
          for (int q = 0; q < 6; ++q) proj[q] += (1 - 1 / a) * terme[q];
        }
      for (int q = 0; q < 6; ++q) gain[q] = proj[q] / (static_cast<double>(W) * H);
    }
    for (int q = 0; q < 6; ++q) {
      const int degre = q == 0 ? 0 : q < 3 ? 1 : 2;
      somme[degre] += gain[q] * gain[q];
      somme[3 + degre] += x[6 + q] * x[6 + q];
      n[degre] += 1;
      n[3 + degre] += 1;
    }
  }
  std::cout << "  etalements vrais (gain 1, pentes, courbures ; offset 1, pentes, courbures) :";
  for (int c = 0; c < 6; ++c) {
    somme[c] /= n[c];
    std::cout << " " << std::sqrt(somme[c]);
    if (sansFormes && (c == 1 || c == 2)) somme[c] *= p.poidsFormesGain;
  }
  std::cout << std::endl;
  return somme;
}

// "cle=valeur" words over the defaults; 'vrais' (if given) receives the vrais= key: 1 for the learnt
// prior's spreads replaced by the true ones (EtalementsVrais), 2 for the same without the gain shapes'
// extra weight.
Reglages LireReglages(const std::string& texte, int* vrais = nullptr) {
  Reglages r;
  std::istringstream mots(texte);
  for (std::string mot; mots >> mot;) {
    const size_t egal = mot.find('=');
    const std::string cle = mot.substr(0, egal),
                      valeur = egal == std::string::npos ? "" : mot.substr(egal + 1);
    if (cle == "degres" && valeur.size() == 3 && valeur[1] == '/') {
      r.modele.degreGain = valeur[0] - '0';
      r.modele.degreOffset = valeur[2] - '0';
    } else if (cle == "bloc") {
      r.bloc = static_cast<int>(LireEntier(valeur, cle, kProgramme));
    } else if (cle == "rigidite") {
      r.modele.rigidite = LireReel(valeur, cle, kProgramme);
    } else if (cle == "pentes") {
      r.modele.poidsPentes = LireReel(valeur, cle, kProgramme);
    } else if (cle == "courbures") {
      r.modele.poidsCourbures = LireReel(valeur, cle, kProgramme);
    } else if (cle == "appris") {
      r.modele.priorEmpirique = LireEntier(valeur, cle, kProgramme) != 0;
    } else if (cle == "formes_gain") {
      r.modele.poidsFormesGain = LireReel(valeur, cle, kProgramme);
    } else if (cle == "distorsion") {
      r.modele.gainDistorsion = LireEntier(valeur, cle, kProgramme) != 0;
    } else if (cle == "posterieur") {
      const int e = LireEntier(valeur, cle, kProgramme);
      r.modele.etalement = e == 0   ? ParametresGainOffset::Etalement::estimations
                           : e == 1 ? ParametresGainOffset::Etalement::esperance
                                    : ParametresGainOffset::Etalement::evidence;
    } else if (cle == "ecarts") {
      r.modele.poidsEcart = LireReel(valeur, cle, kProgramme);
    } else if (cle == "iterations") {
      r.modele.iterations = static_cast<int>(LireEntier(valeur, cle, kProgramme));
    } else if (cle == "echelle_tenue") {
      r.modele.echelleTenue = LireEntier(valeur, cle, kProgramme) != 0;
    } else if (cle == "reponderation") {
      r.modele.reponderation = LireEntier(valeur, cle, kProgramme) != 0;
    } else if (cle == "vrais" && vrais && (valeur == "0" || valeur == "1" || valeur == "2")) {
      *vrais = valeur[0] - '0';
    } else if (cle == "tukey") {
      r.modele.constanteTukey = LireReel(valeur, cle, kProgramme);
    } else if (cle == "fraction") {
      r.observations.fractionValide = LireReel(valeur, cle, kProgramme);
    } else if (cle == "plume") {
      r.plume = LireReel(valeur, cle, kProgramme);
    } else if (cle == "fusion" && (valeur == "moyenne" || valeur == "plume" || valeur == "multibande")) {
      r.fusion = valeur == "moyenne" ? Fusion::moyenne
                 : valeur == "plume" ? Fusion::plume
                                     : Fusion::multibande;
    } else {
      ZEPRA_ERREUR("[" << kProgramme << "] (Essai) Reglage inconnu : " << mot);
    }
  }
  return r;
}

// One setting of the new model on each preset, with the solve's report.
void Essai(const std::vector<Jeu>& jeux, const Reglages& reglages, int vrais) {
  EnTete();
  for (const Jeu& j : jeux) {
    Reglages r = reglages;
    if (vrais) r.modele.etalementsDonnes = EtalementsVrais(j, r.modele, vrais == 2);
    Resultat x;
    x.methode = "essai";
    ResultatGainOffset R;
    x.tuiles = CorrigerGainOffset(j.tuiles, r, &R);
    x.mosaique =
        Composer(j.tuiles, x.tuiles, PoidsPlumes(j.tuiles, r.fusion == Fusion::moyenne ? 0.0 : r.plume),
                 j.verite.largeur, j.verite.hauteur, r);
    x.ensembles = Ensembles(j.tuiles, Validites(j), j.verite.largeur, j.verite.hauteur);
    Mesurer(j, j.verite.couverte, x);
    Ligne(j.preset.nom + " (" + F(PlancherBruit(j)) + ")", x);
    // What the setting is to be compared with: the tiles as they are, feathered, and the best that the
    // blind spot allows.
    Resultat sans;
    sans.methode = "sans correction, plume";
    for (const TuileMemoire& t : j.tuiles) sans.tuiles.emplace_back(t.pixels.begin(), t.pixels.end());
    sans.mosaique = Composer(j.tuiles, sans.tuiles, PoidsPlumes(j.tuiles, r.plume), j.verite.largeur,
                             j.verite.hauteur, r);
    sans.ensembles = x.ensembles;
    Resultat aveugle = LancerReference(j, Reference::aveugle);
    for (Resultat* y : {&sans, &aveugle}) {
      Mesurer(j, j.verite.couverte, *y);
      Ligne(j.preset.nom + " (" + F(PlancherBruit(j)) + ")", *y);
    }
    std::cout << "  observations ecartees : " << F(100 * R.bandes[0].fractionEcartee, 1) << " %" << std::endl;
    for (size_t i = 0; i < R.images.size(); ++i)
      if (!R.images[i].termesIndetermines.empty() || R.images[i].groupe < 0)
        std::cout << "  " << NomTuile(i) << " : groupe " << R.images[i].groupe << ", "
                  << R.images[i].observations << " observations, " << R.images[i].termesIndetermines
                  << std::endl;
  }
}

// The model with its defaults, then the given variants of the overlaps' oracle, all measured on the same
// pixels.
template <size_t N>
void ModeleEtOracles(const std::vector<Jeu>& jeux, const VarianteOracle (&variantes)[N]) {
  EnTete();
  for (const Jeu& j : jeux) {
    Reglages defaut;
    defaut.modele.degreGain = defaut.modele.degreOffset = DegreAutomatique(static_cast<int>(j.tuiles.size()));
    std::vector<Resultat> r;
    r.push_back(LancerNouveau(j, defaut, "gain-offset, plume"));
    for (const VarianteOracle& o : variantes) r.push_back(LancerReference(j, Reference::recouvrements, o));
    std::vector<const Resultat*> presents;
    for (const Resultat& x : r) presents.push_back(&x);
    const std::vector<unsigned char> commun = Commun(j, presents);
    for (Resultat& x : r) {
      Mesurer(j, commun, x);
      Ligne(j.preset.nom + " (" + F(PlancherBruit(j)) + ")", x);
    }
  }
}

// The overlaps' oracle without the shared lens given (--commun), after the oracle as is: the gain a
// preset does not draw (none, or the lens) estimated too, with an independent prior per tile, or with a
// prior shared by the tiles (the gains' only, or the offsets' too), the mean gain held at 0 or not.
const VarianteOracle kVariantesCommun[] = {
    kVariantesOracle[0],
    {"oracle, gain inconnu +-0.24", 1, false, 1, 1, false, false, 0.24},
    {"oracle, gain inconnu +-0.24, gain moyen nul", 1, true, 1, 1, false, false, 0.24},
    {"oracle, +-0.24, commun 1, ecart 0.01", 1, false, 1, 1, false, false, 0.24, 1, 0.01},
    {"oracle, +-0.24, gains seuls, commun 0.1, ecart 0.01", 1, false, 1, 1, false, false, 0.24, 0.1, 0.01,
     false},
    {"oracle, +-0.24, gains seuls, commun 0.3, ecart 0.01", 1, false, 1, 1, false, false, 0.24, 0.3, 0.01,
     false},
    {"oracle, +-0.24, gains seuls, commun 1, ecart 0.01", 1, false, 1, 1, false, false, 0.24, 1, 0.01, false},
    {"oracle, +-0.24, gains seuls, commun 3, ecart 0.01", 1, false, 1, 1, false, false, 0.24, 3, 0.01, false},
    {"oracle, +-0.24, gains seuls, commun 0.1, ecart 0.3", 1, false, 1, 1, false, false, 0.24, 0.1, 0.3,
     false},
    {"oracle, +-0.24, gains seuls, commun 1, ecart 0.3", 1, false, 1, 1, false, false, 0.24, 1, 0.3, false},
    {"oracle, +-0.24, gain moyen nul, gains seuls, commun 1, ecart 0.01", 1, true, 1, 1, false, false, 0.24,
     1, 0.01, false}};

}  // namespace

int main(int argc, char** argv) {
  return ExecuterProgramme(argc, Usage, [&] {
    std::vector<std::string> mots;
    std::string preset, apercu, essai;
    std::vector<int> references;
    bool ecart = false, champCommun = false, balayage = false, fusions = false, inverse = false,
         niveaux = false, biaisee = false;
    unsigned tirage = 0, bruitTirage = 0;
    long long tuiles = 0;
    for (int i = 1; i < argc; ++i) {
      const std::string mot = argv[i];
      if (mot == "--preset") {
        preset = ValeurOption(argc, argv, i, kProgramme);
      } else if (mot == "--apercu") {
        apercu = ValeurOption(argc, argv, i, kProgramme);
      } else if (mot == "--reference") {
        std::istringstream liste(ValeurOption(argc, argv, i, kProgramme));
        for (std::string f; std::getline(liste, f, ',');) {
          references.push_back(static_cast<int>(LireEntier(f, mot, kProgramme)));
          if (references.back() < 1 || references.back() > 64)
            ZEPRA_ERREUR("[" << kProgramme << "] (Options) --reference " << f << " : 1 a 64 attendu.");
        }
      } else if (mot == "--essai") {
        essai = ValeurOption(argc, argv, i, kProgramme);
      } else if (mot == "--tirage") {
        tirage = static_cast<unsigned>(LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme));
      } else if (mot == "--bruit-tirage") {
        // The noise and the ragged borders drawn anew (they are seeded by the tiles' numbers), the fields
        // kept: --tirage alone draws new fields over the same noise.
        bruitTirage =
            static_cast<unsigned>(LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme));
      } else if (mot == "--tuiles") {
        // The first N tiles of each preset (in its order, rows first): smaller blocks of the same kind.
        tuiles = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        if (tuiles < 2)
          ZEPRA_ERREUR("[" << kProgramme << "] (Options) --tuiles " << tuiles << " : 2 au moins.");
      } else if (mot == "--reference-biaisee") {
        biaisee = true;
      } else if (mot == "--niveaux") {
        // Every tile's gain and offset fields reduced to their constant: tiles that differ in level only.
        niveaux = true;
      } else if (mot == "--ecart") {
        ecart = true;
      } else if (mot == "--commun") {
        champCommun = true;
      } else if (mot == "--balayage") {
        balayage = true;
      } else if (mot == "--fusions") {
        fusions = true;
      } else if (mot == "--inverse") {
        inverse = true;
      } else if (mot.rfind("--", 0) == 0) {
        ZEPRA_ERREUR("[" << kProgramme << "] (Options) Option inconnue : " << mot);
      } else {
        mots.push_back(mot);
      }
    }
    if (mots.size() != 2)
      ZEPRA_ERREUR("[" << kProgramme
                       << "] (Options) L'executable egalise et un dossier de travail attendus.");
    // The runs happen in each preset's folder.
    char* absolu = realpath(mots[0].c_str(), nullptr);
    if (!absolu) ZEPRA_ERREUR("[" << kProgramme << "] (Options) " << mots[0] << " introuvable.");
    mots[0] = absolu;
    std::free(absolu);
    std::vector<Jeu> jeux;
    for (Preset& p : Presets(tirage)) {
      for (TuileQualite& t : p.tuiles) {
        t.inverse = inverse;
        t.numero += 100 * static_cast<int>(bruitTirage);
        if (niveaux)
          for (int k = 1; k < 6; ++k) t.gain.c[k] = t.offset.c[k] = 0;
      }
      if (!preset.empty() && p.nom != preset) continue;
      if (tuiles > 0 && p.tuiles.size() > static_cast<size_t>(tuiles)) {
        p.tuiles.resize(static_cast<size_t>(tuiles));
        p.nom += "_" + std::to_string(tuiles);
      }
      jeux.push_back(Ecrire(p, mots[1]));
    }
    if (jeux.empty()) ZEPRA_ERREUR("[" << kProgramme << "] (Options) Preset inconnu : " << preset);
    if (!essai.empty()) {
      int vrais = 0;
      const Reglages r = LireReglages(essai, &vrais);
      Essai(jeux, r, vrais);
    } else if (ecart)
      ModeleEtOracles(jeux, kVariantesOracle);  // where the model's gap to the oracle comes from
    else if (champCommun)
      ModeleEtOracles(jeux, kVariantesCommun);
    else if (balayage)
      Balayage(jeux);
    else if (fusions)
      BalayageFusions(jeux);
    else
      Tableau(mots[0], jeux, apercu, references, biaisee);
  });
}
