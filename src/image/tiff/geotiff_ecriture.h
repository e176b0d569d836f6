// The GeoTIFF and GDAL tags of a file we write: ModelPixelScale, ModelTiepoint (the corner of the
// first pixel, pixel-is-area), the GeoKey directory with its double and ASCII parameters, and the
// GDAL no-data tag. Values in host byte order, as TagTIFF holds them. Private to src/image.
#pragma once

#include <vector>

#include "zepra/metadonnees.h"
#include "zepra/optionsecriture.h"

namespace tiff {

constexpr uint16_t kTagModelPixelScale = 33550, kTagModelTiepoint = 33922, kTagGdalNodata = 42113;

// The georeferencing tags: none without a grid; the grid without keys when the system is unknown and
// no EPSG code is given. A code given for a grid whose system is known must name the same system.
// 'nom' names the file in the messages.
std::vector<TagTIFF> TagsGeoTIFF(const GeoreferenceEcriture& g, int epsg, const std::string& nom);

// The GDAL no-data tag, its text as GDAL writes it.
TagTIFF TagNodata(double nodata);

}  // namespace tiff
