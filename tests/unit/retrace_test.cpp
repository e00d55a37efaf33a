// The retrace wait without a display device: simulated on the test clock,
// phase-locked so that consecutive waits end exactly one period apart.

#include "test_support.h"

TEST(Retrace, SimulatedWaitsArePhaseLockedToTheRefreshRate) {
  fake_clock::start();
  display_vsync_reset();
  alleg_refresh_rate(60);
  LogCapture log;
  display_vsync();
  const unsigned long long first = alleg_get_utimer();
  EXPECT_STREQ(display_vsync_source(), "simulated");
  EXPECT_TRUE(log.has("retrace: simulated at 60 Hz"));
  // Work that takes part of a frame does not shift the next retrace.
  while (alleg_get_utimer() < first + 5000) fake_clock::read();
  display_vsync();
  display_vsync();
  const unsigned long long third = alleg_get_utimer();
  EXPECT_NEAR(static_cast<double>(third - first), 2 * 16666.7, 10.0);
  // The source is logged once.
  EXPECT_EQ(log.text().find("retrace:"), log.text().rfind("retrace:"));
  display_vsync_reset();
  fake_clock::stop();
}

// Where the display does not tell onsets, a synced picture's onset lies this
// long after its drawing call: the configured system version decides as
// ever, else whether a compositing manager redirects the window.
TEST(Retrace, OnsetDelayWithoutPresentation) {
  const struct { bool version_set; double version; bool composited; double frame_ms; long delay_ms; } cases[] = {
      {false, 0, false, 1000.0 / 60, 1},        // plain X server, any kernel
      {false, 0, true, 1000.0 / 60, 33},        // compositing manager: two frames
      {false, 0, true, 10.0, 20},               // at 100 Hz
      {true, 6.1, true, 1000.0 / 60, 1},        // a configured version overrides
      {true, 6.11, false, 1000.0 / 60, 1},      // 6.11 is not above 6.11
      {true, 6.12, false, 1000.0 / 60, 33},
      {true, 10.0, false, 1000.0 / 75, 26},
  };
  for (const auto& c : cases)
    EXPECT_EQ(display_onset_delay(c.version_set, c.version, c.composited, c.frame_ms), c.delay_ms)
        << c.version_set << " " << c.version << " " << c.composited << " " << c.frame_ms;
  // Without a display nothing is presented: the rule of the fallback holds.
  EXPECT_TRUE(!display_presents() && display_present(0, 1) == 0u);
  unsigned long long us = 0;
  EXPECT_EQ(display_onset(0, us), -1);
}

// The vertical blanks as the server tells them: the first at or after a
// moment, and the moment of one, with the period measured once the blanks
// told are half a second apart.
TEST(Retrace, BlanksFoundFromThoseTold) {
  present_clock c;
  EXPECT_EQ(c.msc_at(5000), 0u);  // nothing told yet: the next blank
  c.nominal_us = 1e6 / 60;
  c.told(100, 1000000);
  const struct { uint64_t at_us, msc; } before[] = {{1000000, 100}, {1000001, 101}, {1016666, 101}, {1016667, 102},
                                                    {983333, 99},   {983334, 100},  {900000, 94},   {899999, 94}};
  for (const auto& b : before) EXPECT_EQ(c.msc_at(b.at_us), b.msc) << b.at_us;
  // A server whose blanks come every 16.8 ms: measured from 60 blanks on.
  c.told(130, 1000000 + 30 * 16800);
  EXPECT_NEAR(c.period_us(), 16800, 0.01);
  EXPECT_EQ(c.ust_of(140), 1000000u + 40 * 16800);
  EXPECT_EQ(c.msc_at(1000000 + 40 * 16800 - 100), 140u);
  // A blank counter that goes back (another screen) starts the count anew.
  c.told(5, 3000000);
  EXPECT_DOUBLE_EQ(c.period_us(), 1e6 / 60);
  EXPECT_EQ(c.ust_of(6), 3016667u);
}

// A key's X stamp bounds when it went down: the end of its ms, plus the
// coarse clock's step, on CLOCK_MONOTONIC within the last second only.
TEST(KeyStamp, LatestMomentFromTheServersMillisecond) {
  const unsigned long long now = 5000000123ull;  // 5000000.123 ms
  const uint64_t wrap = 1ull << 32;
  const struct { uint32_t stamp; unsigned long long mono_us, margin_us; bool told; unsigned long long latest; } kCases[] = {
      {5000000u, now, 0, true, 5000001000ull},  // this ms
      {4999998u, now, 0, true, 4999999000ull},
      {4999998u, now, 1000, true, 5000000000ull},  // a server on the coarse clock
      {4999000u, now, 0, true, 4999001000ull},     // a second back
      {4998999u, now, 0, false, 0},                // more: a clock of its own
      {5000001u, now, 0, false, 0},                // ahead of ours
      {static_cast<uint32_t>(wrap - 1), (wrap + 3) * 1000, 0, true, wrap * 1000},  // across the wrap
      {static_cast<uint32_t>(wrap - 5), 3000, 0, false, 0},  // before the clock began
  };
  for (const auto& c : kCases) {
    unsigned long long latest = 0;
    EXPECT_EQ(display_key_latest(c.stamp, c.mono_us, c.margin_us, latest), c.told) << c.stamp;
    if (c.told) {
      EXPECT_EQ(latest, c.latest) << c.stamp;
    }
  }
  // Without a display no key is ever stamped.
  unsigned long long at = 0;
  EXPECT_FALSE(display_key_press_latest(at));
}
