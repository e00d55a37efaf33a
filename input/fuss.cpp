#include "input/fuss.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>

#include "input/game.h"
#include "ports/lpt.h"
#include "services/config.h"
#include "services/log.h"

namespace {
int port_ = FUSS_LPT1;
int ball_only_ = 0;
int heel_only_ = 0;

int fail(const char* text) {
  errno = EINVAL;
  alleg_perror(text);
  return -1;
}

bool contains_any(const char* text, std::initializer_list<const char*> words) {
  for (const char* w : words)
    if (strstr(text, w)) return true;
  return false;
}

int decode(bool c1, bool c4, bool c9, bool c2, bool c3, int ball_only, int heel_only) {
  const bool no_flag = !ball_only && !heel_only;
  if (no_flag && c1) return 1;
  if (no_flag && c4) return 4;
  if (no_flag && c9) return 9;
  if (!heel_only && c2) return 2;
  if (!ball_only && c3) return 3;
  return 0;
}
}  // namespace

int fuss_init() {
  const char* port = config_string("fuss-port", "lpt1");
  const char* only2 = config_string("fuss-only2", "no");
  const char* only3 = config_string("fuss-only3", "no");
  return fuss_init(port, only2, only3);
}

int fuss_init(const char* port, const char* only2, const char* only3) {
  if (!port) port = "";
  const int ball = only2 && contains_any(only2, {"yes", "YES", "Yes", "ballen", "Ballen"});
  const int heel = only3 && contains_any(only3, {"yes", "YES", "Yes", "ferse", "Ferse"});
  int chosen;
  if (contains_any(port, {"game", "GAME"})) {
    if (game_init() != 0) return 1;
    chosen = FUSS_GAME;
  } else if (contains_any(port, {"lpt1", "LPT1"})) {
    chosen = FUSS_LPT1;
  } else if (contains_any(port, {"lpt2", "LPT2"})) {
    chosen = FUSS_LPT2;
  } else if (contains_any(port, {"lpt3", "LPT3"})) {
    chosen = FUSS_LPT3;
  } else {
    return fail(port);
  }
  if (chosen != FUSS_GAME && lpt_init(port, 0, 0) != 0) return 1;
  return fuss_init(static_cast<_fuss_port>(chosen), ball, heel);
}

int fuss_init(_fuss_port port, int ball_only, int heel_only) {
  port_ = port;
  ball_only_ = ball_only;
  heel_only_ = heel_only;
  return 0;
}

int fuss_read(int& code) {
  if (port_ >= FUSS_LPT1 && port_ <= FUSS_LPT3) return fuss_read_lpt(code);
  if (port_ == FUSS_GAME) return fuss_read_game(code);
  code = 0;
  return fail("fuss/read");
}

int fuss_read_lpt(int& code) {
  if (port_ < FUSS_LPT1 || port_ > FUSS_LPT3) {
    code = 0;
    return fail("fuss/lpt");
  }
  unsigned char status = 0;
  if (lpt_read_port(port_ - 1, status) != 0) return -1;
  code = fuss_decode_lpt(status, ball_only_, heel_only_);
  return 0;
}

int fuss_read_game(int& code) {
  unsigned char value = 0;
  if (game_read_port(value) != 0) return -1;
  code = fuss_decode_game(value, ball_only_, heel_only_);
  return 0;
}

// The port inverts the busy line (0x80): a pulled heel contact reads set.
int fuss_decode_lpt(unsigned char s, int ball_only, int heel_only) {
  return decode(!(s & 0x20), !(s & 0x08), !(s & 0x10) && (s & 0x80), !(s & 0x10), (s & 0x80) != 0, ball_only, heel_only);
}

int fuss_decode_game(unsigned char v, int ball_only, int heel_only) {
  return decode(!(v & 0x80), !(v & 0x10), !(v & 0x20) && !(v & 0x40), !(v & 0x20), !(v & 0x40), ball_only, heel_only);
}

void fuss_reset() { fuss_init(FUSS_LPT1, 0, 0); }
