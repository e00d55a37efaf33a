#include "visual/emf.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/alleg.h"
#include "platform/metafile.h"
#include "services/log.h"
#include "visual/sbmp.h"

namespace {
int count_ = -1;
enhmetafile** emfs_ = nullptr;
PALETTE* palettes_ = nullptr;
bool registered_ = false;

// A side of the rendered picture: the screen height times a fraction,
// truncated toward zero; 0 when that is not a usable size.
int side(int screen_h, double fraction) {
  const double d = screen_h * fraction;
  if (!(d >= 1)) return 0;
  return d < INT_MAX ? static_cast<int>(d) : INT_MAX;
}

// The checks shared by semf_emf and semf_palette: true when entry i exists.
bool valid(int i) {
  if (!emfs_ || !palettes_) {
    alleg_error("semf: not initialized");
    return false;
  }
  if (count_ == -1) {
    alleg_error("semf not initialized");
    return false;
  }
  if (i < 0 || i >= count_) {
    alleg_error("semf_emf: invalid index %d", i);
    return false;
  }
  return true;
}
}  // namespace

BITMAP* emf2bmp(enhmetafile* metafile, int w, int h) {
  BITMAP* b = w >= 0 && h >= 0 ? create_bitmap(w, h) : nullptr;
  if (!b) {
    errno = ENOMEM;
    alleg_perror("emf2bmp");
    return nullptr;
  }
  clear_bitmap(b);
  if (metafile_play(metafile, b) != 0) {
    alleg_perror("emf2bmp");
    destroy_bitmap(b);
    return nullptr;
  }
  return b;
}

BITMAP* emf2bmp(const char* file, int w, int h) {
  enhmetafile* m = GetEnhMetaFileA(file);
  if (!m) {
    alleg_perror(file ? file : "");
    return nullptr;
  }
  BITMAP* b = emf2bmp(m, w, h);
  DeleteEnhMetaFile(m);
  return b;
}

// The base constructors parse the line while the object is not yet an emf;
// parsing again reaches w= and h=.
emf::emf(const char* line, int& err) : bmp(line, err) {
  if (err == 0) err = _stim(line) ? 1 : 0;
}

emf::~emf() {
  DeleteEnhMetaFile(metafile);
  metafile = nullptr;
}

int emf::set(const char* attr) {
  double v;
  if (attr && sscanf(attr, "w=%lf", &v) == 1) {
    w = v;
    return 0;
  }
  if (attr && sscanf(attr, "h=%lf", &v) == 1) {
    h = v;
    return 0;
  }
  return bmp::set(attr);
}

int emf::prepare() {
  if (datei) {
    enhmetafile* m = GetEnhMetaFileA(datei);
    if (!m) {
      alleg_perror(datei);
      return -1;
    }
    DeleteEnhMetaFile(metafile);
    metafile = m;
  }
  if (metafile) {
    // The drawing area's height, as for every other picture.
    BITMAP* scr = getscreen();
    const int screen_h = scr ? scr->h : 0;
    const int width = side(screen_h, w);
    const int height = side(screen_h, h);
    if (width < 1 || height < 1) {
      errno = EINVAL;
      alleg_perror("Metafile, w, h");
      return -1;
    }
    if (bitmap) destroy_bitmap(bitmap);
    bitmap = emf2bmp(metafile, width, height);
    if (!bitmap) return -1;
  }
  get_palette(palette);
  get_palette(prepare_palette);
  return stim::prepare();
}

int emf::cleanup() {
  DeleteEnhMetaFile(metafile);
  metafile = nullptr;
  return bmp::cleanup();
}

stim* _emf(const char* line) { return stim_make<emf>(line); }

semf::semf(const char* line, int& err) : emf(line, err) {
  if (err == 0) err = _stim(line) ? 1 : 0;
}

semf::~semf() { metafile = nullptr; }  // the set's

int semf::set(const char* attr) {
  int i;
  if (attr && sscanf(attr, "index=%d", &i) == 1) {
    index = i;
    return 0;
  }
  return emf::set(attr);
}

int semf::prepare() {
  metafile = semf_emf(index);
  if (!metafile) return -1;
  memcpy(palette, semf_palette(index), sizeof(PALETTE));
  // The set's metafile is rendered, never a file the line may name.
  char* own = datei;
  datei = nullptr;
  const int r = emf::prepare();
  datei = own;
  return r;
}

int semf::cleanup() {
  metafile = nullptr;
  return emf::cleanup();
}

int semf::masked() const { return 1; }

stim* _semf(const char* line) { return stim_make<semf>(line); }

int semf_init() { return sbmp_list("mf", "Using %s for static metafiles", semf_init); }

int semf_init(int n, char** names) {
  semf_done();
  // Room for at least one entry, so that a failed load still leaves the
  // arrays: the set then reads as allocated but not initialized.
  const size_t room = n > 0 ? static_cast<size_t>(n) : 1;
  emfs_ = static_cast<enhmetafile**>(calloc(room, sizeof(enhmetafile*)));
  if (!emfs_) {
    errno = ENOMEM;
    alleg_perror("semf_init/emfs[]");
    return -1;
  }
  palettes_ = static_cast<PALETTE*>(calloc(room, sizeof(PALETTE)));
  if (!palettes_) {
    errno = ENOMEM;
    alleg_perror("semf_init/paletten[]");
    return -1;
  }
  if (n < 0 || (n > 0 && !names)) {
    errno = EINVAL;
    alleg_perror("semf_init/emfs[]");
    return -1;
  }
  count_ = n;
  for (int i = 0; i < n; ++i) {
    const char* name = names[i] ? names[i] : "";
    if (DATAFILE* d = datafile_object(name)) {
      if (d->type == DAT_EMF1 && d->dat) emfs_[i] = static_cast<const emf_struct*>(d->dat)->GetEnhMetaFileA();
      unload_datafile_object(d);
    }
    if (!emfs_[i]) {
      alleg_warning(name);
      alleg_warning("not found in ressource");
      emfs_[i] = GetEnhMetaFileA(name);
    }
    if (!emfs_[i]) {
      alleg_perror(name);
      return -1;
    }
    get_palette(palettes_[i]);
  }
  if (!registered_) {
    atexit(semf_done);
    registered_ = true;
  }
  return 0;
}

enhmetafile* semf_emf(int i) { return valid(i) ? emfs_[i] : nullptr; }

RGB* semf_palette(int i) { return valid(i) ? palettes_[i] : nullptr; }

void semf_done() {
  for (int i = 0; emfs_ && i < count_; ++i) DeleteEnhMetaFile(emfs_[i]);
  free(emfs_);
  free(palettes_);
  emfs_ = nullptr;
  palettes_ = nullptr;
  count_ = -1;
}
