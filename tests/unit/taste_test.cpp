// The reaction-key layer: one report per press, dead times, the release
// request, and the keyboard's handling of other keys.

#include "input/taste.h"
#include "input/tastatur.h"
#include "test_support.h"

namespace {

int level = 0;  // what a level device (response box, pedal) reads now
int read_level(int& code) { return code = level, 0; }

std::vector<int> waiting, put_back;
const tastatur_device kKeys{[] { return take_key(waiting); }, [](int k) { put_back.push_back(k); }, nullptr, nullptr,
                            nullptr};

struct Taste : ::testing::Test {
  void SetUp() override { test_allegro(), fake_clock::start(), taste_reset(); }
  void TearDown() override { taste_reset(), tastatur_fake(nullptr), fake_clock::stop(); }
  // Runs the clock to test time t, then takes one buffered reading.
  int poll_at(long t) {
    while (fake_clock::test_ms() < t) fake_clock::read();
    int code = -1;
    long now = 0;
    EXPECT_EQ(taste_buffered(code, now), 0);
    EXPECT_EQ(now, t);
    return code;
  }
};

// At test time t the device reads level: the code reported, and the time of
// the press whose release is requested (0: none).
struct Step { long t; int level, code; long please; };

TEST_F(Taste, HeldKeysAreReportedOnceWithDeadTimesAndReleaseRequest) {
  const struct { _taste_typ type; long dead_time; std::vector<Step> steps; } cases[] = {
      // Dead time after the press, 800 ms held is not yet too long, a press
      // inside the dead time after the release is not reported.
      {TASTE_VOK, 100, {{10, 1, 1, 0}, {50, 1, 0, 0}, {111, 1, 0, 0}, {810, 1, 0, 0}, {811, 1, 0, 10},
                        {900, 0, 0, 0}, {950, 2, 0, 0}, {1001, 2, 0, 0}, {1002, 2, 2, 0}}},
      // A release during the first dead time is seen after it; the second
      // dead time runs from the release on.
      {TASTE_VOK, 200, {{0, 3, 3, 0}, {150, 0, 0, 0}, {201, 0, 0, 0}, {202, 0, 0, 0}, {300, 3, 0, 0},
                        {403, 3, 0, 0}, {404, 3, 3, 0}}},
      // Code 9 is passed through while held; other codes would read 0.
      {TASTE_FUSS, 200, {{0, 9, 9, 0}, {100, 9, 0, 0}, {201, 9, 0, 0}, {300, 9, 9, 0}, {400, 9, 9, 0}}},
  };
  for (const auto& c : cases) {
    SetUp();
    ASSERT_EQ(taste_init(1, "ignored", c.dead_time, 0), 0);  // the name form always takes the keyboard...
    taste_fake(read_level, c.type);                          // ...so put the level device back
    for (const Step& s : c.steps) {
      level = s.level;
      EXPECT_EQ(poll_at(s.t), s.code) << c.type << " at " << s.t;
      long t = 0;
      EXPECT_EQ(taste_please(t) ? t : 0, s.please) << c.type << " at " << s.t;
    }
  }
}

TEST_F(Taste, KeyboardReportsEveryEventAndPutsOtherKeysBack) {
  tastatur_fake(&kKeys);
  ASSERT_EQ(taste_init(1, 100, 0), 0);
  waiting = {'1', '1', 'a', '8', '9'};
  put_back.clear();
  std::vector<int> codes;
  for (int i = 0; i < 4; ++i) codes.push_back(poll_at(i));
  EXPECT_EQ(codes, (std::vector<int>{1, 1, 8, 0}));
  // Other keys go back in their order and never hide a reaction key.
  EXPECT_EQ(put_back, (std::vector<int>{'a', '9'}));
}

TEST_F(Taste, DisabledLayerReadsNothingUnknownDeviceTypeFails) {
  taste_fake(read_level, TASTE_VOK);
  level = 1;
  taste_disable();
  int code = -1;
  long now = -1;
  EXPECT_EQ(std::make_tuple(taste_buffered(code, now), code, now), std::make_tuple(0, 0, -1L));  // no clock read
  taste_enable();
  EXPECT_EQ(poll_at(5), 1);

  LogCapture log;
  taste_reset();
  EXPECT_TRUE(taste_init(1, static_cast<_taste_typ>(7), 100, 0) == -1 && log.has("taste/typ: Invalid argument"));
  EXPECT_TRUE(taste_read(code) == -1 && code == 0);
}

}  // namespace
