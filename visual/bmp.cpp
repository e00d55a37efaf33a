#include "visual/bmp.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/alleg.h"
#include "platform/directory.h"
#include "platform/display.h"
#include "platform/timer.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/log.h"

namespace {
BITMAP* shared_bg_ = nullptr;
int shared_w_ = 0;
int shared_h_ = 0;
int first_image_ = 1;

// Positions beyond this lie off any screen; keeping to it keeps x + width in range.
const double kFar = 1 << 24;

// A bitmap of the drawing area's colour depth.
BITMAP* screen_bitmap(int w, int h) {
  BITMAP* scr = getscreen();
  return scr ? create_bitmap_ex(bitmap_color_depth(scr), w, h) : create_bitmap(w, h);
}

int colour(BITMAP* scr, int r, int g, int b) { return makecol_depth(bitmap_color_depth(scr), r, g, b); }

void destroy(BITMAP*& b) {
  if (b) destroy_bitmap(b);
  b = nullptr;
}

// Allegro's BMP reader takes a file that ends early as it is and fills the
// rows it could not read with whatever the reads past the end gave.
bool truncated_bmp(const char* path) {
  FILE* f = fopen(path, "rb");
  if (!f) return false;
  unsigned char h[34];
  const size_t n = fread(h, 1, sizeof h, f);
  const long size = fseek(f, 0, SEEK_END) == 0 ? ftell(f) : -1;
  fclose(f);
  if (n < 2 || h[0] != 'B' || h[1] != 'M') return false;  // no BMP: the other readers decide
  if (n < sizeof h || size < 0) return true;
  auto u32 = [&h](int at) {
    return static_cast<uint32_t>(h[at]) | static_cast<uint32_t>(h[at + 1]) << 8 |
           static_cast<uint32_t>(h[at + 2]) << 16 | static_cast<uint32_t>(h[at + 3]) << 24;
  };
  const uint32_t header = u32(14), compression = u32(30);
  if (header < 40 || (compression != 0 && compression != 3)) return false;  // OS/2 or RLE: sizes unknown
  const uint64_t width = static_cast<uint64_t>(std::llabs(static_cast<int32_t>(u32(18))));
  const uint64_t height = static_cast<uint64_t>(std::llabs(static_cast<int32_t>(u32(22))));
  const uint64_t bits = static_cast<uint64_t>(h[28] | h[29] << 8);
  const uint64_t row = (width * bits + 31) / 32 * 4;
  return static_cast<uint64_t>(size) < u32(10) + row * height;
}
}  // namespace

int bmp_setonebg(int w, int h) {
  shared_w_ = w;
  shared_h_ = h;
  return 0;
}

void bmp_done() {
  destroy(shared_bg_);
  shared_w_ = shared_h_ = 0;
  first_image_ = 1;
}

int sbmp_isfirst() { return first_image_; }
int sbmp_first() { return first_image_ = 1; }
int sbmp_next() { return first_image_ = 0; }

void bmp_resolve(char* path, int size, const char* name) {
  if (!path || size <= 0) return;
  if (!name) name = "";
  char canonical[300];
  canonicalize_filename(canonical, name, sizeof canonical);
  if (strcmp(canonical, name) != 0) {
    replace_filename(path, argument_progname(), name, size);
    if (file_there(path)) return;
  }
  snprintf(path, static_cast<size_t>(size), "%s", name);
}

BITMAP* bmp_load(const char* path, RGB* pal) {
  if (!path) return nullptr;
  if (truncated_bmp(path)) {
    errno = EINVAL;
    return nullptr;
  }
  BITMAP* b = load_bitmap(path, pal);
  if (!b) b = load_bmp(path, pal);
  if (!b) b = load_pcx(path, pal);
  return b;
}

int bmp_place(int room, double rel) {
  const double offset = static_cast<double>(room) * rel;
  if (std::isnan(offset)) return 0;
  return static_cast<int>(std::clamp(offset, -kFar, kFar));
}

void bmp_set_palette(const RGB* p) { set_palette_range(p, 0, PAL_SIZE - 1, FALSE); }

bmp::bmp(unsigned nummer_, const char* datei_, const char* uv_, unsigned trigger_, int kritisch_, long t0_, long t1_,
         double relx_, double rely_)
    : stim(nummer_, datei_, uv_, trigger_, kritisch_, t0_, t1_), relx(relx_), rely(rely_) {}

bmp::bmp(const char* line, int& err) : stim(line, err) {
  if (err == 0) err = _stim(line);
  err = err ? 1 : 0;
}

bmp::~bmp() {
  destroy(bitmap);
  destroy(background);
  destroy(backbuffer);
}

int bmp::set(const char* attr) {
  if (!attr) return 0;
  std::string text(attr);
  const size_t comma = text.find(',');
  if (comma != std::string::npos) text[comma] = '.';
  double v;
  if (sscanf(text.c_str(), "x=%lf", &v) == 1) {
    relx = v;
    return 0;
  }
  if (sscanf(text.c_str(), "y=%lf", &v) == 1) {
    rely = v;
    return 0;
  }
  return stim::set(attr);
}

long bmp::pstime() const { return 70; }

long bmp::showtime() const { return synced() ? display_onset_delay() : 1; }

long bmp::hidetime() const { return shown_frames::hidetime(6, t1, showtime()); }

int bmp::prepare() {
  bitmap = nullptr;
  if (datei) {
    char path[300];
    bmp_resolve(path, sizeof path, datei);
    bitmap = bmp_load(path, palette);
    if (!bitmap) {
      errno = ENOENT;
      alleg_perror(path);
      return -1;
    }
  }
  get_palette(prepare_palette);
  return stim::prepare();
}

int bmp::bg_prepare() {
  if (!bitmap) return 0;
  BITMAP* made = nullptr;
  if (!onebg) {
    destroy(background);
    made = background = screen_bitmap(bitmap->w, bitmap->h);
  } else if (!shared_bg_) {
    made = shared_bg_ = screen_bitmap(shared_w_ ? shared_w_ : bitmap->w, shared_h_ ? shared_h_ : bitmap->h);
  } else {
    return 0;
  }
  if (!made) {
    errno = ENOMEM;
    alleg_perror("bg_prepare");
    return -1;
  }
  return 0;
}

int bmp::preshow() {
  BITMAP* scr = getscreen();
  if (!scr) return bitmap ? -1 : 0;
  if (bitmap) {
    x = bmp_place(scr->w - bitmap->w, relx);
    y = bmp_place(scr->h - bitmap->h, rely);
  }
  if (masked()) {
    if (bitmap) {
      if (!backbuffer || backbuffer->w != bitmap->w || backbuffer->h != bitmap->h) {
        destroy(backbuffer);
        backbuffer = screen_bitmap(bitmap->w, bitmap->h);
      }
      if (!backbuffer) {
        alleg_error("Could not create backbuffer for masked blit");
        return -1;
      }
      blit(scr, backbuffer, x, y, 0, 0, bitmap->w, bitmap->h);
      masked_blit(bitmap, backbuffer, 0, 0, 0, 0, bitmap->w, bitmap->h);
    }
  } else {
    bmp_set_palette(palette);
    sbmp_next();
  }
  if (background) blit(scr, background, x, y, 0, 0, background->w, background->h);
  if (onebg && shared_bg_) blit(scr, shared_bg_, x, y, 0, 0, shared_bg_->w, shared_bg_->h);
  return 0;
}

int bmp::show() {
  if (bitmap) {
    BITMAP* scr = getscreen();
    if (!scr) return -1;
    shown_frames::before_show(synced());
    if (!masked()) {
      blit(bitmap, scr, 0, 0, x, y, bitmap->w, bitmap->h);
    } else if (backbuffer) {
      blit(backbuffer, scr, 0, 0, x, y, backbuffer->w, backbuffer->h);
    } else {
      alleg_error("masked_blit: mask not initialized");
      return -1;
    }
    frames_.show(synced(), showtime(), static_cast<int>(nummer));
  }
  return stim::show();
}

int bmp::reshow() {
  bmp_set_palette(palette);
  return 0;
}

int bmp::hide() {
  if (bitmap) {
    BITMAP* scr = getscreen();
    if (!scr) return -1;
    if (!background && !shared_bg_) {
      const int c = bg_r == -1 ? colour(scr, 0, 0, 0) : colour(scr, bg_r, bg_g, bg_b);
      rectfill(scr, x, y, x + bitmap->w, y + bitmap->h, c);
    } else {
      if (background) blit(background, scr, 0, 0, x, y, background->w, background->h);
      if (onebg && shared_bg_) blit(shared_bg_, scr, 0, 0, x, y, shared_bg_->w, shared_bg_->h);
    }
    frames_.hide(t1, static_cast<int>(nummer));
  }
  return stim::hide();
}

int bmp::onset_us(unsigned long long& us) const { return bitmap ? frames_.onset_us(us) : -1; }

int bmp::clearscreen() {
  if (!bitmap) return 0;
  BITMAP* scr = getscreen();
  if (!scr) return -1;
  bmp_set_palette(prepare_palette);
  rectfill(scr, 0, 0, scr->w, scr->h, getpixel(bitmap, 1, 1));
  display_flush();
  return 0;
}

int bmp::cleanup() {
  if (t1 == -1 && hide() != 0) return -1;
  destroy(bitmap);
  destroy(background);
  destroy(backbuffer);
  return stim::cleanup();
}

int bmp::masked() const { return 0; }
int bmp::synced() const { return 1; }

stim* _bmp(const char* line) { return stim_make<bmp>(line); }
