// Stages "system and solve" and "correction". A correction model is a policy chosen once by name from
// a table: it turns the observations into one correction per input, and that correction then corrects
// rows of values, band by band.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "zepra/pipeline/observations.h"
#include "zepra/pipeline/politiques.h"
#include "zepra/pipeline/polynome.h"
#include "zepra/pipeline/sources.h"

// The correction of one input, every band.
class CorrectionImage {
 public:
  virtual ~CorrectionImage() = default;
  // Corrects in place the values of columns [x0, x0 + n) of row y of band 'bande' (pixel indices of the
  // input).
  virtual void CorrigerLigne(int bande, int y, int x0, int n, float* valeurs) const = 0;
};

// The settings a model may read; each model reads only its own.
struct ParametresModele {
  int degreGain = 2, degreOffset = 2;  // gain-offset: degrees of a(x, y) and b(x, y)
  double rigidite = 1e-7;              // gain-offset: weight of the pull toward identity
  double pentes = 10, courbures = 3;   // gain-offset: that pull on slopes and curvatures, relative
  double formesGain = 30;              // gain-offset: and on the gain's slopes and curvatures, again
  int bloc = 0;                        // gain-offset: side of the statistics blocks in pixels, 0: 16
};

// Why the gain-offset model cannot run with these settings, "" when it can: its own checks, for a
// command line to refuse them before any work.
std::string RefusGainOffset(const ParametresModele& m);

class ModeleCorrection {
 public:
  virtual ~ModeleCorrection() = default;
  // Fits the corrections of every input and band of the observations. Writes its progress lines on
  // 'trace' when given. False when the system cannot be solved (after "rate" on the trace); otherwise
  // 'corrections' holds one correction per input, in input order.
  virtual bool Ajuster(const Observations& obs, std::ostream* trace,
                       std::vector<std::unique_ptr<CorrectionImage>>& corrections) const = 0;
};

using LigneModele = LignePolitique<ModeleCorrection, ParametresModele>;
// The models, in the order of the help text.
const std::vector<LigneModele>& TableModeles();
inline const LigneModele* ChercherModele(const std::string& nom) {
  return ChercherLigne(TableModeles(), nom);
}

// The correction of the polynomial models: one degree-2 polynomial of the pixel position per band,
// the corrected value being v - P(x, y) (additive) or v / P(x, y) (multiplicative), computed in double
// and stored as float. A value of 0 is no data and stays 0.
class CorrectionPolynome : public CorrectionImage {
 public:
  CorrectionPolynome(std::vector<Polynome2D> parBande, bool multiplicatif);
  void CorrigerLigne(int bande, int y, int x0, int n, float* valeurs) const override;
  const Polynome2D& Polynome(int bande) const { return m_polynomes[bande]; }

 private:
  std::vector<Polynome2D> m_polynomes;
  bool m_multiplicatif;
};

// The value of a degree-2 polynomial at (x, y), with the same operations in the same order as
// Polynome2D::operator(), so that the results are the same to the last bit; inline for the per-pixel
// loops. c has 6 entries in term order (1, x, y, x^2, xy, y^2).
inline double ValeurDegre2(const double* c, double x, double y) {
  const double xx = x * x, yy = y * y;
  double s = 0.0;
  s += c[0];
  s += c[1] * x;
  s += c[2] * y;
  s += c[3] * xx;
  s += c[4] * x * y;
  s += c[5] * yy;
  return s;
}

// Stage "correction": every row of every band of the source, corrected, written to the sink.
void Corriger(const SourceLignes& source, const CorrectionImage& correction, PuitsLignes& puits);
