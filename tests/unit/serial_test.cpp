// The serial port of a response box: names and devices, the probe of the
// line that follows DTR and RTS, the status byte, failures.
#include "input/serial.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "serial_box.h"
#include "test_support.h"

namespace {

class Serial : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    serial_box::install();
  }
  void TearDown() override {
    serial_box::uninstall();
    fake_clock::stop();
  }
  serial_box::state& box = serial_box::box();
};

TEST_F(Serial, NamesMustBeUpperCaseComAndANumber) {
  LogCapture log({"-com4-device=/dev/ttyUSB0"});
  const struct {
    const char *name, *device;  // device opened, "" none
    int result;
  } kCases[] = {{"COM3", "/dev/ttyS2", 0}, {"COM12", "/dev/ttyS11", 0}, {"COM4", "/dev/ttyUSB0", 0},
                {"com3", "", -1},          {"\\\\.\\COM12", "", -1},    {"xCOM3", "", -1}};
  for (const auto& c : kCases) {
    box.opened.clear();
    int result = 99;
    { COMPort port(c.name, result); }
    EXPECT_EQ(result, c.result) << c.name;
    EXPECT_EQ(box.opened, c.device) << c.name;
    EXPECT_EQ(log.has(std::string(c.name) + ": Invalid COM port"), c.result == -1) << c.name;
  }
  EXPECT_EQ(box.closes, 3);
  box.open_ok = false;
  int result = 0;
  COMPort missing("COM7", result);
  EXPECT_EQ(result, 1);
}

TEST_F(Serial, ProbeFindsTheLineOfKeyTwo) {
  for (const unsigned char line : {0x20, 0x40}) {  // key 2 on DSR, on RI
    serial_box::install();
    box.key2_line = line;
    LogCapture log;
    ASSERT_EQ(serial_init("COM2"), 0);
    const std::string t = log.text();
    // First reading, DTR off: key 2's line is low; the outputs never show.
    EXPECT_NE(t.find("SetDTR false\n"), std::string::npos);
    EXPECT_NE(t.find("DTR 0 RTS 0 CTS 16 DCD 128 RI 0 DSR 0"), std::string::npos) << t;
    EXPECT_NE(t.find(line == 0x40 ? "RI changed (DTR)" : "DSR changed (DTR)"), std::string::npos) << t;
    EXPECT_NE(t.find("CTS changed (RTS)"), std::string::npos);
    EXPECT_EQ(t.find("CTS changed (DTR)"), std::string::npos);
    EXPECT_EQ(box.calls, "D0 D1 R0 R1 ");  // both outputs end on
    EXPECT_GE(fake_clock::test_ms(), 4);   // 1 ms after each step
    const struct {
      bool key1, key2, ring;
      int status;
    } kReadings[] = {{false, false, false, 0x30}, {true, false, false, 0x20}, {false, true, false, 0x10},
                     {true, true, false, 0x00},   {false, true, true, line == 0x40 ? 0x30 : 0x10}};
    for (const auto& r : kReadings) {
      box.key1 = r.key1;
      box.key2 = r.key2;
      box.ring = r.ring;  // a ringing RI line is no key of a box on DSR
      unsigned char status = 0xff;
      ASSERT_EQ(serial_read_status(status), 0);
      EXPECT_EQ(status, r.status) << int(line) << r.key1 << r.key2 << r.ring;
    }
  }
}

TEST_F(Serial, FailuresBeforeAndDuringStartUp) {
  LogCapture log;
  unsigned char status = 0x55;
  EXPECT_EQ(serial_read_status(status), -1);
  EXPECT_TRUE(log.has("error: 0: serial_read_status: not initialized"));
  EXPECT_EQ(status, 0x55);
  box.open_ok = false;
  EXPECT_EQ(serial_init("COM5"), -1);
  EXPECT_TRUE(log.has("COM5 not found"));
  box.open_ok = true;
  box.set_result = 1;
  EXPECT_EQ(serial_init("COM5"), -1);
  EXPECT_EQ(box.calls, "D0 ");
  EXPECT_EQ(serial_read_status(status), -1);  // a failed start-up leaves no port
  box.set_result = 0;
  ASSERT_EQ(serial_init("COM5"), 0);
  box.broken = true;
  EXPECT_THROW(serial_read_status(status), std::runtime_error);
  char mode[] = "baud=1200 parity=O data=7 stop=2";
  serial_box::install();
  int result = 1;
  COMPort port("COM1", result);
  port.setLineCharacteristics(mode);
  EXPECT_EQ(port.bitRate(), 1200u);
  EXPECT_EQ(port.parity(), COMPort::OddParity);
  EXPECT_EQ(port.dataBits(), COMPort::Data7);
  EXPECT_EQ(port.stopBits(), COMPort::TwoStopBits);
  char bad[] = "baud=1200 data=9";
  EXPECT_THROW(port.setLineCharacteristics(bad), std::runtime_error);
}

TEST_F(Serial, WithoutADeviceEveryOperationThrows) {
  serial_lines(nullptr);  // the real device layer
  LogCapture log({"-com1-device=/nonexistent/ttyX"});
  int result = 0;
  COMPort port("COM1", result);
  EXPECT_EQ(result, 1);
  const struct {
    void (*op)(COMPort&);
    const char* text;
  } kCases[] = {{[](COMPort& p) { p.SetCommBreak(); }, "COMPort::SetCommBreak: No handle"},
                {[](COMPort& p) { p.getModemSignals(); }, "COMPort: failed to retrieve modem signals."}};
  for (const auto& c : kCases) {
    try {
      c.op(port);
      ADD_FAILURE() << c.text;
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), c.text);
    }
  }
  EXPECT_EQ(serial_init("COM1"), -1);
  EXPECT_TRUE(log.has("COM1 not found"));
}

}  // namespace
