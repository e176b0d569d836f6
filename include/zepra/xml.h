// A small XML reader and writer for the library's own files (orientation files such as FileOriMnt):
// elements with text and nested elements, an "<?xml" declaration; no attributes, entities or comments.
//
// Paths are slash-separated element names from the root, the root included: "/FileOriMnt/Geometrie".
// The index of a path operation counts the matches of the whole path in document order (depth first),
// so "/a/b" index 1 is the second <b> under any <a>, the same order ReadArrayNode lists them in.
// An element's text is its words joined by one space (the tokeniser splits texts into words).
#pragma once

#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "zepra/geometrie.h"

class XNodeXML {
 public:
  XNodeXML() = default;
  explicit XNodeXML(const std::string& nom) : m_nom(nom) {}
  XNodeXML(const XNodeXML& autre);  // deep copy of the sub-tree
  XNodeXML& operator=(const XNodeXML& autre);
  XNodeXML(XNodeXML&&) = default;
  XNodeXML& operator=(XNodeXML&&) = default;
  ~XNodeXML() = default;

  const std::string& GetNom() const { return m_nom; }
  void SetNom(const std::string& nom) { m_nom = nom; }
  const std::string& GetTexte() const { return m_texte; }
  size_t NbEnfants() const { return m_enfants.size(); }
  const XNodeXML& Enfant(size_t i) const { return *m_enfants[i]; }
  // Appends a child and returns it; the node owns it.
  XNodeXML& AjouterEnfant(const std::string& nom);
  // Deletes every child (and their sub-trees).
  void DeleteNodes() { m_enfants.clear(); }

  // The index-th element matching the path, or null.
  const XNodeXML* GetNode(const std::string& chemin, unsigned int index = 0) const;
  XNodeXML* GetNode(const std::string& chemin, unsigned int index = 0);
  bool FindNode(const std::string& chemin, unsigned int index = 0) const {
    return GetNode(chemin, index) != nullptr;
  }
  // The text of the index-th match; throws an Erreur naming the path when there is none.
  std::string ReadNode(const std::string& chemin, unsigned int index = 0) const;
  // Sets the text of the index-th match. When there are exactly 'index' matches, a new element is
  // made, its missing ancestors too (under the first existing match of each ancestor path). Texts
  // holding '<' or '>' cannot be read back and are refused, as are names that are not one word.
  void WriteNode(const std::string& chemin, const std::string& valeur, unsigned int index = 0);
  // The texts of every match, appended in document order.
  void ReadArrayNode(const std::string& chemin, std::vector<std::string>& textes) const;
  // Every match, appended in document order; the pointers belong to this tree.
  void ReadAllNodes(const std::string& chemin, std::vector<const XNodeXML*>& noeuds) const;

  // Reads one element (the declaration skipped) from the stream. False on a malformed or truncated
  // element, a closing tag that does not match, or nesting deeper than ProfondeurMax.
  bool Read(std::istream& flux);
  // Writes the element in the library's layout: no indentation, a leaf on one line.
  void Write(std::ostream& flux) const;

  // One token of the input: leading blanks (space, tab, CR, LF) skipped, then characters up to a space,
  // tab or CR (dropped), a '<' (left for the next token) or a '>' (kept). A line feed does not end a
  // token. False at end of input with nothing read.
  static bool GetToken(std::istream& flux, std::string& jeton);

  // Deeper documents are refused rather than risk the stack.
  static const int ProfondeurMax = 256;

 private:
  bool Lire(std::istream& flux, const std::string& ouvrante, int profondeur);
  template <class N, class F>
  static void Parcourir(N& noeud, const std::vector<std::string>& noms, size_t niveau, F&& f);

  std::string m_nom;
  std::string m_texte;
  std::vector<std::unique_ptr<XNodeXML>> m_enfants;
};

class XParserXML {
 public:
  XParserXML() = default;
  // A parser whose root is a copy of the node (the file name is kept for messages).
  XParserXML(const XNodeXML& racine, const std::string& fichier) : m_fichier(fichier), m_racine(racine) {}

  // Reads the whole file; false when it cannot be opened or is not a well-formed document (one root
  // element, then nothing but blanks). On failure the tree is left empty.
  bool Parse(const std::string& fichier);
  // The same from a stream.
  bool Parse(std::istream& flux);

  const std::string& GetFichier() const { return m_fichier; }
  const XNodeXML& GetRacine() const { return m_racine; }
  XNodeXML& GetRacine() { return m_racine; }

  bool FindNode(const std::string& chemin, unsigned int index = 0) const {
    return m_racine.FindNode(chemin, index);
  }
  // The typed readers throw an Erreur naming the file, the path and the text when the node is missing
  // or its text is not exactly one value of the type (no trailing garbage, numbers in range and
  // finite): a caller never gets an unset value. Callers test FindNode first for optional nodes.
  std::string ReadNode(const std::string& chemin, unsigned int index = 0) const;
  int ReadNodeAsInt(const std::string& chemin, unsigned int index = 0) const;
  unsigned int ReadNodeAsUInt32(const std::string& chemin, unsigned int index = 0) const;
  double ReadNodeAsDouble(const std::string& chemin, unsigned int index = 0) const;
  // "VRAI"/"TRUE" and "FAUX"/"FALSE", in any case; any other text is an error.
  bool ReadNodeAsBool(const std::string& chemin, unsigned int index = 0) const;
  // "r,g,b" (integers 0..255), "x,y" and "x,y,z".
  T3D<unsigned char> ReadNodeAsRGB(const std::string& chemin, unsigned int index = 0) const;
  TPoint2D<double> ReadNodeAsPoint2D(const std::string& chemin, unsigned int index = 0) const;
  T3D<double> ReadNodeAsPoint3D(const std::string& chemin, unsigned int index = 0) const;

  void ReadArrayNode(const std::string& chemin, std::vector<std::string>& textes) const {
    m_racine.ReadArrayNode(chemin, textes);
  }
  void ReadArrayNodeAsInt(const std::string& chemin, std::vector<int>& valeurs) const;
  void ReadArrayNodeAsUInt32(const std::string& chemin, std::vector<unsigned int>& valeurs) const;
  void ReadArrayNodeAsDouble(const std::string& chemin, std::vector<double>& valeurs) const;

  // A parser rooted at the index-th match (throws when there is none); paths on it start with the
  // matched element's name.
  XParserXML FindSubParser(const std::string& chemin, unsigned int index = 0) const;
  void FindAllSubParsers(const std::string& chemin, std::vector<XParserXML>& parsers) const;

  void WriteNode(const std::string& chemin, const std::string& valeur, unsigned int index = 0) {
    m_racine.WriteNode(chemin, valeur, index);
  }

  // The declaration, the style sheet line when a name is given, then the root element.
  void Write(std::ostream& flux, const std::string& feuilleStyle = "") const;
  // The same into a file, complete or absent (written under a temporary name, then renamed).
  void Write(const std::string& fichier, const std::string& feuilleStyle = "") const;

 private:
  std::string m_fichier;
  XNodeXML m_racine;
};
