// How one parallel port's four registers are reached. A backend opens a port
// from the text of its "lpt%d-device" key and hands back a table of
// functions; lpt.cpp routes register accesses through it.
#pragma once

struct lpt_backend {
  // reg 0..3: data, status, control, second control; raw register values
  // as a PC port shows them (busy inverted, and so on).
  int (*read)(void* port, int reg);
  void (*write)(void* port, int reg, unsigned char value);
  void (*flush)(void* port);
  void (*close)(void* port);
};

struct lpt_opened {
  const lpt_backend* ops;  // null: not opened
  void* port;
  unsigned short base;     // address the port answers at
};

// A regular file as a simulated port (created with idle levels if missing).
lpt_opened lpt_sim_open(int index, const char* path);
// The simulated port's table, to tell its ports from others.
const lpt_backend* lpt_sim_ops();
// An operating-system port: "auto" is the index-th port found, else a port
// name (parport0) or device path (/dev/parport0).
lpt_opened lpt_ppdev_open(int index, const char* device);
// Whether the kernel drives any parallel port on this machine.
bool lpt_ppdev_any();
// Real port I/O at an address; 0 on success, -1 when refused (logged).
int lpt_io_permit(unsigned short address, int count);
unsigned char lpt_io_in(unsigned short address);
void lpt_io_out(unsigned short address, unsigned char value);
