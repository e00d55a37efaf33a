#include "services/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/durable.h"
#include "platform/timer.h"
#include "services/argument.h"
#include "services/files.h"

namespace {

FILE* stream_ = nullptr;  // null: standard error
char log_name_[255];
bool outputs_ok_ = true;

FILE* out() { return stream_ ? stream_ : stderr; }

const char* text_or_null(const char* s) { return s ? s : "(null)"; }

// The log file behind the stream. A write that fails (a full disk, a
// vanished device) is reported once on standard error, and what could not
// be written, and every later line, goes there instead: the log is never
// silently lost.
struct log_file {
  int fd;
  bool failed;
};

void report_failure(int error) {
  outputs_ok_ = false;
  fprintf(stderr, "error: %ld: %s: %s\n", alleg_get_timer(), log_name_, strerror(error));
}

ssize_t write_log(void* cookie, const char* buf, size_t size) {
  log_file* f = static_cast<log_file*>(cookie);
  size_t done = 0;
  while (!f->failed && done < size) {
    const ssize_t n = ::write(f->fd, buf + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      f->failed = true;
      report_failure(n < 0 ? errno : ENOSPC);
      break;
    }
    done += static_cast<size_t>(n);
  }
  if (done < size) fwrite(buf + done, 1, size - done, stderr);
  return static_cast<ssize_t>(size);
}

// Held here as well as in the stream: the C library keeps its cookie in a
// form the leak checker cannot follow.
log_file* open_file_ = nullptr;

int close_log(void* cookie) {
  log_file* f = static_cast<log_file*>(cookie);
  if (f == open_file_) open_file_ = nullptr;
  if (::close(f->fd) != 0 && !f->failed) report_failure(errno);
  delete f;
  return 0;
}

FILE* open_log(const char* name) {
  const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (fd < 0) return nullptr;
  log_file* f = new log_file{fd, false};
  FILE* stream = fopencookie(f, "w", cookie_io_functions_t{nullptr, write_log, nullptr, close_log});
  if (stream) {
    open_file_ = f;
  } else {
    close_log(f);
  }
  return stream;
}

const int kFormatted = 1000;

// Formats into a buffer of at most 999 characters; a longer text is cut.
__attribute__((format(printf, 2, 3))) void format(char (&buf)[kFormatted], const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof buf, fmt ? fmt : "(null)", ap);
  va_end(ap);
}

log_listener listener_ = nullptr;
void* listener_ctx_ = nullptr;

void line(const char* prefix, const char* text) {
  // A null text still gives a line: "%s" of null prints "(null)".
  fprintf(out(), "%s%ld: %s\n", prefix, alleg_get_timer(), text_or_null(text));
  if (listener_) listener_(prefix, text_or_null(text), listener_ctx_);
}

}  // namespace

FILE* log_stream() { return out(); }

void log_listen(log_listener fn, void* ctx) {
  listener_ = fn;
  listener_ctx_ = fn ? ctx : nullptr;
}

int log_init() {
  char def[255];
  argument_progname(def, sizeof def, "log");
  const char* name = argument_get("log", def, "Using %s as log file\n");
  snprintf(log_name_, sizeof log_name_, "%s", name);
  if (const char* mapped = files_get(log_name_)) snprintf(log_name_, sizeof log_name_, "%s", mapped);
  FILE* f = open_log(log_name_);
  if (!f) return 0;
  if (stream_) fclose(stream_);
  stream_ = f;
  atexit(log_done);
  return 0;
}

void log_done() {
  if (!stream_) return;
  fflush(stream_);
  fclose(stream_);
  stream_ = nullptr;
}

void alleg_logflush() { fflush(out()); }

int log_sync() {
  fflush(out());
  log_file* f = open_file_;
  if (!stream_ || !f || f->failed) return f && f->failed ? -1 : 0;
  if (durable_sync(f->fd) == 0) return 0;
  f->failed = true;
  report_failure(errno);
  return -1;
}

void log_output_failed(const char* name) {
  const int error = errno;
  outputs_ok_ = false;
  alleg_error(name, strerror(error));
  if (out() != stderr) fprintf(stderr, "error: %ld: %s: %s\n", alleg_get_timer(), text_or_null(name), strerror(error));
  errno = error;
}

bool log_outputs_ok() { return outputs_ok_; }

void alleg_message(const char* text) { line("", text); }
void alleg_warning(const char* text) { line("warning: ", text); }
void alleg_error(const char* text) { line("error: ", text); }

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

#define LOG_FORMATTED(level, ...)   \
  do {                              \
    char buf[kFormatted];           \
    format(buf, __VA_ARGS__);       \
    level(static_cast<const char*>(buf)); \
  } while (0)

void alleg_message(const char* fmt, int a) { LOG_FORMATTED(alleg_message, fmt, a); }
void alleg_message(const char* fmt, long a) { LOG_FORMATTED(alleg_message, fmt, a); }
void alleg_message(const char* fmt, double a) { LOG_FORMATTED(alleg_message, fmt, a); }
void alleg_message(const char* fmt, unsigned long long a) { LOG_FORMATTED(alleg_message, fmt, a); }
void alleg_message(const char* fmt, int a, int b) { LOG_FORMATTED(alleg_message, fmt, a, b); }
void alleg_message(const char* fmt, int a, int b, int c, int d, int e, int f) {
  LOG_FORMATTED(alleg_message, fmt, a, b, c, d, e, f);
}
void alleg_message(const char* t1, const char* t2) { LOG_FORMATTED(alleg_message, "%s: %s", text_or_null(t1), text_or_null(t2)); }
void alleg_message(const char* t1, const char* t2, const char* t3) {
  LOG_FORMATTED(alleg_message, "%s: %s: %s\n", text_or_null(t1), text_or_null(t2), text_or_null(t3));
}

void alleg_warning(const char* fmt, int a) { LOG_FORMATTED(alleg_warning, fmt, a); }
void alleg_warning(const char* fmt, int a, int b) { LOG_FORMATTED(alleg_warning, fmt, a, b); }
void alleg_warning(const char* t1, const char* t2) { LOG_FORMATTED(alleg_warning, "%s: %s", text_or_null(t1), text_or_null(t2)); }

void alleg_error(const char* fmt, int a) { LOG_FORMATTED(alleg_error, fmt, a); }
void alleg_error(const char* fmt, int a, int b) { LOG_FORMATTED(alleg_error, fmt, a, b); }
void alleg_error(const char* t1, const char* t2) { LOG_FORMATTED(alleg_error, "%s: %s", text_or_null(t1), text_or_null(t2)); }

#pragma GCC diagnostic pop

void alleg_perror(const char* text) {
  const char* sys = strerror(errno);
  alleg_error(text, sys);
}
