// A response box on a simulated serial port, through the serial layer's
// test seam: key 1 on CTS fed by RTS, key 2 on DSR or RI fed by DTR, DCD
// always high. A pressed key opens its line. A reading can be made slow by
// advancing the fake clock.
#pragma once

#include "input/serial.h"
#include "test_support.h"

namespace serial_box {

struct state {
  bool open_ok = true, dtr = true, rts = true, key1 = false, key2 = false, ring = false, broken = false;
  std::string opened, calls;                    // device of the last open; "D0 D1 R0 R1 " and so on
  int closes = 0, set_result = 0, slow_ms = 0;  // what set_dtr/set_rts return; ms of fake clock a reading takes
  unsigned char key2_line = 0x20;               // 0x20 DSR or 0x40 RI
};

inline state& box() {
  static state s;
  return s;
}

inline int set(bool& output, bool on, const char* name) {
  output = on;
  box().calls += name + std::string(on ? "1 " : "0 ");
  return box().set_result;
}

// Installs a fresh box.
inline void install() {
  box() = state{};
  static const serial_lines_ops ops{
      [](const char* device) {
        box().opened = device;
        return box().open_ok ? 0 : -1;
      },
      [] { ++box().closes; },
      [](bool on) { return set(box().dtr, on, "D"); },
      [](bool on) { return set(box().rts, on, "R"); },
      [](unsigned char& m) {
        const state& b = box();
        for (uint64_t i = 0, n = b.slow_ms * 1000000ull / fake_clock::step_ns(); i < n; ++i) fake_clock::read();
        // The outputs (0x03) must never show in the modem byte.
        m = 0x83 | (b.rts && !b.key1 ? 0x10 : 0) | (b.dtr && !b.key2 ? b.key2_line : 0) | (b.ring ? 0x40 : 0);
        return b.broken ? -1 : 0;
      }};
  serial_lines(&ops);
}

// A fresh box on a running fake clock; at the end the port is closed and
// the device restored.
struct Test : ::testing::Test {
  void SetUp() override { test_allegro(), fake_clock::start(), install(); }
  void TearDown() override { serial_done(), serial_lines(nullptr), fake_clock::stop(); }
  state& box = serial_box::box();
};

}  // namespace serial_box
