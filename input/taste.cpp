#include "input/taste.h"

#include <cerrno>

#include "input/fuss.h"
#include "input/tastatur.h"
#include "input/vok.h"
#include "platform/timer.h"
#include "services/config.h"
#include "services/log.h"

namespace {
const long kHoldTooLong_ms = 800;

int type_ = TASTE_TASTATUR;
int keys_ = 2;
long dead_time_ = 200;
int enabled_ = 1;
int state_ = 0;
long state_time_ = 0;
unsigned long long now_us_ = 0;
int release_request_ = 0;
int (*fake_)(int&) = nullptr;

int bad_type() {
  errno = EINVAL;
  alleg_perror("taste/typ");
  return -1;
}
}  // namespace

int taste_init(int keys, _taste_typ type, long dead_time, int arg) {
  type_ = type;
  keys_ = keys;
  dead_time_ = dead_time;
  switch (type) {
    case TASTE_TASTATUR:
      return tastatur_init();
    case TASTE_VOK:
      return vok_init(keys, arg);
    case TASTE_FUSS:
      return fuss_init();
    default:
      return bad_type();
  }
}

int taste_init(int keys, const char*, long dead_time, int arg) {
  return taste_init(keys, TASTE_TASTATUR, dead_time, arg);
}

int taste_init(int keys, long dead_time, int arg) {
  return taste_init(keys, config_string("reaction-key", "keypad"), dead_time, arg);
}

int taste_read(int& code) {
  if (fake_) return fake_(code);
  switch (type_) {
    case TASTE_TASTATUR:
      return tastatur_read(code);
    case TASTE_VOK:
      return vok_read(code);
    case TASTE_FUSS:
      return fuss_read(code);
    default:
      code = 0;
      return bad_type();
  }
}

int taste_buffered(int& code, long& now) {
  if (!enabled_) {
    code = 0;
    return 0;
  }
  now = alleg_get_timer();
  now_us_ = alleg_get_utimer();
  if (taste_read(code) != 0) return -1;
  // A key found late (the loop was busy, the server slow to pass it on)
  // keeps the time the X server's stamp allows at the latest.
  unsigned long long latest = 0;
  if (code != 0 && type_ == TASTE_TASTATUR && tastatur_press_latest(latest)) {
    if (latest < now_us_) now_us_ = latest;
  }
  switch (state_) {
    case 0:
      if (code != 0 && type_ != TASTE_TASTATUR) {
        state_ = 1;
        state_time_ = now;
        release_request_ = 0;
      }
      break;
    case 1:
      code = 0;
      release_request_ = 0;
      if (now > state_time_ + dead_time_) state_ = 2;
      break;
    case 2: {
      int again = 0;
      if (taste_read(again) != 0) return -1;
      if (again == 0) {
        state_ = 3;
        state_time_ = now;
        release_request_ = 0;
      } else if (now - state_time_ > kHoldTooLong_ms) {
        release_request_ = 1;
      }
      if (code != 9) code = 0;
      break;
    }
    case 3:
      code = 0;
      if (now > state_time_ + dead_time_) state_ = 0;
      break;
    default:
      errno = EINVAL;
      alleg_perror("gibt's nicht");
      return -1;
  }
  return 0;
}

unsigned long long taste_time_us() { return now_us_; }

int taste_please(long& time) {
  time = state_time_;
  return release_request_;
}

void taste_enable() { enabled_ = 1; }
void taste_disable() { enabled_ = 0; }
void taste_fake(int (*read)(int&), _taste_typ type) {
  fake_ = read;
  type_ = type;
}

void taste_reset() {
  type_ = TASTE_TASTATUR;
  keys_ = 2;
  dead_time_ = 200;
  enabled_ = 1;
  state_ = 0;
  state_time_ = 0;
  release_request_ = 0;
  fake_ = nullptr;
}
