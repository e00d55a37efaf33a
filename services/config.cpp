#include "services/config.h"

#include <allegro.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/directory.h"
#include "services/argument.h"
#include "services/log.h"

namespace {
double osversion_ = 0;
const size_t kLongestLine = 200;  // characters before the newline

const char* file_value(const char* key) { return get_config_string(nullptr, key, nullptr); }

// Shared body of the numeric readers: the key's text scanned with scan_fmt.
template <typename T>
T read_number(const char* key, T def, const char* scan_fmt, const char* missing_fmt, const char* bad_fmt) {
  char buf[1000];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const char* text = file_value(key);
  if (!text) {
    snprintf(buf, sizeof buf, missing_fmt, def, key);
    alleg_message(static_cast<const char*>(buf));
    return def;
  }
  T value;
  if (sscanf(text, scan_fmt, &value) != 1) {
    snprintf(buf, sizeof buf, bad_fmt, key, def);
    alleg_message(static_cast<const char*>(buf));
    return def;
  }
#pragma GCC diagnostic pop
  return value;
}
}  // namespace

int config_init() {
  char def[255];
  argument_progname(def, sizeof def, "cfg");
  char name[255];
  snprintf(name, sizeof name, "%s", argument_get("cfg", def, "Using %s for config overrides"));
  FILE* f = file_open(name, "r");
  if (!f) {
    alleg_warning("file not found", name);
    if (errno == EISDIR) alleg_warning(name, strerror(errno));
    return 0;
  }
  // The library's reader copies a line into a fixed buffer and can run past
  // it on a long line of multi-byte characters; no setting needs such a
  // line. Those lines and lines with NUL bytes are left out, and said so.
  std::string text, line;
  int number = 0;
  for (int c = 0; c != EOF;) {
    c = fgetc(f);
    if (c != EOF) line += static_cast<char>(c);
    if (c != '\n' && c != EOF) continue;
    ++number;
    if (line.size() > kLongestLine + 1 || line.find('\0') != std::string::npos) {
      char what[300];
      snprintf(what, sizeof what, "line %d left out: longer than %d characters or with a NUL byte", number,
               static_cast<int>(kLongestLine));
      alleg_warning(name, what);
    } else {
      text += line;
    }
    line.clear();
  }
  fclose(f);
  override_config_data(text.data(), static_cast<int>(text.size()));
  return 0;
}

void config_done() {
  override_config_file(nullptr);
  osversion_ = 0;
}

const char* config_string(const char* key, const char* def) {
  const char* v = argument_value(key);
  if (!v) v = file_value(key);
  if (!v) v = def;
  if (v == def) {
    char buf[1000];
    snprintf(buf, sizeof buf, "Using the default %s for %s", def ? def : "(null)", key ? key : "(null)");
    alleg_message(static_cast<const char*>(buf));
  }
  return v;
}

int config_int(const char* key, int def) {
  return read_number<int>(key, def, "%d", "Using the default %d for %s", "Cannot parse %s: Using the default %d");
}

long config_long(const char* key, long def) {
  return read_number<long>(key, def, "%ld", "Using the default %ld for %s",
                           "Cannot parse %s: Using the default %ld");
}

unsigned short config_hex(const char* key, unsigned short def) {
  unsigned v = read_number<unsigned>(key, def, "%x", "Using the default %x for %s",
                                     "Cannot parse %s: Using the default %x");
  return static_cast<unsigned short>(v);
}

double config_double(const char* key, double def) {
  return read_number<double>(key, def, "%lf", "Using the default %f for %s",
                             "Cannot parse %s: Using the default %f");
}

double config_osversion() {
  if (osversion_ == 0) osversion_ = config_double("os-version", os_version + 0.1 * os_revision);
  return osversion_;
}

bool config_osversion_set() { return argument_value("os-version") || file_value("os-version"); }

const char* config_userpath() { return ""; }
