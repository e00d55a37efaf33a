// The serial port of a response box: names and devices, the probe of the
// line that follows DTR and RTS, the status byte, failures.
#include "input/serial.h"

#include <stdexcept>

#include "serial_box.h"
#include "test_support.h"

namespace {

using Serial = serial_box::Test;

// The text an operation throws, "" when it does not.
std::string thrown(const std::function<void()>& op) {
  try {
    op();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "";
}

TEST_F(Serial, NamesDevicesModesAndFailures) {
  LogCapture log({"-com4-device=/dev/ttyUSB0", "-com1-device=/nonexistent/ttyX"});
  const struct { const char *name, *device; int result; } kCases[] = {  // device opened, "" none
      {"COM3", "/dev/ttyS2", 0}, {"COM12", "/dev/ttyS11", 0}, {"COM4", "/dev/ttyUSB0", 0},
      {"com3", "", -1},          {"xCOM3", "", -1}};
  for (const auto& c : kCases) {
    box.opened.clear();
    int result = 99;
    { COMPort port(c.name, result); }
    EXPECT_EQ(std::make_tuple(result, box.opened), std::make_tuple(c.result, c.device)) << c.name;
    EXPECT_EQ(log.has(std::string(c.name) + ": Invalid COM port"), c.result == -1) << c.name;
  }
  EXPECT_EQ(box.closes, 3);
  // Start-up fails when the device does not open or an output cannot be set.
  unsigned char status = 0x55;
  EXPECT_EQ(std::make_tuple(serial_read_status(status), status), std::make_tuple(-1, 0x55));
  box.open_ok = false;
  int result = 0;
  { COMPort missing("COM5", result); }
  EXPECT_EQ(std::make_tuple(result, serial_init("COM5")), std::make_tuple(1, -1));
  box.open_ok = true;
  box.set_result = 1;
  EXPECT_EQ(serial_init("COM5"), -1);
  EXPECT_EQ(std::make_tuple(serial_read_status(status), box.calls), std::make_tuple(-1, "D0 "));  // no port left
  EXPECT_TRUE(log.has("error: 0: serial_read_status: not initialized") && log.has("COM5 not found"));
  box.set_result = 0;
  ASSERT_EQ(serial_init("COM5"), 0);
  box.broken = true;  // reported and ended with -1, never thrown into the key poll
  EXPECT_EQ(thrown([&] { EXPECT_EQ(serial_read_status(status), -1); }), "");
  EXPECT_TRUE(log.has(": COMPort: failed to retrieve modem signals.\n"));
  // Line characteristics from a mode command.
  COMPort port("COM1", result);
  char mode[] = "baud=1200 parity=O data=7 stop=2", bad[] = "baud=1200 data=9";
  port.setLineCharacteristics(mode);
  EXPECT_EQ(std::make_tuple(result, port.bitRate(), port.parity(), port.dataBits(), port.stopBits()),
            std::make_tuple(0, 1200ul, COMPort::OddParity, COMPort::Data7, COMPort::TwoStopBits));
  EXPECT_EQ(thrown([&] { port.setLineCharacteristics(bad); }), "COMPort: could not set line characteristics.");
  // Without a device every operation throws.
  serial_lines(nullptr);
  COMPort none("COM1", result);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(thrown([&] { none.SetCommBreak(); }), "COMPort::SetCommBreak: No handle");
  EXPECT_EQ(thrown([&] { none.getModemSignals(); }), "COMPort: failed to retrieve modem signals.");
}

TEST_F(Serial, ProbeFindsTheLineOfKeyTwo) {
  for (const unsigned char line : {0x20, 0x40}) {  // key 2 on DSR, on RI
    serial_box::install();
    box.key2_line = line;
    LogCapture log;
    ASSERT_EQ(serial_init("COM2"), 0);
    // First reading, DTR off: key 2's line is low; the outputs never show.
    for (const char* text : {"SetDTR false\n", "DTR 0 RTS 0 CTS 16 DCD 128 RI 0 DSR 0", "CTS changed (RTS)",
                             line == 0x40 ? "RI changed (DTR)" : "DSR changed (DTR)"})
      EXPECT_TRUE(log.has(text)) << text;
    EXPECT_FALSE(log.has("CTS changed (DTR)"));
    EXPECT_EQ(box.calls, "D0 D1 R0 R1 ");  // both outputs end on
    EXPECT_GE(fake_clock::test_ms(), 4);   // 1 ms after each step
    unsigned char status = 0;
    box.key1 = true;
    EXPECT_EQ(std::make_tuple(serial_read_status(status), status), std::make_tuple(0, 0x20)) << +line;
    box.key1 = false;
    box.key2 = box.ring = true;  // a ringing RI line is no key of a box on DSR
    EXPECT_EQ(std::make_tuple(serial_read_status(status), status), std::make_tuple(0, line == 0x40 ? 0x30 : 0x10))
        << +line;
  }
}

}  // namespace
