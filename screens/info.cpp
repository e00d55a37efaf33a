#include "screens/info.h"

namespace {
info_counts counts_{0, 0, 0, 0};
}

int info_richtig() {
  ++counts_.richtig;
  return 0;
}
int info_fehler() {
  ++counts_.fehler;
  return 0;
}
int info_auslassung() {
  ++counts_.auslassung;
  return 0;
}
info_counts info_counters() { return counts_; }
void info_next_block() { counts_ = {counts_.block + 1, 0, 0, 0}; }
void info_reset() { counts_ = {0, 0, 0, 0}; }
