// The job of the conventional front end: georeferenced tiles in, every band equalized, one GeoTIFF
// mosaic out, through bounded memory. The stages are methods of one object built from the settings,
// so that a single process and a cluster run (one command per phase, sharing a work folder) go
// through the same code and write the same bytes:
//   Preparer   every input opened (headers only), georeferenced and checked, the output grid, the
//              file plan and the memory plan decided; nothing read, nothing written;
//   Observer   one input read window by window, only its block statistics kept;
//   Resoudre   the corrections of every input and band;
//   Composer   rows of output tiles: each input's windows read, corrected, fused, compressed;
//   Assembler  the final file from the compressed rows.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zepra/metadonnees.h"
#include "zepra/optionsecriture.h"
#include "zepra/pipeline/modeles.h"

struct ParametresMosaique {
  std::vector<std::string> entrees;
  std::string sortie;

  // Equalization: a row of the model table; gain-offset settings (degrees -1: chosen from the number of
  // images, DegreAutomatique); the additive and multiplicative models' step.
  std::string modele = "gain-offset";
  ParametresModele gainOffset{-1, -1};
  double pas = 0;  // metres between observation points of the additive and multiplicative models; 0: chosen
  bool noegal = false;
  // A radiometric reference (gain-offset only): a georeferenced image of the same ground, system and
  // bands, its pixel at most a block of the grid; observed like an input, its correction fixed to
  // identity, so that the groups of inputs it touches take its levels. Never part of the mosaic.
  std::string reference;

  // Fusion: a row of the fusion table; feather width in metres, 0: chosen from the overlaps.
  std::string fusion = "plume";
  double plume = 0;

  // Validity.
  bool nodataDonne = false;
  double nodata = 0;
  std::string masqueSuffixe;

  // Output grid.
  double resolutionX = 0, resolutionY = 0;
  bool empriseDonnee = false;
  double emprise[4] = {0, 0, 0, 0};
  std::string reechantillonnage;  // empty: chosen

  // Files written: the options of the writer (type, compression, tiles, COG, EPSG); the no-data value
  // and the alpha band are decided by the job.
  OptionsEcriture ecriture;
  std::string corriges;

  int memoireMio = 1024;
  // The share of memoireMio the gain-offset model's block statistics, observations and solve may take
  // (their estimate, EstimerMemoireEgalisation): without --bloc the block side doubles from 16 until it
  // fits, a --bloc that does not fit is refused. Half: the observation reads its windows in the other
  // half, and the composition, which comes after the statistics are freed, has the whole.
  double partEgalisation = 0.5;
};

// What a run reports: per input, per band, per stage.
struct RapportMosaique {
  struct Entree {
    std::string nom;
    int bandes = 0, colonnes = 0, lignes = 0;
    long long observations = 0;
    int groupe = -1;
    std::string correction;  // a JSON value
  };
  struct Bande {
    // Over the pairs of images compared; pairs whose overlaps hold different content are set aside, and
    // counted with their blocks.
    double rmseAvant = 0, rmseApres = 0;
    long long pairesEcartees = 0, blocsEcartes = 0;
  };
  struct Etape {
    std::string nom;
    double secondes = 0;
    double memoireMio = 0;  // peak resident memory of the process at the end of the stage
  };
  std::vector<Entree> entrees;
  bool avecReference = false;
  Entree reference;  // its correction "null"
  std::vector<Bande> bandes;
  std::vector<Etape> etapes;
  std::vector<std::string> avertissements;
  int colonnes = 0, lignes = 0, bandesSortie = 0;
  std::string typeSortie;
  int bloc = 0;  // the statistics' block side used by the gain-offset model, 0 otherwise
};

// Receives the lines a run prints: stage lines and warnings. Progress is a fraction of the stage.
class SuiviMosaique {
 public:
  virtual ~SuiviMosaique() = default;
  virtual void Etape(const std::string& /*nom*/) {}
  virtual void Progression(double /*fraction*/) {}
  virtual void Avertissement(const std::string& /*texte*/) {}
};

// The degree the gain-offset model uses when none is given, for a job of n images. Overlaps cannot tell
// one map-wide surface from the images' own corrections: with few images, a degree-2 surface passes
// through their levels (four images, one bilinear surface), and level differences, the commonest
// distortion, would be kept as a trend. So degree 2 from 6 images (where the prior is learnt from the
// data, which holds the level differences), else 0; degree 1 follows neither levels nor degree-2 fields
// such as a shared vignetting (bench/README.md).
int DegreAutomatique(int n);

class JobMosaique {
 public:
  // Preparer: every check that needs no pixel. An Erreur naming the file and the reason otherwise.
  JobMosaique(const ParametresMosaique& p, SuiviMosaique* suivi = nullptr);
  ~JobMosaique();

  // The whole job in this process.
  void Executer();

  // Phases, sharing the work folder: each checks the folder's fingerprint and writes atomically; a
  // phase whose result is already there is not redone.
  void PhaseObserver(const std::string& travail, int index);  // index from 1
  void PhaseResoudre(const std::string& travail);
  void PhaseComposer(const std::string& travail, int k, int n);  // k from 1
  void PhaseAssembler(const std::string& travail);

  const RapportMosaique& Rapport() const;
  // Whether this run has written the whole mosaic: a later failure (a corrected image, the report)
  // leaves it complete.
  bool MosaiqueEcrite() const;
  // The report as JSON, with the options as given.
  std::string RapportJson(const std::vector<std::pair<std::string, std::string>>& options) const;

  struct Impl;

 private:
  std::unique_ptr<Impl> m;
};
