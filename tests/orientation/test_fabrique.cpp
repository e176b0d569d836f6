// The orientation factory: the file beside an image, its kind, copies, and what each model refuses.
#include <cmath>
#include <cstdio>
#include <functional>
#include <typeinfo>

#include "outils_orientation.h"

namespace {

using test::Refuse;

// The nine candidates, the i-th with 10 + i columns: it is found once those before it are gone.
TEST(FabriqueOrientation, NeufCandidatsDansLOrdre) {
  const char* const ext[] = {".ori", ".ORI", ".Ori", ".xml", ".XML", ".Xml", ".hdr", ".HDR", ".Hdr"};
  test::DossierTemp d;
  for (int i = 0; i < 9; ++i) {
    const std::string n = std::to_string(10 + i), geometrie = i == 5 ? "Euclid" : "Carto";
    test::EcrireFichier(d / "a" + ext[i],
                        i < 3 ? "CARTO\n0 0\n0\n" + n + " 20\n1 1\n"
                        : i < 6
                            ? "<FileOriMnt><Geometrie>eGeomMNT" + geometrie + "</Geometrie><NombrePixels>" +
                                  n + " 20</NombrePixels><ResolutionPlani>1 -1</ResolutionPlani></FileOriMnt>"
                            : "MAPUNITS XDIM 1 , YDIM 1 , NROWS 20 NCOLS " + n);
  }
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(ImageOrientation::CreateImageOrientation((d / "a.tif").c_str())->GetNs(), 10 + i) << ext[i];
    std::remove((d / "a" + ext[i]).c_str());
  }
  Refuse([&] { ImageOrientation::CreateImageOrientation((d / "a.tif").c_str()); },
         "ImageOrientation : fichier d'orientation introuvable pour ", {"a.tif"});
}

// The kind told by the first word of a .ori or the geometry of a .xml, or given by its type code.
TEST(FabriqueOrientation, GenreReconnuOuRefuseParTable) {
  const std::tuple<const char*, const char*, const char*> cas[] = {
      {"a.xml", "<FileOriMnt><Geometrie>eGeomMNTFaisceau</Geometrie></FileOriMnt>",
       "la geometrie eGeomMNTFaisceau n'est pas implémentée."},
      {"a.xml", "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie>",
       "ImageOrientation : impossible de parser le fichier orientation "},
      {"a.ori", "VERSION 2\n", "GrilleProjOrientation : le modele d'orientation grille"},
      {"a.ori", "<?xml version=\"1.0\"?>\n<Grille/>",
       "GrilleProjOrientation : le modele d'orientation grille"},
      {"a.ori", "TEXT\n1 2 3\n", "ConicProjOrientation : le modele d'orientation conique"},
      {"a.ori", "FOO\n",
       "ConicProjOrientation : lecture d'un .ORI qui ne commence pas par TEXT (premier mot 'FOO'"},
      {"a.ori", "AXONO\n", "AxonoProjOrientation : le modele d'orientation axonometrique"},
      {"a.ori", "SCAN\n", "ScanProjOrientation : le modele d'orientation scan"},
      {"a.ori", "SPHERIC\n", "SphericOrientation : le modele d'orientation spherique"},
      {"a.hdr", "garbage\n", "CartoProjOrientation : fichier"},
  };
  for (const auto& [nom, contenu, debut] : cas) {
    test::DossierTemp d;
    test::EcrireFichier(d / nom, contenu);
    Refuse([&] { ImageOrientation::CreateImageOrientation((d / "a.tif").c_str()); }, debut, {d / nom});
  }
  // A carto file read as another model: refused by that model's reader (the same code for every model).
  test::DossierTemp d;
  const std::string f = d / "c.ori";
  test::EcrireFichier(f, "CARTO\n1000 2000\n0\n10 20\n1000 1000\n");
  EXPECT_EQ(ImageOrientation::CreateImageOrientation(f.c_str(), eORICarto)->GetNs(), 10);
  Refuse([&] { ImageOrientation::CreateImageOrientation(f.c_str(), eORIAxono); },
         "Lecture en AXONO d'un .ORI qui n'en est pas AXONO !!!");
  Refuse([&] { ImageOrientation::CreateImageOrientation(f.c_str(), eORINone); },
         "CreateImageOrientation : type de projection non reconnu");
}

// MakeCopy, and the copy of a copy, give the class of the type code; that class's constructor refuses
// a source of another type.
template <class C>
void Copie(eORIProjType type, const char* messageCopie) {
  SCOPED_TRACE(type);
  const test::OrientationDeguisee source(type), autre(type == eORICarto ? eORIGrille : eORICarto);
  const std::unique_ptr<ImageOrientation> copie = ImageOrientation::MakeCopy(&source),
                                          copie2 = ImageOrientation::MakeCopy(copie.get());
  for (const ImageOrientation* o : {copie.get(), copie2.get()})
    EXPECT_TRUE(typeid(*o) == typeid(C) && o->GetOriType() == type && o->GetNs() == 30 && o->GetNl() == 40);
  Refuse([&] { C{static_cast<const ImageOrientation&>(autre)}; }, messageCopie);
}

TEST(FabriqueOrientation, MakeCopyGardeClasseEtType) {
  Copie<CartoProjOrientation>(eORICarto, "CartoProj : Constructeur par copie appele avec un autre type");
  Copie<ConicProjOrientation>(eORIConic, "ConicProj : constructeur par copie appele avec un autre type");
  Copie<AxonoProjOrientation>(eORIAxono, "AxonoProj : Constructeur par copie appele avec un autre type");
  Copie<ScanProjOrientation>(eORIScan, "ScanProj : constructeur par copie appele avec un autre type");
  Copie<SphericOrientation>(eORISpheric, "Spheric : Constructeur par copie appele avec un autre type");
  Copie<GrilleProjOrientation>(eORIGrille, "GrilleProj : Constructeur par copie appele avec un autre type");
  Refuse([] { ImageOrientation::MakeCopy(nullptr); }, "MakeCopy : pas d'orientation");
  const test::OrientationDeguisee inconnue(static_cast<eORIProjType>(9));
  Refuse([&] { ImageOrientation::MakeCopy(&inconnue); }, "MakeCopy : type de projection non reconnu");
}

// What a map projection has not (camera, sun, time), and the geometry of the models this tool does
// not support, each refused with its own text (the axonometric model's own where it has one).
TEST(FabriqueOrientation, OperationsSansObjetRefuseesParTable) {
  const auto carto = test::Carto(0, 0, 0, 1, 1, 1, 1);
  const test::OrientationDeguisee deguiseeConique(eORIConic), deguiseeAxono(eORIAxono);
  const auto conique = ImageOrientation::MakeCopy(&deguiseeConique),
             axono = ImageOrientation::MakeCopy(&deguiseeAxono);
  double x, v[3];
  int i;
  // Each text once where several operations share it.
  const std::pair<std::function<void()>, const char*> cas[] = {
      {[&] { carto->GetSolarVector(v); }, "Pas de vecteur solaire en projection carto."},
      {[&] { carto->GetSolarVector(v, 2020, 6, 21, 12, 0); }, "Pas de vecteur solaire en projection carto ("},
      {[&] { carto->SetProjCenter(T3D<double>()); }, "CartoProj : Sommet non defini."},
      {[&] { carto->GetPrincipalPoint(); }, "CartoProj : Point principal non defini."},
      {[&] { carto->GetLocalOrigin(); }, "CartoProj : Origine Locale no definie."},
      {[&] { carto->GetViewingAxis(v, v, v); }, "CartoProj : Pas d'axe principal."},
      {[&] { carto->SetFocale(1); }, "Pas de focale en projection carto"},
      {[&] { carto->GetTime(i, i, i, i, i, i); }, "Pas d'heure de prise de vue en projection carto."},
      {[&] { carto->TransposeImage(); }, "Pas de transposition pour une orientation CARTO"},
      {[&] { carto->SetNs(0); }, "CartoProjOrientation : SetNs"},
      {[&] { carto->SetPixSize(1, 0); }, "CartoProjOrientation : SetPixSize"},
      {[&] { carto->SetZoneLambert(7); }, "Lecture ORI : Zone Lambert > 4"},
      {[] { test::Carto(NAN, 0, 0, 1, 1, 1, 1); }, "CartoProjOrientation : origine (nan, 0)"},
      {[&] { conique->PhotoToMap(1, 2, x, x, x); }, "ConicProjOrientation : PhotoToMap : le modele"},
      {[&] { conique->TransformationGrid(*carto); }, "ImageOrientation : la projection ne peut etre mappee"},
      {[&] { axono->Dump("x.ori", 0); }, "Pas de sauvegarde binaire pour les projections AXONO"},
      {[&] { axono->Extract(0, 0, 1, 1, 1, 2); },
       "AxonoProjOrientation : Extract : les pas horizontaux et verticaux sont differents"},
  };
  for (const auto& c : cas) Refuse(c.first, c.second);
  // Without distortion the distortion is the identity; the others are not known to this tool.
  double c = 1, l = 2;
  carto->ApplyDistortionGroundToPhoto(c, l);
  EXPECT_EQ(c, 1);
  carto->SetDistortionPolynome(1, 2, 3, 4, 5);
  Refuse([&] { carto->ApplyDistortionGroundToPhoto(c, l); },
         "[ImageOrientation] (ApplyDistortionGroundToPhoto)");
}

}  // namespace
