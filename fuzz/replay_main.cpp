// Runs a fuzz target over every file of the folders given, so that the
// corpus is replayed as a regression test in ordinary (and sanitizer)
// builds without the fuzzing engine.
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
  size_t runs = 0;
  for (int i = 1; i < argc; ++i) {
    DIR *dir = opendir(argv[i]);
    if (!dir) {
      fprintf(stderr, "cannot open corpus %s\n", argv[i]);
      return 1;
    }
    while (dirent *e = readdir(dir)) {
      if (e->d_name[0] == '.') continue;
      std::ifstream in(std::string(argv[i]) + "/" + e->d_name, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++runs;
    }
    closedir(dir);
  }
  printf("replayed %zu inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
