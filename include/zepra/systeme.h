// Systeme: process-wide services of the library (start and stop of a run, the log, dates, files).
#pragma once

#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "zepra/tchaine.h"

class Systeme {
 public:
  enum TypeGererOflog { OflogOuvrir, OflogObtenir, OflogRenommer, OflogFermer };

  static bool m_hascout;          // log lines also go to standard output
  static bool m_faut_flusher;     // flush standard output and the log after every piece
  static bool m_doWarnings;       // warnings are written
  static bool m_Pointeurs64bits;  // selects "64 bits " in the banner
  static bool m_consoleStandardExiste;
  static std::string m_logname;

  // Where the start banner takes the extensions of the image files that can be read and written.
  // The base services know nothing of images: the program sets this once, before Demarrer, to the
  // function the image layer provides (ExtensionsImages in zepra/imagefic.h). Unset, the banner
  // lists no extension.
  using SourceExtensions = void (*)(std::vector<std::string>& lecture, std::vector<std::string>& ecriture);
  static void SetSourceExtensions(SourceExtensions source);

  // Starts a run: the extension lists (which builds the image layer's registries), log file,
  // banner. The third argument is ignored.
  static void Demarrer(const char* logname, bool hascout, bool);
  // Ends a run: the three closing lines. The log stays open until the process ends.
  static void Arreter();

  // The single owner of the log stream.
  static std::ofstream& GererOflog(TypeGererOflog op, const char* nom);
  static std::ofstream& Oflog() { return GererOflog(OflogObtenir, nullptr); }
  static std::ofstream& CloseLog() { return GererOflog(OflogFermer, nullptr); }
  static std::ofstream& SetLogFileName(const char* nom) { return GererOflog(OflogRenommer, nom); }
  static bool HasLog();
  static void setncoutfixed();

  // The log-line rule: to standard output when m_hascout, to the log when open, then flush when asked.
  static void Ecrire(const std::string& texte);
  // The same followed by a line end written as its own piece.
  static void EcrireLigne(const std::string& texte);
  // "WARNING : " and the message, on one line, only when warnings are enabled.
  static void Warning(const std::string& message);

  static TChaine Date();
  static TChaine Date(std::time_t instant);  // the same for a given instant
  static TChaine& FormatteTime(double secondes, TChaine& out);

  static bool ExisteFichier(const char* chemin);
  // False for a named pipe, socket or character device: opening one to read waits for a writer or
  // never ends, and none holds an image. True otherwise, absent paths included (their open fails).
  static bool Ouvrable(const char* chemin);
  // Opens a file to read, in binary, when it is Ouvrable; whether it is open.
  static bool OuvrirLecture(std::ifstream& flux, const std::string& chemin);
  // Throws when lstat fails.
  static bool EstRepertoire(const char* chemin);
  static TChaine RepertoireCourant();
  static bool RepertoireCourant(const TChaine& dir);
  static bool CopierFichier(const TChaine& src, const TChaine& dst, bool ecraser);
  // True when the removal FAILED: the inverted sense is established and callers rely on it.
  static bool DetruireFichier(const char* chemin);
  static bool CreerRepertoire(const char* chemin);
  static bool DetruireRepertoire(const char* chemin);
  static TChaine PathNoyau();
  static void TestInterne();

  struct Chrono {
    long long debut = 0;
    long long dernier = 0;
    double duree = 0.0;
    double cumul = 0.0;
    double duree2 = 0.0;
  };
  static Chrono chrono;
};
