#include "engine/timing.h"

#include <cxxabi.h>

#include <cstdlib>
#include <vector>

#include "platform/display.h"
#include "services/argument.h"
#include "services/log.h"

namespace {
FILE* file_ = nullptr;
bool keep_ = false;
bool header_ = false;
std::vector<timing_record> records_;

const char* action_name(int a) { return a == 1 ? "preshow" : a == 2 ? "show" : a == 3 ? "hide" : "?"; }
}  // namespace

int timing_init() {
  const char* name = argument_value("timing");
  if (!name || file_) return 0;
  file_ = fopen(name, "w");
  if (!file_) {
    alleg_perror(name);
    return 0;
  }
  atexit(timing_done);
  return 0;
}

bool timing_on() { return file_ || keep_; }
void timing_keep(bool on) { keep_ = on; }

void timing_reserve(int n) {
  if (timing_on()) records_.reserve(records_.size() + static_cast<size_t>(n));
}

int timing_add(const timing_record& r) {
  // Never grows during a block: room was made before it.
  if (!timing_on() || records_.size() >= records_.capacity()) return -1;
  records_.push_back(r);
  return static_cast<int>(records_.size()) - 1;
}

void timing_onset(int i, uint64_t onset_us) {
  if (i >= 0 && static_cast<size_t>(i) < records_.size()) records_[static_cast<size_t>(i)].onset_us = onset_us;
}

namespace {
const char* mode_name(int mode) {
  switch (mode) {
    case 0:
    case 3:
      return "copy";
    case 1:
      return "flip";
    case 2:
      return "skip";
    default:
      return "-";
  }
}
}  // namespace

void timing_write() {
  if (!file_) return;
  if (!header_) {
    fputs("block\ttrial\ttype\taction\tdue_us\tactual_us\tlate_us\tdone_us\tretrace\tsystem_us\tvoice_us\tonset_us"
          "\ttarget_msc\tmsc\tust\tmode\tframes_late\n",
          file_);
    header_ = true;
  }
  for (const timing_record& r : records_) {
    int status = 0;
    char* type = abi::__cxa_demangle(r.type ? r.type->name() : "", nullptr, nullptr, &status);
    present_done d;
    if (!r.frame || !display_frame_told(r.frame, d)) d = present_done{};
    fprintf(file_, "%d\t%u\t%s\t%s\t%llu\t%llu\t%lld\t%llu\t%s\t%llu\t%llu\t%llu\t%llu\t%llu\t%llu\t%s\t%d\n", r.block, r.nummer,
            status == 0 && type ? type : "?", action_name(r.action), static_cast<unsigned long long>(r.due_us),
            static_cast<unsigned long long>(r.actual_us),
            static_cast<long long>(r.actual_us) - static_cast<long long>(r.due_us),
            static_cast<unsigned long long>(r.done_us),
            *display_vsync_source() ? display_vsync_source() : "none", static_cast<unsigned long long>(r.system_us), static_cast<unsigned long long>(r.voice_us),
            static_cast<unsigned long long>(r.onset_us), static_cast<unsigned long long>(d.target_msc),
            static_cast<unsigned long long>(d.msc), static_cast<unsigned long long>(d.ust), mode_name(d.mode), d.late);
    free(type);
  }
  fflush(file_);
  records_.clear();
}

void timing_clear() { records_.clear(); }

int timing_count() { return static_cast<int>(records_.size()); }
const timing_record* timing_records() { return records_.data(); }

void timing_done() {
  timing_write();
  if (file_) fclose(file_);
  file_ = nullptr;
  records_.clear();
  header_ = false;
}
