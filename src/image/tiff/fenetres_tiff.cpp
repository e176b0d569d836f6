// Window reads of TIFF strips and tiles: the blocks a rectangle touches, decoded one at a time by the
// whole-image readers' path (LireSegments), their samples converted straight into the window's planes.
#include <type_traits>

#include "image/fenetres.h"
#include "lecteurs.h"
#include "segments.h"

namespace tiff {

namespace {

// T is the file's sample type, as for ImageFicIn_Raster<T>.
template <class T>
class FenetresTIFF : public ImplSourceFenetres<FenetresTIFF<T>> {
 public:
  explicit FenetresTIFF(const DescriptionTIFF& d) : m_desc(std::make_shared<const DescriptionTIFF>(d)) {
    // An empty rectangle checks the codec and the predictor: a file whose pixels cannot be read is
    // refused when it is opened, not at its first window.
    Fenetre vide;
    LireT<float>(vide, static_cast<float*>(nullptr));
  }

  TPoint2D<int> Taille() const override { return TPoint2D<int>(m_desc->colonnes, m_desc->lignes); }
  int Canaux() const override { return m_desc->CanauxLus(); }
  eEnumType Type() const override { return m_desc->TypeLu(); }
  const MetadonneesImage* Metadonnees() const override { return tiff::Metadonnees(*m_desc); }
  uint64_t OctetsBloc() const override { return OctetsTravail(*m_desc); }
  TPoint2D<int> TailleBloc() const override {
    return TPoint2D<int>(m_desc->largeurBloc, m_desc->hauteurBloc);
  }

  template <class V, class D>
  void LireT(const Fenetre& f, D* dest) const {
    std::unique_ptr<Etat> etat = m_reserve.Prendre([&] { return std::make_unique<Etat>(m_desc); });
    const DescriptionTIFF& d = *m_desc;
    const int x1 = f.x0 + f.nx;
    // One channel of the destination's type: whole block rows are decoded in place.
    auto cible = [&](long long yOut, long long a) -> unsigned char* {
      if constexpr (std::is_same_v<T, D> && std::is_same_v<V, D>) {
        if (d.canaux == 1 && d.bits != 1 && d.disposition != DescriptionTIFF::kPalette && a >= f.x0 &&
            a + d.largeurBloc <= x1)
          return reinterpret_cast<unsigned char*>(dest + static_cast<size_t>(yOut) * f.pasLigne + (a - f.x0));
      }
      return nullptr;
    };
    auto ecrire = [&](long long yOut, long long xOut, const auto* src, long long n, int pas, int parPixel,
                      int plan) { VersPlans<V>(src, n, pas, parPixel, plan, f, dest, yOut, xOut); };
    LireSegments<T>(etat->blocs, f.x0, f.y0, x1, f.y0 + f.ny, 1, etat->tampon, cible, ecrire);
    m_reserve.Rendre(std::move(etat));
  }
  void Liberer() const override { m_reserve.Vider(); }

 private:
  struct Etat {
    explicit Etat(std::shared_ptr<const DescriptionTIFF> d) : blocs(std::move(d)) {}
    Blocs blocs;
    std::vector<unsigned char> tampon;
  };
  std::shared_ptr<const DescriptionTIFF> m_desc;
  Reserve<Etat> m_reserve;
};

}  // namespace

std::unique_ptr<SourceFenetres> SourceFenetresTIFF(const DescriptionTIFF& d) {
  std::unique_ptr<SourceFenetres> source;
  AppliquerTypeBlocs(
      d, [&](auto tag) { source = std::make_unique<FenetresTIFF<typename decltype(tag)::type>>(d); });
  return source;
}

}  // namespace tiff
