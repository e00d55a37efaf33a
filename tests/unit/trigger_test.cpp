// The trigger wait: exact input names, the delay without a trigger, the
// timed and untimed waits for the second reaction key and for the response
// box's acknowledge line, and who may stop them.

#include <chrono>
#include <csignal>
#include <future>
#include <thread>

#include "input/taste.h"
#include "input/tastatur.h"
#include "input/vok.h"
#include "platform/signals.h"
#include "ports/trigger.h"
#include "sim_port.h"
#include "test_support.h"

namespace {

std::vector<int> keys;  // experimenter's keys, one per read
const tastatur_device kKeys{[] { return take_key(keys); }, [](int) {}, nullptr, nullptr, nullptr};

long key2_at = -1;  // test time from which the second reaction key is down
int read_key2(int& code) {
  fake_clock::read();  // reading a device takes time
  code = key2_at >= 0 && fake_clock::test_ms() >= key2_at ? 2 : 0;
  return 0;
}

// The acknowledge line (status bit 0x40) comes from a box on a simulated LPT1.
struct Trigger : ::testing::Test {
  void SetUp() override {
    test_allegro(), fake_clock::start();
    fake_clock::step_ns() = 100000;  // fewer turns of the waiting loops per ms
    taste_fake(read_key2, TASTE_VOK), tastatur_fake(&kKeys);
    ASSERT_EQ(vok_init(2, VOK_LPT1, 0), 0);
  }
  void TearDown() override {
    fake_clock::step_ns() = 2000, trigger_init(TRIGGER_NONE, 0), vok_reset(), taste_reset(), tastatur_fake(nullptr);
    fake_clock::stop();
  }
  TempDir dir;
  SimPort port{dir, 1};
  LogCapture log{{port.arg()}};
};

// The box on LPT1 is polled with its data lines high: a warning when the
// trigger output is there too.
TEST_F(Trigger, InputAndShowNamesAreExactAndAckOnTheTriggerOutputsPortIsWarnedAbout) {
  EXPECT_EQ(trigger_init("space", "Yes"), 0);
  EXPECT_EQ(std::make_tuple(trigger_init("Space", "yes"), trigger_init("none", "maybe")), std::make_tuple(-1, -1));
  EXPECT_TRUE(log.has(": trigger_init: Invalid argument") && log.has(": Space: Invalid argument") &&
              log.has("maybe: Invalid argument"));
  trigger_init(TRIGGER_ACK, 0);
  EXPECT_EQ(std::make_tuple(trigger_shares_port(1), trigger_shares_port(-1), trigger_shares_port(0)), std::make_tuple(0, 0, 1));
  EXPECT_TRUE(log.has("warning: 0: trigger-input ack: the response box on LPT1 is polled"));
}

// How each wait ends, when, and who may stop it: an untimed wait for the
// key, a timed one for the line; any wait on a stop signal. Timed waits
// count real time, also while the display is switched away.
TEST_F(Trigger, WaitsEndWithTheTriggerTheTimeOrX) {
  const char* const kLate = "no trigger observed after 1000 ms. continuing...";
  // key2_at: test time the key goes down; least_ms: real time the wait takes
  // at least (timed out: more); logged: "" nothing; left: keys not read, -1
  // any; away: the test clock stands still; signal: a stop signal waits.
  // Other keys than space are skipped; with the line up it is read first.
  const struct { _trigger_type type; long ms, key2_at; bool line; std::vector<int> keys; int result; long least_ms;
                 const char* logged; int left; bool away = false, signal = false; } kCases[] = {
      {TRIGGER_NONE, 500, -1, 0, {}, 0, 500, "", 0}, {TRIGGER_NONE, 0, -1, 0, {}, -1, 0, "no trigger and no delay", 0},
      {TRIGGER_SPACE, 0, -1, 0, {'x', 'a', ' '}, 0, 0, "", 0}, {TRIGGER_KEY2, 0, 300, 0, {}, 0, 300, "", 0},
      {TRIGGER_KEY2, 0, -1, 0, {'a', 'X'}, -1, 0, "stopped", 0}, {TRIGGER_ACK, 1000, -1, 1, {'x'}, 0, 0, "", 1},
      {TRIGGER_KEY2, 1000, -1, 0, {'x', 'x'}, 0, 1000, kLate, -1}, {TRIGGER_ACK, 1000, -1, 0, {}, 0, 1000, kLate, 0},
      {TRIGGER_ACK, 1000, -1, 0, {'a', 'x'}, -1, 0, "stopped", 0},
      {TRIGGER_KEY2, 1000, -1, 0, {}, 0, 1000, kLate, 0, true},
      {TRIGGER_NONE, 500, -1, 0, {}, -1, 0, "stopped (signal 15)", 0, false, true}};
  signals_install();
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::to_string(c.type) + " " + std::to_string(c.ms) + " " + c.logged + (c.away ? " away" : ""));
    fake_clock::start();
    trigger_init(c.type, 0);
    port.set_status(c.line ? 0x78 : 0x38);
    keys = c.keys, key2_at = c.key2_at;
    if (c.signal) raise(SIGTERM);
    if (c.away) alleg_timer_stop();
    const size_t at = log.text().size();
    EXPECT_EQ(trigger_wait(c.ms), c.result);
    alleg_timer_cont(), signals_reset();
    const std::string t = log.text().substr(at);
    const uint64_t least_ns = static_cast<uint64_t>(c.least_ms) * 1000000u + (c.logged == kLate ? 1u : 0u);
    EXPECT_GE(fake_clock::now_ns() - 1000000000u, least_ns);  // since the clock's start
    EXPECT_NE(t.find(c.logged), std::string::npos) << t;
    EXPECT_EQ(t.find("stopped") != std::string::npos, std::string(c.logged).rfind("stopped", 0) == 0) << t;
    EXPECT_TRUE(c.left < 0 || keys.size() == static_cast<size_t>(c.left)) << keys.size();
  }
}

TEST_F(Trigger, UntimedAckWaitEndsOnlyWithTheLineOrAReadError) {
  trigger_init(TRIGGER_ACK, 0);
  keys = {'x', 'X'};
  std::future<int> wait = std::async(std::launch::async, [] { return trigger_wait(0); });
  // The line rises a few ms into the wait; a wait that misses it would
  // never end, so it ends the test run instead of hanging.
  std::this_thread::sleep_for(std::chrono::milliseconds(3));
  port.set_status(0x78);
  if (wait.wait_for(std::chrono::seconds(10)) != std::future_status::ready) std::abort();
  EXPECT_EQ(std::make_tuple(wait.get(), keys.size(), log.has("stopped")), std::make_tuple(0, 2u, false));  // x unread
  vok_init(2, static_cast<_vok_port>(35), 0);  // a port the raw reading does not serve
  EXPECT_EQ(trigger_wait(0), -1);
  EXPECT_TRUE(log.has("vok/port: Invalid argument"));
}

}  // namespace
