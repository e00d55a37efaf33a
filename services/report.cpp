#include "services/report.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "platform/directory.h"
#include "platform/durable.h"
#include "services/argument.h"
#include "services/log.h"

report_outcome report_classify(int kritisch, int reaktion) {
  if (kritisch != 0 && reaktion == kritisch) return report_outcome::correct;
  if (kritisch != 0 && reaktion != 0) return report_outcome::wrong_key;
  if (kritisch == 0 && reaktion > 0) return report_outcome::false_alarm;
  if (kritisch != 0 && reaktion == 0) return report_outcome::omission;
  if (kritisch == 0 && reaktion == 0) return report_outcome::withheld;
  return report_outcome::none;
}

rt_summary rt_summarise(std::vector<long> rts) {
  const double nan = std::nan("");
  rt_summary s{static_cast<int>(rts.size()), nan, nan, nan};
  if (rts.empty()) return s;
  std::sort(rts.begin(), rts.end());
  const size_t n = rts.size();
  s.median = n % 2 ? static_cast<double>(rts[n / 2]) : (rts[n / 2 - 1] + rts[n / 2]) / 2.0;
  double sum = 0;
  for (long v : rts) sum += static_cast<double>(v);
  s.mean = sum / static_cast<double>(n);
  if (n >= 2) {
    double sq = 0;
    for (long v : rts) sq += (static_cast<double>(v) - s.mean) * (static_cast<double>(v) - s.mean);
    s.sd = std::sqrt(sq / static_cast<double>(n - 1));
  }
  return s;
}

void report_counts::add(report_outcome o, long rt, bool anticipated) {
  switch (o) {
    case report_outcome::none:
      return;
    case report_outcome::correct:
      ++correct;
      rts.push_back(rt);
      break;
    case report_outcome::wrong_key:
      ++wrong_key;
      break;
    case report_outcome::false_alarm:
      ++false_alarm;
      break;
    case report_outcome::omission:
      ++omission;
      break;
    case report_outcome::withheld:
      ++withheld;
      break;
  }
  ++trials;
  if (anticipated) ++anticipation;
}

void session_report::begin_block(int block) { blocks_.push_back(block_rows{block, {}, {}}); }

void session_report::add(const char* label, report_outcome o, long rt, bool anticipated) {
  if (o == report_outcome::none) return;
  if (blocks_.empty()) begin_block(0);
  block_rows& b = blocks_.back();
  const std::string name = label && *label ? label : "-";
  auto it = std::find_if(b.labels.begin(), b.labels.end(), [&](const auto& l) { return l.first == name; });
  if (it == b.labels.end()) it = b.labels.insert(b.labels.end(), {name, report_counts{}});
  it->second.add(o, rt, anticipated);
  b.all.add(o, rt, anticipated);
}

std::vector<std::pair<std::string, std::vector<long>>> session_report::rts_by_label() const {
  std::vector<std::pair<std::string, std::vector<long>>> out;
  for (const block_rows& b : blocks_)
    for (const auto& entry : b.labels) {
      const std::string& label = entry.first;
      const std::vector<long>& rts = entry.second.rts;
      auto it = std::find_if(out.begin(), out.end(), [&](const auto& l) { return l.first == label; });
      if (it == out.end()) it = out.insert(out.end(), {label, {}});
      it->second.insert(it->second.end(), rts.begin(), rts.end());
    }
  return out;
}

namespace {
const char* const kColumns[] = {"block",    "label",    "trials",       "correct",      "wrong_key", "false_alarm",
                                "omission", "withheld", "anticipation", "rt_median_ms", "rt_mean_ms", "rt_sd_ms"};

std::string number(double v) {
  if (std::isnan(v)) return "";
  char buf[40];
  snprintf(buf, sizeof buf, "%.1f", v);
  return buf;
}

// The cells of one row, the label as given.
std::vector<std::string> cells(int block, const std::string& label, const report_counts& c) {
  const rt_summary s = rt_summarise(c.rts);
  return {std::to_string(block),         label,
          std::to_string(c.trials),      std::to_string(c.correct),
          std::to_string(c.wrong_key),   std::to_string(c.false_alarm),
          std::to_string(c.omission),    std::to_string(c.withheld),
          std::to_string(c.anticipation), number(s.median),
          number(s.mean),                number(s.sd)};
}

template <class F>
void each_row(const std::vector<session_report::block_rows>& blocks, F f) {
  for (const session_report::block_rows& b : blocks) {
    for (const auto& [label, c] : b.labels) f(cells(b.block, label, c), false);
    f(cells(b.block, "*", b.all), true);
  }
}

// A tab or line break in a label would break the table's rows.
std::string tsv_cell(std::string s) {
  for (char& ch : s)
    if (ch == '\t' || ch == '\n' || ch == '\r') ch = ' ';
  return s;
}

std::string format(const char* fmt, double a, double b = 0, double c = 0, double d = 0) {
  char buf[200];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  snprintf(buf, sizeof buf, fmt, a, b, c, d);
#pragma GCC diagnostic pop
  return buf;
}
}  // namespace

std::string session_report::tsv() const {
  std::string out;
  for (const char* col : kColumns) out += std::string(out.empty() ? "" : "\t") + col;
  out += "\n";
  each_row(blocks_, [&](const std::vector<std::string>& row, bool) {
    for (size_t i = 0; i < row.size(); ++i) out += (i ? "\t" : "") + tsv_cell(row[i]);
    out += "\n";
  });
  return out;
}

std::string html_escape(const std::string& text) {
  std::string out;
  for (char ch : text) {
    switch (ch) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += ch;
    }
  }
  return out;
}

std::string utf8_text(const std::string& text) {
  // Valid UTF-8 stays; anything else is read as Latin-1, the stimulus
  // files' own encoding.
  bool valid = true;
  for (size_t i = 0; i < text.size() && valid;) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (len == 0 || i + len > text.size()) valid = false;
    for (size_t k = 1; k < len && valid; ++k)
      if ((static_cast<unsigned char>(text[i + k]) >> 6) != 2) valid = false;
    i += len ? len : 1;
  }
  if (valid) return text;
  std::string out;
  for (char ch : text) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      out += ch;
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::string rt_histogram_svg(const std::vector<long>& rts, const std::string& title) {
  if (rts.empty()) return "";
  const long lo_rt = *std::min_element(rts.begin(), rts.end());
  const long hi_rt = *std::max_element(rts.begin(), rts.end());
  // Bins of a round width, about the square root of the count of them
  // (5 to 25), never narrower than 10 ms.
  const int target = std::clamp(static_cast<int>(std::ceil(std::sqrt(static_cast<double>(rts.size())))), 5, 25);
  static const long kWidths[] = {10, 20, 25, 50, 100, 200, 250, 500, 1000, 2000, 2500, 5000, 10000};
  long width = kWidths[std::size(kWidths) - 1];
  for (long w : kWidths)
    if (w * target >= hi_rt - lo_rt) {
      width = w;
      break;
    }
  auto floor_div = [](long a, long b) { return a >= 0 ? a / b : -((-a + b - 1) / b); };
  const long lo = floor_div(lo_rt, width) * width;
  const int bins = static_cast<int>((hi_rt - lo) / width) + 1;
  std::vector<int> count(static_cast<size_t>(bins), 0);
  for (long v : rts) ++count[static_cast<size_t>((v - lo) / width)];
  const int top = *std::max_element(count.begin(), count.end());

  const double W = 560, H = 260, L = 55, R = 20, T = 30, B = 50;
  const double pw = W - L - R, ph = H - T - B;
  const double span = static_cast<double>(bins * width);
  auto x = [&](double ms) { return L + (ms - static_cast<double>(lo)) / span * pw; };
  auto y = [&](double n) { return T + ph - n / top * ph; };

  std::string s = format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                         "viewBox=\"0 0 %.0f %.0f\" role=\"img\"",
                         W, H, W, H);
  s += " aria-label=\"" + html_escape(utf8_text(title)) + "\">\n";
  for (int i = 0; i < bins; ++i) {
    if (count[static_cast<size_t>(i)] == 0) continue;
    const double x0 = x(static_cast<double>(lo + i * width)), x1 = x(static_cast<double>(lo + (i + 1) * width));
    s += format("<rect class=\"bar\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>\n", x0 + 0.5,
                y(count[static_cast<size_t>(i)]), x1 - x0 - 1, T + ph - y(count[static_cast<size_t>(i)]));
  }
  // Axes, ticks at bin edges (at most about ten labelled), counts 0 and top.
  s += format("<path class=\"axis\" d=\"M%.1f %.1f V%.1f H%.1f\"/>\n", L, T, T + ph, L + pw);
  const int every = (bins + 9) / 10;
  for (int i = 0; i <= bins; i += every) {
    const double xi = x(static_cast<double>(lo + i * width));
    s += format("<path class=\"axis\" d=\"M%.1f %.1f v5\"/>", xi, T + ph);
    s += format("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">", xi, T + ph + 18) +
         std::to_string(lo + i * width) + "</text>\n";
  }
  s += format("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">0</text>\n", L - 6, T + ph + 4);
  s += format("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%.0f</text>\n", L - 6, T + 4, top);
  s += format("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">reaction time (ms)</text>\n", L + pw / 2, H - 10);
  s += format("<text x=\"14\" y=\"%.1f\" text-anchor=\"middle\" transform=\"rotate(-90 14 %.1f)\">trials"
              "</text>\n",
              T + ph / 2, T + ph / 2);
  const double median = rt_summarise(rts).median;
  s += format("<path class=\"median\" d=\"M%.1f %.1f V%.1f\"/>\n", x(median), T - 8, T + ph);
  s += format("<text class=\"median\" x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">median %.1f ms</text>\n",
              x(median), T - 12, median);
  s += "</svg>\n";
  return s;
}

std::string session_report::html(const std::string& title) const {
  char when[64] = "";
  const time_t now = time(nullptr);
  struct tm tm_now;
  if (localtime_r(&now, &tm_now)) strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &tm_now);
  const std::string t = html_escape(utf8_text(title));
  std::string out =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + t +
      "</title>\n<style>\n"
      "body { font-family: sans-serif; margin: 2em; color: #222; }\n"
      "table { border-collapse: collapse; margin-bottom: 2em; }\n"
      "th, td { border: 1px solid #bbb; padding: 0.25em 0.6em; }\n"
      "td.n { text-align: right; }\n"
      "tr.all td { font-weight: bold; background: #eee; }\n"
      "svg text { font: 12px sans-serif; fill: #222; }\n"
      "svg .bar { fill: #4a7ab5; }\n"
      "svg .axis { stroke: #222; fill: none; }\n"
      "svg .median { stroke: #c0392b; stroke-width: 2; stroke-dasharray: 5 3; }\n"
      "svg text.median { stroke: none; fill: #c0392b; }\n"
      "</style>\n</head>\n<body>\n<h1>" +
      t + "</h1>\n<p>Written " + when +
      ". One row per block and condition label, and one per block over all labels (*). Reaction times "
      "are those of correct trials; the standard deviation is the sample one. An anticipation is a trial "
      "with a press before its minimum reaction time; it is also counted in its outcome.</p>\n<table>\n<tr>";
  for (const char* col : kColumns) out += std::string("<th>") + col + "</th>";
  out += "</tr>\n";
  each_row(blocks_, [&](const std::vector<std::string>& row, bool all) {
    out += all ? "<tr class=\"all\">" : "<tr>";
    for (size_t i = 0; i < row.size(); ++i)
      out += std::string(i == 1 ? "<td>" : "<td class=\"n\">") + html_escape(utf8_text(row[i])) + "</td>";
    out += "</tr>\n";
  });
  out += "</table>\n<h2>Reaction times of correct trials, whole session</h2>\n";
  for (const auto& [label, rts] : rts_by_label()) {
    out += "<h3>" + html_escape(utf8_text(label)) + "</h3>\n";
    if (rts.empty()) {
      out += "<p>No correct reactions.</p>\n";
    } else {
      out += "<p>" + std::to_string(rts.size()) + " correct reactions.</p>\n";
      out += rt_histogram_svg(rts, label);
    }
  }
  out += "</body>\n</html>\n";
  return out;
}

namespace {
std::string dir_;
std::string base_;
std::unique_ptr<session_report> session_;

// The log file's name (option "log", by default the program's path with
// "log" for its extension) without folders and extension.
std::string log_base() {
  char def[255];
  argument_progname(def, sizeof def, "log");
  const char* name = argument_value("log");
  if (!name) name = def;
  std::string base = name;
  const size_t slash = base.rfind('/');
  if (slash != std::string::npos) base.erase(0, slash + 1);
  const size_t dot = base.rfind('.');
  if (dot != std::string::npos && dot > 0) base.erase(dot);
  return base.empty() ? "ixmod" : base;
}
}  // namespace

int report_init() {
  session_.reset();
  dir_.clear();
  base_.clear();
  if (argument_lookup("report") == 0) return 0;
  const char* dir = argument_value("report");
  const std::string text = std::string("report: ") + (dir ? dir : "");
  if (!dir) {
    errno = ENOENT;
    alleg_perror(text.c_str());
    return -1;
  }
  if (directory_ensure(dir) != 0) {
    alleg_perror(text.c_str());
    return -1;
  }
  dir_ = dir;
  base_ = log_base();
  session_ = std::make_unique<session_report>();
  alleg_message("report", report_path("tsv").c_str());
  return 0;
}

session_report* report_session() { return session_.get(); }

std::string report_path(const char* extension) {
  if (!session_) return "";
  return dir_ + "/" + base_ + "-report." + extension;
}

int report_write() {
  if (!session_) return 0;
  const std::string tsv = report_path("tsv"), html = report_path("html");
  // Each file is replaced whole: a kill while it is written leaves the
  // previous block's report.
  if (durable_replace(tsv, session_->tsv()) != 0) {
    log_output_failed(("report: " + tsv).c_str());
    return -1;
  }
  if (durable_replace(html, session_->html("Session report: " + base_)) != 0) {
    log_output_failed(("report: " + html).c_str());
    return -1;
  }
  return 0;
}
