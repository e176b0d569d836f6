// Reading the header and a directory into the tag map.
#include "annexes.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace tiff {

TIFF_Annexes::TIFF_Annexes(const std::string& nom) : m_lecteur(new LecteurOctets(nom)), m_nom(nom) {}

TIFF_Annexes::TIFF_Annexes() = default;

void TIFF_Annexes::Permut(Directory& d, bool permuter) {
  if (Directory::SizeOfValue(d.type) == 0)
    ZEPRA_ERREUR("[TIFF_Annexes] (Permut) Type de directory (" << d.type << ") non gere !!!");
  if (permuter) PermuterValeurs(d);
}

void TIFF_Annexes::LireEntete(bool avertir) {
  const EnteteTIFF entete = LireEnteteTIFF(*m_lecteur, m_nom);
  m_format = entete.format;
  m_swap = m_lecteur->Permuter();
  LireRepertoire(entete.premier);
  if (m_suivant != 0 && avertir) {
    Systeme::Warning(
        "[TIFF_Annexes] (LireEntete) Il y a plus d'une image dans le fichier. Traitement de la premiere "
        "image seulement !");
    VerifieChaine(m_suivant);
  }
}

void TIFF_Annexes::LireRepertoire(uint64_t offset) {
  LecteurOctets& f = *m_lecteur;
  const FormatTIFF& format = *m_format;
  uint64_t n = 0;
  if (!OuvrirRepertoire(f, format, offset, n)) {
    // The reader's own message when the entry count itself cannot be read.
    f.Aller(offset);
    f.LireN(format.octetsNombreEntrees);
    ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Le repertoire de "
                 << n << " entrees a l'offset " << offset << " depasse la fin du fichier " << m_nom << " ("
                 << f.Taille() << " octets).");
  }
  std::map<uint16_t, Directory> tags;
  // Values of different entries do not overlap in a sound file: all of them together cannot exceed
  // the file, however many entries point at the same bytes.
  uint64_t totalValeurs = 0;
  for (uint64_t e = 0; e < n; ++e) {
    const EntreeTIFF entree = LireEntree(f, format);
    Directory d;
    d.type = entree.type;
    d.count = entree.count;
    const uint64_t octets = d.Octets();
    if (octets > static_cast<uint64_t>(format.octetsOffset)) {
      if (entree.offset > f.Taille() || octets > f.Taille() - entree.offset)
        ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Tag "
                     << entree.tag << " : " << d.count << " valeurs de type " << d.type << " (" << octets
                     << " octets) a l'offset " << entree.offset << " depassent la fin du fichier " << m_nom
                     << " (" << f.Taille() << " octets).");
      totalValeurs += octets;
      if (totalValeurs > f.Taille())
        ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) Les valeurs du repertoire ("
                     << totalValeurs << " octets au tag " << entree.tag << ") depassent la taille du fichier "
                     << m_nom << " (" << f.Taille() << " octets).");
      const uint64_t retour = f.Position();
      d.Alloc();
      f.Aller(entree.offset);
      f.Lire(d.values.data(), octets);
      f.Aller(retour);
    } else {
      d.Alloc();
      if (octets > 0) std::memcpy(d.values.data(), entree.champ, static_cast<size_t>(octets));
    }
    Permut(d, m_swap);
    tags[entree.tag] = std::move(d);
  }
  m_suivant = f.LireN(format.octetsOffset);
  m_tags = std::move(tags);
}

// The other directories are not read, but a chain that leaves the file or loops marks a damaged
// file: the first image is still read, with a warning. Brent's cycle detection needs no memory
// however long the chain is; a chain longer than any real file's is not walked to its end.
void TIFF_Annexes::VerifieChaine(uint64_t suivant) {
  LecteurOctets& f = *m_lecteur;
  const FormatTIFF& format = *m_format;
  std::ostringstream defaut;
  auto apres = [&](uint64_t offset) -> uint64_t {
    uint64_t n = 0;
    if (!OuvrirRepertoire(f, format, offset, n)) {
      defaut << "le repertoire a l'offset " << offset << " sort du fichier (" << f.Taille() << " octets)";
      return 0;
    }
    f.Aller(offset + format.OctetsRepertoire(n) - format.octetsOffset);
    return f.LireN(format.octetsOffset);
  };
  uint64_t lent = 0, rapide = suivant;  // the first directory is the only one reached from the header
  uint64_t puissance = 1, longueur = 1;
  for (int pas = 0; rapide != 0 && pas < (1 << 16); ++pas) {
    if (rapide == lent) {
      defaut << "les repertoires bouclent a l'offset " << rapide;
      break;
    }
    if (puissance == longueur) {
      lent = rapide;
      puissance *= 2;
      longueur = 0;
    }
    rapide = apres(rapide);
    ++longueur;
  }
  if (!defaut.str().empty())
    Systeme::Warning("[TIFF_Annexes] (LireEntete) Chaine des repertoires du fichier " + m_nom + " : " +
                     defaut.str() + ". Elle n'est pas suivie.");
}

long long TIFF_Annexes::Entier(uint16_t tag, uint64_t i) const {
  const auto it = m_tags.find(tag);
  if (it == m_tags.end() || i >= it->second.count)
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Tag " << tag << " : valeur " << i << " absente dans le fichier "
                                                  << m_nom << ".");
  const double v = it->second.GetValue(i);
  // Beyond 2^53 a double no longer holds every integer; no size or offset of a file comes near.
  if (v != std::floor(v))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Tag " << tag << " : valeur " << v
                                                  << " non entiere dans le fichier " << m_nom << ".");
  if (!(std::fabs(v) < 9007199254740992.0))
    ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) Tag " << tag << " : valeur " << v
                                                  << " hors limites dans le fichier " << m_nom << ".");
  return static_cast<long long>(v);
}

std::string NomDalle(const std::string& nom, int i, int j) {
  const size_t barre = nom.find_last_of('/');
  const size_t point = nom.find_last_of('.');
  const bool extension = point != std::string::npos && (barre == std::string::npos || point > barre);
  const std::string base = extension ? nom.substr(0, point) : nom;
  const std::string ext = extension ? nom.substr(point) : std::string();
  return base + "_Tile_" + std::to_string(i) + "_" + std::to_string(j) + ext;
}

bool CheckMagic_TIFF(const std::string& nom) {
  std::ifstream f;
  if (!Systeme::OuvrirLecture(f, nom)) return false;
  unsigned char o[4] = {0, 0, 0, 0};
  if (!f.read(reinterpret_cast<char*>(o), 4)) return false;
  const bool ii = o[0] == 'I' && o[1] == 'I', mm = o[0] == 'M' && o[1] == 'M';
  const int version = ii ? o[2] | o[3] << 8 : mm ? o[2] << 8 | o[3] : 0;
  return version == kClassique.version || version == kBigTIFF.version;
}

}  // namespace tiff
