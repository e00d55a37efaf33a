// What the program says about itself without starting anything: the usage
// text of -help and the version of -version. Both need no display.
#pragma once
#include <cstdio>

const char* ixmod_version();
void usage_print(FILE* f, const char* prog);

// 1 when the arguments ask for the usage ("-help", "--help", "-h"), 2 for
// the version ("-version", "--version"), 0 otherwise.
int usage_wanted(int argc, const char* const* argv);
