// The table the timing benchmark prints: one row per measure, the figures
// in µs unless the row's name says otherwise, the target beside them and
// whether it was met. Shared by the benchmark's programs so that their rows
// line up in one table.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

struct bench_stats {
  size_t n = 0;
  double median = 0, p99 = 0, p999 = 0, max = 0, mean = 0, sd = 0;
};

// Percentiles by the nearest rank; sd is the sample standard deviation.
inline bench_stats bench_stats_of(std::vector<double> v) {
  bench_stats s;
  s.n = v.size();
  if (v.empty()) return s;
  std::sort(v.begin(), v.end());
  auto at = [&](double q) {
    const size_t rank = static_cast<size_t>(std::ceil(q * static_cast<double>(v.size())));
    return v[std::min(v.size() - 1, rank > 0 ? rank - 1 : 0)];
  };
  s.median = at(0.5);
  s.p99 = at(0.99);
  s.p999 = at(0.999);
  s.max = v.back();
  double sum = 0, sq = 0;
  for (double x : v) sum += x;
  s.mean = sum / static_cast<double>(v.size());
  for (double x : v) sq += (x - s.mean) * (x - s.mean);
  s.sd = v.size() > 1 ? std::sqrt(sq / static_cast<double>(v.size() - 1)) : 0;
  return s;
}

inline void bench_header() {
  printf("%-46s %6s %9s %9s %9s %9s %9s %9s  %-26s %s\n", "measure (us)", "n", "median", "p99", "p99.9", "max",
         "mean", "sd", "target", "met");
}

inline void bench_section(const char* title) { printf("%s\n", title); }

// verdict: "yes", "NO", or "" for rows without a target (baselines).
inline void bench_row(const std::string& what, const bench_stats& s, const std::string& target = "",
                      const std::string& verdict = "", const std::string& note = "") {
  printf("  %-44s %6zu %9.1f %9.1f %9.1f %9.1f %9.1f %9.1f  %-26s %s%s%s\n", what.c_str(), s.n, s.median, s.p99,
         s.p999, s.max, s.mean, s.sd, target.c_str(), verdict.c_str(), note.empty() ? "" : "  ", note.c_str());
  fflush(stdout);
}

// A row of single figures (counts, drift, start-up time).
inline void bench_value(const std::string& what, const std::string& value, const std::string& target = "",
                        const std::string& verdict = "") {
  printf("  %-44s %-65s  %-26s %s\n", what.c_str(), value.c_str(), target.c_str(), verdict.c_str());
  fflush(stdout);
}

inline const char* bench_met(bool ok) { return ok ? "yes" : "NO"; }
