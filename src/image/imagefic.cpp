#include "zepra/imagefic.h"

#include <sys/stat.h>

#include <atomic>

#include "handlers.h"
#include "zepra/erreur.h"

namespace {
std::atomic<uint64_t> g_limiteOctetsDecodes{kLimiteOctetsDecodesDefaut};
}

uint64_t LimiteOctetsDecodes() { return g_limiteOctetsDecodes.load(std::memory_order_relaxed); }
void SetLimiteOctetsDecodes(uint64_t octets) {
  g_limiteOctetsDecodes.store(octets, std::memory_order_relaxed);
}

const OptionsImageOut& OptionsImageOut::defaut() {
  static const OptionsImageOut options;
  return options;
}

namespace {

std::string CleExtension(const std::string& nom) { return TChaine(nom).Extension().ToLowCase().str(); }

// A directory test that does not throw: a missing file is simply not a directory here.
bool EstUnRepertoire(const std::string& nom) {
  struct stat etat;
  return stat(nom.c_str(), &etat) == 0 && S_ISDIR(etat.st_mode);
}

template <class Map>
void ToutesExtensions(const Map& m, std::vector<std::string>& exts) {
  for (const auto& e : m) exts.push_back(e.first);
}

template <class Map>
void FiltreExtensions(const Map& m, std::string& filtre) {
  std::string liste;
  std::string precedente;
  for (const auto& e : m) {
    if (e.first == "/" || e.first == precedente) continue;
    precedente = e.first;
    if (!liste.empty()) liste += ";";
    liste += "*." + e.first;
  }
  filtre = "images (" + liste + ")|" + liste + "|all files (*.*)|*.*";
}

}  // namespace

// Built once, on first use, under the language's thread-safe initialisation of statics.
ListeHandlerRead& ListeHandlerRead::GetListeHandlerRead() {
  static ListeHandlerRead liste = [] {
    ListeHandlerRead l;
    l.InitAll();
    return l;
  }();
  return liste;
}

void ListeHandlerRead::InitAll() {
  if (m_initialise) return;
  m_initialise = true;
  AddReader("/", CreateReader_TKORTHO);
  AddReader("img", CreateReader_IMG);
  AddReader("imd", CreateReader_IMG);
  AddReader("mos", CreateReader_MOS);
  AddReader("pgm", CreateReader_PNM);
  AddReader("pnm", CreateReader_PNM);
  AddReader("ppm", CreateReader_PNM);
  AddReader("rle", CreateReader_RLE);
  AddReader("tif", CreateReader_TIFF);
  AddReader("tiff", CreateReader_TIFF);
  AddReader("thm", CreateReader_THM);
}

void ListeHandlerRead::AddReader(const std::string& ext, FabriqueLecteur fabrique) {
  m_handlers.emplace(ext, fabrique);
}

void ListeHandlerRead::RemoveAll() {
  m_handlers.clear();
  m_initialise = false;
}

void ListeHandlerRead::GetAllExt(std::vector<std::string>& exts) const { ToutesExtensions(m_handlers, exts); }

void ListeHandlerRead::GetWildcardAllExt(std::string& filtre) const { FiltreExtensions(m_handlers, filtre); }

std::unique_ptr<SpecifImageIn> ListeHandlerRead::CreateReader(const std::string& nom) const {
  const std::string cle = EstUnRepertoire(nom) ? std::string("/") : CleExtension(nom);
  const auto bas = m_handlers.lower_bound(cle);
  for (auto it = bas; it != m_handlers.end(); ++it)
    if (auto lecteur = it->second(nom)) return lecteur;
  for (auto it = m_handlers.begin(); it != bas; ++it)
    if (auto lecteur = it->second(nom)) return lecteur;
  return nullptr;
}

ListeHandlerWrite& ListeHandlerWrite::GetListeHandlerWrite() {
  static ListeHandlerWrite liste = [] {
    ListeHandlerWrite l;
    l.InitAll();
    return l;
  }();
  return liste;
}

void ExtensionsImages(std::vector<std::string>& lecture, std::vector<std::string>& ecriture) {
  ListeHandlerRead::GetListeHandlerRead().GetAllExt(lecture);
  ListeHandlerWrite::GetListeHandlerWrite().GetAllExt(ecriture);
}

void ListeHandlerWrite::InitAll() {
  if (m_initialise) return;
  m_initialise = true;
  AddWriter("tif", CreateWriter_TIFF);
  AddWriter("tiff", CreateWriter_TIFF);
  AddWriter("img", CreateWriter_IMG);
  AddWriter("imd", CreateWriter_IMG);
  AddWriter("pgm", CreateWriter_PNM);
  AddWriter("pnm", CreateWriter_PNM);
  AddWriter("ppm", CreateWriter_PNM);
  AddWriter("rle", CreateWriter_RLE);
}

void ListeHandlerWrite::AddWriter(const std::string& ext, FabriqueEcrivain fabrique) {
  m_handlers.emplace(ext, fabrique);
}

void ListeHandlerWrite::RemoveAll() {
  m_handlers.clear();
  m_initialise = false;
}

void ListeHandlerWrite::GetAllExt(std::vector<std::string>& exts) const {
  ToutesExtensions(m_handlers, exts);
}

void ListeHandlerWrite::GetWildcardAllExt(std::string& filtre) const { FiltreExtensions(m_handlers, filtre); }

bool ListeHandlerWrite::CanCreateWriter(const std::string& nom) const {
  return m_handlers.find(CleExtension(nom)) != m_handlers.end();
}

std::unique_ptr<EcrivainImage> ListeHandlerWrite::CreateWriter(const std::string& nom,
                                                               const ImageInfos& infos) const {
  const auto it = m_handlers.find(CleExtension(nom));
  if (it == m_handlers.end()) return nullptr;
  return it->second(nom, infos);
}

ImageFicIn::ImageFicIn(const char* nom) : m_nom(nom) {
  m_lecteur = ListeHandlerRead::GetListeHandlerRead().CreateReader(m_nom.str());
  if (!m_lecteur)
    ZEPRA_ERREUR("[ImageFicIn] (Constructeur) Aucun gestionnaire (handler) n'a reussi a lire le fichier : "
                 << m_nom << "\n");
}

ImageFicIn::ImageFicIn(const ImageFicIn& autre)
    : ImplGetValeurs<ImageFicIn>(), m_lecteur(autre.m_lecteur->dup()), m_nom(autre.m_nom) {}

ImageFicIn& ImageFicIn::operator=(const ImageFicIn& autre) {
  if (this != &autre) {
    m_lecteur.reset(autre.m_lecteur->dup());
    m_nom = autre.m_nom;
  }
  return *this;
}

ImageFicOut::ImageFicOut(const char* nom, const OptionsImageOut& options) : m_nom(nom), m_options(options) {
  if (!ListeHandlerWrite::GetListeHandlerWrite().CanCreateWriter(m_nom.str()))
    ZEPRA_ERREUR("[ImageFicOut] (Contructeur) Extension non reconnue pour le fichier " << m_nom);
}

ImageFicOut::ImageFicOut(const char* nom, const ParametresGeoTIFF& geotiff)
    : ImageFicOut(nom, OptionsImageOut::defaut()) {
  const std::string ext = CleExtension(m_nom.str());
  if (ext != "tif" && ext != "tiff")
    ZEPRA_ERREUR("[ImageFicOut] (Constructeur) Options GeoTIFF pour le fichier "
                 << m_nom << ", qui n'est pas un TIFF.");
  m_geotiff = std::make_shared<const ParametresGeoTIFF>(geotiff);
}

void ImageFicOut::SetTaille(int colonnes, int lignes) {
  if (m_tailleOk && m_canauxOk && m_typeOk) {
    if (colonnes != m_colonnes || lignes != m_lignes)
      ZEPRA_ERREUR("[ImageFicOut] (SetTaille) Taille deja definie, pas identique.");
    return;
  }
  m_colonnes = colonnes;
  m_lignes = lignes;
  m_tailleOk = true;
  AlloueBaseSiPossible();
}

void ImageFicOut::SetNbCanaux(TagNbCanaux n) {
  if (m_tailleOk && m_canauxOk && m_typeOk) {
    if (n.nb != m_canaux)
      ZEPRA_ERREUR("[ImageFicOut] (SetNbCanaux) Valeur non identique pour l'image " << m_nom);
    return;
  }
  m_canaux = n.nb;
  m_canauxOk = true;
  AlloueBaseSiPossible();
}

void ImageFicOut::SetTypePixel(eEnumType type) {
  if (m_tailleOk && m_canauxOk && m_typeOk) {
    if (type != m_type)
      ZEPRA_ERREUR("[ImageFicOut] (SetTypePixel) Valeur non identique pour l'image " << m_nom);
    return;
  }
  m_type = type;
  m_typeOk = true;
  AlloueBaseSiPossible();
}

void ImageFicOut::AlloueBaseSiPossible() {
  if (!(m_tailleOk && m_canauxOk && m_typeOk)) return;
  ImageInfos infos;
  infos.taille = TPoint2D<int>(m_colonnes, m_lignes);
  infos.canaux = m_canaux;
  infos.type = m_type;
  infos.options = m_options;
  infos.geotiff = m_geotiff;
  m_ecrivain = ListeHandlerWrite::GetListeHandlerWrite().CreateWriter(m_nom.str(), infos);
  if (!m_ecrivain) ZEPRA_ERREUR("ImageFicOut::AlloueBaseSiPossible Cas non prevu.");
}

void ImageFicOut::VerifieEcrivain() const {
  if (!m_ecrivain)
    ZEPRA_ERREUR(
        "[ImageFicOut] (SetValeur) Tous les parametres (taille, type pixel, nb canaux) ne sont pas "
        "definis pour l'image : "
        << m_nom);
}

void ImageFicOut::RawWrite(const char* tampon, unsigned int octets) {
  VerifieEcrivain();
  m_ecrivain->RawWrite(tampon, octets);
}

void ImageFicOut::Terminer() {
  VerifieEcrivain();
  m_ecrivain->Terminer();
}
