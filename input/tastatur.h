// The keyboard as a reaction device: characters '1' to '8' are codes 1 to 8;
// every other key is put back for the rest of the program. Also the
// experimenter's keys and mouse buttons of the pause dialogue.
#pragma once

int tastatur_init();
// The first waiting reaction key as a code 1 to 8 (0: none); every other
// waiting key is put back in its order.
int tastatur_read(int& code);
bool tastatur_is_reaction(int key);

// A waiting key (Allegro's readkey value: character in the low byte), taken
// from the buffer; 0 when none waits.
int tastatur_key();
// Puts a key taken with tastatur_key back into the buffer.
void tastatur_unget(int key);
// Discards every waiting key.
void tastatur_clear();
// Mouse buttons: bit 0 left, bit 1 right.
int tastatur_buttons();
// The pointer's screen position; 0 when there is no mouse.
int tastatur_mouse(int& x, int& y);
// Presses of the right arrow key minus presses of the left one since the
// last call. Counted as the keys go down, whoever reads the key buffer.
int tastatur_arrows();

// The latest moment (test clock, us) the keys taken in since the last call
// can have gone down, as the X server stamped them; false where that is not
// known for every one of them.
bool tastatur_press_latest(unsigned long long& test_us);

// Test seam: keys and buttons come from these functions (null: the devices).
// key() returns the next waiting key or 0; unget receives keys put back.
struct tastatur_device {
  int (*key)();
  void (*unget)(int key);
  int (*buttons)();
  int (*mouse)(int& x, int& y);
  int (*arrows)();
};
void tastatur_fake(const tastatur_device* device);
