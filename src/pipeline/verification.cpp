#include "zepra/pipeline/verification.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <utility>

#include "pipeline/mosaique_entrees.h"
#include "zepra/erreur.h"

namespace {

using Identite = std::pair<dev_t, ino_t>;

// The folder of a path ("." when it names none).
std::string Dossier(const std::string& chemin) {
  const std::string d = std::filesystem::path(chemin).parent_path().string();
  return d.empty() ? "." : d;
}

bool Identifier(const std::string& chemin, Identite& id) {
  struct stat s;
  if (stat(chemin.c_str(), &s) != 0) return false;
  id = Identite(s.st_dev, s.st_ino);
  return true;
}

// Where a file that may not exist yet would be: its folder resolved (links, "..") and its name.
std::filesystem::path Place(const std::string& chemin) {
  const std::filesystem::path p(chemin);
  std::error_code ec;
  const std::filesystem::path d =
      std::filesystem::weakly_canonical(std::filesystem::absolute(Dossier(chemin), ec), ec);
  return ec ? p : d / p.filename();
}

// The name without its extension, as the companions of a file are named.
std::string Souche(const std::string& chemin) {
  return std::filesystem::path(chemin).replace_extension().string();
}

// What the job reads beside an input, besides the input itself: its exclusion mask, GDAL's external
// mask, and the files its orientation search may read. Each with how a message names it.
std::vector<std::pair<std::string, std::string>> LusAvec(const std::string& entree,
                                                         const std::string& suffixe) {
  std::vector<std::pair<std::string, std::string>> lus;
  for (std::string& f : FichiersLusAvec(entree, suffixe)) {
    const bool exclusion = lus.empty() && !suffixe.empty();
    lus.push_back({std::move(f), exclusion ? "le masque d'exclusion de l'entree " + entree
                                           : "un fichier lu avec l'entree " + entree});
  }
  return lus;
}

}  // namespace

bool ExtensionGeoTIFF(const std::string& chemin) {
  std::string extension = std::filesystem::path(chemin).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return extension == ".tif" || extension == ".tiff";
}

bool DossierInscriptible(const std::string& dossier) {
  std::string modele = dossier + "/.egalise_essai_XXXXXX";
  const int f = mkstemp(modele.data());
  if (f < 0) return false;
  close(f);
  unlink(modele.c_str());
  return true;
}

void VerifierChemins(const std::vector<std::string>& entrees, const std::string& sortie,
                     const std::string& corriges,
                     const std::vector<std::pair<std::string, std::string>>& annexes,
                     const std::string& suffixeMasque, const std::string& reference) {
  const char* tag = "[Verification] (VerifierChemins)";
  // The files read: the inputs, and the reference, which is read but never written.
  std::vector<std::string> lues = entrees;
  if (!reference.empty()) lues.push_back(reference);
  std::map<Identite, std::string> vues;
  // The files read with the inputs that exist, and how to name them.
  std::map<Identite, std::string> lus;
  for (const std::string& e : lues)
    for (const auto& [fichier, description] : LusAvec(e, suffixeMasque)) {
      Identite id;
      if (Identifier(fichier, id)) lus.emplace(id, description);
    }
  for (const std::string& e : lues) {
    const bool ref = !reference.empty() && &e == &lues.back();
    struct stat s;
    if (stat(e.c_str(), &s) != 0)
      ZEPRA_ERREUR(tag << (ref ? " La reference (--reference) " : " L'image ") << e
                       << " n'existe pas ou n'est pas lisible.");
    if (!S_ISREG(s.st_mode))
      ZEPRA_ERREUR(tag << " L'entree " << e << " n'est pas un fichier (un dossier ?).");
    const auto [it, nouvelle] = vues.emplace(Identite(s.st_dev, s.st_ino), e);
    if (!nouvelle && ref)
      ZEPRA_ERREUR(tag << " La reference (--reference) " << e << " est aussi l'image d'entree " << it->second
                       << ".");
    if (!nouvelle)
      ZEPRA_ERREUR(tag << " L'image " << e << " est donnee deux fois (deja comme " << it->second << ").");
  }
  // An exclusion mask that is an input would exclude that input's every pixel that is not zero (the
  // image itself, for the suffix of its extension).
  if (!suffixeMasque.empty())
    for (const std::string& e : entrees) {
      const std::string masque = NomMasqueExclusion(e, suffixeMasque);
      Identite id;
      if (!Identifier(masque, id)) continue;
      const auto v = vues.find(id);
      if (v == vues.end()) continue;
      ZEPRA_ERREUR(tag << " Le masque d'exclusion " << masque << " de l'entree " << e << " est "
                       << (v->second == e ? "l'entree elle-meme" : "aussi l'image d'entree " + v->second)
                       << " : voir --masque-suffixe.");
    }
  // What a file written at 'chemin' would replace: an input (named after 'entree'), a file read with
  // one, or nothing ("").
  const auto remplace = [&](const std::string& chemin, const char* entree) -> std::string {
    Identite id;
    if (!Identifier(chemin, id)) return "";
    if (const auto e = vues.find(id); e != vues.end()) return entree + e->second;
    const auto l = lus.find(id);
    return l != lus.end() ? l->second : "";
  };
  if (const std::string r = remplace(sortie, "l'image d'entree "); !r.empty())
    ZEPRA_ERREUR(tag << " La sortie " << sortie << " est " << r << ".");
  if (std::filesystem::exists(sortie) && !std::filesystem::is_regular_file(sortie))
    ZEPRA_ERREUR(tag << " La sortie " << sortie << " existe et n'est pas un fichier.");
  if (!ExtensionGeoTIFF(sortie))
    ZEPRA_ERREUR(tag << " La sortie " << sortie << " doit avoir l'extension .tif ou .tiff (GeoTIFF).");
  if (!DossierInscriptible(Dossier(sortie)))
    ZEPRA_ERREUR(tag << " Impossible d'ecrire dans le dossier " << Dossier(sortie) << " de la sortie "
                     << sortie << ".");
  // An input's own .ori or world file is read before its GeoTIFF tags.
  const std::filesystem::path soucheSortie = Place(Souche(sortie));
  for (const std::string& e : lues)
    if (Place(Souche(e)) == soucheSortie)
      ZEPRA_ERREUR(tag << " La sortie " << sortie << " ecrirait " << Souche(sortie) << ".ori et "
                       << Souche(sortie) << ".tfw, ou se lit le georeferencement de l'entree " << e << ".");
  std::vector<std::pair<std::string, std::string>> ecrits;
  const std::filesystem::path placeSortie = Place(sortie);
  for (const auto& [option, fichier] : annexes) {
    if (fichier.empty()) continue;
    if (const std::string r = remplace(fichier, "l'image d'entree "); !r.empty())
      ZEPRA_ERREUR(tag << " Le fichier " << fichier << " de " << option << " est " << r << ".");
    // The report replaces its file whole by a rename, which would take the place of a device or a
    // pipe; the log is appended to, there they are fine.
    std::error_code ec;
    if (option != "--log" && std::filesystem::exists(fichier, ec) &&
        !std::filesystem::is_regular_file(fichier, ec))
      ZEPRA_ERREUR(tag << " Le fichier " << fichier << " de " << option
                       << " existe et n'est pas un fichier.");
    const std::filesystem::path place = Place(fichier);
    if (place == placeSortie)
      ZEPRA_ERREUR(tag << " Le fichier " << fichier << " de " << option << " est aussi la sortie " << sortie
                       << ".");
    for (const auto& [autre, nom] : ecrits)
      if (place == Place(nom))
        ZEPRA_ERREUR(tag << " Le fichier " << fichier << " de " << option << " est aussi celui de " << autre
                         << ".");
    if (!DossierInscriptible(Dossier(fichier)))
      ZEPRA_ERREUR(tag << " Impossible d'ecrire dans le dossier " << Dossier(fichier) << " du fichier "
                       << fichier << " de " << option << ".");
    ecrits.push_back({option, fichier});
  }
  if (corriges.empty()) return;
  if (!std::filesystem::is_directory(corriges))
    ZEPRA_ERREUR(tag << " Le dossier des images corrigees " << corriges << " n'existe pas.");
  if (!DossierInscriptible(corriges))
    ZEPRA_ERREUR(tag << " Impossible d'ecrire dans le dossier des images corrigees " << corriges << ".");
  std::map<std::string, std::string> noms;
  for (const std::string& e : entrees) {
    const std::string nom = std::filesystem::path(e).filename().string();
    const std::string cible = corriges + "/" + nom;
    if (const std::string r = remplace(cible, "l'entree "); !r.empty())
      ZEPRA_ERREUR(tag << " L'image corrigee " << cible << " remplacerait " << r << ".");
    // Found only when its file is renamed into place, after the mosaic.
    std::error_code ec;
    if (std::filesystem::exists(cible, ec) && !std::filesystem::is_regular_file(cible, ec))
      ZEPRA_ERREUR(tag << " L'image corrigee " << cible << " existe et n'est pas un fichier.");
    // Written after the mosaic, it would take its place; the report and the log, likewise.
    const std::filesystem::path place = Place(cible);
    if (place == placeSortie)
      ZEPRA_ERREUR(tag << " L'image corrigee " << cible << " serait aussi la sortie " << sortie << ".");
    for (const auto& [option, fichier] : ecrits)
      if (place == Place(fichier))
        ZEPRA_ERREUR(tag << " L'image corrigee " << cible << " serait aussi le fichier " << fichier << " de "
                         << option << ".");
    const auto [it, nouveau] = noms.emplace(nom, e);
    if (!nouveau)
      ZEPRA_ERREUR(tag << " Les images " << it->second << " et " << e << " auraient la meme image corrigee "
                       << cible << ".");
  }
}
