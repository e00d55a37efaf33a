// Trigger output: a stimulus's trigger byte as one pulse of fixed width on
// the data lines of a parallel port at its onset, optionally recorded in a
// trigger value file ("<ms> <code>" per pulse). One port at most.
#pragma once

enum trig_out_port_ : int { trig_out_lpt1 = 0, trig_out_lpt2 = 1, trig_out_lpt3 = 2, trig_out_none = 5 };

// Reads "triggerport" (default "lpt1") and "trigger-invert" (default "yes");
// with save set, the file named by option "tr" (default: the results file
// name with ".trg" added, or the program name with extension "trg").
int trig_out_init(int save);
int trig_out_init(const char* port, const char* invert, const char* file);
int trig_out_init(trig_out_port_ port, int invert, long width_us, const char* file);

// Puts a byte on the lines: with a trigger file open only the marker (0xFF
// for a code, 0x7F for 0), else the code, complemented when inverting.
int trig_out_set(unsigned char code);
int trig_out_clear();
// Code on the lines, a busy wait of the pulse width, lines cleared, then the
// file line.
int trig_out_send(unsigned char code);
int trig_out_valid();
// The parallel port the pulses go to (0 for LPT1), -1 without output.
int trig_out_lpt();
// Whether a trigger value file is open.
int trig_out_saving();
// No trigger output from now on (after the port failed at start-up).
void trig_out_disable();
void trig_out_done();
// Back to the state before start-up (tests).
void trig_out_reset();
