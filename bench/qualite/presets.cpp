#include "presets.h"

#include <random>

namespace {

constexpr int kTaille = 600;
constexpr int kPas = 480;  // 20 % overlap

// Uniform in [-1, 1) from a generator whose output the standard fixes bit for bit.
struct Tirage {
  std::mt19937 g;
  explicit Tirage(unsigned graine) : g(graine) {}
  double operator()() { return 2.0 * (g() / 4294967296.0) - 1.0; }
};

// A random degree-2 field: constant, slopes and curvatures of the given amplitudes.
ChampDegre2 Champ(Tirage& t, double constante, double pente, double courbure) {
  ChampDegre2 c;
  c.c[0] = constante * t();
  c.c[1] = pente * t();
  c.c[2] = pente * t();
  for (int k = 3; k < 6; ++k) c.c[k] = courbure * t();
  return c;
}

struct Distorsions {
  double offset = 0, gain = 0, bruit = 1;
};

// n x m tiles from (colonne0, ligne0), with random fields of the given amplitudes.
void Bloc(Preset& p, int lignes, int colonnes, long long colonne0, long long ligne0, const Distorsions& d,
          unsigned graine) {
  p.amplitudeOffset = d.offset;
  p.amplitudeGain = d.gain;
  Tirage t(graine);
  for (int l = 0; l < lignes; ++l)
    for (int c = 0; c < colonnes; ++c) {
      TuileQualite q;
      q.colonne0 = colonne0 + static_cast<long long>(c) * kPas;
      q.ligne0 = ligne0 + static_cast<long long>(l) * kPas;
      q.largeur = q.hauteur = kTaille;
      q.numero = static_cast<int>(p.tuiles.size());
      q.offset = Champ(t, d.offset, d.offset / 2, d.offset / 4);
      q.gain = Champ(t, d.gain, d.gain / 2, d.gain / 4);
      q.bruit = d.bruit;
      p.tuiles.push_back(q);
    }
}

Preset Grille(const std::string& nom, const std::string& description, int n, const Distorsions& d,
              unsigned graine) {
  Preset p;
  p.nom = nom;
  p.description = description;
  Bloc(p, n, n, 0, 0, d, graine);
  return p;
}

}  // namespace

ParametresDemo GrilleScene() {
  ParametresDemo p;
  p.pixel = 0.5;
  p.graine = 1;
  return p;
}

std::vector<Preset> Presets(unsigned tirage) {
  const unsigned g = 1000 * tirage;
  std::vector<Preset> presets;
  presets.push_back(
      Grille("additif_4x4", "4 x 4, offsets de degre 2 (+-25), bruit 1", 4, {25, 0, 1}, g + 11));
  presets.push_back(
      Grille("multiplicatif_4x4", "4 x 4, gains de degre 2 (+-8 %), bruit 1", 4, {0, 0.08, 1}, g + 12));

  // The same lens on every tile: a radial fall-off of 12 % to the corners, and small offsets.
  Preset v = Grille("vignettage_4x4", "4 x 4, vignettage commun (-12 % aux coins), offsets +-5, bruit 1", 4,
                    {5, 0, 1}, g + 13);
  for (TuileQualite& t : v.tuiles) {
    t.gain = ChampDegre2();
    t.gain.c[3] = t.gain.c[5] = -0.06;
  }
  presets.push_back(v);

  presets.push_back(
      Grille("bruit_3x3", "3 x 3, offsets de degre 2 (+-25), bruit 4 (fort)", 3, {25, 0, 4}, g + 14));

  Preset k = Grille("masques_4x4", "4 x 4, offsets de degre 2 (+-25), bruit 1, masques d'exclusion", 4,
                    {25, 0, 1}, g + 15);
  k.masques = true;
  Tirage t(g + 115);
  for (TuileQualite& q : k.tuiles)
    for (int e = 0; e < 3; ++e) {
      Disque d;
      d.colonne = 300 + 280 * t();
      d.ligne = 300 + 280 * t();
      d.rayon = 25 + 20 * t();
      q.exclusions.push_back(d);
    }
  presets.push_back(k);

  presets.push_back(
      Grille("bloc_6x6", "6 x 6, offsets +-25 et gains +-3 % de degre 2, bruit 1", 6, {25, 0.03, 1}, g + 16));
  // Strong gain and offset fields together: the exact inverse of scene x (1 + g) + o is a gain and an
  // offset of degree 2 only to first order.
  presets.push_back(Grille("mixte_4x4", "4 x 4, offsets +-25 et gains +-8 % de degre 2, bruit 1", 4,
                           {25, 0.08, 1}, g + 21));

  // A 3 x 3 block and, beyond a gap, a pair of tiles that only see each other.
  Preset d = Grille("deconnecte", "3 x 3 et une paire isolee, offsets +-25, bruit 1", 3, {25, 0, 1}, g + 17);
  Bloc(d, 1, 2, 3 * kPas + kTaille, 0, Distorsions{25, 0, 1}, g + 18);
  presets.push_back(d);

  // A cloud in the overlap of tile (1, 1) with its right neighbour, in that tile only.
  Preset n = Grille("nuage_4x4", "4 x 4, offsets de degre 2 (+-25), bruit 1, un nuage dans une tuile", 4,
                    {25, 0, 1}, g + 19);
  TuileQualite& q = n.tuiles[5];
  q.nuage.colonne = 540;
  q.nuage.ligne = 300;
  q.nuage.rayon = 70;
  q.intensiteNuage = 110;
  presets.push_back(n);

  // Every other tile misregistered by one pixel along x.
  Preset r =
      Grille("decale_3x3", "3 x 3, offsets de degre 2 (+-25), bruit 1, une tuile sur deux decalee d'un pixel",
             3, {25, 0, 1}, g + 20);
  for (size_t i = 0; i < r.tuiles.size(); i += 2) r.tuiles[i].decalageX = 1;
  presets.push_back(r);

  // A flight strip: each tile sees two neighbours at most, so what the overlaps leave unseen adds up
  // along it.
  Preset b;
  b.nom = "bande_1x12";
  b.description = "1 x 12 (une bande de vol), offsets +-25 et gains +-3 % de degre 2, bruit 1";
  Bloc(b, 1, 12, 0, 0, {25, 0.03, 1}, g + 22);
  presets.push_back(b);

  // Drone-like footprints off any grid: sizes of 200 to 840 pixels, overlaps of 30 to 360 pixels (5 to
  // 60 % of the smaller tile), and one tile inside another.
  Preset f;
  f.nom = "irregulier";
  f.description =
      "10 tuiles hors grille de 200 a 840 pixels, recouvrements de 30 a 360 pixels, une tuile dans une "
      "autre, offsets +-25 et gains +-3 % de degre 2, bruit 1";
  const int emprises[][4] = {{0, 0, 600, 600},    {570, 40, 500, 560},  {900, 0, 800, 620},
                             {60, 380, 560, 600}, {420, 480, 700, 520}, {1000, 560, 640, 640},
                             {0, 900, 720, 560},  {600, 940, 460, 460}, {850, 1050, 840, 500},
                             {200, 150, 200, 200}};
  f.amplitudeOffset = 25;
  f.amplitudeGain = 0.03;
  Tirage u(g + 23);
  for (const auto& e : emprises) {
    TuileQualite q;
    q.colonne0 = e[0];
    q.ligne0 = e[1];
    q.largeur = e[2];
    q.hauteur = e[3];
    q.numero = static_cast<int>(f.tuiles.size());
    q.offset = Champ(u, 25, 12.5, 6.25);
    q.gain = Champ(u, 0.03, 0.015, 0.0075);
    q.bruit = 1;
    f.tuiles.push_back(q);
  }
  presets.push_back(f);
  return presets;
}
