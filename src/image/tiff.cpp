// TIFF reader and writer.
#include "handlers.h"

// Declines every file until the format is written.
std::unique_ptr<SpecifImageIn> CreateReader_TIFF(const std::string&) { return nullptr; }
std::unique_ptr<EcrivainImage> CreateWriter_TIFF(const std::string&, const ImageInfos&) { return nullptr; }
