// What the program needs from the X server beyond Allegro: presentation that
// reaches the server before an onset is taken, key events taken in at once,
// the retrace wait, the refresh rate, the screen saver and a pointer nudge.
// Everything here is a no-op without an X display.
#pragma once
#include <cstdint>
#include "platform/present.h"

// Opens a second X connection of the program's own; 0 also without X.
int display_init();
void display_exit();

// Sends pending drawing to the X server and waits until it has taken it;
// with presentation, what was drawn is presented at the next vertical blank.
void display_flush();

// Presentation through the X server's Present extension, set up on the
// program's window once the graphics mode is set: the graphics library then
// draws into a canvas, and what was drawn reaches the window as a frame
// presented at a chosen vertical blank. Without it (or without X) drawing
// reaches the window as it is drawn, as before. Both are logged once.
void display_present_init();
void display_present_exit();
bool display_presents();
// Hands what was drawn to the window at the first vertical blank at or
// after due_us (test clock; 0: the next one) and returns the frame's
// number; without presentation it flushes and returns 0. tag: the trial
// number, for the log of missed frames.
unsigned display_present(unsigned long long due_us, int tag);
// The same, `frames` vertical blanks after the one frame `base` reached
// (or was to reach, while that is not yet known); at least one after it.
unsigned display_present_after(unsigned base, long frames, int tag);
// The latest frame presented (0: none yet).
unsigned display_last_frame();
// The onset of a frame: 1 with the test clock (us) of the vertical blank it
// reached the screen at, 0 while the server has not told yet, -1 for no
// such frame.
int display_onset(unsigned frame, unsigned long long& us);
// What the server told of a frame (false: nothing yet or no such frame).
bool display_frame_told(unsigned frame, present_done& d);
// A frame's vertical blank (reached, or handed over for), the test clock of a
// vertical blank, and presenting at a given one (films).
unsigned long long display_frame_msc(unsigned frame);
unsigned long long display_msc_time(unsigned long long msc);
unsigned display_present_msc(unsigned long long msc, int tag);

// Where the display does not tell onsets: how long after the drawing call
// returns a picture is on the screen, in ms. A configured system version
// decides as it always did (above 6.11: two frames); without one, two frames
// when a compositing manager redirects the window, else 1 ms.
long display_onset_delay(bool version_set, double version, bool composited, double frame_ms);
// The same for this display and configuration; 1 while frames are presented.
long display_onset_delay();
// A compositing manager owns the screen's _NET_WM_CM_S selection.
bool display_composited();
// Takes in pending X input events (keys, mouse) now.
void display_poll_input();
// The latest moment a key the X server stamped server_ms can have gone
// down, on CLOCK_MONOTONIC (us): the end of that ms plus margin_us (a server
// stamping from the coarse clock lags by up to one of its steps). False
// where the stamp is not of this machine's CLOCK_MONOTONIC within the last
// second before mono_us (a server elsewhere, a clock of its own).
bool display_key_latest(uint32_t server_ms, unsigned long long mono_us, unsigned long long margin_us,
                        unsigned long long& latest_us);
// The latest moment (test clock, us) any key press taken in since the last
// call can have gone down, as the X server stamped it; false where none was
// stamped. Only while the input is taken (display_take_input), since only
// then does every event pass the place where the stamps are read.
bool display_key_press_latest(unsigned long long& test_us);
// Allegro took a key down in (from its low-level keyboard callback).
void display_key_down();
// From now on X input is taken in only when the calling thread polls, never
// by the graphics library's background thread: a key waits in the socket
// for the next poll instead of for the background thread's next turn.
void display_take_input();
void display_release_input();

// The current mode's refresh rate from XRandR, 0 when unknown.
int display_refresh_rate();

// Waits for the next vertical retrace: the true vertical blank through DRM
// where the display allows it, else a retrace simulated on the test clock at
// the refresh rate in force (phase-locked: consecutive waits are one period
// apart). The source is logged once.
void display_vsync();
// The source in use: "drm", "simulated" or "" before the first wait.
const char* display_vsync_source();
// Forget the retrace phase and source (tests).
void display_vsync_reset();

// Screen saver and display power management off; restored by the second.
void display_screensaver_off();
void display_screensaver_restore();
// One synthetic relative pointer movement of 1 pixel, to wake the display.
void display_nudge_pointer();
