#include "screens/instrukt.h"

#include <cstdio>
#include <cstring>

#include "input/tastatur.h"
#include "platform/alleg.h"
#include "platform/priority.h"
#include "platform/signals.h"
#include "platform/timer.h"
#include "services/argument.h"
#include "services/files.h"
#include "services/log.h"

namespace {
const char* locale_ = nullptr;
}

int instrukt_init(const char* locale) {
  locale_ = locale;
  return 0;
}

int instrukt_init() { return instrukt_init(argument_get("locale", nullptr, "instrukt: no locale selected")); }

instrukt::instrukt(const char* name) : bmp(0, name, nullptr, 0, 0, 0, 0, 0.5, 0.5) { localise(); }

instrukt::instrukt(const char* line, int& error) : bmp(line, error) {
  const int again = _stim(line);
  error = (error == 0 && again == 0) ? 0 : 1;
  localise();
}

instrukt::~instrukt() = default;

void instrukt::localise() {
  if (locale_ && datei) {
    // The extension is the file's own: a dot in a folder name is not one.
    const char* slash = strrchr(datei, '/');
    const char* dot = strrchr(slash ? slash + 1 : datei, '.');
    char ext[100];
    snprintf(ext, sizeof ext, "%s", dot ? dot + 1 : "");
    char name[200];
    snprintf(name, sizeof name, "%.*s%s.%s", dot ? static_cast<int>(dot - datei) : 199, datei, locale_, ext);
    stim_assign(datei, name);
  }
  if (datei)
    if (const char* mapped = files_get(datei)) stim_assign(datei, mapped);
}

int instrukt::set(const char* token) {
  int h;
  if (sscanf(token, "hide=%d", &h) == 1) {
    hide_after = h;
    return 0;
  }
  return bmp::set(token);
}

int instrukt::show() {
  if (t1 != 0) return bmp::show();
  if (bmp::show() != 0) return -1;
  alleg_save();
  alleg_normal();
  // A key still waiting from before the page does not end it.
  while (tastatur_key()) {
    alleg_rest(50);
    alleg_rest(50);
  }
  int key = 0;
  while (!(key = tastatur_key()) && !tastatur_buttons() && !signals_stop()) {
  }
  alleg_rest(50);
  while (tastatur_buttons()) {
  }
  if (const int sig = signals_stop()) {
    alleg_message("exit (signal %d)", sig);
    alleg_timer_cont();
    return -1;
  }
  if ((key & 0xff) == 'x' || (key & 0xff) == 'X') {
    alleg_message("x pressed");
    alleg_timer_cont();
    return -1;
  }
  alleg_rest(50);
  alleg_high();
  if (hide_after) {
    if (hide() != 0) return -1;
    set_palette(default_palette);
  }
  alleg_save();
  sbmp_first();
  return 0;
}

int instrukt::speichern() const { return 0; }

stim* _instrukt(const char* line) { return stim_make<instrukt>(line); }
