// What LecteurFenetres and MasqueFenetres read through: a source of rectangles, one per kind of file
// (TIFF strips and tiles, or any registered reader). Private to src/image.
#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "zepra/copierpixels.h"
#include "zepra/lecteurfenetres.h"

// A rectangle already checked against the image, and where its channels go (see LecteurFenetres::Lire).
struct Fenetre {
  int x0 = 0, y0 = 0, nx = 0, ny = 0, c0 = 0, nc = 1;
  size_t pasLigne = 0, pasPlan = 0;
};

class SourceFenetres {
 public:
  virtual ~SourceFenetres() = default;
  virtual TPoint2D<int> Taille() const = 0;
  virtual int Canaux() const = 0;
  virtual eEnumType Type() const = 0;
  virtual const MetadonneesImage* Metadonnees() const = 0;
  virtual uint64_t OctetsBloc() const = 0;
  virtual TPoint2D<int> TailleBloc() const = 0;
  virtual void Lire(const Fenetre& f, float* dest) const = 0;
  virtual void Lire(const Fenetre& f, double* dest) const = 0;
  // Validity: a sample that is not zero gives 1.
  virtual void LireValidite(const Fenetre& f, unsigned char* dest) const = 0;
  // Drops the decoding states kept for the next calls (see Reserve).
  virtual void Liberer() const {}
};

// Implements the three reads by Derived::LireT<V, D>: samples converted to V by the plain cast, stored
// as D (V is bool for validity).
template <class Derived>
class ImplSourceFenetres : public SourceFenetres {
 public:
  void Lire(const Fenetre& f, float* dest) const override { Soi().template LireT<float>(f, dest); }
  void Lire(const Fenetre& f, double* dest) const override { Soi().template LireT<double>(f, dest); }
  void LireValidite(const Fenetre& f, unsigned char* dest) const override {
    Soi().template LireT<bool>(f, dest);
  }

 private:
  const Derived& Soi() const { return static_cast<const Derived&>(*this); }
};

// n pixels of a row segment into line yOut of the window's planes from column xOut: the pixels pas
// apart in src, parPixel samples each, all the channels (plan -1) or only channel 'plan'. Only the
// window's channels are written.
template <class V, class D, class S>
void VersPlans(const S* src, long long n, int pas, int parPixel, int plan, const Fenetre& f, D* dest,
               long long yOut, long long xOut) {
  const int premier = plan < 0 ? f.c0 : std::max(plan, f.c0);
  const int fin = plan < 0 ? f.c0 + f.nc : std::min(plan + 1, f.c0 + f.nc);
  const long long saut = static_cast<long long>(pas) * parPixel;
  for (int c = premier; c < fin; ++c) {
    const S* s = src + (plan < 0 ? c : 0);
    D* o = dest + static_cast<size_t>(c - f.c0) * f.pasPlan + static_cast<size_t>(yOut) * f.pasLigne +
           static_cast<size_t>(xOut);
    // Side by side (one channel, or planar blocks): a loop the compiler vectorizes.
    if (saut == 1)
      for (long long i = 0; i < n; ++i) o[i] = static_cast<D>(Convertir<V, S>(s[i]));
    else
      for (long long i = 0; i < n; ++i) o[i] = static_cast<D>(Convertir<V, S>(s[i * saut]));
  }
}

// The decoding states of the calls in progress: a call takes a free one, or has one made, and gives it
// back when it succeeds (a call that fails drops its state, which may be half-way through a block).
template <class Etat>
class Reserve {
 public:
  // 'fabrique' runs under the lock: a reader's dup() need not be thread-safe.
  template <class Fabrique>
  std::unique_ptr<Etat> Prendre(Fabrique&& fabrique) const {
    std::lock_guard<std::mutex> verrou(m_mutex);
    if (m_libres.empty()) return fabrique();
    std::unique_ptr<Etat> e = std::move(m_libres.back());
    m_libres.pop_back();
    return e;
  }
  void Rendre(std::unique_ptr<Etat> e) const {
    std::lock_guard<std::mutex> verrou(m_mutex);
    m_libres.push_back(std::move(e));
  }
  // The free states go (a call in progress keeps its own, given back after).
  void Vider() const {
    std::vector<std::unique_ptr<Etat>> libres;
    std::lock_guard<std::mutex> verrou(m_mutex);
    libres.swap(m_libres);
  }

 private:
  mutable std::mutex m_mutex;
  mutable std::vector<std::unique_ptr<Etat>> m_libres;
};

namespace tiff {
struct DescriptionTIFF;
// Strips and tiles of one image of a TIFF file (not a "Dallage MPD"); checks at once that its codec and
// predictor can be read.
std::unique_ptr<SourceFenetres> SourceFenetresTIFF(const DescriptionTIFF& d);
}  // namespace tiff

// Any file: TIFF strips and tiles directly, anything else through the registry's reader.
std::unique_ptr<SourceFenetres> OuvrirSourceFenetres(const std::string& nom);
