// The inputs of the conventional front end's job: opened once (headers only), georeferenced, with
// their validity rule, and read by windows. Private to src/pipeline.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zepra/lecteurfenetres.h"
#include "zepra/metadonnees.h"

// Which values of an input hold no data: the first rule that applies, in this order. Besides, a pixel
// is out under every rule where the file's alpha is 0 or its mask leaves it out (GDAL reads a file that
// has a mask by its mask, and a JPEG file's no-data value does not survive its compression), and where
// a sample is NaN or infinite (a float input, or a float64 one beyond float: one would spread over the
// blend and the statistics).
enum class RegleValidite {
  kNodata,  // the file's no-data tag, else --nodata: a pixel with it in every band is out (the tag is
            // the file's own word: --nodata is the mosaic's value, and that of the inputs without a tag)
  kAlpha,   // an alpha band and no value rule
  kMasque,  // the internal mask or the .msk beside the file, and no value rule
  kZero,    // otherwise 0 in every band is out
};

// The GDAL_METADATA text (TIFF tag 42112: band descriptions, scales, offsets, units...) of file 'e'
// for a file written from it, where its channel c becomes channel carte[c] (-1: not written). The
// items of channels not written go, and so do the statistics, which describe the input's pixels, and
// the colour interpretations, which the written file's photometric and extra samples say; empty when
// no item is left or the text is not one GDAL writes.
std::string MetadonneesGdal(const MetadonneesImage* e, const std::vector<int>& carte);

// The exclusion mask beside an image: its name without extension followed by the suffix.
std::string NomMasqueExclusion(const std::string& image, const std::string& suffixe);

// Every file the job may read beside an image, whether it exists or not: its exclusion mask (first,
// when suffixe is not empty), GDAL's external mask (.msk) and side file (.aux.xml), and the names its
// orientation search looks for (orientation files, world files, .prj, in their case forms).
std::vector<std::string> FichiersLusAvec(const std::string& image, const std::string& suffixe);

struct AnnexePam;

class EntreeMosaique {
 public:
  // Opens the file and its masks, reads its georeferencing; an Erreur naming the file otherwise.
  // nodataDonne / nodata: the --nodata option, for a file without a no-data tag; suffixe: the exclusion
  // mask's suffix, empty for none; masqueFacultatif: a missing exclusion mask excludes nothing (a
  // reference from elsewhere seldom has one) rather than being refused (an input's, a typo).
  EntreeMosaique(const std::string& nom, bool nodataDonne, double nodata, const std::string& suffixe,
                 bool masqueFacultatif = false);

  const std::string& Nom() const { return m_nom; }
  int Colonnes() const { return m_colonnes; }
  int Lignes() const { return m_lignes; }
  int Canaux() const { return m_canaux; }
  // Bands that are equalized and composed: every channel but the alpha one.
  int Bandes() const { return static_cast<int>(m_bandes.size()); }
  // Channel of data band b.
  int Canal(int b) const { return m_bandes[b]; }
  bool Alpha() const { return m_alpha >= 0; }
  // An internal mask or a .msk file.
  bool Masque() const { return m_masque != nullptr; }
  eEnumType Type() const { return m_type; }
  const MetadonneesImage* Metadonnees() const { return m_meta; }
  // The map position of the upper-left corner of pixel (0, 0), and the steps (Y decreases down).
  double X0() const { return m_x0; }
  double Y0() const { return m_y0; }
  double PasX() const { return m_pasX; }
  double PasY() const { return m_pasY; }
  const SystemeReference* Crs() const { return m_crs.get(); }
  std::shared_ptr<const SystemeReference> PartageCrs() const { return m_crs; }
  RegleValidite Regle() const { return m_regle; }
  // The file's no-data value: its tag, else the one its GDAL side file (.aux.xml) states.
  bool NodataFichier() const { return (m_meta && m_meta->nodataPresent) || m_nodataAnnexe; }
  double NodataFichierValeur() const {
    return m_meta && m_meta->nodataPresent ? m_meta->nodata : m_nodataAnnexe ? m_nodataPam : 0.0;
  }
  const std::string& Exclusion() const { return m_nomExclusion; }

  // The window [x0, x0 + nx) x [y0, y0 + ny): every channel as a plane of float (channel c at
  // valeurs + c nx ny, rows nx apart), and its validity (1 valid, 0 not), rows nx apart. Decodes only
  // the blocks the window touches. Safe from several threads.
  void Lire(int x0, int y0, int nx, int ny, float* valeurs, unsigned char* valide) const;
  // Bytes a Lire in progress needs beyond its destination: the blocks it decodes, a byte a pixel and a
  // window of the exclusion mask.
  size_t OctetsLecture(int nx, int ny) const;
  // Gives back what reading keeps between two windows (a decoded block per reader): for an input the
  // job is done with, so that the memory kept does not grow with the number of inputs.
  void Liberer() const;

 private:
  // Takes what the GDAL side file says: the grid when the image is not placed otherwise (else it must
  // agree), the system when there is none, the no-data value.
  void AppliquerAnnexe(const AnnexePam& pam, bool place);
  // Opens the exclusion mask 'masque' and checks it against the image; a missing one is refused unless
  // 'facultatif' (then nothing is excluded).
  void OuvrirExclusion(const std::string& masque, bool facultatif);
  // Whether a grid is this image's (to the rounding of a world file).
  bool MemeGrille(double x0, double y0, double pasX, double pasY) const;

  std::string m_nom, m_nomExclusion;
  std::unique_ptr<LecteurFenetres> m_fichier;
  std::unique_ptr<MasqueFenetres> m_masque;
  std::unique_ptr<LecteurFenetres> m_exclusion;
  const MetadonneesImage* m_meta = nullptr;
  int m_colonnes = 0, m_lignes = 0, m_canaux = 0, m_alpha = -1;
  std::vector<int> m_bandes;
  eEnumType m_type = eIndetermine;
  double m_x0 = 0, m_y0 = 0, m_pasX = 1, m_pasY = 1;
  std::shared_ptr<const SystemeReference> m_crs;
  RegleValidite m_regle = RegleValidite::kZero;
  double m_nodata = 0;
  bool m_nodataAnnexe = false;
  double m_nodataPam = 0;
};
