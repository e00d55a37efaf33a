// The feedback page ("info") with the counts of correct, wrong and missed
// responses since the previous page, and the counters the run loop feeds.
#pragma once

#include "screens/instrukt.h"

int info_richtig();
int info_fehler();
int info_auslassung();

struct info_counts {
  int block, richtig, fehler, auslassung;
};
info_counts info_counters();
// What a feedback page does after drawing: counts back to 0, block + 1.
void info_next_block();
void info_reset();

class info : public instrukt {
 public:
  explicit info(const char* format);
  info(const char* line, int& error);
  int set(const char* token) override;
  int prepare() override;
  ~info() override;

  char* format;
  char* extra = nullptr;
};

stim* _info(const char* line);
