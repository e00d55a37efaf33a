// A second preloaded image set kept in video memory, so that onset is a
// card-to-card copy, and the stimulus that shows picture number index of it.
// Same list as the preloaded image set; no background save, back buffer or
// palette. Nothing in this test loads the set, so "vbmp" stimuli fail in
// prepare() until vbmp_init() is called.
#pragma once
#include <allegro.h>

#include "engine/stim.h"
#include "visual/frames.h"

int vbmp_init();
int vbmp_init(int n, char** names);
// Picture i; null with a logged message when there is none.
BITMAP* vbmp_bitmap(int i);
// Frees the set; the module is back to "not initialized".
void vbmp_done();

class vbmp : public stim {
 public:
  vbmp(unsigned nummer, int index, const char* uv, unsigned trigger, int kritisch, long t0, long t1, double relx,
       double rely);
  // Attributes "x=%lf", "y=%lf", "index=%d" and those of stim.
  vbmp(const char* line, int& err);

  int set(const char* attr) override;
  long pstime() const override;
  long showtime() const override;
  long hidetime() const override;
  int prepare() override;
  int show() override;
  int hide() override;
  int onset_us(unsigned long long& us) const override;
  int speichern() const override;
  ~vbmp() override;
  virtual int masked() const;
  virtual int synced() const;

  double relx = 0.5;
  double rely = 0.5;
  int index = 0;
  long t_show = 0;
  long t_hide = 0;
  long t_end = 0;

 private:
  shown_frames frames_;
};

stim* _vbmp(const char* line);
