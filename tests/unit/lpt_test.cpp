#include "ports/lpt.h"

#include "sim_port.h"
#include "test_support.h"

namespace {
struct Lpt : ::testing::Test {
  void SetUp() override { lpt_reset(); }
  void TearDown() override { lpt_reset(); }
};
}  // namespace

TEST_F(Lpt, NamesResolveBySubstringInTheirFixedOrder) {
  TempDir d;
  SimPort p1(d, 1), p3(d, 3);
  LogCapture log({p1.arg(), p3.arg()});
  // "lpt10" and "my-lpt1-box" contain lpt1: the first port
  EXPECT_TRUE(lpt_init("LPT3", 0x11, 0) == 0 && lpt_init("lpt10", 0x22, 0) == 0 && lpt_init("my-lpt1-box", 0x33, 0) == 0);
  EXPECT_EQ(std::make_pair(p3.data(), p1.data()), std::make_pair(std::vector<int>{0x11}, std::vector<int>{0x22, 0x33}));
  EXPECT_TRUE(lpt_init("Lpt2", 0, 0) == -1 && lpt_init("com1", 0, 0) == -1 && lpt_init(10, 0, 0) == -1);
  for (const char* said : {"error: ", "com1: Invalid argument", "Lpt2: Invalid argument", "lpt11 not defined"})
    EXPECT_TRUE(log.has(said)) << said;
}

TEST_F(Lpt, RegistersOfASimulatedPortAreRealBytes) {
  TempDir d;
  SimPort p(d, 2);
  LogCapture log({p.arg()});
  unsigned char v = 0, control = 0, control2 = 0;
  EXPECT_TRUE(lpt_read_port(1, v) == 0 && v == 0x38);  // a new file: key lines high, busy and ack low
  p.set_status(0x58);
  EXPECT_TRUE(lpt_read_port(1, v) == 0 && v == 0x58);
  EXPECT_TRUE(lpt_set_port(1, 0xa5) == 0 && lpt_set_control(1, 0x04) == 0 && lpt_set_control2(1, 0x80) == 0);
  EXPECT_TRUE(p.reg(0) == 0xa5 && lpt_get_control(1, control) == 0 && lpt_get_control2(1, control2) == 0);
  EXPECT_TRUE(control == 0x04 && control2 == 0x80) << int(control) << " " << int(control2);
  const std::vector<SimPort::write> t = p.trace();
  ASSERT_EQ(t.size(), 3u);
  EXPECT_TRUE(t[0].reg == 0 && t[0].value == 0xa5 && t[1].reg == 2 && t[2].reg == 3 && t[0].us <= t[2].us);
  EXPECT_TRUE(log.has("lpt2: simulated port"));
}

TEST_F(Lpt, AnUndefinedOrUnreachablePortIsReported) {
  LogCapture log({"-lpt1-device=none"});
  errno = 0;
  unsigned char v;
  EXPECT_TRUE(lpt_get_address(0) == 0 && lpt_set_port(0, 5) == -1 && errno == EINVAL && lpt_get_control2(0, v) == -1);
  const std::string t = log.text();
  // Index then address, both 0, then the report; control2 has only the report.
  const size_t first = t.find("lpt/set_port: 0\n");
  EXPECT_TRUE(first != std::string::npos && t.find("lpt/set_port: 0\n", first + 1) != std::string::npos) << t;
  EXPECT_TRUE(log.has("error: ") && log.has("lpt/set_port: Invalid argument") && log.has("lpt/port: Invalid argument"));
  EXPECT_TRUE(lpt_get_address(-1) == 0 && lpt_get_address(10) == 0);
  // Devices that cannot be reached leave their ports undefined.
  lpt_reset();
  LogCapture unreachable({"-lpt1-device=/dev/parport-missing", "-lpt2-device=0x0", "-lpt3-device=/nonexistent-dir/x"});
  EXPECT_TRUE(lpt_get_address(0) == 0 && lpt_get_address(1) == 0 && lpt_get_address(2) == 0);
  for (const char* said : {"lpt1: /dev/parport-missing: no such parallel port", "0x0: Invalid argument",
                           "/nonexistent-dir/x: No such file or directory"})
    EXPECT_TRUE(unreachable.has(said)) << said;
}

// A new name that is no device is a simulated port, also without a folder.
TEST_F(Lpt, ANewFileNameWithoutAFolderIsASimulatedPort) {
  TempDir d;
  const std::filesystem::path was = std::filesystem::current_path();
  std::filesystem::current_path(d.dir);
  LogCapture log({"-lpt1-device=lpt1.sim"});
  EXPECT_TRUE(lpt_get_address(0) != 0 && std::filesystem::exists(d.path("lpt1.sim")));
  std::filesystem::current_path(was);
}

TEST_F(Lpt, InterruptBeyondTheTableAndTriggerRing) {
  int irq = -1;
  EXPECT_TRUE(lpt_get_irq(7, irq) == 0 && irq == 0) << irq;  // no port 8: no line, no read past the table
  EXPECT_EQ(lpt_get_trigger(), 0);
  for (long v = 1; v <= 9; ++v) lpt_put_trigger(v);
  for (long v = 1; v <= 9; ++v) EXPECT_EQ(lpt_get_trigger(), v);
  EXPECT_EQ(lpt_get_trigger(), 0);
  lpt_put_trigger(10), lpt_put_trigger(11);  // the tenth slot, then the ring wraps to slot 0
  EXPECT_EQ(lpt_trigger_write_count(), 1);
  for (long v : {10, 11, 0}) EXPECT_EQ(lpt_get_trigger(), v);
}
