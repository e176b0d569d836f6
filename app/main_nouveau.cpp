// The mosaic job of the compatibility mode: its command line, its console lines and the conventions of
// its files ("Ort_", "Incid_" and "Solution_" beside each input name, band 0 only, 0 as no data, masks
// all or none, masks widened by a disc) around the stages of the pipeline library.
#include <iostream>
#include <memory>

#include "egalise.h"
#include "mosaique.h"
#include "sorties.h"
#include "zepra/pipeline/composition.h"
#include "zepra/pipeline/entrees.h"
#include "zepra/pipeline/integrales.h"
#include "zepra/pipeline/modeles.h"
#include "zepra/pipeline/observations.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/pipeline/prelissage.h"
#include "zepra/pipeline/walis.h"
#include "zepra/stringpp.h"
#include "zepra/systeme.h"

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

// Sources over the inputs and their masks. Values from 'valeurs' when given, else from the inputs'
// own images; no data where the values are 0, or with 'zerosDesEntrees' where the inputs are 0.
std::vector<std::unique_ptr<SourceMemoire>> Sources(const std::vector<ImageEntree>& entrees,
                                                    const std::vector<TTImage<float>>* valeurs,
                                                    bool zerosDesEntrees) {
  std::vector<std::unique_ptr<SourceMemoire>> s;
  for (size_t i = 0; i < entrees.size(); ++i) {
    const TTImage<float>& v = valeurs ? (*valeurs)[i] : entrees[i].image;
    s.push_back(
        std::make_unique<SourceMemoire>(v, zerosDesEntrees ? &entrees[i].image : &v, &entrees[i].masque));
  }
  return s;
}

}  // namespace

void Main_nouveau(int argc, char** argv) {
  if (argc == 1) {
    Usage();
    return;
  }
  const OptionsMosaique o = LireOptionsMosaique(argc, argv);
  const size_t n = o.entrees.size();

  // Inputs, band 0 only, and their "Incid_" masks when every one of them exists, else masks of their
  // zeros.
  std::vector<std::string> nomsOrtho(n), nomsIncid(n);
  bool tousLesMasques = true;
  for (size_t i = 0; i < n; ++i) {
    nomsOrtho[i] = Voisin(o.entrees[i], "Ort_");
    nomsIncid[i] = Voisin(o.entrees[i], "Incid_");
    tousLesMasques = tousLesMasques && Systeme::ExisteFichier(nomsIncid[i].c_str());
  }
  std::vector<ImageEntree> entrees(n);
  PourChaqueOrdonne(
      n,
      [&](size_t i) {
        LireImageEntree(nomsOrtho[i], 0, entrees[i]);
        if (tousLesMasques)
          MasqueDepuisFichier(nomsIncid[i], nomsOrtho[i], entrees[i]);
        else
          image2masque(entrees[i].image, entrees[i].masque);
      },
      [&](size_t i, bool) { std::cout << "Lecture de " << nomsOrtho[i] << std::endl; });
  std::cout << (tousLesMasques ? "usemask : OK" : "usemask : non") << std::endl;

  // Radiometric preparation; the masks are widened around the excluded zones.
  if (o.prelissewalis) {
    const T2D<double> cible = StatistiquesCommunes(entrees);
    std::cout << cible.x << " " << cible.y << std::endl;
    PourChaque(n, [&](size_t i) { PrelisseWalisMoy(entrees[i].image, entrees[i].masque, cible); });
  }
  std::vector<TTImage<float>> walis;
  if (o.referenceWalis) {
    const std::vector<T2D<int>> disque = Disque(26);
    walis.resize(n);
    PourChaqueOrdonne(
        n,
        [&](size_t i) {
          ImageReferenceWalis(entrees[i].image, walis[i], kDemiLargeurWalis, T2D<double>(127.5, 50.0));
          DilaterMasque(entrees[i].masque, disque);
        },
        [&](size_t i, bool fait) {
          std::cout << "Walis " << i << std::endl;
          if (fait) std::cout << "OK" << std::endl;
        });
  } else {
    const std::vector<T2D<int>> disque = Disque(10);
    PourChaque(n, [&](size_t i) { DilaterMasque(entrees[i].masque, disque); });
  }

  std::cout << "Calcul de l'emprise : " << std::endl;
  std::vector<GeoCarto> geos;
  for (const ImageEntree& e : entrees) geos.emplace_back(e.image.GetOrientation());
  const Emprise emprise = UnionEmprises(geos);
  std::cout << emprise.minX << " " << emprise.minY << " --> " << emprise.maxX << " " << emprise.maxY
            << std::endl;

  // Equalization: observed values from the Wallis images when there are some, no data where the
  // ortho-image is 0; the corrected values replace the ortho-images. An error once some of them are
  // saved (another cannot be, nor can the mosaic) removes them.
  SortiesEcrites solutions(n);
  std::vector<std::string> nomsSolution(n);
  for (size_t i = 0; i < n; ++i) nomsSolution[i] = Voisin(o.entrees[i], "Solution_");
  const std::vector<bool> aEcrire = DerniersNoms(nomsSolution);  // an input given twice is written once
  if (!o.noegal) {
    std::cout << "Debut du calcul" << std::endl;
    std::vector<ImageObservee> observees(n);
    Observations obs;
    {
      const auto sources = Sources(entrees, o.referenceWalis ? &walis : nullptr, true);
      for (size_t i = 0; i < n; ++i) observees[i] = ImageObservee{sources[i].get(), geos[i]};
      obs = Observer(observees, emprise, o.pas);
    }
    // Every observation gives two equations.
    std::cout << obs.points.size() << " points " << 2 * obs.obs.size() << " eqs" << std::endl;
    const LigneModele* modele = ChercherModele(o.multiplicatif ? "multiplicatif" : "additif");
    std::vector<std::unique_ptr<CorrectionImage>> corrections;
    if (!modele->creer(ParametresModele())->Ajuster(obs, &std::cout, corrections)) return;
    std::vector<TTImage<float>>().swap(walis);
    PourChaque(n, [&](size_t i) {
      const SourceMemoire source(entrees[i].image);
      PuitsMemoire puits(entrees[i].image);
      Corriger(source, *corrections[i], puits);
      if (!aEcrire[i]) return;
      entrees[i].image.Sauver(nomsSolution[i].c_str());
      solutions.Noter(i, nomsSolution[i], true);
    });
    std::cout << "Fin du calcul" << std::endl;
  }

  // Composition on a new map-projected grid covering the footprint, pixels the mean of the first
  // input's two steps times the subsampling factor; no data where the composed values are 0.
  std::cout << "Debut de la creation de l'image finale" << std::endl;
  const GrilleSortie grille =
      GrilleSurEmprise(emprise, (geos[0].pasX + geos[0].pasY) / 2 * o.ssechfinal, geos[0].zone);
  const OrientationOld oriMosaique = OrientationGrille(grille);
  const auto sources = Sources(entrees, o.noegal && o.referenceWalis ? &walis : nullptr, false);
  std::vector<ImageComposee> composees(n);
  for (size_t i = 0; i < n; ++i) composees[i] = ImageComposee{sources[i].get(), geos[i]};
  const std::unique_ptr<RegleFusion> regle = ChercherFusion(NomFusion(o.fusion))->creer(ParametresFusion());
  ComposerEtSauver(composees, GeoCarto(oriMosaique), *regle, oriMosaique, o.sortie);
  solutions.Garder();
}
