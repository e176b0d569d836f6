// Objects of the codec libraries (libdeflate, libzstd) owned through their own free function.
// Private to src/image.
#pragma once

#include <memory>

#include "zepra/erreur.h"

namespace tiff {

template <auto Liberer>
struct Liberateur {
  template <class T>
  void operator()(T* p) const {
    Liberer(p);
  }
};

template <class T, auto Liberer>
using Possede = std::unique_ptr<T, Liberateur<Liberer>>;

// Takes what a library allocated; a null pointer (the library's only failure) is an Erreur naming
// 'classe'.
template <auto Liberer, class T>
Possede<T, Liberer> Posseder(T* p, const char* classe) {
  if (!p) ZEPRA_ERREUR("[" << classe << "] (Constructeur) Memoire insuffisante.");
  return Possede<T, Liberer>(p);
}

}  // namespace tiff
