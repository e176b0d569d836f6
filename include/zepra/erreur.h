// Erreur: the single exception type of the library and the tool.
#pragma once

#include <sstream>
#include <string>

#include "zepra/tchaine.h"

class Erreur {
 public:
  Erreur(const TChaine& message) : m_message(message) {}
  // Writes the message as it stands (no newline) by the log-line rule of Systeme.
  void Message() const;
  const TChaine& Texte() const { return m_message; }
  // The text without the source location ZEPRA_ERREUR appends: what a user needs to read.
  std::string Phrase() const;

 private:
  TChaine m_message;
};

namespace zepra_detail {
// Appends " (Fichier : <source> ; ligne <n>)" and throws: the one place where the suffix is built.
[[noreturn]] void LeverErreur(const std::string& texte, const char* fichier, int ligne);
}  // namespace zepra_detail

// Throws an Erreur whose text is the streamed expression followed by the source location.
#define ZEPRA_ERREUR(expr)                                                     \
  do {                                                                         \
    std::ostringstream zepra_flux_erreur_;                                     \
    zepra_flux_erreur_ << expr;                                                \
    ::zepra_detail::LeverErreur(zepra_flux_erreur_.str(), __FILE__, __LINE__); \
  } while (0)
