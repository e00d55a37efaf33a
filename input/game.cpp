#include "input/game.h"

#include <cerrno>
#include <cstdio>

#include "ports/lpt.h"
#include "ports/lpt_backend.h"
#include "services/config.h"
#include "services/log.h"

namespace {
unsigned short address_ = 0;

int fail(int error, const char* text) {
  errno = error;
  alleg_perror(text);
  return -1;
}
}  // namespace

int game_init() { return game_init(config_string("game-port", "0x201")); }

int game_init(const char* text) {
  if (!text) text = "";
  unsigned short address = 0;
  if (sscanf(text, "%hu", &address) != 1 || address == 0) {
    address = 0;
    if (sscanf(text, "%hx", &address) != 1 || address == 0) return fail(EINVAL, text);
  }
  return game_init(address);
}

int game_init(unsigned short address) {
  address_ = address;
  return 0;
}

int game_read_port(unsigned char& value) {
  if (address_ == 0) return fail(EINVAL, "game_port");
  // Port I/O needs the kernel's permission (root or CAP_SYS_RAWIO).
  if (lpt_io_permit(address_, 1) != 0) return fail(EACCES, "game_port");
  value = static_cast<unsigned char>(inportb(address_));
  return 0;
}

unsigned short game_address() { return address_; }
