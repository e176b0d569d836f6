// The conventional front end: egalise mosaique IMAGE... -o MOSAIC.tif [options]. Its options, read
// through one table that also prints --help, into the settings the job runs with.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "zepra/pipeline/fusion.h"
#include "zepra/pipeline/modeles.h"

struct OptionsCommandeMosaique {
  std::vector<std::string> entrees;  // as given, lists read
  std::string sortie;

  // Equalization and fusion: names of rows of the model and fusion tables, and their settings.
  std::string modele = "gain-offset";
  ParametresModele parametresModele{-1, -1};  // degrees -1: chosen from the number of images
  std::string fusion = "plume";
  ParametresFusion parametresFusion;
  bool noegal = false;
  std::string reference;  // --reference: an image whose levels the corrections keep
  double pas = 0;         // metres; 0: chosen from the overlaps

  // Validity.
  bool nodataDonne = false;
  double nodata = 0;
  std::string masqueSuffixe;

  // Output grid.
  double resolutionX = 0, resolutionY = 0;  // 0: the inputs' pixel size
  bool empriseDonnee = false;
  double emprise[4] = {0, 0, 0, 0};  // xmin, ymin, xmax, ymax
  std::string reechantillonnage;     // empty: proche at the inputs' pixel size, moyenne when coarser

  // Files written.
  std::string corriges;  // folder of the corrected inputs; empty: none
  std::string type;      // empty: the inputs' sample type
  std::string compression = "deflate";
  int niveau = 0;  // 0: the codec's default
  int tuile = 512;
  bool cog = false;
  int epsg = 0;
  std::string rapport;

  // Run.
  int threads = 0;  // 0: the cores the process may use
  bool quiet = false;
  std::string log;
  int memoire = 1024;  // MiB
  std::string travail, etape;
  int index = 0;
  int partieK = 0, partieN = 0;

  bool aide = false, version = false;
  // Every option as given, for the report.
  std::vector<std::pair<std::string, std::string>> donnees;
  // The options given whose work is not built yet.
  std::vector<std::string> indisponibles;
};

// Reads the words after "mosaique" (argv[1] is "mosaique"). statut 0: read (or --help / --version
// asked); 2: usage error, message says why; 1: a list file that cannot be read or names nothing.
struct LectureMosaique {
  int statut = 0;
  std::string message;
  OptionsCommandeMosaique options;
};
LectureMosaique LireCommandeMosaique(int argc, char** argv);

// The help text of --help.
std::string AideMosaique();

// The front end: reads the command line, checks everything it can before any work, and runs. Prints
// errors on stderr; returns the exit status (0, 1 failure, 2 usage). Opens no log.txt.
int Main_mosaique(int argc, char** argv);
