// Pen and LED outputs on a simulated parallel port: line sets, port and
// mode texts, static and flip-flop switching, reset pulses and dimming.

#include "screens/led.h"
#include "screens/stift.h"
#include "sim_port.h"
#include "test_support.h"

namespace {
using ints = std::vector<int>;
using writes = std::vector<SimPort::write>;

// Pen and LED tests share the port and the reset of both outputs.
struct Led : ::testing::Test {
  // Trace times are real time; every wait spins on it. The LED goes back to
  // static, so the exit handler sends nothing.
  void SetUp() override { test_allegro(), lpt_reset(), real_clock::start(); }
  void TearDown() override { stift_reset(), led_reset_state(), alleg_timer_reset(); }
  // Data-register writes of LPT1 from the n-th on, and their values.
  writes from(size_t n) const {
    writes w = sim.trace();
    w.erase(std::remove_if(w.begin(), w.end(), [](const SimPort::write& x) { return x.reg != 0; }), w.end());
    return writes(w.begin() + std::min(n, w.size()), w.end());
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
using Stift = Led;

long long gap(const SimPort::write& a, const SimPort::write& b) { return static_cast<long long>(b.us - a.us); }
}  // namespace

TEST_F(Stift, LineSetsPortsShowAndHide) {
  SimPort sim2(dir, 2);
  LogCapture log({sim.arg(), sim2.arg(), "-stift-port=LPT2"});
  // Lines are only added; a piece that is no number counts as 0.
  const struct { std::string line; int byte; std::string error; } cases[] = {
      {"index=1,3,8", 0x85, ""}, {"nummer=3 index=8 t0=40 index=1", 0x81, ""}, {"index=,2,,3,", 0x06, ""},
      {"index=2,9", -1, "ind=9\n"}, {"index=1,x", -1, "ind=0\n"}, {"index=-3", -1, "ind=-3\n"},
      {"index=" + std::string(300, '2'), -1, "ind=2147483647\n"}};
  for (const auto& c : cases) {
    const std::unique_ptr<stim> s(_stift(c.line.c_str())), l(_led(c.line.c_str()));
    ASSERT_EQ(std::make_pair(!s, !l), std::make_pair(c.byte < 0, c.byte < 0)) << c.line;
    if (s) EXPECT_EQ(std::make_tuple(stift_byte(dynamic_cast<stift&>(*s).lines), stift_byte(dynamic_cast<led&>(*l).lines)),
                     std::make_tuple(c.byte, c.byte)) << c.line;
    else EXPECT_TRUE(log.has(": stift: " + c.error) && log.has(": led: " + c.error)) << c.line;
  }
  const struct { const char* text; int port; } ports[] = {
      {"lpt1", 0}, {"LPT3", 2}, {"NONE", 3}, {"none but lpt2", 1}, {"Lpt2", -1}};
  for (const auto& p : ports) EXPECT_EQ(stift_port_of(p.text), p.port) << p.text;
  // The pen raises its lines while shown.
  ASSERT_EQ(stift_init(), 0);  // the configured port, lines at the last byte 0
  EXPECT_EQ(sim2.data(), ints{0});
  ASSERT_EQ(stift_init("lpt1"), 0);
  stift s("index=1,3,8", err);
  ASSERT_TRUE(s.show() == 0 && s.shown == 1);
  ASSERT_EQ(stift_init(stift_lpt1), 0);  // a restart restores the pen byte
  ASSERT_EQ(s.hide(), 0);
  EXPECT_EQ(std::make_tuple(s.shown, data()), std::make_tuple(0, ints{0, 0x85, 0x85, 0}));

  EXPECT_EQ(std::make_tuple(stift_init("com1"), stift_init(static_cast<stift_port_>(7))), std::make_tuple(-1, -1));
  ASSERT_EQ(stift_init("none"), 0);
  EXPECT_TRUE(s.show() == -1 && s.shown == 0 && s.hide() == -1);
  EXPECT_TRUE(log.has("com1: Invalid argument") && log.has("stift/port: Invalid argument") &&
              log.has(": stift: no valid LPT defined") && log.has("stift-off: port: Invalid argument"));
  EXPECT_EQ(data().size(), 4u);
}

TEST_F(Led, SwitchingAndResetPulsesByMode) {
  LogCapture log({sim.arg()});
  ASSERT_EQ(led_init(), 0);  // the keys in their order, all defaults: lines low
  size_t at = 0;
  for (const std::string key : {"no for led-reset", "static for led-mode", "lpt1 for led-port"})
    EXPECT_NE(at = log.text().find("Using the default " + key, at), std::string::npos) << key;
  // Static: the byte while lit, 0 at hide. Flip-flop: one pulse each time,
  // and two on all lines at start-up and exit when reset is asked for.
  const ints pulses{0xFF, 0, 0xFF, 0};
  const struct { const char *mode, *reset; ints on, off, reset_pulses; } cases[] = {
      {"static", "yes", {0x85}, {0}, {}},                   {"FLIP-FLOP", "YES", {0x85, 0}, {0x85, 0}, {}},
      {"flipflop", "oh yes", {0x85, 0}, {0x85, 0}, pulses}, {"flip-flop YES", "no", {0x85, 0}, {0x85, 0}, pulses}};
  led l("index=1,3,8", err);
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.mode) + " / " + c.reset);
    size_t n = sim.data().size();
    ASSERT_EQ(led_init("lpt1", c.mode, c.reset), 0);
    EXPECT_EQ(std::make_tuple(data(n).at(0), data(n + 1)), std::make_tuple(0, c.reset_pulses));  // lines low first
    n = sim.data().size();
    ASSERT_EQ(l.show(), 0);
    for (auto t = alleg_get_utimer(); alleg_get_utimer() - t < 2000;) ASSERT_EQ(l.idle(), 0);  // full on: no switching
    EXPECT_EQ(std::make_tuple(l.lit, l.shown, data(n)), std::make_tuple(1, 1, c.on));
    ASSERT_EQ(l.hide(), 0);
    EXPECT_EQ(std::make_tuple(l.lit, l.shown, data(n + c.on.size())), std::make_tuple(0, 0, c.off));
    const writes w = from(n);
    for (size_t i = 1; i < w.size(); ++i) EXPECT_GE(gap(w[i - 1], w[i]), 19) << i;  // 20 µs settling
    n = sim.data().size();
    led_exit();
    ASSERT_EQ(data(n), c.reset_pulses);
    if (c.reset_pulses.empty()) continue;
    const writes p = from(n);
    const long long least = std::min({gap(p[0], p[1]), gap(p[1], p[2]), gap(p[2], p[3])});
    EXPECT_TRUE(least >= 99 && least <= 150) << least;  // 100 µs each; load only delays
  }
  // Without a port show fails; hide then leaves the latches alone.
  ASSERT_EQ(led_init("none", "flipflop", "no"), 0);
  EXPECT_TRUE(l.show() == -1 && !l.lit && !l.shown && l.hide() == 0);
  led_init("none", "static", "no");
  EXPECT_EQ(std::make_tuple(led_off(l.lines), led_reset()), std::make_tuple(-1, -1));
  EXPECT_TRUE(log.has(": led: no valid LPT defined") && log.has("led-off: port: Invalid argument") &&
              log.has("led/port: Invalid argument"));
  // Unknown texts and ports are refused before the port is touched.
  const size_t n = sim.data().size(), from_log = log.text().size();
  EXPECT_EQ(std::make_tuple(led_init("lpt1", "blink", "yes"), led_init("com1", "static", "no"),
                            led_init(static_cast<led_port_>(5), led_static, 0)),
            std::make_tuple(-1, -1, -1));
  const std::string refused = log.text().substr(from_log);
  for (const char* text : {"blink: Invalid argument", "com1: Invalid argument", "led/port: Invalid argument"})
    EXPECT_NE(refused.find(text), std::string::npos) << text;
  EXPECT_EQ(sim.data().size(), n);
}

TEST_F(Led, HalfOnTimeLightsTheFirstHalfOfEveryMillisecond) {
  const struct { unsigned long long us; int promille; bool on; } cases[] = {
      {1, 0, false}, {1000, 0, true}, {500, 500, true}, {501, 500, false}, {999, 999, true}};
  for (const auto& c : cases) EXPECT_EQ(led_phase_on(c.us, c.promille), c.on) << c.us << " " << c.promille;
  LogCapture log({sim.arg()});
  ASSERT_EQ(led_init("lpt1", "static", "no"), 0);
  led l("index=1 promille=500", err);
  ASSERT_EQ(err, 0);
  for (const unsigned long long idle_from = alleg_get_utimer(); alleg_get_utimer() - idle_from < 3000;) ASSERT_EQ(l.idle(), 0);
  EXPECT_EQ(data(1), ints{});  // not shown: nothing
  const unsigned long long before = alleg_get_utimer();
  ASSERT_EQ(l.show(), 0);
  // The cycle starts once the lines are lit; then 100 cycles, at most 2 s.
  const unsigned long long start = alleg_get_utimer();
  EXPECT_TRUE(l.onset >= before + 40 && l.onset <= start);
  for (int cycles = 0, was = 1; cycles < 100 && alleg_get_utimer() - start < 2000000; was = l.lit) {
    ASSERT_EQ(l.idle(), 0);
    cycles += was && !l.lit;
  }
  ASSERT_EQ(l.hide(), 0);
  // The first cycle begins at show. In the others each write's place in
  // its millisecond (counted from the onset, on the port trace's clock)
  // shows which half it lit or darkened. Preemption of the test only delays
  // writes, and a periodic interrupt that keeps meeting one edge can delay
  // all of that edge's writes alike, so the test asks for the half and for
  // the typical place near the half's start, not for an exact on-time.
  const writes w = from(1);
  ASSERT_GE(w.size(), 4u);
  EXPECT_GE(gap(w[0], w[1]), 520);
  const unsigned long long onset = alleg_system_us_at(l.onset);
  std::vector<long long> on, off;
  for (size_t i = 2; i + 1 < w.size(); i += 2) {
    ASSERT_EQ(std::make_pair(w[i].value, w[i + 1].value), std::make_pair(1, 0)) << i;
    on.push_back(static_cast<long long>(w[i].us - onset) % 1000);
    off.push_back(static_cast<long long>(w[i + 1].us - onset) % 1000);
  }
  ASSERT_GE(on.size(), 10u);
  const auto in_half = [](const std::vector<long long>& v, long long from) {
    return std::count_if(v.begin(), v.end(), [&](long long p) { return p >= from && p < from + 500; });
  };
  EXPECT_GE(in_half(on, 0) * 10, static_cast<long long>(on.size()) * 9);
  EXPECT_GE(in_half(off, 500) * 10, static_cast<long long>(off.size()) * 9);
  const auto median = [](std::vector<long long> v) {
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    return v[v.size() / 2];
  };
  EXPECT_TRUE(median(on) >= 10 && median(on) < 120) << median(on);  // after the 20 µs settling
  EXPECT_TRUE(median(off) >= 510 && median(off) < 620) << median(off);
}
