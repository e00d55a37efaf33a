#include "visual/fli.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/directory.h"
#include "platform/alleg.h"
#include "platform/display.h"
#include "platform/timer.h"
#include "services/log.h"
#include "visual/bmp.h"

namespace {
void perror_fmt(const char* fmt, const char* name) {
  char text[200];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  snprintf(text, sizeof text, fmt, name);
#pragma GCC diagnostic pop
  alleg_perror(text);
}

// The frame lines left in f, counted as the reader takes them (199
// characters at a most per line); the position is kept.
int frame_lines(FILE* f) {
  const long at = ftell(f);
  int lines = 0;
  char line[200];
  while (lines < INT_MAX && fgets(line, sizeof line, f)) ++lines;
  clearerr(f);
  fseek(f, at, SEEK_SET);
  return lines;
}

int fail(const char* text, int e = EINVAL) {
  errno = e;
  alleg_perror(text);
  return -1;
}
}  // namespace

// ---- flistruct ----

flistruct::~flistruct() { clear(); }

void flistruct::clear() {
  for (int i = 0; _bilder && i < anzahl_; ++i)
    if (_bilder[i]) destroy_bitmap(_bilder[i]);
  delete[] _bilder;
  delete[] palettes_;
  _bilder = nullptr;
  palettes_ = nullptr;
  anzahl_ = freq_ = 0;
}

int flistruct::width() const {
  if (!_bilder) return fail("flistruct/width: _bilder");
  if (anzahl_ < 1 || !_bilder[0]) return fail("flistruct/width: _bilder[0]");
  return _bilder[0]->w;
}

int flistruct::height() const {
  if (!_bilder) return fail("flistruct/height: _bilder");
  if (anzahl_ < 1 || !_bilder[0]) return fail("flistruct/height: _bilder[0]");
  return _bilder[0]->h;
}

BITMAP* flistruct::bild(int i) const {
  if (i < 0 || i >= anzahl_ || !_bilder) {
    errno = EINVAL;
    char text[80];
    snprintf(text, sizeof text, "flistruct::bild: invalid index %d", i);
    alleg_perror(text);
    return nullptr;
  }
  return _bilder[i];
}

int flistruct::prepare(int n, int freq, BITMAP** frames, RGB (*palettes)[PAL_SIZE]) {
  clear();
  if (n < 0) n = 0;
  _bilder = new (std::nothrow) BITMAP*[static_cast<size_t>(n) + 1]();
  palettes_ = new (std::nothrow) PALETTE[static_cast<size_t>(n) + 1]();
  if (!_bilder || !palettes_) {
    clear();
    return fail("fli-init", ENOMEM);
  }
  anzahl_ = n;
  freq_ = freq;
  for (int i = 0; i < n; ++i) {
    _bilder[i] = frames ? frames[i] : nullptr;
    if (palettes) memcpy(palettes_[i], palettes[i], sizeof(PALETTE));
  }
  return 0;
}

int flistruct::prepare(const char* file) {
  clear();
  if (!file) file = "";
  FILE* f = file_open(file, "rt");
  if (!f) {
    alleg_perror(file);
    return -1;
  }
  int n = 0, rate = 0;
  double fx = -1, fy = -1;
  const int got = fscanf(f, "%d %d %lf %lf\n", &n, &rate, &fx, &fy);
  const char* bad = nullptr;
  if (got < 1) {
    bad = "%s";
  } else if (n == 0) {
    bad = "%s: anzahl==0?";
  } else if (rate == 0) {
    bad = "%s: freq==0?";
  } else if (fx < 0) {
    bad = "%s: x<0";
  } else if (fy < 0) {
    bad = "%s: y<0";
  } else if (fx > 1) {
    bad = "%s: x>1";
  } else if (fy > 1) {
    bad = "%s: y>1";
  } else if (n < 0) {
    bad = "%s: anzahl<0?";
  } else if (rate < 0) {
    // A film that would run backwards fails here, not mid-block.
    bad = "%s: freq<0?";
  }
  if (bad) {
    if (got < 1) errno = EINVAL;
    perror_fmt(bad, file);
    fclose(f);
    return -1;
  }
  // A count beyond the frame lines that follow fails at the first missing
  // line; the arrays need no room past it, however large the count.
  const int slots = std::min(n, frame_lines(f));
  _bilder = new (std::nothrow) BITMAP*[static_cast<size_t>(slots) + 1]();
  if (!_bilder) {
    fclose(f);
    return fail("fli-init-bilder", ENOMEM);
  }
  palettes_ = new (std::nothrow) PALETTE[static_cast<size_t>(slots) + 1]();
  if (!palettes_) {
    fclose(f);
    clear();
    return fail("fli-init-palette", ENOMEM);
  }
  anzahl_ = slots;
  freq_ = rate;

  std::string dir(file);
  const size_t slash = dir.rfind('/');
  dir = slash == std::string::npos ? std::string() : dir.substr(0, slash + 1);
  BITMAP* scr = getscreen();
  const int w = static_cast<int>(fx * (scr ? scr->w : 0));
  const int h = static_cast<int>(fy * (scr ? scr->h : 0));
  int r = 0;
  for (int i = 0; i < n && i <= slots && r == 0; ++i) {
    char line[200];
    if (!fgets(line, sizeof line, f)) {
      errno = EINVAL;
      alleg_perror(file);
      r = -1;
      break;
    }
    line[strcspn(line, "\r\n")] = '\0';
    std::string name = dir + line;
    if (dir.empty() || !file_there(name.c_str())) name = line;
    BITMAP* pic = bmp_load(name.c_str(), palettes_[i]);
    if (!pic) {
      errno = ENOENT;
      alleg_perror(name.c_str());
      r = -1;
      break;
    }
    if (w == 0 || h == 0) {
      _bilder[i] = pic;
      continue;
    }
    _bilder[i] = create_bitmap_ex(bitmap_color_depth(pic), w, h);
    if (!_bilder[i]) {
      errno = ENOMEM;
      alleg_perror(name.c_str());
      destroy_bitmap(pic);
      r = -1;
      break;
    }
    stretch_blit(pic, _bilder[i], 0, 0, pic->w, pic->h, 0, 0, w, h);
    destroy_bitmap(pic);
  }
  fclose(f);
  return r;
}

// ---- fli ----

fli::fli(unsigned nummer_, const char* file, int repeat_, const char* uv_, unsigned char trigger_, char kritisch_,
         long t0_, long t1_, double relx_, double rely_)
    : stim(nummer_, file, uv_, trigger_, kritisch_, t0_, t1_), relx(relx_), rely(rely_), repeat(repeat_) {}

fli::fli(const char* line, int& err) : stim(line, err) {
  if (err == 0) err = _stim(line);
  err = err ? 1 : 0;
}

fli::~fli() {
  if (owns_film_) delete film;
  film = nullptr;
}

int fli::set(const char* attr) {
  if (!attr) return 0;
  if (sscanf(attr, "repeat=%d", &repeat) == 1) return 0;
  std::string text(attr);
  const size_t comma = text.find(',');
  if (comma != std::string::npos) text[comma] = '.';
  const char* t = text.c_str();
  double v;
  if (sscanf(t, "x=%lf", &v) == 1) {
    relx = v;
    return 0;
  }
  if (sscanf(t, "y=%lf", &v) == 1) {
    rely = v;
    return 0;
  }
  if (sscanf(t, "fix=%d", &fix) == 1) return 0;
  if (sscanf(t, "blink=%ld", &blink) == 1) return 0;
  return stim::set(attr);
}

long fli::showtime() const { return shown_frames::showtime(10); }
long fli::hidetime() const { return shown_frames::hidetime(0, t1, showtime()); }

int fli::prepare() {
  // The film of the file name is its own; one a subclass put there (from
  // the preloaded set, the clock's faces) is borrowed and stays.
  if (datei && (!film || owns_film_)) {
    if (owns_film_) delete film;
    film = new flistruct;
    owns_film_ = true;
    if (film->prepare(datei) != 0) return -1;
  }
  if (!film) return fail("fli: no film");
  const int w = film->width(), h = film->height();
  if (w < 0 || h < 0) return -1;
  BITMAP* scr = getscreen();
  x = bmp_place((scr ? scr->w : 0) - w, relx);
  y = bmp_place((scr ? scr->h : 0) - h, rely);
  return stim::prepare();
}

int fli::cleanup() {
  if (owns_film_) {
    delete film;
    film = nullptr;
    owns_film_ = false;
  }
  return stim::cleanup();
}

void fli::fixation(BITMAP* scr, bool blinking) const {
  const int cx = x + film->width() / 2, cy = y + film->height() / 2;
  const int depth = bitmap_color_depth(scr);
  const int black = makecol_depth(depth, 0, 0, 0);
  if (blinking) {
    rectfill(scr, cx - 2, cy - 2, cx + 2, cy + 2, black);
    return;
  }
  rectfill(scr, cx - 2, cy - 2, cx + 2, cy + 2, makecol_depth(depth, 255, 255, 255));
  rect(scr, cx - 2, cy - 2, cx + 2, cy + 2, black);
}

int fli::show() {
  current = 0;
  shown_frames::before_show(true);
  t_start = t_frame = alleg_get_timer();
  BITMAP* scr = getscreen();
  BITMAP* frame = film && film->anzahl() > 0 ? film->bild(0) : nullptr;
  if (!scr || !frame) return -1;
  bmp_set_palette(film->palette(0));
  blit(frame, scr, 0, 0, x, y, film->width(), film->height());
  if (fix) fixation(scr, false);
  frames_.show(true, showtime(), static_cast<int>(nummer));
  start_msc_ = covered_msc_ = display_frame_msc(frames_.on);
  end_msc_ = 0;
  return stim::show();
}

int fli::onset_us(unsigned long long& us) const { return frames_.onset_us(us); }

int fli::reshow() {
  if (!film) return -1;
  double elapsed_ms;
  unsigned long long msc = 0;
  if (frames_.on) {
    // The frame for the vertical blank after the last one covered, drawn
    // 3 ms before that blank comes; the film counts from the blank its
    // first frame reached.
    if (const unsigned long long first = display_frame_msc(frames_.on)) {
      if (!start_msc_) covered_msc_ = first;
      start_msc_ = first;
    }
    if (!start_msc_) return 0;
    msc = covered_msc_ + 1;
    if (alleg_get_utimer() + 3000 < display_msc_time(msc)) return 0;
    covered_msc_ = msc;
    t_frame = alleg_get_timer();
    elapsed_ms = static_cast<double>(msc - start_msc_) * alleg_refresh_time();
  } else {
    const long now = alleg_get_timer();
    if (now - t_frame < alleg_refresh_time() - 3.0) return 0;
    display_vsync();
    t_frame = alleg_get_timer();
    elapsed_ms = static_cast<double>(t_frame - t_start);
  }
  int frame = static_cast<int>(std::round(elapsed_ms / (1000.0 / film->freq())) + 0.1);
  if (frame == current) return 0;
  const bool blinking = blink != 0 && frame >= blink && frame <= blink + 2;
  if (frame >= film->anzahl()) {
    end_msc_ = msc;
    if (repeat == 0) return hide();
    if (repeat > 0) --repeat;
    frame = 0;
  }
  if (frame > current + 2 && kritisch == 1 && reaktion == 0) {
    for (int k = current + 1; k < frame; ++k) {
      char text[100];
      snprintf(text, sizeof text, "fli trial %d: missed frame %d/%d", static_cast<int>(nummer), k, film->anzahl());
      alleg_warning(text);
    }
  }
  current = frame;
  BITMAP* scr = getscreen();
  BITMAP* pic = film->bild(frame);
  if (!scr || !pic) return -1;
  bmp_set_palette(film->palette(frame));
  blit(pic, scr, 0, 0, x, y, film->width(), film->height());
  if (fix) fixation(scr, blinking);
  if (msc) display_present_msc(msc, static_cast<int>(nummer));
  else display_flush();
  return 0;
}

int fli::hide() {
  BITMAP* scr = getscreen();
  if (scr && film && film->anzahl() > 0) {
    rectfill(scr, x, y, x + film->width(), y + film->height(), makecol_depth(bitmap_color_depth(scr), 0, 0, 0));
    if (fix) fixation(scr, false);
    // A film that ran out goes at the blank its next frame would have had.
    if (end_msc_) display_present_msc(end_msc_, static_cast<int>(nummer));
    else frames_.hide(t1, static_cast<int>(nummer));
  }
  end_msc_ = 0;
  return stim::hide();
}

int fli::idle() {
  if (shown && reshow() != 0) return -1;
  return stim::idle();
}

stim* _fli(const char* line) { return stim_make<fli>(line); }
