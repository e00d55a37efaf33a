#include "ports/trigger.h"

#include <allegro.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "input/taste.h"
#include "input/tastatur.h"
#include "input/vok.h"
#include "platform/alleg.h"
#include "platform/display.h"
#include "platform/font.h"
#include "platform/signals.h"
#include "platform/timer.h"
#include "services/config.h"
#include "services/log.h"

namespace {
int type_ = TRIGGER_NONE;
int show_ = 0;

int fail(const char* text) {
  errno = EINVAL;
  alleg_perror(text);
  return -1;
}

bool one_of(const char* s, const char* a, const char* b, const char* c) {
  return strcmp(s, a) == 0 || strcmp(s, b) == 0 || strcmp(s, c) == 0;
}

bool is_x(int key) { return (key & 0xff) == 'x' || (key & 0xff) == 'X'; }

int timed_out(long ms) {
  trigger_info(2);
  alleg_warning("no trigger observed after %d ms. continuing...", static_cast<int>(ms));
  return 0;
}
}  // namespace

int trigger_init() {
  return trigger_init(config_string("trigger-input", "space"), config_string("trigger-show", "yes"));
}

int trigger_init(const char* input, const char* show) {
  if (!input) input = "";
  if (!show) show = "";
  int on;
  if (one_of(show, "yes", "Yes", "YES")) on = 1;
  else if (one_of(show, "no", "No", "NO")) on = 0;
  else return fail(show);
  static const char* const kInputs[] = {"none", "space", "key2", "ack"};
  for (int t = 0; t < 4; ++t)
    if (strcmp(input, kInputs[t]) == 0) return trigger_init(static_cast<_trigger_type>(t), on);
  fail("trigger_init");
  return fail(input);
}

int trigger_init(_trigger_type type, int show) {
  type_ = type;
  show_ = show;
  return 0;
}

_trigger_type trigger_type() { return static_cast<_trigger_type>(type_); }

namespace {
// A wait for the trigger also ends when the test is asked to stop.
bool stopped_by_signal() {
  const int sig = signals_stop();
  if (sig) alleg_message("stopped (signal %d)", sig);
  return sig != 0;
}
}  // namespace

int trigger_wait(long ms) {
  // Timed on the counter, which runs on while the display is switched away
  // and the test clock stands still.
  const uint64_t deadline = alleg_timer_rdtsc() + static_cast<uint64_t>(ms > 0 ? ms : 0) * 1000000ull;
  switch (type_) {
    case TRIGGER_NONE:
      if (ms == 0) return fail("no trigger and no delay");
      while (alleg_timer_rdtsc() < deadline)
        if (stopped_by_signal()) return -1;
      return 0;
    case TRIGGER_SPACE:
      trigger_info(0);
      for (;;) {
        const int k = tastatur_key();
        if ((k & 0xff) == 0x20) break;
        if (stopped_by_signal()) return -1;
      }
      trigger_info(1);
      return 0;
    case TRIGGER_KEY2:
      trigger_info(0);
      for (;;) {
        int code = 0;
        if (taste_read(code) != 0) return -1;
        if (code == 2) {
          trigger_info(1);
          return 0;
        }
        if (ms != 0 && alleg_timer_rdtsc() > deadline) return timed_out(ms);
        if (stopped_by_signal()) return -1;
        // Only an untimed wait can be stopped with x.
        if (ms == 0) {
          if (const int k = tastatur_key(); is_x(k)) {
            alleg_message("stopped");
            return -1;
          }
        }
      }
    case TRIGGER_ACK:
      trigger_info(0);
      for (;;) {
        int ack = 0;
        if (vok_ack_noinvert(ack) != 0) return -1;
        if (ack) {
          trigger_info(1);
          return 0;
        }
        if (ms != 0 && alleg_timer_rdtsc() > deadline) return timed_out(ms);
        if (stopped_by_signal()) return -1;
        // Only a timed wait for the line can be stopped with x.
        if (ms != 0) {
          if (const int k = tastatur_key(); is_x(k)) {
            alleg_message("stopped");
            return -1;
          }
        }
      }
    default:
      return fail("trigger_wait");
  }
}

int trigger_shares_port(int output_lpt) {
  const int box = static_cast<int>(vok_port());
  if (type_ != TRIGGER_ACK || output_lpt < 0 || box != output_lpt) return 0;
  alleg_warning("trigger-input ack: the response box on LPT%d is polled with its data lines high, so the trigger "
                "output on that port shows 255 while a block waits for the line",
                box + 1);
  return 1;
}

void trigger_info(int state) {
  if (!show_ || state < 0 || state > 2) return;
  static const char* const kText[] = {"waiting for a trigger", "waiting for a trigger - got it",
                                      "waiting for a trigger - failed"};
  static const char* const kShown[] = {"Waiting for a trigger", "Waiting for a trigger - got it",
                                       "Waiting for a trigger - failed"};
  static const int kColour[][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
  if (alleg_gfx_mode() == 0 || !screen) {
    printf("%s\n", kText[state]);
    return;
  }
  alleg_textout(screen, kShown[state], 1, 0, SCREEN_H / 10, kColour[state][0], kColour[state][1],
                kColour[state][2]);
  display_flush();
}
