#include "engine/reak.h"

#include <cstdio>

#include "platform/timer.h"
#include "sound/swav.h"

namespace {
int please_ = 0;
unsigned last_nummer_ = 0;
int last_outcome_ = 0;

// A preloaded sound by number; -1 when there is none.
int feedback_sound(stim*& field, int index) {
  char text[200];
  snprintf(text, sizeof text, "index=%d", index);
  delete field;
  field = _swav(text);
  return field ? 0 : -1;
}

int play(stim* s) {
  if (!s) return 0;
  if (s->preshow() != 0) return -1;
  alleg_rest(s->pstime());
  if (s->show() != 0) return -1;
  if (s->t1 != 0) {
    alleg_rest(s->t1);
    s->hide();
  }
  return 0;
}

int finish(stim* s) {
  if (!s) return 0;
  while (s->playing()) alleg_rest(100);
  return s->cleanup() != 0 ? -1 : 0;
}
}  // namespace

reak::reak(const char* line, int& err) : stim(line, err), min_ms(stim_minreak()), max_ms(stim_maxreak()) {
  err = _stim(line);
}

reak::~reak() {
  delete correct_sound;
  delete wrong_sound;
}

int reak::set(const char* token) {
  int i;
  long l;
  if (sscanf(token, "richtig=%d", &i) == 1) return feedback_sound(correct_sound, i);
  if (sscanf(token, "falsch=%d", &i) == 1) return feedback_sound(wrong_sound, i);
  if (sscanf(token, "minreak=%ld", &l) == 1) {
    min_ms = l;
    return 0;
  }
  if (sscanf(token, "maxreak=%ld", &l) == 1) {
    max_ms = l;
    return 0;
  }
  return stim::set(token);
}

int reak::prepare() {
  if (correct_sound && correct_sound->prepare() != 0) return -1;
  if (wrong_sound && wrong_sound->prepare() != 0) return -1;
  return stim::prepare();
}

int reak::cleanup() {
  if (finish(correct_sound) != 0 || finish(wrong_sound) != 0) return -1;
  return stim::cleanup();
}

int reak::with_reaktion() const { return 1; }

int reak::richtig() {
  reak_richtig(nummer, 1);
  if (play(correct_sound) != 0) return -1;
  return stim::richtig();
}

int reak::falsch() {
  reak_richtig(nummer, 0);
  if (play(wrong_sound) != 0) return -1;
  return stim::falsch();
}

int reak::auslassung() {
  reak_richtig(nummer, 0);
  return stim::auslassung();
}

long reak::minreak() const { return min_ms; }
long reak::maxreak() const { return max_ms; }

stim* _reak(const char* line) { return stim_make<reak>(line); }

int reak_richtig(unsigned* nummer) {
  if (nummer) *nummer = last_nummer_;
  return last_outcome_;
}

void reak_richtig(unsigned nummer, int outcome) {
  last_nummer_ = nummer;
  last_outcome_ = outcome;
}

void reak_please(int flag) { please_ = flag; }
int reak_getplease() { return please_; }
