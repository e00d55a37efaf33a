// The reaction evaluation stimulus ("reak"): always evaluated, with its own
// reaction window and a feedback sound for a correct and for a wrong answer.
// Free functions keep the last evaluated trial's outcome and whether the
// pause dialogue was shown, for feedback screens.
#pragma once

#include "engine/stim.h"

class reak : public stim {
 public:
  reak(const char* line, int& err);
  ~reak() override;

  int set(const char* token) override;
  int prepare() override;
  int cleanup() override;
  int with_reaktion() const override;
  int richtig() override;
  int falsch() override;
  int auslassung() override;
  long minreak() const override;
  long maxreak() const override;

  stim* correct_sound = nullptr;
  stim* wrong_sound = nullptr;
  long min_ms;
  long max_ms;
};

stim* _reak(const char* line);

// The outcome of the last evaluated trial (1 correct, 0 not) and its number.
int reak_richtig(unsigned* nummer);
void reak_richtig(unsigned nummer, int outcome);
void reak_please(int flag);
int reak_getplease();
