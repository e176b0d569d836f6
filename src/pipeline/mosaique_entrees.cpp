#include "pipeline/mosaique_entrees.h"

#include <sys/stat.h>

#include <cmath>

#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/imageorientation.h"
#include "zepra/masque.h"

namespace {

bool FichierExiste(const std::string& nom) {
  struct stat s;
  return ::stat(nom.c_str(), &s) == 0 && S_ISREG(s.st_mode);
}

// The name without its extension (the last dot after the last slash).
std::string SansExtension(const std::string& nom) {
  const size_t point = nom.rfind('.'), barre = nom.rfind('/');
  if (point == std::string::npos || (barre != std::string::npos && point < barre)) return nom;
  return nom.substr(0, point);
}

}  // namespace

EntreeMosaique::EntreeMosaique(const std::string& nom, bool nodataDonne, double nodata,
                               const std::string& suffixe)
    : m_nom(nom) {
  m_fichier = std::make_unique<ImageFicIn>(nom.c_str());
  const TPoint2D<int> t = m_fichier->GetTaille();
  m_colonnes = t.x;
  m_lignes = t.y;
  m_canaux = m_fichier->GetNbCanaux();
  m_type = m_fichier->TypePixel();
  m_meta = m_fichier->Metadonnees();
  if (m_colonnes < 1 || m_lignes < 1 || m_canaux < 1)
    ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << nom << " est vide.");
  m_alpha = m_meta && m_canaux > 1 ? m_meta->canalAlpha : -1;
  for (int c = 0; c < m_canaux; ++c)
    if (c != m_alpha) m_bandes.push_back(c);

  const std::unique_ptr<ImageOrientation> ori = ImageOrientation::CreateImageOrientation(nom.c_str());
  const auto* carto = dynamic_cast<const CartoProjOrientation*>(ori.get());
  if (!carto)
    ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << nom
                                                 << " n'est pas placee sur une grille cartographique.");
  if (carto->GetNs() != m_colonnes || carto->GetNl() != m_lignes)
    ZEPRA_ERREUR("[Mosaique] (Entrees) L'orientation de " << nom << " decrit " << carto->GetNs() << " x "
                                                          << carto->GetNl() << " pixels, l'image en a "
                                                          << m_colonnes << " x " << m_lignes << ".");
  const GeoreferenceEcriture g = carto->GeoreferencePourEcriture();
  m_x0 = g.x0;
  m_y0 = g.y0;
  m_pasX = g.pasX;
  m_pasY = g.pasY;
  m_crs = carto->PartageSystemeReference();
  if (!(std::isfinite(m_x0) && std::isfinite(m_y0) && m_pasX > 0 && m_pasY > 0 && std::isfinite(m_pasX) &&
        std::isfinite(m_pasY)))
    ZEPRA_ERREUR("[Mosaique] (Entrees) La grille de " << nom << " est inutilisable.");

  if (nodataDonne) {
    m_regle = RegleValidite::kNodata;
    m_nodata = nodata;
  } else if (m_meta && m_meta->nodataPresent) {
    m_regle = RegleValidite::kNodata;
    m_nodata = m_meta->nodata;
  } else if (m_alpha >= 0) {
    m_regle = RegleValidite::kAlpha;
  } else if ((m_masque = OuvrirMasqueValidite(nom))) {
    m_regle = RegleValidite::kMasque;
  }

  if (!suffixe.empty()) {
    m_nomExclusion = SansExtension(nom) + suffixe;
    if (!FichierExiste(m_nomExclusion))
      ZEPRA_ERREUR("[Mosaique] (Entrees) Le masque d'exclusion " << m_nomExclusion << " de l'image " << nom
                                                                 << " n'existe pas.");
    m_exclusion = std::make_unique<ImageFicIn>(m_nomExclusion.c_str());
    if (m_exclusion->GetTaille() != t)
      ZEPRA_ERREUR("[Mosaique] (Entrees) Le masque d'exclusion "
                   << m_nomExclusion << " (" << m_exclusion->GetTaille().x << " x "
                   << m_exclusion->GetTaille().y << ") n'a pas la taille de l'image " << nom << ".");
  }
}

size_t EntreeMosaique::OctetsFenetre(int nx, int ny) const {
  size_t n = static_cast<size_t>(nx) * ny;
  return (m_masque ? n : 0) + (m_exclusion ? n * sizeof(float) * m_exclusion->GetNbCanaux() : 0) +
         static_cast<size_t>(ny) * 3 * sizeof(void*);
}

void EntreeMosaique::Lire(int x0, int y0, int nx, int ny, float* valeurs, unsigned char* valide) const {
  if (x0 < 0 || y0 < 0 || nx < 1 || ny < 1 || x0 + nx > m_colonnes || y0 + ny > m_lignes)
    ZEPRA_ERREUR("[Mosaique] (Lire) Fenetre " << x0 << ", " << y0 << ", " << nx << " x " << ny
                                              << " hors de l'image " << m_nom << ".");
  const size_t pas = static_cast<size_t>(nx) * m_canaux;
  std::vector<float*> lignes(ny);
  for (int y = 0; y < ny; ++y) lignes[y] = valeurs + y * pas;
  std::vector<unsigned char> masque;
  std::vector<float> exclusion;
  {
    // Readers keep their own position in the file: one read at a time per input.
    std::lock_guard<std::mutex> verrou(m_verrou);
    m_fichier->GetValeursT<float>(lignes.data(), x0, y0, x0 + nx, y0 + ny, 0, 0, 1);
    if (m_masque) {
      masque.resize(static_cast<size_t>(nx) * ny);
      std::vector<unsigned char*> lm(ny);
      for (int y = 0; y < ny; ++y) lm[y] = masque.data() + static_cast<size_t>(y) * nx;
      m_masque->GetValeurs(lm.data(), x0, y0, x0 + nx, y0 + ny, 0, 0, 1);
    }
    if (m_exclusion) {
      const int ce = m_exclusion->GetNbCanaux();
      exclusion.resize(static_cast<size_t>(nx) * ny * ce);
      for (int y = 0; y < ny; ++y) lignes[y] = exclusion.data() + static_cast<size_t>(y) * nx * ce;
      m_exclusion->GetValeursT<float>(lignes.data(), x0, y0, x0 + nx, y0 + ny, 0, 0, 1);
    }
  }
  const int nb = Bandes(), canaux = m_canaux;
  const bool nodataNan = std::isnan(m_nodata);
  const float nodata = static_cast<float>(m_nodata);
  const int ce = m_exclusion ? m_exclusion->GetNbCanaux() : 0;
  for (int y = 0; y < ny; ++y) {
    const float* v = valeurs + y * pas;
    unsigned char* ok = valide + static_cast<size_t>(y) * nx;
    const size_t dy = static_cast<size_t>(y) * nx;
    for (int x = 0; x < nx; ++x) {
      const float* p = v + static_cast<size_t>(x) * canaux;
      bool bon = true;
      for (int b = 0; b < nb; ++b) {
        const float s = p[m_bandes[b]];
        switch (m_regle) {
          case RegleValidite::kNodata:
            bon = bon && !std::isnan(s) && (nodataNan || s != nodata);
            break;
          case RegleValidite::kZero:
            bon = bon && !std::isnan(s) && s != 0.0f;
            break;
          default:
            bon = bon && !std::isnan(s);
        }
      }
      if (m_regle == RegleValidite::kAlpha) bon = bon && p[m_alpha] != 0.0f;
      if (m_regle == RegleValidite::kMasque) bon = bon && masque[dy + x] != 0;
      if (m_exclusion) bon = bon && exclusion[(dy + x) * ce] == 0.0f;
      ok[x] = bon;
    }
  }
}
