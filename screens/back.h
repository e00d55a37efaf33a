// Background ("back"): a picture that stays behind the following stimuli;
// after drawing it the screen is saved, so a return to the program restores it.
#pragma once

#include "visual/bmp.h"

class background : public bmp {
 public:
  explicit background(const char* name);
  background(const char* line, int& err);
  int show() override;
  ~background() override;

 private:
  void map_name();
};

stim* _background(const char* line);
