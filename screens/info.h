// Feedback counters of the block: the run loop counts every evaluated
// response; a feedback page shows and resets them.
#pragma once

int info_richtig();
int info_fehler();
int info_auslassung();

struct info_counts {
  int block, richtig, fehler, auslassung;
};
info_counts info_counters();
// Shows-and-resets as a feedback page does: counts back to 0, block + 1.
void info_next_block();
void info_reset();
