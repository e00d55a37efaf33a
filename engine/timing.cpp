#include "engine/timing.h"

#include <cxxabi.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/display.h"
#include "platform/durable.h"
#include "services/argument.h"
#include "services/log.h"

namespace {
std::string file_;  // empty: no trace file
bool keep_ = false;
std::vector<timing_record> records_;

const char kHeader[] =
    "block\ttrial\ttype\taction\tdue_us\tactual_us\tlate_us\tdone_us\tretrace\tsystem_us\tvoice_us\tonset_us"
    "\ttarget_msc\tmsc\tust\tmode\tframes_late\n";

// The trace is replaced whole each time (the old lines, then the new), so
// a kill while it is written leaves the last complete one. A file that
// cannot be written is reported and the trace ends there.
void replace(const std::string& text, bool keep_old) {
  if (durable_replace(file_, text, keep_old) == 0) return;
  log_output_failed(file_.c_str());
  file_.clear();
}

const char* action_name(int a) { return a == 1 ? "preshow" : a == 2 ? "show" : a == 3 ? "hide" : "?"; }
}  // namespace

int timing_init() {
  const char* name = argument_value("timing");
  if (!name || !file_.empty()) return 0;
  file_ = name;
  replace(kHeader, false);
  if (!file_.empty()) atexit(timing_done);
  return 0;
}

bool timing_on() { return !file_.empty() || keep_; }
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
  if (file_.empty()) return;
  std::string text;
  for (const timing_record& r : records_) {
    int status = 0;
    char* type = abi::__cxa_demangle(r.type ? r.type->name() : "", nullptr, nullptr, &status);
    present_done d;
    if (!r.frame || !display_frame_told(r.frame, d)) d = present_done{};
    char head[40], tail[700];
    snprintf(head, sizeof head, "%d\t%u\t", r.block, r.nummer);
    snprintf(tail, sizeof tail, "\t%s\t%llu\t%llu\t%lld\t%llu\t%s\t%llu\t%llu\t%llu\t%llu\t%llu\t%llu\t%s\t%d\n",
             action_name(r.action), static_cast<unsigned long long>(r.due_us),
             static_cast<unsigned long long>(r.actual_us),
             static_cast<long long>(r.actual_us) - static_cast<long long>(r.due_us),
             static_cast<unsigned long long>(r.done_us), *display_vsync_source() ? display_vsync_source() : "none",
             static_cast<unsigned long long>(r.system_us), static_cast<unsigned long long>(r.voice_us),
             static_cast<unsigned long long>(r.onset_us), static_cast<unsigned long long>(d.target_msc),
             static_cast<unsigned long long>(d.msc), static_cast<unsigned long long>(d.ust), mode_name(d.mode), d.late);
    text += head;
    text += status == 0 && type ? type : "?";
    text += tail;
    free(type);
  }
  records_.clear();
  if (!text.empty()) replace(text, true);
}

void timing_clear() { records_.clear(); }

int timing_count() { return static_cast<int>(records_.size()); }
const timing_record* timing_records() { return records_.data(); }

void timing_done() {
  timing_write();
  file_.clear();
  records_.clear();
}
