// JPEG (TIFF compression 7), through libjpeg: one JPEG stream per strip or tile, usually abbreviated
// (no tables), the tables once in the JPEGTables tag.
//
// libjpeg reports errors through a callback that must not return. Ours longjmps back to Proteger,
// which then returns false, and the C++ side raises the Erreur: a C++ exception must not cross
// libjpeg's C frames, and a longjmp must not skip a C++ destructor, so the code between setjmp and
// libjpeg (the lambdas given to Proteger) holds no object with one. Warnings (corrupt entropy data,
// a stream cut short that libjpeg would pad with an end marker) are errors too.
//
// Colour: YCbCr blocks (photometric 6, 3 samples) are converted to RGB and their chroma upsampled by
// libjpeg, as libtiff's RGB colour mode does; the JPEG's own sampling factors decide the upsampling,
// not the YCbCrSubsampling tag. Any other block is passed through unconverted (JCS_UNKNOWN), so that
// an RGB block stays RGB whatever markers it carries (no JFIF or Adobe marker guessing).
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

// jpeglib.h needs size_t and FILE first.
#include <jerror.h>
#include <jpeglib.h>

#include "image/tiff/codecs_externes.h"
#include "zepra/erreur.h"

namespace tiff {
namespace {

// A hostile progressive stream can hold thousands of scans, each a pass over the whole block.
constexpr int kPassesMax = 1000;

struct ErreurJpeg {
  jpeg_error_mgr pub;
  std::jmp_buf saut;
  char message[JMSG_LENGTH_MAX];
};

extern "C" void SortieJpeg(j_common_ptr info) {
  ErreurJpeg* e = reinterpret_cast<ErreurJpeg*>(info->err);
  (*info->err->format_message)(info, e->message);
  std::longjmp(e->saut, 1);
}

// Level -1 is a warning: the data is corrupt.
extern "C" void MessageJpeg(j_common_ptr info, int niveau) {
  if (niveau < 0) SortieJpeg(info);
}

extern "C" void ProgresJpeg(j_common_ptr info) {
  if (!info->is_decompressor) return;
  const int passes = reinterpret_cast<j_decompress_ptr>(info)->input_scan_number;
  if (passes <= kPassesMax) return;
  ErreurJpeg* e = reinterpret_cast<ErreurJpeg*>(info->err);
  std::snprintf(e->message, sizeof e->message, "plus de %d passes", kPassesMax);
  std::longjmp(e->saut, 1);
}

// Runs f, which calls libjpeg and holds no object with a destructor; false when libjpeg raised an
// error or a warning, its text in e.message.
template <class F>
bool Proteger(ErreurJpeg& e, F f) {
  if (setjmp(e.saut)) return false;
  f();
  return true;
}

void InstallerErreurs(ErreurJpeg& e, jpeg_common_struct& info) {
  info.err = jpeg_std_error(&e.pub);
  e.pub.error_exit = SortieJpeg;
  e.pub.emit_message = MessageJpeg;
  e.message[0] = '\0';
}

// The shapes libjpeg and TIFF agree on; 'classe' and 'methode' name the caller in the message. We
// read 1 to 4 samples (4: RGB and near infrared, or RGBA, passed through) and write 1 or 3.
void VerifierBloc(const ContexteBloc& b, const char* classe, const char* methode, bool lecture) {
  const bool echantillons =
      lecture ? b.echantillons >= 1 && b.echantillons <= 4 : b.echantillons == 1 || b.echantillons == 3;
  if (b.bits != 8 || !echantillons || b.largeur < 1 || b.hauteur < 1 || b.largeur > JPEG_MAX_DIMENSION ||
      b.hauteur > JPEG_MAX_DIMENSION)
    ZEPRA_ERREUR("[" << classe << "] (" << methode << ") JPEG : blocs de " << b.largeur << " x " << b.hauteur
                     << " pixels de " << b.echantillons << " echantillon(s) de " << b.bits
                     << " bits non geres (8 bits, " << (lecture ? "1 a 4" : "1 ou 3")
                     << " echantillons) dans le fichier " << b.nom << ".");
}

class DecodeurJpeg : public Decodeur {
 public:
  DecodeurJpeg() {
    InstallerErreurs(m_erreur, *reinterpret_cast<jpeg_common_struct*>(&m_info));
    Creer();
  }
  ~DecodeurJpeg() override { jpeg_destroy_decompress(&m_info); }
  DecodeurJpeg(const DecodeurJpeg&) = delete;
  DecodeurJpeg& operator=(const DecodeurJpeg&) = delete;

 protected:
  void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) override {
    m_bloc = bloc;
    m_resteDebut = m_resteFin = 0;
    // A new object for every block: tables that an earlier stream defined must not fill the gaps of
    // this one, so that a block decodes the same whatever was read before it.
    jpeg_destroy_decompress(&m_info);
    Creer();
    VerifierBloc(bloc, "DecodeurJpeg", "Commencer", true);
    const std::vector<unsigned char>* tables = bloc.tablesJpeg;
    if (!Proteger(m_erreur, [&] {
          if (tables && !tables->empty()) {
            jpeg_mem_src(&m_info, tables->data(), tables->size());
            if (jpeg_read_header(&m_info, FALSE) != JPEG_HEADER_TABLES_ONLY) jpeg_abort_decompress(&m_info);
          }
          jpeg_mem_src(&m_info, donnees, taille);
          jpeg_read_header(&m_info, TRUE);
        }))
      Echec("Commencer");
    // A last strip coded with padding rows has them at its end; only the block's rows are read.
    const int hauteur = static_cast<int>(m_info.image_height);
    if (static_cast<int>(m_info.image_width) != bloc.largeur ||
        (hauteur != bloc.hauteur && hauteur != std::max(bloc.hauteur, bloc.hauteurCodee)) ||
        m_info.num_components != bloc.echantillons)
      ZEPRA_ERREUR("[DecodeurJpeg] (Commencer) Image JPEG de "
                   << m_info.image_width << " x " << m_info.image_height << " pixels de "
                   << m_info.num_components << " composante(s) dans un bloc de " << bloc.largeur << " x "
                   << bloc.hauteur << " pixels de " << bloc.echantillons << " echantillon(s) du fichier "
                   << bloc.nom << ".");
    if (bloc.photometrique == 6 && bloc.echantillons == 3) {
      m_info.jpeg_color_space = JCS_YCbCr;
      m_info.out_color_space = JCS_RGB;
    } else {
      m_info.jpeg_color_space = m_info.out_color_space = JCS_UNKNOWN;
    }
    if (!Proteger(m_erreur, [this] { jpeg_start_decompress(&m_info); })) Echec("Commencer");
    m_ligne.resize(static_cast<size_t>(bloc.OctetsLigne()));
  }

  // Lire stops before the padding rows of a last strip: libjpeg decodes them only if asked.
  size_t Decoder(unsigned char* sortie, size_t octets) override {
    size_t n = std::min(octets, m_resteFin - m_resteDebut);
    if (n > 0) std::memcpy(sortie, m_ligne.data() + m_resteDebut, n);
    m_resteDebut += n;
    const size_t ligne = m_ligne.size();
    while (n < octets && m_info.output_scanline < m_info.output_height) {
      // Whole rows go straight into the caller's buffer; a row cut by the request goes through
      // m_ligne, its end kept for the next call.
      const bool coupee = octets - n < ligne;
      JSAMPROW lignes[kLignesParAppel];
      const size_t voulues = coupee ? 1 : std::min<size_t>((octets - n) / ligne, kLignesParAppel);
      for (size_t i = 0; i < voulues; ++i) lignes[i] = coupee ? m_ligne.data() : sortie + n + i * ligne;
      JDIMENSION lues = 0;
      if (!Proteger(m_erreur,
                    [&] { lues = jpeg_read_scanlines(&m_info, lignes, static_cast<JDIMENSION>(voulues)); }))
        Echec("Lire");
      if (lues == 0) {  // cannot happen with a source in memory, which never suspends
        std::snprintf(m_erreur.message, sizeof m_erreur.message, "aucune ligne decodee");
        Echec("Lire");
      }
      if (coupee) {
        m_resteDebut = octets - n;
        m_resteFin = ligne;
        std::memcpy(sortie + n, m_ligne.data(), m_resteDebut);
        n = octets;
      } else {
        n += lues * ligne;
      }
    }
    return n;
  }

 private:
  static constexpr size_t kLignesParAppel = 16;

  void Creer() {
    if (!Proteger(m_erreur, [this] { jpeg_create_decompress(&m_info); }))
      ZEPRA_ERREUR("[DecodeurJpeg] (Commencer) " << m_erreur.message);
    m_progres.progress_monitor = ProgresJpeg;
    m_info.progress = &m_progres;
  }

  [[noreturn]] void Echec(const char* methode) {
    const std::string message = m_erreur.message;
    jpeg_abort_decompress(&m_info);
    ZEPRA_ERREUR("[DecodeurJpeg] (" << methode << ") Flux JPEG invalide dans un bloc du fichier "
                                    << m_bloc.nom << " : " << message << ".");
  }

  ErreurJpeg m_erreur;
  jpeg_decompress_struct m_info;
  jpeg_progress_mgr m_progres;
  ContexteBloc m_bloc;
  std::vector<unsigned char> m_ligne;  // one row, for requests that end inside a row
  size_t m_resteDebut = 0, m_resteFin = 0;
};

// A destination that grows a malloc'd buffer kept from block to block: growing happens inside
// libjpeg's callbacks, where a C++ allocation must not throw.
struct DestinationJpeg {
  jpeg_destination_mgr pub;
  unsigned char* tampon = nullptr;
  size_t capacite = 0, taille = 0;
};

extern "C" void DebutDestination(j_compress_ptr info) {
  DestinationJpeg* d = reinterpret_cast<DestinationJpeg*>(info->dest);
  if (!d->tampon) {
    d->tampon = static_cast<unsigned char*>(std::malloc(1 << 16));
    if (!d->tampon) ERREXIT1(info, JERR_OUT_OF_MEMORY, 0);
    d->capacite = 1 << 16;
  }
  d->pub.next_output_byte = d->tampon;
  d->pub.free_in_buffer = d->capacite;
}

extern "C" boolean AgrandirDestination(j_compress_ptr info) {
  DestinationJpeg* d = reinterpret_cast<DestinationJpeg*>(info->dest);
  unsigned char* p = static_cast<unsigned char*>(std::realloc(d->tampon, 2 * d->capacite));
  if (!p) ERREXIT1(info, JERR_OUT_OF_MEMORY, 1);
  d->tampon = p;
  d->pub.next_output_byte = p + d->capacite;
  d->pub.free_in_buffer = d->capacite;
  d->capacite *= 2;
  return TRUE;
}

extern "C" void FinDestination(j_compress_ptr info) {
  DestinationJpeg* d = reinterpret_cast<DestinationJpeg*>(info->dest);
  d->taille = d->capacite - d->pub.free_in_buffer;
}

// libjpeg's compressor with our error handling and destination, set up for one block.
class CompresseurJpeg {
 public:
  explicit CompresseurJpeg(int qualite) : m_qualite(qualite == 0 ? 75 : qualite) {
    InstallerErreurs(m_erreur, *reinterpret_cast<jpeg_common_struct*>(&m_info));
    if (!Proteger(m_erreur, [this] { jpeg_create_compress(&m_info); }))
      ZEPRA_ERREUR("[EncodeurJpeg] (Constructeur) " << m_erreur.message);
    m_destination.pub.init_destination = DebutDestination;
    m_destination.pub.empty_output_buffer = AgrandirDestination;
    m_destination.pub.term_destination = FinDestination;
    m_info.dest = &m_destination.pub;
  }
  ~CompresseurJpeg() {
    jpeg_destroy_compress(&m_info);
    std::free(m_destination.tampon);
  }
  CompresseurJpeg(const CompresseurJpeg&) = delete;
  CompresseurJpeg& operator=(const CompresseurJpeg&) = delete;

  // The tables-only stream of blocks shaped like 'b'.
  void Tables(const ContexteBloc& b, std::vector<unsigned char>& sortie) {
    VerifierBloc(b, "EncodeurJpeg", "TablesJpeg", false);
    Terminer(Proteger(m_erreur,
                      [&] {
                        Parametrer(b);
                        jpeg_write_tables(&m_info);
                      }),
             b, sortie);
  }

  // One block as an abbreviated stream: the tables are those of Tables, left out.
  void Bloc(const unsigned char* bloc, const ContexteBloc& b, std::vector<unsigned char>& sortie) {
    VerifierBloc(b, "EncodeurJpeg", "Encoder", false);
    const size_t ligne = static_cast<size_t>(b.OctetsLigne());
    Terminer(Proteger(m_erreur,
                      [&] {
                        Parametrer(b);
                        jpeg_suppress_tables(&m_info, TRUE);
                        jpeg_start_compress(&m_info, FALSE);
                        while (m_info.next_scanline < m_info.image_height) {
                          JSAMPROW l = const_cast<unsigned char*>(bloc) + m_info.next_scanline * ligne;
                          jpeg_write_scanlines(&m_info, &l, 1);
                        }
                        jpeg_finish_compress(&m_info);
                      }),
             b, sortie);
  }

 private:
  void Parametrer(const ContexteBloc& b) {
    m_info.image_width = static_cast<JDIMENSION>(b.largeur);
    m_info.image_height = static_cast<JDIMENSION>(b.hauteur);
    m_info.input_components = b.echantillons;
    m_info.in_color_space = b.echantillons == 3 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&m_info);
    if (b.echantillons == 3 && b.photometrique == 6) {
      jpeg_set_colorspace(&m_info, JCS_YCbCr);
      m_info.comp_info[0].h_samp_factor = b.sousEchH;
      m_info.comp_info[0].v_samp_factor = b.sousEchV;
    } else if (b.echantillons == 3) {
      jpeg_set_colorspace(&m_info, JCS_RGB);
    }
    // TIFF says what the samples are: no JFIF or Adobe marker in the streams.
    m_info.write_JFIF_header = FALSE;
    m_info.write_Adobe_marker = FALSE;
    jpeg_set_quality(&m_info, m_qualite, TRUE);
  }

  void Terminer(bool reussi, const ContexteBloc& b, std::vector<unsigned char>& sortie) {
    if (!reussi) {
      jpeg_abort_compress(&m_info);
      ZEPRA_ERREUR("[EncodeurJpeg] (Encoder) Echec de la compression JPEG d'un bloc de "
                   << b.largeur << " x " << b.hauteur << " pixels du fichier " << b.nom << " : "
                   << m_erreur.message << ".");
    }
    sortie.assign(m_destination.tampon, m_destination.tampon + m_destination.taille);
  }

  ErreurJpeg m_erreur;
  jpeg_compress_struct m_info;
  DestinationJpeg m_destination;
  int m_qualite;
};

class EncodeurJpeg : public Encodeur {
 public:
  explicit EncodeurJpeg(int qualite) : m_compresseur(qualite) {}
  void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
               std::vector<unsigned char>& sortie) override {
    m_compresseur.Bloc(bloc, contexte, sortie);
  }

 private:
  CompresseurJpeg m_compresseur;
};

void VerifierQualite(int qualite, const char* methode) {
  if (qualite < 0 || qualite > 100)
    ZEPRA_ERREUR("[EncodeurJpeg] (" << methode << ") Qualite JPEG " << qualite
                                    << " hors de l'intervalle 1 a 100.");
}

}  // namespace

std::unique_ptr<Decodeur> CreerDecodeurJpeg() { return std::make_unique<DecodeurJpeg>(); }

std::unique_ptr<Encodeur> CreerEncodeurJpeg(int /*niveau*/, int qualite) {
  VerifierQualite(qualite, "Creer");
  return std::make_unique<EncodeurJpeg>(qualite);
}

std::vector<unsigned char> TablesJpeg(const ContexteBloc& contexte, int qualite) {
  VerifierQualite(qualite, "TablesJpeg");
  std::vector<unsigned char> tables;
  CompresseurJpeg(qualite).Tables(contexte, tables);
  return tables;
}

}  // namespace tiff
