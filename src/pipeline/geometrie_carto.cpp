#include "zepra/pipeline/geometrie_carto.h"

#include "zepra/cartoproj.h"
#include "zepra/erreur.h"

GeoCarto::GeoCarto(const OrientationOld& ori) {
  const CartoProjOrientation* c =
      dynamic_cast<const CartoProjOrientation*>(ori.GetInternalImageOrientation());
  if (!c || ori.GetOriType() != eORICarto)
    ZEPRA_ERREUR("[Main_nouveau] (GeoCarto) L'orientation "
                 << ori.GetFileName()
                 << " n'est pas une orientation carto : le calcul de "
                    "mosaique demande des ortho-images.");
  x0 = c->GetXOrigine();
  y0 = c->GetYOrigine();
  pasX = c->GetXStep();
  pasY = c->GetYStep();
  zone = c->GetZoneLambert();
  colonnes = c->GetNs();
  lignes = c->GetNl();
  c->EmpriseCarto(minX, minY, maxX, maxY);
}

Emprise UnionEmprises(const std::vector<GeoCarto>& geos) {
  Emprise e;
  for (size_t i = 0; i < geos.size(); ++i) {
    const GeoCarto& g = geos[i];
    if (i == 0 || g.minX < e.minX) e.minX = g.minX;
    if (i == 0 || g.minY < e.minY) e.minY = g.minY;
    if (i == 0 || g.maxX > e.maxX) e.maxX = g.maxX;
    if (i == 0 || g.maxY > e.maxY) e.maxY = g.maxY;
  }
  return e;
}

AxeGrille::AxeGrille(double debut, double fin, double pas) : m_pas(pas), m_fin(fin) {
  for (double p = debut; p < fin; p += pas, ++m_taille) {
    if (m_taille % kIntervalle == 0) m_reperes.push_back(p);
    // A step below the spacing of doubles at p would never leave p.
    if (!(p + pas > p))
      ZEPRA_ERREUR("[Main_nouveau] (Egaliser) Le pas " << pas << " ne fait pas avancer la grille au-dela de "
                                                       << p << ".");
  }
}

GrilleSortie GrilleSurEmprise(const Emprise& e, double pas, int zone) {
  const double largeur = (e.maxX - e.minX) / pas, hauteur = (e.maxY - e.minY) / pas;
  if (!(largeur >= 1 && hauteur >= 1) || largeur * hauteur > 4e9 || largeur >= 0x1p31 || hauteur >= 0x1p31)
    ZEPRA_ERREUR("[Main_nouveau] (Composition) Taille de mosaique impossible : "
                 << largeur << " x " << hauteur << " pixels de " << pas << ".");
  GrilleSortie g;
  g.x0 = e.minX;
  g.y0 = e.maxY;
  g.pas = pas;
  g.zone = zone;
  g.colonnes = static_cast<long>(largeur);
  g.lignes = static_cast<long>(hauteur);
  return g;
}

OrientationOld OrientationGrille(const GrilleSortie& g) {
  return OrientationOld(eORICarto, g.x0, g.y0, g.zone, g.colonnes, g.lignes, g.pas, g.pas);
}
