// The trigger wait: exact input names, the delay without a trigger, the
// timed and untimed waits for the second reaction key and for the response
// box's acknowledge line, and who may stop them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "fake_clock.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "input/vok.h"
#include "ports/trigger.h"
#include "sim_port.h"
#include "test_support.h"

namespace {

std::vector<int> keys;  // experimenter's keys, one per read
int next_key() {
  if (keys.empty()) return 0;
  const int k = keys.front();
  keys.erase(keys.begin());
  return k;
}
void unget(int) {}
const tastatur_device kKeys{next_key, unget, nullptr};

long key2_at = -1;  // test time from which the second reaction key is down
int read_key2(int& code) {
  fake_clock::read();  // reading a device takes time
  code = key2_at >= 0 && fake_clock::test_ms() >= key2_at ? 2 : 0;
  return 0;
}

class Trigger : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    keys.clear();
    key2_at = -1;
    taste_fake(read_key2, TASTE_VOK);
    tastatur_fake(&kKeys);
  }
  void TearDown() override {
    trigger_init(TRIGGER_NONE, 0);
    taste_reset();
    tastatur_fake(nullptr);
    fake_clock::stop();
  }
  LogCapture log;
};

TEST_F(Trigger, InputAndShowNamesAreExact) {
  EXPECT_EQ(trigger_init("space", "Yes"), 0);
  EXPECT_EQ(trigger_init("Space", "yes"), -1);
  EXPECT_TRUE(log.has("error: 0: trigger_init: Invalid argument"));
  EXPECT_TRUE(log.has("error: 0: Space: Invalid argument"));
  EXPECT_EQ(trigger_init("none", "maybe"), -1);
  EXPECT_TRUE(log.has("maybe: Invalid argument"));
}

TEST_F(Trigger, NoneWaitsTheDelayOrFails) {
  trigger_init(TRIGGER_NONE, 1);
  EXPECT_EQ(trigger_wait(500), 0);
  EXPECT_GE(fake_clock::test_ms(), 500);
  EXPECT_EQ(trigger_wait(0), -1);
  EXPECT_TRUE(log.has("no trigger and no delay"));
}

TEST_F(Trigger, TimedKeyWaitGivesUpAndCannotBeStopped) {
  trigger_init(TRIGGER_KEY2, 0);
  keys = {'x', 'x'};
  EXPECT_EQ(trigger_wait(1000), 0);
  EXPECT_GT(fake_clock::test_ms(), 1000);
  EXPECT_TRUE(log.has("no trigger observed after 1000 ms. continuing..."));
  EXPECT_FALSE(log.has("stopped"));
}

TEST_F(Trigger, UntimedKeyWaitEndsWithTheKeyOrWithX) {
  trigger_init(TRIGGER_KEY2, 0);
  key2_at = 300;
  EXPECT_EQ(trigger_wait(0), 0);
  EXPECT_GE(fake_clock::test_ms(), 300);
  key2_at = -1;
  keys = {'a', 'X'};
  EXPECT_EQ(trigger_wait(0), -1);
  EXPECT_TRUE(log.has("stopped"));
}

TEST_F(Trigger, SpaceWaitSkipsOtherKeys) {
  trigger_init(TRIGGER_SPACE, 0);
  keys = {'x', 'a', ' '};
  EXPECT_EQ(trigger_wait(0), 0);
  EXPECT_TRUE(keys.empty());
}

// The acknowledge line (status bit 0x40) of a box on a simulated LPT1.
class TriggerAck : public Trigger {
 protected:
  void SetUp() override {
    Trigger::SetUp();
    trigger_init(TRIGGER_ACK, 0);
    ASSERT_EQ(vok_init(2, VOK_LPT1, 0), 0);
  }
  void TearDown() override {
    fake_clock::step_ns() = 2000;
    vok_reset();
    Trigger::TearDown();
  }
  TempDir dir;
  SimPort port{dir, 1};
  LogCapture box_log{{port.arg()}};
};

TEST_F(TriggerAck, UntimedWaitEndsOnlyWithTheLine) {
  keys = {'x', 'X'};
  std::atomic<bool> done{false};
  // The line rises a few ms into the wait; a wait that misses it would
  // never end, so it ends the test run instead of hanging.
  std::thread box([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    port.set_status(0x78);
    for (int i = 0; i < 10000 && !done; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!done) {
      fprintf(stderr, "TriggerAck: the wait missed the acknowledge line\n");
      std::abort();
    }
  });
  const int result = trigger_wait(0);
  done = true;
  box.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(keys.size(), 2u);  // x is not even read
  EXPECT_FALSE(box_log.has("stopped"));
}

TEST_F(TriggerAck, TimedWaitEndsWithTheLineStopsWithXOrGivesUp) {
  port.set_status(0x78);
  keys = {'x'};
  EXPECT_EQ(trigger_wait(1000), 0);
  EXPECT_EQ(keys.size(), 1u);  // the line is read first
  port.set_status(0x38);
  keys = {'a', 'x'};
  EXPECT_EQ(trigger_wait(1000), -1);
  EXPECT_TRUE(keys.empty());
  EXPECT_TRUE(box_log.has("stopped"));
  fake_clock::step_ns() = 100000;  // fewer turns of the loop per ms
  const long start = fake_clock::test_ms();
  EXPECT_EQ(trigger_wait(1000), 0);
  EXPECT_GT(fake_clock::test_ms() - start, 1000);
  EXPECT_TRUE(box_log.has("no trigger observed after 1000 ms. continuing..."));
}

TEST_F(TriggerAck, AReadErrorEndsTheWait) {
  vok_init(2, static_cast<_vok_port>(35), 0);  // a port the raw reading does not serve
  EXPECT_EQ(trigger_wait(0), -1);
  EXPECT_TRUE(box_log.has("vok/port: Invalid argument"));
}

}  // namespace
