#include "screens/info.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/alleg.h"
#include "platform/font.h"
#include "services/log.h"

namespace {
info_counts counts_{0, 0, 0, 0};
const char* const kFormat = "Block: %d - Richtige: %d - Fehler: %d - Auslassungen: %d";
}  // namespace

int info_richtig() {
  ++counts_.richtig;
  return 0;
}
int info_fehler() {
  ++counts_.fehler;
  return 0;
}
int info_auslassung() {
  ++counts_.auslassung;
  return 0;
}
info_counts info_counters() { return counts_; }
void info_next_block() { counts_ = {counts_.block + 1, 0, 0, 0}; }
void info_reset() { counts_ = {0, 0, 0, 0}; }

info::info(const char* fmt) : instrukt(static_cast<const char*>(nullptr)), format(strdup(fmt ? fmt : kFormat)) {}

info::info(const char* line, int& error) : instrukt(line, error), format(strdup(kFormat)) {
  const int again = _stim(line);
  error = (error == 0 && again == 0) ? 0 : 1;
}

info::~info() {
  free(format);
  free(extra);
}

int info::set(const char* token) {
  char text[200];
  if (sscanf(token, "extra=%199[^\n;]", text) == 1) {
    stim_assign(extra, text);
    return 0;
  }
  return instrukt::set(token);
}

int info::prepare() {
  if (bmp::prepare() != 0) return -1;
  BITMAP* scr = getscreen();
  const int w = scr ? scr->w : 1024, h = scr ? scr->h : 768;
  if (bitmap) destroy_bitmap(bitmap);
  bitmap = create_bitmap(w, h);
  if (!bitmap) {
    alleg_error("info::prepare: create_bitmap");
    return -1;
  }
  memcpy(palette, default_palette, sizeof(PALETTE));
  clear_bitmap(bitmap);
  char text[1000];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  snprintf(text, sizeof text, format, counts_.block, counts_.richtig, counts_.fehler, counts_.auslassung);
#pragma GCC diagnostic pop
  alleg_message(static_cast<const char*>(text));
  alleg_textout(bitmap, text, 1, 0, h / 2, 255, 255, 255);
  if (extra) alleg_textout(bitmap, extra, 1, 0, h / 2 + 30, 255, 255, 255);
  info_next_block();
  return 0;
}

stim* _info(const char* line) { return stim_make<info>(line); }
