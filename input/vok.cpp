#include "input/vok.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "input/serial.h"
#include "platform/timer.h"
#include "ports/lpt.h"
#include "services/config.h"
#include "services/log.h"

namespace {
_vok_port port_ = VOK_LPT1;
int keys_ = 2;

int fail(int error, const char* text) {
  errno = error;
  alleg_perror(text);
  return -1;
}

bool parallel(int port) { return port >= 0 && port <= 9; }
bool serial(int port) { return port >= 10 && port <= 59; }

// The port a name selects: the first spelling of the list below that occurs
// anywhere in it (case as written). Being a substring test in this order,
// "lpt10" finds lpt1 and "COM12" finds COM1: only the first nine ports of a
// kind can be chosen, and a serial name opens as written (or, for the
// spellings of COM10 and up, as the device path "\\.\COMn"). -1: none.
int select_port(const char* name, const char*& open_as, char (&path)[24]) {
  char s[24];
  open_as = name;
  for (int n = 1; n <= 10; ++n) {
    snprintf(s, sizeof s, "lpt%d", n);
    if (strstr(name, s)) return n - 1;
    snprintf(s, sizeof s, "LPT%d", n);
    if (strstr(name, s)) return n - 1;
  }
  for (int n = 1; n <= 9; ++n) {
    snprintf(s, sizeof s, "com%d", n);
    if (strstr(name, s)) return 9 + n;
    snprintf(s, sizeof s, "COM%d", n);
    if (strstr(name, s)) return 9 + n;
  }
  for (int n = 10; n <= 50; ++n) {
    snprintf(path, sizeof path, "\\\\.\\COM%d", n);
    open_as = path;
    snprintf(s, sizeof s, "com%d", n);
    if (strstr(name, s)) return 9 + n;
    snprintf(s, sizeof s, "COM%d", n);
    if (strstr(name, s)) return 9 + n;
    snprintf(s, sizeof s, "\\\\.\\com%d", n);
    if (n != 49 && strstr(name, s)) return 9 + n;  // this one spelling was never in the list
    if (strstr(name, path)) return 9 + n;
  }
  return -1;
}
}  // namespace

int vok_init(int keys, int arg) {
  const long maxpoll = config_int("maxpoll", 3);
  return vok_init(keys, config_string("vok-port", "lpt1"), maxpoll, arg);
}

int vok_init(int keys, const char* name, long maxpoll, int arg) {
  if (!name) name = "";
  const char* open_as = name;
  char path[24];
  const int port = select_port(name, open_as, path);
  if (port < 0) return fail(EINVAL, name);
  const int opened = parallel(port) ? lpt_init(name, 0xff, arg) : serial_init(open_as);
  if (opened != 0) return 1;
  return vok_init(keys, static_cast<_vok_port>(port), maxpoll) == 0 ? 0 : 1;
}

int vok_init(int keys, _vok_port port, long maxpoll) {
  port_ = port;
  keys_ = keys;
  unsigned char status = 0;
  if (vok_read_port(status) != 0) return -1;
  if ((status & 0x30) != 0x30) return fail(EINVAL, "vok/port: Key 1 or Key 2 pressed/Keys not connected.");
  // Reaction times are measured by polling: one reading must be fast.
  const long before = alleg_get_timer();
  if (vok_read_port(status) != 0) return -1;
  if (maxpoll >= 1 && alleg_get_timer() - before > maxpoll)
    return fail(EIO, "vok/port: Polling too slow, please check serial port driver.");
  return 0;
}

int vok_read_port(unsigned char& status) {
  if (parallel(port_)) {
    // Data lines high, so that the keys can pull the status lines.
    return lpt_set_port(port_, 0xff) == 0 && lpt_read_port(port_, status) == 0 ? 0 : 1;
  }
  // COM21..COM30 are not served here (vok_read reads every serial port).
  if ((port_ >= 10 && port_ <= 29) || (port_ >= 40 && port_ <= 59)) return serial_read_status(status);
  return fail(EINVAL, "vok/port");
}

int vok_decode(bool serial, unsigned char status, int keys, int& code) {
  const bool key1 = !(status & 0x10), key2 = !(status & 0x20), key3 = !(status & 0x08);
  if (!serial) {
    if (key1 && keys >= 1) code = 1;
    else if (key2 && keys == 1) code = 1;
    else if (key2 && keys >= 2) code = 2;
    else if (key3 && keys >= 3) code = 3;
    else code = 0;
    return 0;
  }
  if (key1 && key2 && keys <= 1) {
    code = 0;
    return -1;
  }
  if (key2 && keys == 1) code = 1;
  else if (key2 && keys >= 2) code = 2;
  else if (key1 && keys >= 1) code = 1;
  else code = 0;
  return 0;
}

int vok_read(int& code) {
  unsigned char status = 0;
  if (parallel(port_)) {
    if (vok_read_port(status) != 0) return -1;
    return vok_decode(false, status, keys_, code);
  }
  if (!serial(port_)) return fail(EINVAL, "vok/port");
  if (serial_read_status(status) != 0) return -1;
  if (vok_decode(true, status, keys_, code) != 0) return fail(EINVAL, "vok/port: Both keys pressed/Keys not connected");
  return 0;
}

int vok_ack_noinvert(int& ack) {
  unsigned char status = 0;
  if (vok_read_port(status) != 0) return -1;
  ack = (status & 0x40) ? 1 : 0;
  return 0;
}

_vok_port vok_port() { return port_; }

void vok_reset() {
  port_ = VOK_LPT1;
  keys_ = 2;
}
