// A small image format of the tests ("essai"), so that oriented images go through real files and the
// registry without depending on any production format: a text header "ESSAI type columns lines
// channels" then every sample as text, each type's values held exactly in a double.
#pragma once

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "zepra/copierpixels.h"
#include "zepra/fichieratomique.h"
#include "zepra/imagefic.h"

namespace test {

struct ImageEssai {
  eEnumType type = eUInt1;
  int colonnes = 0, lignes = 0, canaux = 1;
  std::vector<double> v;  // line after line, channels interleaved
  double& at(int x, int y, int c) { return v[(static_cast<size_t>(y) * colonnes + x) * canaux + c]; }
};

class LecteurEssai : public ImplGetValeurs<LecteurEssai> {
 public:
  explicit LecteurEssai(ImageEssai im) : m(std::move(im)) {}
  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m.colonnes, m.lignes); }
  int GetNbCanaux() const override { return m.canaux; }
  eEnumType TypePixel() const override { return m.type; }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override {}
  SpecifImageIn* dup() const override { return new LecteurEssai(*this); }
  template <class D>
  void GetValeursT(LigneDe<D> const* l, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) const {
    ImageEssai& im = const_cast<ImageEssai&>(m);
    for (int y = y0, j = yDest; y < y1; y += pas, ++j)
      for (int x = x0, i = xDest; x < x1; x += pas, ++i)
        for (int c = 0; c < m.canaux; ++c) l[j][i * m.canaux + c] = Convertir<D, double>(im.at(x, y, c));
  }

 private:
  ImageEssai m;
};

class EcrivainEssai : public ImplSetValeurs<EcrivainEssai, EcrivainImage> {
 public:
  EcrivainEssai(const std::string& nom, const ImageInfos& infos) : m_nom(nom) {
    m.type = infos.type;
    m.colonnes = infos.taille.x;
    m.lignes = infos.taille.y;
    m.canaux = infos.canaux;
    m.v.assign(static_cast<size_t>(m.colonnes) * m.lignes * m.canaux, 0.0);
  }
  void SetNbCanaux(TagNbCanaux) override {}
  int GetNbCanaux() const override { return m.canaux; }
  eEnumType GetTypePixel() const override { return m.type; }
  void SetTypePixel(eEnumType) override {}
  void SetTaille(int, int) override {}
  void SetTaille(const TPoint2D<int>&) override {}
  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m.colonnes, m.lignes); }
  bool RawWritePossible() const override { return false; }
  void RawWrite(const char*, unsigned int) override {}
  void Terminer() override {
    FichierAtomique f(m_nom, "[Essai] (Terminer)");
    f.flux() << "ESSAI " << m.type << ' ' << m.colonnes << ' ' << m.lignes << ' ' << m.canaux << '\n';
    f.flux().precision(17);
    for (double x : m.v) f.flux() << x << '\n';
    f.Valider();
  }
  template <class S>
  void SetValeursT(LigneDe<S> const* l, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) {
    for (int y = y0, j = yDest; y < y1; y += pas, ++j)
      for (int x = x0, i = xDest; x < x1; x += pas, ++i)
        for (int c = 0; c < m.canaux; ++c) m.at(i, j, c) = Convertir<double, S>(l[y][x * m.canaux + c]);
  }

 private:
  std::string m_nom;
  ImageEssai m;
};

inline std::unique_ptr<SpecifImageIn> CreerLecteurEssai(const std::string& nom) {
  std::ifstream f(nom);
  std::string magique;
  int type = 0;
  ImageEssai im;
  if (!(f >> magique >> type >> im.colonnes >> im.lignes >> im.canaux) || magique != "ESSAI") return nullptr;
  im.type = static_cast<eEnumType>(type);
  im.v.resize(static_cast<size_t>(im.colonnes) * im.lignes * im.canaux);
  for (double& x : im.v)
    if (!(f >> x)) return nullptr;
  return std::make_unique<LecteurEssai>(std::move(im));
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
