// Runs a fuzz target over the files of its corpus: a fault that was found once stays found, with
// any compiler.
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  DIR* corpus = argc == 2 ? opendir(argv[1]) : nullptr;
  if (corpus == nullptr) {
    fprintf(stderr, "usage: fuzz_corpus DIRECTORY\n");
    return 2;
  }
  int inputs = 0;
  while (const dirent* entry = readdir(corpus)) {
    if (entry->d_type != DT_REG) continue;
    std::ifstream file(std::string(argv[1]) + "/" + entry->d_name, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    printf("%s, %zu bytes\n", entry->d_name, bytes.size());
    fflush(stdout);  // tells which one, should it abort
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    inputs++;
  }
  closedir(corpus);
  return inputs > 0 ? 0 : 1;
}
