// Frames handed to the X server with the vertical blank (MSC) they are to be
// seen at, and the server's own account of when each reached the screen.
// Drawing goes into a canvas pixmap; a frame is a copy of the canvas
// presented from a small pool of pixmaps, so the canvas may be drawn on again
// at once. The only module that talks XCB.
#pragma once
#include <cstdint>

struct _XDisplay;

struct present_done {
  uint64_t target_msc = 0;  // the vertical blank asked for (0: the next)
  uint64_t sent_msc = 0;    // the one it was handed over for: later where it
                            // was handed over too late for the one asked
  uint64_t msc = 0;         // the one the frame reached the screen at
  uint64_t ust = 0;         // CLOCK_MONOTONIC us of that vertical blank
  int mode = -1;            // 0 copy, 1 flip, 2 skip, 3 copy (suboptimal)
  int late = 0;             // frames after the target
};

// Sets presentation up on the window of the connection; false (and nothing
// set up) where the server has no Present. composited: a compositing
// manager runs, so a frame copied to the window may be late.
bool present_init(_XDisplay* dpy, unsigned long window, bool composited);
void present_exit();
bool present_on();
// The pixmap drawing goes to, of the window's size and depth, and the part
// of it just drawn on.
unsigned long present_canvas();
void present_drawn(int x, int y, int w, int h);

// Presents the canvas at the vertical blank target_msc (0: the next one),
// and no sooner than the server can take it; the frame's serial, 0 when no
// frame buffer was free (what was drawn then goes with the next frame).
// tag (the trial number) names the frame in the log of late frames.
unsigned present_frame(uint64_t target_msc, int tag);
// Takes in the completions that have arrived, without waiting.
void present_poll();
// 1 with the frame's completion, 0 while pending (d holds its target), -1
// for a serial not presented or long forgotten.
int present_result(unsigned serial, present_done& d);
// The first vertical blank at or after a moment (CLOCK_MONOTONIC us), and
// the moment of a vertical blank, from the completions seen so far.
uint64_t present_msc_at(uint64_t system_us);
uint64_t present_ust_of(uint64_t msc);
// Waits for the next vertical blank; 0, or -1 when the server did not tell.
int present_wait_next();
// Frames that reached the screen after their target so far.
long present_missed();
// How long before its vertical blank a frame is handed to the server, at
// the least (us): a frame asked for a sooner blank goes at a later one.
double present_lead_us();

// The timing of the vertical blanks from pairs (msc, ust) the server told:
// the first and the latest give the period once they are far enough apart,
// the nominal period serves until then.
struct present_clock {
  double nominal_us = 1e6 / 60;
  uint64_t first_msc = 0, first_ust = 0, last_msc = 0, last_ust = 0;
  bool known = false;
  void told(uint64_t msc, uint64_t ust);
  double period_us() const;
  uint64_t msc_at(uint64_t us) const;
  uint64_t ust_of(uint64_t msc) const;
};
