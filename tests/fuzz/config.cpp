// The configuration file as a lab edits it: parsed, then every key the
// program reads taken through its typed reader, and the texts that select
// a behaviour through their interpreters.
#include "fuzz_support.h"
#include "ports/trigger.h"
#include "services/config.h"
#include "sound/wav.h"

namespace {
const char* const kInts[] = {"maxpoll", "realtime-priority", "screen-depth", "screen-height", "screen-rate",
                             "screen-width"};
const char* const kStrings[] = {"fuss-only2", "fuss-only3", "fuss-port",      "game-port",   "led-mode",
                                "led-port",   "led-reset",  "reaction-key",   "screen-windowed",
                                "speaker-selection",        "stift-port",     "trigger-input",
                                "trigger-invert",           "trigger-show",   "triggerport", "vok-port",
                                "lpt1-device",              "com1-device"};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  const std::string cfg = fuzz::write("t.cfg", data, size);
  fuzz::args({"-log=/dev/null", "-cfg=" + cfg});
  config_init();
  for (const char* key : kInts) config_int(key, 60), config_long(key, 60), config_hex(key, 0x378);
  for (const char* key : kStrings) config_string(key, "lpt1"), config_hex(key, 0x378);
  config_osversion();
  trigger_init(config_string("trigger-input", "space"), config_string("trigger-show", "yes"));
  wav_port_of(config_string("speaker-selection", "none"));
  config_done();
  return 0;
}
