// PNM: binary Netpbm graymaps (P5, one channel) and pixmaps (P6, three channels).
//
// Header: the magic, then width, height and maxval in ASCII decimal, separated by whitespace and
// comments ('#' to the end of the line), then exactly one whitespace character and the raster, line
// after line, channels interleaved. maxval below 256: one byte per sample (UInt1); up to 65535: two
// bytes, most significant first (UInt2). Samples are presented as stored, not scaled by maxval.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "fichier_lignes.h"

class ImageFicIn_PNM : public ImplGetValeurs<ImageFicIn_PNM> {
 public:
  // Opens and checks the file; every fault is an Erreur naming it.
  explicit ImageFicIn_PNM(const std::string& nom);
  ImageFicIn_PNM(const ImageFicIn_PNM& autre);
  // What CreateReader_PNM does: null when the file does not start with the P5 or P6 magic; past the
  // magic the file claims to be ours, so a malformed header or a short raster is an Erreur.
  static std::unique_ptr<ImageFicIn_PNM> SiFichierPNM(const std::string& nom);

  SpecifImageIn* dup() const override { return new ImageFicIn_PNM(*this); }
  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m_colonnes, m_lignes); }
  int GetNbCanaux() const override { return m_canaux; }
  eEnumType TypePixel() const override { return m_type; }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override { RawReadImpossible("ImageFicIn_PNM"); }
  int MaxVal() const { return m_maxval; }

  template <class D>
  void GetValeursT(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const;

 private:
  void LireEntete();
  template <class N, class D>
  void LireRectangle(LigneDe<D> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest,
                     int pas) const;

  std::string m_nom;
  int m_colonnes = 0;
  int m_lignes = 0;
  int m_canaux = 1;
  int m_maxval = 255;
  eEnumType m_type = eUInt1;
  long long m_debut = 0;        // file offset of the raster
  long long m_octetsLigne = 0;  // bytes of one raster line
  mutable std::ifstream m_flux;
  mutable long long m_positionFlux = -1;  // where the stream stands, -1 when unknown
  mutable std::vector<unsigned char> m_octets;
  mutable std::vector<unsigned short> m_valeurs16;
};

// Writes P5 (one channel) or P6 (three channels), maxval 255 for UInt1 and 65535 for UInt2, whatever
// the extension among pgm, pnm and ppm. Other types and channel counts are refused. Rectangles may
// come in any order: each is written at its place in the raster.
class ImageFicOut_PNM : public ImplSetValeurs<ImageFicOut_PNM, EcrivainParLignes> {
 public:
  ImageFicOut_PNM(const std::string& nom, const ImageInfos& infos);

  template <class S>
  void SetValeursT(LigneDe<S> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas);

 private:
  template <class S, class N>
  void Recevoir(LigneDe<S> const* lignes, int x0, int y0, int x1, int xDest, int yDest, int pas,
                long long ny);

  long long m_debut = 0;  // file offset of the raster
  long long m_octetsLigne = 0;
  long long m_position = 0;  // where the stream stands
  std::vector<unsigned char> m_tampon8;
  std::vector<unsigned short> m_tampon16;
  std::vector<char> m_octets;
};
