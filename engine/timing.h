// The timing trace: for every action a block carries out, when it was due
// and when it happened, in microseconds of the test clock. Records go into
// memory reserved before the block runs and are written out between blocks
// (option "timing" names the file), so keeping the trace never touches the
// schedule.
#pragma once
#include <cstdint>
#include <cstdio>
#include <typeinfo>

struct timing_record {
  int block;
  uint32_t nummer;
  const std::type_info* type;
  int action;               // 1 preshow, 2 show, 3 hide
  uint64_t due_us;          // when the action was due
  uint64_t actual_us;       // when it was started
  uint64_t done_us;         // when it returned (for a show: the onset taken)
  uint64_t system_us;       // CLOCK_MONOTONIC when it was started, to relate
                            // the test clock to traces of other clocks
  uint64_t voice_us;        // for a sound's show: when its voice was started
                            // (test clock); 0 for anything else
  uint64_t onset_us;        // for a show: the onset its reaction times count
                            // from (test clock), filled in once known
  unsigned frame;           // the frame the action presented (0: none); what
                            // the X server told of it is written out with it
};

// Starts the file named by option "timing" when given (its header line); a
// file that cannot be written is reported and the run goes on without a
// trace. 0 always.
int timing_init();
bool timing_on();
// Makes room for n more records; called before a block runs.
void timing_reserve(int n);
// Adds a record; its index for timing_onset(), -1 when it was not kept.
int timing_add(const timing_record& r);
// Fills in the onset of record i once the display or sound stream told it.
void timing_onset(int i, uint64_t onset_us);
// Writes the records gathered so far (tab-separated, one line each) and
// forgets them. The file is replaced whole and made durable: a kill at any
// moment leaves it complete up to some block's end.
void timing_write();
// The records not yet written (benchmarks read them in place).
int timing_count();
const timing_record* timing_records();
void timing_done();
// Forgets the records not yet written.
void timing_clear();
// Keeps records in memory without a file (benchmarks and tests).
void timing_keep(bool on);
