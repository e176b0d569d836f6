// Every file of tests/image/malformes (each named by its fault, most written by genere.py there, the
// others found by the fuzzer) must end in an Erreur: no crash, no hang, no huge allocation. The
// sanitizer build replays them too.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tiff_outils_test.h"
#include "zepra/imagefic.h"
#include "zepra/ttimage.h"

namespace {

TEST(TiffMalformes, ChaqueFichierFinitEnErreur) {
  const std::string dossier = std::string(ZEPRA_SOURCE_DIR) + "/tests/image/malformes/";
  std::vector<std::string> noms;
  DIR* d = opendir(dossier.c_str());
  ASSERT_NE(d, nullptr);
  while (dirent* e = readdir(d)) {
    const std::string n = e->d_name;
    if (n.size() > 4 && n.compare(n.size() - 4, 4, ".tif") == 0) noms.push_back(n);
  }
  closedir(d);
  std::sort(noms.begin(), noms.end());
  EXPECT_GE(noms.size(), 50u);
  for (const std::string& n : noms) {
    const std::string chemin = dossier + n;
    const std::string octets = test::TexteErreur([&] { TTImage<unsigned char>(chemin.c_str()); });
    EXPECT_NE(octets, "(pas d'Erreur)") << n;
    // The same through a stepped crop into another type.
    const std::string crop = test::TexteErreur([&] {
      const ImageFicIn f(chemin.c_str());
      TTImage<float> im;
      im.Crop(f, 1, 1, f.GetTaille().x, f.GetTaille().y, 2);
    });
    EXPECT_NE(crop, "(pas d'Erreur)") << n;
  }
}

}  // namespace
