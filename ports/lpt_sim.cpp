// A simulated parallel port: the first four bytes of a regular file are the
// data, status, control and second control registers, shared with other
// processes through a memory mapping. Every write is also recorded as a line
// "<microseconds of CLOCK_MONOTONIC> <register> <value>" in the file with
// ".trace" appended (a poll's repeated writes are only counted). Trace lines collect in memory reserved at opening and
// are written out when that fills or at lpt_flush, so that a write costs no
// system call while a trial runs.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/timer.h"
#include "ports/lpt_backend.h"
#include "services/log.h"

namespace {
const size_t kTraceBytes = 256 * 1024;
const size_t kTraceFlushAt = kTraceBytes - 4096;
// A new file starts with the key lines of a response box high (released),
// acknowledge and busy low, and all outputs low.
const unsigned char kIdle[4] = {0x00, 0x38, 0x00, 0x00};

struct sim {
  volatile unsigned char* regs;
  int trace_fd;
  char* trace;
  size_t used;
  int index;
  unsigned long long unchanged;  // writes not traced
  int last_reg, last_value;      // the latest write
  bool read_since;               // the status register was read after it
};

void flush(void* p) {
  sim* s = static_cast<sim*>(p);
  size_t done = 0;
  while (done < s->used) {
    const ssize_t n = write(s->trace_fd, s->trace + done, s->used - done);
    if (n <= 0) {
      alleg_perror("lpt/sim: trace");
      break;
    }
    done += static_cast<size_t>(n);
  }
  s->used = 0;
}

// Decimal digits of v at out, backwards from the end; returns the start.
char* digits(char* end, unsigned long long v) {
  do {
    *--end = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v);
  return end;
}

void append(sim* s, unsigned long long t_us, int reg, unsigned value) {
  char line[48];
  char* end = line + sizeof line;
  *--end = '\n';
  end = digits(end, value);
  *--end = ' ';
  end = digits(end, static_cast<unsigned>(reg));
  *--end = ' ';
  end = digits(end, t_us);
  const size_t n = static_cast<size_t>(line + sizeof line - end);
  memcpy(s->trace + s->used, end, n);
  s->used += n;
  if (s->used >= kTraceFlushAt) flush(s);
}

int read(void* p, int reg) {
  sim* s = static_cast<sim*>(p);
  if (reg == 1) s->read_since = true;
  return s->regs[reg];
}

// Every write is traced, but for a poll's: a response box is read by
// setting the data lines high and reading the status, again and again, and
// each repetition of the same write after a reading is counted, not traced
// (a waiting block would otherwise add a trace line every microsecond).
void write(void* p, int reg, unsigned char value) {
  sim* s = static_cast<sim*>(p);
  const unsigned long long t = alleg_system_us();
  const bool repeat = s->read_since && s->last_reg == reg && s->last_value == value && s->regs[reg] == value;
  s->regs[reg] = value;
  s->last_reg = reg;
  s->last_value = value;
  s->read_since = false;
  if (repeat) {
    ++s->unchanged;
    return;
  }
  append(s, t, reg, value);
}

void close_sim(void* p) {
  sim* s = static_cast<sim*>(p);
  flush(s);
  if (s->unchanged) {
    char line[120];
    snprintf(line, sizeof line, "lpt%d: %llu repeated writes of a poll were not traced", s->index + 1, s->unchanged);
    alleg_message(static_cast<const char*>(line));
  }
  munmap(const_cast<unsigned char*>(s->regs), 4);
  ::close(s->trace_fd);
  free(s->trace);
  delete s;
}

const lpt_backend kSim = {read, write, flush, close_sim};

lpt_opened refuse(const char* path) {
  alleg_perror(path);
  return lpt_opened{nullptr, nullptr, 0};
}
}  // namespace

const lpt_backend* lpt_sim_ops() { return &kSim; }

lpt_opened lpt_sim_open(int index, const char* path) {
  const int fd = open(path, O_RDWR | O_CREAT, 0666);
  if (fd < 0) return refuse(path);
  struct stat st;
  if (fstat(fd, &st) != 0 || (st.st_size < 4 && pwrite(fd, kIdle + st.st_size, 4 - st.st_size, st.st_size) < 0)) {
    const int e = errno;
    ::close(fd);
    errno = e;
    return refuse(path);
  }
  void* map = mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ::close(fd);
  if (map == MAP_FAILED) return refuse(path);
  char trace_name[1100];
  snprintf(trace_name, sizeof trace_name, "%s.trace", path);
  const int trace_fd = open(trace_name, O_WRONLY | O_CREAT | O_APPEND, 0666);
  char* buffer = static_cast<char*>(malloc(kTraceBytes));
  if (trace_fd < 0 || !buffer) {
    const int e = errno;
    munmap(map, 4);
    if (trace_fd >= 0) ::close(trace_fd);
    free(buffer);
    errno = e;
    return refuse(trace_name);
  }
  // Touch the trace memory now, not at the first pulse.
  memset(buffer, 0, kTraceBytes);
  sim* s = new sim{static_cast<volatile unsigned char*>(map), trace_fd, buffer, 0, index, 0, -1, -1, false};
  char line[1200];
  snprintf(line, sizeof line, "lpt%d: simulated port %s, trace in %s", index + 1, path, trace_name);
  alleg_message(static_cast<const char*>(line));
  return lpt_opened{&kSim, s, 0};
}
