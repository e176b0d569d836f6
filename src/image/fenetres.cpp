// LecteurFenetres and MasqueFenetres, and the window source of the formats that are not TIFF strips and
// tiles: the registry's reader asked for the rectangle band after band.
#include "fenetres.h"

#include <type_traits>

#include "tiff/annexes.h"
#include "tiff/lecteurs.h"
#include "tiff/masque.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"

namespace {

// Samples of one band of a window read through a SpecifImageIn: enough to amortise a call, little
// beside a window.
constexpr long long kEchantillonsBande = 1 << 18;

// PNM and RLE readers, and "Dallage MPD", read rectangles themselves: each band is asked of a copy of
// the reader (one per call in progress) in the file's own type, then converted into the planes.
class FenetresLecteur : public ImplSourceFenetres<FenetresLecteur> {
 public:
  explicit FenetresLecteur(std::unique_ptr<SpecifImageIn> lecteur) : m_modele(std::move(lecteur)) {}

  TPoint2D<int> Taille() const override { return m_modele->GetTaille(); }
  int Canaux() const override { return m_modele->GetNbCanaux(); }
  eEnumType Type() const override { return m_modele->TypePixel(); }
  const MetadonneesImage* Metadonnees() const override { return m_modele->Metadonnees(); }
  uint64_t OctetsBloc() const override { return kEchantillonsBande * sizeof(double); }
  TPoint2D<int> TailleBloc() const override { return TPoint2D<int>(Taille().x, 1); }

  template <class V, class D>
  void LireT(const Fenetre& f, D* dest) const {
    std::unique_ptr<SpecifImageIn> lecteur =
        m_reserve.Prendre([&] { return std::unique_ptr<SpecifImageIn>(m_modele->dup()); });
    const eEnumType type = Type() == eBit1 ? eUInt1 : Type();
    AppliquerType(type, [&](auto tag) {
      // Bits come as unsigned char, which converts as bool does.
      using T = typename decltype(tag)::type;
      using N = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;
      const int canaux = Canaux();
      const size_t ligne = static_cast<size_t>(f.nx) * canaux;
      const int parBande =
          static_cast<int>(std::max<long long>(1, kEchantillonsBande / std::max<size_t>(ligne, 1)));
      std::vector<N> tampon(ligne * static_cast<size_t>(std::min(parBande, f.ny)));
      std::vector<N*> lignes(static_cast<size_t>(std::min(parBande, f.ny)));
      for (size_t j = 0; j < lignes.size(); ++j) lignes[j] = tampon.data() + j * ligne;
      for (int y = 0; y < f.ny; y += parBande) {
        const int h = std::min(parBande, f.ny - y);
        lecteur->GetValeurs(lignes.data(), f.x0, f.y0 + y, f.x0 + f.nx, f.y0 + y + h, 0, 0, 1);
        for (int j = 0; j < h; ++j) VersPlans<V>(lignes[j], f.nx, 1, canaux, -1, f, dest, y + j, 0);
      }
    });
    m_reserve.Rendre(std::move(lecteur));
  }
  void Liberer() const override { m_reserve.Vider(); }

 private:
  std::unique_ptr<SpecifImageIn> m_modele;
  Reserve<SpecifImageIn> m_reserve;
};

// The rectangle and channels of a call, checked against the source; nc -1 is all from c0. 'classe'
// names the caller in the message.
Fenetre Verifier(const char* classe, const SourceFenetres& s, const std::string& nom, int x0, int y0, int nx,
                 int ny, int c0, int nc, size_t pasLigne, size_t pasPlan) {
  const TPoint2D<int> t = s.Taille();
  const int canaux = s.Canaux();
  const int n = nc == -1 ? canaux - c0 : nc;
  if (x0 < 0 || y0 < 0 || nx < 0 || ny < 0 || static_cast<long long>(x0) + nx > t.x ||
      static_cast<long long>(y0) + ny > t.y || c0 < 0 || n < 1 || static_cast<long long>(c0) + n > canaux)
    ZEPRA_ERREUR("[" << classe << "] (Lire) Rectangle de " << nx << " x " << ny << " pixels en (" << x0
                     << ", " << y0 << "), canaux " << c0 << " a " << static_cast<long long>(c0) + n - 1
                     << ", hors de l'image " << t.x << " x " << t.y << " x " << canaux << " du fichier "
                     << nom << ".");
  Fenetre f;
  f.x0 = x0, f.y0 = y0, f.nx = nx, f.ny = ny, f.c0 = c0, f.nc = n;
  f.pasLigne = pasLigne, f.pasPlan = pasPlan;
  return f;
}

}  // namespace

std::unique_ptr<SourceFenetres> OuvrirSourceFenetres(const std::string& nom) {
  if (tiff::CheckMagic_TIFF(nom)) {
    tiff::TIFF_Annexes annexes(nom);
    annexes.LireEntete();
    annexes.CodecsEtendus(true);
    tiff::DescriptionTIFF d = annexes.GetImage();
    tiff::JoindreMetadonnees(annexes, d);
    if (d.disposition != tiff::DescriptionTIFF::kDallage) return tiff::SourceFenetresTIFF(d);
    return std::make_unique<FenetresLecteur>(tiff::CreerLecteurDallage(d));
  }
  return std::make_unique<FenetresLecteur>(std::make_unique<ImageFicIn>(nom.c_str()));
}

LecteurFenetres::LecteurFenetres(const std::string& nom) : m_nom(nom), m_source(OuvrirSourceFenetres(nom)) {}
LecteurFenetres::~LecteurFenetres() = default;
LecteurFenetres::LecteurFenetres(LecteurFenetres&&) noexcept = default;
LecteurFenetres& LecteurFenetres::operator=(LecteurFenetres&&) noexcept = default;

TPoint2D<int> LecteurFenetres::Taille() const { return m_source->Taille(); }
int LecteurFenetres::Canaux() const { return m_source->Canaux(); }
eEnumType LecteurFenetres::Type() const { return m_source->Type(); }
const MetadonneesImage* LecteurFenetres::Metadonnees() const { return m_source->Metadonnees(); }
uint64_t LecteurFenetres::OctetsBloc() const { return m_source->OctetsBloc(); }
TPoint2D<int> LecteurFenetres::TailleBloc() const { return m_source->TailleBloc(); }
void LecteurFenetres::Liberer() const { m_source->Liberer(); }

void LecteurFenetres::Lire(int x0, int y0, int nx, int ny, float* dest, size_t pasLigne, size_t pasPlan,
                           int c0, int nc) const {
  const Fenetre f = Verifier("LecteurFenetres", *m_source, m_nom, x0, y0, nx, ny, c0, nc, pasLigne, pasPlan);
  if (nx > 0 && ny > 0) m_source->Lire(f, dest);
}

void LecteurFenetres::Lire(int x0, int y0, int nx, int ny, double* dest, size_t pasLigne, size_t pasPlan,
                           int c0, int nc) const {
  const Fenetre f = Verifier("LecteurFenetres", *m_source, m_nom, x0, y0, nx, ny, c0, nc, pasLigne, pasPlan);
  if (nx > 0 && ny > 0) m_source->Lire(f, dest);
}

MasqueFenetres::MasqueFenetres(std::unique_ptr<SourceFenetres> source, const std::string& nom)
    : m_nom(nom), m_source(std::move(source)) {}
MasqueFenetres::~MasqueFenetres() = default;

TPoint2D<int> MasqueFenetres::Taille() const { return m_source->Taille(); }
uint64_t MasqueFenetres::OctetsBloc() const { return m_source->OctetsBloc(); }
void MasqueFenetres::Liberer() const { m_source->Liberer(); }

void MasqueFenetres::Lire(int x0, int y0, int nx, int ny, unsigned char* dest, size_t pas) const {
  const Fenetre f = Verifier("MasqueFenetres", *m_source, m_nom, x0, y0, nx, ny, 0, 1, pas, 0);
  if (nx > 0 && ny > 0) m_source->LireValidite(f, dest);
}

std::unique_ptr<MasqueFenetres> OuvrirMasqueFenetres(const std::string& image) {
  return OuvrirMasqueFenetres(image, OuvrirSourceFenetres(image)->Taille());
}

std::unique_ptr<MasqueFenetres> OuvrirMasqueFenetres(const std::string& image, const TPoint2D<int>& taille) {
  const tiff::MasqueTrouve m = tiff::TrouverMasque(image, &taille);
  if (m.interne) return std::make_unique<MasqueFenetres>(tiff::SourceFenetresTIFF(*m.interne), image);
  if (m.msk.empty()) return nullptr;
  std::unique_ptr<SourceFenetres> source = OuvrirSourceFenetres(m.msk);
  m.VerifierTaille(source->Taille());
  return std::make_unique<MasqueFenetres>(std::move(source), m.msk);
}
