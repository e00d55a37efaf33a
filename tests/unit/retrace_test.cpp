// The retrace wait without a display device: simulated on the test clock,
// phase-locked so that consecutive waits end exactly one period apart.
#include <gtest/gtest.h>

#include "fake_clock.h"
#include "platform/display.h"
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
