#include "zepra/pipeline/entrees.h"

#include "zepra/erreur.h"
#include "zepra/pipeline/integrales.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/pipeline/prelissage.h"

#include <cmath>

void LireImageEntree(const std::string& chemin, int canal, ImageEntree& e) {
  e.image.Lire(chemin.c_str());
  if (canal < 0 || e.image.GetNbCanaux() == 1) return;
  if (canal >= e.image.GetNbCanaux())
    ZEPRA_ERREUR("[Main_nouveau] (Lecture) L'image " << chemin << " n'a que " << e.image.GetNbCanaux()
                                                     << " canaux ; canal " << canal << " demande.");
  TTImage<float> seul(e.image.iGetNbColonnes(), e.image.iGetNbLignes(), TagNbCanaux(1));
  seul.CopierCanal(e.image, canal, 0);
  e.image = TTOrientedImage<float>(seul, e.image.GetOrientation());
}

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

void MasqueDepuisFichier(const std::string& cheminMasque, const std::string& cheminImage, ImageEntree& e) {
  const TTImage<float> flou(cheminMasque.c_str());
  if (flou.GetTaille() != e.image.GetTaille())
    ZEPRA_ERREUR("[Main_nouveau] (Masques) Le masque "
                 << cheminMasque << " (" << flou.iGetNbColonnes() << " x " << flou.iGetNbLignes()
                 << ") n'a pas la taille de l'image " << cheminImage << " (" << e.image.iGetNbColonnes()
                 << " x " << e.image.iGetNbLignes() << ").");
  masqueflou2masquenet(flou, e.masque);
}

void DilaterMasque(TTImage<bool>& masque, const std::vector<T2D<int>>& disque) {
  const TTImage<bool> copie(masque);
  MorphoPerso::DilatationRapide(copie, masque, disque);
}

T2D<double> StatistiquesCommunes(const std::vector<ImageEntree>& entrees) {
  std::vector<T3D<double>> brutes(entrees.size());
  PourChaque(entrees.size(), [&](size_t i) {
    TTImage<bool> dedans;
    InverseMasque(entrees[i].masque, dedans);
    TTImage<double> S, S2, N;
    images_integrales_mask(entrees[i].image, dedans, S, S2, N);
    stats_images_integrales_brutes(S, S2, N, brutes[i]);
  });
  double somme = 0, sommeCarres = 0, nombre = 0;
  for (const T3D<double>& b : brutes) {
    somme += b.x;
    sommeCarres += b.y;
    nombre += b.z;
  }
  const double moyenne = somme / nombre;
  return T2D<double>(moyenne, std::sqrt(sommeCarres / nombre - moyenne * moyenne));
}
