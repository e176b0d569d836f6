#include "format.h"

#include <cstring>

#include "zepra/erreur.h"

namespace tiff {

const FormatTIFF kClassique{42, 8, 2, 12, 4};
const FormatTIFF kBigTIFF{43, 16, 8, 20, 8};

namespace {
constexpr bool kHoteGrosBoutiste = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
}

EnteteTIFF LireEnteteTIFF(LecteurOctets& f, const std::string& nom) {
  unsigned char marque[2];
  f.Lire(marque, 2);
  const bool grosBoutiste = !(marque[0] == 'I' && marque[1] == 'I');
  f.SetPermuter(grosBoutiste != kHoteGrosBoutiste);
  const uint16_t version = f.Lire16();
  EnteteTIFF e;
  if (version == kClassique.version) {
    e.format = &kClassique;
  } else if (version == kBigTIFF.version) {
    e.format = &kBigTIFF;
    const uint16_t largeur = f.Lire16(), zero = f.Lire16();
    if (largeur != kBigTIFF.octetsOffset || zero != 0)
      ZEPRA_ERREUR("[TIFF_Annexes] (LireEntete) En-tete BigTIFF invalide dans le fichier "
                   << nom << " : offsets de " << largeur << " octets et champ reserve " << zero
                   << " (8 et 0 attendus).");
  } else {
    ZEPRA_ERREUR("[ImageFicIn] (LireEntete) Magic Number non reconnu (ficher : " << nom);
  }
  e.premier = f.LireN(e.format->octetsOffset);
  return e;
}

EntreeTIFF LireEntree(LecteurOctets& f, const FormatTIFF& format) {
  EntreeTIFF e;
  e.tag = f.Lire16();
  e.type = f.Lire16();
  e.count = f.LireN(format.octetsOffset);
  f.Lire(e.champ, static_cast<uint64_t>(format.octetsOffset));
  const bool grosBoutiste = f.Permuter() != kHoteGrosBoutiste;
  for (int i = 0; i < format.octetsOffset; ++i)
    e.offset |= uint64_t(e.champ[grosBoutiste ? format.octetsOffset - 1 - i : i]) << (8 * i);
  return e;
}

bool OuvrirRepertoire(LecteurOctets& f, const FormatTIFF& format, uint64_t offset, uint64_t& entrees) {
  if (offset > f.Taille() || f.Taille() - offset < static_cast<uint64_t>(format.octetsNombreEntrees))
    return false;
  f.Aller(offset);
  entrees = f.LireN(format.octetsNombreEntrees);
  // The division first: the size of a directory of 2^64 - 1 entries would wrap.
  return entrees <= (f.Taille() - offset) / static_cast<uint64_t>(format.octetsEntree) &&
         format.OctetsRepertoire(entrees) <= f.Taille() - offset;
}

void EcrireNombre(std::string& sortie, uint64_t v, int octets) {
  for (int i = 0; i < octets; ++i) sortie += static_cast<char>((v >> (8 * i)) & 0xFF);
}

void EcrireEnteteTIFF(std::string& sortie, const FormatTIFF& format, uint64_t premier) {
  sortie += "II";
  EcrireNombre(sortie, format.version, 2);
  if (format.Big()) {
    EcrireNombre(sortie, static_cast<uint64_t>(format.octetsOffset), 2);
    EcrireNombre(sortie, 0, 2);
  }
  EcrireNombre(sortie, premier, format.octetsOffset);
}

void EcrireRepertoire(std::string& sortie, std::string& valeurs, const FormatTIFF& format,
                      const std::map<uint16_t, Directory>& tags, uint64_t offsetValeurs, uint64_t suivant) {
  EcrireNombre(sortie, tags.size(), format.octetsNombreEntrees);
  for (const auto& [tag, entree] : tags) {
    // Values in file order: little-endian whatever the host.
    Directory d = entree;
    if (kHoteGrosBoutiste) PermuterValeurs(d);
    EcrireNombre(sortie, tag, 2);
    EcrireNombre(sortie, d.type, 2);
    EcrireNombre(sortie, d.count, format.octetsOffset);
    if (d.Octets() > static_cast<uint64_t>(format.octetsOffset)) {
      EcrireNombre(sortie, offsetValeurs + valeurs.size(), format.octetsOffset);
      valeurs.append(reinterpret_cast<const char*>(d.values.data()), d.values.size());
    } else {
      std::string champ(static_cast<size_t>(format.octetsOffset), '\0');
      if (!d.values.empty()) std::memcpy(&champ[0], d.values.data(), d.values.size());
      sortie += champ;
    }
  }
  EcrireNombre(sortie, suivant, format.octetsOffset);
}

}  // namespace tiff
