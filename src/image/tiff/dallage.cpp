// The "Dallage MPD" reader RasterArray: one image made of separate TIFF files.
#include <algorithm>

#include "blocs.h"
#include "lecteurs.h"
#include "zepra/erreur.h"

namespace tiff {

// "Dallage MPD": an image whose pixels lie in separate tile files (see LireDallage for their names).
// Every tile is a TIFF file of the main file's pixel type and channel count; the tiles of one column
// share a width, those of one line a height, and together they make the main file's size. Tile
// files are opened when their pixels are read.
class RasterArray : public ImplGetValeurs<RasterArray> {
 public:
  explicit RasterArray(const DescriptionTIFF& principal) : m_principal(principal) {
    const int nx = principal.dallesColonnes, ny = principal.dallesLignes;
    m_x.assign(static_cast<size_t>(nx) + 1, 0);
    m_y.assign(static_cast<size_t>(ny) + 1, 0);
    for (int j = 0; j < ny; ++j)
      for (int i = 0; i < nx; ++i) {
        TIFF_Annexes annexes(NomDalle(principal.nom, i, j));
        annexes.LireEntete();
        m_dalles.push_back(annexes.GetImage(false));
        const DescriptionTIFF& t = m_dalles.back();
        const eEnumType type = t.TypeLu();
        const int canaux = t.CanauxLus();
        if (type != principal.type || canaux != principal.canaux)
          ZEPRA_ERREUR("[RasterArray] (Constructeur) La dalle "
                       << t.nom << " (type " << type << ", " << canaux
                       << " canaux) ne correspond pas a l'image " << principal.nom << " (type "
                       << principal.type << ", " << principal.canaux << " canaux).");
        if ((j > 0 && t.colonnes != m_x[i + 1] - m_x[i]) || (i > 0 && t.lignes != m_y[j + 1] - m_y[j]))
          ZEPRA_ERREUR("[RasterArray] (Constructeur) La dalle "
                       << t.nom << " (" << t.colonnes << " x " << t.lignes
                       << ") n'a pas la largeur de sa colonne ou la hauteur "
                          "de sa ligne de dalles.");
        if (j == 0) m_x[i + 1] = m_x[i] + t.colonnes;
        if (i == 0) m_y[j + 1] = m_y[j] + t.lignes;
      }
    if (m_x[nx] != principal.colonnes || m_y[ny] != principal.lignes)
      ZEPRA_ERREUR("[RasterArray] (Constructeur) Les dalles de "
                   << principal.nom << " font " << m_x[nx] << " x " << m_y[ny] << " pixels, l'image "
                   << principal.colonnes << " x " << principal.lignes << ".");
  }
  SpecifImageIn* dup() const override { return new RasterArray(*this); }

  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m_principal.colonnes, m_principal.lignes); }
  int GetNbCanaux() const override { return m_principal.canaux; }
  eEnumType TypePixel() const override { return m_principal.type; }
  const MetadonneesImage* Metadonnees() const override { return tiff::Metadonnees(m_principal); }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override {
    ZEPRA_ERREUR("[RasterArray] (RawRead) Lecture brute impossible dans le fichier " << m_principal.nom);
  }

  template <class D>
  void GetValeursT(LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const {
    if (pas < 1 || x0 < 0 || y0 < 0 || x1 > m_principal.colonnes || y1 > m_principal.lignes)
      ZEPRA_ERREUR("[RasterArray] (GetValeurs) Rectangle ("
                   << x0 << ", " << y0 << ") - (" << x1 << ", " << y1 << ") de pas " << pas
                   << " hors de l'image du fichier " << m_principal.nom << ".");
    const int nx = m_principal.dallesColonnes;
    for (int j = 0; j + 1 < static_cast<int>(m_y.size()); ++j) {
      const long long yPremier = Blocs::SurGrille(y0, m_y[j], pas),
                      yFin = std::min<long long>(y1, m_y[j + 1]);
      if (yPremier >= yFin) continue;
      for (int i = 0; i < nx; ++i) {
        const long long xPremier = Blocs::SurGrille(x0, m_x[i], pas),
                        xFin = std::min<long long>(x1, m_x[i + 1]);
        if (xPremier >= xFin) continue;
        const std::unique_ptr<SpecifImageIn> dalle = CreerLecteur(m_dalles[static_cast<size_t>(j) * nx + i]);
        dalle->GetValeurs(dst, static_cast<int>(xPremier - m_x[i]), static_cast<int>(yPremier - m_y[j]),
                          static_cast<int>(xFin - m_x[i]), static_cast<int>(yFin - m_y[j]),
                          static_cast<int>(xDest + (xPremier - x0) / pas),
                          static_cast<int>(yDest + (yPremier - y0) / pas), pas);
      }
    }
  }

 private:
  DescriptionTIFF m_principal;
  std::vector<DescriptionTIFF> m_dalles;  // line after line
  std::vector<long long> m_x, m_y;        // first column of each tile column, first line of each tile line
};

std::unique_ptr<SpecifImageIn> CreerLecteurDallage(const DescriptionTIFF& d) {
  return std::make_unique<RasterArray>(d);
}

}  // namespace tiff
