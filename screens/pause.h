// An empty interval that waits for the external trigger ("pause"); no
// response is awaited.
#pragma once

#include "engine/stim.h"

class pause : public stim {
 public:
  pause(unsigned id, long a, long b);
  pause(const char* line, int& err);
  int with_trigger() const override;
  long maxreak() const override;
};

stim* _pause(const char* line);
