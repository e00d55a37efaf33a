#include "platform/alleg.h"

#include <allegro.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/datafile.h"
#include "platform/display.h"
#include "platform/font.h"
#include "platform/priority.h"
#include "platform/signals.h"
#include "platform/sound.h"
#include "platform/timer.h"
#include "platform/utf8.h"
#include "services/config.h"
#include "services/log.h"

namespace {
int log_flag_ = 1;
int exit_code_ = -1;
int gfx_depth_ = 0;
int sound_flag_ = 0;
int want_sound_ = 0;
FONT* old_font_ = nullptr;
DATAFILE* custom_font_ = nullptr;
BITMAP* backup_ = nullptr;
BITMAP* central_ = nullptr;
unsigned saved_prio_ = 0;
bool switched_out_ = false;
bool switch_callbacks_ = false;

void fatal(const char* what) {
  allegro_message("%s: %s\n", what, allegro_error);
  alleg_error(what, allegro_error);
}

// Puts the screen saver back when the program ends before a mode was set.
void restore_display_at_exit() {
  display_screensaver_restore();
  display_exit();
}

}  // namespace

int alleg_init(int with_sound) {
  MySetThreadExecutionState(0x80000003u);
  display_init();
  display_screensaver_off();
  atexit(restore_display_at_exit);
  utf8_install();
  set_uformat(U_UTF8);
  if (log_flag_) log_init();
  if (install_allegro(SYSTEM_AUTODETECT, &errno, atexit) != 0) {
    fatal("allegro_init");
    return -1;
  }
  signals_install();
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
  // The 1 ms tick comes from a thread of our own that sleeps to absolute
  // times: Allegro's timer thread loses about 0.08 % of the time.
  if (alleg_timer_install() != 0) {
    allegro_message("install_timer_handler: %s\n", strerror(errno));
    return -1;
  }
  alleg_timer_start();
  if (alleg_rdtsc_init() != 0) return -1;
  alleg_timer_cont();
  if (install_mouse() == -1 && poll_mouse() != 0) fputs("Warning: no mouse found.\n", stderr);
  want_sound_ = with_sound;
  datafile_init();
  custom_font_ = datafile_object("ARIAL_PCX");
  if (custom_font_) {
    old_font_ = font;
    font = static_cast<FONT*>(custom_font_->dat);
  } else {
    alleg_warning("unable to load custom font");
  }
  if (alleg_fonts_init() != 0) set_gfx_mode(GFX_TEXT, 0, 0, 0, 0);
  GFX_MODE_LIST* modes = get_gfx_mode_list(GFX_XWINDOWS_FULLSCREEN);
  if (modes) destroy_gfx_mode_list(modes);
  else alleg_warning("could not determine graphics modes");
  return 0;
}

int alleg_sound_init() {
  if (!want_sound_ || sound_flag_) return 0;
  if (sound_open(allegro_error, ALLEGRO_ERROR_SIZE) != 0) {
    fatal("install_sound");
    return -1;
  }
  sound_flag_ = 1;
  return 0;
}

int alleg_gfx(int depth, int width, int height, int min_width, int min_height, int rate) {
  if (depth < 15) {
    const char* text = "Minimum screen depth: 15 bpp. Please adjust in Options/Screen.";
    allegro_message("%s\n", text);
    alleg_error(text);
    return -1;
  }
  int work_w = min_width, work_h = min_height;
  if (width < min_width || height < min_height) {
    alleg_message("Minimum screen resolution: %d x %d", min_width, min_height);
    work_w = width;
    work_h = height;
  }
  set_color_depth(depth);
  request_refresh_rate(rate);
  const char* windowed = config_string("screen-windowed", "no");
  int result;
  if (strcmp(windowed, "yes") == 0) {
    result = set_gfx_mode(GFX_AUTODETECT_WINDOWED, width, height, width, height);
  } else {
    result = set_gfx_mode(GFX_XWINDOWS_FULLSCREEN, width, height, width, height);
    if (result != 0) result = set_gfx_mode(GFX_AUTODETECT_FULLSCREEN, width, height, width, height);
  }
  if (result != 0) {
    allegro_message("set_gfx_mode(%dx%d, %d bpp, %d Hz): %s\n", width, height, depth, rate, allegro_error);
    alleg_error("set_gfx_mode", allegro_error);
    return -1;
  }
  display_take_input();
  set_display_switch_mode(SWITCH_NONE);
  if (get_display_switch_mode() != SWITCH_NONE) {
    set_display_switch_mode(SWITCH_AMNESIA);
    if (set_display_switch_callback(SWITCH_OUT, alleg_switch_out) != 0)
      alleg_warning("could not catch display switching (out)");
    if (set_display_switch_callback(SWITCH_IN, alleg_switch_in) != 0)
      alleg_warning("could not catch display switching (in)");
    switch_callbacks_ = true;
  }
  clear(screen);
  gfx_depth_ = depth;

  int measured = display_refresh_rate();
  if (measured == 0) measured = get_refresh_rate();
  if (measured == 0) {
    alleg_warning("Could not check screen rate. Assuming %d Hz.", rate);
    measured = rate;
  } else if (measured == rate) {
    alleg_message("Screen refresh rate: %d Hz", rate);
  } else {
    alleg_message("Could not set screen rate to %d Hz (result: %d Hz)", rate, measured);
  }
  alleg_refresh_rate(measured > 0 ? measured : 60);
  display_present_init();

  backup_ = create_bitmap(work_w, work_h);
  if (backup_) clear(backup_);
  else alleg_warning("not enough memory to create a screen backup store");
  central_ = create_sub_bitmap(screen, (SCREEN_W - work_w) / 2, (SCREEN_H - work_h) / 2, work_w, work_h);
  if (!central_) alleg_warning("not enough memory to create a central subscreen");
  display_flush();

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

void alleg_switch_out() {
  alleg_warning("switched out the program");
  // One stop per time away: a second switch-out without a switch-in would
  // otherwise hold the clock for good.
  if (switched_out_) return;
  switched_out_ = true;
  alleg_timer_stop();
  saved_prio_ = alleg_get_prio();
  alleg_low();
}

void alleg_switch_in() {
  alleg_warning("switched into the program");
  if (!switched_out_) return;
  switched_out_ = false;
  if (saved_prio_) {
    alleg_prio(saved_prio_);
    saved_prio_ = 0;
  }
  // While the clock stays stopped for someone else (the pause dialogue),
  // what is on the screen is theirs: the saved picture stays where it is.
  if (alleg_timer_cont() == 0 && backup_) {
    blit(backup_, getscreen(), 0, 0, 0, 0, backup_->w, backup_->h);
    display_flush();
  }
}

void alleg_exit() {
  // The log is complete before anything is torn down, and no switch
  // callback may touch the screen while it goes away.
  alleg_logflush();
  if (switch_callbacks_) {
    remove_display_switch_callback(alleg_switch_in);
    remove_display_switch_callback(alleg_switch_out);
    switch_callbacks_ = false;
  }
  display_release_input();
  alleg_fonts_exit();
  alleg_normal();
  if (central_) destroy_bitmap(central_);
  central_ = nullptr;
  display_present_exit();
  set_gfx_mode(GFX_TEXT, 0, 0, 0, 0);
  if (backup_) destroy_bitmap(backup_);
  backup_ = nullptr;
  remove_joystick();
  remove_keyboard();
  remove_mouse();
  sound_close();
  remove_sound_input();
  alleg_timer_remove();
  remove_timer();
  display_nudge_pointer();
  display_screensaver_restore();
  display_exit();
  alleg_logflush();
  fflush(nullptr);
  // A results, log, report or timing file that could not be written ends
  // the run as a failure, whatever its blocks did.
  _exit(log_outputs_ok() ? exit_code_ & 0xff : 255);
}

int alleg_exitcode(int code) { return exit_code_ = code; }
int alleg_nolog() { return log_flag_ = 0; }
int alleg_gfx_mode() { return gfx_depth_; }
int alleg_sound() { return sound_flag_; }
FONT* getoldfont() { return old_font_ ? old_font_ : font; }
