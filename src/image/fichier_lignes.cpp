// What the file readers and writers share.
#include "fichier_lignes.h"

#include "zepra/erreur.h"

bool RectangleALire(const char* classe, const std::string& nom, const TPoint2D<int>& taille, int x0, int y0,
                    int x1, int y1, int pas) {
  if (pas < 1 || x1 <= x0 || y1 <= y0) return false;
  if (x0 < 0 || y0 < 0 || x1 > taille.x || y1 > taille.y)
    ZEPRA_ERREUR("[" << classe << "] (GetValeurs) Rectangle " << TRectangle<int>(x0, y0, x1, y1)
                     << " hors de l'image " << taille.x << " x " << taille.y << " du fichier " << nom);
  return true;
}

void RawReadImpossible(const char* classe) {
  ZEPRA_ERREUR("[" << classe << "] (RawRead) Appel a une methode impossible.");
}

void EcrivainForme::SetTaille(int colonnes, int lignes) {
  if (colonnes != m_taille.x || lignes != m_taille.y)
    ZEPRA_ERREUR("[" << m_classe << "] (SetTaille) Taille " << colonnes << " x " << lignes
                     << " demandee, le fichier " << m_nom << " fait " << m_taille.x << " x " << m_taille.y
                     << ".");
}

void EcrivainForme::SetNbCanaux(TagNbCanaux n) {
  if (n.nb != m_canaux)
    ZEPRA_ERREUR("[" << m_classe << "] (SetNbCanaux) " << n.nb << " canaux demandes, le fichier " << m_nom
                     << " en a " << m_canaux << ".");
}

void EcrivainForme::SetTypePixel(eEnumType type) {
  if (type != m_type)
    ZEPRA_ERREUR("[" << m_classe << "] (SetTypePixel) Type " << InfoType::NomType(type)
                     << " demande, le fichier " << m_nom << " est de type " << InfoType::NomType(m_type)
                     << ".");
}

void EcrivainForme::RawWrite(const char*, unsigned int) {
  ZEPRA_ERREUR("[" << m_classe << "] (RawWrite) Appel a une methode impossible.");
}

void EcrivainParLignes::Ouvrir() {
  try {
    m_fichier = std::make_unique<FichierAtomique>(m_nom, "[" + m_classe + "::Open(" + m_nom + ")] :");
  } catch (const Erreur&) {
    ZEPRA_ERREUR("[" << m_classe << "::Open(" << m_nom << ")] : Probleme a l'ouverture du fichier\n");
  }
}

bool EcrivainParLignes::RectangleAEcrire(int x0, int y0, int x1, int y1, int xDest, int yDest, int pas,
                                         long long& nx, long long& ny) const {
  if (m_termine) ZEPRA_ERREUR("[" << m_classe << "] (SetValeurs) Fichier " << m_nom << " deja termine");
  if (pas < 1 || x1 <= x0 || y1 <= y0) return false;
  nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
  ny = (static_cast<long long>(y1) - y0 + pas - 1) / pas;
  const TPoint2D<int> t = GetTaille();
  if (xDest < 0 || yDest < 0 || xDest + nx > t.x || yDest + ny > t.y)
    ZEPRA_ERREUR("[" << m_classe << "] (SetValeurs) Rectangle de " << nx << " x " << ny << " en (" << xDest
                     << "," << yDest << ") hors de l'image " << t.x << " x " << t.y << " du fichier "
                     << m_nom);
  return true;
}

void EcrivainParLignes::Terminer() {
  if (m_termine) return;
  if (m_suivi.LignesManquantes() > 0)
    ZEPRA_ERREUR("[" << m_classe << "] (Terminer) Image incomplete : " << m_suivi.LignesManquantes()
                     << " lignes non ecrites (la premiere : " << m_suivi.PremiereManquante() << ") dans "
                     << m_nom);
  Finir();
  m_fichier->Valider();
  m_termine = true;
}
