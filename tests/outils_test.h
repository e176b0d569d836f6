// Helpers shared by the tests: temporary folders, running the built tool, reading files.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "zepra/erreur.h"

namespace test {

// A fresh folder under /tmp, removed with its content at the end of the test.
class DossierTemp {
 public:
  DossierTemp() {
    char modele[] = "/tmp/egalise_test_XXXXXX";
    m_chemin = mkdtemp(modele);
  }
  ~DossierTemp() { std::system(("rm -rf '" + m_chemin + "'").c_str()); }
  const std::string& chemin() const { return m_chemin; }
  std::string operator/(const std::string& nom) const { return m_chemin + "/" + nom; }

 private:
  std::string m_chemin;
};

struct Resultat {
  int statut = -1;
  std::string sortie;  // standard output and standard error
};

// Runs a shell command in a folder; returns its exit status and what it printed.
inline Resultat Lancer(const std::string& dossier, const std::string& commande) {
  Resultat r;
  const std::string complete = "cd '" + dossier + "' && " + commande + " 2>&1";
  FILE* f = popen(complete.c_str(), "r");
  if (!f) return r;
  char tampon[4096];
  size_t n;
  while ((n = fread(tampon, 1, sizeof tampon, f)) > 0) r.sortie.append(tampon, n);
  const int s = pclose(f);
  r.statut = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  return r;
}

// Runs a shell command in a folder as Lancer does; 'memoireKio' receives the peak resident memory of
// its processes (ru_maxrss of the shell and of the children it waited for).
inline Resultat Lancer(const std::string& dossier, const std::string& commande, long& memoireKio) {
  Resultat r;
  int tube[2];
  if (pipe(tube) != 0) return r;
  const std::string complete = "cd '" + dossier + "' && " + commande + " 2>&1";
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(tube[1], 1);
    close(tube[0]);
    close(tube[1]);
    execl("/bin/sh", "sh", "-c", complete.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(tube[1]);
  char tampon[4096];
  ssize_t n;
  while ((n = read(tube[0], tampon, sizeof tampon)) > 0) r.sortie.append(tampon, static_cast<size_t>(n));
  close(tube[0]);
  int s = 0;
  rusage ru{};
  if (pid < 0 || wait4(pid, &s, 0, &ru) != pid) return r;
  memoireKio = ru.ru_maxrss;
  r.statut = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  return r;
}

// Runs the built egalise with the given arguments in a folder.
inline Resultat Egalise(const std::string& dossier, const std::string& arguments) {
  return Lancer(dossier, std::string("'") + EGALISE_EXE + "' " + arguments);
}

inline void EcrireFichier(const std::string& chemin, const std::string& octets) {
  std::ofstream(chemin, std::ios::binary).write(octets.data(), static_cast<std::streamsize>(octets.size()));
}

inline std::string LireFichier(const std::string& chemin) {
  std::ifstream f(chemin, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

inline std::vector<std::string> Lignes(const std::string& texte) {
  std::vector<std::string> lignes;
  std::istringstream s(texte);
  std::string l;
  while (std::getline(s, l)) lignes.push_back(l);
  return lignes;
}

// The numbers of the JSON array that follows "cle": in a text (gdalinfo -json's), empty without it.
inline std::vector<double> TableauJson(const std::string& json, const std::string& cle) {
  std::vector<double> v;
  size_t i = json.find("\"" + cle + "\":");
  if (i == std::string::npos) return v;
  i = json.find('[', i);
  const size_t fin = json.find(']', i);
  for (const char* p = json.c_str() + i + 1; p < json.c_str() + fin;) {
    char* suite = nullptr;
    const double x = std::strtod(p, &suite);
    if (suite == p) {
      ++p;
    } else {
      v.push_back(x);
      p = suite;
    }
  }
  return v;
}

// How many times 'motif' occurs in 'texte'.
inline size_t Occurrences(const std::string& texte, const std::string& motif) {
  size_t n = 0;
  for (size_t i = texte.find(motif); i != std::string::npos; i = texte.find(motif, i + 1)) ++n;
  return n;
}

// The text of the Erreur that f raises, or "(pas d'Erreur)".
template <class F>
std::string TexteErreur(F&& f) {
  try {
    f();
  } catch (const Erreur& e) {
    return e.Texte().str();
  }
  return "(pas d'Erreur)";
}

inline bool Commence(const std::string& texte, const std::string& debut) {
  return texte.rfind(debut, 0) == 0;
}

// Runs f, expects an Erreur whose message begins with 'debut' (when not empty), contains every
// fragment and carries the location suffix; returns the message.
template <class F>
std::string Refuse(F&& f, const std::string& debut, std::initializer_list<std::string> fragments = {}) {
  const std::string t = TexteErreur(f);
  if (t == "(pas d'Erreur)") {
    ADD_FAILURE() << "pas d'Erreur, attendu : " << debut;
    return "";
  }
  if (!debut.empty()) {
    EXPECT_TRUE(Commence(t, debut)) << t;
  }
  for (const std::string& fragment : fragments)
    EXPECT_NE(t.find(fragment), std::string::npos) << fragment << " / " << t;
  EXPECT_NE(t.find(" (Fichier : ../"), std::string::npos) << t;
  return t;
}

}  // namespace test
