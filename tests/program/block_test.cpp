// Blocks answered by a scripted participant through XTEST: classification,
// the pause dialogue with continue and exit, and the drawing area.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include "fixture.h"

using harness::contains;

namespace {

struct Outcome {
  int kritisch, reaktion;
  long reakzeit;
};

// Results lines "nummer kritisch reaktion reakzeit" by trial number.
std::map<int, Outcome> outcomes(const std::string& results) {
  std::map<int, Outcome> m;
  std::istringstream s(results);
  for (std::string line; std::getline(s, line);) {
    int n;
    Outcome o;
    if (sscanf(line.c_str(), "%d %d %d %ld", &n, &o.kritisch, &o.reaktion, &o.reakzeit) == 4) m[n] = o;
  }
  return m;
}

class Block : public ProgramTest {
 protected:
  // Starts the program on the block and returns once the block has started:
  // a figure ahead of its trials, at its start and for 300 ms, is on the
  // screen. (The start-up after the window is up takes its own time.)
  harness::Started start_block(const std::string& trials, const std::string& cfg = "") {
    dir.write("t.s", "shape t0=0 t1=300 shape=0 color=2 filled=2 size=2;\n" + trials);
    dir.write("t.cfg", cfg);
    harness::Started p = harness::start(dir, args());
    EXPECT_TRUE(x.wait_for_window(640, 480, 10000, &window)) << "no window";
    const long long give_up = harness::steady_ns() + 10000000000ll;
    // The drawing area, and the figure with it, is centred on the screen.
    while (x.lit(462, 334, 100, 100) == 0 && harness::steady_ns() < give_up) {
    }
    t0 = harness::steady_ns();
    return p;
  }
  void press_at(long ms, const char* key) {
    harness::sleep_until_ms(t0, ms);
    x.press(key);
  }

  harness::X x;
  harness::X::Rect window{0, 0, 0, 0};
  long long t0 = 0;
};

TEST_F(Block, ResponsesAreClassified) {
  const harness::Started p = start_block(
            "null nummer=1 t0=1000 t1=100 kritisch=1\n"   // correct
            "null nummer=2 t0=2000 t1=100 kritisch=2\n"   // wrong key
            "null nummer=3 t0=3000 t1=100 kritisch=0\n"   // false alarm
            "null nummer=4 t0=4000 t1=100 kritisch=1\n"   // omission
            "null nummer=5 t0=4500 t1=100 kritisch=1\n");  // too early: ignored, so an omission
  press_at(1500, "1");
  press_at(2500, "1");
  press_at(3500, "3");
  press_at(4540, "1");
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 0) << log;
  expect_log_well_formed();
  const std::map<int, Outcome> o = outcomes(results);
  ASSERT_EQ(o.size(), 5u) << results;
  EXPECT_EQ(o.at(1).reaktion, 1);
  EXPECT_NEAR(o.at(1).reakzeit, 500, 150);
  EXPECT_EQ(o.at(2).reaktion, 1);
  EXPECT_EQ(o.at(3).reaktion, 3);
  EXPECT_EQ(o.at(4).reaktion, 0);
  EXPECT_EQ(o.at(5).reaktion, 0);
  EXPECT_EQ(harness::lines_with(log, "too late").size(), 0u) << log;
}

TEST_F(Block, PauseAndContinueEliminatesTheTrialAndRestoresTheScreen) {
  const harness::Started p = start_block(
            "null nummer=1 t0=1000 t1=100 kritisch=1\n"
            "null nummer=2 t0=3000 t1=100 kritisch=1\n");
  press_at(1500, "1");
  press_at(1800, "s");
  harness::sleep_until_ms(t0, 2100);
  // The dialogue's two texts, drawn with the proportional face, at the bottom.
  EXPECT_GT(x.lit(212, 668, 600, 100), 500);
  press_at(2300, "c");
  harness::sleep_until_ms(t0, 2800);
  EXPECT_EQ(x.lit(212, 668, 600, 100), 0);  // the area is restored
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 0) << log;
  EXPECT_TRUE(contains(log, "stopped (s pressed)"));
  EXPECT_TRUE(contains(log, "Please release the key."));
  EXPECT_TRUE(contains(log, "continuing (c pressed)"));
  EXPECT_TRUE(contains(log, "key blocked in trial number 1"));
  const std::map<int, Outcome> o = outcomes(results);
  EXPECT_EQ(o.count(1), 0u) << results;  // eliminated
  ASSERT_EQ(o.count(2), 1u) << results;
  EXPECT_EQ(o.at(2).reaktion, 0);
}

TEST_F(Block, SmallScreenIsUsedWhole) {
  const harness::Started p = start_block("null nummer=1 t0=500 t1=100 kritisch=1\nnull nummer=2 t0=1500 t1=100 kritisch=1\n",
                                         "screen-width = 800\nscreen-height = 600\n");
  press_at(800, "s");
  harness::sleep_until_ms(t0, 1100);
  // The dialogue sits at the bottom of the 800 x 600 screen, not of a
  // 1024 x 768 area. (The window has its final place by now.)
  x.wait_for_window(640, 480, 1000, &window);
  EXPECT_EQ(window.w, 800);
  EXPECT_EQ(window.h, 600);
  EXPECT_GT(x.lit(window.x + 100, window.y + 500, 600, 100), 500);
  press_at(1200, "x");
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(log, "Minimum screen resolution: 1024 x 768")) << log;
}

}  // namespace
