// The tables that policies are chosen from once, by name: fusion rules, correction models.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

// A row of a policy table: its name on the command line, a line of help, and its factory, null while
// the policy is not available yet (the name is then known, and refused with that reason).
template <class Politique, class Parametres>
struct LignePolitique {
  const char* nom;
  const char* aide;
  std::unique_ptr<Politique> (*creer)(const Parametres&);
};

// The row of that name, null when there is none.
template <class Ligne>
const Ligne* ChercherLigne(const std::vector<Ligne>& table, const std::string& nom) {
  const auto it = std::find_if(table.begin(), table.end(), [&](const Ligne& l) { return nom == l.nom; });
  return it == table.end() ? nullptr : &*it;
}
