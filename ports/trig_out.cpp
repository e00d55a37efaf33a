#include "ports/trig_out.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <allegro.h>

#include "platform/timer.h"
#include "ports/lpt.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/log.h"
#include "services/results.h"

namespace {
trig_out_port_ port_ = trig_out_none;
int invert_ = 1;
unsigned long long width_us_ = 3000;
FILE* file_ = nullptr;

bool has_any(const char* text, const char* a, const char* b, const char* c = nullptr) {
  return strstr(text, a) || strstr(text, b) || (c && strstr(text, c));
}

int fail(const char* text) {
  errno = EINVAL;
  alleg_perror(text);
  return -1;
}
}  // namespace

int trig_out_init(int save) {
  char port[100], invert[100];
  snprintf(port, sizeof port, "%s", config_string("triggerport", "lpt1"));
  snprintf(invert, sizeof invert, "%s", config_string("trigger-invert", "yes"));
  if (!save) return trig_out_init(port, invert, nullptr);
  char def[255];
  if (const char* res = results_name()) {
    snprintf(def, sizeof def, "%s.trg", res);
  } else {
    argument_progname(def, sizeof def, "trg");
  }
  char file[255];
  snprintf(file, sizeof file, "%s", argument_get("tr", def, "Using %s for saving trigger values"));
  return trig_out_init(port, invert, file);
}

int trig_out_init(const char* port, const char* invert, const char* file) {
  if (!port) port = "";
  if (!invert) invert = "";
  trig_out_port_ p = trig_out_none;
  // All three tests are made; a later hit wins.
  if (has_any(port, "lpt1", "LPT1")) p = trig_out_lpt1;
  if (has_any(port, "lpt2", "LPT2")) p = trig_out_lpt2;
  if (has_any(port, "lpt3", "LPT3")) p = trig_out_lpt3;
  const int inv = has_any(invert, "yes", "Yes", "YES") ? 1 : 0;
  return trig_out_init(p, inv, static_cast<long>(width_us_), file);
}

int trig_out_init(trig_out_port_ port, int invert, long width_us, const char* file) {
  invert_ = invert;
  width_us_ = static_cast<unsigned long long>(static_cast<long long>(width_us));
  port_ = port;
  if (file) {
    file_ = fopen(file, "wt");
    if (!file_) {
      alleg_perror("trigfile");
      return -1;
    }
    static const bool registered = atexit(trig_out_done) == 0;
    (void)registered;
  }
  switch (port) {
    case trig_out_lpt1:
    case trig_out_lpt2:
    case trig_out_lpt3:
      return lpt_init(port, invert ? 0xff : 0x00, 0);
    case trig_out_none:
      return 0;
    default: {
      errno = EINVAL;
      char text[200];
      snprintf(text, sizeof text, "trig_out/port: %d: %s", static_cast<int>(port), strerror(errno));
      allegro_message("%s\n", text);
      return -1;
    }
  }
}

int trig_out_set(unsigned char code) {
  unsigned char byte;
  if (file_) byte = code ? 0xff : 0x7f;
  else byte = invert_ ? static_cast<unsigned char>(~code) : code;
  switch (port_) {
    case trig_out_lpt1:
    case trig_out_lpt2:
    case trig_out_lpt3:
      return lpt_set_port(port_, byte);
    default:
      return fail("trig_out/port");
  }
}

int trig_out_clear() { return trig_out_set(0); }

int trig_out_send(unsigned char code) {
  if (trig_out_set(code) != 0) return -1;
  alleg_urest(width_us_);
  if (trig_out_clear() != 0) return -1;
  if (file_) fprintf(file_, "%ld %d\n", alleg_get_timer(), code);
  return 0;
}

int trig_out_valid() { return port_ != trig_out_none; }
int trig_out_lpt() { return port_ == trig_out_none ? -1 : static_cast<int>(port_); }
int trig_out_saving() { return file_ != nullptr; }
void trig_out_disable() { port_ = trig_out_none; }

void trig_out_done() {
  if (file_) fclose(file_);
  file_ = nullptr;
}

void trig_out_reset() {
  trig_out_done();
  port_ = trig_out_none;
  invert_ = 1;
  width_us_ = 3000;
}
