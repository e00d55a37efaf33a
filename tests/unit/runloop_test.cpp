// The block's run loop against a clock that runs by itself and scripted
// keys: reaction windows, classification, hooks, the pause dialogue, abort.

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "engine/timing.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "platform/alleg.h"
#include "screens/info.h"
#include "services/dict.h"
#include "services/report.h"
#include "test_support.h"

namespace {

struct Press { long at_ms; int code; bool done = false; };
std::vector<Press> presses;   // reaction keys, on the test clock
std::vector<Press> commands;  // experimenter's keys ('s', 'c', 'x') and switches, on wall time
std::string calls;
long fail_reads_from_ms = -1;

// The first key not yet taken whose time has come, or 0.
int due(std::vector<Press>& keys, long now) {
  for (Press& p : keys)
    if (!p.done && now >= p.at_ms) return p.done = true, p.code;
  return 0;
}
int read_key(int& code) {
  code = 0;
  const long now = fake_clock::test_ms();
  if (fail_reads_from_ms >= 0 && now >= fail_reads_from_ms) return -1;
  code = due(presses, now);
  return 0;
}
// Focus lost and regained reach the program at its key polls.
enum { kSwitchOut = 1, kSwitchIn = 2 };
int command_key() {
  const int k = due(commands, fake_clock::ms());
  if (k == kSwitchOut) alleg_switch_out();
  if (k == kSwitchIn) alleg_switch_in();
  return k == kSwitchOut || k == kSwitchIn ? 0 : k;
}
void unget_key(int) {}
int no_buttons() { return 0; }
const tastatur_device kDevice{command_key, unget_key, no_buttons, nullptr, nullptr};

// A trial that records its hooks.
struct probe : stim {
  probe(const char* line, int& err) : stim(line, err) {}
  int richtig() override { return note("richtig"); }
  int falsch() override { return note("falsch"); }
  int auslassung() override { return note("auslassung"); }
  int note(const char* hook) { return calls += std::to_string(nummer) + " " + hook + ", ", 0; }
};

const stim_factory make_probe = stim_make<probe>;

// One block run: the pause dialogue's dictionary (or none), the trials as
// {t0, kritisch} (numbered from 1, shown for 50 ms), the keys, when key reads
// start failing, the block's start; then the result, every trial as
// "nummer/kritisch/reaktion/reakzeit" (and "!" when a press came before its
// minreak), the hooks called with the counters "richtig fehler auslassung",
// the session report's counts "trials correct wrong_key false_alarm omission
// withheld anticipation", texts logged, and the wall time at the end (or -1).
struct Case {
  const char* dict;
  std::vector<std::pair<long, int>> trials;
  std::vector<Press> presses, commands;
  long fail_from, start;
  int result;
  std::string outcome;
  std::vector<std::string> logged;
  long ends_at;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.outcome; }

// Scripted keys on the test clock, an empty registry but for the probe.
struct Keys {
  Keys() {
    test_allegro(), fake_clock::start(), calls.clear(), taste_reset(), taste_fake(read_key);
    tastatur_fake(&kDevice), info_reset(), stim_registry_clear(), stim_register("probe", make_probe);
    commands.clear(), fail_reads_from_ms = -1;
  }
  ~Keys() { taste_reset(), tastatur_fake(nullptr), stim_registry_clear(), fake_clock::stop(); }
};

// The lines as the block takes them; they stay the caller's.
std::vector<char*> raw(std::vector<std::string>& lines) {
  std::vector<char*> r;
  for (std::string& l : lines) r.push_back(l.data());
  return r;
}

struct RunLoop : ::testing::TestWithParam<Case> {
  void TearDown() override { if (args) stimuli_done(); }
  Keys keys;
  std::unique_ptr<Args> args;
  TempDir dir;
};

TEST_P(RunLoop, Outcome) {
  const Case& c = GetParam();
  if (c.dict) {  // stimuli_init registers the stock types: the probe goes again after them
    args = std::make_unique<Args>(std::vector<std::string>{"-dict=unused"});
    ASSERT_EQ(stimuli_init(dir.write("d.txt", c.dict).c_str()), 0);
    stim_register("probe", make_probe);
  }
  LogCapture log;
  std::vector<std::string> lines;
  for (auto [t0, kritisch] : c.trials)
    lines.push_back("probe nummer=" + std::to_string(lines.size() + 1) + " t0=" + std::to_string(t0) +
                    " t1=50 kritisch=" + std::to_string(kritisch));
  int err = 0;
  stimuli block(static_cast<int>(lines.size()), raw(lines).data(), err);
  ASSERT_EQ(err, 0);
  presses = c.presses;
  commands = c.commands;
  fail_reads_from_ms = c.fail_from;
  fake_clock::read();
  EXPECT_EQ(block.run(c.start), c.result);

  std::string outcome;
  char buf[80];
  for (int i = 0; i < block.anzahl(); ++i) {
    const stim* s = block.stimulus(i);
    snprintf(buf, sizeof buf, "%u/%d/%d/%ld%s ", s->nummer, s->kritisch, s->reaktion, s->reakzeit,
             block.antizipationen(i) ? "!" : "");
    outcome += buf;
  }
  const info_counts n = info_counters();
  session_report rep;
  block.report(rep, 1);
  const report_counts r = rep.blocks().empty() ? report_counts{} : rep.blocks()[0].all;
  snprintf(buf, sizeof buf, "%d %d %d | %d %d %d %d %d %d %d", n.richtig, n.fehler, n.auslassung, r.trials, r.correct,
           r.wrong_key, r.false_alarm, r.omission, r.withheld, r.anticipation);
  if (rep.blocks().empty()) snprintf(buf, sizeof buf, "%d %d %d | no row", n.richtig, n.fehler, n.auslassung);
  EXPECT_EQ(outcome + "| " + calls + buf, c.outcome);
  for (const std::string& s : c.logged) EXPECT_TRUE(log.has(s)) << s << "\n" << log.text();
  EXPECT_TRUE(c.ends_at < 0 || (fake_clock::ms() >= c.ends_at && fake_clock::ms() < c.ends_at + 50)) << fake_clock::ms();
  const long t = alleg_get_timer();  // however the block ended, the clock runs
  for (int i = 0; i < 2000; ++i) fake_clock::read();
  EXPECT_GT(alleg_get_timer(), t);
  if (c.result) return;
  presses.clear();  // a second run counts its anticipations afresh
  ASSERT_EQ(block.run(alleg_get_timer()), 0);
  for (int i = 0; i < block.anzahl(); ++i) EXPECT_EQ(block.antizipationen(i), 0) << i;
}

INSTANTIATE_TEST_SUITE_P(Blocks, RunLoop, ::testing::Values(
    // Presses at minreak (ignored), after it, with a wrong key, in a catch
    // trial, after maxreak; only the first press counts.
    Case{nullptr, {{100, 1}, {6000, 1}, {12000, 2}, {18000, 0}, {24000, 1}, {30000, 0}},
         {{200, 1}, {6101, 1}, {6300, 2}, {12300, 1}, {18400, 3}, {29001, 1}}, {}, -1, 0, 0,
         "1/1/0/0! 2/1/1/101 3/2/1/300 4/0/3/400 5/1/0/0 6/0/0/0 "
         "| 1 auslassung, 2 richtig, 3 falsch, 4 falsch, 5 auslassung, 1 2 2 | 6 1 1 1 2 1 1", {}, -1},
    // The block's start lies 50 ms in the past: the first show is 40 ms late,
    // the second on time, and its window of 5000 ms is waited out, then 100 ms more.
    Case{nullptr, {{10, -1}, {100, 1}}, {}, {}, -1, -50, 0, "1/-1/0/0 2/1/0/0 | 2 auslassung, 0 0 1 | 1 0 0 0 1 0 0",
         {"Sorry, ", " ms too late", "Nummer:   1"}, 5150},
    // Pause and continue: the trial answered last is eliminated, never saved.
    Case{"release\ninterrupted\n", {{100, 1}, {1000, 1}}, {{400, 1}, {1500, 1}}, {{450, 's'}, {700, 'c'}}, -1, 0,
         0, "0/1/1/300 2/1/1/500 | 0 richtig, 2 richtig, 2 0 0 | 2 2 0 0 0 0 0",
         {"stopped (s pressed)", "release", "interrupted", "continuing (c pressed)", "key blocked in trial number 1",
          "eliminating this trial"}, -1},
    // Switched away and back during the dialogue: the clock stays stopped
    // until "c", so the second trial comes as late in wall time as without.
    Case{"release\ninterrupted\n", {{100, 1}, {1000, 1}}, {{400, 1}, {1500, 1}},
         {{450, 's'}, {500, kSwitchOut}, {550, kSwitchIn}, {700, 'c'}}, -1, 0, 0,
         "0/1/1/300 2/1/1/500 | 0 richtig, 2 richtig, 2 0 0 | 2 2 0 0 0 0 0", {"switched into the program"}, 2850},
    // Pause and exit: trials not answered are neither evaluated nor saved.
    Case{"release\ninterrupted\n", {{100, 1}, {1000, 1}, {2000, 1}}, {{400, 1}}, {{900, 's'}, {1200, 'x'}}, -1, 0,
         -1, "0/1/1/300 2/-1/0/0 3/-1/0/0 | 0 0 0 | 1 1 0 0 0 0 0", {"exit (x pressed)"}, -1},
    // A dictionary without the second text ends the dialogue and the block.
    Case{"release\n", {{100, 1}, {1000, 1}}, {}, {{50, 's'}}, -1, 0, -1, "1/-1/0/0 2/-1/0/0 | 0 0 0 | no row",
         {"dict: item invalid"}, -1},
    // A failing key device aborts; the trial answered before keeps its class.
    Case{nullptr, {{100, 1}, {800, 1}, {900, 0}}, {{300, 1}}, {}, 500, 0, -1, "1/1/1/200 2/-1/0/0 3/-1/0/0 | 0 0 0 | 1 1 0 0 0 0 0",
         {}, -1},
    // A page (no trial that takes a reaction) has no row in the report, nor
    // has a block ended before its first trial (the dictionary row above).
    Case{nullptr, {{0, -1}, {20, -1}}, {}, {}, -1, 0, 0, "1/-1/0/0 2/-1/0/0 | 0 0 0 | no row", {}, -1}));

// A trial whose onset the display tells 20 ms after show() returned: the
// picture reached the screen 16 ms after the call.
struct late_probe : probe {
  late_probe(const char* line, int& err) : probe(line, err) {}
  long shown_at = -1;
  int show() override {
    shown_at = alleg_get_timer();
    return probe::show();
  }
  int onset_us(unsigned long long& us) const override {
    if (shown_at < 0 || alleg_get_timer() < shown_at + 20) return 0;
    us = static_cast<unsigned long long>(shown_at + 16) * 1000u + 400u;
    return 1;
  }
};

struct LateOnset : ::testing::Test {
  void SetUp() override { stim_register("late", stim_make<late_probe>), timing_keep(true); }
  void TearDown() override { timing_clear(), timing_keep(false); }
  Keys keys;
};

// Reaction times count from the onset told, not from the call; a press made
// before it was told waits for it and is an anticipation; the trace gets it.
TEST_F(LateOnset, PressesCountFromTheOnsetTold) {
  std::vector<std::string> lines = {"late nummer=1 t0=100 t1=50 kritisch=1", "late nummer=2 t0=1000 t1=50 kritisch=1"};
  int err = 0;
  stimuli block(2, raw(lines).data(), err);
  ASSERT_EQ(err, 0);
  presses = {{105, 1}, {420, 1}, {1005, 2}, {1216, 3}};
  fake_clock::read();
  ASSERT_EQ(block.run(0), 0);
  const stim *a = block.stimulus(0), *b = block.stimulus(1);
  EXPECT_TRUE(a->reaktion == 1 && a->reakzeit == 420 - 116 && block.antizipationen(0) == 1) << a->reakzeit;
  EXPECT_TRUE(b->reaktion == 3 && b->reakzeit == 200) << b->reakzeit;
  int shows = 0;
  for (int i = 0; i < timing_count(); ++i) {
    const timing_record& r = timing_records()[i];
    if (r.action != 2) continue;
    EXPECT_EQ(r.onset_us, (r.nummer == 1 ? 116000u : 1016000u) + 400u);
    ++shows;
  }
  EXPECT_EQ(shows, 2);
}
}  // namespace

namespace {
// A reaction time is the press's and the onset's microseconds apart, rounded
// half up; whole ms only where either is not known in microseconds.
TEST(ReactionTime, RoundedFromMicroseconds) {
  const struct { long time, onset; unsigned long long time_us, onset_us; long want; } kCases[] = {
      {420, 116, 420000, 116400, 304}, {420, 116, 420499, 116000, 304}, {420, 116, 420500, 116000, 305},
      {116, 116, 116000, 116500, 0},   {116, 116, 116000, 116501, -1},  {420, 116, 0, 116400, 304},
      {421, 116, 421900, 0, 305},
  };
  for (const auto& c : kCases)
    EXPECT_EQ(reaction_ms(c.time, c.onset, c.time_us, c.onset_us), c.want) << c.time_us << " " << c.onset_us;
}
}  // namespace
