// The wheel: the clock face without its running dot, on which the
// participant reports a remembered clock position. A marker dot starts at a
// given or random position; the left and right arrow keys move it a step
// anticlockwise or clockwise, and moving the mouse puts it at the pointer's
// angle round the face. A reaction key or the left mouse button confirms;
// the chosen position and the time taken then go into the condition text:
// "wheel moda %d richtung %d tics %.1f tics2 %.1f start %.1f t0real %ld
// minuten %.1f" (start and chosen position in minutes, time in ms).
#pragma once
#include <allegro.h>

#include "visual/fli.h"

class cwheel : public fli {
 public:
  // Attributes "richtung=%d", "radius=%lf", "tics=%lf", "tics2=%lf" as for
  // the clock, "start=%lf" (marker at onset in minutes; negative: random),
  // "step=%lf" (minutes per arrow key), "moda=%d", and those of fli.
  cwheel(const char* line, int& err);

  int set(const char* attr) override;
  int prepare() override;
  int cleanup() override;
  int show() override;
  // The answer is the wheel's own: no feedback, no evaluation.
  int with_reaktion() const override;
  // Until the wheel is hidden (t1), else the common reaction window.
  long maxreak() const override;
  ~cwheel() override;
  // Follows the keys and the mouse and redraws the marker at the next
  // retrace; records the answer once confirmed.
  int reshow() override;

  // The marker's position in minutes, 0 <= m < 60, one decimal.
  double position() const { return marker; }
  // Dial minutes of a point at (dx, dy) from the face's centre (screen
  // coordinates, y downwards).
  double minutes_at(int dx, int dy) const;

  int richtung = 1;
  double radius = 0.1;
  double tics = 2.5;
  double tics2 = 5.0;
  double start = -1;  // marker at onset; negative: random
  double step = 0.5;  // minutes per arrow key
  int moda = 0;
  double marker = 0;
  double begin = 0;  // the marker's position at onset
  int answered = 0;

 private:
  void move_to(double minutes);
  int draw();
  BITMAP* face = nullptr;   // the face without dot, frame 0 of the film
  BITMAP* shown_ = nullptr;  // face and marker as on screen
  long onset = 0;
  int mouse_x = 0, mouse_y = 0, mouse_known = 0, buttons = 0;
  int dirty = 0;
};

stim* _wheel(const char* line);
