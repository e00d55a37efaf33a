// The session report: per block and condition label, how the evaluated
// trials came out and the reaction times of the correct ones, as a
// tab-separated table and a self-contained HTML page with one reaction-time
// histogram per label. Without the option "report" nothing is collected or
// written; "-report=DIR" writes DIR/<log base>-report.tsv and .html after
// every block.
#pragma once
#include <string>
#include <utility>
#include <vector>

// How the block classifies an evaluated trial (kritisch: the key wanted, 0
// for a catch trial; reaktion: the key pressed, 0 for none).
enum class report_outcome { none, correct, wrong_key, false_alarm, omission, withheld };
report_outcome report_classify(int kritisch, int reaktion);

// Median, mean and sample standard deviation in ms; NaN where undefined
// (no value; the deviation of fewer than two).
struct rt_summary {
  int n;
  double median, mean, sd;
};
rt_summary rt_summarise(std::vector<long> rts);

struct report_counts {
  int trials = 0, correct = 0, wrong_key = 0, false_alarm = 0, omission = 0, withheld = 0, anticipation = 0;
  std::vector<long> rts;  // of the correct trials, in ms
  void add(report_outcome o, long rt, bool anticipated);
};

class session_report {
 public:
  // Starts the rows of block (the stimulus file's block number, from 1); a
  // block with no evaluated trial keeps its row over all labels.
  void begin_block(int block);
  // One evaluated trial of the block begun last; label null or empty is "-".
  // A trial classified none is not counted.
  void add(const char* label, report_outcome o, long rt, bool anticipated);

  struct block_rows {
    int block;
    std::vector<std::pair<std::string, report_counts>> labels;  // in order of first appearance
    report_counts all;
  };
  const std::vector<block_rows>& blocks() const { return blocks_; }
  // Correct reaction times of every label over the whole session.
  std::vector<std::pair<std::string, std::vector<long>>> rts_by_label() const;

  std::string tsv() const;
  std::string html(const std::string& title) const;

 private:
  std::vector<block_rows> blocks_;
};

// Text with &, <, >, " and ' as HTML entities.
std::string html_escape(const std::string& text);
// text when it is valid UTF-8, else text read as Latin-1 in UTF-8.
std::string utf8_text(const std::string& text);
// A histogram of rts (not empty) as an inline SVG element, median marked.
std::string rt_histogram_svg(const std::vector<long>& rts, const std::string& title);

// The program's report. report_init reads the option "report", creates its
// directory when missing and checks it is writable (-1 and a logged error
// otherwise); the base name follows the log file's. report_session is null
// without the option; report_write writes both files (0 without the option).
int report_init();
session_report* report_session();
int report_write();
// The file names report_write uses, "" without the option.
std::string report_path(const char* extension);
