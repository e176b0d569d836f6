// Reading and writing the numbers of the text orientation files.
//
// Reading works on the whole file held in memory (orientation files are small; a larger file is
// refused before it is read) with the rules of the C scanners the formats were defined with: "%s"
// words, "%ld" integers, "%lf" reals that stop at the first character that cannot continue them.
// Reals are decimal only (no hexadecimal, infinity or NaN) and may be scaled by a power of ten on the
// decimal text itself, so that millimetres become metres without a second rounding.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

class XParserXML;

// The image name with its extension replaced by each of 'extensions' in lower case, upper case and
// capitalised, in that order: the files looked for beside an image.
std::vector<std::string> NomsVoisins(const std::string& image, const std::vector<const char*>& extensions);

// Parses an XML document held in memory; the parser keeps 'fichier' for its messages. False when it
// is not well formed.
bool ParserXml(const std::string& contenu, const std::string& fichier, XParserXML& parser);

class LecteurTexte {
 public:
  explicit LecteurTexte(std::string contenu) : m_texte(std::move(contenu)) {}

  // Reads the whole file; false when it cannot be opened. Throws an Erreur tagged 'tag' for a file
  // larger than TailleMax.
  static bool Charger(const char* fichier, std::string& contenu, const char* tag);
  // The same, opening the file once and telling a file that is not there (kAbsent) from one that
  // opens but cannot be read whole (kIllisible: a directory, a read error): searches beside an image
  // take the first candidate that opens, and read it with that same opening.
  enum class Etat { kAbsent, kIllisible, kLu };
  static Etat ChargerSiPresent(const char* fichier, std::string& contenu, const char* tag);
  static const size_t TailleMax = 1 << 20;

  // Next word of at most 'max' characters (the rest of a longer word is the next word); false at end.
  bool Mot(std::string& mot, size_t max = std::string::npos);
  // A decimal integer that fits a signed 64-bit value.
  bool Entier(long long& v);
  // A finite decimal real, multiplied by 10^puissance10 exactly in decimal before the one rounding.
  bool Reel(double& v, int puissance10 = 0);
  // The next character that is not blank.
  bool CaractereNonBlanc(char& c);
  bool Fin();

 private:
  void SauterBlancs();
  std::string m_texte;
  size_t m_pos = 0;
};

// The shortest decimal text of v that reads back to v, multiplied by 10^puissance10 exactly in
// decimal: TexteExact(651234.567, 3) is "651234567" and LecteurTexte reads it back with -3 to the same
// double. Plain notation, scientific only for very large or small exponents. v must be finite.
std::string TexteExact(double v, int puissance10 = 0);

// The same with the fewest digits whose reading (the decimal text before the factor, correctly
// rounded) 'accepte' takes; empty when not even 17 digits do.
std::string TexteRelu(double v, int puissance10, const std::function<bool(double)>& accepte);
