#include "visual/vbmp.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/alleg.h"
#include "platform/datafile.h"
#include "platform/display.h"
#include "platform/timer.h"
#include "services/config.h"
#include "services/log.h"
#include "services/results.h"
#include "visual/bmp.h"
#include "visual/sbmp.h"

namespace {
int count_ = -1;
BITMAP** bitmaps_ = nullptr;
DATAFILE** objects_ = nullptr;  // the datafile object holding picture i, if any
bool registered_ = false;

// A copy of b in video memory, null when the display has none to give.
BITMAP* video_copy(BITMAP* b) {
  BITMAP* v = gfx_driver && screen ? create_video_bitmap(b->w, b->h) : nullptr;
  if (v) blit(b, v, 0, 0, 0, 0, b->w, b->h);
  return v;
}
}  // namespace

int vbmp_init() { return sbmp_list("img", "Using %s for static images", vbmp_init); }

int vbmp_init(int n, char** names) {
  vbmp_done();
  bool use_vram = true;
  if (n != 0 && !(gfx_capabilities & GFX_HW_VRAM_BLIT)) {
    alleg_message("vbmp_init/graphics card cannot GFX_HW_VRAM_BLIT");
    use_vram = false;
  }
  if (n < 0 || (n > 0 && !names)) {
    errno = EINVAL;
    alleg_perror("vbmp_init/bitmaps[]");
    return -1;
  }
  count_ = n;
  bitmaps_ = static_cast<BITMAP**>(calloc(static_cast<size_t>(n) + 1, sizeof(BITMAP*)));
  objects_ = static_cast<DATAFILE**>(calloc(static_cast<size_t>(n) + 1, sizeof(DATAFILE*)));
  if (!bitmaps_ || !objects_) {
    errno = ENOMEM;
    alleg_perror("vbmp_init/bitmaps[]");
    return -1;
  }
  for (int i = 0; i < n; ++i) {
    const char* name = names[i] ? names[i] : "";
    const std::string object = std::string(name) + ".bmp";
    DATAFILE* d = nullptr;
    if (DATAFILE* pal = datafile_object((std::string(name) + ".pal").c_str())) {
      unload_datafile_object(pal);
      d = datafile_object(object.c_str());
      if (d && (d->type != DAT_BITMAP || !d->dat)) {
        unload_datafile_object(d);
        d = nullptr;
      }
    }
    if (d) {
      BITMAP* b = static_cast<BITMAP*>(d->dat);
      BITMAP* v = use_vram ? video_copy(b) : nullptr;
      if (v) {
        bitmaps_[i] = v;
        unload_datafile_object(d);
      } else {
        alleg_warning(object.c_str(), "was loaded into system memory");
        if (use_vram) {
          unload_datafile_object(d);
        } else {
          bitmaps_[i] = b;
          objects_[i] = d;
        }
      }
      continue;
    }
    alleg_warning(name, "not found in ressource");
    char path[300];
    bmp_resolve(path, sizeof path, name);
    BITMAP* m = bmp_load(path, nullptr);
    if (!m) {
      errno = ENOENT;
      alleg_perror(name);
      return -1;
    }
    if (BITMAP* v = video_copy(m)) {
      destroy_bitmap(m);
      bitmaps_[i] = v;
    } else {
      alleg_warning(path, "was loaded into system memory");
      bitmaps_[i] = m;
    }
  }
  if (!registered_) {
    atexit(vbmp_done);
    registered_ = true;
  }
  return 0;
}

void vbmp_done() { sbmp_free(count_, bitmaps_, objects_); }

BITMAP* vbmp_bitmap(int i) {
  if (!bitmaps_) {
    alleg_error("vbmp: not initialized");
    return nullptr;
  }
  if (count_ == -1) {
    alleg_error("vbmp not initialized");
    return nullptr;
  }
  if (i < 0 || i >= count_) {
    alleg_error("vbmp_bitmap: invalid index %d", i);
    return nullptr;
  }
  return bitmaps_[i];
}

vbmp::vbmp(unsigned nummer_, int index_, const char* uv_, unsigned trigger_, int kritisch_, long t0_, long t1_,
           double relx_, double rely_)
    : stim(nummer_, nullptr, uv_, trigger_, kritisch_, t0_, t1_), relx(relx_), rely(rely_), index(index_) {}

vbmp::vbmp(const char* line, int& err) : stim(line, err) {
  if (err == 0) err = _stim(line);
  err = err ? 1 : 0;
}

vbmp::~vbmp() = default;

int vbmp::set(const char* attr) {
  if (!attr) return 0;
  double v;
  int i;
  if (sscanf(attr, "x=%lf", &v) == 1) {
    relx = v;
  } else if (sscanf(attr, "y=%lf", &v) == 1) {
    rely = v;
  } else if (sscanf(attr, "index=%d", &i) == 1) {
    index = i;
  } else {
    return stim::set(attr);
  }
  return 0;
}

long vbmp::pstime() const { return 50; }

long vbmp::showtime() const {
  if (display_presents()) return shown_frames::showtime(1);
  if (synced() && display_onset_delay() > 1) return 2L * alleg_refresh_rate();
  return 1;
}

long vbmp::hidetime() const { return shown_frames::hidetime(6, t1, showtime()); }

int vbmp::prepare() {
  stim::prepare();
  return vbmp_bitmap(index) ? 0 : -1;
}

int vbmp::show() {
  BITMAP* b = vbmp_bitmap(index);
  BITMAP* scr = getscreen();
  if (!b || !scr) return -1;
  const int x = bmp_place(scr->w - b->w, relx);
  const int y = bmp_place(scr->h - b->h, rely);
  shown_frames::before_show(synced());
  blit(b, scr, 0, 0, x, y, b->w, b->h);
  frames_.show(synced(), showtime(), static_cast<int>(nummer));
  return stim::show();
}

int vbmp::hide() {
  BITMAP* b = vbmp_bitmap(index);
  BITMAP* scr = getscreen();
  if (!b || !scr) return -1;
  const int x = bmp_place(scr->w - b->w, relx);
  const int y = bmp_place(scr->h - b->h, rely);
  rectfill(scr, x, y, x + b->w, y + b->h, 0);
  frames_.hide(t1, static_cast<int>(nummer));
  return stim::hide();
}

int vbmp::onset_us(unsigned long long& us) const { return frames_.onset_us(us); }

int vbmp::speichern() const {
  if (nummer == 0) return 0;
  char line[1000];
  snprintf(line, sizeof line, "%5d %5ld %5ld %5ld %5d %5d %7ld\n", static_cast<int>(nummer), t_show, t_hide - t_show,
           t_end - t_hide, kritisch, reaktion, reakzeit);
  return result(static_cast<const char*>(line));
}

int vbmp::masked() const { return 0; }
int vbmp::synced() const { return 1; }

stim* _vbmp(const char* line) { return stim_make<vbmp>(line); }
