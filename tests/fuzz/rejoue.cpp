// Replays every file of the folders given on the command line through LLVMFuzzerTestOneInput, so
// that builds without libFuzzer run the committed corpus too.
#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille);

int main(int argc, char** argv) {
  int fichiers = 0;
  for (int i = 1; i < argc; ++i) {
    DIR* dossier = opendir(argv[i]);
    if (!dossier) {
      std::cerr << "rejoue : dossier illisible " << argv[i] << "\n";
      return 1;
    }
    std::vector<std::string> noms;
    while (dirent* e = readdir(dossier))
      if (e->d_name[0] != '.') noms.push_back(std::string(argv[i]) + "/" + e->d_name);
    closedir(dossier);
    std::sort(noms.begin(), noms.end());
    for (const std::string& nom : noms) {
      std::ifstream f(nom, std::ios::binary);
      const std::vector<uint8_t> octets((std::istreambuf_iterator<char>(f)),
                                        std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(octets.data(), octets.size());
      ++fichiers;
    }
  }
  std::cout << "rejoue : " << fichiers << " fichiers\n";
  return fichiers > 0 ? 0 : 1;
}
