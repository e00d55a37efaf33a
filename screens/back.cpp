#include "screens/back.h"

#include "platform/alleg.h"
#include "services/files.h"

background::background(const char* name) : bmp(0, name, nullptr, 0, -1, 0, 0, 0.5, 0.5) { map_name(); }

background::background(const char* line, int& err) : bmp(line, err) { map_name(); }

background::~background() = default;

void background::map_name() {
  if (datei)
    if (const char* mapped = files_get(datei)) stim_assign(datei, mapped);
}

int background::show() {
  if (bmp::show() != 0) return -1;
  alleg_save();
  return 0;
}

stim* _background(const char* line) { return stim_make<background>(line); }
