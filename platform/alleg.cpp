#include "platform/alleg.h"

#include <allegro.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/priority.h"
#include "platform/timer.h"
#include "services/log.h"

namespace {
int log_flag_ = 1;
int exit_code_ = -1;
int gfx_depth_ = 0;
int sound_flag_ = 0;
FONT* old_font_ = nullptr;
BITMAP* backup_ = nullptr;
BITMAP* central_ = nullptr;

void fatal(const char* what) {
  allegro_message("%s: %s\n", what, allegro_error);
  alleg_error(what, allegro_error);
}
}  // namespace

int alleg_init(int with_sound) {
  MySetThreadExecutionState(0x80000003u);
  set_uformat(U_UTF8);
  if (log_flag_) log_init();
  if (install_allegro(SYSTEM_AUTODETECT, &errno, atexit) != 0) {
    fatal("allegro_init");
    return -1;
  }
  alleg_message("Running on Linux %d.%d", os_version, os_revision);
  if (install_keyboard() != 0) {
    fatal("install_keyboard");
    return -1;
  }
  if (cpu_family == 3 || cpu_family == 4) alleg_warning("alleg_init: You need at least a 586 processor");
  if (install_timer() != 0) {
    fatal("install_timer");
    return -1;
  }
  if (install_int(alleg_timer_handler, 1) != 0) {
    fatal("install_timer_handler");
    return -1;
  }
  alleg_timer_start();
  if (alleg_rdtsc_init() != 0) return -1;
  alleg_timer_cont();
  if (install_mouse() == -1 && poll_mouse() != 0) fputs("Warning: no mouse found.\n", stderr);
  sound_flag_ = 0;
  (void)with_sound;
  return 0;
}

int alleg_gfx(int depth, int width, int height, int min_width, int min_height, int rate) {
  if (depth < 15) {
    const char* text = "Minimum screen depth: 15 bpp. Please adjust in Options/Screen.";
    allegro_message("%s\n", text);
    alleg_error(text);
    return -1;
  }
  if (width < min_width || height < min_height)
    alleg_message("Minimum screen resolution: %d x %d", min_width, min_height);
  gfx_depth_ = depth;
  alleg_refresh_rate(rate > 0 ? rate : 60);
  atexit(alleg_exit);
  alleg_prio_class(HIGH_PRIORITY_CLASS);
  alleg_message("Using high priority");
  return alleg_high();
}

BITMAP* getscreen() { return central_ ? central_ : screen; }

int alleg_save() {
  if (!backup_) return -1;
  blit(getscreen(), backup_, 0, 0, 0, 0, backup_->w, backup_->h);
  return 0;
}

void alleg_switch_out() {}
void alleg_switch_in() {}

void alleg_exit() {
  alleg_normal();
  if (backup_) destroy_bitmap(backup_);
  if (central_) destroy_bitmap(central_);
  backup_ = central_ = nullptr;
  remove_keyboard();
  remove_mouse();
  remove_timer();
  alleg_logflush();
  fflush(nullptr);
  _exit(exit_code_ & 0xff);
}

int alleg_exitcode(int code) { return exit_code_ = code; }
int alleg_nolog() { return log_flag_ = 0; }
int alleg_gfx_mode() { return gfx_depth_; }
FONT* getoldfont() { return old_font_; }
