#include "platform/priority.h"

#include <dirent.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/cpu.h"
#include "services/config.h"
#include "services/log.h"

namespace {
unsigned configured_ = REALTIME_PRIORITY_CLASS;
// Not a class of the test: SCHED_BATCH at the nice value in force.
const unsigned kBatch = 1;

int fifo_priority() {
  static int prio = -1;
  if (prio < 0) {
    prio = config_int("realtime-priority", 50);
    const int lo = sched_get_priority_min(SCHED_FIFO), hi = sched_get_priority_max(SCHED_FIFO);
    if (prio < lo) prio = lo;
    if (prio > hi) prio = hi;
  }
  return prio;
}

int nice_of(unsigned cls) { return cls == HIGH_PRIORITY_CLASS ? -10 : cls == IDLE_PRIORITY_CLASS ? 19 : 0; }

// Applies policy and nice value to one thread; 0 or an errno value.
int apply(pid_t tid, unsigned cls) {
  sched_param sp{};
  if (cls == kBatch) return sched_setscheduler(tid, SCHED_BATCH, &sp) == 0 ? 0 : errno;
  if (cls == REALTIME_PRIORITY_CLASS) {
    sp.sched_priority = fifo_priority();
    return sched_setscheduler(tid, SCHED_FIFO, &sp) == 0 ? 0 : errno;
  }
  const int nice = nice_of(cls);
  if (sched_setscheduler(tid, SCHED_OTHER, &sp) != 0) return errno;
  return setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice) == 0 ? 0 : errno;
}

// Every thread of the process: nice values and policies are per thread on Linux.
int apply_all(unsigned cls) {
  int err = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (dirent* e = readdir(d)) {
      const pid_t tid = static_cast<pid_t>(atoi(e->d_name));
      if (tid <= 0) continue;
      const int r = apply(tid, cls);
      if (r && r != ESRCH && !err) err = r;
    }
    closedir(d);
  } else {
    err = apply(0, cls);
  }
  return err;
}

unsigned long long limit(int resource) {
  rlimit r{};
  if (getrlimit(resource, &r) != 0) return 0;
  return r.rlim_cur == RLIM_INFINITY ? ~0ull : static_cast<unsigned long long>(r.rlim_cur);
}

bool cap_sys_nice() {
  FILE* f = fopen("/proc/self/status", "r");
  if (!f) return false;
  char line[256];
  unsigned long long caps = 0;
  bool found = false;
  while (!found && fgets(line, sizeof line, f)) found = sscanf(line, "CapEff: %llx", &caps) == 1;
  fclose(f);
  return found && (caps >> CAP_SYS_NICE & 1u);
}
}  // namespace

prio_lowering alleg_lowering(unsigned cls, unsigned long long nice_limit, unsigned long long rtprio_limit,
                             bool cap_nice) {
  if (cap_nice) return LOWER_IDLE;
  // Back to a nice value n takes RLIMIT_NICE >= 20 - n; back to real-time
  // takes RLIMIT_RTPRIO up to its priority, and nice 19 left in force would
  // then hold for the normal class the pause dialogue sets.
  if (cls == REALTIME_PRIORITY_CLASS)
    return rtprio_limit >= static_cast<unsigned long long>(fifo_priority()) && nice_limit >= 20 ? LOWER_IDLE
                                                                                                 : LOWER_NONE;
  const int n = nice_of(cls);
  return n == 19 || nice_limit >= static_cast<unsigned long long>(20 - n) ? LOWER_IDLE : LOWER_BATCH;
}

unsigned alleg_get_prio() {
  const int policy = sched_getscheduler(0);
  if (policy == SCHED_FIFO || policy == SCHED_RR) return REALTIME_PRIORITY_CLASS;
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, 0);
  if (nice <= -5) return HIGH_PRIORITY_CLASS;
  if (nice >= 10) return IDLE_PRIORITY_CLASS;
  return NORMAL_PRIORITY_CLASS;
}

int alleg_prio(unsigned cls) {
  if (cls != REALTIME_PRIORITY_CLASS && cls != HIGH_PRIORITY_CLASS && cls != NORMAL_PRIORITY_CLASS &&
      cls != IDLE_PRIORITY_CLASS) {
    alleg_warning("SetPriorityClass(%d) failed with error %d", static_cast<int>(cls), EINVAL);
    return 0;
  }
  if (const int err = apply_all(cls)) {
    alleg_warning("SetPriorityClass(%d) failed with error %d", static_cast<int>(cls), err);
    return 0;
  }
  cpu_spread(cls == REALTIME_PRIORITY_CLASS);
  // Real-time threads must not wait on page faults; other classes let go.
  if (cls == REALTIME_PRIORITY_CLASS) {
    if (mlockall(MCL_CURRENT | MCL_FUTURE) != 0) alleg_warning("mlockall failed with error %d", errno);
  } else {
    munlockall();
  }
  const unsigned now = alleg_get_prio();
  if (now != cls) alleg_warning("PriorityClass: %d", static_cast<int>(now));
  return 0;
}

bool alleg_is_prio(unsigned cls) { return alleg_get_prio() == cls; }

int alleg_high() {
  if (alleg_prio(configured_) != 0) {
    alleg_warning("could not set realtime priority");
    configured_ = HIGH_PRIORITY_CLASS;
    if (alleg_prio(configured_) != 0) {
      alleg_error("could not set high priority");
      return -1;
    }
  }
  return 0;
}

void alleg_noreal() {
  configured_ = HIGH_PRIORITY_CLASS;
  alleg_high();
}

bool alleg_is_high() { return alleg_is_prio(configured_); }
void alleg_normal() { alleg_prio(NORMAL_PRIORITY_CLASS); }
bool alleg_is_normal() { return alleg_is_prio(NORMAL_PRIORITY_CLASS); }
void alleg_low() {
  switch (alleg_lowering(alleg_get_prio(), limit(RLIMIT_NICE), limit(RLIMIT_RTPRIO), cap_sys_nice())) {
    case LOWER_IDLE:
      alleg_message("priority: idle while switched out");
      alleg_prio(IDLE_PRIORITY_CLASS);
      break;
    case LOWER_BATCH:
      alleg_message("priority: batch scheduling, since nice 19 could not be undone");
      if (const int err = apply_all(kBatch)) alleg_warning("SCHED_BATCH failed with error %d", err);
      break;
    case LOWER_NONE:
      alleg_message("priority: kept, since a lower one could not be undone");
      break;
  }
}
unsigned alleg_prio_class() { return configured_; }
void alleg_prio_class(unsigned cls) { configured_ = cls; }

// Keeping the display awake is the screen-saver control of the display layer
// on X11; there is no separate system call to make here.
unsigned MySetThreadExecutionState(unsigned) { return 0; }
