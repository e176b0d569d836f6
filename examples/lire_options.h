// The example programs' common frame and strict reading of their option values (the whole word must
// be the number).
#pragma once

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <string>

#include "zepra/erreur.h"

// The word after option i; a missing one is refused.
inline std::string ValeurOption(int argc, char** argv, int& i, const char* programme) {
  if (i + 1 >= argc)
    ZEPRA_ERREUR("[" << programme << "] (Options) L'option " << argv[i] << " attend une valeur.");
  return argv[++i];
}

inline long LireEntier(const std::string& mot, const std::string& option, const char* programme) {
  char* fin = nullptr;
  errno = 0;
  const long v = std::strtol(mot.c_str(), &fin, 10);
  if (mot.empty() || *fin != '\0' || errno == ERANGE)
    ZEPRA_ERREUR("[" << programme << "] (Options) Valeur \"" << mot << "\" de " << option
                     << " : un entier est attendu.");
  return v;
}

inline double LireReel(const std::string& mot, const std::string& option, const char* programme) {
  char* fin = nullptr;
  errno = 0;
  const double v = std::strtod(mot.c_str(), &fin);
  if (mot.empty() || *fin != '\0' || errno == ERANGE)
    ZEPRA_ERREUR("[" << programme << "] (Options) Valeur \"" << mot << "\" de " << option
                     << " : un nombre est attendu.");
  return v;
}

// No argument prints the usage and succeeds; an Erreur from the body is printed like the tool's own and
// ends with status 255.
template <class Corps>
int ExecuterProgramme(int argc, void (*usage)(), Corps corps) {
  if (argc < 2) {
    usage();
    return 0;
  }
  try {
    corps();
    return 0;
  } catch (const Erreur& e) {
    std::cerr << "Exception :\n" << e.Texte() << std::endl;
    return 255;
  }
}
