#include "zepra/pipeline/sources.h"

#include <algorithm>

#include "zepra/erreur.h"

SourceMemoire::SourceMemoire(const TTImage<float>& valeurs, const TTImage<float>* temoin,
                             const TTImage<bool>* masque)
    : m_valeurs(valeurs), m_temoin(temoin), m_masque(masque) {
  if ((temoin && temoin->GetTaille() != valeurs.GetTaille()) ||
      (masque && (masque->GetTaille() != valeurs.GetTaille() || masque->GetNbCanaux() != 1)))
    ZEPRA_ERREUR("[SourceMemoire] (SourceMemoire) Image "
                 << valeurs.GetTaille() << ", temoin " << (temoin ? temoin->GetTaille() : TPoint2D<int>())
                 << ", masque " << (masque ? masque->GetTaille() : TPoint2D<int>())
                 << " : tailles differentes.");
}

const float* SourceMemoire::Ligne(int bande, int y, int x0, int n, float* tampon) const {
  const int canaux = m_valeurs.GetNbCanaux();
  const float* l = m_valeurs.GetLines(y);
  if (canaux == 1) return l + x0;
  for (int k = 0; k < n; ++k) tampon[k] = l[static_cast<long>(x0 + k) * canaux + bande];
  return tampon;
}

void SourceMemoire::Validite(int y, int x0, int n, unsigned char* valide) const {
  std::fill(valide, valide + n, static_cast<unsigned char>(1));
  if (m_temoin) {
    const int canaux = m_temoin->GetNbCanaux();
    const float* t = m_temoin->GetLines(y) + static_cast<long>(x0) * canaux;
    for (int k = 0; k < n; ++k)
      for (int c = 0; c < canaux; ++c)
        if (t[static_cast<long>(k) * canaux + c] == 0.0f) valide[k] = 0;
  }
  if (m_masque) {
    auto m = m_masque->GetLines(y) + x0;
    for (int k = 0; k < n; ++k, ++m)
      if (*m) valide[k] = 0;
  }
}

void PuitsMemoire::Ecrire(int bande, int y, const float* valeurs) {
  const int canaux = m_image.GetNbCanaux(), w = m_image.iGetNbColonnes();
  float* l = m_image.GetLines(y);
  if (canaux == 1) {
    if (l != valeurs) std::copy(valeurs, valeurs + w, l);
    return;
  }
  for (int x = 0; x < w; ++x) l[static_cast<long>(x) * canaux + bande] = valeurs[x];
}
