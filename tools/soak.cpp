// The long run: build/ixmod on a session of crossmodal trials (a tone, then
// an arrow answered by a participant that watches the screen through X11
// and presses key 1 through XTEST), and what a kill leaves behind.
//
//   ixmod_soak -minutes=N   one session of about N minutes in blocks of 160
//                           trials: resident memory at start and end, schedule
//                           lateness p99 in the first and last five minutes,
//                           presses sent against reactions recorded, drift of
//                           the test clock against CLOCK_MONOTONIC;
//   ixmod_soak -kills=N     N short sessions (5 blocks of 4 trials), each
//                           killed with SIGKILL at a random moment: every
//                           block whose end the participant saw (it saw an
//                           arrow of a later block) is in the results file,
//                           no block is there in part, and no results,
//                           timing or report file is cut short.
//   [-trials=N] (trials a block of the long session, 160) [-program=PATH]
//   [-seed=S]   (on the display named by DISPLAY)
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tools/bench_table.h"
#include "tools/screen_watch.h"

namespace {

const int kMaxPresses = 8000;

struct Shared {
  std::atomic<int> quit;
  std::atomic<int> ready;
  std::atomic<int> seen;  // arrows seen (each answered with one press)
};
Shared* shared = nullptr;

// The second process: polls the screen's centre pixel every 2 ms; at each
// arrow it presses key 1 250-450 ms later, for 80 ms.
void participant() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  Display* d = XOpenDisplay(nullptr);
  if (!d) _exit(1);
  const int x = DisplayWidth(d, DefaultScreen(d)) / 2, y = DisplayHeight(d, DefaultScreen(d)) / 2;
  const KeyCode key = XKeysymToKeycode(d, XStringToKeysym("1"));
  shared->ready = 1;
  bool on = false;
  while (!shared->quit.load()) {
    const bool now_on = arrow_shown(d, x, y);
    if (now_on && !on && shared->seen.load() < kMaxPresses) {
      const int i = shared->seen.load();
      shared->seen = i + 1;
      usleep(static_cast<useconds_t>(250000 + (i * 37 % 200) * 1000));
      XTestFakeKeyEvent(d, key, True, CurrentTime);
      XFlush(d);
      usleep(80000);
      XTestFakeKeyEvent(d, key, False, CurrentTime);
      XFlush(d);
    }
    on = now_on;
    usleep(2000);
  }
  XCloseDisplay(d);
  _exit(0);
}

long rss_kb(pid_t pid) {
  std::istringstream s(read_file("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(s, line);)
    if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
  return -1;
}

struct Session {
  std::string dir;
  int blocks, trials, period_ms;
  // Trial t of block b is number b * 1000 + t + 1: its tone at t * period,
  // its arrow 350 ms later, shown 400 ms.
  std::string stimfile() const {
    std::string s;
    for (int b = 0; b < blocks; ++b) {
      if (b > 0) s += "---\n";
      s += "null nummer=0 t0=0\n";
      for (int t = 0; t < trials; ++t) {
        const int n = b * 1000 + t + 1, t0 = 1000 + t * period_ms;
        s += "prep nummer=" + std::to_string(n) + " index=" + std::to_string(t % 2) + " t0=" + std::to_string(t0) +
             " uv=tone;\n";
        s += "pfeil nummer=" + std::to_string(n) + " index=" + std::to_string(t % 2) +
             " t0=" + std::to_string(t0 + 350) + " t1=400 kritisch=1 uv=arrow;\n";
      }
    }
    return s;
  }
};

struct Started {
  pid_t program, watcher;
  long long at_us;
};

Started start(const Session& s, const std::string& program) {
  auto write = [&](const char* name, const std::string& text) {
    std::ofstream(s.dir + "/" + name) << text;
    return s.dir + "/" + name;
  };
  const std::vector<std::string> args = {program,
                                         "-s=" + write("soak.s", s.stimfile()),
                                         "-lst=" + write("soak.lst", "0\n"),
                                         "-dict=" + write("en.dict", "Please release the key.\nInterrupted.\n"),
                                         "-cfg=" + write("soak.cfg", "os-version = 6.1\n"),
                                         "-log=" + s.dir + "/soak.log",
                                         "-res=" + s.dir + "/results.txt",
                                         "-timing=" + s.dir + "/timing.tsv",
                                         "-report=" + s.dir + "/report",
                                         "-lpt1-device=" + s.dir + "/lpt1"};
  shared->quit = 0;
  shared->ready = 0;
  shared->seen = 0;
  Started p{};
  p.watcher = fork();
  if (p.watcher == 0) participant();
  while (!shared->ready.load()) usleep(1000);
  p.at_us = mono_us();
  p.program = fork();
  if (p.program == 0) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  return p;
}

int stop_watcher(const Started& p) {
  shared->quit = 1;
  waitpid(p.watcher, nullptr, 0);
  return shared->seen.load();
}

std::vector<std::vector<std::string>> tsv_rows(const std::string& text) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream s(text);
  for (std::string line; std::getline(s, line);) {
    rows.emplace_back(1);
    for (char c : line)
      if (c == '\t') rows.back().emplace_back();
      else rows.back().back() += c;
  }
  return rows;
}

// Results lines by trial number: the reaction (key), -1 for a line that
// does not read as one.
std::vector<std::pair<int, int>> results_lines(const std::string& text) {
  std::vector<std::pair<int, int>> out;
  std::istringstream s(text);
  for (std::string line; std::getline(s, line);) {
    int n, key;
    long rt;
    char label[200];
    if (sscanf(line.c_str(), "%d %199s %d %ld", &n, label, &key, &rt) == 4) out.emplace_back(n, key);
    else out.emplace_back(-1, -1);
  }
  return out;
}

bool ends_line(const std::string& text) { return text.empty() || text.back() == '\n'; }

int soak(const std::string& program, int minutes, int trials) {
  char tmpl[] = "/tmp/ixmod-soak-XXXXXX";
  if (!mkdtemp(tmpl)) return 1;
  const int period = 1150;
  Session s{tmpl, std::max(1, (minutes * 60000 + trials * period - 1) / (trials * period)), trials, period};
  printf("soak: %d blocks of %d trials (a tone, then an arrow), %.1f min scheduled; files in %s\n", s.blocks,
         s.trials, s.blocks * (1000.0 + trials * period) / 60000.0, tmpl);
  fflush(stdout);
  const Started p = start(s, program);
  // Resident memory by block, early and late in it: a block builds its
  // trials when it starts and frees them at its end, so the first and the
  // last block are compared at the same point of their run.
  std::map<int, std::pair<long, long>> rss;  // block: first and last reading
  int status = 0;
  for (;;) {
    if (waitpid(p.program, &status, WNOHANG) == p.program) break;
    const long kb = rss_kb(p.program);
    const int seen = shared->seen.load();
    if (kb > 0 && seen > 0) {
      const int block = (seen - 1) / s.trials;
      if (!rss.count(block)) rss[block].first = kb;
      rss[block].second = kb;
    }
    usleep(500000);
  }
  const int sent = stop_watcher(p);

  bench_header();
  bench_section("soak");
  char value[160];
  // The first block warms up (pictures, sounds and fonts come into memory
  // on first use): growth counts from the second block's readings.
  const std::pair<long, long> first = rss.empty() ? std::make_pair(-1L, -1L) : rss.begin()->second;
  const std::pair<long, long> a = rss.size() > 2 ? std::next(rss.begin())->second : first;
  const std::pair<long, long> b = rss.empty() ? a : rss.rbegin()->second;
  snprintf(value, sizeof value, "start %ld kB, end %ld kB (in block: first %ld-%ld, second %ld-%ld, last %ld-%ld kB)",
           first.first, b.second, first.first, first.second, a.first, a.second, b.first, b.second);
  const long growth = std::max(b.first - a.first, b.second - a.second);
  bench_value("resident memory", value, "growth < 1024 kB", bench_met(rss.size() > 1 && growth < 1024));
  snprintf(value, sizeof value, "%+ld kB block start to block start, %+ld kB end to end (second block to last)",
           b.first - a.first, b.second - a.second);
  bench_value("  growth, second block to last", value);
  // Lateness of every action of the trials, by when it happened.
  std::vector<std::pair<long long, double>> late;  // system_us, late_us
  // The drift is taken within each block and summed over the blocks: the
  // program holds the test clock while it hands the screen over around a
  // block's start, as at any display switch.
  std::map<int, std::pair<std::pair<long long, long long>, std::pair<long long, long long>>> span;  // first, last
  const auto rows = tsv_rows(read_file(s.dir + "/timing.tsv"));
  for (size_t i = 1; i < rows.size(); ++i) {
    const auto& r = rows[i];
    if (r.size() < 12 || atoi(r[1].c_str()) <= 0) continue;
    const long long system = atoll(r[9].c_str()), actual = atoll(r[5].c_str());
    late.emplace_back(system, atof(r[6].c_str()));
    const int block = atoi(r[0].c_str());
    if (!span.count(block)) span[block].first = {actual, system};
    span[block].second = {actual, system};
  }
  double mono = 0, drift = 0;
  for (const auto& [b, fl] : span) {
    mono += static_cast<double>(fl.second.second - fl.first.second);
    drift += static_cast<double>(fl.second.first - fl.first.first) - static_cast<double>(fl.second.second - fl.first.second);
  }
  std::vector<double> first5, last5;
  if (!late.empty()) {
    const long long a = late.front().first, b = late.back().first;
    for (const auto& [t, v] : late) {
      if (t - a < 300000000ll) first5.push_back(v);
      if (b - t < 300000000ll) last5.push_back(v);
    }
  }
  const bench_stats f5 = bench_stats_of(first5), l5 = bench_stats_of(last5);
  bench_row("schedule lateness, first five minutes", f5);
  char note[160];
  snprintf(note, sizeof note, "p99 %+.0f%% against the first five minutes",
           f5.p99 > 0 ? (l5.p99 - f5.p99) / f5.p99 * 100 : 0.0);
  bench_row("schedule lateness, last five minutes", l5, "p99 within 20% of first",
            bench_met(f5.n > 0 && l5.n > 0 && l5.p99 <= f5.p99 * 1.2), note);
  // The p99 of every five minutes: a rise that grows with the session
  // (something kept and walked) against bursts (the machine's other work).
  if (!late.empty()) {
    std::string by5;
    std::vector<double> window;
    long long from = late.front().first;
    for (size_t i = 0; i <= late.size(); ++i) {
      if (i == late.size() || late[i].first - from >= 300000000ll) {
        snprintf(note, sizeof note, "%s%.0f", by5.empty() ? "" : ", ", bench_stats_of(window).p99);
        by5 += note;
        window.clear();
        if (i < late.size()) from = late[i].first;
      }
      if (i < late.size()) window.push_back(late[i].second);
    }
    bench_value("  lateness p99 by five minutes (us)", by5.c_str());
  }

  // A press is recorded on its arrow, or, when it came late, as a false
  // alarm on the next tone.
  int recorded = 0, on_tones = 0, lines = 0;
  {
    std::istringstream r(read_file(s.dir + "/results.txt"));
    for (std::string line; std::getline(r, line); ++lines) {
      int n, key;
      long rt;
      char label[200];
      if (sscanf(line.c_str(), "%d %199s %d %ld", &n, label, &key, &rt) != 4 || key <= 0) continue;
      ++recorded;
      on_tones += strcmp(label, "tone") == 0;
    }
  }
  snprintf(value, sizeof value, "%d sent, %d recorded (%d on a tone), %d lost (%d lines, exit %d)", sent, recorded,
           on_tones, sent - recorded, lines, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
  bench_value("presses: sent against recorded", value, "0 lost",
              bench_met(sent > 0 && sent == recorded && WIFEXITED(status) && WEXITSTATUS(status) == 0));

  snprintf(value, sizeof value, "%.1f us over %.1f min (%.2f us per minute)", drift, mono / 60e6,
           mono > 0 ? drift * 60e6 / mono : 0.0);
  bench_value("test clock - CLOCK_MONOTONIC", value, "|drift| <= 100 us per minute",
              bench_met(mono > 0 && std::fabs(drift * 60e6 / mono) <= 100));
  if (!getenv("IXMOD_KEEP_SOAK_DIR") && system(("rm -rf '" + s.dir + "'").c_str()) != 0)
    fprintf(stderr, "soak: %s left\n", tmpl);
  return 0;
}

struct KillCheck {
  bool complete_blocks = true, whole_blocks = true, whole_files = true;
  std::string why;
};

// What one killed session left: every block ended before the kill has all
// its lines, any other block none, and every file ends with a whole line.
KillCheck check_killed(const Session& s, int seen) {
  KillCheck c;
  auto fail = [&](bool& what, const std::string& why) {
    what = false;
    c.why += (c.why.empty() ? "" : "; ") + why;
  };
  const std::string res = read_file(s.dir + "/results.txt");
  std::map<int, int> per_block;
  for (const auto& [n, key] : results_lines(res)) {
    if (n < 0) fail(c.whole_files, "a results line that does not read");
    else ++per_block[(n - 1) / 1000];
  }
  if (!ends_line(res)) fail(c.whole_files, "results end mid-line");
  // An arrow of block b + 1 seen: block b had ended. Arrows are counted
  // from the first, so a missed arrow only makes this count fewer blocks.
  const int ended = std::min(s.blocks, std::max(0, (seen - 1) / s.trials));
  for (int b = 0; b < ended; ++b)
    if (per_block[b] != s.trials)
      fail(c.complete_blocks, "block " + std::to_string(b + 1) + " ended but has " + std::to_string(per_block[b]) +
                                  " lines");
  for (const auto& [b, n] : per_block)
    if (n != s.trials) fail(c.whole_blocks, "block " + std::to_string(b + 1) + " in part");
  const std::string timing = read_file(s.dir + "/timing.tsv");
  // Every line has the header's fields: a cut line has fewer.
  const auto rows = tsv_rows(timing);
  for (const auto& r : rows)
    if (r.size() != rows.front().size())
      fail(c.whole_files, "a timing line of " + std::to_string(r.size()) + " fields");
  if (!ends_line(timing)) fail(c.whole_files, "timing trace ends mid-line");
  const std::string tsv = read_file(s.dir + "/report/soak-report.tsv");
  const std::string html = read_file(s.dir + "/report/soak-report.html");
  if (!ends_line(tsv)) fail(c.whole_files, "report ends mid-line");
  if (!html.empty() && html.find("</html>") == std::string::npos) fail(c.whole_files, "report page cut short");
  return c;
}

int kills(const std::string& program, int n, unsigned seed) {
  std::mt19937 rng(seed);
  const Session proto{"", 5, 4, 1000};
  // From the start to the end of the session: start-up, then each block's
  // second of lead, its trials and the last one's time to answer.
  std::uniform_int_distribution<int> when_ms(500, 1500 + proto.blocks * (3500 + proto.trials * proto.period_ms));
  bench_header();
  bench_section("SIGKILL at a random moment");
  int complete = 0, whole = 0, files = 0, ended_total = 0;
  for (int i = 0; i < n; ++i) {
    char tmpl[] = "/tmp/ixmod-kill-XXXXXX";
    if (!mkdtemp(tmpl)) return 1;
    Session s = proto;
    s.dir = tmpl;
    const int at = when_ms(rng);
    const Started p = start(s, program);
    const long long until = p.at_us + at * 1000ll;
    int status = 0;
    bool exited = false;
    while (mono_us() < until)
      if (waitpid(p.program, &status, WNOHANG) == p.program) {
        exited = true;
        break;
      } else {
        usleep(1000);
      }
    // The arrows seen are counted before the kill: a block counted as
    // ended ended before it.
    const int seen = shared->seen.load();
    if (!exited) {
      kill(p.program, SIGKILL);
      waitpid(p.program, &status, 0);
    }
    stop_watcher(p);
    const KillCheck c = check_killed(s, seen);
    const int ended = std::min(s.blocks, std::max(0, (seen - 1) / s.trials));
    ended_total += ended;
    complete += c.complete_blocks;
    whole += c.whole_blocks;
    files += c.whole_files;
    printf("  run %2d: killed at %5d ms%s, %d blocks ended, %s\n", i + 1, at, exited ? " (had ended)" : "", ended,
           c.why.empty() ? "all there" : c.why.c_str());
    fflush(stdout);
    if (c.why.empty() && !getenv("IXMOD_KEEP_SOAK_DIR")) {
      if (system(("rm -rf '" + s.dir + "'").c_str()) != 0) fprintf(stderr, "soak: %s left\n", tmpl);
    }
  }
  char value[120];
  snprintf(value, sizeof value, "%d of %d (%d blocks ended before a kill)", complete, n, ended_total);
  bench_value("every ended block in the results", value, "all", bench_met(complete == n));
  snprintf(value, sizeof value, "%d of %d", whole, n);
  bench_value("no block there in part", value, "all", bench_met(whole == n));
  snprintf(value, sizeof value, "%d of %d", files, n);
  bench_value("results, timing, report whole", value, "all", bench_met(files == n));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int minutes = 0, n_kills = 0, trials = 160;
  unsigned seed = std::random_device{}();
  std::string program;
  for (int i = 1; i < argc; ++i) {
    sscanf(argv[i], "-minutes=%d", &minutes);
    sscanf(argv[i], "-kills=%d", &n_kills);
    sscanf(argv[i], "-trials=%d", &trials);
    sscanf(argv[i], "-seed=%u", &seed);
    if (strncmp(argv[i], "-program=", 9) == 0) program = argv[i] + 9;
  }
  program = program_beside_self(program);
  if (program.empty()) return 1;
  shared = static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (shared == MAP_FAILED) return 1;
  new (shared) Shared();
  if (minutes > 0 && soak(program, minutes, std::max(1, trials)) != 0) return 1;
  if (n_kills > 0) {
    printf("kills: seed %u\n", seed);
    if (kills(program, n_kills, seed) != 0) return 1;
  }
  return 0;
}
