#include <gtest/gtest.h>

#include "zepra/stringpp.h"
#include "zepra/tchaine.h"

namespace {

TEST(TChaine, LesNombresSontCompletesParDesZerosJusquALaLargeur) {
  TChaine a(mint(3));
  a << 7;
  EXPECT_EQ(a.str(), "007");
  TChaine b;
  b << 7;
  EXPECT_EQ(b.str(), "7");
  EXPECT_EQ(TChaine(42, mint(5)).str(), "00042");
  EXPECT_EQ(TChaine(1234567L, mint(3)).str(), "1234567");  // the width is a minimum
  TChaine c = TChaine("img_") + mint(4);
  c << 12;
  c += TChaine(".tif");
  EXPECT_EQ(c.str(), "img_0012.tif");
  EXPECT_EQ((TChaine("x") + 2.5).str(), "x2.5");
  EXPECT_EQ(("a" + TChaine("b")).str(), "ab");
  EXPECT_EQ(TChaine("AbC").ToLowCase().str(), "abc");
  EXPECT_EQ(TChaine("AbC").ToUpCase().str(), "ABC");
  TChaine d;
  d.Crop(TChaine("abcdef"), 1, 4);
  EXPECT_EQ(d.str(), "bcd");
  EXPECT_EQ(TChaine(static_cast<const char*>(nullptr)).longueur(), 0);
}

TEST(TChaine, ChemainsEtExtensions) {
  struct Cas {
    const char* chemin;
    const char* dir;
    const char* file;
    const char* extension;
  };
  const Cas cas[] = {
      {"a/b/c.tif", "a/b", "c.tif", "tif"},
      {"c.tif", "", "c.tif", "tif"},
      {"dir/", "dir", "", ""},
      {"a\\b.x", "a", "b.x", "x"},
      {"a.b/c", "a.b", "c", "b/c"},  // kept: the last '.' of the whole path
      {"abc", "", "abc", ""},
  };
  for (const Cas& c : cas) {
    TChaine dir, file;
    TChaine(c.chemin).DirFile(dir, file);
    EXPECT_EQ(dir.str(), c.dir) << c.chemin;
    EXPECT_EQ(file.str(), c.file) << c.chemin;
    EXPECT_EQ(TChaine(c.chemin).Extension().str(), c.extension) << c.chemin;
  }
  struct Ext {
    const char* avant;
    const char* ext;
    const char* apres;
  };
  const Ext exts[] = {{"x.jpg", "tif", "x.tif"},       {"dir.d/x", "tif", "dir.d/x.tif"},
                      {"x.jpg", ".ori", "x.ori"},      {"a.b.c", "d", "a.b.d"},
                      {"dir\\x", "tif", "dir\\x.tif"}, {"", "ori", ".ori"}};
  for (const Ext& e : exts) {
    TChaine t(e.avant);
    t.SetExtension(e.ext);
    EXPECT_EQ(t.str(), e.apres) << e.avant;
  }
}

TEST(Stringpp, DirFileEtJointureSeCorrespondent) {
  EXPECT_EQ(stringpp::File("a/b/c.tif").str(), "c.tif");
  EXPECT_EQ(stringpp::Dir("a/b/c.tif").str(), "a/b");
  EXPECT_EQ(stringpp::File("c.tif").str(), "c.tif");
  EXPECT_EQ(stringpp::Dir("c.tif").str(), "");
  EXPECT_EQ(stringpp::File("a\\c.tif").str(), "c.tif");
  EXPECT_EQ(stringpp::Dir("x\\y/c.tif").str(), "x\\y");  // '/' is looked for first
  for (const char* dir : {"", "a", "a/b", "/abs/dir", "../rel"}) {
    const stringpp chemin = stringpp::AdressefromDirFile(dir, "Ort_1.tif");
    EXPECT_EQ(stringpp::Dir(chemin).str(), dir);
    EXPECT_EQ(stringpp::File(chemin).str(), "Ort_1.tif");
  }
  EXPECT_EQ(stringpp::AdressefromDirFile("a/", "f").str(), "a/f");
  stringpp s("big_image.tif");
  stringpp::SetExtension(s, "ori");
  EXPECT_EQ(s.str(), "big_image.ori");
  stringpp n(static_cast<const char*>(nullptr));
  EXPECT_TRUE(n.empty());
  s << 12 << "x";
  EXPECT_EQ(s.str(), "big_image.ori12x");
}

}  // namespace
