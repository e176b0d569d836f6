#include "pipeline/multibande.h"

#include <algorithm>
#include <cmath>

#include "zepra/erreur.h"

namespace {

constexpr int kNiveauxMax = 12;
constexpr double kNoyau[5] = {1.0 / 16, 4.0 / 16, 6.0 / 16, 4.0 / 16, 1.0 / 16};

struct Plan {
  int w = 0, h = 0;
  std::vector<double> v;
  Plan() = default;
  Plan(int w_, int h_) : w(w_), h(h_), v(static_cast<size_t>(w_) * h_, 0.0) {}
  double* Ligne(int y) { return &v[static_cast<size_t>(y) * w]; }
  const double* Ligne(int y) const { return &v[static_cast<size_t>(y) * w]; }
};

// One pass of a separable filter along x (horizontal) or y onto a plane of w x h: out(i) = sum over
// the taps t of k[t] in(source(i, t)), sources outside the input left out (they count as no data, which
// the normalisations then divide away).
template <bool kHorizontal, class Source>
Plan Passe(const Plan& in, int w, int h, Source source) {
  Plan out(w, h);
  const int n = kHorizontal ? in.w : in.h;
  for (int y = 0; y < h; ++y) {
    double* o = out.Ligne(y);
    for (int x = 0; x < w; ++x) {
      double s = 0;
      for (int t = -2; t <= 2; ++t) {
        const int j = source(kHorizontal ? x : y, t);
        if (j >= 0 && j < n) s += kNoyau[t + 2] * (kHorizontal ? in.Ligne(y)[j] : in.Ligne(j)[x]);
      }
      o[x] = s;
    }
  }
  return out;
}

// out(x, y) = sum of k_s k_t in(2x + s, 2y + t).
Plan Reduire(const Plan& in) {
  const auto source = [](int i, int t) { return 2 * i + t; };
  const int w2 = (in.w + 1) / 2, h2 = (in.h + 1) / 2;
  return Passe<false>(Passe<true>(in, w2, in.h, source), w2, h2, source);
}

// The transpose of Reduire onto a plane of w x h: out(x, y) = sum over the (s, t) with x - s and y - t
// even of k_s k_t in((x - s) / 2, (y - t) / 2). Only ever used in ratios, so its scale does not matter.
Plan Etendre(const Plan& in, int w, int h) {
  const auto source = [](int i, int t) { return ((i - t) & 1) ? -1 : (i - t) / 2; };
  return Passe<false>(Passe<true>(in, w, in.h, source), w, h, source);
}

Plan Produit(const Plan& a, const Plan& b) {
  Plan p(a.w, a.h);
  for (size_t k = 0; k < p.v.size(); ++k) p.v[k] = a.v[k] * b.v[k];
  return p;
}

// a / b where b > 0, else 0.
Plan Quotient(const Plan& a, const Plan& b) {
  Plan q(a.w, a.h);
  for (size_t k = 0; k < q.v.size(); ++k) q.v[k] = b.v[k] > 0 ? a.v[k] / b.v[k] : 0.0;
  return q;
}

}  // namespace

int MargeMultibande(int niveaux) {
  if (niveaux < 0 || niveaux > kNiveauxMax)
    ZEPRA_ERREUR("[Multibande] (Marge) " << niveaux << " niveaux : 0 a " << kNiveauxMax << " attendu.");
  // Reducing to level n reaches 2 (2^n - 1) pixels; each expansion back adds 2^(k+1), and the
  // Laplacian of level k reaches one level further: in all less than 4 x 2^n.
  return 4 << niveaux;
}

int NiveauxMultibande(double largeurPixels) {
  if (!(largeurPixels >= 0 && largeurPixels <= 1e6))
    ZEPRA_ERREUR("[Multibande] (Niveaux) Largeur de " << largeurPixels << " pixels : 0 a 1e6 attendu.");
  if (largeurPixels < 1) return 0;
  return std::min(kNiveauxMax, static_cast<int>(std::lround(std::log2(largeurPixels))));
}

void MelangerMultibande(const std::vector<ContributionMultibande>& images, int largeur, int hauteur,
                        int nbBandes, int niveaux, float* sortie, float nodata) {
  MargeMultibande(niveaux);
  if (largeur < 1 || hauteur < 1 || nbBandes < 1)
    ZEPRA_ERREUR("[Multibande] (Melanger) Fenetre de " << largeur << " x " << hauteur << " x " << nbBandes
                                                       << " invalide.");
  const size_t plan = static_cast<size_t>(largeur) * hauteur;
  // The seam (the image of largest weight at each pixel, -1 where none is valid) and the feathered
  // mean, which continues each image beyond its valid region.
  std::vector<int> gagnant(plan, -1);
  std::vector<float> meilleur(plan, 0.0f);
  std::vector<double> poidsTotal(plan, 0.0);
  for (size_t i = 0; i < images.size(); ++i)
    for (size_t k = 0; k < plan; ++k) {
      const float w = images[i].poids[k];
      poidsTotal[k] += w;
      if (w > meilleur[k]) {
        meilleur[k] = w;
        gagnant[k] = static_cast<int>(i);
      }
    }
  // The coverage, reduced level by level: the validity shared by every image's pyramid.
  std::vector<Plan> M(niveaux + 1);
  M[0] = Plan(largeur, hauteur);
  for (size_t k = 0; k < plan; ++k) M[0].v[k] = gagnant[k] >= 0 ? 1.0 : 0.0;
  for (int n = 0; n < niveaux; ++n) M[n + 1] = Reduire(M[n]);
  // Each image's seam mask, reduced: its blending weight at each level (they add up to M).
  std::vector<std::vector<Plan>> W;
  std::vector<size_t> indices;
  for (size_t i = 0; i < images.size(); ++i) {
    std::vector<Plan> w(niveaux + 1);
    w[0] = Plan(largeur, hauteur);
    bool gagne = false;
    for (size_t k = 0; k < plan; ++k) {
      w[0].v[k] = gagnant[k] == static_cast<int>(i) ? 1.0 : 0.0;
      gagne = gagne || w[0].v[k] > 0;
    }
    if (!gagne) continue;
    for (int n = 0; n < niveaux; ++n) w[n + 1] = Reduire(w[n]);
    W.push_back(std::move(w));
    indices.push_back(i);
  }
  // An expansion of a coarser level, normalised by the coverage as the pyramids were.
  const auto etendre = [&](int n, const Plan& x) {
    return Quotient(Etendre(Produit(M[n + 1], x), M[n].w, M[n].h), Etendre(M[n + 1], M[n].w, M[n].h));
  };

  std::vector<double> melange(plan);
  for (int b = 0; b < nbBandes; ++b) {
    const size_t decalage = b * plan;
    for (size_t k = 0; k < plan; ++k) {
      double s = 0;
      for (const ContributionMultibande& c : images)
        s += static_cast<double>(c.poids[k]) * c.valeurs[decalage + k];
      melange[k] = poidsTotal[k] > 0 ? s / poidsTotal[k] : 0.0;
    }
    // Blended Laplacians: sum over the images of W L, each image continued by the feathered mean.
    std::vector<Plan> num(niveaux + 1);
    for (int n = 0; n <= niveaux; ++n) num[n] = Plan(M[n].w, M[n].h);
    for (size_t q = 0; q < W.size(); ++q) {
      const ContributionMultibande& c = images[indices[q]];
      std::vector<Plan> V(niveaux + 1);
      V[0] = Plan(largeur, hauteur);
      for (size_t k = 0; k < plan; ++k) V[0].v[k] = c.poids[k] > 0 ? c.valeurs[decalage + k] : melange[k];
      for (int n = 0; n < niveaux; ++n) V[n + 1] = Quotient(Reduire(Produit(M[n], V[n])), M[n + 1]);
      for (int n = 0; n <= niveaux; ++n) {
        const Plan grossier = n < niveaux ? etendre(n, V[n + 1]) : Plan(V[n].w, V[n].h);
        for (size_t k = 0; k < V[n].v.size(); ++k) num[n].v[k] += W[q][n].v[k] * (V[n].v[k] - grossier.v[k]);
      }
    }
    // Collapse from the coarsest level.
    Plan O = Quotient(num[niveaux], M[niveaux]);
    for (int n = niveaux - 1; n >= 0; --n) {
      const Plan grossier = etendre(n, O);
      O = Quotient(num[n], M[n]);
      for (size_t k = 0; k < O.v.size(); ++k) O.v[k] += grossier.v[k];
    }
    float* o = sortie + decalage;
    for (size_t k = 0; k < plan; ++k) o[k] = gagnant[k] >= 0 ? static_cast<float>(O.v[k]) : nodata;
  }
}
