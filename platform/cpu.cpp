#include "platform/cpu.h"

#include <dirent.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "services/config.h"
#include "services/log.h"

namespace {
cpu_times first_;
timespec first_at_{};
std::string account_ = "not chosen yet";
int kept_ = -1;            // the core the program keeps to, -1 none
cpu_set_t start_mask_;     // the cores allowed at start-up
bool spread_ = false;
bool alone_ = false;

// The reading spans at least this long: /proc/stat counts in 10 ms ticks.
const long kWindowMs = 100;

cpu_times read_stat() {
  cpu_times t;
  FILE* f = fopen("/proc/stat", "r");
  if (!f) return t;
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  fclose(f);
  return cpu_parse_stat(text.c_str());
}

std::vector<int> allowed_cpus() {
  std::vector<int> cpus;
  if (sched_getaffinity(0, sizeof start_mask_, &start_mask_) != 0) return cpus;
  for (int c = 0; c < CPU_SETSIZE; ++c)
    if (CPU_ISSET(c, &start_mask_)) cpus.push_back(c);
  return cpus;
}

long ms_since(const timespec& t0) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (now.tv_sec - t0.tv_sec) * 1000 + (now.tv_nsec - t0.tv_nsec) / 1000000;
}

// Every thread but the caller's, of those there now (one started later
// takes its starter's mask).
int set_others(const cpu_set_t& set) {
  const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
  int err = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (dirent* e = readdir(d)) {
      const pid_t tid = static_cast<pid_t>(atoi(e->d_name));
      if (tid > 0 && tid != self && sched_setaffinity(tid, sizeof set, &set) != 0 && errno != ESRCH && !err)
        err = errno;
    }
    closedir(d);
  }
  return err;
}

int set_all(const cpu_set_t& set) {
  int err = set_others(set);
  if (sched_setaffinity(0, sizeof set, &set) != 0 && !err) err = errno;
  return err;
}

// The calling thread (the loop's) alone on cpu, every other thread on the
// rest of the cores allowed at start-up (on cpu too where there is no
// rest): the sound, tick and toolkit threads then never take the loop's
// core at the moment an action falls due.
int split(int cpu) {
  cpu_set_t own, rest = start_mask_;
  CPU_ZERO(&own);
  CPU_SET(cpu, &own);
  CPU_CLR(cpu, &rest);
  if (CPU_COUNT(&rest) == 0) rest = own;
  int err = set_others(rest);
  if (sched_setaffinity(0, sizeof own, &own) != 0 && !err) err = errno;
  return err;
}

void say(const std::string& text) {
  account_ = text;
  alleg_message(("cpu: " + text).c_str());
}
}  // namespace

cpu_times cpu_parse_stat(const char* text) {
  cpu_times t;
  for (const char* line = text; line && *line;) {
    unsigned cpu;
    unsigned long long v[8] = {};
    int used = 0;
    // "cpu " is the sum of them all; "cpuN " one of them.
    if (strncmp(line, "cpu", 3) == 0 && line[3] >= '0' && line[3] <= '9' &&
        sscanf(line, "cpu%u %llu %llu %llu %llu %llu %llu %llu %llu%n", &cpu, &v[0], &v[1], &v[2], &v[3], &v[4],
               &v[5], &v[6], &v[7], &used) == 9 &&
        used > 0 && cpu < CPU_SETSIZE) {
      if (t.total.size() <= cpu) {
        t.total.resize(cpu + 1);
        t.idle.resize(cpu + 1);
      }
      // user nice system idle iowait irq softirq steal
      t.idle[cpu] = v[3] + v[4];
      t.total[cpu] = v[0] + v[1] + v[2] + v[3] + v[4] + v[5] + v[6] + v[7];
    }
    line = strchr(line, '\n');
    if (line) ++line;
  }
  return t;
}

int cpu_least_busy(const cpu_times& before, const cpu_times& after, const std::vector<int>& allowed) {
  if (allowed.size() < 2) return -1;
  int best = -1;
  unsigned long long best_idle = 0;
  for (int c : allowed) {
    const size_t i = static_cast<size_t>(c);
    unsigned long long idle = 0;
    if (i < before.total.size() && i < after.total.size() && before.total[i] && after.idle[i] >= before.idle[i])
      idle = after.idle[i] - before.idle[i];
    if (best < 0 || idle >= best_idle) {
      best = c;
      best_idle = idle;
    }
  }
  return best;
}

void cpu_sample() {
  first_ = read_stat();
  clock_gettime(CLOCK_MONOTONIC, &first_at_);
}

int cpu_pin() {
  const std::vector<int> allowed = allowed_cpus();
  alone_ = allowed.size() < 2;
  const char* setting = config_string("cpu", "auto");
  int cpu = -1;
  std::string how;
  if (strcmp(setting, "none") == 0) {
    say("left to the scheduler (cpu = none)");
    return -1;
  }
  if (alone_) {
    say(allowed.empty() ? std::string("the processors allowed cannot be read; left to the scheduler")
                        : "one processor allowed (CPU " + std::to_string(allowed[0]) +
                              "): the X server and the sound server share it with the test");
    return -1;
  }
  char* end = nullptr;
  const long n = strcmp(setting, "auto") == 0 ? -1 : strtol(setting, &end, 10);
  if (n >= 0 && end && *end == 0 && end != setting) {
    for (int c : allowed)
      if (c == n) cpu = c;
    if (cpu < 0) alleg_warning("cpu: CPU %d is not among the processors allowed; the least busy is taken", int(n));
    else how = "as configured";
  } else if (strcmp(setting, "auto") != 0) {
    alleg_warning("Cannot parse cpu: Using the default auto");
  }
  if (cpu < 0) {
    if (first_.total.empty()) cpu_sample();
    const long waited = ms_since(first_at_);
    if (waited < kWindowMs) usleep(static_cast<useconds_t>((kWindowMs - waited) * 1000));
    cpu = cpu_least_busy(first_, read_stat(), allowed);
    how = "the least busy";
  }
  const std::string of = " of " + std::to_string(allowed.size());
  if (const int err = split(cpu)) {
    alleg_warning(("cpu: cannot keep a processor for the loop: " + std::string(strerror(err))).c_str());
    account_ = "left to the scheduler (" + std::string(strerror(err)) + ")";
    return -1;
  }
  say("the loop keeps CPU " + std::to_string(cpu) + of + " to itself, " + how + "; the other threads use the rest");
  kept_ = cpu;
  spread_ = false;
  return cpu;
}

void cpu_spread(bool spread) {
  if (kept_ < 0) return;
  if (spread) {
    if (spread_ || set_all(start_mask_) != 0) return;
    alleg_message("cpu: every core allowed again while real-time (a spinning loop would starve the rest)");
  } else {
    // Again each time: threads started since (the sound thread and its
    // device's) took the loop's core from the thread that started them.
    if (split(kept_) != 0) return;
    if (spread_) alleg_message("cpu: back on CPU %d", kept_);
  }
  spread_ = spread;
}

const std::string& cpu_account() { return account_; }
bool cpu_alone() { return alone_; }
void cpu_forget() {
  kept_ = -1;
  spread_ = false;
}
