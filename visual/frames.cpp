#include "visual/frames.h"

#include <algorithm>
#include <cmath>

#include "engine/stim.h"
#include "platform/display.h"
#include "platform/timer.h"

long shown_frames::showtime(long fallback) { return display_presents() ? display_onset_delay() : fallback; }

long shown_frames::hidetime(long fallback, long t1, long showtime) {
  if (!display_presents()) return fallback;
  const long lead = static_cast<long>(std::ceil(alleg_refresh_time() / 2)) + display_onset_delay();
  return std::max(0L, std::min(lead, t1 + showtime - 1));
}

void shown_frames::before_show(bool synced) {
  if (synced && !display_presents()) display_vsync();
}

void shown_frames::show(bool synced, long showtime_ms, int tag) {
  const unsigned long long due = stim_show_due();
  on = display_present(synced && due ? due + static_cast<unsigned long long>(showtime_ms) * 1000u : 0, tag);
  off = 0;
}

void shown_frames::hide(long t1, int tag) {
  if (t1 <= 0 || !on) {
    off = display_present(0, tag);
    return;
  }
  const long frames = std::lround(static_cast<double>(t1) / alleg_refresh_time());
  off = display_present_after(on, frames, tag);
}

int shown_frames::onset_us(unsigned long long& us) const {
  if (!on) return -1;
  return display_onset(on, us);
}
