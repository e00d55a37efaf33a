#include "platform/display.h"

#include <X11/Xatom.h>
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

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>

#include "platform/timer.h"
#include "services/config.h"
#include "services/log.h"

// Exported by Allegro's X11 driver: XSync on its own connection, under its
// lock; and the driver's state, whose first member is that connection.
extern "C" void _xwin_flush_buffers(void);
extern "C" char _xwin[];
extern "C" void (*_xwin_input_handler)(void);
// Called by the driver with each part of the screen it has converted into
// its image, to bring that part to the window.
extern "C" void (*_xwin_window_redrawer)(int, int, int, int);
// The drawing mode in force. Where the screen's format matches the window's,
// the driver draws solid fills, lines and points of the screen straight onto
// the window as well (past the hook above) while its drawing-mode method
// finds the mode solid.
extern "C" int _drawing_mode;

// The leading members of the driver's state, the same in every build of it.
struct xwin_head {
  Display* display;
  volatile int lock_count;
  int screen;
  Window window;
  GC gc;
  Visual* visual;
  Colormap colormap;
  XImage* ximage;
};

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

// Presentation: the driver's image goes to the canvas on our connection.
std::mutex present_lock_;
void (*driver_redrawer_)(int, int, int, int) = nullptr;
GC canvas_gc_ = nullptr;
bool dirty_ = false;
GFX_DRIVER* patched_driver_ = nullptr;
void (*driver_drawing_mode_)() = nullptr;
unsigned last_frame_ = 0;
bool composited_ = false;

bool allegro_on_x() { return system_driver && system_driver->id == SYSTEM_XWINDOWS; }

Display* allegro_display() { return *reinterpret_cast<Display**>(_xwin); }
const xwin_head& allegro_state() { return *reinterpret_cast<const xwin_head*>(_xwin); }

void canvas_redraw(int x, int y, int w, int h) {
  XImage* img = allegro_state().ximage;
  std::lock_guard<std::mutex> hold(present_lock_);
  if (!img || !canvas_gc_) return;
  if (x < 0) w += x, x = 0;
  if (y < 0) h += y, y = 0;
  if (w > img->width - x) w = img->width - x;
  if (h > img->height - y) h = img->height - y;
  if (w <= 0 || h <= 0) return;
  XPutImage(dpy_, present_canvas(), canvas_gc_, img, x, y, x, y, static_cast<unsigned>(w), static_cast<unsigned>(h));
  present_drawn(x, y, w, h);
  dirty_ = true;
}

// While frames are presented, every change of the screen reaches the window
// through the canvas: the driver is never told the mode is solid, so it draws
// no fill onto the window directly, at once and out of its frame.
void no_direct_drawing() {
  if (!driver_drawing_mode_) return;
  const int mode = _drawing_mode;
  _drawing_mode = DRAW_MODE_XOR;
  driver_drawing_mode_();
  _drawing_mode = mode;
}

bool cm_selection_owned(Display* d) {
  char name[32];
  snprintf(name, sizeof name, "_NET_WM_CM_S%d", DefaultScreen(d));
  return XGetSelectionOwner(d, XInternAtom(d, name, False)) != None;
}

unsigned present_locked(unsigned long long msc, int tag) {
  const unsigned f = present_frame(msc, tag);
  if (f) {
    last_frame_ = f;
    dirty_ = false;
  }
  return f;
}

// The latest moment, on CLOCK_MONOTONIC, a key taken in by the last input
// pass can have gone down (0: none, or not known for every key the pass
// took in); the presses the pass saw stamped, and the ones Allegro took.
unsigned long long key_latest_us_ = 0;
int keys_stamped_ = 0;
// Counted from Allegro's keyboard callback, which may also run elsewhere.
std::atomic<int> keys_taken_{0};

// How far behind the kernel's coarse clock may lag: a server that stamps
// from it is up to one of its steps late (it does where a step is at most
// 1 ms; else it reads the exact clock).
unsigned long long coarse_margin_us() {
  timespec res{};
  if (clock_getres(CLOCK_MONOTONIC_COARSE, &res) != 0 || res.tv_sec > 0 || res.tv_nsec > 1000000) return 0;
  return static_cast<unsigned long long>(res.tv_nsec) / 1000u;
}

Bool note_key(Display*, XEvent* e, XPointer latest) {
  if (e->type == KeyPress) {
    static const unsigned long long margin = coarse_margin_us();
    unsigned long long at = 0;
    if (display_key_latest(static_cast<uint32_t>(e->xkey.time), alleg_system_us(), margin, at)) {
      *reinterpret_cast<unsigned long long*>(latest) = std::max(*reinterpret_cast<unsigned long long*>(latest), at);
      ++keys_stamped_;
    }
  }
  return False;
}

// Allegro's input pass, run under its X lock. Only the thread that took the
// input over reads events; Allegro's background thread, which would take
// them every 10 ms and hold the lock for a round trip, passes. The server's
// stamps of the key presses are noted before Allegro takes the events.
void input_pass() {
  if (!pthread_equal(pthread_self(), input_thread_)) return;
  Display* d = allegro_display();
  unsigned long long latest = 0;
  keys_stamped_ = 0;
  keys_taken_ = 0;
  if (XEventsQueued(d, QueuedAfterReading) > 0) {
    XEvent e;
    XCheckIfEvent(d, &e, note_key, reinterpret_cast<XPointer>(&latest));
  }
  _xwin_private_handle_input();
  // A key that came while Allegro synced with the server was not seen here;
  // its stamp is unknown, and the pass's latest moment would be too early.
  const int taken = keys_taken_;
  if (taken > 0) key_latest_us_ = taken <= keys_stamped_ ? latest : 0;
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
  display_present_exit();
  if (dpy_) XCloseDisplay(dpy_);
  dpy_ = nullptr;
  if (drm_fd_ >= 0) close(drm_fd_);
  drm_fd_ = -1;
}

void display_flush() {
  if (present_on()) {
    std::lock_guard<std::mutex> hold(present_lock_);
    if (dirty_) present_locked(0, 0);
    return;
  }
  if (allegro_on_x()) _xwin_flush_buffers();
}

void display_present_init() {
  if (!allegro_on_x() || !dpy_ || present_on()) return;
  const Window w = allegro_state().window;
  XWindowAttributes wa;
  if (!w || !XGetWindowAttributes(dpy_, w, &wa)) return;
  composited_ = cm_selection_owned(dpy_);
  // Compositors leave a full-screen window that asks for it alone.
  const long bypass = 1;
  XChangeProperty(dpy_, w, XInternAtom(dpy_, "_NET_WM_BYPASS_COMPOSITOR", False), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(&bypass), 1);
  XSync(dpy_, False);
  std::unique_lock<std::mutex> hold(present_lock_);
  // IXMOD_PRESENT=0 keeps the drawing path (to compare the two).
  const char* opt = getenv("IXMOD_PRESENT");
  if (!(opt && strcmp(opt, "0") == 0) && present_init(dpy_, w, composited_)) {
    XGCValues v;
    v.graphics_exposures = False;
    canvas_gc_ = XCreateGC(dpy_, present_canvas(), GCGraphicsExposures, &v);
    driver_redrawer_ = _xwin_window_redrawer;
    hold.unlock();
    _xwin_window_redrawer = canvas_redraw;
    if (gfx_driver && gfx_driver->drawing_mode) {
      patched_driver_ = gfx_driver;
      driver_drawing_mode_ = gfx_driver->drawing_mode;
      gfx_driver->drawing_mode = no_direct_drawing;
      no_direct_drawing();
    }
    // The canvas starts as the screen is now.
    XImage* img = allegro_state().ximage;
    if (img) canvas_redraw(0, 0, img->width, img->height);
    display_flush();
    vsync_source_ = "present";
    alleg_message("retrace: next MSC through X Present");
    alleg_message("onset: X Present completion");
    alleg_message("present: frames handed over %ld ms before their vertical blank", display_onset_delay());
    return;
  }
  hold.unlock();
  const bool set = config_osversion_set();
  char text[160];
  if (set)
    snprintf(text, sizeof text, "onset: end of drawing plus %ld ms (os-version %.2f)", display_onset_delay(),
             config_osversion());
  else
    snprintf(text, sizeof text, "onset: end of drawing plus %ld ms (%s)", display_onset_delay(),
             composited_ ? "compositing manager" : "no compositing manager");
  alleg_message(text);
}

void display_present_exit() {
  if (patched_driver_) {
    patched_driver_->drawing_mode = driver_drawing_mode_;
    if (gfx_driver == patched_driver_) driver_drawing_mode_();
  }
  patched_driver_ = nullptr;
  driver_drawing_mode_ = nullptr;
  if (driver_redrawer_) _xwin_window_redrawer = driver_redrawer_;
  driver_redrawer_ = nullptr;
  std::lock_guard<std::mutex> hold(present_lock_);
  if (canvas_gc_) XFreeGC(dpy_, canvas_gc_);
  canvas_gc_ = nullptr;
  present_exit();
  dirty_ = false;
}

bool display_presents() { return present_on(); }

unsigned display_present(unsigned long long due_us, int tag) {
  if (!present_on()) {
    display_flush();
    return 0;
  }
  std::lock_guard<std::mutex> hold(present_lock_);
  const unsigned long long msc = due_us ? present_msc_at(alleg_system_us_at(due_us)) : 0;
  return present_locked(msc, tag);
}

unsigned display_present_after(unsigned base, long frames, int tag) {
  if (!present_on()) {
    display_flush();
    return 0;
  }
  std::lock_guard<std::mutex> hold(present_lock_);
  present_done d;
  if (present_result(base, d) < 0) return present_locked(0, tag);
  unsigned long long from = d.msc;
  if (!from) {
    // The show has not reached the screen yet. Once its blank is half a
    // frame past without word of it, it reaches a later one: the hide
    // counts from the first it can still reach, not from the one missed.
    from = d.sent_msc;
    const unsigned long long now = alleg_system_us();
    if (from && now > present_ust_of(from) + static_cast<unsigned long long>(alleg_refresh_time() * 500))
      from = std::max(from, static_cast<unsigned long long>(present_msc_at(now)));
  }
  if (!from) return present_locked(0, tag);
  return present_locked(from + static_cast<unsigned long long>(frames < 1 ? 1 : frames), tag);
}

unsigned display_last_frame() { return last_frame_; }

int display_onset(unsigned frame, unsigned long long& us) {
  if (!present_on() || !frame) return -1;
  std::lock_guard<std::mutex> hold(present_lock_);
  present_done d;
  const int r = present_result(frame, d);
  if (r == 1) us = alleg_utimer_at(d.ust);
  return r;
}

bool display_frame_told(unsigned frame, present_done& d) {
  if (!present_on() || !frame) return false;
  std::lock_guard<std::mutex> hold(present_lock_);
  return present_result(frame, d) == 1;
}

unsigned long long display_frame_msc(unsigned frame) {
  if (!present_on() || !frame) return 0;
  std::lock_guard<std::mutex> hold(present_lock_);
  present_done d;
  if (present_result(frame, d) < 0) return 0;
  return d.msc ? d.msc : d.sent_msc;
}

unsigned long long display_msc_time(unsigned long long msc) {
  if (!present_on()) return 0;
  return alleg_utimer_at(present_ust_of(msc));
}

unsigned display_present_msc(unsigned long long msc, int tag) {
  if (!present_on()) {
    display_flush();
    return 0;
  }
  std::lock_guard<std::mutex> hold(present_lock_);
  return present_locked(msc, tag);
}

long display_onset_delay(bool version_set, double version, bool composited, double frame_ms) {
  const bool two_frames = version_set ? version > 6.11 : composited;
  return two_frames ? static_cast<long>(2 * frame_ms) : 1;
}

long display_onset_delay() {
  // A presented picture is drawn as long before its onset as the server
  // needs the frame ahead of its vertical blank.
  if (present_on()) return std::max(1L, static_cast<long>(std::ceil(present_lead_us() / 1000)));
  const bool set = config_osversion_set();
  return display_onset_delay(set, set ? config_osversion() : 0, composited_, alleg_refresh_time());
}

bool display_composited() { return composited_; }

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
  if (present_on()) {
    // Drawing not handed over by its drawer reaches the window now.
    std::lock_guard<std::mutex> hold(present_lock_);
    if (dirty_) present_locked(0, 0);
    else present_poll();
  }
}

bool display_key_latest(uint32_t server_ms, unsigned long long mono_us, unsigned long long margin_us,
                        unsigned long long& latest_us) {
  // X time is ms in 32 bits: the stamp is taken as the last moment of that
  // ms that lies at most a second back from now.
  const uint32_t back = static_cast<uint32_t>(mono_us / 1000u) - server_ms;
  if (back > 1000u || mono_us / 1000u < back) return false;
  latest_us = (mono_us / 1000u - back) * 1000u + 1000u + margin_us;
  return true;
}

void display_key_down() { ++keys_taken_; }

bool display_key_press_latest(unsigned long long& test_us) {
  const unsigned long long at = key_latest_us_;
  key_latest_us_ = 0;
  if (at == 0) return false;
  test_us = alleg_utimer_at(at);
  return true;
}

void display_take_input() {
  key_latest_us_ = 0;
  if (!allegro_on_x() || input_taken_) return;
  input_thread_ = pthread_self();
  _xwin_input_handler = input_pass;
  input_taken_ = true;
}

void display_release_input() {
  key_latest_us_ = 0;
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
    vsync_source_ = present_on() ? "present" : drm_open() ? "drm" : "simulated";
    if (present_on()) alleg_message("retrace: next MSC through X Present");
    else if (drm_fd_ >= 0) alleg_message("retrace: vertical blank from DRM");
    else alleg_message("retrace: simulated at %d Hz", alleg_refresh_rate());
  }
  if (present_on()) {
    std::lock_guard<std::mutex> hold(present_lock_);
    if (present_wait_next() == 0) return;
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
