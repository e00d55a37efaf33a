#include "sound/swav.h"

#include <allegro.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/datafile.h"
#include "platform/directory.h"
#include "platform/timer.h"
#include "services/argument.h"
#include "services/files.h"
#include "services/log.h"

namespace {
const int kVolumes = 1000;
// A list longer than the volume table names sounds that no line could play
// at their default volume; it is taken as a broken list.
const int kMaxSounds = kVolumes;

int count_ = 0;
SAMPLE** samples_ = nullptr;
DATAFILE** objects_ = nullptr;  // the datafile object an entry came from, or null
DATAFILE* silence_ = nullptr;
bool registered_ = false;

// What a list file leaves for the whole run: the open file and its names.
FILE* list_file_ = nullptr;
int list_count_ = 0;
char** list_names_ = nullptr;

struct volume_table {
  volume_table() { fill(); }
  void fill() {
    for (int& x : v) x = 255;
  }
  int v[kVolumes];
} volumes_;

int fail(int error_number, const char* text) {
  errno = error_number;
  alleg_perror(text);
  return -1;
}

void free_names(int n, char** names) {
  for (int i = 0; i < n; ++i) free(names[i]);
  free(names);
}

DATAFILE* sample_object(const char* name) {
  DATAFILE* d = datafile_object(name);
  if (d && (d->type != DAT_SAMPLE || !d->dat)) {
    unload_datafile_object(d);
    d = nullptr;
  }
  return d;
}

// Entry i from a sound file: it must exist before it is decoded.
SAMPLE* load_file(const char* name) {
  char path[300];
  wav_resolve(name, path, sizeof path);
  FILE* f = file_open(path, "r");
  if (!f) {
    alleg_perror(path);
    return nullptr;
  }
  fclose(f);
  errno = 0;
  SAMPLE* s = load_sample(path);
  if (!s) {
    if (errno == 0) errno = EIO;
    alleg_perror(path);
  }
  return s;
}
}  // namespace

int swav_read_list(FILE* f, int& n, char**& names) {
  int count = -1;
  if (fscanf(f, "%d", &count) != 1 || count == -1) return -1;
  if (count < 0 || count > kMaxSounds) return fail(EINVAL, "swav-init");
  char** list = static_cast<char**>(calloc(count > 0 ? count : 1, sizeof(char*)));
  if (!list) return fail(ENOMEM, "swav-init");
  // At the end of the file a read converts nothing and keeps the previous name.
  char name[200] = "";
  for (int i = 0; i < count; ++i) {
    if (fscanf(f, "%199s", name) == 0) {
      free_names(i, list);
      return fail(EIO, "swav-init");
    }
    list[i] = strdup(name);
    if (!list[i]) {
      free_names(i, list);
      return fail(ENOMEM, "swav-init");
    }
  }
  n = count;
  names = list;
  return 0;
}

int swav_init() {
  char def[256];
  argument_progname(def, sizeof def, "snd");
  const char* name = argument_get("snd", def);
  int r;
  if (DATAFILE* d = datafile_object(get_filename(name))) {
    const imgf_struct* list = d->type == DAT_IMGF ? static_cast<const imgf_struct*>(d->dat) : nullptr;
    if (list)
      r = swav_init(list->count, list->entries);
    else
      r = fail(EINVAL, get_filename(name));
    unload_datafile_object(d);
  } else {
    name = argument_get("snd", def, "Using %s for static sounds");
    FILE* f = file_open(name, "r");
    if (!f) {
      alleg_perror(name);
      return -1;
    }
    int n = 0;
    char** names = nullptr;
    if (swav_read_list(f, n, names) != 0) {
      fclose(f);
      return -1;
    }
    r = swav_init(n, names);
    if (list_file_) fclose(list_file_);
    free_names(list_count_, list_names_);
    list_file_ = f;
    list_count_ = n;
    list_names_ = names;
  }
  if (r != 0) return 1;
  return volume_init() == 0 ? 0 : 1;
}

int swav_init(int n, char** names) {
  swav_done();
  if (n < 0 || (n > 0 && !names)) return fail(EINVAL, "swav_init/samples[]");
  samples_ = static_cast<SAMPLE**>(calloc(n > 0 ? n : 1, sizeof(SAMPLE*)));
  objects_ = static_cast<DATAFILE**>(calloc(n > 0 ? n : 1, sizeof(DATAFILE*)));
  if (!samples_ || !objects_) {
    free(samples_);
    free(objects_);
    samples_ = nullptr;
    objects_ = nullptr;
    return fail(ENOMEM, "swav_init/samples[]");
  }
  count_ = n;
  for (int i = 0; i < n; ++i) {
    const char* name = names[i] ? names[i] : "";
    if ((objects_[i] = sample_object(name))) {
      samples_[i] = static_cast<SAMPLE*>(objects_[i]->dat);
      continue;
    }
    alleg_warning(name, "not found in ressource");
    if (!(samples_[i] = load_file(name))) return -1;
  }

  silence_ = sample_object("stille.wav");
  if (silence_) {
    const int voice = wav_voices().allocate(static_cast<SAMPLE*>(silence_->dat));
    if (voice != -1) wav_voices().start(voice, 0);
  }

  if (!registered_) {
    if (atexit(swav_done) != 0) return -1;
    registered_ = true;
  }
  return 0;
}

void swav_done() {
  for (int i = 0; i < count_; ++i) {
    if (samples_[i] && wav_voices().forget) wav_voices().forget(samples_[i]);
    if (objects_[i])
      unload_datafile_object(objects_[i]);
    else if (samples_[i])
      destroy_sample(samples_[i]);
  }
  free(samples_);
  free(objects_);
  samples_ = nullptr;
  objects_ = nullptr;
  count_ = 0;
  if (silence_) {
    if (wav_voices().forget) wav_voices().forget(static_cast<SAMPLE*>(silence_->dat));
    unload_datafile_object(silence_);
  }
  silence_ = nullptr;
  if (list_file_) fclose(list_file_);
  list_file_ = nullptr;
  free_names(list_count_, list_names_);
  list_count_ = 0;
  list_names_ = nullptr;
}

SAMPLE* swav_get(int i) {
  if (i < 0 || i >= count_ || !samples_[i]) {
    alleg_error("swav_get: invalid index (%d)", i);
    return nullptr;
  }
  return samples_[i];
}

int swav_count() { return count_; }

int volume_init() {
  volumes_.fill();
  char def[256];
  argument_progname(def, sizeof def, "vol");
  char name[300];
  const char* option = argument_value("vol");
  snprintf(name, sizeof name, "%s", option ? option : def);
  if (const char* mapped = files_get(name)) snprintf(name, sizeof name, "%s", mapped);
  FILE* f = file_open(name, "r");
  if (!f) return 0;
  int n = -1;
  if (fscanf(f, "%d", &n) != 1 || n < 0 || n > kVolumes - 1) {
    alleg_error("Volume-Init: Illegal number of volume entries.");
    fclose(f);
    return -1;
  }
  for (int i = 0; i < n; ++i) {
    int v;
    if (fscanf(f, "%d", &v) != 1) break;
    volumes_.v[i] = v;
  }
  fclose(f);
  return 0;
}

int volume_default(int i) {
  if (i < 0 || i >= kVolumes) {
    alleg_error("Volume-Default: Illegal index");
    return -1;
  }
  return volumes_.v[i];
}

swav::swav(unsigned nummer_, int index_, const char* uv_, unsigned trigger_, int kritisch_, long t0_, int speaker_,
           int volume_)
    : wav(nummer_, nullptr, uv_, static_cast<unsigned char>(trigger_), static_cast<char>(kritisch_), t0_, speaker_,
          volume_),
      index(index_), voice(-1) {}

swav::swav(const char* line, int& error) : wav(line, error), index(0), voice(-1) {
  const int parsed = _stim(line);
  error = (error == 0 && parsed == 0) ? 0 : 1;
  if (volume == -1) volume = volume_default(index);
  if (volume == -1) error = -1;
}

swav::~swav() {
  if (voice != -1) wav_voices().release(voice);
  sample = nullptr;  // the table's
}

stim* _swav(const char* line) { return stim_make<swav>(line); }

int swav::set(const char* token) {
  int v;
  if (sscanf(token, "index=%d", &v) == 1) {
    index = v;
    return 0;
  }
  return wav::set(token);
}

long swav::pstime() const { return speaker ? 200 : 15; }
long swav::showtime() const { return 4; }

int swav::prepare() {
  sample = nullptr;  // a table sample is never wav's to free
  if (wav::prepare() != 0) return -1;
  // A file named on the line is loaded by wav, but the table entry plays.
  free_sample();
  if (!(sample = swav_get(index))) return -1;
  if (t1 == 0)
    t1 = wav_length_ms(sample) + 10;
  else if (t1 == -1)
    t1 = 0;
  return 0;
}

int swav::preshow() {
  if (wav::preshow() != 0) return -1;
  if (!sample) {
    alleg_error("swav", "no sample");
    return -1;
  }
  if (voice != -1) wav_voices().deallocate(voice);
  voice = wav_voices().allocate(sample);
  if (voice == -1) {
    alleg_error("swav", "no voice available");
    return -1;
  }
  wav_voices().set_volume(voice, wav_play_volume(volume));
  return 0;
}

int swav::show() {
  onset_ = 0;
  if (voice != -1) start_voice(voice);
  return stim::show();
}

int swav::hide() {
  if (voice != -1) {
    wav_voices().stop(voice);
    wav_voices().deallocate(voice);
    voice = -1;
  }
  return stim::hide();
}

int swav::playing() const { return voice != -1 && wav_voices().position(voice) != -1; }

int swav::cleanup() {
  // A voice never hidden plays to its end and is then freed.
  if (voice != -1) wav_voices().release(voice);
  voice = -1;
  sample = nullptr;
  return wav::cleanup();
}
