#include "platform/signals.h"

#include <csignal>
#include <cstring>

namespace {
const int kSignals[] = {SIGTERM, SIGINT, SIGHUP};
struct sigaction previous_[3];
volatile sig_atomic_t stop_ = 0;
bool taken_ = false;

void on_signal(int sig) {
  if (stop_ == 0) {
    stop_ = sig;
    return;
  }
  // Asked twice: what was there before (the library's shutdown) or the
  // default action.
  for (int i = 0; i < 3; ++i)
    if (kSignals[i] == sig) sigaction(sig, &previous_[i], nullptr);
  raise(sig);
}
}  // namespace

void signals_install() {
  struct sigaction sa;
  memset(&sa, 0, sizeof sa);
  sa.sa_handler = on_signal;
  sigemptyset(&sa.sa_mask);
  for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &sa, &previous_[i]);
}

int signals_stop() { return stop_; }

int signals_stop_once() {
  if (stop_ == 0 || taken_) return 0;
  taken_ = true;
  return stop_;
}

void signals_reset() {
  stop_ = 0;
  taken_ = false;
}
