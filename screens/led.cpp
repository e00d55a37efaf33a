#include "screens/led.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/timer.h"
#include "ports/lpt.h"
#include "screens/stift.h"
#include "services/config.h"
#include "services/log.h"

namespace {
led_port_ port_ = led_lpt1;
led_mode_ mode_ = led_static;
int reset_ = 0;
bool exit_registered_ = false;

// Settling time before and after each write to the lines, in µs.
const unsigned long long kSettle = 20;
// Half period of the reset pulses, in µs.
const unsigned long long kResetHalf = 100;

int fail(const char* text) {
  errno = EINVAL;
  alleg_perror(text);
  return -1;
}

int mode_of(const char* text) {
  static const struct {
    const char* name;
    int mode;
  } names[] = {{"static", led_static},      {"STATIC", led_static},      {"flipflop", led_flipflop},
               {"FLIPFLOP", led_flipflop},  {"flip-flop", led_flipflop}, {"FLIP-FLOP", led_flipflop}};
  if (!text) return -1;
  for (const auto& n : names)
    if (strstr(text, n.name)) return n.mode;
  return -1;
}

int write(unsigned char byte) { return lpt_set_port(port_, byte) == 0 ? 0 : -1; }
}  // namespace

bool led_phase_on(unsigned long long elapsed_us, int promille) {
  return static_cast<long long>(elapsed_us % 1000) <= promille;
}

// The mode text is searched for the capitals, the reset text for the small
// letters only: a reset text "YES" alone does not turn reset on.
bool led_reset_wanted(const char* mode, const char* reset) {
  return (reset && strstr(reset, "yes")) || (mode && strstr(mode, "YES"));
}

int led_on(const int* lines) {
  if (port_ == led_none) {
    alleg_error("led: no valid LPT defined");
    return -1;
  }
  const unsigned char byte = stift_byte(lines);
  alleg_urest(kSettle);
  if (write(byte)) return -1;
  alleg_urest(kSettle);
  if (mode_ == led_flipflop) {
    // One pulse per call: the latches toggle on its edge.
    if (write(0)) return -1;
    alleg_urest(kSettle);
  }
  return 0;
}

int led_off(const int* lines) {
  if (mode_ == led_flipflop) return led_on(lines);  // a second pulse toggles back
  if (port_ == led_none) return fail("led-off: port");
  alleg_urest(kSettle);
  return write(0);
}

int led_reset() {
  if (port_ == led_none) return fail("led/port");
  alleg_urest(kSettle);
  for (int pulse = 0; pulse < 2; ++pulse) {
    if (write(0xFF)) return -1;
    alleg_urest(kResetHalf);
    if (write(0)) return -1;
    alleg_urest(kResetHalf);
  }
  return 0;
}

void led_exit() {
  if (mode_ == led_flipflop && reset_) led_reset();
}

int led_init(led_port_ port, led_mode_ mode, int reset) {
  port_ = port;
  mode_ = mode;
  reset_ = reset;
  switch (port) {
    case led_lpt1:
    case led_lpt2:
    case led_lpt3:
      if (lpt_absent(port) || lpt_init(port, 0, 0)) return -1;
      if (mode_ == led_flipflop && reset_ && led_reset()) return -1;
      if (!exit_registered_) exit_registered_ = atexit(led_exit) == 0;
      return 0;
    case led_none:
      return 0;
  }
  return fail("led/port");
}

int led_init(const char* port, const char* mode, const char* reset) {
  const int m = mode_of(mode);
  if (m < 0) return fail(mode ? mode : "(null)");
  const int r = led_reset_wanted(mode, reset) ? 1 : 0;
  const int p = stift_port_of(port);
  if (p < 0) return fail(port ? port : "(null)");
  return led_init(static_cast<led_port_>(p), static_cast<led_mode_>(m), r);
}

led_port_ led_port() { return port_; }

int led_init() {
  const char* reset = config_string("led-reset", "no");
  const char* mode = config_string("led-mode", "static");
  const char* port = config_string("led-port", "lpt1");
  return led_init(port, mode, reset);
}

void led_reset_state() {
  port_ = led_lpt1;
  mode_ = led_static;
  reset_ = 0;
}

led::led(const char* line, int& err) : stim(line, err), lines{}, promille(1000), onset(0), lit(0) {
  const int parsed = _stim(line);
  err = (err == 0 && parsed == 0) ? 0 : 1;
}

led::~led() = default;

int led::set(const char* token) {
  char list[200];
  if (sscanf(token, "index=%199s", list) == 1) return stift_index(list, lines, "led: ind=%d");
  int v;
  if (sscanf(token, "promille=%d", &v) == 1) {
    promille = v;
    return 0;
  }
  return stim::set(token);
}

int led::show() {
  if (!lit) {
    if (led_on(lines)) return -1;
    lit = 1;
  }
  onset = alleg_get_utimer();
  return stim::show();
}

int led::hide() {
  if (lit) {
    if (led_off(lines)) return -1;
    lit = 0;
  }
  return stim::hide();
}

int led::idle() {
  if (shown) {
    if (led_phase_on(alleg_get_utimer() - onset, promille)) {
      if (!lit) {
        if (led_on(lines)) return -1;
        lit = 1;
      }
    } else if (lit) {
      if (led_off(lines)) return -1;
      lit = 0;
    }
  }
  return promille == 1000 ? stim::idle() : 0;
}

stim* _led(const char* attributes) { return stim_make<led>(attributes); }
