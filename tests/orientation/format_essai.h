// A small image format of the tests ("essai"), so that oriented images go through real files and the
// registry without depending on any production format: a text line "ESSAI columns lines channels"
// then every sample as a raw double (every type's values exactly); read back as doubles, converted
// by the library's cast.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "zepra/fichieratomique.h"
#include "zepra/imagefic.h"
#include "zepra/ttimage.h"

namespace test {

class EcrivainEssai : public ImplSetValeurs<EcrivainEssai, EcrivainImage> {
 public:
  EcrivainEssai(const std::string& nom, const ImageInfos& i)
      : m_nom(nom), m_image(i.taille.x, i.taille.y, TagNbCanaux(i.canaux)) {}
  void SetNbCanaux(TagNbCanaux) override {}
  int GetNbCanaux() const override { return m_image.GetNbCanaux(); }
  eEnumType GetTypePixel() const override { return eFloat8; }
  void SetTypePixel(eEnumType) override {}
  void SetTaille(int, int) override {}
  void SetTaille(const TPoint2D<int>&) override {}
  TPoint2D<int> GetTaille() const override { return m_image.GetTaille(); }
  bool RawWritePossible() const override { return false; }
  void RawWrite(const char*, unsigned int) override {}
  template <class S>
  void SetValeursT(LigneDe<S> const* l, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) {
    m_image.SetValeurs(l, x0, y0, x1, y1, xDest, yDest, pas);
  }
  void Terminer() override {
    FichierAtomique f(m_nom, "[Essai] (Terminer)");
    const TPoint2D<int> t = m_image.GetTaille();
    f.flux() << "ESSAI " << t.x << ' ' << t.y << ' ' << m_image.GetNbCanaux() << '\n';
    f.flux().write(reinterpret_cast<const char*>(&*m_image.begin()), m_image.size() * sizeof(double));
    f.Valider();
  }

 private:
  std::string m_nom;
  TTImage<double> m_image;
};

inline std::unique_ptr<SpecifImageIn> CreerLecteurEssai(const std::string& nom) {
  std::ifstream f(nom, std::ios::binary);
  std::string magique;
  int colonnes = 0, lignes = 0, canaux = 0;
  if (!(f >> magique >> colonnes >> lignes >> canaux) || magique != "ESSAI" || f.get() != '\n')
    return nullptr;
  auto im = std::make_unique<TTImage<double>>(colonnes, lignes, TagNbCanaux(canaux));
  const std::streamsize octets = static_cast<std::streamsize>(im->size() * sizeof(double));
  return f.read(reinterpret_cast<char*>(&*im->begin()), octets) ? std::move(im) : nullptr;
}

inline std::unique_ptr<EcrivainImage> CreerEcrivainEssai(const std::string& nom, const ImageInfos& infos) {
  return std::make_unique<EcrivainEssai>(nom, infos);
}

// Registers the format once in this process.
inline void EnregistrerFormatEssai() {
  static const bool fait = [] {
    ListeHandlerRead::GetListeHandlerRead().AddReader("essai", CreerLecteurEssai);
    ListeHandlerWrite::GetListeHandlerWrite().AddWriter("essai", CreerEcrivainEssai);
    return true;
  }();
  (void)fait;
}

}  // namespace test
