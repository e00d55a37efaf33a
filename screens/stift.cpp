#include "screens/stift.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ports/lpt.h"
#include "services/config.h"
#include "services/log.h"

namespace {
stift_port_ port_ = stift_lpt1;
unsigned char last_ = 0;  // the pen byte, restored when the port is started

int fail(const char* text) {
  errno = EINVAL;
  alleg_perror(text);
  return -1;
}
}  // namespace

unsigned char stift_byte(const int* lines) {
  unsigned byte = 0;
  for (int i = 0; i < 8; ++i) byte += static_cast<unsigned>(lines[i]) << i;
  return static_cast<unsigned char>(byte);
}

int stift_index(const char* list, int* lines, const char* fmt) {
  for (const char* p = list; p && *p; p = strchr(p, ',')) {
    if (*p == ',') {
      ++p;
      if (*p == ',' || *p == 0) continue;  // empty pieces are skipped
    }
    char* end = nullptr;
    long n = strtol(p, &end, 10);
    if (end == p) n = 0;
    if (n < 1 || n > 8) {
      alleg_error(fmt, static_cast<int>(n < INT_MIN ? INT_MIN : n > INT_MAX ? INT_MAX : n));
      return -1;
    }
    lines[n - 1] = 1;
  }
  return 0;
}

int stift_port_of(const char* text) {
  static const struct {
    const char* name;
    int port;
  } names[] = {{"lpt1", 0}, {"LPT1", 0}, {"lpt2", 1}, {"LPT2", 1},
               {"lpt3", 2}, {"LPT3", 2}, {"none", 3}, {"NONE", 3}};
  if (!text) return -1;
  for (const auto& n : names)
    if (strstr(text, n.name)) return n.port;
  return -1;
}

int stift_init(stift_port_ port) {
  port_ = port;
  switch (port) {
    case stift_lpt1:
    case stift_lpt2:
    case stift_lpt3:
      if (lpt_absent(port)) return -1;
      return lpt_init(port, last_, 0) == 0 ? 0 : -1;
    case stift_none:
      return 0;
  }
  return fail("stift/port");
}

int stift_init(const char* port) {
  const int p = stift_port_of(port);
  if (p < 0) return fail(port ? port : "(null)");
  return stift_init(static_cast<stift_port_>(p));
}

stift_port_ stift_port() { return port_; }

int stift_init() { return stift_init(config_string("stift-port", "lpt1")); }

int stift_on(const int* lines) {
  last_ = stift_byte(lines);
  if (port_ == stift_none) {
    alleg_error("stift: no valid LPT defined");
    return -1;
  }
  lpt_set_port(port_, last_);
  return 0;
}

int stift_off(const int*) {
  last_ = 0;
  if (port_ == stift_none) return fail("stift-off: port");
  return lpt_set_port(port_, 0) == 0 ? 0 : -1;
}

void stift_reset() {
  port_ = stift_lpt1;
  last_ = 0;
}

stift::stift(const char* line, int& err) : stim(line, err), lines{} {
  const int parsed = _stim(line);
  err = (err == 0 && parsed == 0) ? 0 : 1;
}

stift::~stift() = default;

int stift::set(const char* token) {
  char list[200];
  if (sscanf(token, "index=%199s", list) == 1) return stift_index(list, lines, "stift: ind=%d");
  return stim::set(token);
}

int stift::show() {
  if (stift_on(lines)) return -1;
  return stim::show();
}

int stift::hide() {
  if (stift_off(lines)) return -1;
  return stim::hide();
}

stim* _stift(const char* attributes) { return stim_make<stift>(attributes); }
