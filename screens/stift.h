// The pen output: a stimulus that raises a chosen set of the eight data
// lines of a parallel port while it is shown. The line-set helpers here are
// shared with the LED output.
#pragma once
#include "engine/stim.h"

enum stift_port_ : int { stift_lpt1 = 0, stift_lpt2 = 1, stift_lpt3 = 2, stift_none = 3 };

class stift : public stim {
 public:
  stift(const char* line, int& err);
  // "index=1,3,8": the listed lines (1 = D0 .. 8 = D7) are added to the set.
  int set(const char* token) override;
  int show() override;
  int hide() override;
  ~stift() override;

  int lines[8];
};

stim* _stift(const char* attributes);

// Reads "stift-port" (default "lpt1").
int stift_init();
// "lpt1".."lpt3" or "none" (or upper case), by substring; else EINVAL.
int stift_init(const char* port);
// Puts the pen lines of a real port to the last pen byte. A port this
// machine does not have (lpt_absent) gives -1 without a log line.
int stift_init(stift_port_ port);
// The port of the latest stift_init.
stift_port_ stift_port();
// Raises the lines of the set (the last pen byte); -1 without a port.
int stift_on(const int* lines);
// Lowers all pen lines; -1 without a port.
int stift_off(const int* lines);
// Back to the state before start-up: first port, last byte 0 (tests).
void stift_reset();

// The data byte of a line set: line i (0..7) on bit i.
unsigned char stift_byte(const int* lines);
// Adds the comma-separated line numbers of list to lines. A number outside
// 1..8 (a piece that is no number counts as 0) is logged with fmt ("stift:
// ind=%d") and gives -1.
int stift_index(const char* list, int* lines, const char* fmt);
// Port of a "stift-port"/"led-port" text: 0..2 for lpt1..lpt3, 3 for none,
// -1 for anything else. First match in the order lpt1, lpt2, lpt3, none.
int stift_port_of(const char* text);
