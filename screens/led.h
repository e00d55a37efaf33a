// The LED output: a stimulus that lights a chosen set of the eight data
// lines of a parallel port while it is shown. Below 1000 promille it dims
// the LEDs by switching them within every millisecond for as long as the run
// loop calls idle(). In flip-flop mode the lines drive toggling latches:
// every switch is one pulse of the lines, and a reset sends two pulses on
// all lines.
#pragma once
#include "engine/stim.h"

enum led_port_ : int { led_lpt1 = 0, led_lpt2 = 1, led_lpt3 = 2, led_none = 3 };
enum led_mode_ : int { led_static = 0, led_flipflop = 1 };

class led : public stim {
 public:
  led(const char* line, int& err);
  // "index=1,3,8" as for the pen; "promille=%d" the on-time per cycle.
  int set(const char* token) override;
  int show() override;
  int hide() override;
  int idle() override;
  ~led() override;

  int lines[8];
  int promille;              // µs on per 1 ms cycle; 1000 = always on
  unsigned long long onset;  // µs test time at show()
  int lit;
};

stim* _led(const char* attributes);

// Reads "led-reset" (default "no"), "led-mode" ("static") and "led-port"
// ("lpt1"), in this order.
int led_init();
// Mode "static"/"flipflop"/"flip-flop" (or upper case), then the reset flag,
// then the port as for the pen; unknown texts: EINVAL.
int led_init(const char* port, const char* mode, const char* reset);
// Lines low on a real port, the reset pulses when asked for; led_exit then
// runs at exit.
int led_init(led_port_ port, led_mode_ mode, int reset);
// The port of the latest led_init; a port this machine does not have
// (lpt_absent) fails led_init without a log line.
led_port_ led_port();
int led_on(const int* lines);
int led_off(const int* lines);
// Two pulses on all eight lines: every latch back to off.
int led_reset();
// At exit: the reset pulses in flip-flop mode with reset on.
void led_exit();
// Back to the state before start-up: first port, static, no reset (tests).
void led_reset_state();

// Whether the lines are on elapsed_us after onset: on for the first
// promille + 1 µs of every millisecond (promille 0: at phase 0 only).
bool led_phase_on(unsigned long long elapsed_us, int promille);
// Whether "led-reset" asks for reset pulses: "yes" in the reset text, or
// "YES" in the mode text.
bool led_reset_wanted(const char* mode, const char* reset);
