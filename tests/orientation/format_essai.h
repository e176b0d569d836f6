// A small image format of the tests ("essai"), so that oriented images go through real files and the
// registry without depending on any production format: a text header "ESSAI type columns lines
// channels" then every sample as text, each type's values held exactly in a double.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "zepra/fichieratomique.h"
#include "zepra/imagefic.h"
#include "zepra/ttimage.h"

namespace test {

// The samples held as doubles (converted by the library's cast on reading), the file's type reported.
class LecteurEssai : public TTImage<double> {
 public:
  LecteurEssai(eEnumType type, const TTImage<double>& im) : TTImage<double>(im), m_type(type) {}
  eEnumType TypePixel() const override { return m_type; }
  SpecifImageIn* dup() const override { return new LecteurEssai(*this); }

 private:
  eEnumType m_type;
};

class EcrivainEssai : public ImplSetValeurs<EcrivainEssai, EcrivainImage> {
 public:
  EcrivainEssai(const std::string& nom, const ImageInfos& i)
      : m_nom(nom), m_type(i.type), m_image(i.taille.x, i.taille.y, TagNbCanaux(i.canaux)) {}
  void SetNbCanaux(TagNbCanaux) override {}
  int GetNbCanaux() const override { return m_image.GetNbCanaux(); }
  eEnumType GetTypePixel() const override { return m_type; }
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
    f.flux() << "ESSAI " << m_type << ' ' << t.x << ' ' << t.y << ' ' << m_image.GetNbCanaux() << '\n';
    f.flux().precision(17);
    for (int y = 0; y < t.y; ++y)
      for (int x = 0; x < t.x * m_image.GetNbCanaux(); ++x) f.flux() << m_image.GetLines(y)[x] << '\n';
    f.Valider();
  }

 private:
  std::string m_nom;
  eEnumType m_type;
  TTImage<double> m_image;
};

inline std::unique_ptr<SpecifImageIn> CreerLecteurEssai(const std::string& nom) {
  std::ifstream f(nom);
  std::string magique;
  int type = 0, colonnes = 0, lignes = 0, canaux = 0;
  if (!(f >> magique >> type >> colonnes >> lignes >> canaux) || magique != "ESSAI") return nullptr;
  TTImage<double> im(colonnes, lignes, TagNbCanaux(canaux));
  for (int y = 0; y < lignes; ++y)
    for (int x = 0; x < colonnes * canaux; ++x)
      if (!(f >> im.GetLines(y)[x])) return nullptr;
  return std::make_unique<LecteurEssai>(static_cast<eEnumType>(type), im);
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
