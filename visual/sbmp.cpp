#include "visual/sbmp.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/datafile.h"
#include "platform/directory.h"
#include "services/argument.h"
#include "services/log.h"

namespace {
int count_ = -1;
BITMAP** bitmaps_ = nullptr;
DATAFILE** objects_ = nullptr;  // the datafile object holding picture i, if any
PALETTE palette_{};
bool registered_ = false;

// The object name + suffix from the resource datafile when it has that type.
DATAFILE* object_of_type(const char* name, const char* suffix, int type) {
  DATAFILE* d = datafile_object((std::string(name) + suffix).c_str());
  if (d && (d->type != type || !d->dat)) {
    unload_datafile_object(d);
    d = nullptr;
  }
  return d;
}
}  // namespace

int sbmp_list(const char* key, const char* msg, int (*init)(int, char**)) {
  char def[300];
  argument_progname(def, sizeof def, key);
  const char* name = argument_get(key, def);
  if (DATAFILE* d = datafile_object(get_filename(name))) {
    if (d->type == DAT_IMGF && d->dat) {
      const imgf_struct* list = static_cast<const imgf_struct*>(d->dat);
      const int r = init(list->count, list->entries);
      unload_datafile_object(d);
      return r;
    }
    unload_datafile_object(d);
  }

  name = argument_get(key, def, msg);
  char path[300];
  bmp_resolve(path, sizeof path, name);
  FILE* f = file_open(path, "r");
  if (!f) {
    alleg_perror(path);
    return -1;
  }
  int count = -1;
  if (fscanf(f, "%d", &count) != 1 || count == -1) return -1;
  std::vector<char*> names;
  for (int i = 0; i < count; ++i) {
    char word[200];
    if (fscanf(f, "%199s", word) != 1) {
      errno = EINVAL;
      alleg_perror(path);
      fclose(f);
      for (char* n : names) free(n);
      return -1;
    }
    names.push_back(strdup(word));
  }
  const int r = init(count, names.data());
  for (char* n : names) free(n);
  return r;
}

int sbmp_init() { return sbmp_list("img", "Using %s for static images", sbmp_init); }

int sbmp_init(int n, char** names) {
  sbmp_done();
  if (n < 0 || (n > 0 && !names)) {
    errno = EINVAL;
    alleg_perror("sbmp_init/bitmaps[]");
    return -1;
  }
  count_ = n;
  if (n == 0) return 0;
  bitmaps_ = static_cast<BITMAP**>(calloc(static_cast<size_t>(n), sizeof(BITMAP*)));
  objects_ = static_cast<DATAFILE**>(calloc(static_cast<size_t>(n), sizeof(DATAFILE*)));
  if (!bitmaps_ || !objects_) {
    errno = ENOMEM;
    alleg_perror("sbmp_init/bitmaps[]");
    return -1;
  }
  for (int i = 0; i < n; ++i) {
    const char* name = names[i] ? names[i] : "";
    if (i == 0) {
      if (DATAFILE* pal = object_of_type(name, ".pal", DAT_PALETTE)) {
        memcpy(palette_, pal->dat, std::min(static_cast<size_t>(std::max(pal->size, 0L)), sizeof(PALETTE)));
        unload_datafile_object(pal);
      }
    }
    if (DATAFILE* d = object_of_type(name, ".bmp", DAT_BITMAP)) {
      objects_[i] = d;
      bitmaps_[i] = static_cast<BITMAP*>(d->dat);
      continue;
    }
    alleg_warning(name, "not found in ressource");
    char path[300];
    bmp_resolve(path, sizeof path, name);
    bitmaps_[i] = bmp_load(path, palette_);
    if (!bitmaps_[i]) {
      errno = ENOENT;
      alleg_perror(path);
      return -1;
    }
  }
  if (!registered_) {
    atexit(sbmp_done);
    registered_ = true;
  }
  return 0;
}

void sbmp_free(int& count, BITMAP**& bitmaps, DATAFILE**& objects) {
  for (int i = 0; bitmaps && i < count; ++i) {
    if (objects && objects[i])
      unload_datafile_object(objects[i]);
    else if (bitmaps[i])
      destroy_bitmap(bitmaps[i]);
  }
  free(bitmaps);
  free(objects);
  bitmaps = nullptr;
  objects = nullptr;
  count = -1;
}

void sbmp_done() {
  sbmp_free(count_, bitmaps_, objects_);
  memset(palette_, 0, sizeof palette_);
}

BITMAP* sbmp_bitmap(int i) {
  if (count_ == -1) {
    alleg_error("sbmp not initialized");
    return nullptr;
  }
  if (!bitmaps_) {
    alleg_error("sbmp %d: not initialized", i);
    return nullptr;
  }
  if (i >= 0 && i < count_) return bitmaps_[i];
  alleg_error("sbmp_bitmap: invalid index %d", i);
  return nullptr;
}

RGB* sbmp_palette() {
  if (count_ == -1) {
    alleg_error("sbmp not initialized");
    return nullptr;
  }
  return palette_;
}

int sbmp_setonebg() {
  int w = 0, h = 0;
  for (int i = 0; i < count_; ++i) {
    const BITMAP* b = bitmaps_ ? bitmaps_[i] : nullptr;
    if (!b) return -1;
    w = std::max(w, b->w);
    h = std::max(h, b->h);
  }
  return bmp_setonebg(w, h);
}

sbmp::sbmp(unsigned nummer_, int index_, const char* uv_, unsigned trigger_, int kritisch_, long t0_, long t1_,
           double relx_, double rely_)
    : bmp(nummer_, nullptr, uv_, trigger_, kritisch_, t0_, t1_, relx_, rely_), index(index_) {}

sbmp::sbmp(const char* line, int& err) : bmp(line, err) {
  if (err == 0) err = _stim(line) ? 1 : 0;
}

sbmp::~sbmp() { bitmap = nullptr; }

int sbmp::set(const char* attr) {
  int i;
  if (attr && sscanf(attr, "index=%d", &i) == 1) {
    index = i;
    return 0;
  }
  return bmp::set(attr);
}

int sbmp::prepare() {
  if (bmp::prepare() != 0) return -1;
  // A datei= of the line was loaded as for a picture; the set's picture
  // takes its place.
  if (bitmap) destroy_bitmap(bitmap);
  bitmap = sbmp_bitmap(index);
  if (!bitmap) return -1;
  const RGB* p = sbmp_palette();
  if (!p) return -1;
  memcpy(palette, p, sizeof(PALETTE));
  return bg_prepare();
}

int sbmp::preshow() {
  if (sbmp_isfirst()) {
    bmp_set_palette(palette);
    sbmp_next();
  }
  return bmp::preshow();
}

int sbmp::cleanup() {
  bitmap = nullptr;
  return bmp::cleanup();
}

int sbmp::masked() const { return 1; }
int sbmp::synced() const { return 1; }

stim* _sbmp(const char* line) { return stim_make<sbmp>(line); }
