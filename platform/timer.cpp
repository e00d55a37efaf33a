#include "platform/timer.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "services/log.h"

namespace {
// Shared with the timer thread without locks; relaxed atomics keep each
// access whole and cost nothing more than a plain load or store on x86.
std::atomic<int32_t> ticks_{0};
std::atomic<int> running_{0};
std::atomic<uint64_t> stamp_{0};
// Odd while count and stamp are being changed (a sequence lock).
std::atomic<uint32_t> seq_{0};
// The reading at the moment the clock was stopped; returned while stopped.
long frozen_ms_ = 0;
// Stops in force; the clock runs again when the last one is taken back, if
// the first one froze it.
int stops_ = 0;
bool frozen_ = false;
unsigned long long frozen_us_ = 0;

unsigned long long tics_per_s_ = 0;
uint64_t tics_per_ms_ = 0;
uint64_t tics_per_us_ = 0;

int refresh_rate_ = 60;
double refresh_time_ = 1000.0 / 60;
int toler_ = 10;

uint64_t system_counter() {
  timespec ts;
  if (clock_gettime(CLOCK_MONOTONIC_RAW, &ts) != 0) return 0;
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

uint64_t (*counter_)() = system_counter;

// A consistent pair of tick count and stamp: a new count with an old stamp
// (or the reverse) would make the clock step back by up to a millisecond.
void snapshot(int32_t& ticks, uint64_t& stamp) {
  for (;;) {
    const uint32_t before = seq_.load(std::memory_order_acquire);
    ticks = ticks_.load(std::memory_order_acquire);
    stamp = stamp_.load(std::memory_order_acquire);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (!(before & 1u) && seq_.load(std::memory_order_relaxed) == before) return;
  }
}
}  // namespace

uint64_t alleg_timer_rdtsc() { return counter_(); }

void alleg_timer_handler() { alleg_timer_tick(alleg_timer_rdtsc()); }

void alleg_timer_tick(uint64_t stamp) {
  if (!running_.load(std::memory_order_relaxed)) return;
  seq_.fetch_add(1, std::memory_order_acq_rel);
  if (running_.load(std::memory_order_acquire)) {
    ticks_.store(ticks_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    stamp_.store(stamp, std::memory_order_release);
  }
  seq_.fetch_add(1, std::memory_order_release);
}

uint64_t alleg_timer_due(uint64_t due_ns, uint64_t mono_ns, uint64_t counter) {
  while (due_ns <= mono_ns) {
    alleg_timer_tick(counter - (mono_ns - due_ns));
    due_ns += 1000000ull;
  }
  return due_ns;
}

namespace {
std::atomic<bool> ticking_{false};
pthread_t tick_thread_;

uint64_t monotonic_ns() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

// Sleeps to absolute due times 1 ms apart on CLOCK_MONOTONIC, so the count
// never drifts, and stamps each tick with its due time on the counter, so a
// late wake-up does not hold the clock back.
// The thread wakes half a millisecond after each due time: actions fall due
// on the millisecond, and where the loop that spins to one shares its core
// with this thread (one processor, or `cpu = none`), a thread woken on the
// millisecond would take the core from the loop at the very moment the
// action is due. The clock reads the same, as the loop reads past the last
// tick by the counter.
void* tick_loop(void*) {
  const uint64_t kPhaseNs = 500000;
  uint64_t due = monotonic_ns() + 1000000ull;
  while (ticking_.load(std::memory_order_relaxed)) {
    const uint64_t wake = due + kPhaseNs;
    const timespec at{static_cast<time_t>(wake / 1000000000ull), static_cast<long>(wake % 1000000000ull)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
    }
    const uint64_t mono = monotonic_ns();
    due = alleg_timer_due(due, mono, alleg_timer_rdtsc());
  }
  return nullptr;
}
}  // namespace

int alleg_timer_install() {
  if (ticking_.load()) return 0;
  ticking_.store(true);
  if (const int err = pthread_create(&tick_thread_, nullptr, tick_loop, nullptr)) {
    ticking_.store(false);
    errno = err;
    return -1;
  }
  return 0;
}

void alleg_timer_remove() {
  if (!ticking_.exchange(false)) return;
  pthread_join(tick_thread_, nullptr);
}

void alleg_timer_start() {
  stamp_.store(alleg_timer_rdtsc());
  running_.store(1);
}

// The ticks fall due on CLOCK_MONOTONIC's milliseconds, so their second is
// CLOCK_MONOTONIC's: the counter is read against it at both ends of the
// one-second rest, each reading between two of CLOCK_MONOTONIC close
// together (a reading that a preemption split is taken again). Read when
// the spin saw the 1000th tick, the counter came out 0.1-0.25 % fast: the
// tick thread wakes late while the spin holds its core.
namespace {
void counter_at_monotonic(uint64_t& counter, uint64_t& mono) {
  for (int tries = 0;; ++tries) {
    const uint64_t before = monotonic_ns();
    counter = alleg_timer_rdtsc();
    const uint64_t after = monotonic_ns();
    mono = before + (after - before) / 2;
    if (after - before < 20000 || tries == 100) return;
  }
}
}  // namespace

int alleg_rdtsc_init() {
  uint64_t c0, m0, c1, m1;
  counter_at_monotonic(c0, m0);
  alleg_rest(1000);
  counter_at_monotonic(c1, m1);
  if (counter_ == system_counter && m1 > m0)
    alleg_timer_frequency(static_cast<unsigned long long>((c1 - c0) * 1000000000.0L / (m1 - m0) + 0.5L));
  else
    alleg_timer_frequency(c1 - c0);  // a counter of the tests' own: against the ticks
  alleg_message("rdtsc: %Lu tics/s", tics_per_s_);
  alleg_message("rdtsc: %Lu tics/ms", static_cast<unsigned long long>(tics_per_ms_));
  alleg_message("rdtsc: %Lu tics/us", static_cast<unsigned long long>(tics_per_us_));
  return 0;
}

void alleg_timer_frequency(unsigned long long tics_per_s) {
  tics_per_s_ = tics_per_s;
  tics_per_ms_ = tics_per_s / 1000;
  tics_per_us_ = tics_per_ms_ / 1000;
}

long alleg_get_timer() {
  if (!running_.load(std::memory_order_acquire) && stamp_.load(std::memory_order_relaxed)) return frozen_ms_;
  int32_t ticks;
  uint64_t stamp;
  snapshot(ticks, stamp);
  long t = ticks;
  if (tics_per_s_ && stamp && tics_per_ms_) {
    const uint64_t d = (alleg_timer_rdtsc() - stamp) / tics_per_ms_;
    if (d <= 19) t += static_cast<long>(d);
  }
  return t;
}

unsigned long long alleg_system_us() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<unsigned long long>(ts.tv_sec) * 1000000ull + static_cast<unsigned long long>(ts.tv_nsec) / 1000;
}

namespace {
// The test clock minus CLOCK_MONOTONIC now (µs).
long long clock_distance() {
  const unsigned long long before = alleg_system_us();
  const unsigned long long test = alleg_get_utimer();
  const unsigned long long after = alleg_system_us();
  return static_cast<long long>(test) - static_cast<long long>(before + (after - before) / 2);
}
}  // namespace

unsigned long long alleg_utimer_at(unsigned long long system_us) {
  const long long at = static_cast<long long>(system_us) + clock_distance();
  return at > 0 ? static_cast<unsigned long long>(at) : 0;
}

unsigned long long alleg_system_us_at(unsigned long long test_us) {
  const long long at = static_cast<long long>(test_us) - clock_distance();
  return at > 0 ? static_cast<unsigned long long>(at) : 0;
}

unsigned long long alleg_get_utimer() {
  if (!running_.load(std::memory_order_acquire) && stamp_.load(std::memory_order_relaxed)) return frozen_us_;
  int32_t ticks;
  uint64_t stamp;
  snapshot(ticks, stamp);
  unsigned long long t = static_cast<unsigned long long>(static_cast<int64_t>(ticks)) * 1000ull;
  if (tics_per_s_ && stamp && tics_per_us_) t += (alleg_timer_rdtsc() - stamp) / tics_per_us_;
  return t;
}

// Stopping freezes the reading; continuing resumes from exactly that
// reading, so the clock neither jumps nor steps back across a pause. Stops
// nest: a display switch during the pause dialogue stops and continues the
// clock once more, and the clock runs again only when the dialogue ends.
void alleg_timer_stop() {
  if (stops_++ > 0 || !running_.load()) return;
  frozen_ = true;
  frozen_us_ = alleg_get_utimer();
  frozen_ms_ = alleg_get_timer();
  running_.store(0, std::memory_order_release);
}

// A running clock keeps its stamp: stamping it anew would drop the part of
// a millisecond since the last tick and make the clock step back.
int alleg_timer_cont() {
  if (stops_ > 0) --stops_;
  if (stops_ > 0 || !frozen_) return stops_;
  frozen_ = false;
  const unsigned long long part_us =
      frozen_us_ > static_cast<unsigned long long>(frozen_ms_) * 1000ull
          ? frozen_us_ - static_cast<unsigned long long>(frozen_ms_) * 1000ull
          : 0;
  seq_.fetch_add(1, std::memory_order_acq_rel);
  ticks_.store(static_cast<int32_t>(frozen_ms_), std::memory_order_release);
  stamp_.store(alleg_timer_rdtsc() - part_us * tics_per_us_, std::memory_order_release);
  seq_.fetch_add(1, std::memory_order_release);
  running_.store(1, std::memory_order_release);
  return 0;
}

void alleg_rest(long ms) {
  const long end = alleg_get_timer() + ms;
  while (alleg_get_timer() < end) {
  }
}

// Spins on the counter's nanoseconds rather than on the test clock: a timer
// thread that runs late catches up with several ticks at once and the test
// clock jumps with them, and the calibrated tics per second carry the
// jitter of the one-second measurement (0.1 to 0.4 %). A 3 ms trigger pulse
// is thus 3 ms of real time. Waits also end while the test clock stands
// still.
int alleg_urest(unsigned long long us) {
  const uint64_t until = alleg_timer_rdtsc() + us * 1000ull;
  while (alleg_timer_rdtsc() < until) {
  }
  return 0;
}

void alleg_wait_real(long ms) {
  if (ms <= 0) return;
  const uint64_t end = alleg_timer_rdtsc() + static_cast<uint64_t>(ms) * 1000000ull;
  timespec step{0, 500000};
  while (alleg_timer_rdtsc() < end)
    if (counter_ == system_counter) nanosleep(&step, nullptr);
}

int alleg_refresh_rate() { return refresh_rate_; }
void alleg_refresh_rate(int hz) {
  refresh_rate_ = hz;
  refresh_time_ = 1000.0 / hz;
}
double alleg_refresh_time() { return refresh_time_; }
int alleg_toler() { return toler_; }
void alleg_toler(int t) { toler_ = t; }
unsigned long long alleg_tics_per_s() { return tics_per_s_; }

void alleg_timer_counter(uint64_t (*counter)()) { counter_ = counter ? counter : system_counter; }

void alleg_timer_reset() {
  running_.store(0);
  ticks_.store(0);
  stamp_.store(0);
  seq_.store(0);
  frozen_ms_ = 0;
  frozen_us_ = 0;
  stops_ = 0;
  frozen_ = false;
  alleg_timer_frequency(0);
  counter_ = system_counter;
  alleg_refresh_rate(60);
  toler_ = 10;
}
