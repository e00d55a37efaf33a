// The foot pedal: a ball contact ("ballen", code 2), a heel contact
// ("ferse", code 3), both at once (code 9) and two further contacts (codes 1
// and 4), on a parallel port's status lines or on the game port's buttons.
// Either of the two main contacts can be made the only one that counts.
#pragma once

enum _fuss_port : int { FUSS_LPT1 = 1, FUSS_LPT2 = 2, FUSS_LPT3 = 3, FUSS_GAME = 4 };

// Reads "fuss-port" (default "lpt1"), "fuss-only2" and "fuss-only3"
// (default "no").
int fuss_init();
// Flags when their text contains yes/YES/Yes or ballen/Ballen (ferse/Ferse);
// the port by substring: game/GAME, then lpt1, lpt2, lpt3 (or upper case).
// 0; 1 when the port does not open; -1 for an unknown port.
int fuss_init(const char* port, const char* only2, const char* only3);
int fuss_init(_fuss_port port, int ball_only, int heel_only);

int fuss_read(int& code);
int fuss_read_lpt(int& code);
int fuss_read_game(int& code);

// The reaction code of one reading (first match wins):
//            parallel status            game port byte
//   1        no flag, 0x20 clear        no flag, 0x80 clear
//   4        no flag, 0x08 clear        no flag, 0x10 clear
//   9        no flag, 0x10 clear, 0x80 set   no flag, 0x20 and 0x40 clear
//   2        heel-only off, 0x10 clear  heel-only off, 0x20 clear
//   3        ball-only off, 0x80 set    ball-only off, 0x40 clear
int fuss_decode_lpt(unsigned char status, int ball_only, int heel_only);
int fuss_decode_game(unsigned char value, int ball_only, int heel_only);

// Back to LPT1 without flags (tests).
void fuss_reset();
