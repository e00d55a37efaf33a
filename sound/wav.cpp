#include "sound/wav.h"

#include <allegro.h>

#include <cerrno>
#include <cstring>

#include "platform/directory.h"
#include "platform/sound.h"
#include "platform/timer.h"
#include "ports/lpt.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/log.h"

namespace {
long playing_until_ = 0;
unsigned long long voice_started_ = 0;
wav_port_ port_ = wav_none;

const wav_voice_ops output_voices_ = {sound_allocate, sound_set_volume, sound_start,    sound_stop, sound_deallocate,
                                      sound_release,  sound_position,   sound_onset,    sound_forget};
const wav_voice_ops* voices_ = &output_voices_;

int fail(int error_number, const char* text) {
  errno = error_number;
  alleg_perror(text);
  return -1;
}
}  // namespace

bool wav_playing() { return alleg_get_timer() < playing_until_; }
long wav_playing_until() { return playing_until_; }
void wav_playing_until(long t) {
  if (t > playing_until_) playing_until_ = t;
}
void wav_stop_playing() { playing_until_ = alleg_get_timer(); }
void wav_reset() { playing_until_ = 0; }

unsigned long long wav_voice_started() {
  const unsigned long long t = voice_started_;
  voice_started_ = 0;
  return t;
}
void wav_voice_started(unsigned long long us) { voice_started_ = us; }

void wav_voices(const wav_voice_ops* ops) { voices_ = ops ? ops : &output_voices_; }
const wav_voice_ops& wav_voices() { return *voices_; }

long wav_length_ms(const SAMPLE* s) {
  if (!s || s->freq <= 0) return 0;
  return static_cast<long>(static_cast<unsigned long long>(s->len) * 1000ull / static_cast<unsigned>(s->freq));
}

int wav_play_volume(int volume) {
  if (volume == -1 || volume > 255) return 255;
  return volume < 0 ? 0 : volume;
}

void wav_resolve(const char* name, char* path, int size) {
  canonicalize_filename(path, name, size);
  if (strcmp(path, name) == 0) return;
  replace_filename(path, argument_progname(), name, size);
  if (!file_there(path)) {
    strncpy(path, name, static_cast<size_t>(size) - 1);
    path[size - 1] = 0;
  }
}

int wav_port_of(const char* text) {
  static const struct {
    const char* name;
    int port;
  } names[] = {{"none", wav_none}, {"NONE", wav_none}, {"lpt1", wav_lpt1}, {"LPT1", wav_lpt1},
               {"lpt2", wav_lpt2}, {"LPT2", wav_lpt2}, {"lpt3", wav_lpt3}, {"LPT3", wav_lpt3}};
  if (!text) return -1;
  for (const auto& n : names)
    if (strstr(text, n.name)) return n.port;
  return -1;
}

int wav_init(wav_port_ port) {
  port_ = port;
  switch (port) {
    case wav_none:
      return 0;
    case wav_lpt1:
    case wav_lpt2:
    case wav_lpt3:
      return lpt_init(port - 1, 0, 0);
  }
  return fail(EINVAL, "wav/wavport");
}

int wav_init() {
  const char* text = config_string("speaker-selection", "none");
  const int port = wav_port_of(text);
  if (port < 0) return fail(EINVAL, text);
  return wav_init(static_cast<wav_port_>(port));
}

wav::wav(unsigned nummer_, const char* datei_, const char* uv_, unsigned char trigger_, char kritisch_, long t0_,
         int speaker_, int volume_)
    : stim(nummer_, datei_, uv_, trigger_, kritisch_, t0_, 0), speaker(speaker_), volume(volume_), sample(nullptr) {}

wav::wav(const char* line, int& error) : stim(line, error), speaker(0), volume(-1), sample(nullptr) {
  const int parsed = _stim(line);
  error = (error == 0 && parsed == 0) ? 0 : 1;
}

wav::~wav() { free_sample(); }

void wav::free_sample() {
  if (!datei || !sample) return;
  if (voices_->forget) voices_->forget(sample);
  destroy_sample(sample);
  sample = nullptr;
}

void wav::start_voice(int v) {
  const long late = voices_->start(v, stim_show_due());
  onset_ = voices_->onset ? voices_->onset(v) : 0;
  if (late > 0) {
    char text[120];
    snprintf(text, sizeof text, "trial %u: sound %.1f ms late, started at once", static_cast<unsigned>(nummer),
             late / 1000.0);
    alleg_warning(text);
  }
  wav_voice_started(onset_ ? onset_ : alleg_get_utimer());
}

int wav::onset_us(unsigned long long& us) const {
  if (!onset_) return -1;
  us = onset_;
  return 1;
}

stim* _wav(const char* line) { return stim_make<wav>(line); }

int wav::set(const char* token) {
  int v;
  if (sscanf(token, "speaker=%d", &v) == 1) {
    speaker = v;
    return 0;
  }
  if (sscanf(token, "volume=%d", &v) == 1) {
    volume = v;
    return 0;
  }
  return stim::set(token);
}

long wav::pstime() const { return speaker ? 200 : 0; }
long wav::showtime() const { return 3; }

int wav::prepare() {
  if (datei) {
    free_sample();
    char path[300];
    wav_resolve(datei, path, sizeof path);
    errno = 0;
    sample = load_sample(path);
    if (!sample) {
      // The sample loader leaves errno unset for a file that is not there.
      if (errno == 0) errno = file_there(path) ? EIO : ENOENT;
      alleg_perror(datei);
      return -1;
    }
  }
  return stim::prepare();
}

int wav::preshow() {
  if (speaker && speaker_select(speaker) != 0) return -1;
  return stim::preshow();
}

int wav::show() {
  if (!sample) return fail(EACCES, "wav_show/sample");
  const long length = wav_length_ms(sample);
  wav_playing_until(alleg_get_timer() + length + 10);
  onset_ = 0;
  const int v = voices_->allocate(sample);
  if (v == -1) {
    alleg_warning("wav", "no voice available");
  } else {
    voices_->set_volume(v, wav_play_volume(volume));
    start_voice(v);
    voices_->release(v);
  }
  // The sound ends its length after its onset, which lies ahead.
  wav_playing_until((onset_ ? static_cast<long>(onset_ / 1000) : alleg_get_timer()) + length + 10);
  return stim::show();
}

int wav::cleanup() {
  int r = 0;
  if (speaker) {
    if (speaker_select(0) != 0) r = -1;
    rest(10);
  }
  free_sample();
  if (stim::cleanup() != 0) r = -1;
  return r;
}

void wav::info() const {
  stim::info();
  alleg_message("speaker = %d", speaker);
  alleg_message("volume  = %d", volume);
}

int wav::speaker_select(int n) {
  if (n == 0) return 0;
  switch (port_) {
    case wav_lpt1:
    case wav_lpt2:
    case wav_lpt3:
      if (n < 1 || n > 8) return fail(EINVAL, "speaker_select");
      return lpt_set_port(port_ - 1, static_cast<unsigned char>(1u << (n - 1)));
    case wav_none:
      return fail(EINVAL, "speaker_select: wav_none");
  }
  return fail(EINVAL, "wav_port");
}
