#include "engine/stim.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/timer.h"
#include "ports/trig_out.h"
#include "ports/trigger.h"
#include "services/log.h"
#include "services/results.h"

namespace {
long minreak_ = 100;
long maxreak_ = 5000;
unsigned long long show_due_ = 0;

const int kToken = 200;

bool starts_with(const char* s, const char* prefix) { return strncmp(s, prefix, strlen(prefix)) == 0; }
bool is_blank(char c) { return c == ' ' || c == '\t'; }
}  // namespace

long stim_minreak() { return minreak_; }
void stim_minreak(long ms) { minreak_ = ms; }
long stim_maxreak() { return maxreak_; }
void stim_maxreak(long ms) { maxreak_ = ms; }
unsigned long long stim_show_due() { return show_due_; }
void stim_show_due(unsigned long long us) { show_due_ = us; }

void stim_assign(char*& field, const char* text) {
  free(field);
  field = text ? strdup(text) : nullptr;
}

stim::stim()
    : nummer(0), datei(nullptr), uv(nullptr), trigger(0), kritisch(-1), reaktion(0), t0(0), t1(0), reakzeit(0),
      shown(0) {}

stim::stim(unsigned nummer_, const char* datei_, const char* uv_, unsigned trigger_, int kritisch_, long t0_,
           long t1_)
    : stim() {
  nummer = nummer_;
  stim_assign(datei, datei_);
  stim_assign(uv, uv_);
  trigger = trigger_;
  kritisch = kritisch_;
  t0 = t0_;
  t1 = t1_;
}

stim::stim(const char* line, int& err) : stim() { err = _stim(line); }

stim::~stim() {
  free(datei);
  free(uv);
}

int stim::_stim(const char* line) {
  if (!line) return 0;
  const char* p = line;
  for (;;) {
    char word[kToken];
    if (sscanf(p, "%199s", word) != 1) return 0;
    char value[kToken];
    const char* token = word;
    // A label or extra text may hold blanks: it runs to the next ";".
    if (starts_with(word, "uv=") || starts_with(word, "extra=")) {
      if (sscanf(p, " %199[^;]", value) != 1) {
        alleg_perror(line);
        return -1;
      }
      token = value;
    }
    if (const int r = set(token)) return r;
    while (*p && !is_blank(*p)) ++p;
    if (!*p) return 0;
    ++p;
  }
}

int stim::set(const char* token) {
  char text[kToken];
  unsigned u;
  long l;
  if (sscanf(token, "nummer=%u", &u) == 1) {
    nummer = u;
  } else if (sscanf(token, "datei=%199s", text) == 1) {
    stim_assign(datei, text);
  } else if (sscanf(token, "uv=%199[^;\n]", text) == 1) {
    stim_assign(uv, text);
  } else if (sscanf(token, "trigger=%u", &u) == 1) {
    trigger = u;
  } else if (sscanf(token, "kritisch=%u", &u) == 1) {
    kritisch = static_cast<int32_t>(u);
  } else if (sscanf(token, "reaktion=%u", &u) == 1) {
    reaktion = static_cast<int32_t>(u);
  } else if (sscanf(token, "t0=%ld", &l) == 1) {
    t0 = l;
  } else if (sscanf(token, "t1=%ld", &l) == 1) {
    t1 = l;
  } else if (sscanf(token, "reakzeit=%ld", &l) == 1) {
    reakzeit = l;
  }
  return 0;
}

long stim::pstime() const { return 0; }
long stim::showtime() const { return 0; }
long stim::fadetime() const { return 0; }
long stim::hidetime() const { return 0; }
int stim::skip() { return 0; }

int stim::prepare() {
  shown = 0;
  return 0;
}

int stim::cleanup() {
  shown = 0;
  return 0;
}

int stim::preshow() { return 0; }

int stim::show() {
  shown = 1;
  send_trigger();
  return 0;
}

int stim::playing() const { return 0; }

int stim::hide() {
  shown = 0;
  return 0;
}

int stim::richtig() { return 0; }
int stim::falsch() { return 0; }
int stim::auslassung() { return 0; }

int stim::speichern() const {
  if (kritisch == -1 && !uv) return 0;
  if (kritisch == 0 && reaktion == 0 && !uv) return 0;
  if (kritisch == -1 && reaktion == 0) return 0;
  if (nummer == 0) return 0;
  char line[1000];
  if (uv)
    snprintf(line, sizeof line, "%5d  %20s  %2d  %2d  %7ld\n", static_cast<int>(nummer), uv, kritisch, reaktion,
             reakzeit);
  else
    snprintf(line, sizeof line, "%5d  %2d  %2d  %7ld\n", static_cast<int>(nummer), kritisch, reaktion, reakzeit);
  return result(static_cast<const char*>(line));
}

int stim::idle() { return 0; }
int stim::send_trigger() const { return send_trigger(static_cast<unsigned char>(trigger)); }

int stim::reaktion_trigger() const {
  return trig_out_valid() ? send_trigger(static_cast<unsigned char>(reaktion)) : 0;
}

int stim::send_trigger(unsigned char v) const { return v ? trig_out_send(v) : 0; }
int stim::with_trigger() const { return 0; }

int stim::wait_trigger(long& t) {
  const long from = alleg_get_timer();
  while (alleg_get_timer() - from < t0)
    if (idle()) return -1;
  if (trigger_wait(t1)) return -1;
  t = alleg_get_timer();
  return 0;
}

int stim::with_reaktion() const { return kritisch >= 0 ? 1 : 0; }
long stim::minreak() const { return stim_minreak(); }
long stim::maxreak() const { return stim_maxreak(); }
int stim::onset_us(unsigned long long&) const { return -1; }

void stim::info() const {
  alleg_message("Nummer:   %d", static_cast<int>(nummer));
  if (datei) alleg_message(datei);
  if (uv) alleg_message(uv);
  alleg_message("Trigger:  %d", static_cast<int>(trigger));
  alleg_message("Kritisch: %d", kritisch);
  alleg_message("Reaktion: %d", reaktion);
  alleg_message("ReakZeit: %ld", reakzeit);
  alleg_message("t0:       %ld", t0);
  alleg_message("t1:       %ld", t1);
}
