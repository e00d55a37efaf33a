// An empty stimulus: it presents nothing but takes part in the schedule and
// in reaction evaluation like any other trial.
#pragma once
#include "engine/stim.h"

class null : public stim {
 public:
  null(unsigned id, const char* text, unsigned trigger, int key, long a, long b);
  null(const char* line, int& err);
  ~null() override;
};

stim* _null(const char* attributes);
