#include "visual/sfli.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/datafile.h"
#include "platform/directory.h"
#include "services/argument.h"
#include "services/log.h"
#include "visual/bmp.h"

namespace {
int set_count_ = -1;
flistruct** set_ = nullptr;
bool set_registered_ = false;

int fail(const char* text, int e = EINVAL) {
  errno = e;
  alleg_perror(text);
  return -1;
}
}  // namespace


sfli::sfli(unsigned nummer_, const char* uv_, unsigned char trigger_, char kritisch_, long t0_, long t1_,
           double relx_, double rely_, int index_, int repeat_)
    : fli(nummer_, nullptr, repeat_, uv_, trigger_, kritisch_, t0_, t1_, relx_, rely_), index(index_) {}

sfli::sfli(const char* line, int& err) : fli(line, err) {
  if (err == 0) err = _stim(line);
  err = err ? 1 : 0;
}

int sfli::set(const char* attr) {
  if (attr && sscanf(attr, "index=%d", &index) == 1) return 0;
  return fli::set(attr);
}

int sfli::prepare() {
  if (index < 0 || index >= set_count_) {
    alleg_error("sfli/index out of range: %d", index);
    return -1;
  }
  film = set_ ? set_[index] : nullptr;
  if (!film) {
    alleg_error("sfli/fli not initialized");
    return -1;
  }
  return fli::prepare();
}

stim* _sfli(const char* line) { return stim_make<sfli>(line); }

flistruct* _sfli_preload(const char* name) {
  char path[300], canonical[301];
  bmp_resolve(path, 299, name ? name : "");
  canonicalize_filename(canonical, path, 300);
  flistruct* film = new flistruct;
  if (film->prepare(canonical) != 0) {
    alleg_error("sfli-preload", canonical);
    delete film;
    return nullptr;
  }
  return film;
}

int sfli_init() {
  char def[300];
  argument_progname(def, sizeof def, "fl");
  const char* name = argument_get("fl", def, "Using %s for preloaded films.");
  if (DATAFILE* d = datafile_object(get_filename(name))) {
    int r = -1;
    if (d->type == DAT_IMGF && d->dat) {
      const imgf_struct* list = static_cast<const imgf_struct*>(d->dat);
      r = sfli_init(list->count, list->entries);
    } else {
      errno = EINVAL;
      alleg_perror(name);
    }
    unload_datafile_object(d);
    return r;
  }
  FILE* f = file_open(name, "rt");
  if (!f) {
    alleg_perror(name);
    return -1;
  }
  int count = 0;
  if (fscanf(f, "%d", &count) != 1) {
    fclose(f);
    return fail("sfli_init: anzahl");
  }
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    char word[200];
    if (fscanf(f, "%199s", word) != 1) {
      errno = EINVAL;
      alleg_perror(name);
      fclose(f);
      return -1;
    }
    names.emplace_back(word);
  }
  fclose(f);
  std::vector<char*> argv;
  for (std::string& s : names) argv.push_back(s.data());
  return sfli_init(count, argv.data());
}

int sfli_init(int n, char** names) {
  sfli_done();
  if (n < 0 || (n > 0 && !names)) return fail("sfli_init/fli[]");
  set_ = new (std::nothrow) flistruct*[static_cast<size_t>(n) + 1]();
  if (!set_) return fail("sfli_init/fli[]", ENOMEM);
  set_count_ = n;
  for (int i = 0; i < n; ++i) {
    set_[i] = _sfli_preload(names[i]);
    if (!set_[i]) {
      alleg_perror(names[i] ? names[i] : "");
      return -1;
    }
  }
  if (!set_registered_) {
    if (atexit(sfli_done) != 0) return fail("sfli_init/atexit");
    set_registered_ = true;
  }
  return 0;
}

void sfli_done() {
  for (int i = 0; set_ && i < set_count_; ++i) delete set_[i];
  delete[] set_;
  set_ = nullptr;
  set_count_ = -1;
}
