#include "input/tastatur.h"

#include <allegro.h>

#include "platform/display.h"
#include "platform/priority.h"

namespace {
const tastatur_device* fake_ = nullptr;
}

int tastatur_init() {
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

int tastatur_read(int& code) {
  code = 0;
  const int k = tastatur_key();
  if (!k) return 0;
  const int c = k & 0xff;
  if (c >= '1' && c <= '8') code = c - '0';
  else tastatur_unget(k);
  return 0;
}

void tastatur_fake(const tastatur_device* device) { fake_ = device; }
