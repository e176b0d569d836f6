// Coordinate reference systems through PROJ: the GeoTIFF keys of an EPSG code, the keys of a file
// made fit to be written again, and whether two systems are the same. Each call opens its own PROJ
// context, so these functions may be called from several threads.
#pragma once

#include <string>

#include "zepra/metadonnees.h"

// The GeoKey directory and its double and ASCII parameters for an EPSG code, as GDAL writes them:
// GTModelType, GTRasterType pixel-is-area, the citations, then ProjectedCSType and the linear unit for
// a projected system, or GeographicType, the angular unit and the ellipsoid for a geographic one.
// An Erreur for a code PROJ does not know, or that is neither projected nor geographic 2D.
SystemeReference CrsDepuisEpsg(int code);

// The system of a file made fit to be written beside a tiepoint on the corner of the first pixel:
// its keys copied with GTRasterType set to pixel-is-area (added when absent); a system known only by
// an EPSG code or a .prj text gets the keys of the EPSG code PROJ identifies it with. Without keys
// to write (an unknown system, or a .prj text PROJ cannot tie to a code) the result has no keys.
// Keys whose counts or indices do not fit their parameters are an Erreur.
SystemeReference CrsPourEcriture(const SystemeReference& lu);

enum class EgaliteCrs { kMeme, kDifferent, kIndecidable };

// Whether two systems are the same: identical keys, or equivalent for PROJ (axis order of geographic
// systems aside, as GeoTIFF and world files put longitude first). kIndecidable when either is unknown
// or holds user-defined keys that PROJ cannot be given.
EgaliteCrs ComparerCrs(const SystemeReference& a, const SystemeReference& b);

// A short name for messages: "EPSG:2154", else the citation, else "inconnu".
std::string DecrireCrs(const SystemeReference& s);
