// The mosaic job: read the ortho-images and their masks, prepare the radiometry, sample the footprint,
// solve the equalization, write the corrected images, compose and write the mosaic.
#include <cmath>
#include <fstream>
#include <iostream>

#include "egalise.h"
#include "mosaique.h"
#include "zepra/erreur.h"
#include "zepra/orientedimage.h"
#include "zepra/pipeline/integrales.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/pipeline/prelissage.h"
#include "zepra/pipeline/walis.h"
#include "zepra/stringpp.h"

namespace {

void Usage() {
  std::cout << "./exe cliche1 cliche2 .... clichen [options]" << std::endl;
  std::cout
      << "--reference:[moyenne/walis] --fusion:[moyenne/voronoi/min/max] "
         "--modele:[additif/multiplicatif] [--noegal] [--ssechfinal (=2)] [--pas (=50)] [--prelissewalis]"
      << std::endl;
}

// The file named prefix + N's file name, in N's directory.
std::string Voisin(const std::string& nom, const char* prefixe) {
  return stringpp::AdressefromDirFile(stringpp::Dir(nom), stringpp(prefixe) + stringpp::File(nom)).str();
}

// The job works on channel 0 of its inputs.
void GarderCanal0(TTOrientedImage<float>& im) {
  if (im.GetNbCanaux() == 1) return;
  TTImage<float> c0(im.iGetNbColonnes(), im.iGetNbLignes(), TagNbCanaux(1));
  c0.CopierCanal(im, 0, 0);
  im = TTOrientedImage<float>(c0, im.GetOrientation());
}

void Dilater(std::vector<TTImage<bool>>& masques, size_t i, const std::vector<T2D<int>>& disque) {
  const TTImage<bool> copie(masques[i]);
  MorphoPerso::DilatationRapide(copie, masques[i], disque);
}

// Pooled mean and deviation of all images inside their masks, then every image brought onto them.
void PrelisseWalis(std::vector<TTOrientedImage<float>>& orthos, const std::vector<TTImage<bool>>& masques) {
  std::vector<T3D<double>> brutes(orthos.size());
  PourChaque(orthos.size(), [&](size_t i) {
    TTImage<bool> dedans;
    InverseMasque(masques[i], dedans);
    TTImage<double> S, S2, N;
    images_integrales_mask(orthos[i], dedans, S, S2, N);
    stats_images_integrales_brutes(S, S2, N, brutes[i]);
  });
  // Summed in input order, whatever order the images were done in.
  double somme = 0, sommeCarres = 0, nombre = 0;
  for (const T3D<double>& b : brutes) {
    somme += b.x;
    sommeCarres += b.y;
    nombre += b.z;
  }
  const double moyenne = somme / nombre;
  const double ecart = std::sqrt(sommeCarres / nombre - moyenne * moyenne);
  std::cout << moyenne << " " << ecart << std::endl;
  PourChaque(orthos.size(),
             [&](size_t i) { PrelisseWalisMoy(orthos[i], masques[i], T2D<double>(moyenne, ecart)); });
}

}  // namespace

void Main_nouveau(int argc, char** argv) {
  if (argc == 1) {
    Usage();
    return;
  }
  const OptionsMosaique o = LireOptionsMosaique(argc, argv);
  const size_t n = o.entrees.size();

  // Inputs, and their "Incid_" masks when every one of them exists.
  std::vector<std::string> nomsOrtho(n), nomsIncid(n);
  bool tousLesMasques = true;
  for (size_t i = 0; i < n; ++i) {
    nomsOrtho[i] = Voisin(o.entrees[i], "Ort_");
    nomsIncid[i] = Voisin(o.entrees[i], "Incid_");
    tousLesMasques = tousLesMasques && std::ifstream(nomsIncid[i]).is_open();
  }
  std::vector<TTOrientedImage<float>> orthos(n);
  std::vector<TTImage<bool>> masques(n);
  PourChaqueOrdonne(
      n,
      [&](size_t i) {
        orthos[i].Lire(nomsOrtho[i].c_str());
        GarderCanal0(orthos[i]);
        if (!tousLesMasques) {
          image2masque(orthos[i], masques[i]);
          return;
        }
        const TTImage<float> flou(nomsIncid[i].c_str());
        if (flou.GetTaille() != orthos[i].GetTaille())
          ZEPRA_ERREUR("[Main_nouveau] (Masques) Le masque "
                       << nomsIncid[i] << " (" << flou.iGetNbColonnes() << " x " << flou.iGetNbLignes()
                       << ") n'a pas la taille de l'image " << nomsOrtho[i] << " ("
                       << orthos[i].iGetNbColonnes() << " x " << orthos[i].iGetNbLignes() << ").");
        masqueflou2masquenet(flou, masques[i]);
      },
      [&](size_t i, bool) { std::cout << "Lecture de " << nomsOrtho[i] << std::endl; });
  std::cout << (tousLesMasques ? "usemask : OK" : "usemask : non") << std::endl;

  // Radiometric preparation; the masks are widened around the excluded zones.
  if (o.prelissewalis) PrelisseWalis(orthos, masques);
  std::vector<TTImage<float>> walis;
  if (o.referenceWalis) {
    const std::vector<T2D<int>> disque = Disque(26);
    walis.resize(n);
    PourChaqueOrdonne(
        n,
        [&](size_t i) {
          ImageReferenceWalis(orthos[i], walis[i], 25, T2D<double>(127.5, 50.0));
          Dilater(masques, i, disque);
        },
        [&](size_t i, bool fait) {
          std::cout << "Walis " << i << std::endl;
          if (fait) std::cout << "OK" << std::endl;
        });
  } else {
    const std::vector<T2D<int>> disque = Disque(10);
    PourChaque(n, [&](size_t i) { Dilater(masques, i, disque); });
  }

  // Footprint: the union of the map extents.
  std::cout << "Calcul de l'emprise : " << std::endl;
  std::vector<GeoCarto> geos;
  Emprise emprise;
  for (size_t i = 0; i < n; ++i) {
    geos.emplace_back(orthos[i].GetOrientation());
    const GeoCarto& g = geos.back();
    if (i == 0 || g.minX < emprise.minX) emprise.minX = g.minX;
    if (i == 0 || g.minY < emprise.minY) emprise.minY = g.minY;
    if (i == 0 || g.maxX > emprise.maxX) emprise.maxX = g.maxX;
    if (i == 0 || g.maxY > emprise.maxY) emprise.maxY = g.maxY;
  }
  std::cout << emprise.minX << " " << emprise.minY << " --> " << emprise.maxX << " " << emprise.maxY
            << std::endl;

  // Equalization; the corrected values replace the ortho-images, which are no longer needed as such.
  if (!o.noegal) {
    std::cout << "Debut du calcul" << std::endl;
    std::vector<ImageObservee> observees(n);
    for (size_t i = 0; i < n; ++i) {
      observees[i].ortho = &orthos[i];
      observees[i].valeurs = o.referenceWalis ? &walis[i] : &orthos[i];
      observees[i].masque = &masques[i];
      observees[i].geo = geos[i];
    }
    std::vector<Polynome2D> polynomes;
    if (!Egaliser(observees, emprise, o.pas, o.multiplicatif, polynomes, std::cout)) return;
    std::vector<TTImage<float>>().swap(walis);
    PourChaque(n, [&](size_t i) {
      CorrigerImage(orthos[i], polynomes[i], o.multiplicatif);
      orthos[i].Sauver(Voisin(o.entrees[i], "Solution_").c_str());
    });
    std::cout << "Fin du calcul" << std::endl;
  }

  // Composition on a new map-projected grid covering the footprint.
  std::cout << "Debut de la creation de l'image finale" << std::endl;
  const double taille = (geos[0].pasX + geos[0].pasY) / 2 * o.ssechfinal;
  const double largeur = (emprise.maxX - emprise.minX) / taille,
               hauteur = (emprise.maxY - emprise.minY) / taille;
  if (!(largeur >= 1 && hauteur >= 1) || largeur * hauteur > 4e9)
    ZEPRA_ERREUR("[Main_nouveau] (Composition) Taille de mosaique impossible : "
                 << largeur << " x " << hauteur << " pixels de " << taille << ".");
  const OrientationOld oriMosaique(eORICarto, emprise.minX, emprise.maxY, geos[0].zone,
                                   static_cast<long>(largeur), static_cast<long>(hauteur), taille, taille);
  std::vector<ImageComposee> composees(n);
  for (size_t i = 0; i < n; ++i) {
    composees[i].valeurs = o.noegal && o.referenceWalis ? &walis[i] : &orthos[i];
    composees[i].masque = &masques[i];
    composees[i].geo = geos[i];
  }
  TTImage<float> mosaique(TagNbCanaux(1));
  Composer(composees, GeoCarto(oriMosaique), o.fusion, mosaique);
  stringpp nomOri(o.sortie);
  stringpp::SetExtension(nomOri, "ori");
  SauverAvecOrientation(oriMosaique, nomOri.c_str(),
                        [&] { mosaique.Sauver(o.sortie.c_str(), 0, OptionsImageOut::defaut()); });
}
