#include "services/results.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "services/argument.h"
#include "services/log.h"

namespace {
FILE* stream_ = nullptr;
char name_[255];
std::vector<char*> buffered_;
bool registered_ = false;

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
  // when it is closed at exit, so trials never wait on the disk.
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
  snprintf(name_, sizeof name_, "%s", name);
  if (!registered_) {
    atexit(resclose);
    registered_ = true;
  }
  return 0;
}

const char* results_name() { return stream_ ? name_ : nullptr; }

void resclose() {
  if (!stream_) return;
  const bool any = !buffered_.empty();
  for (char* line : buffered_) fputs(line, stream_);
  int error = fflush(stream_) != 0 || ferror(stream_) ? errno : 0;
  if (fclose(stream_) != 0 && !error) error = errno;
  stream_ = nullptr;
  // A file that could not take the lines (a full disk) is reported, and the
  // lines go to standard error, the results stream from now on, so that
  // they are not lost with it.
  if (error) {
    errno = error;
    alleg_perror(name_);
    alleg_message("Results on standard error", name_);
    alleg_logflush();
    for (char* line : buffered_) fputs(line, stderr);
  }
  for (char* line : buffered_) free(line);
  buffered_.clear();
  if (error) return;
  if (!any) {
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
