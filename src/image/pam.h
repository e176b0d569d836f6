// GDAL's side file of an image, NAME.aux.xml: what GDAL keeps beside an image whose format cannot
// hold it (a baseline TIFF and its world file, a file whose no-data was set while it was open
// read-only). GDAL reads it as part of the image, so a GIS user expects the system, the grid and the
// no-data value it holds to count.
#pragma once

#include <string>
#include <vector>

struct AnnexePam {
  std::string fichier;  // the file read; empty when the image has none
  // <GeoTransform>, in GDAL's order: X of the first pixel's outer corner, the X step along a line, the
  // X step down a column, then Y, its step along a line and down a column.
  bool geotransform = false;
  double gt[6] = {0, 0, 0, 0, 0, 0};
  std::string srs;  // the text of <SRS> (WKT, PROJJSON or a PROJ string); empty when absent
  struct NoData {
    int bande = 0;  // from 1
    double valeur = 0;
    std::string texte;
  };
  std::vector<NoData> nodata;  // each <PAMRasterBand> that states one, in file order
};

// Reads image + ".aux.xml" when there is one. A file that is there but cannot be read, larger than
// TailleMaxPam, not well-formed XML, whose root is not <PAMDataset>, or whose <GeoTransform> or
// <NoDataValue> are not numbers, is an Erreur naming it: GDAL would read it, and guessing without it
// could place the image or its no-data wrongly.
AnnexePam LireAnnexePam(const std::string& image);
// The same from the file's bytes; 'fichier' names it in messages.
AnnexePam LireAnnexePam(const std::string& contenu, const std::string& fichier);

// Histograms and attribute tables can make the file large, but not this large.
constexpr size_t TailleMaxPam = size_t(16) << 20;
