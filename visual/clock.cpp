#include "visual/clock.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "platform/alleg.h"
#include "platform/font.h"
#include "platform/timer.h"
#include "services/log.h"

namespace {
cclock* running_ = nullptr;
// The most memory the frames of one revolution may take (at 32 bits).
const double kFrameBytes = 1024.0 * 1024 * 1024;

double angle(double minutes) { return minutes / 30.0 * M_PI; }

// Palette entry i of the current palette at the given colour depth (at 8
// bits the index itself).
int palette_colour(int depth, int i) {
  if (depth == 8) return i;
  RGB c;
  get_color(i, &c);
  return makecol_depth(depth, _rgb_scale_6[c.r], _rgb_scale_6[c.g], _rgb_scale_6[c.b]);
}

void tick(BITMAP* b, int c, double v, double from, double to, int colour) {
  const double s = std::sin(angle(v)), k = std::cos(angle(v));
  line(b, c + static_cast<int>(from * c * s), c - static_cast<int>(from * c * k), c + static_cast<int>(to * c * s),
       c - static_cast<int>(to * c * k), colour);
}
}  // namespace

int clock_record(stim& s, const char* kind, int moda) {
  const cclock* c = running_;
  if (!c) {
    alleg_error("clock is not running...");
    return -1;
  }
  s.reaktion = 1;
  s.reakzeit = static_cast<long>(10.0 * c->now());
  char text[300];
  snprintf(text, sizeof text,
           "%s moda %d dauer %d richtung %d tics %.1f tics2 %.1f t0 %ld t0real %ld bildnummer %d minuten %.1f", kind,
           moda, c->dauer(), c->richtung(), c->tics(), c->tics2(), s.t0 - c->t0, alleg_get_timer() - c->start(),
           c->akt(), c->now());
  stim_assign(s.uv, text);
  return 0;
}

cclock* clock_running() { return running_; }

BITMAP* clock_face(int size, double tics, double tics2) {
  if (size < 1) size = 1;
  BITMAP* b = create_bitmap(size, size);
  if (!b) return nullptr;
  drawing_mode(DRAW_MODE_SOLID, nullptr, 0, 0);
  const int depth = bitmap_color_depth(b);
  const int colour = palette_colour(depth, 2);
  clear_to_color(b, palette_colour(depth, 0));
  const int c = size / 2;
  circle(b, c, c, static_cast<int>(size * 0.3), colour);
  if (std::fabs(tics) < 0.1) return b;
  if (tics >= 0.1)
    for (double v = 0; v < 59.9; v += tics) tick(b, c, v, 0.61, 0.65, colour);
  if (tics2 < 0.1) return b;
  RGB rgb;
  get_color(2, &rgb);
  for (double v = 0; v < 59.9; v += tics2) {
    tick(b, c, v, 0.61, 0.70, colour);
    char label[32];
    snprintf(label, sizeof label, "%g", v);
    const int tw = alleg_text_length(label, 0) / 2 - 1;
    const int th = alleg_text_height(0) / 2 - 1;
    const int dx = static_cast<int>(0.75 * (tw + c) * std::sin(angle(v)));
    const int dy = static_cast<int>(0.75 * c * std::cos(angle(v)));
    alleg_textout(b, label, 0, static_cast<int>(dx * 1.1 + c) - tw, static_cast<int>(c - dy * 1.1) - th,
                  _rgb_scale_6[rgb.r], _rgb_scale_6[rgb.g], _rgb_scale_6[rgb.b]);
  }
  return b;
}

void clock_dot(BITMAP* face, double minutes, int richtung) {
  if (!face) return;
  const int size = face->w, c = size / 2;
  const int dx = static_cast<int>(std::sin(angle(minutes)) * (size * 0.3)) * richtung;
  const int dy = static_cast<int>(std::cos(angle(minutes)) * (size * 0.3));
  circlefill(face, c + dx, c - dy, static_cast<int>(size / 36.0), palette_colour(bitmap_color_depth(face), 2));
}

BITMAP* clock_at(double minutes, int size, double tics, double tics2, int richtung) {
  BITMAP* b = clock_face(size, tics, tics2);
  clock_dot(b, minutes, richtung);
  return b;
}

cclock::cclock(unsigned nummer_, int dauer, int richtung, double radius_, double tics, double tics2, const char* uv_,
               unsigned char trigger_, char kritisch_, long t0_, long t1_, double x_, double y_)
    : fli(nummer_, nullptr, 0, uv_, trigger_, kritisch_, t0_, t1_, x_, y_),
      dauer_(dauer),
      richtung_(richtung),
      radius(radius_),
      tics_(tics),
      tics2_(tics2) {
  new_fade();
}

cclock::cclock(const char* line, int& err) : fli(line, err) {
  if (err == 0) err = _stim(line);
  err = err ? 1 : 0;
}

cclock::~cclock() {
  if (running_ == this) running_ = nullptr;
  delete film;
  film = nullptr;
}

void cclock::new_fade() { fade_ = dauer_ > 0 ? static_cast<long>(dauer_ / 2) + rand() % dauer_ : 0; }

int cclock::set(const char* attr) {
  if (!attr) return 0;
  if (sscanf(attr, "dauer=%d", &dauer_) == 1) {
    new_fade();
    return 0;
  }
  if (sscanf(attr, "richtung=%d", &richtung_) == 1) return 0;
  if (sscanf(attr, "radius=%lf", &radius) == 1) return 0;
  if (sscanf(attr, "tics=%lf", &tics_) == 1) return 0;
  if (sscanf(attr, "tics2=%lf", &tics2_) == 1) return 0;
  return fli::set(attr);
}

long cclock::fadetime() const { return fade_; }
long cclock::maxreak() const { return t1; }

double cclock::now() const {
  const int n = film ? film->anzahl() : 0;
  return n > 0 ? akt() * 60.0 / n : 0.0;
}

int clock_size(double radius) {
  BITMAP* scr = getscreen();
  const int h = scr ? scr->h : 0;
  const double size = h * radius;
  return size >= 1 && size <= 4.0 * h ? static_cast<int>(size) : 0;
}

int cclock::prepare() {
  const double count = alleg_refresh_rate() * static_cast<double>(dauer_) / 1000.0;
  const int size = clock_size(radius);
  if (!(count >= 1) || size < 1) {
    errno = EINVAL;
    alleg_perror("clock: dauer, radius");
    return -1;
  }
  // Every frame is drawn before the block; a revolution that would not fit
  // in memory is refused before the first one.
  if (count * size * size * 4 > kFrameBytes) {
    errno = ENOMEM;
    alleg_perror("clock: dauer, radius");
    return -1;
  }
  const int n = static_cast<int>(count);
  std::vector<BITMAP*> frames(static_cast<size_t>(n));
  std::vector<PALETTE> palettes(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    frames[i] = clock_at(static_cast<double>(i) / n * 60.0, size, tics_, tics2_, richtung_);
    get_palette(palettes[i]);
    if (!frames[i]) {
      for (BITMAP* f : frames)
        if (f) destroy_bitmap(f);
      errno = ENOMEM;
      alleg_perror("clock");
      return -1;
    }
  }
  delete film;
  film = new flistruct;
  if (film->prepare(n, alleg_refresh_rate(), frames.data(), palettes.data()) != 0) {
    for (BITMAP* f : frames) destroy_bitmap(f);
    return -1;
  }
  start_ = 0;
  revolved_ = false;
  return fli::prepare();
}

int cclock::cleanup() {
  if (running_ == this) running_ = nullptr;
  delete film;
  film = nullptr;
  return fli::cleanup();
}

int cclock::reshow() {
  if (!revolved_) running_ = this;
  if (start_ == 0) start_ = alleg_get_timer();
  if (kritisch != 0 && reaktion != 0 && !uv) {
    char text[300];
    snprintf(text, sizeof text,
             "null moda 0 dauer %d richtung %d tics %.1f tics2 %.1f t0 %ld t0real %ld bildnummer %d minuten %.1f",
             dauer_, richtung_, tics_, tics2_, dauer_ > 0 ? reakzeit % dauer_ : 0L, reakzeit, akt(), now());
    stim_assign(uv, text);
  }
  const int before = current;
  const int r = fli::reshow();
  if (current < before) revolved_ = true;
  if (revolved_ && running_ == this) running_ = nullptr;
  return r;
}

int cclock::hide() {
  if (running_ == this) running_ = nullptr;
  return fli::hide();
}

stim* _clock(const char* line) { return stim_make<cclock>(line); }

stim* _cbmp(const char* line) { return stim_make<cbmp>(line); }
stim* _cled(const char* line) { return stim_make<cled>(line); }
stim* _cwav(const char* line) { return stim_make<cwav>(line); }
stim* _cstift(const char* line) { return stim_make<cstift>(line); }
