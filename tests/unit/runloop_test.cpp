// The block's run loop against a clock that runs by itself and scripted
// keys: reaction windows, classification, hooks, the pause dialogue, abort.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "fake_clock.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "screens/info.h"
#include "services/dict.h"
#include "test_support.h"

namespace {

struct Press {
  long at_ms;
  int code;
  bool done;
};
std::vector<Press> presses;   // reaction keys, on the test clock
std::vector<Press> commands;  // experimenter's keys ('s', 'c', 'x'), on wall time
std::vector<std::string> calls;
long fail_reads_from_ms = -1;

int read_key(int& code) {
  code = 0;
  const long now = fake_clock::test_ms();
  if (fail_reads_from_ms >= 0 && now >= fail_reads_from_ms) return -1;
  for (Press& p : presses)
    if (!p.done && now >= p.at_ms) {
      p.done = true;
      code = p.code;
      break;
    }
  return 0;
}

int command_key() {
  for (Press& p : commands)
    if (!p.done && fake_clock::ms() >= p.at_ms) {
      p.done = true;
      return p.code;
    }
  return 0;
}
void unget_key(int) {}
int no_buttons() { return 0; }
const tastatur_device kDevice{command_key, unget_key, no_buttons};

// A trial that records its hooks.
class probe : public stim {
 public:
  probe(const char* line, int& err) : stim(line, err) {}
  int richtig() override { return note("richtig"); }
  int falsch() override { return note("falsch"); }
  int auslassung() override { return note("auslassung"); }

 private:
  int note(const char* hook) {
    calls.push_back(std::to_string(nummer) + " " + hook);
    return 0;
  }
};

const stim_factory make_probe = stim_make<probe>;

class RunLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    presses.clear();
    commands.clear();
    calls.clear();
    fail_reads_from_ms = -1;
    taste_reset();
    taste_fake(read_key);
    tastatur_fake(&kDevice);
    info_reset();
    stim_registry_clear();
    stim_register("probe", make_probe);
  }
  void TearDown() override {
    delete block;
    if (args) stimuli_done();
    taste_reset();
    tastatur_fake(nullptr);
    stim_registry_clear();
    fake_clock::stop();
  }

  // Builds a block from lines; the block starts at test time 0.
  void build(std::vector<std::string> lines) {
    std::vector<char*> raw;
    for (std::string& l : lines) raw.push_back(l.data());
    int err = 0;
    block = new stimuli(static_cast<int>(raw.size()), raw.data(), err);
    ASSERT_EQ(err, 0);
  }
  stim* trial(int i) { return block->stimulus(i); }

  // Loads the pause dialogue's dictionary (registering the stock types, so
  // the probe is registered again after them).
  void dictionary(const char* text) {
    args = std::make_unique<Args>(std::vector<std::string>{"-dict=unused"});
    ASSERT_EQ(stimuli_init(dir.write("d.txt", text).c_str()), 0);
    stim_register("probe", make_probe);
  }

  stimuli* block = nullptr;
  std::unique_ptr<Args> args;
  TempDir dir;
};

TEST_F(RunLoop, ReactionWindowBoundsAndClassification) {
  build({"probe nummer=1 t0=100 t1=50 kritisch=1",     // press at exactly minreak: ignored
         "probe nummer=2 t0=6000 t1=50 kritisch=1",    // minreak + 1: correct
         "probe nummer=3 t0=12000 t1=50 kritisch=2",   // wrong key
         "probe nummer=4 t0=18000 t1=50 kritisch=0",   // catch trial with a press
         "probe nummer=5 t0=24000 t1=50 kritisch=1",   // press after maxreak
         "probe nummer=6 t0=30000 t1=50 kritisch=0"});  // catch trial, no press
  presses = {{200, 1, false},   {6101, 1, false},  {12300, 1, false},
             {18400, 3, false}, {29001, 1, false}};
  EXPECT_EQ(block->run(0), 0);

  const int reaktion[] = {0, 1, 1, 3, 0, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(trial(i)->reaktion, reaktion[i]) << "trial " << i + 1;
  EXPECT_EQ(trial(1)->reakzeit, 101);
  EXPECT_EQ(trial(2)->reakzeit, 300);

  const std::vector<std::string> expected = {"1 auslassung", "2 richtig", "3 falsch", "4 falsch",
                                             "5 auslassung"};
  EXPECT_EQ(calls, expected);
  const info_counts c = info_counters();
  EXPECT_EQ(c.richtig, 1);
  EXPECT_EQ(c.fehler, 2);
  EXPECT_EQ(c.auslassung, 2);
}

TEST_F(RunLoop, ShowsOnTimeAndWaitsOutTheLastWindow) {
  build({"probe nummer=1 t0=50 t1=20 kritisch=1"});
  EXPECT_EQ(block->run(0), 0);
  // The window of 5000 ms after the onset at 50, then at least 100 ms more.
  EXPECT_GE(fake_clock::ms(), 5150);
  EXPECT_LT(fake_clock::ms(), 5200);
  EXPECT_EQ(calls, std::vector<std::string>{"1 auslassung"});
}

TEST_F(RunLoop, OnlyTheFirstPressCounts) {
  build({"probe nummer=1 t0=100 t1=50 kritisch=1"});
  presses = {{400, 1, false}, {500, 2, false}};
  EXPECT_EQ(block->run(0), 0);
  EXPECT_EQ(trial(0)->reaktion, 1);
  EXPECT_EQ(trial(0)->reakzeit, 300);
}

TEST_F(RunLoop, PauseThenContinueEliminatesTheLastAnsweredTrial) {
  dictionary("release\ninterrupted\n");
  build({"probe nummer=1 t0=100 t1=50 kritisch=1", "probe nummer=2 t0=1000 t1=50 kritisch=1"});
  presses = {{400, 1, false}, {1500, 1, false}};
  commands = {{450, 's', false}, {700, 'c', false}};
  LogCapture log;
  EXPECT_EQ(block->run(0), 0);
  EXPECT_EQ(trial(0)->nummer, 0u);  // eliminated, so never saved
  EXPECT_EQ(trial(1)->nummer, 2u);
  EXPECT_EQ(trial(1)->reaktion, 1);
  EXPECT_TRUE(log.has("stopped (s pressed)"));
  EXPECT_TRUE(log.has("release"));
  EXPECT_TRUE(log.has("interrupted"));
  EXPECT_TRUE(log.has("continuing (c pressed)"));
  EXPECT_TRUE(log.has("key blocked in trial number 1"));
  EXPECT_TRUE(log.has("eliminating this trial"));
}

TEST_F(RunLoop, PauseThenExitAbortsAndUnfinishedTrialsAreNotEvaluated) {
  dictionary("release\ninterrupted\n");
  build({"probe nummer=1 t0=100 t1=50 kritisch=1", "probe nummer=2 t0=1000 t1=50 kritisch=1",
         "probe nummer=3 t0=2000 t1=50 kritisch=1"});
  presses = {{400, 1, false}};
  commands = {{1200, 's', false}, {1500, 'x', false}};
  LogCapture log;
  EXPECT_EQ(block->run(0), -1);
  EXPECT_TRUE(log.has("exit (x pressed)"));
  EXPECT_EQ(trial(0)->reaktion, 1);
  EXPECT_EQ(trial(2)->kritisch, -1);  // never shown: neither evaluated nor saved
  EXPECT_TRUE(calls.empty());
}

TEST_F(RunLoop, AOneLineDictionaryEndsTheDialogue) {
  dictionary("release\n");
  build({"probe nummer=1 t0=100 t1=50 kritisch=1", "probe nummer=2 t0=1000 t1=50 kritisch=1"});
  commands = {{300, 's', false}};
  LogCapture log;
  EXPECT_EQ(block->run(0), -1);
  EXPECT_TRUE(log.has("dict: item invalid"));
  const long t = alleg_get_timer();  // the clock was left running
  for (int i = 0; i < 2000; ++i) fake_clock::read();
  EXPECT_GT(alleg_get_timer(), t);
}

TEST_F(RunLoop, AFailingKeyDeviceAbortsTheBlock) {
  build({"probe nummer=1 t0=100 t1=50 kritisch=1", "probe nummer=2 t0=800 t1=50 kritisch=1",
         "probe nummer=3 t0=900 t1=50 kritisch=0"});
  presses = {{300, 1, false}};
  fail_reads_from_ms = 500;
  EXPECT_EQ(block->run(0), -1);
  EXPECT_EQ(trial(0)->kritisch, 1);  // shown and answered before the failure
  EXPECT_EQ(trial(1)->kritisch, -1);
  EXPECT_EQ(trial(2)->kritisch, -1);
}

TEST_F(RunLoop, LateShowIsReported) {
  build({"probe nummer=1 t0=10 t1=0 kritisch=-1"});
  LogCapture log;
  // The block's start lies 50 ms in the past: the show is 40 ms late.
  fake_clock::read();
  EXPECT_EQ(block->run(-50), 0);
  EXPECT_TRUE(log.has("Sorry, ")) << log.text();
  EXPECT_TRUE(log.has(" ms too late")) << log.text();
  EXPECT_TRUE(log.has("Nummer:   1"));
}

}  // namespace
