// Validity masks: the internal transparency-mask directory of a TIFF image, or a .msk file.
#include "masque.h"

#include <cstring>
#include <set>

#include "lecteurs.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/masque.h"
#include "zepra/systeme.h"

namespace tiff {

namespace {

// Value 0 of an entry whose value lies in its value field; -1 otherwise.
double ValeurEnPlace(const EntreeTIFF& e, const FormatTIFF& format, bool permuter) {
  Directory d;
  d.type = e.type;
  d.count = e.count;
  if (d.count < 1 || Directory::SizeOfValue(d.type) == 0 ||
      d.Octets() > static_cast<uint64_t>(format.octetsOffset))
    return -1;
  d.Alloc();
  std::memcpy(d.values.data(), e.champ, d.values.size());
  if (permuter) PermuterValeurs(d);
  return d.GetValue(0);
}

double Valeur(const TIFF_Annexes& a, uint16_t tag) {
  const auto it = a.Tags().find(tag);
  return it == a.Tags().end() || it->second.count < 1 ? -1 : it->second.GetValue(0);
}

}  // namespace

uint64_t OffsetMasqueInterne(TIFF_Annexes& annexes) {
  const double colonnes = Valeur(annexes, kImageWidth), lignes = Valeur(annexes, kImageLength);
  LecteurOctets& f = annexes.Lecteur();
  const FormatTIFF& format = annexes.Format();
  std::set<uint64_t> vus;
  for (uint64_t offset = annexes.Suivant(); offset != 0 && vus.insert(offset).second && vus.size() <= 4096;) {
    uint64_t n = 0;
    if (!OuvrirRepertoire(f, format, offset, n)) return 0;
    double type = 0, largeur = -1, hauteur = -1;
    for (uint64_t i = 0; i < n; ++i) {
      const EntreeTIFF e = LireEntree(f, format);
      if (e.tag == kNewSubfileType) type = ValeurEnPlace(e, format, f.Permuter());
      if (e.tag == kImageWidth) largeur = ValeurEnPlace(e, format, f.Permuter());
      if (e.tag == kImageLength) hauteur = ValeurEnPlace(e, format, f.Permuter());
    }
    const uint64_t bits = type >= 0 && type < 4294967296.0 ? static_cast<uint64_t>(type) : 0;
    if ((bits & kSousFichierMasque) && !(bits & kSousFichierReduit) && largeur == colonnes &&
        hauteur == lignes)
      return offset;
    offset = f.LireN(format.octetsOffset);
  }
  return 0;
}

MasqueTrouve TrouverMasque(const std::string& image, const TPoint2D<int>* taille) {
  MasqueTrouve m;
  m.image = image;
  m.taille = taille ? *taille : ImageFicIn(image.c_str()).GetTaille();
  if (CheckMagic_TIFF(image)) {
    TIFF_Annexes annexes(image);
    annexes.LireEntete(false);
    annexes.CodecsEtendus(taille != nullptr);
    const uint64_t offset = OffsetMasqueInterne(annexes);
    if (offset != 0) {
      annexes.LireRepertoire(offset);
      m.interne = std::make_unique<DescriptionTIFF>(annexes.GetImage(false, true));
      return m;
    }
  }
  const std::string msk = image + ".msk";
  if (Systeme::ExisteFichier(msk.c_str())) m.msk = msk;
  return m;
}

void MasqueTrouve::VerifierTaille(const TPoint2D<int>& tailleMsk) const {
  if (tailleMsk != taille)
    ZEPRA_ERREUR("[OuvrirMasqueValidite] Le masque " << msk << " (" << tailleMsk.x << " x " << tailleMsk.y
                                                     << ") n'a pas la taille de l'image " << image << " ("
                                                     << taille.x << " x " << taille.y << ").");
}

}  // namespace tiff

std::unique_ptr<SpecifImageIn> OuvrirMasqueValidite(const std::string& image) {
  const tiff::MasqueTrouve m = tiff::TrouverMasque(image);
  if (m.interne) return tiff::CreerLecteur(*m.interne);
  if (m.msk.empty()) return nullptr;
  auto masque = std::make_unique<ImageFicIn>(m.msk.c_str());
  m.VerifierTaille(masque->GetTaille());
  if (masque->GetNbCanaux() == 1) return masque;
  return std::make_unique<CanalDe>(std::move(masque), 0);
}
