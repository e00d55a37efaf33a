#include "services/argument.h"

#include <cstdio>
#include <cstring>

#include "services/log.h"

namespace {
int argc_ = 0;
const char** argv_ = nullptr;

int find_with(const char* key, char sep) {
  char probe[100];
  snprintf(probe, sizeof probe, "-%s%c", key, sep);
  const size_t n = strlen(probe);
  for (int i = 1; i < argc_; ++i)
    if (argv_[i] && strncmp(argv_[i], probe, n) == 0) return i;
  return 0;
}
}  // namespace

int argument_init(int argc, const char** argv) {
  argc_ = argc;
  argv_ = argv;
  return 0;
}

int argument_lookup(const char* key) {
  if (!key) return 0;
  int i = find_with(key, '=');
  return i ? i : find_with(key, '#');
}

int argument_check(const char* key) {
  if (!key) return 0;
  char probe[100];
  snprintf(probe, sizeof probe, "-%s", key);
  const size_t n = strlen(probe);
  for (int i = 1; i < argc_; ++i)
    if (argv_[i] && strncmp(argv_[i], probe, n) == 0) return i;
  return 0;
}

int argument_flag(const char* key) {
  if (!key) return 0;
  for (int i = 1; i < argc_; ++i)
    if (argv_[i] && argv_[i][0] == '-' && strcmp(argv_[i] + 1, key) == 0) return i;
  return 0;
}

const char* argument_value(const char* key) {
  if (int i = argument_lookup(key)) {
    const size_t k = strlen(key);
    if (strlen(argv_[i]) >= k + 3) return argv_[i] + k + 2;
  }
  return nullptr;
}

const char* argument_get(const char* key, const char* def, const char* msg) {
  if (const char* v = argument_value(key)) return v;
  if (msg && def) {
    char buf[1000];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(buf, sizeof buf, msg, def);
#pragma GCC diagnostic pop
    alleg_message(static_cast<const char*>(buf));
  } else if (!msg) {
    alleg_message(static_cast<const char*>(nullptr));
  }
  return def;
}

const char* argument_get(const char* key, const char* def) { return argument_get(key, def, nullptr); }

const char* argument_get(const char* key) { return argument_get(key, nullptr, nullptr); }

int argument_get(const char* key, int def) {
  char buf[32];
  snprintf(buf, sizeof buf, "%d", def);
  const char* v = argument_get(key, buf);
  int value;
  return (v && sscanf(v, "%d", &value) == 1) ? value : def;
}

const char* argument_progname() { return argc_ > 0 && argv_ ? argv_[0] : ""; }

void argument_progname(char* buf, int size, const char* ext) {
  if (!buf || size <= 0) return;
  const char* prog = argument_progname();
  const char* base = strrchr(prog, '/');
  base = base ? base + 1 : prog;
  const char* dot = strrchr(base, '.');
  const size_t stem = dot ? static_cast<size_t>(dot - prog) : strlen(prog);
  snprintf(buf, static_cast<size_t>(size), "%.*s.%s", static_cast<int>(stem), prog, ext ? ext : "");
}
