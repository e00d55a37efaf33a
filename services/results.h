// The sink for per-trial results lines. By default it is switched off:
// result() accepts every line and discards it, and the trials' outcomes
// reach only the log. The option "res" names a file and switches it on.
#pragma once

// Without the option "res" the sink is off: result() discards every line.
// "-res=FILE" switches it on: lines are kept in memory while a block runs
// and written to FILE, and made durable, by results_sync between blocks and
// by resclose at exit. A kill loses at most the lines of the running block.
int results_init(int size);
int results_init();

int result(const char* line);
int result(const char* fmt, const void* a);
int result(const char* fmt, const void* a, const void* b);

int resopen(const char* name);
// The results file's name, null while no file is open.
const char* results_name();
// Writes the lines kept so far and waits until they are on the disk. A file
// that fails is reported (log_output_failed) and from then on its lines go
// to standard error. -1 when the file failed in this call.
int results_sync();
void resclose();

// Lines handed to result() since start-up, kept only when a test asks for
// them (results_capture(true)); the program never does.
void results_capture(bool on);
int results_captured();
const char* results_captured_line(int i);
