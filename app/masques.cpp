#include "mosaique.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"

void masqueflou2masquenet(const TTImage<float>& flou, TTImage<bool>& net) {
  net.Construire(flou.iGetNbColonnes(), flou.iGetNbLignes(), 1);
  for (int y = 0; y < flou.iGetNbLignes(); ++y) {
    const float* l = flou.GetLines(y);
    auto m = net.GetLines(y);
    const int n = flou.GetNbCanaux();
    for (int x = 0; x < flou.iGetNbColonnes(); ++x) m[x] = !(l[static_cast<long>(x) * n] == 0.0f);
  }
}

void masqueflou2masquenet(TTImage<float>& flou) {
  for (float& v : flou)
    if (!(v == 0.0f)) v = 1.0f;
}

template <class T>
void image2masque(const TTImage<T>& image, TTImage<bool>& masque) {
  masque.Construire(image.iGetNbColonnes(), image.iGetNbLignes(), 1);
  const int n = image.GetNbCanaux();
  for (int y = 0; y < image.iGetNbLignes(); ++y) {
    const T* l = image.GetLines(y);
    auto m = masque.GetLines(y);
    for (int x = 0; x < image.iGetNbColonnes(); ++x) m[x] = l[static_cast<long>(x) * n] == T(0);
  }
}

template void image2masque<float>(const TTImage<float>&, TTImage<bool>&);

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
