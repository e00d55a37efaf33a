// The run's log: one text file of time-stamped lines. Until log_init has
// opened the file, and after log_done, lines go to standard error.
// Each line carries the test clock in ms: "%ld: %s", "warning: %ld: %s",
// "error: %ld: %s". Formatted variants cut their text at 999 characters.
#pragma once
#include <cstdio>

int log_init();
void log_done();
void alleg_logflush();
// Writes out the log and waits until it is on the disk (between blocks); a
// failure is reported as a write failure is. 0 or -1.
int log_sync();
FILE* log_stream();
// Every line written from now on is also handed to fn: its prefix ("",
// "warning: ", "error: ") and its text. Null stops it.
typedef void (*log_listener)(const char* prefix, const char* text, void* ctx);
void log_listen(log_listener fn, void* ctx);

void alleg_message(const char* text);
void alleg_message(const char* fmt, int a);
void alleg_message(const char* fmt, long a);
void alleg_message(const char* fmt, double a);
void alleg_message(const char* fmt, unsigned long long a);
void alleg_message(const char* fmt, int a, int b);
void alleg_message(const char* fmt, int a, int b, int c, int d, int e, int f);
void alleg_message(const char* text1, const char* text2);
void alleg_message(const char* text1, const char* text2, const char* text3);

void alleg_warning(const char* text);
void alleg_warning(const char* fmt, int a);
void alleg_warning(const char* fmt, int a, int b);
void alleg_warning(const char* text1, const char* text2);

void alleg_error(const char* text);
void alleg_error(const char* fmt, int a);
void alleg_error(const char* fmt, int a, int b);
void alleg_error(const char* text1, const char* text2);

// alleg_error("text: <system text of errno>").
void alleg_perror(const char* text);

// A file of the run (results, log, report, timing trace) that could not be
// written: "name: <system text of errno>" goes to the log and, while the log
// is a file, to standard error as well, and the run ends with exit status
// 255 however it ends otherwise.
void log_output_failed(const char* name);
bool log_outputs_ok();
