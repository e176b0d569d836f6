#include "scene_demo.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>
#include <thread>

#include "zepra/ecrivaingeotiff.h"
#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Integer hashing: the scene must be the same function of the pixel index on every machine, so no
// library random generator (their distributions are not specified bit for bit).
uint32_t Melanger(uint32_t h) {
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return h;
}

uint32_t Hacher(long long a, long long b, uint32_t c) {
  // Negative indices wrap modulo 2^32, which is defined for unsigned types.
  const uint32_t ua = static_cast<uint32_t>(a), ub = static_cast<uint32_t>(b);
  return Melanger((ua * 0x9e3779b1u) ^ Melanger((ub + 0x632be5abu) ^ Melanger(c)));
}

// Uniform in [0, 1).
double Alea(long long a, long long b, uint32_t c) { return Hacher(a, b, c) * (1.0 / 4294967296.0); }

// Smooth value noise in [0, 1] with lattice cells of 'cellule' pixels.
double Bruit(double x, double y, double cellule, uint32_t graine) {
  const double fx = x / cellule, fy = y / cellule;
  const double ix = std::floor(fx), iy = std::floor(fy);
  double tx = fx - ix, ty = fy - iy;
  tx = tx * tx * (3 - 2 * tx);
  ty = ty * ty * (3 - 2 * ty);
  const long long cx = static_cast<long long>(ix), cy = static_cast<long long>(iy);
  const double a = Alea(cx, cy, graine), b = Alea(cx + 1, cy, graine);
  const double c = Alea(cx, cy + 1, graine), d = Alea(cx + 1, cy + 1, graine);
  return a + (b - a) * tx + (c - a) * ty + (a - b - c + d) * tx * ty;
}

// Signed distance to the nearest of a family of parallel lines 'periode' apart, the first at 'decalage',
// measured along the coordinate t.
double EcartFamille(double t, double decalage, double periode) {
  const double d = t - decalage;
  return d - periode * std::floor(d / periode + 0.5);
}

// Tree crowns: dark, blotchy.
double Foret(double x, double y, uint32_t g) {
  return 42 + 38 * Bruit(x, y, 3.5, g ^ 0x16u) + 14 * Bruit(x, y, 11, g ^ 0x17u);
}

// Houses on a lattice of 16 pixels aligned with the fields: roofs with a ridge, a shadow on one side.
double Village(double u, double v, uint32_t g) {
  const double cu = std::floor(u / 16), cv = std::floor(v / 16);
  const double pu = u - cu * 16, pv = v - cv * 16;
  const long long iu = static_cast<long long>(cu), iv = static_cast<long long>(cv);
  if (Alea(iu, iv, g ^ 0x20u) < 0.25) return 118 + 20 * Bruit(u, v, 5, g ^ 0x21u);  // a garden
  if (pu > 3 && pu < 13 && pv > 4 && pv < 12) {
    const double toit = Alea(iu, iv, g ^ 0x22u) < 0.5 ? 200 : 132;
    return std::fabs(pv - 8) < 0.6 ? toit - 35 : toit;
  }
  if (pu >= 13 && pu < 15.5 && pv > 6 && pv < 14) return 48;
  return 128 + 14 * Bruit(u, v, 4, g ^ 0x23u);
}

// Two families of straight roads with dashed centre lines, and a winding gravel track.
double Routes(double x, double y, double s, uint32_t g) {
  const double a = 1.15, ca = std::cos(a), sa = std::sin(a);
  const double e1 = EcartFamille(x * ca + y * sa, 330, 1400);
  if (std::fabs(e1) < 4.5) {
    const double le_long = -x * sa + y * ca;
    const bool tiret = le_long - 14 * std::floor(le_long / 14) < 7;
    if (std::fabs(e1) < 0.6 && tiret) return 215;
    return 108 + 8 * Bruit(x, y, 2, g ^ 0x30u);
  }
  const double b = 2.6, cb = std::cos(b), sb = std::sin(b);
  const double e2 = EcartFamille(x * cb + y * sb, 900, 1900);
  if (std::fabs(e2) < 3.5) return 96 + 8 * Bruit(x, y, 2, g ^ 0x31u);
  // The track y = 420 + 60 sin(x / 150), its distance taken across the local direction.
  const double pente = 0.4 * std::cos(x / 150);
  const double e3 = EcartFamille(y - 60 * std::sin(x / 150), 420, 1700) / std::sqrt(1 + pente * pente);
  if (std::fabs(e3) < 2.5) return 172 + 10 * Bruit(x, y, 3, g ^ 0x32u);
  return s;
}

double Borne(double v, double lo, double hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The no-data band along one side of a tile: its width in pixels at each position along that side.
std::vector<double> LargeursBord(int taille, uint32_t graine, int tuile, int cote) {
  const double base = taille * (0.005 + 0.04 * Alea(tuile, cote, graine ^ 0x40u));
  const double amplitude = taille * 0.015 * Alea(tuile, cote, graine ^ 0x41u);
  const double periode = taille * (0.15 + 0.3 * Alea(tuile, cote, graine ^ 0x42u));
  const double phase = 2 * kPi * Alea(tuile, cote, graine ^ 0x43u);
  std::vector<double> l(taille);
  for (int i = 0; i < taille; ++i) l[i] = base + amplitude * (1 + std::sin(2 * kPi * i / periode + phase));
  return l;
}

// The ragged no-data band along the four sides of a tile.
class BordsIrreguliers {
 public:
  BordsIrreguliers(int largeur, int hauteur, uint32_t graine, int numero)
      : m_largeur(largeur),
        m_hauteur(hauteur),
        m_gauche(LargeursBord(hauteur, graine, numero, 0)),
        m_droite(LargeursBord(hauteur, graine, numero, 1)),
        m_haut(LargeursBord(largeur, graine, numero, 2)),
        m_bas(LargeursBord(largeur, graine, numero, 3)) {}
  bool Dehors(int c, int l) const {
    return c < m_gauche[l] || m_largeur - 1 - c < m_droite[l] || l < m_haut[c] ||
           m_hauteur - 1 - l < m_bas[c];
  }

 private:
  int m_largeur, m_hauteur;
  std::vector<double> m_gauche, m_droite, m_haut, m_bas;
};

// Normal deviate from two hashed uniforms (Box and Muller).
double Gaussien(long long a, long long b, uint32_t graine) {
  const double u1 = 1.0 - Alea(a, b, graine ^ 0x60u), u2 = Alea(a, b, graine ^ 0x61u);
  return std::sqrt(-2.0 * std::log(u1)) * std::cos(2 * kPi * u2);
}

}  // namespace

int ParametresDemo::Decalage() const { return static_cast<int>(std::lround(taille * (1.0 - recouvrement))); }

void ParametresDemo::Verifier() const {
  if (grille < 1 || grille > 64)
    ZEPRA_ERREUR("[ParametresDemo] (Verifier) Grille de " << grille << " tuiles par cote : 1 a 64 attendu.");
  if (taille < 32 || taille > 20000)
    ZEPRA_ERREUR("[ParametresDemo] (Verifier) Taille de tuile de " << taille
                                                                   << " pixels : 32 a 20000 attendu.");
  // Below 0 the tiles would not touch; up to 0.9 every tile still adds a band of its own.
  if (!(recouvrement >= 0 && recouvrement <= 0.9))
    ZEPRA_ERREUR("[ParametresDemo] (Verifier) Recouvrement de " << recouvrement << " : 0 a 0.9 attendu.");
  if (!(pixel > 0 && pixel <= 1000))
    ZEPRA_ERREUR("[ParametresDemo] (Verifier) Taille de pixel de "
                 << pixel << " m : strictement positive, 1000 au plus.");
  // The whole scene must stay a valid map-projected grid: its lowest Y inside the Lambert zone 2 range.
  const double etendue = (static_cast<double>(grille - 1) * Decalage() + taille) * pixel;
  if (y0 - etendue < 1500000.0 || x0 + etendue > 1e7)
    ZEPRA_ERREUR("[ParametresDemo] (Verifier) Scene de " << etendue
                                                         << " m de cote : hors de la zone Lambert 2.");
}

double Distorsion::Valeur(double colonne, double ligne, int largeur, int hauteur) const {
  const double u = (colonne + 0.5 - largeur / 2.0) / (largeur / 2.0);
  const double v = (ligne + 0.5 - hauteur / 2.0) / (hauteur / 2.0);
  return decalage + penteX * u + penteY * v + vignettage * (u * u + v * v);
}

double ValeurScene(long long colonne, long long ligne, uint32_t g) {
  const double x = colonne + 0.5, y = ligne + 0.5;
  // Fields lie in rows along a direction turned by 0.35 rad; their edges wander a little.
  const double ct = 0.9393727128473789, st = 0.34289780745545134;  // cos, sin of 0.35
  const double u = x * ct + y * st + 6 * (Bruit(x, y, 170, g ^ 0x11u) - 0.5);
  const double v = -x * st + y * ct + 6 * (Bruit(x, y, 190, g ^ 0x12u) - 0.5);
  const double hauteurRang = 90;
  const double fr = v / hauteurRang;
  const long long r = static_cast<long long>(std::floor(fr));
  const double longueur = 60 + 130 * Alea(r, 1, g);
  const double fu = (u + Alea(r, 2, g) * longueur) / longueur;
  const long long k = static_cast<long long>(std::floor(fu));
  const double bordU = std::min(fu - k, k + 1 - fu) * longueur;
  const double bordV = std::min(fr - r, r + 1 - fr) * hauteurRang;
  const uint32_t parcelle = Hacher(r, k, g);
  const double type = Alea(parcelle, 3, g), teinte = Alea(parcelle, 4, g);
  double s;
  if (type < 0.42) {
    // Crops sown in lines.
    const double periode = 4 + 5 * Alea(parcelle, 5, g);
    const double sens = Alea(parcelle, 6, g) < 0.5 ? u : v;
    s = 95 + 75 * teinte + 10 * std::sin(2 * kPi * sens / periode);
  } else if (type < 0.72) {
    s = 105 + 55 * teinte + 24 * (Bruit(x, y, 23, g ^ 0x7u) - 0.5);  // meadow
  } else if (type < 0.86) {
    s = 150 + 50 * teinte + 16 * (Bruit(x, y, 9, g ^ 0x8u) - 0.5);  // bare soil
  } else if (type < 0.95) {
    s = Foret(x, y, g);
  } else {
    s = Village(u, v, g);
  }
  if (std::min(bordU, bordV) < 1.6 && Alea(parcelle, 9, g) < 0.6) s = 58;  // a hedge
  // Woods spread across the fields.
  if (0.7 * Bruit(x, y, 260, g ^ 0x13u) + 0.3 * Bruit(x, y, 70, g ^ 0x14u) > 0.68) s = Foret(x, y, g);
  s = Routes(x, y, s, g);
  return s + 6 * (Alea(colonne, ligne, g ^ 0x15u) - 0.5);
}

Distorsion DistorsionTuile(int ligneTuile, int colonneTuile, uint32_t g) {
  // Rounded to a tenth so that the values written in distorsions.txt are exactly those applied.
  const auto dixieme = [&](int n, double lo, double hi) {
    return std::round((lo + (hi - lo) * Alea(ligneTuile * 1000 + colonneTuile, n, g ^ 0x50u)) * 10) / 10;
  };
  Distorsion d;
  d.decalage = dixieme(0, -32, 32);
  d.penteX = dixieme(1, -16, 16);
  d.penteY = dixieme(2, -16, 16);
  d.vignettage = dixieme(3, -14, -4);
  return d;
}

std::string NomTuile(int ligneTuile, int colonneTuile) {
  return "tuile_" + std::to_string(ligneTuile) + "_" + std::to_string(colonneTuile) + ".tif";
}

TTOrientedImage<unsigned char> GenererTuile(const ParametresDemo& p, int lt, int ct) {
  p.Verifier();
  const int n = static_cast<int>(p.taille), dec = p.Decalage();
  const OrientationOld ori(eORICarto, p.x0 + static_cast<double>(ct) * dec * p.pixel,
                           p.y0 - static_cast<double>(lt) * dec * p.pixel, p.zone, n, n, p.pixel, p.pixel);
  TTOrientedImage<unsigned char> tuile(n, n, TagNbCanaux(1), ori);
  const Distorsion d = DistorsionTuile(lt, ct, p.graine);
  const BordsIrreguliers bords(n, n, p.graine, static_cast<int>(lt * p.grille + ct));
  for (int l = 0; l < n; ++l) {
    unsigned char* ligne = tuile.GetLines(l);
    const long long gl = static_cast<long long>(lt) * dec + l;
    for (int c = 0; c < n; ++c) {
      if (bords.Dehors(c, l)) {
        ligne[c] = 0;
        continue;
      }
      const double v = ValeurScene(static_cast<long long>(ct) * dec + c, gl, p.graine) + d.Valeur(c, l, n, n);
      // 0 is kept for no data.
      ligne[c] = static_cast<unsigned char>(std::lround(Borne(v, 1, 255)));
    }
  }
  return tuile;
}

std::vector<std::string> GenererDemo(const ParametresDemo& p, const std::string& dossier) {
  p.Verifier();
  const std::string prefixe = dossier.empty() ? std::string() : dossier + "/";
  std::vector<std::string> noms;
  FichierAtomique texte(prefixe + "distorsions.txt", "[GenererDemo] (Distorsions)");
  std::ostream& f = texte.flux();
  f << "# " << p.grille << " x " << p.grille << " tiles of " << p.taille << " x " << p.taille << " pixels of "
    << p.pixel << " m, " << p.taille - p.Decalage() << " pixels of overlap, Lambert zone " << p.zone
    << ", seed " << p.graine << ".\n"
    << "# value = round(scene + offset + slopeX * u + slopeY * v + vignetting * (u^2 + v^2)), kept in "
       "1..255;\n"
    << "# u = (column + 0.5 - " << p.taille / 2.0 << ") / " << p.taille / 2.0
    << ", v the same for lines; 0 = no data.\n"
    << "# tile offset slopeX slopeY vignetting\n"
    << std::fixed << std::setprecision(1);
  for (int lt = 0; lt < p.grille; ++lt) {
    for (int ct = 0; ct < p.grille; ++ct) {
      const std::string nom = NomTuile(lt, ct);
      GenererTuile(p, lt, ct).Sauver((prefixe + "Ort_" + nom).c_str());
      const Distorsion d = DistorsionTuile(lt, ct, p.graine);
      f << nom << ' ' << d.decalage << ' ' << d.penteX << ' ' << d.penteY << ' ' << d.vignettage << '\n';
      noms.push_back(nom);
    }
  }
  texte.Valider();
  return noms;
}

double ChampDegre2::Valeur(double colonne, double ligne, int largeur, int hauteur) const {
  const double u = (colonne + 0.5 - largeur / 2.0) / (largeur / 2.0);
  const double v = (ligne + 0.5 - hauteur / 2.0) / (hauteur / 2.0);
  return c[0] + c[1] * u + c[2] * v + c[3] * u * u + c[4] * u * v + c[5] * v * v;
}

bool Disque::Contient(double c, double l) const {
  const double dc = c + 0.5 - colonne, dl = l + 0.5 - ligne;
  return dc * dc + dl * dl < rayon * rayon;
}

double TuileQualite::Distordre(double s, int c, int l) const {
  const double g = 1 + gain.Valeur(c, l, largeur, hauteur), o = offset.Valeur(c, l, largeur, hauteur);
  return inverse ? (s - o) / g : s * g + o;
}

double TuileQualite::Redresser(double v, int c, int l) const {
  const double g = 1 + gain.Valeur(c, l, largeur, hauteur), o = offset.Valeur(c, l, largeur, hauteur);
  return inverse ? v * g + o : (v - o) / g;
}

bool TuileQualite::Exclu(int c, int l) const {
  for (const Disque& d : exclusions)
    if (d.Contient(c, l)) return true;
  return false;
}

TTOrientedImage<unsigned char> GenererTuileQualite(const ParametresDemo& p, const TuileQualite& t) {
  if (t.largeur < 32 || t.hauteur < 32 || t.largeur > 20000 || t.hauteur > 20000)
    ZEPRA_ERREUR("[GenererTuileQualite] (Taille) Tuile de " << t.largeur << " x " << t.hauteur
                                                            << " pixels : 32 a 20000 attendu.");
  const OrientationOld ori(eORICarto, p.x0 + static_cast<double>(t.colonne0) * p.pixel,
                           p.y0 - static_cast<double>(t.ligne0) * p.pixel, p.zone, t.largeur, t.hauteur,
                           p.pixel, p.pixel);
  TTOrientedImage<unsigned char> tuile(t.hauteur, t.largeur, TagNbCanaux(1), ori);
  const BordsIrreguliers bords(t.largeur, t.hauteur, p.graine, t.numero);
  for (int l = 0; l < t.hauteur; ++l) {
    unsigned char* ligne = tuile.GetLines(l);
    for (int c = 0; c < t.largeur; ++c) {
      if (t.bordsIrreguliers && bords.Dehors(c, l)) {
        ligne[c] = 0;
        continue;
      }
      double s = ValeurScene(t.colonne0 + c + t.decalageX, t.ligne0 + l + t.decalageY, p.graine);
      if (t.intensiteNuage > 0) {
        const double dc = (c + 0.5 - t.nuage.colonne) / t.nuage.rayon,
                     dl = (l + 0.5 - t.nuage.ligne) / t.nuage.rayon;
        const double r2 = dc * dc + dl * dl;
        if (r2 < 1) s += t.intensiteNuage * (1 - r2) * (1 - r2);
      }
      double v = t.Distordre(s, c, l) + t.bruit * Gaussien(c, l, p.graine ^ (0x9000u + t.numero));
      if (t.Exclu(c, l)) v = 250;
      ligne[c] = static_cast<unsigned char>(std::lround(Borne(v, 1, 255)));
    }
  }
  return tuile;
}

TTImage<unsigned char> MasqueExclusion(const TuileQualite& t) {
  TTImage<unsigned char> m(t.largeur, t.hauteur, static_cast<unsigned char>(0));
  for (int l = 0; l < t.hauteur; ++l)
    for (int c = 0; c < t.largeur; ++c) m.GetLines(l)[c] = t.Exclu(c, l) ? 1 : 0;
  return m;
}

double CouleurScene(double s, int bande, int bandes) {
  if (bandes != 3) return s;
  static const double gain[3] = {1.0, 0.85, 0.7}, base[3] = {0.0, 20.0, 30.0};
  return gain[bande] * s + base[bande];
}

DistorsionBande DistorsionTuileBande(int lt, int ct, int bande, uint32_t g) {
  DistorsionBande d;
  const uint32_t graine = g ^ (0x70u + static_cast<uint32_t>(bande));
  // Hundredths, so that distorsions.txt gives the gains applied.
  d.gain = std::round((0.85 + 0.3 * Alea(lt * 1000 + ct, 7, graine)) * 100) / 100;
  d.offset = DistorsionTuile(lt, ct, graine);
  return d;
}

namespace {

void EcrireTuileGeoTIFF(const ParametresDemo& p, int bandes, int lt, int ct, const std::string& chemin) {
  const int n = static_cast<int>(p.taille), dec = p.Decalage();
  OptionsEcriture o;
  o.compression = CompressionTIFF::kDeflate;
  o.tuile = 256;
  o.nodataPresent = true;
  o.nodata = 0;
  o.epsg = 2154;
  GeoreferenceEcriture g;
  g.grille = true;
  g.x0 = p.x0 + static_cast<double>(ct) * dec * p.pixel;
  g.y0 = p.y0 - static_cast<double>(lt) * dec * p.pixel;
  g.pasX = g.pasY = p.pixel;
  EcrivainGeoTIFF ecrivain(chemin, o, TPoint2D<int>(n, n), bandes, eUInt1, g);
  std::vector<DistorsionBande> d(bandes);
  for (int b = 0; b < bandes; ++b) d[b] = DistorsionTuileBande(lt, ct, b, p.graine);
  const BordsIrreguliers bords(n, n, p.graine, static_cast<int>(lt * p.grille + ct));
  std::vector<unsigned char> ligne(static_cast<size_t>(n) * bandes), valide(n);
  for (int l = 0; l < n; ++l) {
    const long long gl = static_cast<long long>(lt) * dec + l;
    for (int c = 0; c < n; ++c) {
      unsigned char* px = &ligne[static_cast<size_t>(c) * bandes];
      // The writer moves a valid sample off the no-data value: the border goes as invalid pixels.
      valide[c] = bords.Dehors(c, l) ? 0 : 1;
      if (!valide[c]) continue;
      const double s = ValeurScene(static_cast<long long>(ct) * dec + c, gl, p.graine);
      for (int b = 0; b < bandes; ++b) {
        const double v = d[b].gain * CouleurScene(s, b, bandes) + d[b].offset.Valeur(c, l, n, n);
        px[b] = static_cast<unsigned char>(std::lround(Borne(v, 1, 255)));
      }
    }
    ecrivain.EcrireLignes(ligne.data(), ligne.size(), 1, valide.data(), valide.size());
  }
  ecrivain.Terminer();
}

}  // namespace

std::vector<std::string> GenererDemoGeoTIFF(const ParametresDemo& p, int bandes, const std::string& dossier,
                                            int fils) {
  p.Verifier();
  if (bandes != 1 && bandes != 3)
    ZEPRA_ERREUR("[GenererDemoGeoTIFF] (Bandes) " << bandes << " bandes : 1 ou 3 attendu.");
  const std::string prefixe = dossier.empty() ? std::string() : dossier + "/";
  const int nb = static_cast<int>(p.grille * p.grille);
  std::vector<std::string> noms;
  for (int k = 0; k < nb; ++k)
    noms.push_back(NomTuile(k / static_cast<int>(p.grille), k % static_cast<int>(p.grille)));
  // Each thread takes every fils-th tile; the first error is rethrown once all have stopped.
  std::vector<std::exception_ptr> erreurs(std::max(1, fils));
  std::vector<std::thread> threads;
  for (int t = 0; t < static_cast<int>(erreurs.size()); ++t)
    threads.emplace_back([&, t] {
      try {
        for (int k = t; k < nb; k += static_cast<int>(erreurs.size()))
          EcrireTuileGeoTIFF(p, bandes, k / static_cast<int>(p.grille), k % static_cast<int>(p.grille),
                             prefixe + noms[k]);
      } catch (...) {
        erreurs[t] = std::current_exception();
      }
    });
  for (std::thread& t : threads) t.join();
  for (const std::exception_ptr& e : erreurs)
    if (e) std::rethrow_exception(e);

  FichierAtomique texte(prefixe + "distorsions.txt", "[GenererDemoGeoTIFF] (Distorsions)");
  std::ostream& f = texte.flux();
  f << "# " << p.grille << " x " << p.grille << " GeoTIFF tiles of " << p.taille << " x " << p.taille << " x "
    << bandes << " bands, 8-bit, pixels of " << p.pixel << " m, " << p.taille - p.Decalage()
    << " pixels of overlap, EPSG:2154, no-data 0, seed " << p.graine << ".\n"
    << "# band b = round(gain * truth_b + offset + slopeX * u + slopeY * v + vignetting * (u^2 + v^2)), "
       "kept in 1..255;\n";
  if (bandes == 3) f << "# truth: R = scene, G = 0.85 scene + 20, B = 0.7 scene + 30;\n";
  f << "# u = (column + 0.5 - " << p.taille / 2.0 << ") / " << p.taille / 2.0 << ", v the same for lines.\n"
    << "# tile band gain offset slopeX slopeY vignetting\n"
    << std::fixed;
  for (int k = 0; k < nb; ++k)
    for (int b = 0; b < bandes; ++b) {
      const DistorsionBande d =
          DistorsionTuileBande(k / static_cast<int>(p.grille), k % static_cast<int>(p.grille), b, p.graine);
      f << noms[k] << ' ' << b + 1 << ' ' << std::setprecision(2) << d.gain << ' ' << std::setprecision(1)
        << d.offset.decalage << ' ' << d.offset.penteX << ' ' << d.offset.penteY << ' ' << d.offset.vignettage
        << '\n';
    }
  texte.Valider();
  return noms;
}
