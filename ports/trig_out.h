// Trigger output: a stimulus's trigger byte as one pulse of fixed width on
// the data lines of a parallel port at its onset, or as bytes to a trigger
// interface on a serial port, optionally recorded in a trigger value file
// ("<ms> <code>" per pulse). One port at most.
#pragma once

enum trig_out_port_ : int { trig_out_lpt1 = 0, trig_out_lpt2 = 1, trig_out_lpt3 = 2, trig_out_none = 5, trig_out_com = 6 };
// How a serial interface makes the pulse: "byte" writes the code and, after
// the pulse width, the rest level (interfaces that hold a byte until the
// next); "pulse" writes the code only (interfaces that time the pulse).
enum trig_out_mode_ : int { trig_out_byte = 0, trig_out_pulse = 1 };

// Reads "triggerport" (default "lpt1") and "trigger-invert" (default "yes");
// with save set, the file named by option "tr" (default: the results file
// name with ".trg" added, or the program name with extension "trg").
int trig_out_init(int save);
// Port text: "lpt1".."lpt3" (or upper case; the last hit wins), or "com<n>"
// ("COM<n>"), which also reads "trigger-serial-baud" (default 115200) and
// "trigger-serial-mode" ("byte" or "pulse", default "byte").
int trig_out_init(const char* port, const char* invert, const char* file);
// Opens the port and puts the lines to their rest level (a serial
// interface in byte mode only) and logs which output it is. A parallel
// port this machine does not have (lpt_absent) gives -1 without a line.
int trig_out_init(trig_out_port_ port, int invert, long width_us, const char* file);
// The serial port trig_out_com opens: COM<number> at baud bit/s, in mode.
void trig_out_serial(int number, long baud, trig_out_mode_ mode);

// Puts a byte on the lines: with a trigger file open only the marker (0xFF
// for a code, 0x7F for 0), else the code, complemented when inverting.
int trig_out_set(unsigned char code);
int trig_out_clear();
// Code on the lines, a busy wait of the pulse width, lines cleared, then the
// file line. A serial interface in pulse mode gets the code only, and the
// file line follows at once.
int trig_out_send(unsigned char code);
int trig_out_valid();
// The parallel port the pulses go to (0 for LPT1), -1 without output or on
// a serial interface.
int trig_out_lpt();
trig_out_port_ trig_out_port();
// Whether a trigger value file is open.
int trig_out_saving();
// No trigger output from now on (after the port failed at start-up). said:
// the start-up has said so, and sends are dropped without a line each.
void trig_out_disable(bool said = false);
void trig_out_done();
// Back to the state before start-up (tests).
void trig_out_reset();
