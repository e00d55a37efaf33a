// Films preloaded at start-up: a "sfli" (or "film") stimulus plays film
// number index of the set instead of loading one when prepared.
#pragma once
#include "visual/fli.h"

class sfli : public fli {
 public:
  sfli(unsigned nummer, const char* uv, unsigned char trigger, char kritisch, long t0, long t1, double relx,
       double rely, int index, int repeat);
  // Attribute "index=%d" and those of fli.
  sfli(const char* line, int& err);
  int set(const char* attr) override;
  int prepare() override;
  int index = 0;
};

stim* _sfli(const char* line);

// The set of preloaded films: from the list named by option "fl" (an
// object of the resource datafile, or a file with a count and names).
int sfli_init();
int sfli_init(int n, char** names);
void sfli_done();
flistruct* _sfli_preload(const char* name);
