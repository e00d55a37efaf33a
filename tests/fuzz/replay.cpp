// Runs a fuzz target over files without the fuzzing engine: every file
// named, and every file in a directory named. The normal and the sanitizer
// builds use this to replay the seed corpora and the saved findings.
#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "../scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {
int replay(const std::filesystem::path& p) {
  if (!std::ifstream(p)) return fprintf(stderr, "cannot read %s\n", p.c_str()), 1;
  const std::string bytes = read_text(p);
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return 0;
}
}  // namespace

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  int files = 0, failed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path p(argv[i]);
    if (std::filesystem::is_directory(p)) {
      std::vector<std::filesystem::path> names;
      for (const auto& e : std::filesystem::directory_iterator(p))
        if (e.is_regular_file()) names.push_back(e.path());
      std::sort(names.begin(), names.end());
      for (const auto& n : names) failed += replay(n), ++files;
    } else {
      failed += replay(p), ++files;
    }
  }
  printf("replayed %d inputs\n", files);
  return failed || files == 0 ? 1 : 0;
}
