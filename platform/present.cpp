#include "platform/present.h"

#include <X11/Xlib-xcb.h>
#include <poll.h>
#include <unistd.h>
#include <xcb/present.h>
#include <xcb/xfixes.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/timer.h"
#include "services/log.h"

void present_clock::told(uint64_t msc, uint64_t ust) {
  if (!known || msc < last_msc) {
    first_msc = last_msc = msc;
    first_ust = last_ust = ust;
    known = true;
    return;
  }
  last_msc = msc;
  last_ust = ust;
}

double present_clock::period_us() const {
  // Half a second of blanks measures the period to a few parts in 10^5.
  if (known && last_msc >= first_msc + 30 && last_ust > first_ust)
    return static_cast<double>(last_ust - first_ust) / static_cast<double>(last_msc - first_msc);
  return nominal_us;
}

uint64_t present_clock::msc_at(uint64_t us) const {
  if (!known) return 0;
  const double k = std::ceil((static_cast<double>(us) - static_cast<double>(last_ust)) / period_us());
  const double msc = static_cast<double>(last_msc) + k;
  return msc < 1 ? 1 : static_cast<uint64_t>(msc);
}

uint64_t present_clock::ust_of(uint64_t msc) const {
  if (!known) return 0;
  const double us = static_cast<double>(last_ust) +
                    (static_cast<double>(msc) - static_cast<double>(last_msc)) * period_us();
  return us < 0 ? 0 : static_cast<uint64_t>(std::llround(us));
}

namespace {

// Completions of the recent frames by serial; a block reads its own long
// before they are overwritten.
const unsigned kRing = 4096;
struct entry {
  unsigned serial = 0;
  unsigned replaced_by = 0;  // a later frame for the same blank took its place
  int tag = 0;
  bool timed = false;
  double notice_us = 0;  // from handing it over to its blank, as foreseen
  bool done = false;
  present_done d;
};
entry ring_[kRing];

const int kPool = 8;
// Each buffer keeps the part of the canvas drawn since it was last filled,
// so that only that part is copied when it is used again.
struct box {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;  // empty when x0 >= x1
  void add(int x, int y, int w, int h) {
    if (x0 >= x1) {
      x0 = x, y0 = y, x1 = x + w, y1 = y + h;
      return;
    }
    x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x + w), y1 = std::max(y1, y + h);
  }
};
struct buffer {
  xcb_pixmap_t pixmap = 0;
  bool busy = false;
  box stale;
};
buffer pool_[kPool];
// What the window lacks: drawn since the last frame was handed over, and
// what the frames not yet shown bring (a frame skipped for a later one
// leaves its part to that one).
box unsent_, pending_;
int frames_pending_ = 0;

xcb_connection_t* c_ = nullptr;
xcb_special_event_t* special_ = nullptr;
xcb_window_t window_ = 0;
xcb_pixmap_t canvas_ = 0;
xcb_gcontext_t gc_ = 0;
uint16_t width_ = 0, height_ = 0;
unsigned serial_ = 0;  // the latest frame's
unsigned wait_serial_ = 0;
bool composited_ = false, composited_told_ = false;
uint64_t queued_msc_ = 0;
long missed_ = 0;
// How long before its vertical blank a frame must reach the server. A
// server may count a blank as begun well before the moment it tells for it
// (Xvfb: half a period); it is measured at the start and grows with every
// frame that came late for want of notice.
double lead_us_ = 2000;
bool measuring_ = false;
bool starved_told_ = false;
int last_late_tag_ = -1;
present_clock clock_;

// Serials of retrace waits and of the first look at the clock are odd,
// those of frames even: the two never meet in the ring.
const unsigned kWaitBit = 1u;

entry& slot_of(unsigned serial) { return ring_[(serial >> 1) % kRing]; }

void completed(const xcb_present_complete_notify_event_t* e) {
  if (e->mode != XCB_PRESENT_COMPLETE_MODE_SKIP && e->ust) clock_.told(e->msc, e->ust);
  if (e->kind == XCB_PRESENT_COMPLETE_KIND_NOTIFY_MSC) {
    if (e->serial == wait_serial_) wait_serial_ = 0;
    return;
  }
  entry& en = slot_of(e->serial);
  if (en.serial != e->serial) return;
  if (!en.done && frames_pending_ > 0) --frames_pending_;
  en.done = true;
  en.d.msc = e->msc;
  en.d.ust = e->ust;
  en.d.mode = e->mode;
  en.d.late = en.timed && e->msc > en.d.target_msc ? static_cast<int>(e->msc - en.d.target_msc) : 0;
  if (e->mode == XCB_PRESENT_COMPLETE_MODE_SKIP) return;
  if (e->msc > en.d.sent_msc && en.notice_us < clock_.period_us())
    lead_us_ = std::max(lead_us_, std::min(clock_.period_us(), en.notice_us + 1500));
  if (en.d.late > 0 && !measuring_) {
    ++missed_;
    if (en.tag != last_late_tag_) {
      last_late_tag_ = en.tag;
      char text[160];
      snprintf(text, sizeof text, "trial %d: a frame reached the screen %d frame(s) after its vertical blank (%ld missed)",
               en.tag, en.d.late, missed_);
      alleg_warning(text);
    }
  }
  if (composited_ && !composited_told_ && e->mode != XCB_PRESENT_COMPLETE_MODE_FLIP) {
    composited_told_ = true;
    alleg_warning("onset: the window is copied through a compositing manager; onsets may be late by up to two frames");
  }
}

void idle(const xcb_present_idle_notify_event_t* e) {
  for (buffer& b : pool_)
    if (b.pixmap == e->pixmap) b.busy = false;
}

void take(xcb_generic_event_t* ev) {
  const auto* g = reinterpret_cast<const xcb_present_generic_event_t*>(ev);
  if (g->evtype == XCB_PRESENT_EVENT_COMPLETE_NOTIFY)
    completed(reinterpret_cast<const xcb_present_complete_notify_event_t*>(ev));
  else if (g->evtype == XCB_PRESENT_EVENT_IDLE_NOTIFY)
    idle(reinterpret_cast<const xcb_present_idle_notify_event_t*>(ev));
  free(ev);
}

// Waits for the server's events until done() or about timeout_ms.
template <class Done>
bool wait_until(Done done, int timeout_ms) {
  const uint64_t end = alleg_system_us() + static_cast<uint64_t>(timeout_ms) * 1000u;
  for (;;) {
    present_poll();
    if (done()) return true;
    const uint64_t now = alleg_system_us();
    if (now >= end || xcb_connection_has_error(c_)) return false;
    pollfd p{xcb_get_file_descriptor(c_), POLLIN, 0};
    poll(&p, 1, static_cast<int>((end - now) / 1000u) + 1);
  }
}

void ask_msc(uint64_t target, uint64_t divisor) {
  serial_ = (serial_ + 2) & ~kWaitBit;
  wait_serial_ = serial_ | kWaitBit;
  xcb_present_notify_msc(c_, window_, wait_serial_, target, divisor, 0);
  xcb_flush(c_);
}

// Hands frames over ever sooner before their blank until two in a row are
// on time; the lead kept has a margin of 3 ms over that. A server that is
// not ready 2 ms ahead is most likely one that counts a blank as begun half
// a period early (Xvfb): the search goes on from there, which keeps
// start-up short.
void measure_lead() {
  measuring_ = true;
  int on_time = 0;
  const double first = 2000;
  for (double lead = first; lead < clock_.period_us();
       lead = on_time ? lead : lead == first ? std::max(lead + 2000, clock_.period_us() / 2 + 1000) : lead + 2000) {
    const uint64_t m = clock_.msc_at(alleg_system_us() + static_cast<uint64_t>(lead) + 3000);
    const uint64_t at = clock_.ust_of(m) - static_cast<uint64_t>(lead);
    for (uint64_t now; (now = alleg_system_us()) < at;)
      if (at - now > 1500) usleep(static_cast<useconds_t>(at - now - 1000));
    lead_us_ = 0;
    const unsigned f = present_frame(m, 0);
    present_done d;
    if (!f || !wait_until([f, &d] { return present_result(f, d) == 1; }, 200)) break;
    on_time = d.late == 0 ? on_time + 1 : 0;
    if (on_time == 2) {
      lead_us_ = lead + 3000;
      measuring_ = false;
      return;
    }
  }
  lead_us_ = clock_.period_us();
  measuring_ = false;
}

}  // namespace

double present_lead_us() { return lead_us_; }

bool present_init(_XDisplay* dpy, unsigned long window, bool composited) {
  if (c_) present_exit();
  if (!dpy || !window) return false;
  xcb_connection_t* c = XGetXCBConnection(dpy);
  const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_present_id);
  if (!ext || !ext->present) return false;
  xcb_present_query_version_reply_t* v =
      xcb_present_query_version_reply(c, xcb_present_query_version(c, 1, 2), nullptr);
  if (!v) return false;
  free(v);
  // Frames name the part of them that changed in an XFixes region.
  xcb_xfixes_query_version_reply_t* fv =
      xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 5, 0), nullptr);
  if (!fv) return false;
  free(fv);
  xcb_get_geometry_reply_t* g = xcb_get_geometry_reply(c, xcb_get_geometry(c, static_cast<xcb_window_t>(window)), nullptr);
  if (!g) return false;
  c_ = c;
  window_ = static_cast<xcb_window_t>(window);
  width_ = g->width;
  height_ = g->height;
  const uint8_t depth = g->depth;
  free(g);
  composited_ = composited;
  composited_told_ = false;
  clock_ = present_clock{};
  clock_.nominal_us = 1e6 / (alleg_refresh_rate() > 0 ? alleg_refresh_rate() : 60);
  for (entry& e : ring_) e = entry{};
  unsent_ = pending_ = box{};
  unsent_.add(0, 0, width_, height_);
  frames_pending_ = 0;

  const xcb_present_event_t eid = xcb_generate_id(c_);
  special_ = xcb_register_for_special_xge(c_, &xcb_present_id, eid, nullptr);
  xcb_present_select_input(c_, eid, window_,
                           XCB_PRESENT_EVENT_MASK_COMPLETE_NOTIFY | XCB_PRESENT_EVENT_MASK_IDLE_NOTIFY);
  canvas_ = xcb_generate_id(c_);
  xcb_create_pixmap(c_, depth, canvas_, window_, width_, height_);
  gc_ = xcb_generate_id(c_);
  const uint32_t values[] = {0, 0};
  xcb_create_gc(c_, gc_, canvas_, XCB_GC_FOREGROUND | XCB_GC_GRAPHICS_EXPOSURES, values);
  const xcb_rectangle_t all{0, 0, width_, height_};
  xcb_poly_fill_rectangle(c_, canvas_, gc_, 1, &all);
  for (buffer& b : pool_) {
    b = buffer{};
    b.pixmap = xcb_generate_id(c_);
    b.stale.add(0, 0, width_, height_);
    xcb_create_pixmap(c_, depth, b.pixmap, window_, width_, height_);
  }
  // Where the vertical blanks are: one completion tells.
  ask_msc(0, 0);
  if (!wait_until([] { return wait_serial_ == 0; }, 500)) {
    alleg_warning("present: the server told no vertical blank");
    present_exit();
    return false;
  }
  queued_msc_ = 0;
  measure_lead();
  return true;
}

void present_exit() {
  if (!c_) return;
  if (!xcb_connection_has_error(c_)) {
    for (buffer& b : pool_)
      if (b.pixmap) xcb_free_pixmap(c_, b.pixmap);
    if (canvas_) xcb_free_pixmap(c_, canvas_);
    if (gc_) xcb_free_gc(c_, gc_);
    xcb_flush(c_);
  }
  for (buffer& b : pool_) b = buffer{};
  if (special_) xcb_unregister_for_special_event(c_, special_);
  special_ = nullptr;
  canvas_ = gc_ = 0;
  c_ = nullptr;
}

bool present_on() { return c_ != nullptr; }

void present_drawn(int x, int y, int w, int h) {
  for (buffer& b : pool_) b.stale.add(x, y, w, h);
  unsent_.add(x, y, w, h);
}
unsigned long present_canvas() { return canvas_; }
long present_missed() { return missed_; }

void present_poll() {
  if (!special_) return;
  while (xcb_generic_event_t* ev = xcb_poll_for_special_event(c_, special_)) take(ev);
}

namespace {

// Hands a copy of the canvas over for blank target (0: the next); the
// frames still waiting for that same blank are replaced by it.
unsigned send(uint64_t target, uint64_t next, bool timed, int tag, uint64_t now) {
  buffer* b = nullptr;
  for (buffer& x : pool_)
    if (!x.busy) b = &x;
  // Never wait for one: what was drawn goes with the next frame.
  if (!b) {
    if (!starved_told_) alleg_warning("present: frames asked faster than the server shows them; some go with the next");
    starved_told_ = true;
    return 0;
  }
  serial_ = (serial_ + 2) & ~kWaitBit;
  if (serial_ == 0) serial_ = 2;
  const uint64_t blank = target ? target : next;
  for (entry& e : ring_)
    if (e.serial && !e.done && e.d.sent_msc == blank && !e.replaced_by) e.replaced_by = serial_;
  entry& en = slot_of(serial_);
  en = entry{};
  en.serial = serial_;
  en.tag = tag;
  en.timed = timed;
  en.d.target_msc = blank;
  en.d.sent_msc = blank;
  en.notice_us = static_cast<double>(clock_.ust_of(blank)) - static_cast<double>(now);
  const box& st = b->stale;
  if (st.x0 < st.x1)
    xcb_copy_area(c_, canvas_, b->pixmap, gc_, static_cast<int16_t>(st.x0), static_cast<int16_t>(st.y0),
                  static_cast<int16_t>(st.x0), static_cast<int16_t>(st.y0), static_cast<uint16_t>(st.x1 - st.x0),
                  static_cast<uint16_t>(st.y1 - st.y0));
  b->stale = box{};
  box update = frames_pending_ > 0 ? pending_ : box{};
  if (unsent_.x0 < unsent_.x1) update.add(unsent_.x0, unsent_.y0, unsent_.x1 - unsent_.x0, unsent_.y1 - unsent_.y0);
  pending_ = update;
  unsent_ = box{};
  ++frames_pending_;
  xcb_xfixes_region_t region = 0;
  if (update.x0 < update.x1) {
    region = xcb_generate_id(c_);
    const xcb_rectangle_t r{static_cast<int16_t>(update.x0), static_cast<int16_t>(update.y0),
                            static_cast<uint16_t>(update.x1 - update.x0), static_cast<uint16_t>(update.y1 - update.y0)};
    xcb_xfixes_create_region(c_, region, 1, &r);
  }
  xcb_present_pixmap(c_, window_, b->pixmap, serial_, 0, region, 0, 0, 0, 0, 0, XCB_PRESENT_OPTION_NONE, target, 0, 0,
                     0, nullptr);
  if (region) xcb_xfixes_destroy_region(c_, region);
  b->busy = true;
  return serial_;
}

}  // namespace

unsigned present_frame(uint64_t target_msc, int tag) {
  if (!c_) return 0;
  present_poll();
  // A frame for no particular blank goes at the next (it is never late); a
  // timed one no sooner than the server can take it.
  const bool timed = target_msc != 0;
  const uint64_t asked = target_msc;
  const uint64_t now = alleg_system_us();
  const uint64_t next = clock_.msc_at(now);
  if (timed) target_msc = std::max(target_msc, clock_.msc_at(now + static_cast<uint64_t>(lead_us_)));
  const unsigned f = send(target_msc, next, timed, tag, now);
  if (!f) return 0;
  // Handed over too late for the blank asked for (the drawing took long,
  // the loop came late): it is late by the blanks between.
  if (timed) slot_of(f).d.target_msc = asked;
  // A frame already waiting for a later blank holds older drawing than this
  // one: the canvas goes again for that blank, in its place.
  const uint64_t mine = timed ? target_msc : next;
  if (queued_msc_ > mine && queued_msc_ >= next) {
    send(queued_msc_, next, false, tag, now);
  } else {
    queued_msc_ = mine;
  }
  xcb_flush(c_);
  return f;
}

int present_result(unsigned serial, present_done& d) {
  present_poll();
  for (int hops = 0; hops < 8; ++hops) {
    if (serial == 0 || (serial & kWaitBit)) return -1;
    const entry& en = slot_of(serial);
    if (en.serial != serial) return -1;
    if (en.done && en.d.mode != XCB_PRESENT_COMPLETE_MODE_SKIP) {
      d = en.d;
      return 1;
    }
    if (!en.replaced_by) {
      d = en.d;
      return en.done ? 1 : 0;
    }
    serial = en.replaced_by;
  }
  return -1;
}

uint64_t present_msc_at(uint64_t system_us) {
  present_poll();
  return clock_.msc_at(system_us);
}

uint64_t present_ust_of(uint64_t msc) { return clock_.ust_of(msc); }

int present_wait_next() {
  if (!c_) return -1;
  ask_msc(0, 1);
  return wait_until([] { return wait_serial_ == 0; }, 200) ? 0 : -1;
}
