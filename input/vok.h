// The response box: up to three reaction keys (normally two) on the status
// lines of a parallel port or the modem lines of a serial port. The keys are
// active low: a clear bit is a pressed key (or an open line).
//   status bit 0x10 key 1, 0x20 key 2, 0x08 key 3 (parallel only),
//   0x40 acknowledge line (parallel only).
#pragma once

// 0..9 LPT1..LPT10 (parallel index), 10..59 COM1..COM50 (9 + COM number);
// any other value is invalid.
enum _vok_port : int { VOK_LPT1 = 0, VOK_LPT10 = 9, VOK_COM1 = 10, VOK_COM50 = 59 };

// Reads "maxpoll" (ms, default 3) and "vok-port" (default "lpt1").
int vok_init(int keys, int arg);
// Selects the port by the first spelling found in name, opens it and checks
// it: 0; 1 when opening or the check fails; -1 for an unknown name.
int vok_init(int keys, const char* name, long maxpoll, int arg);
// Checks that both keys are up and that one reading takes at most maxpoll
// ms (maxpoll <= 0: no speed check).
int vok_init(int keys, _vok_port port, long maxpoll);

// One raw status byte: 0; 1 when a parallel access fails; -1 otherwise.
int vok_read_port(unsigned char& status);
// One reaction code: 0 none, 1..3.
int vok_read(int& code);
// ack = 1 while the acknowledge line (0x40) is high.
int vok_ack_noinvert(int& ack);
_vok_port vok_port();

// The reaction code of one status byte for keys in use: 0, or -1 (code 0)
// for a serial box with keys <= 1 whose two lines are both clear. The two
// kinds test their keys in opposite order: with both keys down a parallel
// box reads 1, a serial box 2.
int vok_decode(bool serial, unsigned char status, int keys, int& code);

// Back to LPT1 with two keys (tests).
void vok_reset();
