// The test clock: milliseconds counted by a 1 ms callback, refined between
// ticks by a high-resolution counter (CLOCK_MONOTONIC_RAW, ns). All waiting
// is spinning; nothing here sleeps but the tick thread. Stopping the clock
// freezes it.
#pragma once
#include <cstdint>

uint64_t alleg_timer_rdtsc();
// Measures the counter against one second of callback ticks and logs it.
int alleg_rdtsc_init();
// The 1 ms callback; never called by program code.
void alleg_timer_handler();
// One tick stamped with the counter value at which it was due.
void alleg_timer_tick(uint64_t stamp);
// The tick thread's step: one tick for every millisecond due by mono_ns
// (CLOCK_MONOTONIC), from due_ns on, each stamped at its due time on the
// counter (which read `counter` at mono_ns). Returns the next due time.
uint64_t alleg_timer_due(uint64_t due_ns, uint64_t mono_ns, uint64_t counter);
// Starts and stops the thread that calls the tick every millisecond of
// CLOCK_MONOTONIC; -1 with errno when it cannot be started.
int alleg_timer_install();
void alleg_timer_remove();
// Sets the running flag and stamps the last tick: the clock starts.
void alleg_timer_start();

long alleg_get_timer();
// CLOCK_MONOTONIC in microseconds: the system's clock, for records that
// other processes compare with (port traces).
unsigned long long alleg_system_us();
// The test clock's reading (µs) at a moment given in CLOCK_MONOTONIC µs
// (a display's or a sound device's time stamp), by the distance between the
// two clocks now. The test clock keeps CLOCK_MONOTONIC's pace while it
// runs, so the moment may lie a while before or after now.
unsigned long long alleg_utimer_at(unsigned long long system_us);
// Its inverse: the CLOCK_MONOTONIC moment (µs) of a test clock reading.
unsigned long long alleg_system_us_at(unsigned long long test_us);
unsigned long long alleg_get_utimer();
// Stops nest: each alleg_timer_stop is taken back by one alleg_timer_cont,
// and the clock runs again when none is left. The result is the number of
// stops still in force (0: the clock runs). On a running clock continuing
// changes nothing.
void alleg_timer_stop();
int alleg_timer_cont();
void alleg_rest(long ms);
int alleg_urest(unsigned long long us);

// Waits ms of real time whether the test clock runs or not (the pause
// dialogue waits while the clock is stopped).
void alleg_wait_real(long ms);

int alleg_refresh_rate();
void alleg_refresh_rate(int hz);
double alleg_refresh_time();
int alleg_toler();
void alleg_toler(int t);
unsigned long long alleg_tics_per_s();

// Test seams: replace the counter, set the frequency without measuring, and
// put the clock back to its state before start-up.
void alleg_timer_counter(uint64_t (*counter)());
void alleg_timer_frequency(unsigned long long tics_per_s);
void alleg_timer_reset();
