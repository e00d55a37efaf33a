#include "driver/check.h"

#include <allegro.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "driver/ixmod.h"
#include "driver/usage.h"
#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "input/serial.h"
#include "platform/alleg.h"
#include "platform/display.h"
#include "platform/display_probe.h"
#include "platform/font.h"
#include "platform/cpu.h"
#include "platform/priority.h"
#include "platform/sound.h"
#include "platform/timer.h"
#include "ports/lpt.h"
#include "screens/instrukt.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/files.h"
#include "services/log.h"
#include "sound/swav.h"
#include "visual/sbmp.h"

namespace {
const char* fit_word(fitness f) {
  switch (f) {
    case fitness::yes:
      return "yes";
    case fitness::warn:
      return "warn";
    case fitness::no:
      return "NO";
    case fitness::info:
      break;
  }
  return "-";
}

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
  char buf[1200];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}
}  // namespace

std::string check_table(const std::vector<check_row>& rows) {
  size_t item = 4, found = 5;
  for (const check_row& r : rows) {
    item = std::max(item, r.item.size());
    found = std::max(found, r.found.size());
  }
  std::string out;
  auto line = [&](const std::string& a, const std::string& b, const char* c) {
    out += a + std::string(item + 2 - a.size(), ' ') + b + std::string(found + 2 - b.size(), ' ') + c + "\n";
  };
  line("item", "found", "fit");
  for (const check_row& r : rows) line(r.item, r.found, fit_word(r.fit));
  return out;
}

int check_status(const std::vector<check_row>& rows) {
  for (const check_row& r : rows)
    if (r.fit == fitness::no) return 1;
  return 0;
}

port_ref check_port_ref(const char* text) {
  port_ref p{0, 0};
  if (!text) return p;
  static const char* const kLpt[3][2] = {{"lpt1", "LPT1"}, {"lpt2", "LPT2"}, {"lpt3", "LPT3"}};
  for (int i = 0; i < 3; ++i)
    if (strstr(text, kLpt[i][0]) || strstr(text, kLpt[i][1])) p = {'L', i + 1};
  for (const char* name : {"com", "COM"})
    for (const char* at = strstr(text, name); at && p.kind != 'C'; at = strstr(at + 1, name)) {
      int n = 0;
      for (const char* d = at + 3; *d >= '0' && *d <= '9' && n < 1000; ++d) n = n * 10 + (*d - '0');
      if (n >= 1 && n < 1000) p = {'C', n};
    }
  return p;
}

fitness check_priority_fit(unsigned cls) {
  return cls == REALTIME_PRIORITY_CLASS || cls == HIGH_PRIORITY_CLASS ? fitness::yes : fitness::no;
}

fitness check_retrace_fit(const char* source) {
  if (!source || !*source) return fitness::no;
  return strcmp(source, "simulated") == 0 ? fitness::warn : fitness::yes;
}

std::string check_block_line(int block, const block_summary& b) {
  std::string s = format("block %d: %d line%s", block, b.lines, b.lines == 1 ? "" : "s");
  if (!b.built) return s + ", not built";
  if (b.evaluated == 0) return s + ", a page (no trials)";
  return s + format(", %d trial%s (%d evaluated %s), %.1f s", b.trials, b.trials == 1 ? "" : "s", b.evaluated,
                    b.evaluated == 1 ? "stimulus" : "stimuli", b.duration_ms / 1000.0);
}

namespace {
// What the log received while a probe ran: its error texts, else its
// warnings.
struct heard {
  std::vector<std::string> errors, warnings;
  static void take(const char* prefix, const char* text, void* ctx) {
    heard* h = static_cast<heard*>(ctx);
    if (strcmp(prefix, "error: ") == 0) h->errors.push_back(text);
    else if (strcmp(prefix, "warning: ") == 0) h->warnings.push_back(text);
  }
  heard() { log_listen(take, this); }
  ~heard() { log_listen(nullptr, nullptr); }
  std::string first() const {
    if (!errors.empty()) return errors.front();
    return warnings.empty() ? "" : warnings.front();
  }
};

const char* class_name(unsigned cls) {
  switch (cls) {
    case REALTIME_PRIORITY_CLASS:
      return "real-time (SCHED_FIFO)";
    case HIGH_PRIORITY_CLASS:
      return "high (nice -10)";
    case IDLE_PRIORITY_CLASS:
      return "idle (nice 19)";
  }
  return "normal (nice 0)";
}

void display_rows(std::vector<check_row>& rows, int rate_wanted) {
  const int depth = bitmap_color_depth(screen);
  rows.push_back({"display", format("%d x %d, %d bit", SCREEN_W, SCREEN_H, depth),
                  SCREEN_W >= 1024 && SCREEN_H >= 768 && depth >= 15 ? fitness::yes : fitness::no});
  int rate = display_refresh_rate();
  const char* source = "XRandR";
  if (rate == 0 && (rate = get_refresh_rate()) != 0) source = "graphics library";
  if (rate == 0) {
    rows.push_back({"refresh rate", format("unknown: %d Hz assumed (screen-rate)", rate_wanted), fitness::warn});
  } else {
    rows.push_back({"refresh rate", format("%d Hz (%s)", rate, source),
                    rate == rate_wanted ? fitness::yes : fitness::warn});
  }

  // The retrace as a session waits for it: its source, and whether the
  // waits keep the rate in real time.
  const int kWaits = 30;
  display_vsync();
  const auto t0 = std::chrono::steady_clock::now();
  for (int i = 0; i < kWaits; ++i) display_vsync();
  const double period_us =
      std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count() / kWaits;
  const char* vsync = display_vsync_source();
  const double want_us = 1e6 / alleg_refresh_rate();
  fitness fit = check_retrace_fit(vsync);
  if (fit == fitness::yes && std::fabs(period_us - want_us) > 0.1 * want_us) fit = fitness::warn;
  rows.push_back({"retrace", format("%s, waits every %.2f ms (%.1f Hz)", *vsync ? vsync : "none", period_us / 1000,
                                    period_us > 0 ? 1e6 / period_us : 0.0),
                  fit});

  const display_facts x = display_probe();
  rows.push_back({"Present", x.present ? "yes" : "no", fitness::info});
  rows.push_back({"compositor",
                  x.compositor ? "running" + (x.compositor_name.empty() ? "" : ": " + x.compositor_name) : "none",
                  x.compositor ? fitness::warn : fitness::yes});
}

void sound_rows(std::vector<check_row>& rows, bool opened, const char* reason) {
  const char* device = config_string("sound-device", "default");
  if (!opened) {
    rows.push_back({"sound", format("%s: %s", device, reason), fitness::no});
    return;
  }
  rows.push_back({"sound", format("%s: %u Hz, period %.2f ms, buffer %.2f ms", device, sound_rate(),
                                  sound_period_ms(), sound_buffer_ms()),
                  fitness::yes});
  const double latency_ms = sound_latency_us() / 1000.0;
  rows.push_back({"sound latency", format("%.1f ms measured", latency_ms),
                  latency_ms <= 50 ? fitness::yes : fitness::warn});
}

// The ports the session's outputs use: pen, LED and trigger output.
std::set<std::pair<char, int>> ports_in_use() {
  std::set<std::pair<char, int>> used;
  for (const char* key : {"triggerport", "stift-port", "led-port"}) {
    const port_ref p = check_port_ref(config_string(key, "lpt1"));
    if (p.kind) used.insert({p.kind, p.number});
  }
  return used;
}

void port_rows(std::vector<check_row>& rows) {
  const std::set<std::pair<char, int>> used = ports_in_use();
  for (int i = 0; i < 3; ++i) {
    const bool needed = used.count({'L', i + 1}) != 0;
    std::string found;
    const char* access;
    {
      heard h;
      access = lpt_access(i);
      found = access ? access : h.first().empty() ? "not defined" : "cannot open: " + h.first();
    }
    if (lpt_absent(i)) found = "no parallel port on this machine";
    rows.push_back({format("LPT%d%s", i + 1, needed ? " (in use)" : ""), found,
                    access ? fitness::yes : needed ? fitness::no : fitness::info});
  }
  std::set<std::string> devices;
  for (const auto& u : used)
    if (u.first == 'C') devices.insert(serial_device(u.second));
  for (const std::string& d : serial_devices_found()) devices.insert(d);
  for (const std::string& d : devices) {
    bool needed = false;
    for (const auto& u : used)
      if (u.first == 'C' && serial_device(u.second) == d) needed = true;
    std::string why;
    const bool ok = serial_can_open(d, why);
    rows.push_back({"serial" + std::string(needed ? " (in use)" : ""), d + ": " + (ok ? "opens" : why),
                    ok ? fitness::yes : needed ? fitness::no : fitness::info});
  }
}

void font_rows(std::vector<check_row>& rows) {
  static const char* const kFaces[2] = {"font Arial", "font Courier New bold"};
  for (int face = 1; face <= 2; ++face) {
    const char* file = alleg_font_file(face);
    rows.push_back({kFaces[face - 1], file ? file : "not found", file ? fitness::yes : fitness::no});
  }
}

// Builds every line of every block, then the blocks themselves, and reads
// their schedules. Nothing is shown.
int check_stimulus_file(std::vector<check_row>& rows, std::string& report) {
  const bool have_sets = sbmp_init() == 0 && swav_init() == 0;
  if (!have_sets) rows.push_back({"preloaded sets", "cannot be loaded (see the log)", fitness::no});
  if (stimfile_init() != 0) {
    rows.push_back({"stimulus file", "cannot be read", fitness::no});
    return 1;
  }
  instrukt_init();
  {
    heard h;
    if (stimuli_init(argument_get("dict")) != 0)
      rows.push_back({"dictionary", h.first().empty() ? "cannot be loaded" : h.first(), fitness::no});
  }
  stim_default(_ixmod);
  stim_register("prep", _ixmod_prep);

  const char* path = stimfile_path();
  std::vector<std::string> faults;
  std::vector<block_summary> blocks;
  for (int b = 0; b < stimfile_anzahl(); ++b) {
    block_summary sum;
    sum.lines = stimfile_index(b);
    std::vector<stim*> built;
    for (int i = 0; i < sum.lines; ++i) {
      heard h;
      stim* s = _stimulus(stimfile_lines(b, i));
      if (s && s->prepare() != 0) {
        s->cleanup();
        delete s;
        s = nullptr;
      }
      if (!s) {
        const std::string said = h.first();
        faults.push_back(format("%s:%d: %s", path, stimfile_line_number(b, i),
                                said.empty() ? "cannot be built" : said.c_str()));
      }
      built.push_back(s);
    }
    bool all = true;
    for (stim* s : built) all = all && s;
    if (all && !built.empty()) {
      int err = 0;
      stimuli block(static_cast<int>(built.size()), err);
      if (err == 0) {
        std::set<unsigned> numbers;
        long end = 0;
        for (size_t i = 0; i < built.size(); ++i) {
          stim* s = built[i];
          block.stimulus(static_cast<int>(i), s);
          if (s->with_reaktion()) {
            ++sum.evaluated;
            numbers.insert(s->nummer);
            end = std::max(end, s->t0 + s->maxreak());
          }
        }
        built.clear();  // the block owns them now
        int n = 0;
        const aktion* a = block.schedule(0, n);
        if (a && n > 0) end = std::max(end, a[n - 1].time);
        sum.trials = static_cast<int>(numbers.size());
        sum.duration_ms = end;
        sum.built = true;
        block.cleanup();
      }
    }
    for (stim* s : built) {
      if (s) s->cleanup();
      delete s;
    }
    blocks.push_back(sum);
  }
  report += format("stimulus file %s: %d block%s\n", path, stimfile_anzahl(), stimfile_anzahl() == 1 ? "" : "s");
  for (size_t b = 0; b < blocks.size(); ++b) report += "  " + check_block_line(static_cast<int>(b) + 1, blocks[b]) + "\n";
  for (const std::string& f : faults) report += f + "\n";
  rows.push_back({"stimulus file", format("%d line%s fail", static_cast<int>(faults.size()), faults.size() == 1 ? "" : "s"),
                  faults.empty() ? fitness::yes : fitness::no});
  return faults.empty() ? 0 : 1;
}

// The check's log goes where -log names, else nowhere: the table says what
// matters.
std::vector<const char*> args_;

void arguments(int argc, char** argv) {
  args_.assign(argv, argv + argc);
  if (argument_lookup("log") == 0) args_.push_back("-log=/dev/null");
  argument_init(static_cast<int>(args_.size()), args_.data());
}

int finish(const std::vector<check_row>& rows, const std::string& report) {
  const int status = check_status(rows);
  printf("ixmod %s: machine check\n%s", ixmod_version(), check_table(rows).c_str());
  if (!report.empty()) printf("%s", report.c_str());
  printf("fit for the test: %s\n", status == 0 ? "yes" : "no");
  fflush(stdout);
  alleg_exitcode(status);
  return status;
}
}  // namespace

int check_main(int argc, char** argv) {
  arguments(argc, argv);
  std::vector<check_row> rows;
  std::string report;
  if (argument_lookup("lst") != 0) {
    if (files_init() != 0) {
      rows.push_back({"file list", argument_get("lst"), fitness::no});
      return finish(rows, report);
    }
  } else {
    // No list: the log's own name is known, so it is not reported unknown.
    char** names = static_cast<char**>(malloc(sizeof(char*)));
    char** paths = static_cast<char**>(malloc(sizeof(char*)));
    names[0] = strdup(argument_value("log"));
    paths[0] = strdup(names[0]);
    files_init(1, names, paths);
  }
  cpu_sample();
  if (alleg_init(1) != 0) {
    rows.push_back({"display", "the graphics library cannot start (no X display?)", fitness::no});
    return finish(rows, report);
  }
  config_init();
  cpu_pin();
  char reason[ALLEGRO_ERROR_SIZE] = "";
  const bool sound = sound_open(reason, sizeof reason) == 0;
  const int rate = config_int("screen-rate", 60);
  const int height = config_int("screen-height", 768);
  const int width = config_int("screen-width", 1024);
  const int depth = config_int("screen-depth", 16);
  if (alleg_gfx(depth, width, height, 1024, 768, rate) != 0 || !screen) {
    rows.push_back({"display", format("%d x %d, %d bit cannot be set", width, height, depth), fitness::no});
  } else {
    display_rows(rows, rate);
  }
  const unsigned cls = alleg_get_prio();
  rows.push_back({"priority", class_name(cls), check_priority_fit(cls)});
  rows.push_back({"cpu", cpu_account(), cpu_alone() ? fitness::warn : fitness::info});
  sound_rows(rows, sound, reason);
  port_rows(rows);
  font_rows(rows);
  if (argument_lookup("s") != 0) check_stimulus_file(rows, report);
  return finish(rows, report);
}
