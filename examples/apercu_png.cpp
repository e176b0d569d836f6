#include "apercu_png.h"

#include <png.h>

#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"

namespace {

void Ecrire(png_structp png, png_bytep donnees, png_size_t n) {
  static_cast<std::ofstream*>(png_get_io_ptr(png))
      ->write(reinterpret_cast<const char*>(donnees), static_cast<std::streamsize>(n));
}
void Vider(png_structp png) { static_cast<std::ofstream*>(png_get_io_ptr(png))->flush(); }

}  // namespace

void EcrirePng(const std::string& chemin, int largeur, int hauteur, int canaux,
               const std::vector<unsigned char>& octets) {
  if (canaux != 1 && canaux != 3)
    ZEPRA_ERREUR("[Png] (Ecrire) " << chemin << " : " << canaux << " canaux, 1 ou 3 attendus.");
  const size_t ligne = static_cast<size_t>(largeur) * canaux;
  if (largeur < 1 || hauteur < 1 || octets.size() != ligne * hauteur)
    ZEPRA_ERREUR("[Png] (Ecrire) " << chemin << " : " << largeur << " x " << hauteur << " x " << canaux
                                   << " pour " << octets.size() << " octets.");
  FichierAtomique f(chemin, "[Png] (Ecrire)");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    ZEPRA_ERREUR("[Png] (Ecrire) " << chemin << " : libpng n'a pas pu demarrer.");
  }
  // libpng reports its errors by longjmp: nothing with a destructor is created between here and the end.
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    ZEPRA_ERREUR("[Png] (Ecrire) " << chemin << " : erreur de libpng.");
  }
  png_set_write_fn(png, &f.flux(), Ecrire, Vider);
  png_set_IHDR(png, info, static_cast<png_uint_32>(largeur), static_cast<png_uint_32>(hauteur), 8,
               canaux == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int l = 0; l < hauteur; ++l)
    png_write_row(png, const_cast<png_bytep>(&octets[static_cast<size_t>(l) * ligne]));
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  f.Valider();
}
