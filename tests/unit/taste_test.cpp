// The reaction-key layer: one report per press, dead times, the release
// request, and the keyboard's handling of other keys.
#include <gtest/gtest.h>

#include <vector>

#include "fake_clock.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "test_support.h"

namespace {

int level = 0;  // what a level device (response box, pedal) reads now
int read_level(int& code) {
  code = level;
  return 0;
}

std::vector<int> waiting, put_back;
int next_key() {
  if (waiting.empty()) return 0;
  const int k = waiting.front();
  waiting.erase(waiting.begin());
  return k;
}
void unget(int k) { put_back.push_back(k); }
const tastatur_device kKeys{next_key, unget, nullptr};

class Taste : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    taste_reset();
    level = 0;
    waiting.clear();
    put_back.clear();
  }
  void TearDown() override {
    taste_reset();
    tastatur_fake(nullptr);
    fake_clock::stop();
  }
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

TEST_F(Taste, HeldKeyIsReportedOnceWithDeadTimesAndReleaseRequest) {
  taste_fake(read_level, TASTE_VOK);
  ASSERT_EQ(taste_init(1, "ignored", 100, 0), 0);  // the name form always takes the keyboard...
  taste_fake(read_level, TASTE_VOK);              // ...so put the level device back
  level = 1;
  EXPECT_EQ(poll_at(10), 1);   // the press, once
  EXPECT_EQ(poll_at(50), 0);   // dead time after the press
  EXPECT_EQ(poll_at(111), 0);  // dead time over: now waiting for the release
  long t;
  EXPECT_EQ(taste_please(t), 0);
  EXPECT_EQ(poll_at(810), 0);
  EXPECT_EQ(taste_please(t), 0);  // 800 ms after the press is not yet too long
  EXPECT_EQ(poll_at(811), 0);
  EXPECT_EQ(taste_please(t), 1);
  EXPECT_EQ(t, 10);
  level = 0;
  EXPECT_EQ(poll_at(900), 0);  // released: dead time after the release
  EXPECT_EQ(taste_please(t), 0);
  level = 2;
  EXPECT_EQ(poll_at(950), 0);   // a press inside that dead time is not reported
  EXPECT_EQ(poll_at(1001), 0);  // back to idle
  EXPECT_EQ(poll_at(1002), 2);
}

TEST_F(Taste, ReleaseDuringTheFirstDeadTimeIsSeenAfterIt) {
  taste_fake(read_level, TASTE_VOK);
  level = 3;
  EXPECT_EQ(poll_at(0), 3);
  level = 0;
  EXPECT_EQ(poll_at(150), 0);  // still in the first dead time (200 ms by default)
  EXPECT_EQ(poll_at(201), 0);  // the dead time ends
  EXPECT_EQ(poll_at(202), 0);  // the release is seen now
  level = 3;
  EXPECT_EQ(poll_at(300), 0);  // second dead time, from the release on
  EXPECT_EQ(poll_at(403), 0);  // back to idle
  EXPECT_EQ(poll_at(404), 3);
}

TEST_F(Taste, CodeNineIsPassedThroughWhileHeld) {
  taste_fake(read_level, TASTE_FUSS);
  level = 9;
  EXPECT_EQ(poll_at(0), 9);
  EXPECT_EQ(poll_at(100), 0);
  EXPECT_EQ(poll_at(201), 0);  // the dead time ends
  EXPECT_EQ(poll_at(300), 9);  // held: other codes would read 0
  EXPECT_EQ(poll_at(400), 9);
}

TEST_F(Taste, KeyboardReportsEveryEventAndPutsOtherKeysBack) {
  tastatur_fake(&kKeys);
  ASSERT_EQ(taste_init(1, 100, 0), 0);
  waiting = {'1', '1', 'a', '8', '9'};
  std::vector<int> codes;
  for (int i = 0; i < 4; ++i) codes.push_back(poll_at(i));
  EXPECT_EQ(codes, (std::vector<int>{1, 1, 8, 0}));
  // Other keys go back in their order and never hide a reaction key.
  EXPECT_EQ(put_back, (std::vector<int>{'a', '9'}));
}

TEST_F(Taste, DisabledLayerReadsNothing) {
  taste_fake(read_level, TASTE_VOK);
  level = 1;
  taste_disable();
  int code = -1;
  long now = -1;
  EXPECT_EQ(taste_buffered(code, now), 0);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(now, -1);  // the clock is not read
  taste_enable();
  EXPECT_EQ(poll_at(5), 1);
}

TEST_F(Taste, UnknownDeviceTypeFails) {
  LogCapture log;
  EXPECT_EQ(taste_init(1, static_cast<_taste_typ>(7), 100, 0), -1);
  EXPECT_TRUE(log.has("taste/typ: Invalid argument"));
  int code = 5;
  EXPECT_EQ(taste_read(code), -1);
  EXPECT_EQ(code, 0);
}

}  // namespace
