// The test's own stimulus types. ixmod_ is the visual trial (an arrow from
// the preloaded image set); every stimulus-file line whose first word names
// no registered type becomes one. ixmod_prep ("prep") is the preparatory
// tone: a catch stimulus whose answer is a false alarm.
#pragma once

#include "sound/swav.h"
#include "visual/sbmp.h"

class ixmod_ : public sbmp {
 public:
  ixmod_(const char* line, int& err);
  int cleanup() override;
  int speichern() const override;
  long maxreak() const override;
  int masked() const override;

  int suppressed = 0;  // when set the trial saves nothing
};

class ixmod_prep : public swav {
 public:
  ixmod_prep(const char* attributes, int& err);
  int set(const char* token) override;
  int falsch() override;
  long maxreak() const override;
  int speichern() const override;

  long remax = 1000;  // end of the reaction window, ms
};

stim* _ixmod(const char* line);
stim* _ixmod_prep(const char* attributes);
// Whether a preparatory tone was answered since the last trial's clean-up.
bool ixmod_prep_answered();

// The start-up chain and the block loop; the process's exit status.
int ixmod_main(int argc, char** argv);
