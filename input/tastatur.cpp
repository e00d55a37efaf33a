#include "input/tastatur.h"

#include <allegro.h>

#include <atomic>

#include "platform/display.h"
#include "platform/priority.h"

namespace {
const tastatur_device* fake_ = nullptr;
std::atomic<int> arrows_{0};
bool counting_ = false;

// Runs for every key going down or up (0x80 set) as the input is taken in.
void key_event(int scancode) {
  if ((scancode & 0x80) == 0) display_key_down();
  if (!counting_) return;
  if (scancode == KEY_RIGHT) ++arrows_;
  if (scancode == KEY_LEFT) --arrows_;
}
}  // namespace

int tastatur_init() {
  if (keyboard_driver) keyboard_lowlevel_callback = key_event;
  alleg_noreal();
  return 0;
}

int tastatur_key() {
  if (fake_) return fake_->key();
  display_poll_input();
  return keyboard_driver && keypressed() ? readkey() : 0;
}

void tastatur_unget(int key) {
  if (fake_) fake_->unget(key);
  else if (keyboard_driver) simulate_keypress(key);
}

void tastatur_clear() {
  if (fake_) {
    while (fake_->key()) {
    }
    return;
  }
  display_poll_input();
  if (keyboard_driver) clear_keybuf();
}

int tastatur_buttons() {
  if (fake_) return fake_->buttons ? fake_->buttons() : 0;
  display_poll_input();
  if (!mouse_driver) return 0;
  if (mouse_needs_poll()) poll_mouse();
  return mouse_b & 3;
}

int tastatur_mouse(int& x, int& y) {
  if (fake_) return fake_->mouse ? fake_->mouse(x, y) : 0;
  display_poll_input();
  if (!mouse_driver) return 0;
  if (mouse_needs_poll()) poll_mouse();
  x = mouse_x;
  y = mouse_y;
  return 1;
}

int tastatur_arrows() {
  if (fake_) return fake_->arrows ? fake_->arrows() : 0;
  if (!counting_ && keyboard_driver) {
    keyboard_lowlevel_callback = key_event;
    counting_ = true;
  }
  display_poll_input();
  return arrows_.exchange(0);
}

bool tastatur_is_reaction(int key) { return (key & 0xff) >= '1' && (key & 0xff) <= '8'; }

// Takes the first reaction key among all waiting keys and puts the others
// back in their order. Reading only the front key would let one stray key
// hide every reaction key behind it, since whoever reads it puts it back.
int tastatur_read(int& code) {
  code = 0;
  int others[64];
  int n = 0;
  while (const int k = tastatur_key()) {
    if (tastatur_is_reaction(k)) {
      code = (k & 0xff) - '0';
      break;
    }
    if (n < 64) others[n++] = k;
  }
  for (int i = 0; i < n; ++i) tastatur_unget(others[i]);
  return 0;
}

bool tastatur_press_latest(unsigned long long& test_us) { return !fake_ && display_key_press_latest(test_us); }

void tastatur_fake(const tastatur_device* device) { fake_ = device; }
