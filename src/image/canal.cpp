// CanalDe: one channel of another source, read band by band.
#include <algorithm>

#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/ttimage.h"

CanalDe::CanalDe(std::unique_ptr<SpecifImageIn> source, int canal)
    : m_source(std::move(source)), m_canal(canal) {
  if (canal < 0 || canal >= m_source->GetNbCanaux())
    ZEPRA_ERREUR("[CanalDe] (Constructeur) Canal " << canal << " absent d'une source de "
                                                   << m_source->GetNbCanaux() << " canaux.");
}

void CanalDe::RawRead(char*, unsigned int) const {
  ZEPRA_ERREUR("[CanalDe] (RawRead) Appel a une methode impossible.");
}

template <class D>
void CanalDe::GetValeursT(LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest, int yDest,
                          int pas) const {
  if (pas < 1 || x1 <= x0 || y1 <= y0) return;
  const int canaux = m_source->GetNbCanaux();
  const long long nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
  const long long ny = (static_cast<long long>(y1) - y0 + pas - 1) / pas;
  const long long parBande = std::max<long long>(1, 1000000 / std::max<long long>(1, nx * canaux));
  TTImage<D> bande(static_cast<int>(nx), static_cast<int>(std::min(parBande, ny)), TagNbCanaux(canaux));
  for (long long o = 0; o < ny; o += parBande) {
    const long long n = std::min(parBande, ny - o);
    const long long ys = y0 + o * pas, ye = std::min<long long>(y1, ys + (n - 1) * pas + 1);
    m_source->GetValeurs(bande.GetLines(), x0, static_cast<int>(ys), x1, static_cast<int>(ye), 0, 0, pas);
    for (long long j = 0; j < n; ++j) {
      const auto source = bande.GetLines()[j];
      const auto ligne = dst[yDest + o + j];
      for (long long i = 0; i < nx; ++i) ligne[xDest + i] = source[i * canaux + m_canal];
    }
  }
}

#define ZEPRA_INST_CANAL(T) \
  template void CanalDe::GetValeursT<T>(LigneDe<T> const*, int, int, int, int, int, int, int) const;
ZEPRA_NEUF_TYPES(ZEPRA_INST_CANAL)
#undef ZEPRA_INST_CANAL
