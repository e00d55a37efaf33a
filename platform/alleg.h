// Start-up and tear-down of the graphics, sound and input library, the
// drawing area, and the process exit with its code.
#pragma once

struct BITMAP;
struct FONT;

int alleg_init(int with_sound);
// Starts the sound output when alleg_init was asked for sound; it reads its
// device and period from the configuration, so it follows config_init.
// Fails like the library's install_sound: "install_sound" in the log.
int alleg_sound_init();
int alleg_gfx(int depth, int width, int height, int min_width, int min_height, int rate);
// The centred drawing area, or the whole screen when there is none.
BITMAP* getscreen();
int alleg_save();
void alleg_switch_out();
void alleg_switch_in();
// Tears everything down and ends the process with the exit code; it runs as
// an exit handler, so it ends the process without calling exit again.
void alleg_exit();
int alleg_exitcode(int code);
int alleg_nolog();
int alleg_gfx_mode();
// 1 once sound was installed.
int alleg_sound();
FONT* getoldfont();
