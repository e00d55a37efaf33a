// The frames a picture stimulus hands to the display: the one its onset is
// and the one its offset is. Where the X server presents frames, the onset
// is the vertical blank the server says the frame reached the screen at, and
// a stimulus shown for t1 ms stays on the screen for the whole number of
// frames nearest to t1; elsewhere drawing reaches the window as it is drawn
// (after the retrace wait for a synced picture), as it always did.
#pragma once

struct shown_frames {
  unsigned on = 0;   // the onset's frame, 0 when none was presented
  unsigned off = 0;  // the offset's

  // How long before their due times a presented picture's show and hide
  // are called: the show as long as the display needs a frame ahead of its
  // vertical blank, the hide half a frame more (its blank may lie that much
  // before its due time), and never before the show. Where frames are not
  // presented, the fallback values.
  static long showtime(long fallback);
  static long hidetime(long fallback, long t1, long showtime);
  // Before a show draws: the retrace wait of a synced picture, where
  // frames are not presented.
  static void before_show(bool synced);
  // After a show has drawn: presents at the first vertical blank at or after
  // the show's due time (the run loop's due time plus showtime_ms), or at the
  // next one for a show outside a block or a picture that is not synced.
  void show(bool synced, long showtime_ms, int tag);
  // After a hide has erased: presents t1 ms (whole frames, one at least)
  // after the onset's frame; at the next vertical blank for t1 <= 0.
  void hide(long t1, int tag);
  // As stim::onset_us: 1 with the onset (test clock us), 0 while pending,
  // -1 where the display does not tell it.
  int onset_us(unsigned long long& us) const;
};
