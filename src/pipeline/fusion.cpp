// The fusion table and the four historical rules. Each rule's Ajouter is one loop over the output
// columns of a contribution; bands are an inner loop, so one decision per pixel serves every band.
//
// How to add a rule: a class deriving from AccumulateurFusion (its state for one band of rows, sized
// from the BandeSortie), a RegleFusion that makes it, and a row in TableFusions. A rule that weighs its
// contributions reads the input position (x0 + colonne[c], ligne) and the input's size from the
// LigneContribution, and may precompute per-input data in its RegleFusion.
#include "zepra/pipeline/fusion.h"

#include <algorithm>
#include <cmath>

namespace {

// Calls f(c, k) for every output column c of the contribution that maps into the input on a valid
// pixel, k being that pixel's index in the input row.
template <class F>
inline void PourChaqueApport(const LigneContribution& l, F&& f) {
  for (int c = l.c0; c < l.c1; ++c) {
    if (!l.dedans[c]) continue;
    const int k = l.colonne[c];
    if (l.valide[k]) f(c, k);
  }
}

// What every rule keeps: the band, and one unsigned per output pixel whose meaning is the rule's.
class BaseFusion : public AccumulateurFusion {
 public:
  explicit BaseFusion(const BandeSortie& b) { BaseFusion::Reprendre(b); }
  void Reprendre(const BandeSortie& b) override {
    m_b = b;
    m_suivi.assign(static_cast<size_t>(b.y1 - b.y0) * b.colonnes, 0u);
    m_lignes.resize(b.bandes);
  }

 protected:
  size_t Decalage(int y) const { return static_cast<size_t>(y - m_b.y0) * m_b.colonnes; }
  // The output rows of every band at row y, in m_lignes.
  float* const* Lignes(int y) {
    for (int b = 0; b < m_b.bandes; ++b) m_lignes[b] = m_b.valeurs[b] + Decalage(y);
    return m_lignes.data();
  }
  unsigned* Suivi(int y) { return m_suivi.data() + Decalage(y); }
  // Coverage where the per-pixel unsigned is not 0.
  void CouvertureDuSuivi() {
    for (size_t k = 0; k < m_suivi.size(); ++k) m_b.couvert[k] = m_suivi[k] != 0;
  }

  BandeSortie m_b;
  std::vector<unsigned> m_suivi;
  std::vector<float*> m_lignes;
};

// Mean: a float sum per band and a count of contributions; the sum divided by the count at the end
// (single-precision division).
class Moyenne : public BaseFusion {
 public:
  using BaseFusion::BaseFusion;
  void Ajouter(const LigneContribution& l) override {
    float* const* r = Lignes(l.y);
    unsigned* n = Suivi(l.y);
    PourChaqueApport(l, [&](int c, int k) {
      for (int b = 0; b < m_b.bandes; ++b) r[b][c] += l.valeurs[b][k];
      ++n[c];
    });
  }
  void Terminer() override {
    CouvertureDuSuivi();
    for (int y = m_b.y0; y < m_b.y1; ++y) {
      float* const* r = Lignes(y);
      const unsigned* n = Suivi(y);
      for (int c = 0; c < m_b.colonnes; ++c)
        for (int b = 0; b < m_b.bandes; ++b) r[b][c] = n[c] != 0 ? r[b][c] / static_cast<float>(n[c]) : 0.0f;
    }
  }
};

// Minimum or maximum: the first contribution is taken as it is, each later one kept when smaller (or
// larger), as std::min and std::max decide (a NaN kept stays).
template <bool kMax>
class Extremum : public BaseFusion {
 public:
  using BaseFusion::BaseFusion;
  void Ajouter(const LigneContribution& l) override {
    float* const* r = Lignes(l.y);
    unsigned* n = Suivi(l.y);
    PourChaqueApport(l, [&](int c, int k) {
      const bool premier = n[c] == 0;
      for (int b = 0; b < m_b.bandes; ++b) {
        const float v = l.valeurs[b][k];
        r[b][c] = premier ? v : kMax ? std::max(r[b][c], v) : std::min(r[b][c], v);
      }
      n[c] = 1;
    });
  }
  void Terminer() override { CouvertureDuSuivi(); }
};

// Voronoi: each pixel takes the value of the contributing input whose centre is nearest, by the
// distance in input pixels from the input pixel to the input's centre (half its width, half its
// height), truncated. The value kept is replaced unless the new distance is greater: on a tie the
// later input wins, and a kept distance of 0 counts as no distance yet, so any later input replaces
// it. Both are the established behaviour of the rule.
class Voronoi : public BaseFusion {
 public:
  using BaseFusion::BaseFusion;
  void Ajouter(const LigneContribution& l) override {
    float* const* r = Lignes(l.y);
    unsigned* s = Suivi(l.y);
    unsigned char* couvert = m_b.couvert + Decalage(l.y);
    const double demiW = l.colonnesEntree / 2.0, dy = l.ligne - l.lignesEntree / 2.0;
    PourChaqueApport(l, [&](int c, int k) {
      const double dx = l.x0 + k - demiW;
      const unsigned d = static_cast<unsigned>(std::sqrt(dx * dx + dy * dy));
      if (s[c] != 0 && d > s[c]) return;
      for (int b = 0; b < m_b.bandes; ++b) r[b][c] = l.valeurs[b][k];
      s[c] = d;
      couvert[c] = 1;
    });
  }
  void Terminer() override {}
};

// Feathered mean: each contribution weighted by its feathering weight, sums in double in input order,
// divided at the end. A pixel's first contribution writes its sums (0 + w v, as adding to zeroed sums
// would), so the sums need no clearing; the band's coverage says which pixels have any.
class Plume : public AccumulateurFusion {
 public:
  explicit Plume(const BandeSortie& b) { Plume::Reprendre(b); }
  void Reprendre(const BandeSortie& b) override {
    m_b = b;
    m_n = static_cast<size_t>(b.y1 - b.y0) * b.colonnes;
    m_sommes.resize(m_n * b.bandes);
    m_poids.resize(m_n);
  }
  void Ajouter(const LigneContribution& l) override {
    const size_t d = static_cast<size_t>(l.y - m_b.y0) * m_b.colonnes, n = m_n;
    unsigned char* couvert = m_b.couvert + d;
    double* p = m_poids.data() + d;
    double* s = m_sommes.data() + d;
    const int bandes = m_b.bandes;
    if (l.contigu && bandes == 1 && l.poids) {
      // The same sums by selects, which the compiler vectorizes: a pixel's first contribution starts
      // from 0, an invalid input pixel leaves everything as it was.
      const int k0 = l.colonne[l.c0] - l.c0;
      const float* v = l.valeurs[0] + k0;
      const float* w = l.poids + k0;
      const unsigned char* ok = l.valide + k0;
      for (int c = l.c0; c < l.c1; ++c) {
        const bool dedans = ok[c] != 0, avant = couvert[c] != 0;
        const double poids = w[c];
        const double somme = (avant ? s[c] : 0.0) + poids * v[c], total = (avant ? p[c] : 0.0) + poids;
        s[c] = dedans ? somme : s[c];
        p[c] = dedans ? total : p[c];
        couvert[c] = avant || dedans;
      }
      return;
    }
    PourChaqueApport(l, [&](int c, int k) {
      const double w = l.poids ? l.poids[k] : 1.0;
      if (couvert[c]) {
        for (int b = 0; b < bandes; ++b) s[b * n + c] += w * l.valeurs[b][k];
        p[c] += w;
      } else {
        for (int b = 0; b < bandes; ++b) s[b * n + c] = 0.0 + w * l.valeurs[b][k];
        p[c] = 0.0 + w;
        couvert[c] = 1;
      }
    });
  }
  void Terminer() override {
    const unsigned char* couvert = m_b.couvert;
    const double* p = m_poids.data();
    for (int b = 0; b < m_b.bandes; ++b) {
      float* r = m_b.valeurs[b];
      const double* s = m_sommes.data() + b * m_n;
      // Uncovered pixels divide 0 by 1 (their sums are left-overs), so that the loop has no branch.
      for (size_t k = 0; k < m_n; ++k) {
        const bool garde = couvert[k] && p[k] > 0;
        r[k] = static_cast<float>((garde ? s[k] : 0.0) / (garde ? p[k] : 1.0));
      }
    }
  }

 private:
  BandeSortie m_b;
  size_t m_n = 0;
  std::vector<double> m_sommes, m_poids;
};

class ReglePlume : public RegleFusion {
 public:
  explicit ReglePlume(double largeur) : m_largeur(largeur) {}
  std::unique_ptr<AccumulateurFusion> Accumulateur(const BandeSortie& b) const override {
    return std::make_unique<Plume>(b);
  }
  double LargeurPlume() const override { return m_largeur; }

 private:
  double m_largeur;
};

class ReglePyramide : public ReglePlume {
 public:
  using ReglePlume::ReglePlume;
  bool Pyramide() const override { return true; }
};

template <class A>
class Regle : public RegleFusion {
 public:
  std::unique_ptr<AccumulateurFusion> Accumulateur(const BandeSortie& b) const override {
    return std::make_unique<A>(b);
  }
};

template <class A>
std::unique_ptr<RegleFusion> Creer(const ParametresFusion&) {
  return std::make_unique<Regle<A>>();
}

}  // namespace

const std::vector<LigneFusion>& TableFusions() {
  static const std::vector<LigneFusion> table = {
      {"moyenne", "moyenne des valeurs qui se recouvrent", Creer<Moyenne>},
      {"voronoi", "une seule image par pixel, celle dont le centre est le plus proche", Creer<Voronoi>},
      {"min", "minimum des valeurs qui se recouvrent", Creer<Extremum<false>>},
      {"max", "maximum des valeurs qui se recouvrent", Creer<Extremum<true>>},
      {"plume", "moyenne ponderee par la distance au bord de la zone valide (fondu sur --plume metres)",
       [](const ParametresFusion& p) -> std::unique_ptr<RegleFusion> {
         return std::make_unique<ReglePlume>(p.plume);
       }},
      {"multibande",
       "fusion par pyramide laplacienne (basses frequences sur --plume, detail sur un pixel ou deux)",
       [](const ParametresFusion& p) -> std::unique_ptr<RegleFusion> {
         return std::make_unique<ReglePyramide>(p.plume);
       }},
  };
  return table;
}
