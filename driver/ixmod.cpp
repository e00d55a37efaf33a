#include "driver/ixmod.h"

#include <allegro.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "driver/check.h"
#include "driver/usage.h"
#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "engine/timing.h"
#include "platform/alleg.h"
#include "platform/cpu.h"
#include "platform/directory.h"
#include "platform/display.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/files.h"
#include "services/log.h"
#include "input/taste.h"
#include "input/vok.h"
#include "ports/lpt.h"
#include "ports/trig_out.h"
#include "ports/trigger.h"
#include "screens/instrukt.h"
#include "screens/led.h"
#include "screens/stift.h"
#include "services/report.h"
#include "services/results.h"

namespace {
bool prep_answered_ = false;

int save_line(unsigned nummer, const char* uv, int reaktion, long reakzeit) {
  char line[1000];
  snprintf(line, sizeof line, "%5d %5s %5d %7ld\n", static_cast<int>(nummer), uv ? uv : "(null)", reaktion,
           reakzeit);
  return result(static_cast<const char*>(line));
}
}  // namespace

ixmod_::ixmod_(const char* line, int& err) : sbmp(line, err) {
  if (err == 0) err = _stim(line);
  if (err != 0) err = 1;
}

int ixmod_::cleanup() {
  if (shown && t1 == 0 && screen) {
    clear_to_color(screen, 0);
    display_flush();
  }
  prep_answered_ = false;
  return sbmp::cleanup();
}

int ixmod_::speichern() const {
  if (nummer == 0 || suppressed || kritisch == -1 || (kritisch == 0 && reaktion == 0)) return 0;
  return save_line(nummer, uv, reaktion, reakzeit);
}

long ixmod_::maxreak() const { return 2000; }
int ixmod_::masked() const { return 0; }

ixmod_prep::ixmod_prep(const char* attributes, int& err) : swav(attributes, err) {
  if (err == 0) err = _stim(attributes);
  if (err != 0) err = 1;
  kritisch = 0;  // a preparatory tone is never to be answered
}

int ixmod_prep::set(const char* token) {
  long v;
  if (sscanf(token, "remax=%ld", &v) == 1) {
    remax = v + stim_minreak();
    return 0;
  }
  return swav::set(token);
}

int ixmod_prep::falsch() {
  prep_answered_ = true;
  return stim::falsch();
}

long ixmod_prep::maxreak() const { return remax; }

int ixmod_prep::speichern() const {
  if (kritisch == -1 || (kritisch == 0 && reaktion == 0)) return 0;
  return save_line(nummer, uv, reaktion, reakzeit);
}

stim* _ixmod(const char* line) { return stim_make<ixmod_>(line); }
stim* _ixmod_prep(const char* attributes) { return stim_make<ixmod_prep>(attributes); }
bool ixmod_prep_answered() { return prep_answered_; }

namespace {
// Whether an output failed because it is on a parallel port this machine
// does not have ("auto" on a machine without any); outputs of the kind are
// then named together in one line instead of each being reported.
bool absent(int port, std::vector<const char*>& names, const char* name) {
  if (port < 0 || port > 2 || !lpt_absent(port)) return false;
  names.push_back(name);
  return true;
}

// Pen, LED and trigger output. A pen or LED port that cannot be opened is
// switched to none, so that a stimulus file without pens or LEDs runs on a
// machine without the port, and one with them stops at its first such
// stimulus ("no valid LPT"). Trigger values are saved only when the option
// "tr" is given ("-tr=" for the default name): a trigger value file puts
// only a marker on the lines. A trigger port that cannot be opened leaves
// the run without trigger output; a trigger value file asked for and not
// writable ends it.
int start_outputs() {
  std::vector<const char*> off;
  if (stift_init() != 0) {
    if (!absent(stift_port(), off, "pen")) alleg_warning("no pen output");
    stift_init(stift_none);
  }
  if (led_init() != 0) {
    if (!absent(led_port(), off, "LED")) alleg_warning("no LED output");
    led_init(led_none, led_static, 0);
  }
  const int save = argument_lookup("tr") != 0;
  if (trig_out_init(save) != 0) {
    if (save && !trig_out_saving()) return -1;
    const bool quiet = absent(trig_out_port(), off, "trigger");
    if (!quiet) alleg_warning("no trigger output");
    trig_out_disable(quiet);
  }
  if (!off.empty()) {
    std::string line = "no parallel port on this machine: no ";
    for (size_t i = 0; i < off.size(); ++i) line += std::string(i == 0 ? "" : i + 1 < off.size() ? ", " : " or ") + off[i];
    alleg_message((line + " output").c_str());
  }
  return 0;
}
}  // namespace

int ixmod_main(int argc, char** argv) {
  // Default file names and the files beside the program go by its real
  // path: started through PATH, argv[0] is only its name.
  static char self[4096];
  if (argc > 0) {
    program_path(self, sizeof self, argv[0]);
    argv[0] = self;
  }
  if (const int want = usage_wanted(argc, argv)) {
    const char* slash = argc > 0 ? strrchr(argv[0], '/') : nullptr;
    const char* name = slash ? slash + 1 : argc > 0 ? argv[0] : "ixmod";
    if (want == 1) usage_print(stdout, name);
    else printf("%s %s\n", name, ixmod_version());
    return 0;
  }
  if (argument_init(argc, const_cast<const char**>(argv)) != 0) return -1;
  if (argument_flag("check")) return check_main(argc, argv);
  if (files_init() != 0) {
    if (argument_lookup("lst") == 0)
      alleg_error("no file list: name one with -lst=FILE (an empty list is a file holding the line 0); "
                  "-help lists the options");
    return -1;
  }
  cpu_sample();
  if (alleg_init(1) != 0) return -1;
  if (config_init() != 0) return -1;
  // Before the sound thread starts; the ones alleg_init started are moved.
  cpu_pin();
  if (alleg_sound_init() != 0) return -1;
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
  if (report_init() != 0) return -1;
  instrukt_init();
  // The devices around the trial: the speaker relay, the trigger input a
  // block can wait for, pen and LED lines, the trigger output. After the
  // results file, whose name the trigger value file follows, and before the
  // registry, so that every stimulus built finds them ready. All of them
  // default to LPT1 and write their rest level there; the trigger output
  // comes last so that its rest level (0xFF when inverting) is what the
  // recording system sees before the first pulse.
  if (wav_init() != 0) return -1;
  if (trigger_init() != 0) return -1;
  // The acknowledge line is read from the response box's port ("vok-port"),
  // checked at start-up like the box itself.
  if (trigger_type() == TRIGGER_ACK && vok_init(2, 0) != 0) return -1;
  if (start_outputs() != 0) return -1;
  trigger_shares_port(trig_out_lpt());
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
    const bool ran = failed == 0;
    if (ran) failed = block->run(-1);
    // The report counts what the block evaluated, also when it was ended early.
    if (ran && report_session()) block->report(*report_session(), i + 1);
    block->cleanup();
    block->speichern();
    delete block;
    // Between blocks, where no trial waits: what the block gave is made
    // durable, so a kill or a power cut from here on loses none of it. A
    // file that fails is reported and ends the run with status 255.
    results_sync();
    timing_write();
    report_write();
    lpt_flush();
    log_sync();
    if (failed != 0) return -1;
  }
  return alleg_exitcode(0);
}
