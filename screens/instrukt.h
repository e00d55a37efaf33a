// The instruction screen ("instr"): a full picture that stays until the
// participant presses a key or a mouse button; "x" ends the test. The file
// name gets the selected locale before its extension (anw.bmp -> anwde.bmp).
#pragma once

#include "visual/bmp.h"

class instrukt : public bmp {
 public:
  explicit instrukt(const char* name);
  instrukt(const char* line, int& error);
  int set(const char* token) override;
  int show() override;
  int speichern() const override;
  ~instrukt() override;

  int hide_after = 1;  // hide the picture and restore the palette after the key

 protected:
  void localise();
};

stim* _instrukt(const char* line);

int instrukt_init(const char* locale);
// Takes the option "locale"; without it names stay as they are.
int instrukt_init();
