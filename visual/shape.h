// The shape stimulus: a simple geometric figure in one of six colours,
// outlined, solid or cross-hatched, centred on the drawing area. Sizes are
// fractions of the drawing area, so one stimulus file gives the same visual
// angle at any resolution. The figure is drawn afresh in every preshow() and
// thrown away in hide().
#pragma once
#include <allegro.h>

#include "engine/stim.h"
#include "visual/frames.h"

class shape : public stim {
 public:
  // Attributes "color=%d" (0..5), "shape=%d", "radius=%f", "size=%d" (the
  // preset of the figure chosen so far), "filled=%d" and those of stim.
  shape(const char* line, int& err);

  int set(const char* token) override;
  long pstime() const override;
  int preshow() override;
  int show() override;
  int hide() override;
  long showtime() const override;
  long hidetime() const override;
  int onset_us(unsigned long long& us) const override;
  ~shape() override;

  unsigned char form = 0;    // figure number, 0..6
  int color = 0;             // colour number, 0..5
  float radius = 0.05f;      // size as a fraction of the drawing area
  unsigned char filled = 0;  // 0 outline, 1 cross-hatched, else solid
  BITMAP* bitmap = nullptr;  // the drawn figure, from preshow() to hide()

 private:
  shown_frames frames_;
};

stim* _shape(const char* attributes);

// Background colour (r, g and b each go into the red component in turn, so
// the background becomes (b, 128, 128)) and the 8 x 8 hatch pattern; 0, or
// -1 when the pattern cannot be created. Without it hatching is unavailable.
int shape_init(unsigned char r, unsigned char g, unsigned char b);
// Destroys the hatch pattern and restores the grey background.
void shape_done();

// The drawing functions: the figure centred at (cx_rel, cy_rel) of target,
// r = drawing area height x radius. filled != 0 fills it first in the current
// drawing mode; the outline follows solid and three pixels thick. 0, or -1
// without a target.
int shape__circle(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                  double cy_rel);
int shape__quadrat(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                   double cy_rel);
int shape__rechteck(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                    double cy_rel);
int shape__dreieck(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                   double cy_rel);
int shape__ellipse(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                   double cy_rel);
int shape__kreuz(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                 double cy_rel);
int shape__raute(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                 double cy_rel);
