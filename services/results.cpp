#include "services/results.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/durable.h"
#include "services/argument.h"
#include "services/log.h"

namespace {
FILE* stream_ = nullptr;
char name_[255];
std::vector<char*> buffered_;
bool registered_ = false;
bool written_ = false;  // the file received a line
bool failed_ = false;   // the file failed: the lines go to standard error

bool capture_ = false;
std::vector<std::string> captured_;
}  // namespace

int results_init(int) {
  const char* name = argument_value("res");
  if (name && resopen(name) != 0) {
    alleg_perror(name);
    return -1;
  }
  return 0;
}
int results_init() { return results_init(1000); }

int result(const char* line) {
  if (!line) return 0;
  if (capture_) captured_.emplace_back(line);
  // The sink is on only when a results file is open; the lines are written
  // between blocks (results_sync) and at exit, so trials never wait on the
  // disk.
  if (stream_) {
    char* copy = strdup(line);
    if (copy) buffered_.push_back(copy);
  }
  return 0;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int result(const char* fmt, const void* a) {
  char line[500];
  snprintf(line, sizeof line, fmt, a);
  return result(static_cast<const char*>(line));
}

int result(const char* fmt, const void* a, const void* b) {
  char line[500];
  snprintf(line, sizeof line, fmt, a, b);
  return result(static_cast<const char*>(line));
}
#pragma GCC diagnostic pop

int resopen(const char* name) {
  FILE* f = name ? fopen(name, "w") : nullptr;
  if (!f) {
    errno = EACCES;
    return -1;
  }
  if (stream_) fclose(stream_);
  stream_ = f;
  written_ = failed_ = false;
  snprintf(name_, sizeof name_, "%s", name);
  if (!registered_) {
    atexit(resclose);
    registered_ = true;
  }
  return 0;
}

const char* results_name() { return stream_ ? name_ : nullptr; }

int results_sync() {
  if (!stream_) return 0;
  const bool failed_before = failed_;
  if (!failed_) {
    for (char* line : buffered_) fputs(line, stream_);
    if (durable_sync(stream_) != 0) {
      // A file that could not take the lines (a full disk) is reported, and
      // its lines go to standard error from now on, so that they are not
      // lost with it.
      failed_ = true;
      log_output_failed(name_);
      alleg_message("Results on standard error", name_);
      alleg_logflush();
    }
  }
  if (failed_) {
    for (char* line : buffered_) fputs(line, stderr);
    fflush(stderr);
  }
  written_ = written_ || !buffered_.empty();
  for (char* line : buffered_) free(line);
  buffered_.clear();
  return failed_ && !failed_before ? -1 : 0;
}

void resclose() {
  if (!stream_) return;
  results_sync();
  if (fclose(stream_) != 0 && !failed_) {
    failed_ = true;
    log_output_failed(name_);
  }
  stream_ = nullptr;
  if (failed_) return;
  if (!written_) {
    alleg_message("No results. removing file", name_);
    remove(name_);
  } else if (!argument_flag("r")) {
    alleg_message("Results", name_);
  }
}

void results_capture(bool on) {
  capture_ = on;
  captured_.clear();
}
int results_captured() { return static_cast<int>(captured_.size()); }
const char* results_captured_line(int i) {
  return i >= 0 && i < results_captured() ? captured_[static_cast<size_t>(i)].c_str() : nullptr;
}
