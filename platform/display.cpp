#include "platform/display.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/dpms.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>
#include <xf86drm.h>

#include <allegro.h>
#include <allegro/platform/aintunix.h>

#include <cmath>
#include <cstring>

#include "platform/timer.h"
#include "services/log.h"

// Exported by Allegro's X11 driver: XSync on its own connection, under its
// lock; and the driver's state, whose first member is that connection.
extern "C" void _xwin_flush_buffers(void);
extern "C" char _xwin[];
extern "C" void (*_xwin_input_handler)(void);

namespace {
Display* dpy_ = nullptr;
pthread_t input_thread_;
bool input_taken_ = false;

bool saver_saved_ = false;
int saver_timeout_ = 0, saver_interval_ = 0, saver_blanking_ = 0, saver_exposures_ = 0;
bool dpms_was_enabled_ = false;

const char* vsync_source_ = "";
int drm_fd_ = -1;
unsigned long long phase_us_ = 0;
bool phase_set_ = false;

bool allegro_on_x() { return system_driver && system_driver->id == SYSTEM_XWINDOWS; }

Display* allegro_display() { return *reinterpret_cast<Display**>(_xwin); }

// Allegro's input pass, run under its X lock. Only the thread that took the
// input over reads events; Allegro's background thread, which would take
// them every 10 ms and hold the lock for a round trip, passes.
void input_pass() {
  if (pthread_equal(pthread_self(), input_thread_)) _xwin_private_handle_input();
}

bool drm_open() {
  for (int i = 0; i < 4 && drm_fd_ < 0; ++i) {
    char path[32];
    snprintf(path, sizeof path, "/dev/dri/card%d", i);
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) continue;
    drmVBlank vb;
    memset(&vb, 0, sizeof vb);
    vb.request.type = DRM_VBLANK_RELATIVE;
    vb.request.sequence = 0;
    if (drmWaitVBlank(fd, &vb) == 0) drm_fd_ = fd;
    else close(fd);
  }
  return drm_fd_ >= 0;
}

void simulated_vsync() {
  const double period_us = 1e6 / (alleg_refresh_rate() > 0 ? alleg_refresh_rate() : 60);
  const unsigned long long now = alleg_get_utimer();
  if (!phase_set_) {
    phase_us_ = now;
    phase_set_ = true;
  }
  const double elapsed = static_cast<double>(now - phase_us_);
  const double k = std::floor(elapsed / period_us) + 1;
  const unsigned long long next = phase_us_ + static_cast<unsigned long long>(std::llround(k * period_us));
  while (alleg_get_utimer() < next) {
  }
}
}  // namespace

int display_init() {
  if (!dpy_ && getenv("DISPLAY")) dpy_ = XOpenDisplay(nullptr);
  return 0;
}

void display_exit() {
  if (dpy_) XCloseDisplay(dpy_);
  dpy_ = nullptr;
  if (drm_fd_ >= 0) close(drm_fd_);
  drm_fd_ = -1;
}

void display_flush() {
  if (allegro_on_x()) _xwin_flush_buffers();
}

// Taking input in through Allegro costs a round trip to the X server under
// Allegro's lock, which may block for milliseconds when the server or
// Allegro's own input thread is busy. So the poll first asks the kernel,
// without blocking, whether the server has sent anything at all.
void display_poll_input() {
  if (!allegro_on_x()) return;
  Display* d = allegro_display();
  if (!d) return;
  // Events may also wait in Xlib's queue, read there by an earlier flush.
  pollfd p{ConnectionNumber(d), POLLIN, 0};
  if (XEventsQueued(d, QueuedAlready) > 0 || poll(&p, 1, 0) > 0) _xwin_handle_input();
}

void display_take_input() {
  if (!allegro_on_x() || input_taken_) return;
  input_thread_ = pthread_self();
  _xwin_input_handler = input_pass;
  input_taken_ = true;
}

void display_release_input() {
  if (!input_taken_) return;
  _xwin_input_handler = nullptr;
  input_taken_ = false;
}

int display_refresh_rate() {
  if (!dpy_) return 0;
  int event_base, error_base;
  if (!XRRQueryExtension(dpy_, &event_base, &error_base)) return 0;
  XRRScreenConfiguration* conf = XRRGetScreenInfo(dpy_, DefaultRootWindow(dpy_));
  if (!conf) return 0;
  const short rate = XRRConfigCurrentRate(conf);
  XRRFreeScreenConfigInfo(conf);
  return rate > 0 ? rate : 0;
}

void display_vsync() {
  if (!*vsync_source_) {
    vsync_source_ = drm_open() ? "drm" : "simulated";
    if (drm_fd_ >= 0) alleg_message("retrace: vertical blank from DRM");
    else alleg_message("retrace: simulated at %d Hz", alleg_refresh_rate());
  }
  if (drm_fd_ >= 0) {
    drmVBlank vb;
    memset(&vb, 0, sizeof vb);
    vb.request.type = DRM_VBLANK_RELATIVE;
    vb.request.sequence = 1;
    if (drmWaitVBlank(drm_fd_, &vb) == 0) return;
  }
  simulated_vsync();
}

const char* display_vsync_source() { return vsync_source_; }

void display_vsync_reset() {
  vsync_source_ = "";
  phase_set_ = false;
  if (drm_fd_ >= 0) close(drm_fd_);
  drm_fd_ = -1;
}

void display_screensaver_off() {
  if (!dpy_ || saver_saved_) return;
  XGetScreenSaver(dpy_, &saver_timeout_, &saver_interval_, &saver_blanking_, &saver_exposures_);
  XSetScreenSaver(dpy_, 0, saver_interval_, saver_blanking_, saver_exposures_);
  int event_base, error_base;
  if (DPMSQueryExtension(dpy_, &event_base, &error_base) && DPMSCapable(dpy_)) {
    CARD16 level;
    BOOL enabled = False;
    DPMSInfo(dpy_, &level, &enabled);
    dpms_was_enabled_ = enabled;
    DPMSDisable(dpy_);
  }
  XFlush(dpy_);
  saver_saved_ = true;
}

void display_screensaver_restore() {
  if (!dpy_ || !saver_saved_) return;
  XSetScreenSaver(dpy_, saver_timeout_, saver_interval_, saver_blanking_, saver_exposures_);
  if (dpms_was_enabled_) DPMSEnable(dpy_);
  XFlush(dpy_);
  saver_saved_ = false;
}

void display_nudge_pointer() {
  if (!dpy_) return;
  int event_base, error_base, major, minor;
  if (XTestQueryExtension(dpy_, &event_base, &error_base, &major, &minor)) {
    XTestFakeRelativeMotionEvent(dpy_, 1, 0, CurrentTime);
    XFlush(dpy_);
  }
}
