#include "visual/shape.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/alleg.h"
#include "platform/display.h"
#include "services/log.h"

namespace {
unsigned char background_[3] = {128, 128, 128};
BITMAP* pattern_ = nullptr;  // the hatch pattern, null until shape_init()
bool registered_ = false;

const unsigned char kColours[6][3] = {{64, 64, 255},  {64, 255, 64},  {255, 64, 64},
                                      {255, 64, 255}, {255, 255, 64}, {255, 255, 255}};

// Radii of the sizes 0, 1, 2 for each figure, roughly equal in area.
const float kPresets[7][3] = {{0.019f, 0.055f, 0.129f}, {0.018f, 0.05f, 0.12f},   {0.013f, 0.035f, 0.083f},
                              {0.024f, 0.069f, 0.163f}, {0.014f, 0.04f, 0.094f},  {0.017f, 0.048f, 0.115f},
                              {0.018f, 0.05f, 0.12f}};

// Sizes and positions beyond this lie off any screen.
const double kFar = 1 << 14;

typedef int (*drawer)(BITMAP*, int, double, int, int, int, double, double);
const drawer kDrawers[7] = {shape__circle, shape__quadrat, shape__rechteck, shape__dreieck,
                            shape__ellipse, shape__kreuz,  shape__raute};

int background_colour(BITMAP* b) {
  return makecol_depth(bitmap_color_depth(b), background_[0], background_[1], background_[2]);
}

// (int)(v), kept within what coordinates can take.
int truncated(double v) {
  if (std::isnan(v)) return 0;
  return static_cast<int>(v < -4 * kFar ? -4 * kFar : v > 4 * kFar ? 4 * kFar : v);
}

// The geometry every figure shares.
struct frame {
  frame(BITMAP* target, double radius, double cx_rel, double cy_rel) {
    BITMAP* scr = getscreen();
    r = truncated((scr ? scr->h : target->h) * radius);
    cx = truncated(target->w * cx_rel);
    cy = truncated(target->h * cy_rel);
  }
  int r, cx, cy;
};

void solid() { drawing_mode(DRAW_MODE_SOLID, nullptr, 0, 0); }

// The closed outline through n vertices, drawn at the nine one-pixel shifts.
void outline(BITMAP* target, const int* points, int n, int c) {
  solid();
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy)
      for (int i = 0; i < n; ++i) {
        const int j = (i + 1) % n;
        line(target, points[2 * i] + dx, points[2 * i + 1] + dy, points[2 * j] + dx, points[2 * j + 1] + dy, c);
      }
}

int polygon_figure(BITMAP* target, int filled, int* points, int n, int red, int green, int blue) {
  const int c = makecol_depth(bitmap_color_depth(target), red, green, blue);
  if (filled) polygon(target, n, points, c);
  outline(target, points, n, c);
  return 0;
}

// Rectangle of half-width w and half-height h about the centre.
int box(BITMAP* target, int filled, int w, int h, const frame& f, int red, int green, int blue) {
  const int c = makecol_depth(bitmap_color_depth(target), red, green, blue);
  if (filled) rectfill(target, f.cx - w, f.cy - h, f.cx + w, f.cy + h, c);
  solid();
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy) rect(target, f.cx - w + dx, f.cy - h + dy, f.cx + w + dx, f.cy + h + dy, c);
  return 0;
}

// Ellipse of horizontal radius w and vertical radius h about the centre.
int round_figure(BITMAP* target, int filled, int w, int h, const frame& f, int red, int green, int blue) {
  const int c = makecol_depth(bitmap_color_depth(target), red, green, blue);
  if (filled) ellipsefill(target, f.cx, f.cy, w, h, c);
  solid();
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy) ellipse(target, f.cx + dx, f.cy + dy, w, h, c);
  return 0;
}
}  // namespace

int shape__circle(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                  double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  const int c = makecol_depth(bitmap_color_depth(target), red, green, blue);
  if (filled) circlefill(target, f.cx, f.cy, f.r, c);
  solid();
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy) circle(target, f.cx + dx, f.cy + dy, f.r, c);
  return 0;
}

int shape__ellipse(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                   double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  return round_figure(target, filled, 2 * f.r, f.r, f, red, green, blue);
}

int shape__quadrat(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                   double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  return box(target, filled, f.r, f.r, f, red, green, blue);
}

int shape__rechteck(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                    double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  return box(target, filled, 2 * f.r, f.r, f, red, green, blue);
}

int shape__dreieck(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                   double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  const int cx = f.cx, cy = f.cy, r = f.r;
  int points[] = {cx, cy - r, cx + r, cy + r, cx - r, cy + r};
  return polygon_figure(target, filled, points, 3, red, green, blue);
}

int shape__raute(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                 double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  const int cx = f.cx, cy = f.cy, r = f.r;
  int points[] = {cx + 2 * r, cy, cx, cy + r, cx - 2 * r, cy, cx, cy - r};
  return polygon_figure(target, filled, points, 4, red, green, blue);
}

int shape__kreuz(BITMAP* target, int filled, double radius, int red, int green, int blue, double cx_rel,
                 double cy_rel) {
  if (!target) return -1;
  const frame f(target, radius, cx_rel, cy_rel);
  const int cx = f.cx, cy = f.cy, h = f.r / 2, t = (3 * f.r) / 2;
  int points[] = {cx + h, cy + h, cx + t, cy + h, cx + t, cy - h, cx + h, cy - h, cx + h, cy - t, cx - h, cy - t,
                  cx - h, cy - h, cx - t, cy - h, cx - t, cy + h, cx - h, cy + h, cx - h, cy + t, cx + h, cy + t};
  return polygon_figure(target, filled, points, 12, red, green, blue);
}

void shape_done() {
  if (pattern_) destroy_bitmap(pattern_);
  pattern_ = nullptr;
  background_[0] = background_[1] = background_[2] = 128;
}

int shape_init(unsigned char r, unsigned char g, unsigned char b) {
  // Each value lands in the red component; the last one stays.
  background_[0] = r;
  background_[0] = g;
  background_[0] = b;
  if (!registered_) {
    registered_ = true;
    atexit(shape_done);
  }
  if (pattern_) destroy_bitmap(pattern_);
  pattern_ = create_bitmap(8, 8);
  if (!pattern_) {
    alleg_error("shape_init: out of memory");
    return -1;
  }
  int ground, ink;
  if (alleg_gfx_mode() == 8) {
    ground = 0;
    ink = 255;
  } else {
    ground = makecol(255, 0, 255);
    ink = makecol(255, 255, 255);
  }
  clear_to_color(pattern_, ground);
  line(pattern_, 0, 0, 7, 7, ink);
  line(pattern_, 0, 7, 7, 0, ink);
  return 0;
}

shape::shape(const char* line, int& err) : stim(line, err) {
  const int parsed = err == 0 ? _stim(line) : 0;
  err = (err == 0 && parsed == 0) ? 0 : 1;
}

shape::~shape() {
  if (bitmap) destroy_bitmap(bitmap);
}

int shape::set(const char* token) {
  int n;
  float f;
  if (sscanf(token, "color=%d", &n) == 1) {
    if (n < 0 || n > 5) {
      alleg_error("shape: invalid color index: %d", n);
      return -1;
    }
    color = n;
  } else if (sscanf(token, "shape=%d", &n) == 1) {
    form = static_cast<unsigned char>(n);
  } else if (sscanf(token, "radius=%f", &f) == 1) {
    radius = f;
  } else if (sscanf(token, "size=%d", &n) == 1) {
    // Sizes beyond the presets keep the radius.
    if (form < 7 && n >= 0 && n < 3) radius = kPresets[form][n];
  } else if (sscanf(token, "filled=%d", &n) == 1) {
    filled = static_cast<unsigned char>(n);
  } else {
    return stim::set(token);
  }
  return 0;
}

long shape::pstime() const { return 200; }

int shape::preshow() {
  const unsigned char* rgb = kColours[color >= 0 && color < 6 ? color : 0];
  if (stim::prepare()) return -1;
  if (bitmap) destroy_bitmap(bitmap);
  bitmap = nullptr;
  BITMAP* scr = getscreen();
  const double side = scr ? static_cast<double>(radius) * scr->w * 4.0 : 0;
  if (side >= 1 && side <= kFar) {
    const int s = static_cast<int>(side);
    bitmap = create_bitmap_ex(bitmap_color_depth(scr), s, s);
  }
  if (!bitmap) {
    alleg_error("shape: could not create bitmap");
    return -1;
  }
  solid();
  clear_to_color(bitmap, background_colour(bitmap));
  if (filled == 1) {
    if (!pattern_) {
      alleg_error("xhatch pattern not loaded.");
      return -1;
    }
    drawing_mode(DRAW_MODE_MASKED_PATTERN, pattern_, 0, 0);
  }
  if (form >= 7) {
    solid();
    alleg_error("shape %d: unknown shape", form);
    return -1;
  }
  kDrawers[form](bitmap, filled, radius, rgb[0], rgb[1], rgb[2], 0.5, 0.5);
  return stim::preshow();
}

int shape::show() {
  if (bitmap) {
    BITMAP* scr = getscreen();
    if (!scr) return -1;
    shown_frames::before_show(true);
    blit(bitmap, scr, 0, 0, truncated((scr->w - bitmap->w) * 0.5), truncated((scr->h - bitmap->h) * 0.5), bitmap->w,
         bitmap->h);
    frames_.show(true, showtime(), static_cast<int>(nummer));
  }
  return stim::show();
}

int shape::hide() {
  if (bitmap) {
    BITMAP* scr = getscreen();
    if (!scr) return -1;
    const int x = truncated((scr->w - bitmap->w) * 0.5), y = truncated((scr->h - bitmap->h) * 0.5);
    rectfill(scr, x, y, x + bitmap->w, y + bitmap->h, background_colour(scr));
    destroy_bitmap(bitmap);
    bitmap = nullptr;
    frames_.hide(t1, static_cast<int>(nummer));
  }
  return stim::hide();
}

long shape::showtime() const { return shown_frames::showtime(0); }
long shape::hidetime() const { return shown_frames::hidetime(0, t1, showtime()); }

int shape::onset_us(unsigned long long& us) const { return frames_.onset_us(us); }

stim* _shape(const char* attributes) { return stim_make<shape>(attributes); }
