// Formats registered under their keys whose layout this library does not describe: each factory
// declines every file, so that the registry moves on to the next reader.
#include "handlers.h"

std::unique_ptr<SpecifImageIn> CreateReader_TKORTHO(const std::string&) { return nullptr; }
std::unique_ptr<SpecifImageIn> CreateReader_IMG(const std::string&) { return nullptr; }
std::unique_ptr<SpecifImageIn> CreateReader_MOS(const std::string&) { return nullptr; }
std::unique_ptr<SpecifImageIn> CreateReader_THM(const std::string&) { return nullptr; }
std::unique_ptr<EcrivainImage> CreateWriter_IMG(const std::string&, const ImageInfos&) { return nullptr; }
