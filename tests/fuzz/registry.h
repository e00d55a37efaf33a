// The stimulus types as the program registers them, with a dictionary in
// the scratch directory; once per process.
#pragma once
#include "driver/ixmod.h"
#include "engine/stimfile.h"
#include "fuzz_support.h"

namespace fuzz {
inline void registry() {
  static const bool done = [] {
    if (stimuli_init(write("en.dict", "Please release the key.\nInterrupted.\n").c_str()) != 0) abort();
    return stim_default(_ixmod), stim_register("prep", _ixmod_prep), true;
  }();
  (void)done;
}
}  // namespace fuzz
