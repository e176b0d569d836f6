#include "harnais.h"

#include <algorithm>

#include "pipeline/blocs_stats.h"
#include "pipeline/multibande.h"
#include "pipeline/plume.h"

namespace {

// Lines per window of the statistics pass: the tiles are read as a streaming reader would.
constexpr int kLignesFenetre = 64;
constexpr int kTuileSortie = 256;

}  // namespace

std::vector<std::vector<float>> PoidsPlumes(const std::vector<TuileMemoire>& tuiles, double largeur) {
  std::vector<std::vector<float>> p(tuiles.size());
  for (size_t i = 0; i < tuiles.size(); ++i) {
    const TuileQualite& t = tuiles[i].def;
    p[i].resize(tuiles[i].valide.size());
    PoidsPlume(t.largeur, t.hauteur, Fenetre{0, 0, t.largeur, t.hauteur}, largeur, tuiles[i].valide.data(),
               t.largeur, p[i].data(), t.largeur);
  }
  return p;
}

std::vector<std::vector<float>> CorrigerGainOffset(const std::vector<TuileMemoire>& tuiles, const Reglages& r,
                                                   ResultatGainOffset* resultat) {
  GrilleBlocs g;
  g.bloc = r.bloc;
  for (const TuileMemoire& t : tuiles) {
    g.colonnes = std::max(g.colonnes, t.def.colonne0 + t.def.largeur);
    g.lignes = std::max(g.lignes, t.def.ligne0 + t.def.hauteur);
  }
  std::vector<StatsBlocs> stats;
  std::vector<ResumeImage> resumes;
  std::vector<float> ligne;
  for (const TuileMemoire& t : tuiles) {
    Placement p;
    p.x0 = static_cast<double>(t.def.colonne0);
    p.y0 = static_cast<double>(t.def.ligne0);
    stats.emplace_back(g, p, t.def.largeur, t.def.hauteur, 1);
    for (int l0 = 0; l0 < t.def.hauteur; l0 += kLignesFenetre) {
      const int n = std::min(kLignesFenetre, t.def.hauteur - l0);
      const unsigned char* bande = t.pixels.GetLines(l0);
      stats.back().Ajouter(0, l0, t.def.largeur, n, &bande, 1, t.def.largeur,
                           &t.valide[static_cast<size_t>(l0) * t.def.largeur], t.def.largeur);
    }
    resumes.push_back(Resumer(stats.back()));
  }
  ReferenceGainOffset reference;
  if (r.referenceFacteur > 0) {
    Placement p;
    p.sx = p.sy = r.referenceFacteur;
    stats.emplace_back(g, p, r.referenceLargeur, r.referenceHauteur, 1);
    const float* bande = r.reference.data();
    stats.back().Ajouter(0, 0, r.referenceLargeur, r.referenceHauteur, &bande, 1, r.referenceLargeur, nullptr,
                         0);
    resumes.push_back(Resumer(stats.back()));
    reference.image = static_cast<int>(tuiles.size());
    reference.ecarts = r.referenceFacteur == 1;
  }
  std::vector<const StatsBlocs*> pointeurs;
  for (const StatsBlocs& s : stats) pointeurs.push_back(&s);
  const ObservationsBlocs obs = ObserverBlocs(pointeurs, r.observations);
  ResultatGainOffset R = ResoudreGainOffset(resumes, obs, r.modele, {}, reference);

  std::vector<std::vector<float>> sortie(tuiles.size());
  for (size_t i = 0; i < tuiles.size(); ++i) {
    const TuileQualite& t = tuiles[i].def;
    sortie[i].resize(static_cast<size_t>(t.largeur) * t.hauteur);
    ligne.resize(t.largeur);
    for (int l = 0; l < t.hauteur; ++l) {
      const unsigned char* p = tuiles[i].pixels.GetLines(l);
      for (int c = 0; c < t.largeur; ++c) ligne[c] = p[c];
      R.corrections[i].CorrigerLigne(0, l, 0, t.largeur, ligne.data(),
                                     &sortie[i][static_cast<size_t>(l) * t.largeur]);
    }
  }
  if (resultat) *resultat = std::move(R);
  return sortie;
}

Mosaique Composer(const std::vector<TuileMemoire>& tuiles, const std::vector<std::vector<float>>& valeurs,
                  const std::vector<std::vector<float>>& poids, int largeur, int hauteur, const Reglages& r) {
  Mosaique m;
  m.largeur = largeur;
  m.hauteur = hauteur;
  m.v.assign(static_cast<size_t>(largeur) * hauteur, 0.0f);
  if (r.fusion != Fusion::multibande) {
    FusionPlume f(largeur, hauteur, 1);
    for (size_t i = 0; i < tuiles.size(); ++i) {
      const TuileQualite& t = tuiles[i].def;
      for (int l = 0; l < t.hauteur; ++l) {
        const size_t k = static_cast<size_t>(l) * t.largeur;
        f.Ajouter(0, static_cast<int>(t.ligne0 + l), static_cast<int>(t.colonne0), t.largeur, &valeurs[i][k],
                  &poids[i][k]);
      }
    }
    for (int l = 0; l < hauteur; ++l) f.Terminer(0, l, &m.v[static_cast<size_t>(l) * largeur], 0.0f);
    return m;
  }
  // Multi-band blending by output tiles, each read with its margin, its origin on the pyramid's grid.
  const int niveaux = NiveauxMultibande(r.plume), marge = MargeMultibande(niveaux);
  for (int y0 = 0; y0 < hauteur; y0 += kTuileSortie)
    for (int x0 = 0; x0 < largeur; x0 += kTuileSortie) {
      const int gx = x0 - marge, gy = y0 - marge;
      const int gw = std::min(kTuileSortie, largeur - x0) + 2 * marge,
                gh = std::min(kTuileSortie, hauteur - y0) + 2 * marge;
      const size_t plan = static_cast<size_t>(gw) * gh;
      std::vector<std::vector<float>> v, w;
      for (size_t i = 0; i < tuiles.size(); ++i) {
        const TuileQualite& t = tuiles[i].def;
        const long long c0 = std::max<long long>(gx, t.colonne0),
                        c1 = std::min<long long>(gx + gw, t.colonne0 + t.largeur);
        const long long l0 = std::max<long long>(gy, t.ligne0),
                        l1 = std::min<long long>(gy + gh, t.ligne0 + t.hauteur);
        if (c0 >= c1 || l0 >= l1) continue;
        v.emplace_back(plan, 0.0f);
        w.emplace_back(plan, 0.0f);
        for (long long l = l0; l < l1; ++l)
          for (long long c = c0; c < c1; ++c) {
            const size_t src = static_cast<size_t>((l - t.ligne0) * t.largeur + (c - t.colonne0));
            const size_t dst = static_cast<size_t>((l - gy) * gw + (c - gx));
            v.back()[dst] = valeurs[i][src];
            w.back()[dst] = poids[i][src];
          }
      }
      if (v.empty()) continue;
      std::vector<ContributionMultibande> contributions(v.size());
      for (size_t k = 0; k < v.size(); ++k)
        contributions[k] = ContributionMultibande{v[k].data(), w[k].data()};
      std::vector<float> sortie(plan);
      MelangerMultibande(contributions, gw, gh, 1, niveaux, sortie.data(), 0.0f);
      for (int l = y0; l < std::min(hauteur, y0 + kTuileSortie); ++l)
        for (int c = x0; c < std::min(largeur, x0 + kTuileSortie); ++c)
          m.v[static_cast<size_t>(l) * largeur + c] = sortie[static_cast<size_t>(l - gy) * gw + (c - gx)];
    }
  return m;
}
