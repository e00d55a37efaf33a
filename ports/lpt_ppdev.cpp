// Parallel ports of the operating system through libieee1284 (ppdev where
// the kernel has it, else direct access). The library speaks IEEE 1284 line
// levels; the program expects the raw PC registers, so the inverted status
// and control lines are turned back here.
#include <ieee1284.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ports/lpt_backend.h"
#include "services/log.h"

namespace {
struct ppdev {
  parport* port;
  bool warned_reg3;
};

// The register at base + 3 belongs to the EPP modes, which a claimed port
// does not offer as a plain register.
void unreachable(ppdev* d) {
  if (d->warned_reg3) return;
  d->warned_reg3 = true;
  char text[200];
  snprintf(text, sizeof text, "lpt: the second control register is not reachable through %s", d->port->name);
  alleg_error(static_cast<const char*>(text));
}

int read(void* p, int reg) {
  ppdev* d = static_cast<ppdev*>(p);
  int v;
  switch (reg) {
    case 0: v = ieee1284_read_data(d->port); break;
    case 1:
      v = ieee1284_read_status(d->port);
      if (v >= 0) v = (v ^ S1284_INVERTED) & 0xf8;
      break;
    case 2:
      v = ieee1284_read_control(d->port);
      if (v >= 0) v = (v ^ C1284_INVERTED) & 0xff;
      break;
    default:
      unreachable(d);
      return 0;
  }
  return v < 0 ? 0xff : v;
}

void write(void* p, int reg, unsigned char value) {
  ppdev* d = static_cast<ppdev*>(p);
  switch (reg) {
    case 0: ieee1284_write_data(d->port, value); break;
    case 2: ieee1284_write_control(d->port, static_cast<unsigned char>(value ^ C1284_INVERTED)); break;
    case 3: unreachable(d); break;
    default: break;  // the status register is read-only
  }
}

void flush(void*) {}

void close_port(void* p) {
  ppdev* d = static_cast<ppdev*>(p);
  ieee1284_release(d->port);
  ieee1284_close(d->port);
  ieee1284_unref(d->port);
  delete d;
}

const lpt_backend kPpdev = {read, write, flush, close_port};

bool matches(const parport* p, const char* device) {
  if (strcmp(p->name, device) == 0) return true;
  if (p->filename && strcmp(p->filename, device) == 0) return true;
  return strncmp(device, "/dev/", 5) == 0 && strcmp(p->name, device + 5) == 0;
}

lpt_opened none() { return lpt_opened{nullptr, nullptr, 0}; }

// Only ports the kernel drives (ppdev) count: the library also lists the
// usual ISA addresses whether a port is there or not, and writing to those
// blindly is left to an explicit address. Sorted by name; at most 16.
int kernel_ports(const parport_list& list, parport* known[16]) {
  int n = 0;
  for (int i = 0; i < list.portc && n < 16; ++i)
    if (list.portv[i]->filename && strncmp(list.portv[i]->filename, "/dev/parport", 12) == 0) known[n++] = list.portv[i];
  std::sort(known, known + n, [](const parport* a, const parport* b) { return strcmp(a->name, b->name) < 0; });
  return n;
}

void report(int index, const char* device, const char* what) {
  char text[300];
  snprintf(text, sizeof text, "lpt%d: %s: %s", index + 1, device, what);
  alleg_error(static_cast<const char*>(text));
}
}  // namespace

lpt_opened lpt_ppdev_open(int index, const char* device) {
  parport_list list{0, nullptr};
  if (ieee1284_find_ports(&list, 0) != E1284_OK) {
    report(index, device, "cannot list the parallel ports");
    return none();
  }
  parport* port = nullptr;
  if (strcmp(device, "auto") == 0) {
    parport* known[16];
    if (index < kernel_ports(list, known)) port = known[index];
  } else {
    for (int i = 0; i < list.portc && !port; ++i)
      if (matches(list.portv[i], device)) port = list.portv[i];
  }
  if (!port) {
    ieee1284_free_ports(&list);
    report(index, device, "no such parallel port (set lpt-device to a port, an address or a file)");
    return none();
  }
  ieee1284_ref(port);
  ieee1284_free_ports(&list);
  int caps = 0;
  int r = ieee1284_open(port, F1284_EXCL, &caps);
  if (r == E1284_OK) {
    r = ieee1284_claim(port);
    if (r != E1284_OK) ieee1284_close(port);
  }
  if (r != E1284_OK) {
    const int e = errno;
    if (e == ENXIO || e == EBUSY)
      report(index, port->name, "held by another driver; unload the printer driver with 'modprobe -r lp'");
    else if (e == EACCES || e == EPERM)
      report(index, port->name, "permission denied; add the user to the lp group");
    else
      report(index, port->name, r == E1284_INIT ? "cannot open the port" : "cannot claim the port");
    ieee1284_unref(port);
    return none();
  }
  char text[300];
  snprintf(text, sizeof text, "lpt%d: %s (%s) at 0x%lx", index + 1, port->name, port->filename ? port->filename : "direct",
           port->base_addr);
  alleg_message(static_cast<const char*>(text));
  return lpt_opened{&kPpdev, new ppdev{port, false}, static_cast<unsigned short>(port->base_addr)};
}

bool lpt_ppdev_any() {
  parport_list list{0, nullptr};
  if (ieee1284_find_ports(&list, 0) != E1284_OK) return false;
  parport* known[16];
  const bool any = kernel_ports(list, known) > 0;
  ieee1284_free_ports(&list);
  return any;
}
