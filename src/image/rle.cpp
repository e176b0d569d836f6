// RLE reader and writer.
#include "handlers.h"

// Declines every file until the format is written.
std::unique_ptr<SpecifImageIn> CreateReader_RLE(const std::string&) { return nullptr; }
std::unique_ptr<EcrivainImage> CreateWriter_RLE(const std::string&, const ImageInfos&) { return nullptr; }
