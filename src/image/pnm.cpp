// PNM (binary P5 / P6) reader and writer.
#include "handlers.h"

// Declines every file until the format is written.
std::unique_ptr<SpecifImageIn> CreateReader_PNM(const std::string&) { return nullptr; }
std::unique_ptr<EcrivainImage> CreateWriter_PNM(const std::string&, const ImageInfos&) { return nullptr; }
