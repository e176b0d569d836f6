// The orientation factory: the file beside an image, its kind, the models this tool refuses, copies.
#include <gtest/gtest.h>

#include "outils_orientation.h"
#include "outils_test.h"
#include "zepra/autresorientations.h"
#include "zepra/cartoproj.h"
#include "zepra/orientation.h"

namespace {

using test::Refuse;

const char* const CartoA = "CARTO\n1000 2000\n0\n10 20\n1000 1000\n";  // X origin 1
const char* const CartoB = "CARTO\n2000 2000\n0\n10 20\n1000 1000\n";  // X origin 2
const char* const XmlEuclid =
    "<FileOriMnt><Geometrie>eGeomMNTEuclid</Geometrie><NombrePixels>10 20</NombrePixels><OriginePlani>3 2"
    "</OriginePlani><ResolutionPlani>1 -1</ResolutionPlani><NumZoneLambert>0</NumZoneLambert></FileOriMnt>";
const char* const Hdr =
    "MAPUNITS\nNCOLS 10\nNROWS 20\nULXMAP 4 ,\nULYMAP 2 ,\nXDIM 1 ,\nYDIM 1 ,\n";  // X 4.5

TEST(FabriqueOrientation, FichierTrouveEtReconnuParTable) {
  struct Fichier {
    const char* nom;
    const char* contenu;
  };
  struct Cas {
    std::vector<Fichier> fichiers;
    double xOrigine;    // the carto orientation read, or
    const char* refus;  // the beginning of the refusal
    const char* fragment;
  };
  const Cas cas[] = {
      {{{"a.ori", CartoA}}, 1, nullptr, nullptr},
      {{{"a.ORI", CartoA}}, 1, nullptr, nullptr},
      {{{"a.Ori", CartoA}}, 1, nullptr, nullptr},
      {{{"a.xml", XmlEuclid}}, 3, nullptr, nullptr},
      {{{"a.XML", XmlEuclid}}, 3, nullptr, nullptr},
      {{{"a.Hdr", Hdr}}, 4.5, nullptr, nullptr},
      {{{"a.HDR", Hdr}}, 4.5, nullptr, nullptr},
      // The first candidate in order wins.
      {{{"a.xml", XmlEuclid}, {"a.ori", CartoA}}, 1, nullptr, nullptr},
      {{{"a.hdr", Hdr}, {"a.Xml", XmlEuclid}}, 3, nullptr, nullptr},
      {{{"a.ORI", CartoB}, {"a.ori", CartoA}}, 1, nullptr, nullptr},
      // Other extensions are not candidates.
      {{{"a.txt", CartoA}, {"a.tfw", "1\n0\n0\n-1\n0\n0\n"}},
       0,
       "ImageOrientation : fichier d'orientation introuvable pour ",
       "a.tif"},
      {{{"a.xml", "<FileOriMnt><Geometrie>eGeomMNTFaisceau</Geometrie></FileOriMnt>"}},
       0,
       "la geometrie eGeomMNTFaisceau n'est pas implémentée.",
       "a.xml"},
      {{{"a.xml", "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie>"}},
       0,
       "ImageOrientation : impossible de parser le fichier orientation ",
       "a.xml"},
      {{{"a.xml", "<Autre></Autre>"}}, 0, "[XParserXML] (ReadNode) Noeud /FileOriMnt/Geometrie", "a.xml"},
      {{{"a.ori", "VERSION 2\n"}},
       0,
       "GrilleProjOrientation : le modele d'orientation grille",
       "n'est pas supporte"},
      {{{"a.ori", "<?xml version=\"1.0\"?>\n<Grille/>"}}, 0, "GrilleProjOrientation : le modele", nullptr},
      {{{"a.ori", "TEXT\n1 2 3\n"}}, 0, "ConicProjOrientation : le modele d'orientation conique", nullptr},
      {{{"a.ori", "FOO\n"}},
       0,
       "ConicProjOrientation : lecture d'un .ORI qui ne commence pas par TEXT",
       "FOO"},
      {{{"a.ori", ""}}, 0, "ConicProjOrientation : lecture d'un .ORI qui ne commence pas par TEXT", nullptr},
      {{{"a.ori", "AXONO\n"}}, 0, "AxonoProjOrientation : le modele d'orientation axonometrique", nullptr},
      {{{"a.ori", "SCAN\n"}}, 0, "ScanProjOrientation : le modele d'orientation scan", nullptr},
      {{{"a.ori", "SPHERIC\n"}}, 0, "SphericOrientation : le modele d'orientation spherique", nullptr},
      {{{"a.hdr", "garbage\n"}},
       0,
       "CartoProjOrientation : fichier",
       "de format inconnu (premier mot 'garbage'"},
      {{{"a.ori", "CARTO\n1 2\n"}}, 0, "CartoProjOrientation : fichier CARTO", "tronque"},
  };
  for (const Cas& c : cas) {
    test::DossierTemp d;
    std::string trace;
    for (const Fichier& f : c.fichiers) {
      test::Ecrire(d / f.nom, f.contenu);
      trace += std::string(f.nom) + " ";
    }
    SCOPED_TRACE(trace);
    const std::string image = d / "a.tif";
    if (c.refus) {
      Refuse([&] { ImageOrientation::CreateImageOrientation(image.c_str()); }, c.refus,
             {c.fragment ? c.fragment : ""});
      continue;
    }
    std::unique_ptr<ImageOrientation> o = ImageOrientation::CreateImageOrientation(image.c_str());
    ASSERT_EQ(o->GetOriType(), eORICarto);
    auto* carto = dynamic_cast<CartoProjOrientation*>(o.get());
    ASSERT_NE(carto, nullptr);
    EXPECT_EQ(carto->GetXOrigine(), c.xOrigine);
    EXPECT_EQ(carto->GetNs(), 10);
    EXPECT_EQ(carto->GetNl(), 20);
  }
}

TEST(FabriqueOrientation, ParTypeEtRefusDesAutresModeles) {
  test::DossierTemp d;
  test::Ecrire(d / "c.ori", CartoA);
  EXPECT_EQ(ImageOrientation::CreateImageOrientation((d / "c.ori").c_str(), eORICarto)->GetNs(), 10);
  struct Cas {
    eORIProjType type;
    const char* debut;
  };
  // A carto file read as another model: refused by that model's own reader.
  const Cas cas[] = {
      {eORIConic, "ConicProjOrientation : lecture d'un .ORI qui ne commence pas par TEXT"},
      {eORIAxono, "Lecture en AXONO d'un .ORI qui n'en est pas AXONO !!!"},
      {eORIScan, "ScanProjOrientation : lecture d'un .ORI qui ne commence pas par SCAN"},
      {eORISpheric, "SphericOrientation : lecture d'un .ORI qui ne commence pas par SPHERIC"},
      {eORIGrille,
       "GrilleProjOrientation : lecture d'un fichier qui ne commence ni par VERSION ni par <?xml"},
      {eORINone, "CreateImageOrientation : type de projection non reconnu"},
      {static_cast<eORIProjType>(7), "CreateImageOrientation : type de projection non reconnu"},
  };
  for (const Cas& c : cas)
    Refuse([&] { ImageOrientation::CreateImageOrientation((d / "c.ori").c_str(), c.type); }, c.debut,
           {c.type >= 2 && c.type <= 6 ? "c.ori" : ""});
  Refuse([&] { ImageOrientation::CreateImageOrientation((d / "absent.ori").c_str(), eORIScan); },
         "ScanProjOrientation : probleme d'ouverture du fichier");
}

TEST(FabriqueOrientation, MakeCopyGardeClasseEtType) {
  const auto carto = ImageOrientation::CreateCartoProjOrientation(10, 20, 0, 30, 40, 1, 1);
  const auto& c = static_cast<const CartoProjOrientation&>(*carto);
  struct Cas {
    eORIProjType type;
    const char* messageCopie;  // a copy constructor given another type
  };
  const Cas cas[] = {
      {eORICarto, "CartoProj : Constructeur par copie appele avec un autre type"},
      {eORIConic, "ConicProj : constructeur par copie appele avec un autre type"},
      {eORIAxono, "AxonoProj : Constructeur par copie appele avec un autre type"},
      {eORIScan, "ScanProj : constructeur par copie appele avec un autre type"},
      {eORISpheric, "Spheric : Constructeur par copie appele avec un autre type"},
      {eORIGrille, "GrilleProj : Constructeur par copie appele avec un autre type"},
  };
  for (const Cas& k : cas) {
    SCOPED_TRACE(k.type);
    const test::OrientationDeguisee source(c, k.type);
    std::unique_ptr<ImageOrientation> copie = ImageOrientation::MakeCopy(&source);
    std::unique_ptr<ImageOrientation> copie2 = ImageOrientation::MakeCopy(copie.get());
    for (const ImageOrientation* o : {copie.get(), copie2.get()}) {
      EXPECT_EQ(o->GetOriType(), k.type);
      EXPECT_EQ(o->GetNs(), 30);
      EXPECT_EQ(o->GetNl(), 40);
      EXPECT_EQ(typeid(*o), typeid(*copie2));
    }
    switch (k.type) {
      case eORICarto:
        EXPECT_NE(dynamic_cast<CartoProjOrientation*>(copie2.get()), nullptr);
        break;
      case eORIConic:
        EXPECT_NE(dynamic_cast<ConicProjOrientation*>(copie2.get()), nullptr);
        break;
      case eORIAxono:
        EXPECT_NE(dynamic_cast<AxonoProjOrientation*>(copie2.get()), nullptr);
        break;
      case eORIScan:
        EXPECT_NE(dynamic_cast<ScanProjOrientation*>(copie2.get()), nullptr);
        break;
      case eORISpheric:
        EXPECT_NE(dynamic_cast<SphericOrientation*>(copie2.get()), nullptr);
        break;
      default:
        EXPECT_NE(dynamic_cast<GrilleProjOrientation*>(copie2.get()), nullptr);
    }
    // The copy constructor of each class refuses another type.
    const test::OrientationDeguisee autre(c, k.type == eORICarto ? eORIGrille : eORICarto);
    Refuse(
        [&] {
          switch (k.type) {
            case eORICarto:
              CartoProjOrientation{static_cast<const ImageOrientation&>(autre)};
              break;
            case eORIConic:
              ConicProjOrientation{autre};
              break;
            case eORIAxono:
              AxonoProjOrientation{autre};
              break;
            case eORIScan:
              ScanProjOrientation{autre};
              break;
            case eORISpheric:
              SphericOrientation{autre};
              break;
            default:
              GrilleProjOrientation{autre};
          }
        },
        k.messageCopie);
  }
  Refuse([&] { ImageOrientation::MakeCopy(nullptr); }, "MakeCopy : pas d'orientation");
  const test::OrientationDeguisee inconnue(c, static_cast<eORIProjType>(9));
  Refuse([&] { ImageOrientation::MakeCopy(&inconnue); }, "MakeCopy : type de projection non reconnu");
}

TEST(FabriqueOrientation, ModelesNonSupportesRefusentLeurGeometrie) {
  const auto carto = ImageOrientation::CreateCartoProjOrientation(10, 20, 0, 30, 40, 1, 1);
  const auto& c = static_cast<const CartoProjOrientation&>(*carto);
  const test::OrientationDeguisee deguiseeConique(c, eORIConic), deguiseeAxono(c, eORIAxono);
  const auto conique = ImageOrientation::MakeCopy(&deguiseeConique);
  double x, y, z, v[3];
  Refuse(
      [&] { conique->PhotoToMap(1, 2, x, y, z); },
      "ConicProjOrientation : PhotoToMap : le modele d'orientation conique n'est pas supporte par cet outil");
  Refuse([&] { conique->Extract(0, 0, 1, 1, 1, 1); }, "ConicProjOrientation : Extract");
  Refuse([&] { conique->Dump("x.ori", 1); }, "ConicProjOrientation : Dump");
  EXPECT_FALSE(conique->CanBeMappedTo(c));
  EXPECT_FALSE(c.CanBeMappedTo(*conique));
  Refuse([&] { conique->TransformationGrid(c); }, "ImageOrientation : la projection ne peut etre mappee");

  // The axonometric model's own refusals.
  const auto axono = ImageOrientation::MakeCopy(&deguiseeAxono);
  int i;
  Refuse([&] { axono->Dump("x.ori", 0); }, "Pas de sauvegarde binaire pour les projections AXONO");
  Refuse([&] { axono->Extract(0, 0, 1, 1, 1, 2); },
         "AxonoProjOrientation : Extract : les pas horizontaux et verticaux sont differents");
  Refuse([&] { axono->Extract(0, 0, 1, 1, 2, 2); }, "AxonoProjOrientation : Extract : le modele");
  Refuse([&] { axono->GetSolarVector(v); }, "Pas de vecteur solaire en projection axonometrique");
  Refuse([&] { axono->GetFocale(); }, "Pas de focale en projection axonometrique");
  Refuse([&] { axono->SetTime(1, 1, 1, 1, 1, 1); },
         "Pas d'heure de prise de vue en projection axonometrique");
  Refuse([&] { axono->GetTime(i, i, i, i, i, i); },
         "Pas d'heure de prise de vue en projection axonometrique");
  Refuse([&] { axono->TransposeImage(); }, "Pas de transposition pour une orientation AXONO");

  // Its zone checks: the carto rule with its own texts.
  struct Zone {
    int zone;
    double y;
    const char* refus;
    double attendu;
  };
  const Zone zones[] = {{-2, 0, "Zone Lambert negative", 0},     {5, 0, "Zone Lambert > 4", 0},
                        {3, 2200000, "Zone Lambert absurde", 0}, {2, 1400000, "Zone Lambert absurde", 0},
                        {2, 250000, nullptr, 2250000},           {1, 1500000, nullptr, 1500000},
                        {0, 7000000, nullptr, 7000000}};
  for (const Zone& zo : zones) {
    double yy = zo.y;
    if (zo.refus) {
      Refuse([&] { AxonoProjOrientation::VerifieZone(zo.zone, yy); }, zo.refus);
    } else {
      AxonoProjOrientation::VerifieZone(zo.zone, yy);
      EXPECT_EQ(yy, zo.attendu);
    }
  }
}

}  // namespace
