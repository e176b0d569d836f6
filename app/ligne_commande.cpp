#include "ligne_commande.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

// The number that is the whole word, or the reason it is not one.
std::string Reel(const std::string& mot, double& v) {
  char* fin = nullptr;
  errno = 0;
  v = std::strtod(mot.c_str(), &fin);
  if (mot.empty() || std::isspace(static_cast<unsigned char>(mot[0])) || *fin != '\0')
    return "un nombre est attendu (point decimal)";
  if (errno == ERANGE && std::isinf(v)) return "nombre hors des reels representables";
  return "";
}

std::string Entier(const std::string& mot, long long& v) {
  char* fin = nullptr;
  errno = 0;
  v = std::strtoll(mot.c_str(), &fin, 10);
  if (mot.empty() || std::isspace(static_cast<unsigned char>(mot[0])) || *fin != '\0')
    return "un entier est attendu";
  if (errno == ERANGE) return "entier hors limites";
  return "";
}

std::string Texte(double v) {
  // A whole bound in all its digits (1073741824, not 1.07374e+09).
  if (std::fabs(v) < 1e15 && v == std::floor(v)) return std::to_string(static_cast<long long>(v));
  std::ostringstream s;
  s << v;
  return s.str();
}

// The bounds of a real, checked; the reason when outside.
std::string Bornes(const DescriptionValeur& d, double v) {
  if (std::isnan(v)) return d.nanPermis ? "" : "un nombre est attendu, pas NaN";
  if (!std::isfinite(v)) return "un nombre fini est attendu";
  if (d.minExclu ? !(v > d.min) : !(v >= d.min))
    return (d.minExclu ? "doit etre > " : "doit etre >= ") + Texte(d.min);
  if (!(v <= d.max)) return "doit etre <= " + Texte(d.max);
  return "";
}

}  // namespace

std::string LireValeur(const DescriptionValeur& d, const std::string& mot, Valeur& v) {
  std::string raison;
  switch (d.genre) {
    case GenreValeur::kAucune:
      return "";
    case GenreValeur::kTexte:
      return mot.empty() ? "un texte non vide est attendu" : "";
    case GenreValeur::kEntier:
      if (!(raison = Entier(mot, v.entier)).empty()) return raison;
      if (v.entier < d.min || v.entier > d.max)
        return "doit etre entre " + Texte(d.min) + " et " + Texte(d.max);
      return "";
    case GenreValeur::kReel: {
      double x = 0;
      if (!(raison = Reel(mot, x)).empty() || !(raison = Bornes(d, x)).empty()) return raison;
      v.reels.assign(1, x);
      return "";
    }
    case GenreValeur::kReels: {
      std::istringstream morceaux(mot);
      v.reels.clear();
      for (std::string m; std::getline(morceaux, m, ',');) {
        double x = 0;
        if (!(raison = Reel(m, x)).empty() || !(raison = Bornes(d, x)).empty()) return raison;
        v.reels.push_back(x);
      }
      if (!mot.empty() && mot.back() == ',') return "un nombre est attendu apres la virgule";
      const int nb = static_cast<int>(v.reels.size());
      if (nb < d.nbMin || nb > d.nbMax)
        return d.nbMin == d.nbMax
                   ? std::to_string(d.nbMin) + " nombres separes par des virgules sont attendus"
                   : std::to_string(d.nbMin) + " a " + std::to_string(d.nbMax) +
                         " nombres separes par des virgules sont attendus";
      return "";
    }
    case GenreValeur::kChoix: {
      std::string liste;
      for (const std::string& c : d.choix) {
        if (c == mot) return "";
        liste += (liste.empty() ? "" : ", ") + c;
      }
      return "attendu : " + liste;
    }
    case GenreValeur::kFraction: {
      const size_t barre = mot.find('/');
      if (barre == std::string::npos) return "k/n est attendu";
      if (!Entier(mot.substr(0, barre), v.k).empty() || !Entier(mot.substr(barre + 1), v.n).empty())
        return "k/n est attendu, deux entiers";
      if (v.n < d.min || v.n > d.max) return "n doit etre entre " + Texte(d.min) + " et " + Texte(d.max);
      if (v.k < 1 || v.k > v.n) return "k doit etre entre 1 et n";
      return "";
    }
  }
  return "";
}

std::string LireListe(const std::string& fichier, std::vector<std::string>& noms) {
  std::ifstream f(fichier);
  if (!f.is_open()) return "liste d'images " + fichier + " illisible";
  size_t lus = 0;
  bool premiere = true;
  for (std::string ligne; std::getline(f, ligne); premiere = false) {
    // Windows editors start a UTF-8 file with a byte order mark; it is no part of the first path.
    if (premiere && ligne.rfind("\xEF\xBB\xBF", 0) == 0) ligne.erase(0, 3);
    const size_t debut = ligne.find_first_not_of(" \t\r"), fin = ligne.find_last_not_of(" \t\r");
    if (debut == std::string::npos) continue;
    noms.push_back(ligne.substr(debut, fin - debut + 1));
    ++lus;
  }
  if (f.bad()) return "lecture de la liste d'images " + fichier + " interrompue";
  if (lus == 0) return "la liste d'images " + fichier + " ne nomme aucune image";
  return "";
}

std::string LigneAide(const std::string& noms, const std::string& aide) {
  // Help text from column 32, wrapped before column 100.
  constexpr size_t kColonne = 32, kLargeur = 100;
  std::string r = "  " + noms;
  r += r.size() + 2 <= kColonne ? std::string(kColonne - r.size(), ' ') : "\n" + std::string(kColonne, ' ');
  size_t colonne = kColonne;
  std::istringstream mots(aide);
  bool premier = true;
  for (std::string m; mots >> m; premier = false) {
    if (!premier && colonne + 1 + m.size() > kLargeur) {
      r += "\n" + std::string(kColonne, ' ');
      colonne = kColonne;
    } else if (!premier) {
      r += ' ';
      ++colonne;
    }
    r += m;
    colonne += m.size();
  }
  return r + "\n";
}
