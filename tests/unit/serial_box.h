// A response box on a simulated serial port, through the serial layer's
// test seam: key 1 on CTS fed by RTS, key 2 on DSR or RI fed by DTR, DCD
// always high. A pressed key opens its line. A reading can be made slow by
// advancing the fake clock.
#pragma once
#include <string>

#include "fake_clock.h"
#include "input/serial.h"

namespace serial_box {

struct state {
  bool open_ok = true;
  std::string opened;  // device of the last open
  int closes = 0;
  bool dtr = true, rts = true;
  int set_result = 0;              // what set_dtr/set_rts return
  unsigned char key2_line = 0x20;  // 0x20 DSR or 0x40 RI
  bool key1 = false, key2 = false, ring = false;
  int slow_ms = 0;                 // fake clock time one reading takes
  bool broken = false;             // the lines cannot be read
  std::string calls;               // "D0 D1 R0 R1 " and so on
};

inline state& box() {
  static state s;
  return s;
}

inline int open(const char* device) {
  box().opened = device;
  return box().open_ok ? 0 : -1;
}
inline void close() { ++box().closes; }
inline int set_dtr(bool on) {
  box().dtr = on;
  box().calls += on ? "D1 " : "D0 ";
  return box().set_result;
}
inline int set_rts(bool on) {
  box().rts = on;
  box().calls += on ? "R1 " : "R0 ";
  return box().set_result;
}
inline int signals(unsigned char& m) {
  const state& b = box();
  const uint64_t reads = static_cast<uint64_t>(b.slow_ms) * 1000000u / fake_clock::step_ns();
  for (uint64_t i = 0; i < reads; ++i) fake_clock::read();
  m = 0x80;
  if (b.rts && !b.key1) m |= 0x10;
  if (b.dtr && !b.key2) m |= b.key2_line;
  if (b.ring) m |= 0x40;
  m |= 0x03;  // the outputs must never show in the modem byte
  return b.broken ? -1 : 0;
}

// Installs a fresh box; uninstall() closes the port and restores the device.
inline void install() {
  box() = state{};
  static const serial_lines_ops ops{open, close, set_dtr, set_rts, signals};
  serial_lines(&ops);
}
inline void uninstall() {
  serial_done();
  serial_lines(nullptr);
}

}  // namespace serial_box
