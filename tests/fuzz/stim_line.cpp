// One stimulus-file line: the attribute tokeniser and the set() of every
// stimulus type, then the stimulus prepared for a 640 x 480 memory screen
// as before a block. The first byte picks the type word, so each type gets
// its share of the inputs; the rest is the attribute text. The scratch
// directory holds "a.bmp", "a.wav" and a film "a.fli".
#include <memory>

#include "engine/stim.h"
#include "registry.h"

namespace {
const char* const kTypes[] = {"bmp",   "emf",   "sbmp",  "vbmp",  "semf", "word", "image", "wav",   "swav",
                              "sound", "back",  "instr", "info",  "null", "pause", "fli",  "sfli",  "stift",
                              "led",   "film",  "reak",  "shape", "clock", "cbmp", "cwav", "cled",  "cstift",
                              "wheel", "prep",  "arrow"};
const size_t kCount = sizeof kTypes / sizeof kTypes[0];

void start() {
  static const bool done = (fuzz::assets(), set_color_depth(16), screen = create_bitmap(640, 480), fuzz::registry(), true);
  (void)done;
}

// Every query a block makes of a stimulus before it shows anything.
void query(const stim& s) {
  // Summed without overflow: the values are the lab's, of any size.
  volatile unsigned long sink = 0;
  for (long v : {s.pstime(), s.showtime(), s.fadetime(), s.hidetime(), s.minreak(), s.maxreak()})
    sink = sink + static_cast<unsigned long>(v);
  sink = sink + static_cast<unsigned long>(s.with_trigger() + s.with_reaktion());
  s.info();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  start();
  if (size == 0) return 0;
  const std::string attributes = fuzz::text(data + 1, size - 1);
  if (data[0] % (kCount + 1) == kCount) {
    // The base alone: the tokeniser, then one token offered directly.
    int err = 0;
    stim s(attributes.c_str(), err);
    s.set(attributes.c_str());
    query(s);
    return 0;
  }
  const std::string line = std::string(kTypes[data[0] % (kCount + 1)]) + " " + attributes;
  std::unique_ptr<stim> s(_stimulus(line.c_str()));
  if (s) {
    s->set(attributes.c_str());
    query(*s);
    if (s->prepare() == 0) s->cleanup();
  }
  return 0;
}
