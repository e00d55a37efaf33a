// What the program needs from the X server beyond Allegro: presentation that
// reaches the server before an onset is taken, key events taken in at once,
// the retrace wait, the refresh rate, the screen saver and a pointer nudge.
// Everything here is a no-op without an X display.
#pragma once

// Opens a second X connection of the program's own; 0 also without X.
int display_init();
void display_exit();

// Sends pending drawing to the X server and waits until it has taken it.
void display_flush();
// Takes in pending X input events (keys, mouse) now.
void display_poll_input();
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
