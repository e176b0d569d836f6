// Conventional command lines read through one table of options (GNU style): "--nom valeur",
// "--nom=valeur", "-c valeur", "-cvaleur", flags without value, "--" ending the options, "@liste"
// reading input names one per line. A value is read strictly (the whole word), checked against the
// option's bounds, and only then applied. The same table prints --help. Errors are returned, never
// thrown: a usage error (exit status 2) or a failure (1), with the message to print.
#pragma once

#include <string>
#include <vector>

enum class GenreValeur {
  kAucune,    // a flag
  kTexte,     // any non-empty word
  kEntier,    // a base-10 integer within [min, max]
  kReel,      // a finite real within [min, max] (min excluded when minExclu); NaN when nanPermis
  kReels,     // nbMin to nbMax reals separated by commas, each checked as kReel
  kChoix,     // one of the names the row lists
  kFraction,  // k/n with 1 <= k <= n, n within [min, max]
};

// A value as read, the field of its kind filled.
struct Valeur {
  std::string texte;  // the word itself (every kind)
  long long entier = 0;
  std::vector<double> reels;  // kReel: one; kReels: nbMin to nbMax
  long long k = 0, n = 0;     // kFraction
};

// A row of a table: the option's names, its value, its help and what it sets.
template <class Options>
struct OptionCommande {
  const char* nom;  // the long name, without "--"
  char court;       // the short letter, 0 for none
  GenreValeur genre;
  const char* metavar;  // the value's name in the help
  const char* defaut;   // the default as the help says it, null for none
  const char* aide;
  void (*appliquer)(Options&, const Valeur&);
  double min = 0, max = 0;  // bounds of kEntier, kReel, kReels, and of n for kFraction
  bool minExclu = false;
  bool nanPermis = false;
  int nbMin = 1, nbMax = 1;                               // kReels
  std::vector<std::string> (*choix)() = nullptr;          // kChoix: the names accepted
  bool (*choixDisponible)(const std::string&) = nullptr;  // kChoix: whether a name's work is built
  // False while the work the option asks for is not built: the option is read and checked, then the
  // run refuses it.
  bool disponible = true;
  // A check of the value as a whole once its kind and bounds are good: "" or the reason it is not.
  std::string (*verifier)(const Valeur&) = nullptr;
};

// What the reading of a command line gives.
struct ResultatLecture {
  int statut = 0;       // 0 read; 2 usage error; 1 failure (a list file)
  std::string message;  // the error, without the program's name
  std::vector<std::string> entrees;
  // Every option given, in order, with its value as written ("" for a flag): what was run.
  std::vector<std::pair<std::string, std::string>> donnees;
};

// Reads one value for an option of the given row's kind and bounds; an empty result means it is
// good, else the reason it is not.
struct DescriptionValeur {
  GenreValeur genre;
  double min, max;
  bool minExclu, nanPermis;
  int nbMin, nbMax;
  std::vector<std::string> choix;
};
std::string LireValeur(const DescriptionValeur& d, const std::string& mot, Valeur& v);

// Reads a list file: one name a line, blanks around a name and empty lines ignored. Empty result when
// the file opened and named something, else the reason.
std::string LireListe(const std::string& fichier, std::vector<std::string>& noms);

// One line of help for a row, laid out in the two columns of GNU tools.
std::string LigneAide(const std::string& noms, const std::string& aide);

// Reads argv[premier..argc) against the table into o, left to right; an option given twice takes its
// last value. Options has the members 'aide' and 'version', set by the rows of --help and --version:
// reading stops at the first of them, as GNU tools do.
template <class Options>
ResultatLecture LireCommande(const std::vector<OptionCommande<Options>>& table, int argc, char** argv,
                             int premier, Options& o) {
  ResultatLecture r;
  const auto Refus = [&](const std::string& message) {
    r.statut = 2;
    r.message = message;
    return r;
  };
  const auto Appliquer = [&](const OptionCommande<Options>& op, const std::string& nom,
                             const std::string& mot) -> std::string {
    Valeur v;
    v.texte = mot;
    if (op.genre != GenreValeur::kAucune) {
      DescriptionValeur d{op.genre, op.min, op.max, op.minExclu, op.nanPermis, op.nbMin, op.nbMax, {}};
      if (op.choix) d.choix = op.choix();
      const std::string raison = LireValeur(d, mot, v);
      const std::string refus = raison.empty() && op.verifier ? op.verifier(v) : raison;
      if (!refus.empty()) return "valeur '" + mot + "' de " + nom + " : " + refus;
    }
    op.appliquer(o, v);
    r.donnees.emplace_back(std::string("--") + op.nom, mot);
    return "";
  };
  bool options = true;
  for (int i = premier; i < argc; ++i) {
    std::string mot = argv[i];
    if (!options || mot.empty() || (mot[0] != '-' && mot[0] != '@')) {
      r.entrees.push_back(mot);
      continue;
    }
    if (mot[0] == '@') {
      const std::string raison = LireListe(mot.substr(1), r.entrees);
      if (!raison.empty()) {
        r.statut = 1;
        r.message = raison;
        return r;
      }
      continue;
    }
    if (mot == "--") {
      options = false;
      continue;
    }
    const OptionCommande<Options>* op = nullptr;
    std::string nom, valeur;
    bool valeurJointe = false;
    // Short flags grouped as GNU tools take them: -qo m.tif is -q -o m.tif.
    size_t k = 1;
    while (mot.size() > k + 1 && mot[1] != '-') {
      const OptionCommande<Options>* drapeau = nullptr;
      for (const auto& ligne : table)
        if (ligne.court != 0 && mot[k] == ligne.court && ligne.genre == GenreValeur::kAucune)
          drapeau = &ligne;
      if (!drapeau) break;
      const std::string raison = Appliquer(*drapeau, std::string("-") + mot[k], "");
      if (!raison.empty()) return Refus(raison);
      if (o.aide || o.version) return r;
      ++k;
    }
    // A dash there would make the rest a long option.
    if (k > 1 && mot[k] == '-') return Refus("option inconnue : '-' dans " + mot);
    if (k > 1) mot = "-" + mot.substr(k);
    if (mot.size() > 2 && mot[1] == '-') {
      const size_t egal = mot.find('=');
      nom = mot.substr(0, egal);
      for (const auto& ligne : table)
        if (nom == std::string("--") + ligne.nom) op = &ligne;
      if (egal != std::string::npos) {
        valeur = mot.substr(egal + 1);
        valeurJointe = true;
      }
    } else if (mot.size() >= 2) {
      nom = mot.substr(0, 2);
      for (const auto& ligne : table)
        if (ligne.court != 0 && mot[1] == ligne.court) op = &ligne;
      if (mot.size() > 2) {
        valeur = mot.substr(2);
        valeurJointe = true;
      }
    }
    if (!op)
      return Refus(nom.empty() ? "'" + mot + "' n'est ni une option ni une image"
                               : "option inconnue : " + nom);
    if (op->genre == GenreValeur::kAucune && valeurJointe)
      return Refus("l'option " + nom + " ne prend pas de valeur");
    if (op->genre != GenreValeur::kAucune && !valeurJointe) {
      if (i + 1 >= argc) return Refus("l'option " + nom + " attend une valeur (" + op->metavar + ")");
      valeur = argv[++i];
    }
    const std::string raison = Appliquer(*op, nom, valeur);
    if (!raison.empty()) return Refus(raison);
    if (o.aide || o.version) return r;
  }
  return r;
}

// The options given (as LireCommande lists them) whose work is not built yet: the row is not
// available, or the name chosen is not.
template <class Options>
std::vector<std::string> OptionsIndisponibles(
    const std::vector<OptionCommande<Options>>& table,
    const std::vector<std::pair<std::string, std::string>>& donnees) {
  std::vector<std::string> r;
  for (const auto& [nom, valeur] : donnees)
    for (const auto& ligne : table) {
      if (nom != std::string("--") + ligne.nom) continue;
      if (!ligne.disponible)
        r.push_back(nom);
      else if (ligne.choixDisponible && !ligne.choixDisponible(valeur))
        r.push_back(nom + " " + valeur);
    }
  return r;
}

// The help lines of a table: names and value, help, default and the names a choice accepts (those not
// built yet marked).
template <class Options>
std::string AideTable(const std::vector<OptionCommande<Options>>& table) {
  std::string r;
  for (const auto& ligne : table) {
    std::string noms = ligne.court ? std::string("-") + ligne.court + ", " : std::string("    ");
    noms += std::string("--") + ligne.nom;
    if (ligne.genre != GenreValeur::kAucune) noms += std::string("=") + ligne.metavar;
    std::string aide = std::string(ligne.disponible ? "" : "[a venir] ") + ligne.aide;
    if (ligne.choix) {
      bool premier = true;
      for (const std::string& c : ligne.choix()) {
        aide += (premier ? " : " : ", ") + c;
        if (ligne.choixDisponible && !ligne.choixDisponible(c)) aide += " [a venir]";
        premier = false;
      }
    }
    if (ligne.defaut) aide += std::string(" (defaut : ") + ligne.defaut + ")";
    r += LigneAide(noms, aide);
  }
  return r;
}
