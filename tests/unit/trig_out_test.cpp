#include "ports/trig_out.h"

#include "services/config.h"
#include "services/results.h"
#include "sim_port.h"
#include "test_support.h"
#include "tools/trigger_box.h"

namespace {
struct TrigOut : ::testing::Test {
  void SetUp() override { test_allegro(), lpt_reset(), trig_out_reset(), real_clock::start(); }
  void TearDown() override { trig_out_reset(), lpt_reset(), alleg_timer_reset(); }
  TempDir d;
};
}  // namespace

TEST_F(TrigOut, PortAndInversionTextsAreSearchedAsDesigned) {
  SimPort p2(d, 2), p3(d, 3);
  LogCapture log({p2.arg(), p3.arg()});
  // idle: written to the chosen port at start-up (-1 none); of "lpt1 or lpt3" the later wins; com needs its number
  struct { const char* port, *invert; int valid, idle; } cases[] = {
      {"LPT2", "no", 1, 0x00}, {"lpt2", "Yes please", 1, 0xff}, {"lpt1 or lpt3", "YES", 1, 0xff},
      {"none", "yes", 0, -1},  {"com", "no", 0, -1},            {"", "", 0, -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.port);
    const size_t before = p2.data().size() + p3.data().size();
    EXPECT_EQ(trig_out_init(c.port, c.invert, nullptr), 0);
    EXPECT_EQ(trig_out_valid(), c.valid);
    const std::vector<int> d2 = p2.data(), d3 = p3.data();
    const std::vector<int>& d = strstr(c.port, "3") ? d3 : d2;
    if (c.idle < 0) EXPECT_EQ(d2.size() + d3.size(), before);
    else EXPECT_TRUE(!d.empty() && d.back() == c.idle);
  }
  EXPECT_EQ(trig_out_send(5), -1);  // port none
  EXPECT_TRUE(log.has("trig_out/port: Invalid argument"));
}

TEST_F(TrigOut, PulsesCarryTheCodeForTheirWidth) {
  SimPort p(d, 2);
  LogCapture log({p.arg()});
  struct { const char* invert; int on, off; } cases[] = {{"no", 5, 0}, {"yes", 250, 255}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.invert);
    ASSERT_EQ(trig_out_init("LPT2", c.invert, nullptr), 0);
    const size_t start = p.trace().size();
    ASSERT_EQ(trig_out_send(5), 0);
    const std::vector<SimPort::write> t = p.trace();
    ASSERT_EQ(t.size(), start + 2);
    EXPECT_TRUE(t[start].value == c.on && t[start + 1].value == c.off);
    // Trace times are whole microseconds: a width may read 1 us short.
    const long long width = static_cast<long long>(t[start + 1].us - t[start].us);
    EXPECT_TRUE(width >= 2999 && width < 3000 + 20000) << width << ": not a 3 ms pulse";
  }
}

TEST_F(TrigOut, ATriggerFileSeesTheCodeAndTheLinesOnlyTheMarker) {
  SimPort p(d, 1);
  LogCapture log({p.arg()});
  const std::string file = d.path("x.trg");
  ASSERT_EQ(trig_out_init(trig_out_lpt1, 1, 3000, file.c_str()), 0);
  EXPECT_TRUE(trig_out_saving());
  ASSERT_EQ(trig_out_send(5), 0);
  const long after = alleg_get_timer();
  EXPECT_EQ(p.data(), (std::vector<int>{0xff, 0xff, 0x7f}));  // idle, marker on, marker off
  trig_out_done();
  long t = -1;
  int code = -1;  // the time is taken after the pulse
  ASSERT_EQ(sscanf(read_text(file).c_str(), "%ld %d", &t, &code), 2);
  EXPECT_TRUE(code == 5 && t >= 3 && t <= after) << code << " " << t;
}

TEST_F(TrigOut, FailuresAreReportedAndLeaveNoOutput) {
  LogCapture log({"-lpt1-device=none"});
  EXPECT_EQ(trig_out_init(trig_out_lpt1, 1, 3000, (d.dir + "/no/such/dir.trg").c_str()), -1);
  EXPECT_TRUE(log.has("trigfile: No such file or directory") && !trig_out_saving());
  EXPECT_EQ(trig_out_init("lpt1", "yes", nullptr), -1);  // undefined port
  EXPECT_TRUE(log.has("lpt/set_port: Invalid argument"));
  trig_out_disable();
  EXPECT_FALSE(trig_out_valid());
}

TEST_F(TrigOut, DefaultFileNameFollowsTheResultsFile) {
  SimPort p(d, 1);
  LogCapture log({d.path("ixmod"), p.arg(), "-triggerport=none"});
  ASSERT_EQ(trig_out_init(1), 0);
  // No results file: the program's name with extension trg, in its folder.
  EXPECT_TRUE(log.has("Using " + d.path("ixmod.trg") + " for saving trigger values") && trig_out_saving());
  trig_out_done();
  ASSERT_EQ(resopen(d.path("r.txt").c_str()), 0);
  ASSERT_EQ(trig_out_init(1), 0);
  EXPECT_TRUE(log.has("Using " + d.path("r.txt.trg") + " for saving trigger values"));
  resclose();
}

TEST_F(TrigOut, ASerialInterfaceGetsTheCodeAndTheRestLevel) {
  // bytes at start-up, then for code 5; in byte mode the pulse ends with a rest byte, in pulse mode the
  // interface times it
  struct { const char* mode, *invert; std::vector<int> bytes; } cases[] = {
      {"byte", "no", {0x00, 0x05, 0x00}}, {"byte", "yes", {0xff, 0xfa, 0xff}}, {"pulse", "yes", {0xfa}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode + std::string(" ") + c.invert);
    trigger_box box;
    ASSERT_TRUE(box.ok());
    LogCapture log({box.arg(3), std::string("-trigger-serial-mode=") + c.mode});
    ASSERT_EQ(trig_out_init("COM3", c.invert, nullptr), 0) << log.text();
    EXPECT_TRUE(log.has("trigger output: com3 on " + box.path() + ", 115200 bit/s, " + c.mode + " mode")) << log.text();
    const unsigned long long sent = trigger_box::now_us();
    ASSERT_EQ(trig_out_send(5), 0);
    const std::vector<trigger_box::byte_at> got = box.received(c.bytes.size());
    std::vector<int> values;
    for (const auto& b : got) values.push_back(b.value);
    EXPECT_EQ(values, c.bytes);
    // The pseudo-terminal may deliver late, never early.
    EXPECT_TRUE(got.size() != 3 || got[2].us >= sent + 3000) << "the rest level came before the pulse width";
    trig_out_reset();
  }
}

TEST_F(TrigOut, ASerialPortThatCannotBeUsedIsReported) {
  trigger_box box;
  ASSERT_TRUE(box.ok());
  box.hold();
  const std::string file = d.path("plain");
  FILE* f = fopen(file.c_str(), "w");
  fclose(f);
  struct { std::vector<std::string> args; std::string logged; } cases[] = {
      {{"-com1-device=/nonexistent/ttyACM0"}, "trig_out/com1: /nonexistent/ttyACM0: No such file or directory (is the interface plugged in?)"},
      {{box.arg(1)}, box.path() + ": Resource temporarily unavailable (in use by another program)"},
      {{"-com1-device=" + file}, file + ": Inappropriate ioctl for device"},
      {{box.arg(1), "-cfg=" + d.write("baud.cfg", "trigger-serial-baud = 12345\n")},
       "trig_out/com1: 12345 bit/s: Invalid argument"},
      {{box.arg(1), "-trigger-serial-mode=toggle"}, "trigger-serial-mode toggle (byte or pulse): Invalid argument"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.logged);
    LogCapture log(c.args);
    ASSERT_EQ(config_init(), 0);
    EXPECT_EQ(trig_out_init("com1", "yes", nullptr), -1);
    EXPECT_TRUE(log.has(c.logged) && !log.has("trigger output:")) << log.text();
    config_done();
  }
}
