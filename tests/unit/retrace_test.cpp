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
