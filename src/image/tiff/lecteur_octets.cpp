#include "lecteur_octets.h"

#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace tiff {

LecteurOctets::LecteurOctets(const std::string& nom) : m_nom(nom) {
  if (!Systeme::OuvrirLecture(m_flux, nom))
    ZEPRA_ERREUR("[LecteurOctets] (Constructeur) Impossible d'ouvrir le fichier " << nom);
  m_flux.seekg(0, std::ios::end);
  const std::streamoff fin = m_flux.tellg();
  if (fin < 0) ZEPRA_ERREUR("[LecteurOctets] (Constructeur) Taille illisible pour le fichier " << nom);
  m_taille = static_cast<uint64_t>(fin);
  m_flux.seekg(0);
}

void LecteurOctets::Aller(uint64_t offset) {
  if (offset > m_taille)
    ZEPRA_ERREUR("[LecteurOctets] (Aller) Offset " << offset << " au-dela de la fin du fichier " << m_nom
                                                   << " (" << m_taille << " octets).");
  if (offset != m_position) {
    m_flux.clear();
    m_flux.seekg(static_cast<std::streamoff>(offset));
    m_position = offset;
  }
}

void LecteurOctets::Lire(void* destination, uint64_t octets) {
  if (octets > m_taille - m_position)
    ZEPRA_ERREUR("[LecteurOctets] (Lire) Fichier " << m_nom << " tronque : " << octets
                                                   << " octets demandes a l'offset " << m_position << " ("
                                                   << m_taille << " octets).");
  m_flux.read(static_cast<char*>(destination), static_cast<std::streamsize>(octets));
  if (static_cast<uint64_t>(m_flux.gcount()) != octets) {
    m_flux.clear();
    m_position = static_cast<uint64_t>(-1);
    ZEPRA_ERREUR("[LecteurOctets] (Lire) Lecture impossible de " << octets << " octets dans le fichier "
                                                                 << m_nom);
  }
  m_position += octets;
}

uint8_t LecteurOctets::Lire8() {
  uint8_t v;
  Lire(&v, 1);
  return v;
}

uint64_t LecteurOctets::LireN(int octets) {
  unsigned char o[8];
  Lire(o, static_cast<uint64_t>(octets));
  // The file's order is the host's unless told otherwise; the host is little-endian or big-endian.
  const bool grosBoutiste = m_permuter != (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__);
  uint64_t v = 0;
  for (int i = 0; i < octets; ++i) v |= uint64_t(o[grosBoutiste ? octets - 1 - i : i]) << (8 * i);
  return v;
}

uint16_t LecteurOctets::Lire16() { return static_cast<uint16_t>(LireN(2)); }
uint32_t LecteurOctets::Lire32() { return static_cast<uint32_t>(LireN(4)); }
uint64_t LecteurOctets::Lire64() { return LireN(8); }

}  // namespace tiff
