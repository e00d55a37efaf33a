// Timing benchmark of the presentation and input paths, run on an X display
// (Xvfb when headless). It prints rows of the benchmark table:
//   schedule: lateness of every show and hide of a block of flashes 10 ms
//     apart, at normal and high priority, idle and with the other core
//     loaded, each beside the machine's own baseline measured the same way
//     (a plain loop spinning to the same due times, and the wake-up
//     lateness of an absolute sleep);
//   display: from the onset the program records for a picture to the
//     moment a second process reading the screen sees its pixels, and the
//     frames each of 1000 flashes stayed on the screen against the frames
//     its duration asks for;
//   triggers on a simulated parallel port (option -lpt1-device names its
//     file): width error and delay from the show action to the rising edge;
//   keys: from a key sent through XTEST by a second process to the moment
//     the reaction-key layer reports it.
// Both processes take their times from CLOCK_MONOTONIC. Figures in µs.
#include <sched.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <allegro.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "engine/timing.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "platform/cpu.h"
#include "platform/alleg.h"
#include "platform/display.h"
#include "platform/priority.h"
#include "tools/screen_watch.h"
#include "platform/timer.h"
#include "ports/lpt.h"
#include "ports/trig_out.h"
#include "services/argument.h"
#include "tools/bench_table.h"
#include "tools/trigger_box.h"
#include "visual/frames.h"

namespace {

const int kMax = 4096;
const int kFlashX = 500, kFlashY = 380, kFlashSize = 24;  // in the drawing area

enum Phase { IDLE, WATCH, SEND, QUIT };

// Shared between the program and the second process.
struct Shared {
  std::atomic<int> phase;
  std::atomic<int> ready;
  int screen_x, screen_y;  // where the flash appears on the X screen
  int keys;                // presses to send
  long key_gap_ms;
  int n_seen, n_sent;
  unsigned long long seen[kMax];  // pixel turned on
  int n_polls;
  double poll_us[kMax];           // how long each reading of the screen took
  unsigned long long sent[kMax];  // key press sent
};
Shared* shared = nullptr;

unsigned long long mono_ns() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<unsigned long long>(t.tv_sec) * 1000000000ull + static_cast<unsigned long long>(t.tv_nsec);
}

// ---- the second process: reads the screen and presses keys ----

void participant() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  Display* d = XOpenDisplay(nullptr);
  if (!d) _exit(1);
  shared->ready = 1;
  for (;;) {
    const int phase = shared->phase.load();
    if (phase == QUIT) break;
    if (phase == WATCH) {
      pixel_watch watch;
      watch.x = shared->screen_x, watch.y = shared->screen_y;
      while (shared->phase.load() == WATCH) {
        long long at = 0;
        const bool came = watch.came_on(d, at);
        if (shared->n_polls < kMax) shared->poll_us[shared->n_polls++] = watch.round_trip_us;
        if (came && shared->n_seen < kMax) shared->seen[shared->n_seen++] = static_cast<unsigned long long>(at) * 1000u;
      }
    } else if (phase == SEND) {
      const KeyCode code = XKeysymToKeycode(d, XStringToKeysym("1"));
      // The extension is looked up at its first use: not inside a press.
      int ev, err, major, minor;
      XTestQueryExtension(d, &ev, &err, &major, &minor);
      const unsigned long long start = mono_ns();
      for (int i = 0; i < shared->keys && shared->phase.load() == SEND; ++i) {
        const unsigned long long at = start + static_cast<unsigned long long>(i) * shared->key_gap_ms * 1000000ull;
        while (mono_ns() < at) usleep(200);
        shared->sent[shared->n_sent++] = mono_ns();
        XTestFakeKeyEvent(d, code, True, CurrentTime);
        XFlush(d);
        usleep(2000);
        XTestFakeKeyEvent(d, code, False, CurrentTime);
        XFlush(d);
      }
      while (shared->phase.load() == SEND) usleep(1000);
    } else {
      usleep(1000);
    }
  }
  XCloseDisplay(d);
  _exit(0);
}

// ---- the program side ----

std::vector<unsigned long long> reports;  // CLOCK_MONOTONIC when a key was reported

// A square that appears on show and goes on hide, as a picture does: a
// presented frame each, or, without presentation, drawing that reaches the
// X server before the call returns.
class flash : public stim {
 public:
  flash(const char* line, int& err) : stim(line, err) {}
  long showtime() const override { return shown_frames::showtime(0); }
  long hidetime() const override { return shown_frames::hidetime(0, t1, showtime()); }
  int show() override {
    rectfill(getscreen(), kFlashX, kFlashY, kFlashX + kFlashSize - 1, kFlashY + kFlashSize - 1, makecol(255, 255, 255));
    frames_.show(true, showtime(), static_cast<int>(nummer));
    return stim::show();
  }
  int hide() override {
    rectfill(getscreen(), kFlashX, kFlashY, kFlashX + kFlashSize - 1, kFlashY + kFlashSize - 1, 0);
    frames_.hide(t1, static_cast<int>(nummer));
    return stim::hide();
  }
  int onset_us(unsigned long long& us) const override { return frames_.onset_us(us); }

 private:
  shown_frames frames_;
};

// The onsets recorded for the shows of the last block, on CLOCK_MONOTONIC
// (ns): the one the display told, else the call's return plus showtime.
std::vector<unsigned long long> recorded_onsets() {
  std::vector<unsigned long long> out;
  for (int i = 0; i < timing_count(); ++i) {
    const timing_record& r = timing_records()[i];
    if (r.action != 2) continue;
    const unsigned long long test_us = r.onset_us ? r.onset_us : r.done_us + 1000u * display_onset_delay();
    out.push_back((r.system_us + (test_us - r.actual_us)) * 1000ull);
  }
  return out;
}

int read_keys(int& code) {
  const int r = tastatur_read(code);
  if (code && reports.size() < reports.capacity()) reports.push_back(mono_ns());
  return r;
}

int run_block(const std::vector<std::string>& lines) {
  std::vector<std::string> copy = lines;
  std::vector<char*> raw;
  for (std::string& l : copy) raw.push_back(l.data());
  int err = 0;
  stimuli block(static_cast<int>(raw.size()), raw.data(), err);
  if (err) return -1;
  block.prepare();
  const int r = block.run(-1);
  block.cleanup();
  return r;
}

// Every write the simulated LPT1 has traced: CLOCK_MONOTONIC us and value of
// the data register.
std::vector<std::pair<unsigned long long, int>> data_writes(const char* path) {
  lpt_flush();
  std::vector<std::pair<unsigned long long, int>> out;
  char name[1100];
  snprintf(name, sizeof name, "%s.trace", path);
  FILE* f = fopen(name, "r");
  if (!f) return out;
  unsigned long long us;
  int reg, value;
  while (fscanf(f, "%llu %d %d", &us, &reg, &value) == 3)
    if (reg == 0) out.emplace_back(us, value);
  fclose(f);
  return out;
}

// n trigger pulses 10 ms apart, at normal and at high priority. edges()
// gives the times (CLOCK_MONOTONIC us) of the edges received since it was
// last called, each pulse's two in turn; every pulse is matched with its
// show action, and report() gets, per priority, each pulse's width and the
// delay from its show action's start to its first edge.
struct pulse_figures {
  const char* priority;
  std::vector<double> width, delay;
  int n, shown;
  size_t pulses;
  bool all() const { return shown == n && pulses == static_cast<size_t>(n); }
};
void pulse_rows(int n, const std::function<std::vector<unsigned long long>()>& edges,
                const std::function<void(const pulse_figures&)>& report) {
  const struct {
    unsigned cls;
    const char* name;
  } prios[] = {{NORMAL_PRIORITY_CLASS, "normal"}, {HIGH_PRIORITY_CLASS, "high"}};
  for (const auto& p : prios) {
    alleg_prio(p.cls);
    timing_clear();
    edges();
    std::vector<std::string> lines;
    for (int i = 0; i < n; ++i)
      lines.push_back("pulse nummer=" + std::to_string(i + 1) + " t0=" + std::to_string(200 + i * 10) +
                      " t1=5 kritisch=-1 trigger=" + std::to_string(i % 255 + 1));
    run_block(lines);
    const std::vector<unsigned long long> e = edges();
    pulse_figures f{p.name, {}, {}, n, 0, e.size() / 2};
    size_t k = 0;
    for (int i = 0; i < timing_count() && k + 1 < e.size(); ++i) {
      const timing_record& r = timing_records()[i];
      if (r.action != 2) continue;
      ++f.shown;
      f.width.push_back(static_cast<double>(e[k + 1]) - static_cast<double>(e[k]));
      f.delay.push_back(static_cast<double>(e[k]) - static_cast<double>(r.system_us));
      k += 2;
    }
    report(f);
  }
}

void trigger_rows(int n, const char* port_file) {
  size_t seen = 0;
  pulse_rows(
      n,
      [&] {
        const std::vector<std::pair<unsigned long long, int>> w = data_writes(port_file);
        std::vector<unsigned long long> e;
        for (size_t i = seen; i < w.size(); ++i) e.push_back(w[i].first);
        seen = w.size();
        return e;
      },
      [](const pulse_figures& f) {
        std::vector<double> error;
        for (double w : f.width) error.push_back(std::fabs(w - 3000.0));
        const bench_stats ws = bench_stats_of(error), ds = bench_stats_of(f.delay);
        char note[80];
        snprintf(note, sizeof note, "shown %d, pulses %zu", f.shown, f.pulses);
        bench_row(std::string("width |error|, ") + f.priority, ws, "p99 <= 50", bench_met(f.all() && ws.p99 <= 50), note);
        bench_row(std::string("show to rising edge, ") + f.priority, ds, "max <= 100", bench_met(f.all() && ds.max <= 100));
      });
}

// The same through a fake serial trigger interface in byte mode: the code
// byte and the rest byte as the interface receives them.
void serial_trigger_rows(int n, trigger_box& box) {
  pulse_rows(
      n,
      [&] {
        const std::vector<trigger_box::byte_at> got = box.received(2 * static_cast<size_t>(n), 200);
        box.clear();
        std::vector<unsigned long long> e;
        for (const auto& b : got) e.push_back(b.us);
        return e;
      },
      [](const pulse_figures& f) {
        const bench_stats ws = bench_stats_of(f.width), ds = bench_stats_of(f.delay);
        char note[80];
        snprintf(note, sizeof note, "shown %d, bytes %zu", f.shown, 2 * f.pulses);
        bench_row(std::string("width as received, ") + f.priority, ws, "p99 in 3000 +- 1000",
                  bench_met(f.all() && std::fabs(ws.p99 - 3000) <= 1000 && ws.median >= 2900), note);
        bench_row(std::string("show to code byte received, ") + f.priority, ds, "p99 <= 1000",
                  bench_met(f.all() && ds.p99 <= 1000));
      });
}

// The write of one byte to the fake interface, without and with waiting
// for the line to drain (tcdrain): how long the call holds the caller and
// when the byte arrives, n bytes 2 ms apart.
void serial_drain_rows(int n, trigger_box& box) {
  const int fd = open(box.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return;
  for (const bool drain : {false, true}) {
    box.clear();
    std::vector<double> held, arrival;
    std::vector<unsigned long long> sent;
    for (int i = 0; i < n; ++i) {
      const unsigned char b = static_cast<unsigned char>(i);
      const unsigned long long t0 = trigger_box::now_us();
      if (write(fd, &b, 1) != 1) break;
      if (drain) tcdrain(fd);
      const unsigned long long t1 = trigger_box::now_us();
      sent.push_back(t0);
      held.push_back(static_cast<double>(t1 - t0));
      usleep(2000);
    }
    const std::vector<trigger_box::byte_at> got = box.received(sent.size());
    for (size_t i = 0; i < sent.size() && i < got.size(); ++i)
      arrival.push_back(static_cast<double>(got[i].us) - static_cast<double>(sent[i]));
    const std::string how = drain ? "write + tcdrain" : "write";
    bench_row("  machine: " + how + ", call holds", bench_stats_of(held));
    bench_row("  machine: " + how + ", write to byte received", bench_stats_of(arrival));
  }
  close(fd);
}

std::vector<std::string> flashes(int n, long gap_ms, long first_ms) {
  std::vector<std::string> lines;
  for (int i = 0; i < n; ++i)
    lines.push_back("flash nummer=" + std::to_string(i + 1) + " t0=" + std::to_string(first_ms + i * gap_ms) +
                    " t1=" + std::to_string(gap_ms / 2) + " kritisch=-1");
  return lines;
}

// ---- the machine's baseline, measured the way the run loop waits ----

// How late the machine lets a thread reach due times gap_us apart on
// CLOCK_MONOTONIC: spinning to them (as the run loop does), or sleeping to
// them (the timer wake-up lateness).
std::vector<double> machine_lateness(int n, long gap_us, bool sleep) {
  std::vector<double> late;
  late.reserve(static_cast<size_t>(n));
  const unsigned long long start = mono_ns() + 1000000ull;
  for (int i = 0; i < n; ++i) {
    const unsigned long long due =
        start + static_cast<unsigned long long>(i) * static_cast<unsigned long long>(gap_us) * 1000ull;
    if (sleep) {
      const timespec at{static_cast<time_t>(due / 1000000000ull), static_cast<long>(due % 1000000000ull)};
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
    }
    unsigned long long now;
    while ((now = mono_ns()) < due) {
    }
    late.push_back(static_cast<double>(now - due) / 1000.0);
  }
  return late;
}

// The other core busy with a spinning process at normal priority.
struct Load {
  pid_t pid = -1;
  void start() {
    pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      setpriority(PRIO_PROCESS, 0, 0);
      // Free to run anywhere, as another program would, not on the core the
      // program under test keeps to.
      cpu_set_t any;
      CPU_ZERO(&any);
      for (int c = 0; c < CPU_SETSIZE; ++c) CPU_SET(c, &any);
      sched_setaffinity(0, sizeof any, &any);
      for (volatile unsigned long i = 0;; i = i + 1) {
      }
    }
  }
  void stop() {
    if (pid > 0) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    pid = -1;
  }
};

void schedule_rows(int n) {
  const struct {
    unsigned cls;
    const char* name;
  } prios[] = {{NORMAL_PRIORITY_CLASS, "normal"}, {HIGH_PRIORITY_CLASS, "high (nice -10)"}};
  for (bool loaded : {false, true}) {
    Load load;
    if (loaded) load.start();
    for (const auto& p : prios) {
      alleg_prio(p.cls);
      const bool granted = alleg_get_prio() == p.cls;
      timing_clear();
      run_block(flashes(n, 10, 200));
      std::vector<double> late, takes;
      int too_late = 0;
      for (int i = 0; i < timing_count(); ++i) {
        const timing_record& r = timing_records()[i];
        if (r.action == 1) continue;
        const double l = static_cast<double>(r.actual_us) - static_cast<double>(r.due_us);
        late.push_back(l);
        takes.push_back(static_cast<double>(r.done_us) - static_cast<double>(r.actual_us));
        if (r.action == 2 && l > alleg_toler() * 1000.0) ++too_late;
      }
      const std::string where = std::string(p.name) + (loaded ? ", loaded" : ", idle");
      const bench_stats s = bench_stats_of(late);
      char note[80];
      snprintf(note, sizeof note, "\"too late\": %d%s", too_late, granted ? "" : ", priority refused");
      bench_row("lateness, " + where, s, "p99 <= 100, max <= 1000",
                bench_met(s.p99 <= 100 && s.max <= 1000 && too_late == 0 && s.n == static_cast<size_t>(2 * n)), note);
      bench_row("  show/hide duration (drawing, X round trip)", bench_stats_of(takes));
      bench_row("  machine: spin to due, " + where, bench_stats_of(machine_lateness(2 * n, 5000, false)));
      bench_row("  machine: sleep to due, " + where, bench_stats_of(machine_lateness(2 * n, 2000, true)));
    }
    load.stop();
  }
  // Real-time priority for comparison: Linux throttles a spinning
  // SCHED_FIFO thread to 95% of each second.
  alleg_prio(REALTIME_PRIORITY_CLASS);
  if (alleg_get_prio() == REALTIME_PRIORITY_CLASS) {
    timing_clear();
    run_block(flashes(n, 10, 200));
    std::vector<double> late;
    for (int i = 0; i < timing_count(); ++i)
      if (timing_records()[i].action != 1)
        late.push_back(static_cast<double>(timing_records()[i].actual_us) - static_cast<double>(timing_records()[i].due_us));
    bench_row("lateness, real-time (SCHED_FIFO), idle", bench_stats_of(late), "(not used by the test)");
  }
  alleg_prio(HIGH_PRIORITY_CLASS);
}

// 1000 flashes of 1, 2 and 3 frames (17, 33 and 50 ms) 100 ms apart at the
// program's priority: the frames each stayed on the screen (from the
// vertical blank its show reached to the one its hide reached) against the
// frames its duration asks for, and the frames that came late.
void frames_row() {
  if (!display_presents()) {
    bench_value("frames shown = frames asked", "no presentation: not known", ">= 99.9%", "NO");
    return;
  }
  const int n = 1000;
  const long lengths[] = {17, 33, 50};
  std::vector<std::string> lines;
  for (int i = 0; i < n; ++i)
    lines.push_back("flash nummer=" + std::to_string(i + 1) + " t0=" + std::to_string(200 + i * 100) +
                    " t1=" + std::to_string(lengths[i % 3]) + " kritisch=-1");
  const long missed_before = present_missed();
  timing_clear();
  run_block(lines);
  std::map<unsigned, present_done> shows;
  int asked_met = 0, counted = 0;
  std::vector<double> error;
  for (int i = 0; i < timing_count(); ++i) {
    const timing_record& r = timing_records()[i];
    present_done d;
    if (!r.frame || !display_frame_told(r.frame, d)) continue;
    if (r.action == 2) shows[r.nummer] = d;
    if (r.action != 3 || !shows.count(r.nummer)) continue;
    const long asked = std::max(1L, std::lround(lengths[(r.nummer - 1) % 3] / alleg_refresh_time()));
    const long shown = static_cast<long>(d.msc) - static_cast<long>(shows[r.nummer].msc);
    ++counted;
    asked_met += shown == asked;
    error.push_back(static_cast<double>(shown - asked));
  }
  char note[120];
  snprintf(note, sizeof note, "%d of %d flashes as asked (%.2f%%), %ld frames late", asked_met, n,
           100.0 * asked_met / n, present_missed() - missed_before);
  bench_row("frames shown - frames asked (frames)", bench_stats_of(error), ">= 99.9% exact",
            bench_met(counted == n && asked_met * 1000 >= 999 * n), note);
}

}  // namespace

int main(int argc, char** argv) {
  int n = 500;
  for (int i = 1; i < argc; ++i)
    if (sscanf(argv[i], "-n=%d", &n) == 1) n = std::max(10, std::min(n, 3000));

  shared = static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (shared == MAP_FAILED) return 1;
  new (shared) Shared();
  const pid_t child = fork();
  if (child == 0) participant();

  argument_init(argc, const_cast<const char**>(argv));
  // The processor as the program chooses it (config key cpu, default auto).
  cpu_sample();
  if (alleg_init(1) != 0 || cpu_pin() < -1 || alleg_sound_init() != 0 ||
      alleg_gfx(16, 1024, 768, 1024, 768, 60) != 0) {
    fprintf(stderr, "bench: the display could not be set up\n");
    return 1;
  }
  // Where the flash lands on the X screen: the drawing area is centred.
  shared->screen_x = (SCREEN_W - getscreen()->w) / 2 + kFlashX + kFlashSize / 2;
  shared->screen_y = (SCREEN_H - getscreen()->h) / 2 + kFlashY + kFlashSize / 2;
  while (!shared->ready.load()) usleep(1000);

  stim_register("flash", stim_make<flash>);
  timing_keep(true);
  reports.reserve(kMax);

  bench_header();
  printf("schedule: %d flashes 10 ms apart per block (shows and hides), retrace %s\n", n,
         *display_vsync_source() ? display_vsync_source() : "not used");
  schedule_rows(n);

  // Display latency.
  bench_section("display");
  shared->n_seen = 0;
  shared->n_polls = 0;
  shared->phase = WATCH;
  usleep(50000);
  timing_clear();
  const long spacing_ms = 50;
  run_block(flashes(std::min(n, 200), spacing_ms, 200));
  usleep(50000);
  shared->phase = IDLE;
  const std::vector<unsigned long long> onsets = recorded_onsets();
  // Each onset is paired with the first time the pixel was seen coming on
  // within half the flashes' spacing of it (a flash the reader missed, or
  // one it saw that no onset tells, does not shift the pairs after it).
  std::vector<double> display;
  int paired = 0;
  for (size_t i = 0, j = 0; i < onsets.size(); ++i) {
    const double on = static_cast<double>(onsets[i]);
    while (j < static_cast<size_t>(shared->n_seen) && static_cast<double>(shared->seen[j]) < on - spacing_ms * 5e5) ++j;
    if (j < static_cast<size_t>(shared->n_seen) && static_cast<double>(shared->seen[j]) < on + spacing_ms * 5e5) {
      display.push_back((static_cast<double>(shared->seen[j]) - on) / 1000.0);
      ++paired, ++j;
    }
  }
  char note[80];
  snprintf(note, sizeof note, "shown %zu, seen %d, paired %d", onsets.size(), shared->n_seen, paired);
  const bench_stats ds = bench_stats_of(display);
  double p99_abs = 0;
  {
    std::vector<double> a;
    for (double v : display) a.push_back(std::fabs(v));
    p99_abs = bench_stats_of(a).p99;
  }
  bench_row("onset recorded to pixels read back", ds, "|median| <= 200, |p99| <= 1000",
            bench_met(std::fabs(ds.median) <= 200 && p99_abs <= 1000 &&
                      paired == static_cast<int>(onsets.size())),
            note);
  frames_row();
  bench_row("  machine: one reading of the screen (reader)",
            bench_stats_of(std::vector<double>(shared->poll_us, shared->poll_us + shared->n_polls)));

  // Trigger pulses.
  stim_register("pulse", stim_make<stim>);
  if (const char* port_file = argument_value("lpt1-device")) {
    bench_section("triggers (3 ms pulses on the simulated LPT1)");
    if (trig_out_init(trig_out_lpt1, 0, 3000, nullptr) == 0)
      trigger_rows(std::max(n, 1000), port_file);
    else
      fprintf(stderr, "bench: no trigger port\n");
  }
  {
    // The fake interface is COM9, named to the program by one more argument.
    trigger_box box;
    static std::vector<std::string> more;
    static std::vector<const char*> args;
    more.assign(argv, argv + argc);
    more.push_back(box.arg(9));
    for (const std::string& a : more) args.push_back(a.c_str());
    argument_init(static_cast<int>(args.size()), args.data());
    bench_section("triggers (3 ms pulses to a fake serial trigger interface on a pseudo-terminal, byte mode)");
    trig_out_serial(9, 115200, trig_out_byte);
    if (box.ok() && trig_out_init(trig_out_com, 0, 3000, nullptr) == 0) {
      box.received(1);  // the rest level written at start-up
      serial_trigger_rows(std::max(n, 1000), box);
      alleg_prio(NORMAL_PRIORITY_CLASS);
      serial_drain_rows(1000, box);
      alleg_prio(HIGH_PRIORITY_CLASS);
    } else {
      fprintf(stderr, "bench: no fake serial trigger interface\n");
    }
    trig_out_disable();
  }

  // Key latency.
  bench_section("reaction times");
  const int keys = std::min(n, 200);
  const long gap = 25;
  reports.clear();
  shared->n_sent = 0;
  shared->keys = keys;
  shared->key_gap_ms = gap;
  taste_fake(read_keys, TASTE_TASTATUR);
  shared->phase = SEND;
  if (run_block({"flash nummer=1 t0=" + std::to_string(keys * gap + 500) + " t1=10 kritisch=-1"}) != 0)
    fprintf(stderr, "bench: the key block did not run\n");
  shared->phase = IDLE;
  taste_fake(nullptr, TASTE_TASTATUR);
  std::vector<double> key;
  const int kpairs = std::min(static_cast<int>(reports.size()), shared->n_sent);
  for (int i = 0; i < kpairs; ++i)
    key.push_back((static_cast<double>(reports[i]) - static_cast<double>(shared->sent[i])) / 1000.0);
  snprintf(note, sizeof note, "sent %d, reported %zu", shared->n_sent, reports.size());
  bench_row("key path: XTEST press to key layer", bench_stats_of(key), "(part of the RT error)", "", note);

  shared->phase = QUIT;
  waitpid(child, nullptr, 0);
  alleg_exitcode(0);
  return 0;
}
END_OF_MAIN()
