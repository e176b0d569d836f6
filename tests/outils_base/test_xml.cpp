// The XML reader and writer: tokens, documents read by path, the written layout and round trips.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <utility>

#include "outils_test.h"
#include "zepra/xml.h"

namespace {

using test::Refuse;

std::vector<std::string> Jetons(const std::string& texte) {
  std::istringstream flux(texte);
  std::vector<std::string> jetons;
  std::string j;
  while (XNodeXML::GetToken(flux, j)) jetons.push_back(j);
  return jetons;
}

bool Analyse(XParserXML& p, const std::string& texte) {
  std::istringstream flux(texte);
  return p.Parse(flux);
}

TEST(XML, JetonsEtLectureParChemins) {
  using V = std::vector<std::string>;
  EXPECT_EQ(Jetons("<Geometrie>eGeomMNTCarto</Geometrie>"),
            (V{"<Geometrie>", "eGeomMNTCarto", "</Geometrie>"}));
  // Space, tab and CR end a word; a line feed does not (it stays in the token); '>' is kept.
  EXPECT_EQ(Jetons("  <a>\t1 2\r3\n4<b>x>y"), (V{"<a>", "1", "2", "3\n4", "<b>", "x>", "y"}));
  EXPECT_EQ(Jetons(" \n\t\r "), V{});

  XParserXML p;
  ASSERT_TRUE(Analyse(
      p,
      "<?xml version=\"1.0\" encoding=\"x\"?>\n<?xml-stylesheet type=\"text/xsl\" href=\"s.xsl\"?>\n"
      "<FileOriMnt>\n<NombrePixels> 100 200 </NombrePixels>\n<Geometrie>\neGeomMNTCarto\n</Geometrie>\n"
      "<Bloc><v>1</v><v>2</v></Bloc><Bloc><v>3</v></Bloc>\n<Vide></Vide>\n"
      "<Vrai>VRAI</Vrai><Faux>FAUX</Faux>\n"
      "<RGB>10,0x10,255</RGB><P2>1.5,-2</P2><P3>1,2,3e2</P3><Neg>-7</Neg><Gros>4294967295</Gros>\n"
      "</FileOriMnt>\n"));
  EXPECT_EQ(p.ReadNode("/FileOriMnt/NombrePixels"), "100 200");     // words joined by one space
  EXPECT_EQ(p.ReadNode("/FileOriMnt/Geometrie"), "eGeomMNTCarto");  // line feeds dropped
  EXPECT_EQ(p.ReadNode("FileOriMnt/Vide"), "");
  // The index counts the matches of the whole path in document order, across parents.
  EXPECT_EQ(p.ReadNode("/FileOriMnt/Bloc/v", 2), "3");
  EXPECT_FALSE(p.FindNode("/FileOriMnt/Bloc/v", 3));
  EXPECT_FALSE(p.FindNode("/Autre/Bloc"));
  std::vector<int> entiers{0};  // appended to
  p.ReadArrayNodeAsInt("/FileOriMnt/Bloc/v", entiers);
  EXPECT_EQ(entiers, (std::vector<int>{0, 1, 2, 3}));

  EXPECT_TRUE(p.ReadNodeAsBool("/FileOriMnt/Vrai") && !p.ReadNodeAsBool("/FileOriMnt/Faux"));
  EXPECT_EQ(p.ReadNodeAsInt("/FileOriMnt/Neg"), -7);
  EXPECT_EQ(p.ReadNodeAsUInt32("/FileOriMnt/Gros"), 4294967295u);
  EXPECT_EQ(p.ReadNodeAsRGB("/FileOriMnt/RGB"), (T3D<unsigned char>(10, 16, 255)));
  EXPECT_EQ(p.ReadNodeAsPoint2D("/FileOriMnt/P2"), (TPoint2D<double>(1.5, -2)));
  EXPECT_EQ(p.ReadNodeAsPoint3D("/FileOriMnt/P3"), (T3D<double>(1, 2, 300)));

  // Sub-parsers are rooted at the match; their paths start with its name.
  EXPECT_EQ(p.FindSubParser("/FileOriMnt/Bloc", 1).ReadNodeAsInt("/Bloc/v"), 3);
  std::vector<XParserXML> tous;
  p.FindAllSubParsers("/FileOriMnt/Bloc", tous);
  EXPECT_TRUE(tous.size() == 2 && tous[0].ReadNode("/Bloc/v", 1) == "2" && !tous[1].FindNode("/Bloc/v", 1));
}

// Values missing or unreadable, texts or paths that could not be written and read back, and
// documents that are not whole.
TEST(XML, RefusEnLectureEtEcriture) {
  XParserXML p;
  ASSERT_TRUE(
      Analyse(p,
              "<R><Autre>oui</Autre><Neg>-7</Neg><Texte>12abc</Texte><Gros>2147483648</Gros><Inf>inf</Inf>"
              "<RGB>1,2,256</RGB><P2>1;2</P2></R>"));
  std::vector<int> v;
  const std::pair<std::function<void()>, const char*> cas[] = {
      {[&] { p.ReadNode("/R/Absent"); }, "[XParserXML] (ReadNode) Noeud /R/Absent (index 0) absent"},
      {[&] { p.ReadNodeAsBool("/R/Autre"); }, "[XParserXML] (ReadNodeAsBool) Texte 'oui' du noeud /R/Autre"},
      {[&] { p.ReadNodeAsInt("/R/Texte"); }, "[XParserXML] (ReadNodeAsInt) Texte '12abc'"},
      {[&] { p.ReadNodeAsInt("/R/Gros"); }, "[XParserXML] (ReadNodeAsInt) Texte '2147483648'"},
      {[&] { p.ReadNodeAsUInt32("/R/Neg"); }, "[XParserXML] (ReadNodeAsUInt32) Texte '-7'"},
      {[&] { p.ReadNodeAsDouble("/R/Inf"); }, "[XParserXML] (ReadNodeAsDouble) Texte 'inf'"},
      {[&] { p.ReadNodeAsRGB("/R/RGB"); }, "[XParserXML] (ReadNodeAsRGB) Texte '1,2,256'"},
      {[&] { p.ReadNodeAsPoint2D("/R/P2"); }, "[XParserXML] (ReadNodeAsPoint2D) Texte '1;2'"},
      {[&] { p.FindSubParser("/R/Absent"); }, "[XParserXML] (FindSubParser) Noeud /R/Absent"},
      {[&] { p.ReadArrayNodeAsInt("/R/Texte", v); }, "[XParserXML] (ReadArrayNodeAsInt) Texte '12abc'"},
      {[&] { p.WriteNode("/R/X", "a<b"); }, "[XNodeXML] (WriteNode) Texte 'a<b'"},
      {[&] { p.WriteNode("/Autre/X", "1"); }, "[XNodeXML] (WriteNode) Le chemin /Autre/X ne part pas"},
      {[&] { p.WriteNode("/R/X", "1", 2); }, "[XNodeXML] (WriteNode) Index 2"},
      {[&] { p.WriteNode("/R/a b", "1"); }, "[XNodeXML] (WriteNode) Nom d'element invalide"},
  };
  for (const auto& c : cas) Refuse(c.first, c.second);

  std::string profond;  // deep nesting is refused before it can exhaust the stack
  for (int i = 0; i <= XNodeXML::ProfondeurMax; ++i) profond = "<n>" + profond + "</n>";
  const std::string mauvais[] = {
      "<?xml version=\"1.0\"?>",  // declaration only
      "<?xml version=\"1.0\"",    // unterminated declaration
      "<a><b>1</b>",              // missing closing tag
      "<a><b>1</a></b>",          // crossed (wrong closing) tags
      "<a></a> reste",            // text (or a second root) after the root
      "<a x=\"1\"></a>",          // attribute
      "<a><b/></a>",              // empty-element tag
      "<a><!-- c --></a>",        // comment
      profond,
  };
  for (const std::string& m : mauvais) {
    XParserXML q;
    EXPECT_FALSE(Analyse(q, m) || q.FindNode("/a")) << m;  // and nothing is kept
  }
  EXPECT_FALSE(XParserXML().Parse("/dossier/absent/x.xml"));
}

TEST(XML, EcritureDansLaMiseEnPageExacteEtRelecture) {
  XParserXML p;
  p.WriteNode("/FileOriMnt/Geometrie", "eGeomMNTCarto");
  p.WriteNode("/FileOriMnt/Plani/Origine", "  651234.567   2250000\t");  // stored as read back
  p.WriteNode("/FileOriMnt/Plani/Origine", "1 2", 1);                    // a second one
  p.WriteNode("/FileOriMnt/Geometrie", "eGeomMNTEuclid");                // replaces the text
  // Written to a file (complete or absent) in the exact layout; parsed and written again, the same.
  test::DossierTemp d;
  const std::string f = d / "doc.xml";
  p.Write(f, "style.xsl");
  EXPECT_EQ(test::LireFichier(f),
            "<?xml version=\"1.0\"?>\n<?xml-stylesheet type=\"text/xsl\" href=\"style.xsl\"?>\n<FileOriMnt>\n"
            "<Geometrie> eGeomMNTEuclid </Geometrie>\n<Plani>\n<Origine> 651234.567 2250000 </Origine>\n"
            "<Origine> 1 2 </Origine>\n</Plani>\n</FileOriMnt>\n");
  XParserXML relu;
  ASSERT_TRUE(relu.Parse(f));
  relu.Write(d / "relu.xml", "style.xsl");
  EXPECT_EQ(test::LireFichier(d / "relu.xml"), test::LireFichier(f));

  // Refused writes leave no file.
  Refuse([&] { XParserXML().Write(d / "vide.xml"); }, "[XParserXML] (Write) Document sans element racine");
  Refuse([&] { p.Write(d / "absent/doc.xml"); }, "[XParserXML] (Write)");
  EXPECT_EQ(test::Lancer(d.chemin(), "ls").sortie, "doc.xml\nrelu.xml\n");
}

}  // namespace
