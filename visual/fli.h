// Films: a sequence of still frames, each with its own palette, played at a
// fixed frame rate in step with the vertical retrace. The frame on screen is
// chosen from the time elapsed since onset, so a late refresh skips frames
// (and says so) instead of slowing the film. All frames are decoded and
// scaled before the block starts; playing is a palette change and a blit.
#pragma once
#include <allegro.h>

#include "engine/stim.h"
#include "visual/frames.h"

// One loaded film.
class flistruct {
 public:
  flistruct() = default;
  flistruct(const flistruct&) = delete;
  flistruct& operator=(const flistruct&) = delete;
  ~flistruct();

  int anzahl() const { return anzahl_; }
  int freq() const { return freq_; }
  // Size of frame 0; -1 (errno EINVAL) without frames.
  int width() const;
  int height() const;
  // Frame i; null with "flistruct::bild: invalid index %d" outside the film.
  BITMAP* bild(int i) const;
  // Palette of frame i, unchecked.
  RGB* palette(int i) const { return palettes_[i]; }

  // Takes over the n frames (they are destroyed with the film) and copies
  // the n palettes; 0, or -1 when the arrays cannot be had.
  int prepare(int n, int freq, BITMAP** frames, RGB (*palettes)[PAL_SIZE]);
  // Reads a film description file: "count rate wfrac hfrac", then one frame
  // picture per line, resolved against the description file's directory. A
  // fraction of 0 keeps the frames at their own size.
  int prepare(const char* file);

 private:
  void clear();
  BITMAP** _bilder = nullptr;
  PALETTE* palettes_ = nullptr;
  int anzahl_ = 0;
  int freq_ = 0;
};

class fli : public stim {
 public:
  fli(unsigned nummer, const char* file, int repeat, const char* uv, unsigned char trigger, char kritisch, long t0,
      long t1, double relx, double rely);
  // Attributes "repeat=%d", "x=%lf", "y=%lf", "fix=%d", "blink=%ld" (a
  // decimal comma is accepted) and those of stim.
  fli(const char* line, int& err);

  int set(const char* attr) override;
  long showtime() const override;
  long hidetime() const override;
  int prepare() override;
  int cleanup() override;
  int show() override;
  int hide() override;
  int idle() override;
  int onset_us(unsigned long long& us) const override;
  ~fli() override;
  // At a retrace while shown: puts up the frame the elapsed time calls for.
  // Returns at once while the next retrace is more than 3 ms away.
  virtual int reshow();

  flistruct* film = nullptr;  // owned when prepare read it from the file name
  double relx = 0.5;
  double rely = 0.5;
  int x = 0;
  int y = 0;
  int repeat = 0;  // further passes: 0 none, -1 endless, n more
  int current = 0;
  int reserved1 = 0;
  int reserved2 = 1;
  int fix = 0;     // draw the fixation mark
  long blink = 0;  // frame at which the mark blinks for three frames (0 never)
  long t_start = 0;
  long t_frame = 0;

 private:
  bool owns_film_ = false;
  // Where frames are presented: the vertical blank of the onset, the last
  // one a frame was chosen for, and the one the film ended at.
  unsigned long long start_msc_ = 0, covered_msc_ = 0, end_msc_ = 0;

 protected:
  shown_frames frames_;
  // The 5 x 5 fixation mark at the film's centre: white with a black
  // border, or all black when blinking.
  void fixation(BITMAP* scr, bool blinking) const;
};

stim* _fli(const char* line);
