#include "blocs.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "zepra/erreur.h"
#include "zepra/metadonnees.h"

namespace tiff {
namespace {

// The sample v in the native bytes of T; false when T cannot hold it.
template <class T>
bool Echantillon(double v, unsigned char* e) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<T>::max()) return false;
  } else if (!(v >= static_cast<double>(std::numeric_limits<T>::lowest()) &&
               v <= static_cast<double>(std::numeric_limits<T>::max()) && v == std::floor(v))) {
    return false;
  }
  const T x = static_cast<T>(v);
  std::memcpy(e, &x, sizeof x);
  return true;
}

// A block row of the file's no-data value as the reader delivers samples, or of 0 when there is none,
// it is not a sample of the file's type, or samples are under a byte (as GDAL fills absent blocks).
std::vector<unsigned char> RangeeVide(const DescriptionTIFF& d, uint64_t octetsLigne) {
  std::vector<unsigned char> r(static_cast<size_t>(octetsLigne), 0);
  const MetadonneesImage* m = d.metadonnees.get();
  if (!m || !m->nodataPresent || d.bits < 8) return r;
  unsigned char e[8];
  bool ok = false;
  AppliquerType(d.type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    ok = sizeof(T) * 8 == static_cast<size_t>(d.bits) && Echantillon<T>(m->nodata, e);
  });
  const size_t taille = static_cast<size_t>(d.bits / 8);
  if (!ok) return r;
  for (size_t k = 0; k + taille <= r.size(); k += taille) std::memcpy(&r[k], e, taille);
  return r;
}

}  // namespace

Blocs::Blocs(std::shared_ptr<const DescriptionTIFF> desc)
    : m_desc(std::move(desc)),
      m_lecteur(m_desc->nom),
      m_brut(m_desc->compression == kSans),
      m_octetsLigne(m_desc->OctetsLigneBloc()),
      m_post(m_desc->predicteur, m_desc->bits, m_desc->EchantillonsBloc(), m_desc->largeurBloc,
             m_desc->permuter),
      m_ligne(static_cast<size_t>(m_octetsLigne)),
      m_vide(RangeeVide(*m_desc, m_octetsLigne)) {
  const Codec* codec = TrouverCodec(m_desc->compression, m_desc->codecsEtendus);
  if (codec && !m_brut) m_decodeur = codec->decodeur();
}

void Blocs::Verifier(int x0, int y0, int x1, int y1, int pas) const {
  const DescriptionTIFF& d = *m_desc;
  if (pas < 1 || x0 < 0 || y0 < 0 || x1 > d.colonnes || y1 > d.lignes)
    ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Rectangle ("
                 << x0 << ", " << y0 << ") - (" << x1 << ", " << y1 << ") de pas " << pas
                 << " hors de l'image " << d.colonnes << " x " << d.lignes << " du fichier " << d.nom << ".");
  if (!m_brut && !m_decodeur) CompressionNonGeree("[ImageFicIn_Raster] (GetValeurs)", d.compression, d.nom);
  if (!PredicteurPossible(d.predicteur, d.bits, d.type == eFloat4 || d.type == eFloat8))
    ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Predictor ("
                 << d.predicteur << ") non gere pour " << d.bits << " bits : pixels du fichier " << d.nom
                 << " illisibles.");
}

long long Blocs::Debut(size_t k, long long r0, long long yPremier) {
  if (m_brut || m_desc->Absent(k)) return yPremier;
  const bool reprise = k == m_bloc && r0 + m_prochaine <= yPremier;
  // Forgotten until the block's rows are done: a failure half-way leaves nothing to resume.
  m_bloc = kAucun;
  if (reprise) return r0 + m_prochaine;
  OuvrirBloc(k);
  return r0;
}

void Blocs::OuvrirBloc(size_t k) {
  const DescriptionTIFF& d = *m_desc;
  m_compresse.resize(static_cast<size_t>(d.octets[k]));
  m_lecteur.Aller(d.offsets[k]);
  m_lecteur.Lire(m_compresse.data(), m_compresse.size());
  ContexteBloc bloc;
  bloc.nom = d.nom;
  bloc.largeur = d.largeurBloc;
  const long long r0 = static_cast<long long>(k % d.BlocsParPlan()) / d.BlocsParLigne() * d.hauteurBloc;
  bloc.hauteur = d.disposition == DescriptionTIFF::kTuiles
                     ? d.hauteurBloc
                     : static_cast<int>(std::min<long long>(d.hauteurBloc, d.lignes - r0));
  bloc.hauteurCodee = d.hauteurBloc;
  bloc.echantillons = d.EchantillonsBloc();
  bloc.bits = d.bits;
  bloc.photometrique = d.photometrique;
  bloc.sousEchH = d.sousEchH;
  bloc.sousEchV = d.sousEchV;
  bloc.tablesJpeg = d.tablesJpeg.empty() ? nullptr : &d.tablesJpeg;
  m_decodeur->Commencer(m_compresse.data(), m_compresse.size(), bloc);
}

bool Blocs::LireLignes(size_t k, long long ligne, unsigned char* p, long long n) {
  const DescriptionTIFF& d = *m_desc;
  const uint64_t octets = static_cast<uint64_t>(n) * m_octetsLigne;
  if (d.Absent(k)) {
    for (long long i = 0; i < n; ++i) std::memcpy(p + i * m_octetsLigne, m_vide.data(), m_vide.size());
    return false;
  }
  if (m_brut) {
    m_lecteur.Aller(d.offsets[k] + static_cast<uint64_t>(ligne) * m_octetsLigne);
    m_lecteur.Lire(p, octets);
    return true;
  }
  const size_t lus = m_decodeur->Lire(p, static_cast<size_t>(octets));
  if (lus < octets)
    ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Donnees compressees insuffisantes dans le bloc "
                 << k << " du fichier " << d.nom << " : ligne " << ligne << " du bloc, " << lus
                 << " octets sur " << octets << ".");
  return true;
}

}  // namespace tiff
