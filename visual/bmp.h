// The still-image stimulus and the base of every picture-like stimulus: one
// bitmap placed at a relative position on the drawing area, drawn at onset
// and erased at offset. All loading, composing and saving of the screen
// area happens before onset; show() is one blit after the retrace.
#pragma once
#include "visual/frames.h"
#include <allegro.h>

#include "engine/stim.h"

class bmp : public stim {
 public:
  // datei names the picture that prepare() loads (null: none).
  bmp(unsigned nummer, const char* datei, const char* uv, unsigned trigger, int kritisch, long t0, long t1, double relx,
      double rely);
  // Attributes "x=%lf", "y=%lf" (a decimal comma is accepted) and those of stim.
  bmp(const char* line, int& err);

  int set(const char* attr) override;
  long pstime() const override;
  long showtime() const override;
  long hidetime() const override;
  int prepare() override;
  int cleanup() override;
  int preshow() override;
  int show() override;
  int hide() override;
  int onset_us(unsigned long long& us) const override;
  // Destroys what cleanup() left; a class that borrows bitmap clears it first.
  ~bmp() override;

  // The bitmap that saves the screen area under the picture.
  virtual int bg_prepare();
  // Fills the drawing area with the colour of the picture's pixel (1,1).
  virtual int clearscreen();
  virtual int reshow();
  // True: onset copies a back buffer composed in preshow() with the
  // picture's transparent pixels showing the screen.
  virtual int masked() const;
  // True: onset waits for the vertical retrace.
  virtual int synced() const;

  BITMAP* bitmap = nullptr;
  BITMAP* background = nullptr;
  BITMAP* backbuffer = nullptr;
  PALETTE palette{};
  PALETTE prepare_palette{};
  double relx = 0.5;
  double rely = 0.5;
  int x = 0;
  int y = 0;
  int bg_r = -1;  // -1, -1, -1: erase with black
  int bg_g = -1;
  int bg_b = -1;
  unsigned char onebg = 0;  // save into the one shared background

 protected:
  shown_frames frames_;
};

stim* _bmp(const char* line);

// Size of the shared background (0: the picture's own width or height).
int bmp_setonebg(int w, int h);
// Frees the shared background and resets the module (tests).
void bmp_done();

// The first-image flag: raised by instruction screens so that the next
// preloaded picture sets its palette once.
int sbmp_isfirst();
int sbmp_first();
int sbmp_next();

// A picture or list file name as the program looks it up: an absolute name
// as given; else next to the program when it exists there; else as given.
void bmp_resolve(char* path, int size, const char* name);
// Every picture file the program loads: through the graphics library's
// readers (by extension, then as BMP, then as PCX), with its palette. An
// uncompressed BMP shorter than its header says is refused (null, errno
// EINVAL): the library's reader would fill the missing rows with garbage.
BITMAP* bmp_load(const char* path, RGB* pal);
// room * rel truncated toward zero: the offset that places a picture within
// room pixels of free space (0 = left/top, 1 = right/bottom edge).
int bmp_place(int room, double rel);
// Sets a palette without waiting for the retrace (screens of 15 bits and
// more take colours from it only when converting).
void bmp_set_palette(const RGB* p);
