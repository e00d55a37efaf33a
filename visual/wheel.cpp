#include "visual/wheel.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "input/tastatur.h"
#include "platform/alleg.h"
#include "platform/display.h"
#include "platform/timer.h"
#include "services/log.h"
#include "visual/bmp.h"
#include "visual/clock.h"

namespace {
// Minutes on the dial in 0 <= m < 60, rounded to one decimal.
double dial(double m) {
  m = std::round(m * 10.0) / 10.0;
  m = std::fmod(m, 60.0);
  if (m < 0) m += 60.0;
  return m >= 59.95 ? 0.0 : m;
}
}  // namespace

cwheel::cwheel(const char* line, int& err) : fli(line, err) {
  kritisch = 1;
  if (err == 0) err = _stim(line);
  err = err ? 1 : 0;
}

cwheel::~cwheel() {
  delete film;
  film = nullptr;
  if (shown_) destroy_bitmap(shown_);
}

int cwheel::set(const char* attr) {
  if (!attr) return 0;
  if (sscanf(attr, "richtung=%d", &richtung) == 1) return 0;
  if (sscanf(attr, "radius=%lf", &radius) == 1) return 0;
  if (sscanf(attr, "tics=%lf", &tics) == 1) return 0;
  if (sscanf(attr, "tics2=%lf", &tics2) == 1) return 0;
  if (sscanf(attr, "start=%lf", &start) == 1) return 0;
  if (sscanf(attr, "step=%lf", &step) == 1) return 0;
  if (sscanf(attr, "moda=%d", &moda) == 1) return 0;
  return fli::set(attr);
}

int cwheel::with_reaktion() const { return 0; }
long cwheel::maxreak() const { return t1 > 0 ? t1 : stim::maxreak(); }

double cwheel::minutes_at(int dx, int dy) const {
  if (dx == 0 && dy == 0) return marker;
  return dial(std::atan2(static_cast<double>(dx) * (richtung < 0 ? -1 : 1), -static_cast<double>(dy)) / M_PI * 30.0);
}

void cwheel::move_to(double minutes) {
  const double m = dial(minutes);
  if (m != marker) dirty = 1;
  marker = m;
}

int cwheel::prepare() {
  const int size = clock_size(radius);
  if (size < 1) {
    errno = EINVAL;
    alleg_perror("wheel: radius");
    return -1;
  }
  delete film;
  film = new flistruct;
  BITMAP* frame = clock_face(size, tics, tics2);
  if (shown_) destroy_bitmap(shown_);
  shown_ = create_bitmap(size, size);
  PALETTE pal;
  get_palette(pal);
  if (!frame || !shown_ || film->prepare(1, alleg_refresh_rate(), &frame, &pal) != 0) {
    if (frame) destroy_bitmap(frame);
    errno = ENOMEM;
    alleg_perror("wheel");
    return -1;
  }
  face = frame;
  marker = begin = dial(start < 0 ? (rand() % 600) / 10.0 : start);
  answered = dirty = mouse_known = 0;
  BITMAP* scr = getscreen();
  x = bmp_place((scr ? scr->w : 0) - size, relx);
  y = bmp_place((scr ? scr->h : 0) - size, rely);
  return stim::prepare();
}

int cwheel::cleanup() {
  delete film;
  film = nullptr;
  face = nullptr;
  if (shown_) destroy_bitmap(shown_);
  shown_ = nullptr;
  return fli::cleanup();
}

int cwheel::draw() {
  BITMAP* scr = getscreen();
  if (!scr || !face || !shown_) return -1;
  blit(face, shown_, 0, 0, 0, 0, face->w, face->h);
  clock_dot(shown_, marker, richtung < 0 ? -1 : 1);
  blit(shown_, scr, 0, 0, x, y, shown_->w, shown_->h);
  dirty = 0;
  return 0;
}

int cwheel::show() {
  current = 0;
  tastatur_arrows();  // presses before onset do not count
  buttons = tastatur_buttons();
  mouse_known = tastatur_mouse(mouse_x, mouse_y);
  shown_frames::before_show(true);
  t_start = t_frame = alleg_get_timer();
  if (film) bmp_set_palette(film->palette(0));
  if (draw() != 0) return -1;
  frames_.show(true, showtime(), static_cast<int>(nummer));
  const int r = stim::show();
  onset = alleg_get_timer() + showtime();
  return r;
}

int cwheel::reshow() {
  if (!answered) {
    if (const int n = tastatur_arrows()) move_to(marker + n * step * (richtung < 0 ? -1 : 1));

    int mx, my;
    if (tastatur_mouse(mx, my)) {
      if (mouse_known && (mx != mouse_x || my != mouse_y)) {
        BITMAP* scr = getscreen();
        const int cx = x + (face ? face->w / 2 : 0) + (scr ? scr->x_ofs : 0);
        const int cy = y + (face ? face->h / 2 : 0) + (scr ? scr->y_ofs : 0);
        move_to(minutes_at(mx - cx, my - cy));
      }
      mouse_x = mx;
      mouse_y = my;
      mouse_known = 1;
    }
    const int b = tastatur_buttons();
    // The onset the display told, once it has.
    unsigned long long us;
    if (frames_.onset_us(us) == 1) onset = static_cast<long>(us / 1000);
    if ((b & 1) && !(buttons & 1) && reaktion == 0) {
      reaktion = kritisch > 0 ? kritisch : 1;
      reakzeit = alleg_get_timer() - onset;
    }
    buttons = b;
    if (reaktion != 0) {
      answered = 1;
      char text[300];
      snprintf(text, sizeof text, "wheel moda %d richtung %d tics %.1f tics2 %.1f start %.1f t0real %ld minuten %.1f",
               moda, richtung, tics, tics2, begin, reakzeit, marker);
      stim_assign(uv, text);
    }
  }
  if (!dirty || alleg_get_timer() - t_frame < alleg_refresh_time() - 3.0) return 0;
  display_vsync();
  t_frame = alleg_get_timer();
  const int r = draw();
  display_flush();
  return r;
}

stim* _wheel(const char* line) { return stim_make<cwheel>(line); }
