#include "driver/ixmod.h"

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "engine/timing.h"
#include "platform/alleg.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/files.h"
#include "services/results.h"

namespace {
// Start-up steps whose modules do not exist yet answer 0.
int taste_init(int, int, int) { return 0; }
int sbmp_init() { return 0; }
int swav_init() { return 0; }
int instrukt_init() { return 0; }
}  // namespace

stim* _ixmod(const char* line) { return stim_make<stim>(line); }
stim* _ixmod_prep(const char* attributes) { return stim_make<stim>(attributes); }

int ixmod_main(int argc, char** argv) {
  if (argument_init(argc, const_cast<const char**>(argv)) != 0) return -1;
  if (files_init() != 0) return -1;
  if (alleg_init(1) != 0) return -1;
  if (config_init() != 0) return -1;
  const int rate = config_int("screen-rate", 60);
  const int height = config_int("screen-height", 768);
  const int width = config_int("screen-width", 1024);
  const int depth = config_int("screen-depth", 16);
  if (alleg_gfx(depth, width, height, 1024, 768, rate) != 0) return -1;
  if (taste_init(1, 100, 0) != 0) return -1;
  if (sbmp_init() != 0) return -1;
  if (swav_init() != 0) return -1;
  if (stimfile_init() != 0) return -1;
  if (results_init(1000) != 0) return -1;
  if (instrukt_init() != 0) return -1;
  if (stimuli_init(argument_get("dict")) != 0) return -1;

  timing_init();
  stim_default(_ixmod);
  stim_register("prep", _ixmod_prep);

  for (int i = 0; i < stimfile_anzahl(); ++i) {
    int err = 0;
    stimuli* block = new stimuli(err);
    if (err != 0) {
      delete block;
      return -1;
    }
    int failed = block->prepare();
    if (failed == 0) failed = block->run(-1);
    block->cleanup();
    block->speichern();
    delete block;
    timing_write();
    if (failed != 0) return -1;
  }
  return alleg_exitcode(0);
}
