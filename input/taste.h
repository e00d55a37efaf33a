// The reaction-key layer: one integer reaction code from whichever device
// answers (keyboard, response box, foot pedal), and a press/hold/release
// state machine that reports each press once, keeps dead times after press
// and release, and raises a release request for a key held too long.
#pragma once

enum _taste_typ { TASTE_TASTATUR = 0, TASTE_VOK = 1, TASTE_FUSS = 2 };

// Type 0 the keyboard, 1 the response box (vok_init with keys and arg),
// 2 the foot pedal (fuss_init).
int taste_init(int keys, _taste_typ type, long dead_time, int arg);
// Always initialises the keyboard; the device name has no effect.
int taste_init(int keys, const char* name, long dead_time, int arg);
// Reads "reaction-key" (default "keypad") and passes it to the form above.
int taste_init(int keys, long dead_time, int arg);

int taste_read(int& code);
int taste_buffered(int& code, long& now);
// The test clock in microseconds at the reading that gave taste_buffered's
// last time: a reaction time is rounded from it, not from whole ms.
unsigned long long taste_time_us();
int taste_please(long& time);
void taste_enable();
void taste_disable();

// Test seam: every device reading comes from read (null: the real device),
// and the layer behaves as for a device of the given type.
void taste_fake(int (*read)(int& code), _taste_typ type = TASTE_TASTATUR);
// Back to the state after start-up (tests).
void taste_reset();
