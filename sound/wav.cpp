#include "sound/wav.h"

#include "platform/timer.h"

namespace {
long playing_until_ = 0;
}

bool wav_playing() { return alleg_get_timer() < playing_until_; }
long wav_playing_until() { return playing_until_; }
void wav_playing_until(long t) {
  if (t > playing_until_) playing_until_ = t;
}
void wav_reset() { playing_until_ = 0; }
