// A whole stimulus file: read into blocks, then every block built as the
// program builds it before the block runs.
#include "engine/stimuli.h"
#include "registry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::registry();
  FILE* f = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (!f) return 0;
  stimfile_read(f, "fuzz.s");
  fclose(f);
  for (int b = 0; b < stimfile_anzahl(); ++b) {
    std::vector<char*> lines;
    for (int i = 0; i < stimfile_index(b); ++i) lines.push_back(const_cast<char*>(stimfile_lines(b, i)));
    int err = 0;
    stimuli block(static_cast<int>(lines.size()), lines.data(), err);
  }
  stimfile_done();
  return 0;
}
