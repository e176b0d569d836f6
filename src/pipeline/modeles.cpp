// The model table, the polynomial correction and the correction stage.
//
// How to add a model: write a class deriving from ModeleCorrection in its own file (its Ajuster builds
// a SystemeLineaire from the observations and solves it with ResoudreNormales, or solves its own way),
// declare its factory in modeles_internes.h and give it a row below.
#include "zepra/pipeline/modeles.h"

#include <algorithm>

#include "modeles_internes.h"
#include "zepra/erreur.h"

const std::vector<LigneModele>& TableModeles() {
  static const std::vector<LigneModele> table = {
      {"additif", "par image, un polynome de degre 2 de la position retranche (modele historique)",
       CreerModeleAdditif},
      {"multiplicatif", "par image, un polynome de degre 2 de la position divise (modele historique)",
       CreerModeleMultiplicatif},
      {"gain-offset", "par image et par bande, a(x, y) x v + b(x, y), ajuste sur des statistiques de blocs",
       nullptr},
  };
  return table;
}

CorrectionPolynome::CorrectionPolynome(std::vector<Polynome2D> parBande, bool multiplicatif)
    : m_polynomes(std::move(parBande)), m_multiplicatif(multiplicatif) {
  for (const Polynome2D& p : m_polynomes)
    if (p.Degre() != 2 || p.Coefficients().size() != 6)
      ZEPRA_ERREUR("[Main_nouveau] (CorrigerImage) Polynome de degre 2 attendu.");
}

void CorrectionPolynome::CorrigerLigne(int bande, int y, int x0, int n, float* valeurs) const {
  const double* c = m_polynomes[bande].Coefficients().data();
  for (int k = 0; k < n; ++k) {
    float& v = valeurs[k];
    if (v == 0.0f) continue;  // no data stays no data
    const double P = ValeurDegre2(c, x0 + k, y);
    v = static_cast<float>(m_multiplicatif ? v / P : v - P);
  }
}

void Corriger(const SourceLignes& source, const CorrectionImage& correction, PuitsLignes& puits) {
  const int w = source.Colonnes();
  std::vector<float> ligne(w);
  for (int b = 0; b < source.Bandes(); ++b)
    for (int y = 0; y < source.Lignes(); ++y) {
      const float* v = source.Ligne(b, y, 0, w, ligne.data());
      if (v != ligne.data()) std::copy(v, v + w, ligne.begin());
      correction.CorrigerLigne(b, y, 0, w, ligne.data());
      puits.Ecrire(b, y, ligne.data());
    }
}
