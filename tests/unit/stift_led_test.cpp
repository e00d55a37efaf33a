// Pen and LED outputs on a simulated parallel port: line sets, port and
// mode texts, static and flip-flop switching, reset pulses and dimming.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "fake_clock.h"
#include "screens/led.h"
#include "screens/stift.h"
#include "sim_port.h"
#include "test_support.h"

namespace {
using ints = std::vector<int>;
using writes = std::vector<SimPort::write>;

struct Outputs : ::testing::Test {
  void SetUp() override {
    test_allegro();
    lpt_reset();
    real_clock::start();  // trace times are real time; every wait spins on it
  }
  void TearDown() override {
    stift_reset();
    led_reset_state();  // static again: the exit handler sends nothing
    lpt_reset();
    alleg_timer_reset();
  }
  // Data-register writes of LPT1 from the n-th on, and their values.
  writes from(size_t n) const {
    writes w;
    for (const SimPort::write& x : sim.trace())
      if (x.reg == 0 && n == 0) w.push_back(x);
      else if (x.reg == 0) --n;
    return w;
  }
  ints data(size_t n = 0) const {
    ints v;
    for (const SimPort::write& x : from(n)) v.push_back(x.value);
    return v;
  }
  TempDir dir;
  SimPort sim{dir, 1};
  int err = 0;
};
using Stift = Outputs;
using Led = Outputs;

long long gap(const SimPort::write& a, const SimPort::write& b) { return static_cast<long long>(b.us - a.us); }
long long median(std::vector<long long> v) {
  std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
  return v[v.size() / 2];
}
}  // namespace

TEST_F(Stift, IndexListsAndPortTexts) {
  LogCapture log;
  const struct { std::string line; int byte; const char* error; } cases[] = {
      {"index=1,3,8", 0x85, nullptr},
      {"nummer=3 index=8 t0=40 index=1", 0x81, nullptr},  // lines are only added
      {"index=,2,,3,", 0x06, nullptr},
      {"index=0", -1, "ind=0\n"},
      {"index=2,9", -1, "ind=9\n"},
      {"index=1,x", -1, "ind=0\n"},  // no number: 0
      {"index=-3", -1, "ind=-3\n"},
      {"index=" + std::string(300, '2'), -1, "ind=2147483647\n"},
  };
  for (const auto& c : cases)
    for (const std::string type : {"stift", "led"}) {
      SCOPED_TRACE(type + " " + c.line);
      std::unique_ptr<stim> s((type == "stift" ? _stift : _led)(c.line.c_str()));
      ASSERT_EQ(s == nullptr, c.byte < 0);
      if (!s) EXPECT_TRUE(log.has(": " + type + ": " + c.error));
      else EXPECT_EQ(stift_byte(type == "stift" ? dynamic_cast<stift&>(*s).lines : dynamic_cast<led&>(*s).lines), c.byte);
    }
  led l("nummer=3 index=2 t0=40 promille=250", err);
  EXPECT_EQ(std::make_tuple(err, l.nummer, l.t0, l.promille, l.lit), std::make_tuple(0, 3u, 40L, 250, 0));
  EXPECT_EQ(led("index=1", err).promille, 1000);

  const struct { const char* text; int port; } ports[] = {{"lpt1", 0}, {"LPT3", 2},  {"lpt10", 0}, {"NONE", 3},
                                                          {"none but lpt2", 1}, {"Lpt2", -1}, {"lpt4", -1}};
  for (const auto& p : ports) EXPECT_EQ(stift_port_of(p.text), p.port) << p.text;
}

TEST_F(Stift, ShowRaisesTheLinesAndHideLowersThem) {
  SimPort sim2(dir, 2);
  LogCapture log({sim.arg(), sim2.arg(), "-stift-port=LPT2"});
  ASSERT_EQ(stift_init(), 0);  // the configured port, lines at the last byte 0
  EXPECT_EQ(sim2.data(), ints{0});
  ASSERT_EQ(stift_init("lpt1"), 0);
  stift s("index=1,3,8", err);
  ASSERT_EQ(s.show(), 0);
  EXPECT_EQ(s.shown, 1);
  ASSERT_EQ(stift_init(stift_lpt1), 0);  // a restart restores the pen byte
  ASSERT_EQ(s.hide(), 0);
  EXPECT_EQ(std::make_tuple(s.shown, data()), std::make_tuple(0, ints{0, 0x85, 0x85, 0}));

  EXPECT_EQ(stift_init("com1"), -1);
  EXPECT_EQ(stift_init(static_cast<stift_port_>(7)), -1);
  ASSERT_EQ(stift_init("none"), 0);
  EXPECT_EQ(s.show(), -1);
  EXPECT_EQ(s.shown, 0);
  EXPECT_EQ(s.hide(), -1);
  for (const char* line : {"com1: Invalid argument", "stift/port: Invalid argument", ": stift: no valid LPT defined",
                           "stift-off: port: Invalid argument"})
    EXPECT_TRUE(log.has(line)) << line;
  EXPECT_EQ(data().size(), 4u);
}

TEST_F(Led, StaticAndFlipFlopSwitching) {
  LogCapture log({sim.arg()});
  led l("index=1,3,8", err);
  // Static: the byte while lit, 0 at hide. Flip-flop: one pulse each time.
  const struct { const char* mode; ints show, hide; } cases[] = {{"static", {0x85}, {0}},
                                                                 {"FLIP-FLOP", {0x85, 0}, {0x85, 0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    ASSERT_EQ(led_init("lpt1", c.mode, "no"), 0);
    const size_t n = sim.data().size();
    EXPECT_EQ(data(n - 1), ints{0});  // lines low after start-up
    ASSERT_EQ(l.show(), 0);
    EXPECT_EQ(std::make_tuple(l.lit, l.shown, data(n)), std::make_tuple(1, 1, c.show));
    ASSERT_EQ(l.hide(), 0);
    EXPECT_EQ(std::make_tuple(l.lit, l.shown, data(n + c.show.size())), std::make_tuple(0, 0, c.hide));
    const writes w = from(n);
    for (size_t i = 1; i < w.size(); ++i) EXPECT_GE(gap(w[i - 1], w[i]), 19) << i;  // 20 µs settling
  }
  // Without a port show fails; hide then leaves the latches alone.
  ASSERT_EQ(led_init("none", "flipflop", "no"), 0);
  EXPECT_EQ(l.show(), -1);
  EXPECT_EQ(std::make_tuple(l.lit, l.shown), std::make_tuple(0, 0));
  EXPECT_EQ(l.hide(), 0);
  const std::string t = log.text();
  const size_t first = t.find(": led: no valid LPT defined");
  EXPECT_TRUE(first != std::string::npos && t.find(": led: no valid LPT defined", first + 1) == std::string::npos);
  led_init("none", "static", "no");
  EXPECT_EQ(std::make_tuple(led_off(l.lines), led_reset()), std::make_tuple(-1, -1));
  EXPECT_TRUE(log.has("led-off: port: Invalid argument") && log.has("led/port: Invalid argument"));
}

TEST_F(Led, ResetPulsesOnlyInFlipFlopModeWhenAskedFor) {
  LogCapture log({sim.arg()});
  ASSERT_EQ(led_init(), 0);  // the keys in their order, all defaults: lines low
  const std::string t = log.text();
  const size_t reset = t.find("Using the default no for led-reset"), mode = t.find("Using the default static for led-mode");
  EXPECT_TRUE(reset < mode && mode < t.find("Using the default lpt1 for led-port")) << t;
  const struct { const char* mode; const char* reset; bool wanted, pulses; } cases[] = {
      {"static", "yes", true, false},     {"flipflop", "YES", false, false},   {"flipflop", "no", false, false},
      {"flipflop", "oh yes", true, true}, {"flip-flop YES", "no", true, true}, {"static YES", "no", true, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.mode) + " / " + c.reset);
    EXPECT_EQ(led_reset_wanted(c.mode, c.reset), c.wanted);
    const size_t n = sim.data().size();
    ASSERT_EQ(led_init("lpt1", c.mode, c.reset), 0);
    EXPECT_EQ(data(n), (c.pulses ? ints{0, 0xFF, 0, 0xFF, 0} : ints{0}));
    const size_t m = sim.data().size();
    led_exit();
    EXPECT_EQ(data(m), (c.pulses ? ints{0xFF, 0, 0xFF, 0} : ints{}));
    if (!c.pulses) continue;
    const writes w = from(m);
    std::vector<long long> gaps{gap(w[0], w[1]), gap(w[1], w[2]), gap(w[2], w[3])};
    EXPECT_GE(*std::min_element(gaps.begin(), gaps.end()), 99);
    EXPECT_LE(median(gaps), 150);
  }
  const size_t n = sim.data().size();
  EXPECT_EQ(led_init("lpt1", "blink", "yes"), -1);
  EXPECT_EQ(led_init("com1", "static", "no"), -1);
  EXPECT_EQ(led_init(static_cast<led_port_>(5), led_static, 0), -1);
  EXPECT_TRUE(log.has("blink: Invalid argument") && log.has("com1: Invalid argument") &&
              log.has("led/port: Invalid argument"));
  EXPECT_EQ(sim.data().size(), n);
}

TEST_F(Led, PhaseOfTheMillisecondCycleAndFullOnTime) {
  const struct { unsigned long long us; int promille; bool on; } cases[] = {
      {0, 0, true},      {1, 0, false},     {1000, 0, true},   {500, 500, true},     {501, 500, false},
      {999, 500, false}, {7250, 500, true}, {999, 1000, true}, {123456, 1000, true}, {999, 999, true}};
  for (const auto& c : cases) EXPECT_EQ(led_phase_on(c.us, c.promille), c.on) << c.us << " " << c.promille;

  LogCapture log({sim.arg()});
  ASSERT_EQ(led_init("lpt1", "static", "no"), 0);
  led l("index=2", err);
  const unsigned long long start = alleg_get_utimer();
  while (alleg_get_utimer() - start < 3000) ASSERT_EQ(l.idle(), 0);
  EXPECT_EQ(data(1), ints{});  // not shown: nothing
  ASSERT_EQ(l.show(), 0);
  while (alleg_get_utimer() - start < 8000) ASSERT_EQ(l.idle(), 0);
  ASSERT_EQ(l.hide(), 0);
  EXPECT_EQ(data(1), (ints{0x02, 0}));
}

TEST_F(Led, HalfOnTimeLightsTheFirstHalfOfEveryMillisecond) {
  LogCapture log({sim.arg()});
  ASSERT_EQ(led_init("lpt1", "static", "no"), 0);
  led l("index=1 promille=500", err);
  const unsigned long long before = alleg_get_utimer();
  ASSERT_EQ(l.show(), 0);
  // The cycle starts once the lines are lit; then 50 cycles undisturbed by
  // preemption (about 50 ms), at most 2 s.
  const unsigned long long start = alleg_get_utimer();
  EXPECT_TRUE(l.onset >= before + 40 && l.onset <= start);
  unsigned long long on_at = 0;
  for (int clean = 0, was = 1; clean < 50 && alleg_get_utimer() - start < 2000000; was = l.lit) {
    ASSERT_EQ(l.idle(), 0);
    const unsigned long long t = alleg_get_utimer() - l.onset;
    if (l.lit && !was) on_at = t;
    if (!l.lit && was) clean += on_at % 1000 < 100 && t - on_at < 700;
  }
  ASSERT_EQ(l.hide(), 0);
  // In the trace the first cycle begins at show. Of the others (but the
  // last, cut by hide) those count whose switches fell on the usual phases
  // of the millisecond: the rest were delayed by preemption of the test.
  const writes w = from(1);
  ASSERT_GE(w.size(), 4u);
  EXPECT_GE(gap(w[0], w[1]), 520);
  std::vector<long long> phase[2], on;
  int count[2][100] = {};
  for (size_t i = 2; i + 3 < w.size(); i += 2)
    for (int k : {0, 1}) {
      ASSERT_EQ(w[i + k].value, 1 - k) << i;
      ++count[k][phase[k].emplace_back(gap(w[2], w[i + k]) % 1000) / 10];
    }
  auto usual = [&](int k, long long p) {
    const long long u = 10 * (std::max_element(count[k], count[k] + 100) - count[k]) + 5;
    return std::min((p - u + 1000) % 1000, (u - p + 1000) % 1000) <= 25;
  };
  for (size_t c = 0; c < phase[0].size(); ++c) {
    const long long t = gap(w[2 + 2 * c], w[3 + 2 * c]);  // whole milliseconds late: preempted
    if (usual(0, phase[0][c]) && usual(1, phase[1][c]) && t < 1000) on.push_back(t);
  }
  ASSERT_GE(on.size(), 20u) << phase[0].size() << " cycles in all";
  // Load can only delay a switch-off, never bring it forward.
  EXPECT_TRUE(median(on) >= 495 && median(on) <= 540) << median(on) << " µs, " << on.size() << " cycles";
}
