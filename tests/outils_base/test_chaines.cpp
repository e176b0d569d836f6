#include <gtest/gtest.h>

#include <tuple>

#include "zepra/stringpp.h"
#include "zepra/tchaine.h"

namespace {

TEST(TChaine, LesNombresSontCompletesParDesZerosJusquALaLargeur) {
  TChaine a(mint(3)), b;
  a << 7;
  b << 7;
  EXPECT_EQ(a.str() + " " + b.str(), "007 7");
  EXPECT_EQ(TChaine(42, mint(5)).str(), "00042");
  EXPECT_EQ(TChaine(1234567L, mint(3)).str(), "1234567");  // the width is a minimum
  TChaine c = TChaine("img_") + mint(4);
  c << 12;
  c += TChaine(".tif");
  EXPECT_EQ(c.str(), "img_0012.tif");
  EXPECT_EQ((TChaine("x") + 2.5).str(), "x2.5");
  EXPECT_EQ(("a" + TChaine("b")).str(), "ab");
  EXPECT_EQ(TChaine("AbC").ToLowCase().str() + TChaine("AbC").ToUpCase().str(), "abcABC");
  TChaine d;
  d.Crop(TChaine("abcdef"), 1, 4);
  EXPECT_EQ(d.str(), "bcd");
  EXPECT_EQ(TChaine(static_cast<const char*>(nullptr)).longueur(), 0);
}

// Directory, file and extension by TChaine and by stringpp, which agree; joining is their inverse.
TEST(TChaine, ChemainsEtExtensions) {
  const std::tuple<const char*, const char*, const char*, const char*> cas[] = {
      {"a/b/c.tif", "a/b", "c.tif", "tif"},
      {"c.tif", "", "c.tif", "tif"},
      {"dir/", "dir", "", ""},
      {"a\\b.x", "a", "b.x", "x"},
      {"a.b/c", "a.b", "c", "b/c"},  // kept: the last '.' of the whole path
      {"abc", "", "abc", ""},
  };
  for (const auto& [chemin, dir, file, extension] : cas) {
    TChaine d, f;
    TChaine(chemin).DirFile(d, f);
    EXPECT_EQ(d.str() + "|" + f.str() + "|" + TChaine(chemin).Extension().str(),
              std::string(dir) + "|" + file + "|" + extension);
    EXPECT_EQ(stringpp::Dir(chemin).str() + "|" + stringpp::File(chemin).str(),
              std::string(dir) + "|" + file);
  }
  EXPECT_EQ(stringpp::Dir("x\\y/c.tif").str(), "x\\y");  // '/' is looked for first
  const std::pair<const char*, const char*> exts[] = {{"x.jpg", "x.tif"},
                                                      {"dir.d/x", "dir.d/x.tif"},
                                                      {"a.b.c", "a.b.tif"},
                                                      {"dir\\x", "dir\\x.tif"},
                                                      {"", ".tif"}};
  for (const auto& [avant, apres] : exts)
    for (const char* ext : {"tif", ".tif"}) {  // the dot is optional
      TChaine t(avant);
      t.SetExtension(ext);
      EXPECT_EQ(t.str(), apres) << avant << " " << ext;
    }
  // Joined and split again.
  for (const char* dir : {"", "a", "a/b", "/abs/dir", "../rel"}) {
    const stringpp chemin = stringpp::AdressefromDirFile(dir, "Ort_1.tif");
    EXPECT_EQ(stringpp::Dir(chemin).str() + "|" + stringpp::File(chemin).str(),
              std::string(dir) + "|Ort_1.tif");
  }
  EXPECT_EQ(stringpp::AdressefromDirFile("a/", "f").str(), "a/f");
  stringpp s("big_image.tif");
  stringpp::SetExtension(s, "ori");
  s << 12 << "x";
  EXPECT_EQ(s.str(), "big_image.ori12x");
  EXPECT_TRUE(stringpp(static_cast<const char*>(nullptr)).empty());
}

}  // namespace
