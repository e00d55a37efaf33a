#include "ports/trig_out.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <allegro.h>

#include "platform/timer.h"
#include "ports/lpt.h"
#include "ports/trig_serial.h"
#include "services/argument.h"
#include "services/config.h"
#include "services/log.h"
#include "services/results.h"

namespace {
trig_out_port_ port_ = trig_out_none;
int invert_ = 1;
unsigned long long width_us_ = 3000;
FILE* file_ = nullptr;
bool quiet_ = false;  // switched off, and said so once
int com_ = 1;
long baud_ = 115200;
trig_out_mode_ mode_ = trig_out_byte;

bool has_any(const char* text, const char* a, const char* b, const char* c = nullptr) {
  return strstr(text, a) || strstr(text, b) || (c && strstr(text, c));
}

// The n of "com<n>" or "COM<n>" in text, 0 when there is none.
int com_number(const char* text) {
  for (const char* name : {"com", "COM"})
    for (const char* at = strstr(text, name); at; at = strstr(at + 1, name)) {
      int n = 0;
      for (const char* d = at + 3; *d >= '0' && *d <= '9' && n < 1000; ++d) n = n * 10 + (*d - '0');
      if (n >= 1 && n < 1000) return n;
    }
  return 0;
}

// The start-up line: which output, its device and how it pulses.
void log_output() {
  char text[600];
  const char* sense = file_ ? "marker only (trigger value file)" : invert_ ? "inverted" : "not inverted";
  if (port_ == trig_out_com)
    snprintf(text, sizeof text, "trigger output: com%d on %.400s, %ld bit/s, %s mode, %s", com_, trig_serial_device(), baud_,
             mode_ == trig_out_pulse ? "pulse" : "byte", sense);
  else
    snprintf(text, sizeof text, "trigger output: lpt%d, %s", static_cast<int>(port_) + 1, sense);
  alleg_message(static_cast<const char*>(text));
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
  if (const int n = com_number(port)) {
    p = trig_out_com;
    const long baud = config_long("trigger-serial-baud", 115200);
    const char* mode = config_string("trigger-serial-mode", "byte");
    const bool pulse = strcmp(mode, "pulse") == 0 || strcmp(mode, "PULSE") == 0;
    if (!pulse && strcmp(mode, "byte") != 0 && strcmp(mode, "BYTE") != 0) {
      char text[200];
      snprintf(text, sizeof text, "trigger-serial-mode %.100s (byte or pulse)", mode);
      return fail(text);
    }
    trig_out_serial(n, baud, pulse ? trig_out_pulse : trig_out_byte);
  }
  return trig_out_init(p, inv, static_cast<long>(width_us_), file);
}

int trig_out_init(trig_out_port_ port, int invert, long width_us, const char* file) {
  invert_ = invert;
  width_us_ = static_cast<unsigned long long>(static_cast<long long>(width_us));
  port_ = port;
  quiet_ = false;
  trig_serial_close();
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
      if (lpt_absent(port) || lpt_init(port, invert ? 0xff : 0x00, 0) != 0) return -1;
      log_output();
      return 0;
    case trig_out_com:
      if (trig_serial_open(com_, baud_) != 0) return -1;
      log_output();
      // In byte mode the interface holds what it got last: the rest level
      // the parallel port starts with.
      return mode_ == trig_out_byte ? trig_serial_put(invert ? 0xff : 0x00) : 0;
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
    case trig_out_com:
      return trig_serial_put(byte);
    default:
      if (quiet_) return -1;
      return fail("trig_out/port");
  }
}

int trig_out_clear() { return trig_out_set(0); }

int trig_out_send(unsigned char code) {
  if (trig_out_set(code) != 0) return -1;
  if (port_ != trig_out_com || mode_ == trig_out_byte) {
    alleg_urest(width_us_);
    if (trig_out_clear() != 0) return -1;
  }
  if (file_) fprintf(file_, "%ld %d\n", alleg_get_timer(), code);
  return 0;
}

void trig_out_serial(int number, long baud, trig_out_mode_ mode) {
  com_ = number;
  baud_ = baud;
  mode_ = mode;
}

int trig_out_valid() { return port_ != trig_out_none; }
int trig_out_lpt() { return port_ == trig_out_none || port_ == trig_out_com ? -1 : static_cast<int>(port_); }
trig_out_port_ trig_out_port() { return port_; }
int trig_out_saving() { return file_ != nullptr; }

void trig_out_disable(bool said) {
  port_ = trig_out_none;
  quiet_ = said;
  trig_serial_close();
}

void trig_out_done() {
  if (file_) fclose(file_);
  file_ = nullptr;
}

void trig_out_reset() {
  trig_out_done();
  trig_out_disable();
  invert_ = 1;
  width_us_ = 3000;
  trig_out_serial(1, 115200, trig_out_byte);
}
