// Named options of the command line: "-key=value" (or "-key#value") and flags
// "-key". Every file option defaults to the program path with its extension
// replaced by the option key.
#pragma once

int argument_init(int argc, const char** argv);

// Index of the first argument "-key=..." (else "-key#..."), 0 if none.
int argument_lookup(const char* key);
// Index of the first argument beginning with "-key" (a prefix test), 0 if none.
int argument_check(const char* key);
// Index of the first argument that is the flag "-key" itself, 0 if none:
// "-r" is not found in "-res=..." or "-report=...".
int argument_flag(const char* key);

// The option's value; def when it is absent or empty. With msg and def given,
// msg formatted with def is logged when def is returned; with msg null a log
// line without text is written.
const char* argument_get(const char* key, const char* def, const char* msg);
// The option's value, or null when it is absent or empty; logs nothing.
const char* argument_value(const char* key);
const char* argument_get(const char* key, const char* def);
const char* argument_get(const char* key);
int argument_get(const char* key, int def);

const char* argument_progname();
// argv[0] with its extension replaced by ext, at most size characters.
void argument_progname(char* buf, int size, const char* ext);
