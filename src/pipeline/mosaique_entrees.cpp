#include "pipeline/mosaique_entrees.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>

#include "image/pam.h"
#include "zepra/cartoproj.h"
#include "zepra/crs.h"
#include "zepra/erreur.h"
#include "zepra/imageorientation.h"
#include "zepra/optionsecriture.h"

namespace {

// "(x0, y0), pas px x py" in every digit a map coordinate needs (6862000, not 6.862e+06).
std::string TexteGrille(double x0, double y0, double pasX, double pasY) {
  std::ostringstream t;
  t.precision(15);
  t << "(" << x0 << ", " << y0 << "), pas " << pasX << " x " << pasY;
  return t.str();
}

bool FichierExiste(const std::string& nom) {
  struct stat s;
  return ::stat(nom.c_str(), &s) == 0 && S_ISREG(s.st_mode);
}

// f(), its Erreur naming the image when the reader's message does not: some readers' messages were
// written for a tool that reads one file.
template <class F>
auto Nommer(const std::string& nom, F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (const Erreur& e) {
    if (e.Texte().str().find(nom) != std::string::npos) throw;
    ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << nom << " ne se lit pas : " << e.Phrase());
  }
}

// The value of attribute 'nom' in the opening tag 'balise', empty when absent.
std::string Attribut(const std::string& balise, const std::string& nom) {
  const size_t i = balise.find(" " + nom + "=\"");
  if (i == std::string::npos) return "";
  const size_t debut = i + nom.size() + 3, fin = balise.find('"', debut);
  return fin == std::string::npos ? "" : balise.substr(debut, fin - debut);
}

}  // namespace

std::string MetadonneesGdal(const MetadonneesImage* e, const std::vector<int>& carte) {
  constexpr uint16_t kGdalMetadata = 42112;
  std::string t;
  if (e)
    for (const TagTIFF& tag : e->autresTags)
      if (tag.code == kGdalMetadata && tag.type == 2)
        t.assign(tag.valeurs.begin(), std::find(tag.valeurs.begin(), tag.valeurs.end(), '\0'));
  std::string r;
  bool garde = false;
  for (size_t i = 0;;) {
    const size_t debut = t.find("<Item", i);
    if (debut == std::string::npos) {
      r += t.substr(i);
      break;
    }
    const size_t ouvrante = t.find('>', debut);
    if (ouvrante == std::string::npos) return "";
    size_t fin = ouvrante + 1;
    if (t[ouvrante - 1] != '/') {
      fin = t.find("</Item>", ouvrante);
      if (fin == std::string::npos) return "";
      fin += 7;
    }
    std::string balise = t.substr(debut, ouvrante + 1 - debut);
    std::string avant = t.substr(i, debut - i);
    i = fin;
    const std::string nom = Attribut(balise, "name");
    // The layout of the input's samples is not that of the file written.
    bool copie = nom.rfind("STATISTICS_", 0) != 0 && nom != "COLORINTERP" &&
                 Attribut(balise, "domain") != "IMAGE_STRUCTURE";
    const std::string echantillon = Attribut(balise, "sample");
    if (!echantillon.empty()) {
      char* f = nullptr;
      const long k = std::strtol(echantillon.c_str(), &f, 10);
      copie = copie && *f == '\0' && k >= 0 && k < static_cast<long>(carte.size()) && carte[k] >= 0;
      if (copie) balise.replace(balise.find(" sample=\"") + 9, echantillon.size(), std::to_string(carte[k]));
    }
    if (!copie) {
      // The line of the item goes with it.
      while (!avant.empty() && std::isspace(static_cast<unsigned char>(avant.back()))) avant.pop_back();
      r += avant;
      continue;
    }
    garde = true;
    r += avant + balise + t.substr(ouvrante + 1, fin - ouvrante - 1);
  }
  return garde ? r : "";
}

std::string NomMasqueExclusion(const std::string& image, const std::string& suffixe) {
  // The name without its extension: up to the last dot after the last slash.
  const size_t point = image.rfind('.'), barre = image.rfind('/');
  if (point == std::string::npos || (barre != std::string::npos && point < barre)) return image + suffixe;
  return image.substr(0, point) + suffixe;
}

std::vector<std::string> FichiersLusAvec(const std::string& image, const std::string& suffixe) {
  std::vector<std::string> lus;
  if (!suffixe.empty()) lus.push_back(NomMasqueExclusion(image, suffixe));
  lus.push_back(image + ".msk");
  lus.push_back(image + ".aux.xml");
  for (std::string& f : ImageOrientation::FichiersCherches(image.c_str())) lus.push_back(std::move(f));
  return lus;
}

EntreeMosaique::EntreeMosaique(const std::string& nom, bool nodataDonne, double nodata,
                               const std::string& suffixe, bool masqueFacultatif)
    : m_nom(nom) {
  m_fichier = Nommer(nom, [&] { return std::make_unique<LecteurFenetres>(nom); });
  const TPoint2D<int> t = m_fichier->Taille();
  m_colonnes = t.x;
  m_lignes = t.y;
  m_canaux = m_fichier->Canaux();
  m_type = m_fichier->Type();
  m_meta = m_fichier->Metadonnees();
  if (m_colonnes < 1 || m_lignes < 1 || m_canaux < 1)
    ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << nom << " est vide.");
  // Its samples are indices: read through the palette they would make an RGB mosaic where a GIS
  // expects the palette, and equalizing them means nothing.
  if (m_meta && m_meta->photometrique == 3)
    ZEPRA_ERREUR(
        "[Mosaique] (Entrees) L'image "
        << nom << " est en couleurs indexees (palette) : la convertir en RVB (gdal_translate -expand rgb).");
  m_alpha = m_meta && m_canaux > 1 ? m_meta->canalAlpha : -1;
  for (int c = 0; c < m_canaux; ++c)
    if (c != m_alpha) m_bandes.push_back(c);

  // GDAL reads NAME.aux.xml as part of the image: it fills what the image and its side files do not
  // say, and may not contradict them (GDAL would take its grid and system, silently).
  const AnnexePam pam = LireAnnexePam(nom);
  std::unique_ptr<ImageOrientation> ori = ImageOrientation::ChercherSiPresent(nom.c_str());
  if (ori) {
    const auto* carto = dynamic_cast<const CartoProjOrientation*>(ori.get());
    if (!carto)
      ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << nom
                                                   << " n'est pas placee sur une grille cartographique.");
    if (carto->GetNs() != m_colonnes || carto->GetNl() != m_lignes)
      ZEPRA_ERREUR("[Mosaique] (Entrees) L'orientation de " << nom << " decrit " << carto->GetNs() << " x "
                                                            << carto->GetNl() << " pixels, l'image en a "
                                                            << m_colonnes << " x " << m_lignes << ".");
    const GeoreferenceEcriture g = carto->GeoreferencePourEcriture();
    m_x0 = g.x0;
    m_y0 = g.y0;
    m_pasX = g.pasX;
    m_pasY = g.pasY;
    m_crs = carto->PartageSystemeReference();
  } else if (!pam.geotransform) {
    ZEPRA_ERREUR("[Mosaique] (Entrees) L'image "
                 << nom
                 << " n'est pas georeferencee : ni etiquettes GeoTIFF, ni world file (.tfw, .tifw, .wld), ni "
                 << "orientation (.ori), ni grille dans " << nom << ".aux.xml.");
  }
  AppliquerAnnexe(pam, ori != nullptr);
  if (!(std::isfinite(m_x0) && std::isfinite(m_y0) && m_pasX > 0 && m_pasY > 0 && std::isfinite(m_pasX) &&
        std::isfinite(m_pasY)))
    ZEPRA_ERREUR("[Mosaique] (Entrees) La grille de " << nom << " est inutilisable.");

  m_masque = Nommer(nom, [&] { return OuvrirMasqueFenetres(nom, t); });
  if (m_meta && m_meta->nodataPresent) {
    m_regle = RegleValidite::kNodata;
    m_nodata = m_meta->nodata;
  } else if (m_nodataAnnexe) {
    m_regle = RegleValidite::kNodata;
    m_nodata = m_nodataPam;
  } else if (nodataDonne) {
    m_regle = RegleValidite::kNodata;
    m_nodata = nodata;
  } else if (m_alpha >= 0) {
    m_regle = RegleValidite::kAlpha;
  } else if (m_masque) {
    m_regle = RegleValidite::kMasque;
  }

  if (!suffixe.empty()) OuvrirExclusion(NomMasqueExclusion(nom, suffixe), masqueFacultatif);
}

void EntreeMosaique::OuvrirExclusion(const std::string& masque, bool facultatif) {
  if (!FichierExiste(masque)) {
    if (facultatif) return;
    ZEPRA_ERREUR("[Mosaique] (Entrees) Le masque d'exclusion " << masque << " de l'image " << m_nom
                                                               << " n'existe pas.");
  }
  m_nomExclusion = masque;
  m_exclusion = Nommer(m_nomExclusion, [&] { return std::make_unique<LecteurFenetres>(m_nomExclusion); });
  if (m_exclusion->Taille() != TPoint2D<int>(m_colonnes, m_lignes))
    ZEPRA_ERREUR("[Mosaique] (Entrees) Le masque d'exclusion "
                 << m_nomExclusion << " (" << m_exclusion->Taille().x << " x " << m_exclusion->Taille().y
                 << ") n'a pas la taille de l'image " << m_nom << ".");
  // A mask placed on the map must lie where its image does: one of the same size made for another
  // tile (names swapped) would take out the wrong pixels. A mask without a grid is taken as the
  // image's. Its grid may be in its tags, a side file, or its .aux.xml, as for an input.
  const auto VerifierGrille = [&](double x0, double y0, double pasX, double pasY) {
    if (!MemeGrille(x0, y0, pasX, pasY))
      ZEPRA_ERREUR("[Mosaique] (Entrees) Le masque d'exclusion "
                   << m_nomExclusion << " est place en " << TexteGrille(x0, y0, pasX, pasY) << ", l'image "
                   << m_nom << " en " << TexteGrille(m_x0, m_y0, m_pasX, m_pasY)
                   << " : est-ce le masque d'une autre image ?");
  };
  if (const auto om = ImageOrientation::ChercherSiPresent(m_nomExclusion.c_str()))
    if (const auto* carto = dynamic_cast<const CartoProjOrientation*>(om.get())) {
      const GeoreferenceEcriture g = carto->GeoreferencePourEcriture();
      VerifierGrille(g.x0, g.y0, g.pasX, g.pasY);
    }
  if (const AnnexePam pm = LireAnnexePam(m_nomExclusion); pm.geotransform)
    VerifierGrille(pm.gt[0], pm.gt[3], pm.gt[1], -pm.gt[5]);
}

void EntreeMosaique::AppliquerAnnexe(const AnnexePam& pam, bool place) {
  if (pam.geotransform) {
    const double* gt = pam.gt;
    if (gt[2] != 0 || gt[4] != 0)
      ZEPRA_ERREUR("[Mosaique] (Entrees) <GeoTransform> de "
                   << pam.fichier << " avec rotation ou cisaillement (" << gt[2] << ", " << gt[4]
                   << ") : une grille nord en haut est attendue.");
    if (!(gt[1] > 0 && gt[5] < 0))
      ZEPRA_ERREUR(
          "[Mosaique] (Entrees) <GeoTransform> de "
          << pam.fichier << " : pas (" << gt[1] << ", " << gt[5]
          << ") ; un pas positif le long des lignes et negatif vers le bas est attendu (nord en haut).");
    if (!place) {
      m_x0 = gt[0];
      m_y0 = gt[3];
      m_pasX = gt[1];
      m_pasY = -gt[5];
    } else {
      if (!MemeGrille(gt[0], gt[3], gt[1], -gt[5]))
        ZEPRA_ERREUR("[Mosaique] (Entrees) L'image "
                     << m_nom << " est placee en " << TexteGrille(m_x0, m_y0, m_pasX, m_pasY) << ", et en "
                     << TexteGrille(gt[0], gt[3], gt[1], -gt[5]) << ", par " << pam.fichier
                     << ", que GDAL lit en premier : retirer l'un des deux.");
    }
  }
  if (!pam.srs.empty()) {
    auto srs = std::make_shared<SystemeReference>();
    srs->wkt = pam.srs;
    if (!m_crs || !m_crs->Connu()) {
      m_crs = std::move(srs);
    } else if (ComparerCrs(*m_crs, *srs) == EgaliteCrs::kDifferent) {
      ZEPRA_ERREUR("[Mosaique] (Entrees) L'image " << m_nom << " est dans le systeme " << DecrireCrs(*m_crs)
                                                   << " et dans un autre selon " << pam.fichier
                                                   << ", que GDAL lit en premier : retirer l'un des deux.");
    }
  }
  // One value for every band, as the no-data tag: bands that state different ones cannot be told apart
  // by it.
  for (const AnnexePam::NoData& v : pam.nodata) {
    if (v.bande > m_canaux) continue;  // GDAL ignores them too
    const bool meme =
        m_nodataAnnexe && (v.valeur == m_nodataPam || (std::isnan(v.valeur) && std::isnan(m_nodataPam)));
    if (m_nodataAnnexe && !meme)
      ZEPRA_ERREUR("[Mosaique] (Entrees) " << pam.fichier << " donne a l'image " << m_nom
                                           << " des valeurs sans donnee differentes selon les bandes ("
                                           << m_nodataPam << ", " << v.texte
                                           << ") : une seule valeur est prise en charge.");
    m_nodataAnnexe = true;
    m_nodataPam = v.valeur;
  }
}

bool EntreeMosaique::MemeGrille(double x0, double y0, double pasX, double pasY) const {
  // Both written from the same doubles when they agree; a thousandth of a pixel allows for a
  // georeferencing rounded to the decimals of a world file.
  return std::abs(x0 - m_x0) <= 1e-3 * m_pasX && std::abs(y0 - m_y0) <= 1e-3 * m_pasY &&
         std::abs(pasX - m_pasX) <= 1e-9 * m_pasX && std::abs(pasY - m_pasY) <= 1e-9 * m_pasY;
}

size_t EntreeMosaique::OctetsLecture(int nx, int ny) const {
  const size_t n = static_cast<size_t>(nx) * ny;
  return m_fichier->OctetsBloc() + n + (m_masque ? m_masque->OctetsBloc() : 0) +
         (m_exclusion ? m_exclusion->OctetsBloc() + n * sizeof(float) : 0);
}

void EntreeMosaique::Liberer() const {
  m_fichier->Liberer();
  if (m_masque) m_masque->Liberer();
  if (m_exclusion) m_exclusion->Liberer();
}

void EntreeMosaique::Lire(int x0, int y0, int nx, int ny, float* valeurs, unsigned char* valide) const {
  if (x0 < 0 || y0 < 0 || nx < 1 || ny < 1 || x0 > m_colonnes - nx || y0 > m_lignes - ny)
    ZEPRA_ERREUR("[Mosaique] (Lire) Fenetre " << x0 << ", " << y0 << ", " << nx << " x " << ny
                                              << " hors de l'image " << m_nom << ".");
  const size_t n = static_cast<size_t>(nx) * ny;
  m_fichier->Lire(x0, y0, nx, ny, valeurs, nx, n);
  // Validity starts from the mask (or all valid), then each rule takes pixels out.
  if (m_masque)
    m_masque->Lire(x0, y0, nx, ny, valide, nx);
  else
    std::fill(valide, valide + n, 1);
  // A pixel holds no data when every band is the no-data value, as gdalwarp reads bands that share
  // one: a dark pixel, (0, 3, 5) with no-data 0, is data. Reading is liberal where writing is
  // conservative: the writers move a valid sample off the no-data value, so that a GIS taking no-data
  // band by band still shows each valid pixel of our outputs whole. A non-finite sample in any band
  // takes the pixel out.
  const bool regleValeur =
      (m_regle == RegleValidite::kNodata && !std::isnan(m_nodata)) || m_regle == RegleValidite::kZero;
  const float nodata = m_regle == RegleValidite::kNodata ? static_cast<float>(m_nodata) : 0.0f;
  std::vector<unsigned char> donnee(n, regleValeur ? 0 : 1);  // a band is not the no-data value
  for (int b = 0; b < Bandes(); ++b) {
    const float* v = valeurs + m_bandes[b] * n;
    for (size_t k = 0; k < n; ++k) {
      valide[k] &= std::isfinite(v[k]);
      donnee[k] |= v[k] != nodata;
    }
  }
  for (size_t k = 0; k < n; ++k) valide[k] &= donnee[k];
  if (m_alpha >= 0) {
    const float* a = valeurs + m_alpha * n;
    for (size_t k = 0; k < n; ++k) valide[k] &= a[k] != 0.0f;
  }
  if (m_exclusion) {
    std::vector<float> e(n);
    m_exclusion->Lire(x0, y0, nx, ny, e.data(), nx, n, 0, 1);
    for (size_t k = 0; k < n; ++k) valide[k] &= e[k] == 0.0f;
  }
}
