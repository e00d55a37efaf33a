// The sink for per-trial results lines. In this test the sink is switched
// off: result() accepts every line and discards it. The file service around
// it (open, buffered lines, close removing an empty file) is kept working.
#pragma once

// With the environment variable IXMOD_RESULTS_SINK naming a file, every
// line handed to result() is also appended there: whole-program tests read
// the trials' outcomes from it. Labs never set it.
int results_init(int size);
int results_init();

int result(const char* line);
int result(const char* fmt, const void* a);
int result(const char* fmt, const void* a, const void* b);

int resopen(const char* name);
void resclose();

// Lines handed to result() since start-up, kept only when a test asks for
// them (results_capture(true)); the program never does.
void results_capture(bool on);
int results_captured();
const char* results_captured_line(int i);
