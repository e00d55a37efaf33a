// A test clock that runs by itself: every counter reading advances virtual
// time by a fixed step, and each whole millisecond passed calls the 1 ms
// tick, as the timer thread would. Spinning code thus moves time forward.
#pragma once
#include <cstdint>

#include "platform/timer.h"

namespace fake_clock {

inline uint64_t& now_ns() {
  static uint64_t t = 0;
  return t;
}
inline uint64_t& step_ns() {
  static uint64_t s = 2000;
  return s;
}

inline uint64_t read() {
  static bool in_tick = false;
  static uint64_t ticked_ms = 0;
  now_ns() += step_ns();
  if (!in_tick) {
    in_tick = true;
    if (now_ns() / 1000000 < ticked_ms) ticked_ms = now_ns() / 1000000;
    while (ticked_ms < now_ns() / 1000000) {
      ++ticked_ms;
      alleg_timer_handler();
    }
    in_tick = false;
  }
  return now_ns();
}

// Wall time of the latest reading in ms since start(), without advancing.
inline long ms() { return static_cast<long>(now_ns() / 1000000) - 1000; }

// The test clock at the latest reading, without advancing (it stands still
// while the program has stopped it).
inline long test_ms() {
  const uint64_t step = step_ns();
  step_ns() = 0;
  const long t = alleg_get_timer();
  step_ns() = step;
  return t;
}

// Starts the clock at test time 0 with a 1 GHz counter.
inline void start() {
  alleg_timer_reset();
  now_ns() = 1000000000ull;  // a non-zero counter: 0 reads as "no stamp"
  read();
  alleg_timer_counter(read);
  alleg_timer_frequency(1000000000ull);
  alleg_timer_start();
}

inline void stop() { alleg_timer_reset(); }

}  // namespace fake_clock

// The test clock on the real counter (1 ns ticks, no 1 ms callback needed
// for microseconds): for tests that compare with traces of real time.
namespace real_clock {
inline void start() {
  alleg_timer_reset();
  alleg_timer_frequency(1000000000ull);
  alleg_timer_start();
}
}  // namespace real_clock
