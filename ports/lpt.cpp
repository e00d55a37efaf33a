#include "ports/lpt.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>

#include "ports/lpt_backend.h"
#include "services/config.h"
#include "services/log.h"

namespace {
const int kPorts = 10;
// Ports opened through a device or file answer at addresses of their own,
// taken from the top of the I/O space when the device names none.
const unsigned short kSyntheticBase = 0xFF80;

struct slot {
  bool resolved;
  unsigned short base;
  lpt_opened opened;
  bool absent;     // left to "auto" on a machine without parallel ports
  bool explained;  // and said so
};
slot ports_[kPorts];

const unsigned char kIrq[3] = {7, 5, 7};

long ring_[10];
int read_index_ = 0;
int write_count_ = 0;

int fail(const char* text) {
  errno = EINVAL;
  alleg_perror(text);
  return -1;
}

bool is_hex_address(const char* text) { return text[0] == '0' && (text[1] == 'x' || text[1] == 'X'); }

// A simulated port is a regular file, or a name that does not exist yet and
// names no device: "auto", "parportN" and paths in /dev are devices, so
// "lpt1.sim" in the working directory is a file as "/tmp/lpt1" is.
bool is_sim_file(const char* text) {
  if (strcmp(text, "auto") == 0) return false;
  struct stat st;
  if (stat(text, &st) == 0) return S_ISREG(st.st_mode);
  if (strncmp(text, "/dev/", 5) == 0) return false;
  if (strncmp(text, "parport", 7) != 0) return true;
  const char* n = text + 7;
  return !*n || strspn(n, "0123456789") != strlen(n);
}

unsigned short resolve(int index) {
  char key[32];
  snprintf(key, sizeof key, "lpt%d-device", index + 1);
  const char* text = config_string(key, "auto");
  if (!text || !*text || strcmp(text, "none") == 0) return 0;
  // Said at the port's first use (undefined()), or once by the start-up.
  if (strcmp(text, "auto") == 0 && !lpt_ppdev_any()) {
    ports_[index].absent = true;
    return 0;
  }
  if (is_hex_address(text)) {
    unsigned short address = 0;
    if (sscanf(text, "%hx", &address) != 1 || address == 0) {
      fail(text);
      return 0;
    }
    return lpt_io_permit(address, 4) == 0 ? address : 0;
  }
  lpt_opened o = is_sim_file(text) ? lpt_sim_open(index, text) : lpt_ppdev_open(index, text);
  if (!o.ops) return 0;
  if (o.base == 0) o.base = static_cast<unsigned short>(kSyntheticBase + 4 * index);
  ports_[index].opened = o;
  static const bool registered = atexit(lpt_reset) == 0;
  (void)registered;
  return o.base;
}

const slot* owner_of(unsigned short address) {
  for (const slot& s : ports_)
    if (s.opened.ops && address >= s.opened.base && address < s.opened.base + 4) return &s;
  return nullptr;
}

// The shared pattern of the register functions: look up the base, report an
// undefined port in the designed words, else one access at base + offset.
int undefined(int index, const char* line, const char* report) {
  if (index >= 0 && index < kPorts && ports_[index].absent && !ports_[index].explained) {
    ports_[index].explained = true;
    char text[120];
    snprintf(text, sizeof text, "lpt%d: auto: this machine has no parallel port (set lpt%d-device to a port, an address or a file)",
             index + 1, index + 1);
    alleg_error(static_cast<const char*>(text));
  }
  if (line) {
    alleg_error(line, index);
    alleg_error(line, 0);
  }
  return fail(report);
}

int read_reg(int index, int offset, unsigned char& value, const char* line, const char* report) {
  const unsigned short base = lpt_get_address(index);
  if (base == 0) return undefined(index, line, report);
  value = static_cast<unsigned char>(inportb(base + offset));
  return 0;
}

int write_reg(int index, int offset, unsigned char value, const char* line, const char* report) {
  const unsigned short base = lpt_get_address(index);
  if (base == 0) return undefined(index, line, report);
  outportb(static_cast<unsigned short>(base + offset), value);
  return 0;
}
}  // namespace

int lpt_init(const char* name, int value, int mode) {
  if (!name) name = "";
  for (int n = 1; n <= kPorts; ++n) {
    char lower[8], upper[8];
    snprintf(lower, sizeof lower, "lpt%d", n);
    snprintf(upper, sizeof upper, "LPT%d", n);
    if (strstr(name, lower) || strstr(name, upper)) return lpt_init(n - 1, value, mode);
  }
  return fail(name);
}

int lpt_init(int index, int value, int mode) {
  if (lpt_init(mode) != 0) return -1;
  if (index > 9) {
    alleg_error("lpt%d not defined", index + 1);
    return -1;
  }
  return lpt_set_port(index, static_cast<unsigned char>(value & 0xff)) == 0 ? 0 : -1;
}

int lpt_init(int) { return 0; }

void lpt_done() {}

unsigned short lpt_get_address(int index) {
  if (index < 0 || index >= kPorts) return 0;
  slot& s = ports_[index];
  if (!s.resolved) {
    s.resolved = true;
    s.base = resolve(index);
  }
  return s.base;
}

const char* lpt_access(int index) {
  if (lpt_get_address(index) == 0) return nullptr;
  const slot& s = ports_[index];
  if (!s.opened.ops) return "direct I/O";
  return s.opened.ops == lpt_sim_ops() ? "simulated" : "ppdev";
}

int lpt_absent(int index) { return index >= 0 && index < kPorts && lpt_get_address(index) == 0 && ports_[index].absent; }

int lpt_read_port(int index, unsigned char& value) {
  return read_reg(index, 1, value, "lpt/read_port: %d", "lpt/read_port");
}
int lpt_set_port(int index, unsigned char value) {
  return write_reg(index, 0, value, "lpt/set_port: %d", "lpt/set_port");
}
int lpt_get_control(int index, unsigned char& value) {
  return read_reg(index, 2, value, "lpt/get_control: %d", "lpt/get_control");
}
int lpt_set_control(int index, unsigned char value) {
  return write_reg(index, 2, value, "lpt/set_control: %d", "lpt/port");
}
int lpt_get_control2(int index, unsigned char& value) { return read_reg(index, 3, value, nullptr, "lpt/port"); }
int lpt_set_control2(int index, unsigned char value) { return write_reg(index, 3, value, nullptr, "lpt/port"); }

int lpt_get_irq(int index, int& irq) {
  // Only the first three ports have an interrupt line in the table.
  irq = index >= 0 && index < 3 ? kIrq[index] : 0;
  return 0;
}

long lpt_get_trigger() {
  if (write_count_ == read_index_) return 0;
  const long v = ring_[read_index_];
  ring_[read_index_] = 0;
  read_index_ = (read_index_ + 1) % 10;
  return v;
}

int lpt_trigger_write_count() { return write_count_; }

void lpt_put_trigger(long value) {
  ring_[write_count_] = value;
  write_count_ = (write_count_ + 1) % 10;
}

int inportb(int port) {
  const unsigned short address = static_cast<unsigned short>(port);
  if (const slot* s = owner_of(address)) return s->opened.ops->read(s->opened.port, address - s->opened.base);
  return lpt_io_in(address);
}

void outportb(unsigned short port, unsigned char value) {
  if (const slot* s = owner_of(port)) return s->opened.ops->write(s->opened.port, port - s->opened.base, value);
  lpt_io_out(port, value);
}

void lpt_flush() {
  for (const slot& s : ports_)
    if (s.opened.ops) s.opened.ops->flush(s.opened.port);
}

void lpt_reset() {
  for (slot& s : ports_) {
    if (s.opened.ops) s.opened.ops->close(s.opened.port);
    s = slot{};
  }
  memset(ring_, 0, sizeof ring_);
  read_index_ = write_count_ = 0;
}
