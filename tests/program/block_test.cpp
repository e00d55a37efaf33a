// A block answered by a scripted participant through XTEST: the pause
// dialogue with continue, on a screen smaller than the usual drawing area.

#include "fixture.h"

using harness::contains;

namespace {

using Block = ProgramTest;

// On an 800 x 600 screen the whole screen is the drawing area: the pause
// dialogue sits at its bottom, not at that of a 1024 x 768 area.
TEST_F(Block, PauseAndContinueEliminatesTheTrialAndRestoresTheScreen) {
  // A word at the block's start, for 300 ms, tells the participant that
  // the block has started (start-up after the window is up takes its time).
  dir.write("t.s",
            "word t0=0 t1=300 string=Ab\n"
            "null nummer=1 t0=1000 t1=100 kritisch=1\n"
            "null nummer=2 t0=3000 t1=100 kritisch=1\n");
  dir.write("t.cfg", "screen-width = 800\nscreen-height = 600\n");
  harness::X x;
  harness::X::Rect w{0, 0, 0, 0};
  const harness::Started p = harness::start(dir, args());
  ASSERT_TRUE(x.wait_for_window(640, 480, 10000, &w)) << "no window";
  const long long give_up = harness::steady_ns() + 10000000000ll;
  while (x.lit(462, 334, 100, 100) == 0 && harness::steady_ns() < give_up) {
  }  // the drawing area, with the figure in its middle, is centred on the screen
  const long long t0 = harness::steady_ns();
  for (const auto& [ms, key] : std::vector<std::pair<long, const char*>>{{1500, "1"}, {1800, "s"}}) {
    harness::sleep_until_ms(t0, ms);
    x.press(key);
  }
  harness::sleep_until_ms(t0, 2100);
  x.wait_for_window(640, 480, 1000, &w);  // the window has its final place by now
  EXPECT_TRUE(w.w == 800 && w.h == 600) << w.w << " x " << w.h;
  // The dialogue's two texts, drawn with the proportional face.
  EXPECT_GT(x.lit(w.x + 100, w.y + 500, 600, 100), 500);
  harness::sleep_until_ms(t0, 2300);
  x.press("c");
  harness::sleep_until_ms(t0, 2800);
  EXPECT_EQ(x.lit(w.x + 100, w.y + 500, 600, 100), 0);  // the area is restored
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 0) << log;
  for (const char* said : {"stopped (s pressed)", "Please release the key.", "continuing (c pressed)",
                           "key blocked in trial number 1", "Minimum screen resolution: 1024 x 768"})
    EXPECT_TRUE(contains(log, said)) << said << "\n" << log;
  // Results lines "nummer kritisch reaktion reakzeit": the answered trial is
  // eliminated, the second one an omission.
  int n = 0, kritisch = 0, reaktion = -1;
  EXPECT_TRUE(sscanf(results.c_str(), "%d %d %d", &n, &kritisch, &reaktion) == 3 && n == 2 && reaktion == 0 &&
              harness::lines_with(results, " ").size() == 1)
      << results;
}

}  // namespace
