#include "sorties.h"

#include <cstdio>

#include "zepra/orientedimage.h"

SortiesEcrites::~SortiesEcrites() {
  for (const Fichier& f : m_fichiers) {
    if (f.nom.empty()) continue;
    if (f.orientation)
      SupprimerAvecOrientation(f.nom.c_str());
    else
      std::remove(f.nom.c_str());
  }
}

void SortiesEcrites::Noter(size_t i, const std::string& nom, bool avecOrientation) {
  m_fichiers[i] = Fichier{nom, avecOrientation};
}
