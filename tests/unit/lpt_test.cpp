#include "ports/lpt.h"

#include <gtest/gtest.h>

#include <filesystem>

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
  EXPECT_EQ(lpt_init("LPT3", 0x11, 0), 0);
  EXPECT_EQ(lpt_init("lpt10", 0x22, 0), 0);  // contains lpt1: the first port
  EXPECT_EQ(lpt_init("my-lpt1-box", 0x33, 0), 0);
  EXPECT_EQ(p3.data(), (std::vector<int>{0x11}));
  EXPECT_EQ(p1.data(), (std::vector<int>{0x22, 0x33}));
  EXPECT_EQ(lpt_init("Lpt2", 0, 0), -1);
  EXPECT_EQ(lpt_init("com1", 0, 0), -1);
  EXPECT_TRUE(log.has("error: ") && log.has("com1: Invalid argument"));
  EXPECT_TRUE(log.has("Lpt2: Invalid argument"));
  EXPECT_EQ(lpt_init(10, 0, 0), -1);
  EXPECT_TRUE(log.has("lpt11 not defined"));
}

TEST_F(Lpt, RegistersOfASimulatedPortAreRealBytes) {
  TempDir d;
  SimPort p(d, 2);
  LogCapture log({p.arg()});
  unsigned char v = 0;
  ASSERT_EQ(lpt_read_port(1, v), 0);
  EXPECT_EQ(v, 0x38);  // a new file: key lines high, busy and ack low
  p.set_status(0x58);
  ASSERT_EQ(lpt_read_port(1, v), 0);
  EXPECT_EQ(v, 0x58);
  EXPECT_EQ(lpt_set_port(1, 0xa5), 0);
  EXPECT_EQ(lpt_set_control(1, 0x04), 0);
  EXPECT_EQ(lpt_set_control2(1, 0x80), 0);
  EXPECT_EQ(p.reg(0), 0xa5);
  EXPECT_EQ(lpt_get_control(1, v), 0);
  EXPECT_EQ(v, 0x04);
  EXPECT_EQ(lpt_get_control2(1, v), 0);
  EXPECT_EQ(v, 0x80);
  const std::vector<SimPort::write> t = p.trace();
  ASSERT_EQ(t.size(), 3u);
  EXPECT_EQ(t[0].reg, 0);
  EXPECT_EQ(t[0].value, 0xa5);
  EXPECT_EQ(t[1].reg, 2);
  EXPECT_EQ(t[2].reg, 3);
  EXPECT_LE(t[0].us, t[2].us);
  EXPECT_TRUE(log.has("lpt2: simulated port"));
}

TEST_F(Lpt, AnUndefinedPortIsReportedInTheDesignedWords) {
  LogCapture log({"-lpt1-device=none"});
  EXPECT_EQ(lpt_get_address(0), 0);
  errno = 0;
  EXPECT_EQ(lpt_set_port(0, 5), -1);
  EXPECT_EQ(errno, EINVAL);
  unsigned char v;
  EXPECT_EQ(lpt_get_control2(0, v), -1);
  const std::string t = log.text();
  const size_t first = t.find("error: ");
  ASSERT_NE(first, std::string::npos);
  // Index then address, both 0, then the report; control2 has only the report.
  EXPECT_NE(t.find("lpt/set_port: 0\n"), std::string::npos);
  EXPECT_NE(t.find("lpt/set_port: 0\n", t.find("lpt/set_port: 0\n") + 1), std::string::npos);
  EXPECT_NE(t.find("lpt/set_port: Invalid argument"), std::string::npos);
  EXPECT_NE(t.find("lpt/port: Invalid argument"), std::string::npos);
  EXPECT_EQ(lpt_get_address(-1), 0);
  EXPECT_EQ(lpt_get_address(10), 0);
}

TEST_F(Lpt, DevicesThatCannotBeReachedLeaveThePortUndefined) {
  LogCapture log({"-lpt1-device=/dev/parport-missing", "-lpt2-device=0x0", "-lpt3-device=/nonexistent-dir/x"});
  EXPECT_EQ(lpt_get_address(0), 0);
  EXPECT_EQ(lpt_get_address(1), 0);
  EXPECT_EQ(lpt_get_address(2), 0);
  EXPECT_TRUE(log.has("lpt1: /dev/parport-missing: no such parallel port"));
  EXPECT_TRUE(log.has("0x0: Invalid argument"));
  EXPECT_TRUE(log.has("/nonexistent-dir/x: No such file or directory"));
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

TEST_F(Lpt, InterruptTableAndTriggerRing) {
  int irq = -1;
  EXPECT_EQ(lpt_get_irq(0, irq), 0);
  EXPECT_EQ(irq, 7);
  lpt_get_irq(1, irq);
  EXPECT_EQ(irq, 5);
  lpt_get_irq(2, irq);
  EXPECT_EQ(irq, 7);
  lpt_get_irq(7, irq);
  EXPECT_EQ(irq, 0);

  EXPECT_EQ(lpt_get_trigger(), 0);
  for (long v = 1; v <= 9; ++v) lpt_put_trigger(v);
  for (long v = 1; v <= 9; ++v) EXPECT_EQ(lpt_get_trigger(), v);
  EXPECT_EQ(lpt_get_trigger(), 0);
  lpt_put_trigger(10);  // the tenth slot, then the ring wraps to slot 0
  lpt_put_trigger(11);
  EXPECT_EQ(lpt_trigger_write_count(), 1);
  EXPECT_EQ(lpt_get_trigger(), 10);
  EXPECT_EQ(lpt_get_trigger(), 11);
  EXPECT_EQ(lpt_get_trigger(), 0);
}
