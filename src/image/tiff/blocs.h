// Strip and tile assembly: which rows of which blocks a rectangle needs, read or decoded in order,
// with the byte order and predictor undone; the rows of absent blocks (sparse files) filled with the
// no-data value. Private to src/image.
//
// At any time a reader holds one block of compressed bytes, and one block row when rows cannot be
// decoded in place (a decoder that cannot stream holds one decoded block besides). Rows go straight
// into the destination when the caller's line table allows it; rows that follow each other in the
// destination as in the block are asked of the decoder in one call, so that a whole strip can be
// decoded at once into an image.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "annexes.h"
#include "codec.h"
#include "predicteurs.h"

namespace tiff {

class Blocs {
 public:
  // The description is shared by the copies a reader makes of itself (its block tables may be large).
  explicit Blocs(std::shared_ptr<const DescriptionTIFF> d);
  explicit Blocs(const DescriptionTIFF& d) : Blocs(std::make_shared<const DescriptionTIFF>(d)) {}
  const DescriptionTIFF& Desc() const { return *m_desc; }
  const std::shared_ptr<const DescriptionTIFF>& DescPartagee() const { return m_desc; }

  // Visits the rows of [x0, x1) x [y0, y1), every pas-th pixel. For each wanted row of each block,
  // cible(yOut, a) may give where the whole block row (from image column a) can be decoded in place,
  // or null; in that case the row is decoded into a buffer and handed to
  // segment(row, yOut, a, xPremier, xFin, plan), which copies the columns [xPremier, xFin) on the
  // grid: all channels when plan is -1, else the one channel of a planar file's block. Planar
  // blocks are never decoded in place.
  template <class Cible, class Segment>
  void Parcourir(int x0, int y0, int x1, int y1, int pas, Cible&& cible, Segment&& segment) {
    Verifier(x0, y0, x1, y1, pas);
    if (x1 <= x0 || y1 <= y0) return;
    const DescriptionTIFF& d = *m_desc;
    const long long bw = d.largeurBloc, bh = d.hauteurBloc;
    const int plans = d.Plans() ? d.canaux : 1;
    for (int plan = 0; plan < plans; ++plan)
      for (long long by = y0 / bh; by <= (y1 - 1) / bh; ++by) {
        const long long r0 = by * bh, r1 = std::min<long long>(r0 + bh, d.lignes);
        const long long yPremier = SurGrille(y0, r0, pas), yFin = std::min<long long>(y1, r1);
        if (yPremier >= yFin) continue;
        for (long long bx = x0 / bw; bx <= (x1 - 1) / bw; ++bx) {
          const long long a = bx * bw, b = std::min<long long>(a + bw, d.colonnes);
          const long long xPremier = SurGrille(x0, a, pas), xFin = std::min<long long>(x1, b);
          if (xPremier >= xFin) continue;
          const size_t k = static_cast<size_t>(plan * d.BlocsParPlan() + by * d.BlocsParLigne() + bx);
          const bool decode = !m_brut && !d.Absent(k);
          long long y = Debut(k, r0, yPremier);
          while (y < yFin) {
            if (y < yPremier || (y - y0) % pas != 0) {
              if (decode) LireLignes(k, y - r0, m_ligne.data(), 1);
              ++y;
              continue;
            }
            const long long yOut = (y - y0) / pas;
            unsigned char* p = d.Plans() ? nullptr : cible(yOut, a);
            if (p) {
              long long n = 1;
              while (pas == 1 && y + n < yFin && cible(yOut + n, a) == p + n * m_octetsLigne) ++n;
              if (LireLignes(k, y - r0, p, n))
                for (long long i = 0; i < n; ++i) m_post.Appliquer(p + i * m_octetsLigne);
              y += n;
              continue;
            }
            if (LireLignes(k, y - r0, m_ligne.data(), 1)) m_post.Appliquer(m_ligne.data());
            segment(static_cast<const unsigned char*>(m_ligne.data()), yOut, a, xPremier, xFin,
                    d.Plans() ? plan : -1);
            ++y;
          }
          if (decode) {
            m_bloc = k;
            m_prochaine = yFin - r0;
          }
        }
      }
  }

  // First coordinate at or after 'debut' on the grid v0, v0 + pas, ...
  static long long SurGrille(long long v0, long long debut, long long pas) {
    return debut <= v0 ? v0 : v0 + (debut - v0 + pas - 1) / pas * pas;
  }

 private:
  void Verifier(int x0, int y0, int x1, int y1, int pas) const;
  // The first row of block k to visit: uncompressed rows are read where they lie; a compressed block
  // is decoded from its start, but a request that goes on below the rows already decoded (reading
  // band after band) resumes where the decoder stopped.
  long long Debut(size_t k, long long r0, long long yPremier);
  void OuvrirBloc(size_t k);
  // n rows of block k from row 'ligne' of the block, into p; false when they need no post-processing
  // (an absent block's rows, filled with the no-data value as the caller will take it).
  bool LireLignes(size_t k, long long ligne, unsigned char* p, long long n);

  static constexpr size_t kAucun = static_cast<size_t>(-1);
  std::shared_ptr<const DescriptionTIFF> m_desc;
  LecteurOctets m_lecteur;
  bool m_brut;  // uncompressed: rows are read from the file
  uint64_t m_octetsLigne;
  std::unique_ptr<Decodeur> m_decodeur;
  PostTraitement m_post;
  size_t m_bloc = kAucun;     // the compressed block the decoder holds
  long long m_prochaine = 0;  // and the next row it will give
  std::vector<unsigned char> m_compresse;
  std::vector<unsigned char> m_ligne;
  std::vector<unsigned char> m_vide;  // a row of an absent block
};

}  // namespace tiff
