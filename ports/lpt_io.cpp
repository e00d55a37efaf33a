// Real port I/O with inb/outb. The kernel must grant each address first
// (ioperm: root or CAP_SYS_RAWIO); a refusal is logged once per address and
// the access does nothing, so a missing permission never crashes the run.
#include <cerrno>
#include <cstdio>

#if defined(__x86_64__) || defined(__i386__)
#include <sys/io.h>
#define LPT_HAVE_IO 1
#endif

#include "ports/lpt_backend.h"
#include "services/log.h"

namespace {
// One bit per address: granted, and refused (reported once).
unsigned char granted_[65536 / 8];
unsigned char refused_[65536 / 8];

bool bit(const unsigned char* set, unsigned a) { return set[a >> 3] & (1u << (a & 7)); }
void mark(unsigned char* set, unsigned a) { set[a >> 3] = static_cast<unsigned char>(set[a >> 3] | (1u << (a & 7))); }

bool ask(unsigned short address, int count) {
#ifdef LPT_HAVE_IO
  if (ioperm(address, static_cast<unsigned long>(count), 1) == 0) {
    for (int i = 0; i < count && address + i < 65536; ++i) mark(granted_, address + i);
    return true;
  }
#else
  errno = ENOSYS;
#endif
  if (!bit(refused_, address)) {
    mark(refused_, address);
    char text[120];
    snprintf(text, sizeof text, "lpt/io 0x%x (needs root or CAP_SYS_RAWIO)", address);
    alleg_perror(text);
  }
  return false;
}

bool allowed(unsigned short address) { return bit(granted_, address) || (!bit(refused_, address) && ask(address, 1)); }
}  // namespace

int lpt_io_permit(unsigned short address, int count) {
  for (int i = 0; i < count; ++i)
    if (!bit(granted_, address + i)) return ask(address, count) ? 0 : -1;
  return 0;
}

unsigned char lpt_io_in(unsigned short address) {
#ifdef LPT_HAVE_IO
  if (allowed(address)) return inb(address);
#else
  allowed(address);
#endif
  return 0xff;
}

void lpt_io_out(unsigned short address, unsigned char value) {
#ifdef LPT_HAVE_IO
  if (allowed(address)) outb(value, address);
#else
  allowed(address);
  (void)value;
#endif
}
