// The session report: statistics, classification, the table's rows, the HTML
// page, its directory. The counts of a block run are in the run-loop test.

#include <sys/stat.h>
#include <unistd.h>

#include "platform/directory.h"
#include "services/report.h"
#include "test_support.h"

namespace {

size_t occurrences(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1)) ++n;
  return n;
}

TEST(Report, MedianMeanSampleSdAndClasses) {
  const double nan = std::nan("");
  const struct { std::vector<long> rts; double median, mean, sd; } cases[] = {
      {{}, nan, nan, nan}, {{250}, 250, 250, nan},  // one value has no sample SD
      {{400, 200, 300}, 300, 300, 100},             // odd count, unsorted input
      {{500, 200, 400, 300}, 350, 350, std::sqrt(50000.0 / 3)},  // even count: middle two
      {{100, 100, 900}, 100, 1100.0 / 3, std::sqrt(640000.0 / 3)}};
  auto same = [](double got, double want) { return std::isnan(want) ? std::isnan(got) : std::fabs(got - want) < 1e-9; };
  for (const auto& c : cases) {
    const rt_summary s = rt_summarise(c.rts);
    EXPECT_TRUE(s.n == static_cast<int>(c.rts.size()) && same(s.median, c.median) && same(s.mean, c.mean) &&
                same(s.sd, c.sd)) << c.rts.size() << ": " << s.median << " " << s.mean << " " << s.sd;
  }
  // kritisch, reaktion -> class; -1: a reak trial without a wanted key
  const struct { int kritisch, reaktion; report_outcome want; } classes[] = {
      {1, 1, report_outcome::correct},      {2, 1, report_outcome::wrong_key}, {-1, 3, report_outcome::wrong_key},
      {0, 4, report_outcome::false_alarm}, {1, 0, report_outcome::omission},  {0, 0, report_outcome::withheld}};
  for (const auto& c : classes) EXPECT_EQ(report_classify(c.kritisch, c.reaktion), c.want) << c.kritisch << c.reaktion;
}

session_report two_blocks() {
  session_report rep;
  rep.begin_block(2);
  rep.add("hoch", report_outcome::correct, 300, false);
  rep.add("tief", report_outcome::false_alarm, 0, true);
  rep.add("hoch", report_outcome::correct, 400, true);
  rep.add("hoch", report_outcome::omission, 0, false);
  rep.begin_block(4);
  rep.add("tief", report_outcome::withheld, 0, false);
  rep.add("tief", report_outcome::correct, 500, false);
  rep.add("hoch", report_outcome::wrong_key, 700, false);
  rep.add("", report_outcome::none, 0, true);  // not counted
  rep.begin_block(5);                          // a block without evaluated trials
  rep.begin_block(7);
  rep.add("a\tb\nc", report_outcome::correct, 300, false);  // a label keeps its row
  return rep;
}

TEST(Report, TsvRowsPerBlockAndLabel) {
  const std::vector<std::string> rows = split(two_blocks().tsv(), '\n');
  const std::vector<std::string> want = {
      "block\tlabel\ttrials\tcorrect\twrong_key\tfalse_alarm\tomission\twithheld\tanticipation\t"
      "rt_median_ms\trt_mean_ms\trt_sd_ms",
      "2\thoch\t3\t2\t0\t0\t1\t0\t1\t350.0\t350.0\t70.7",
      "2\ttief\t1\t0\t0\t1\t0\t0\t1\t\t\t",
      "2\t*\t4\t2\t0\t1\t1\t0\t2\t350.0\t350.0\t70.7",
      "4\ttief\t2\t1\t0\t0\t0\t1\t0\t500.0\t500.0\t",
      "4\thoch\t1\t0\t1\t0\t0\t0\t0\t\t\t",
      "4\t*\t3\t1\t1\t0\t0\t1\t0\t500.0\t500.0\t",
      "5\t*\t0\t0\t0\t0\t0\t0\t0\t\t\t",
      "7\ta b c\t1\t1\t0\t0\t0\t0\t0\t300.0\t300.0\t",
      "7\t*\t1\t1\t0\t0\t0\t0\t0\t300.0\t300.0\t",
      ""};
  EXPECT_EQ(rows, want);
}

TEST(Report, HtmlEscapesLabelsAndDrawsOneHistogramPerLabel) {
  session_report rep = two_blocks();
  rep.begin_block(6);
  rep.add("<b>&\"x'", report_outcome::correct, 250, false);
  rep.add("none correct", report_outcome::omission, 0, false);
  const std::string html = rep.html("Session report: t<1>");
  EXPECT_EQ(html.find("<b>&"), std::string::npos);
  EXPECT_NE(html.find("&lt;b&gt;&amp;&quot;x&#39;"), std::string::npos);
  EXPECT_NE(html.find("<title>Session report: t&lt;1&gt;</title>"), std::string::npos);
  // Labels hoch, tief, "a b c", the escaped one with correct RTs; "none correct" says so.
  EXPECT_EQ(occurrences(html, "<svg "), 4u);
  EXPECT_NE(html.find("<h3>none correct</h3>\n<p>No correct reactions.</p>"), std::string::npos);
  // Self-contained: no scripts, no links to other files.
  for (const char* bad : {"<script", "src=", "href=", "url(", "<link"})
    EXPECT_EQ(html.find(bad), std::string::npos) << bad;
  // hoch over the session: 300 and 400 (the wrong key's RT is no correct RT).
  EXPECT_NE(html.find("median 350.0 ms"), std::string::npos);
}

TEST(Report, HtmlTextIsUtf8WhateverTheStimulusFileUsed) {
  EXPECT_EQ(utf8_text("gr\xfcn"), "gr\xc3\xbcn");        // Latin-1
  EXPECT_EQ(utf8_text("gr\xc3\xbcn"), "gr\xc3\xbcn");    // already UTF-8
  EXPECT_EQ(utf8_text("\xc3"), "\xc3\x83");               // a cut sequence is Latin-1
  session_report rep;
  rep.begin_block(1);
  rep.add("gr\xfcn", report_outcome::correct, 300, false);
  EXPECT_NE(rep.html("t").find("<h3>gr\xc3\xbcn</h3>"), std::string::npos);
  EXPECT_NE(rep.tsv().find("\tgr\xfcn\t"), std::string::npos);  // the table keeps the file's bytes
}

TEST(Report, HistogramBinsEveryValueOnce) {
  std::vector<long> rts;
  for (long v = 200; v < 700; v += 7) rts.push_back(v);  // 72 values, range 497 ms
  const std::string svg = rt_histogram_svg(rts, "x");
  const size_t bars = occurrences(svg, "class=\"bar\"");
  EXPECT_TRUE(bars >= 5 && bars <= 25) << bars;
  // One bar per occupied bin: a single value gives one bar, labelled axis.
  const std::string one = rt_histogram_svg({321}, "y");
  EXPECT_EQ(occurrences(one, "class=\"bar\""), 1u);
  EXPECT_NE(one.find(">320<"), std::string::npos);  // the bin's left edge, a round number
  EXPECT_NE(one.find("median 321.0 ms"), std::string::npos);
}

TEST(Report, DirectoryIsMadeOrRefused) {
  TempDir dir;
  dir.write("file", "x");
  // Made, then found; root writes everywhere, so the read-only case needs another user.
  const struct { const char* name; int result, error; } cases[] = {
      {"new", 0, 0}, {"new", 0, 0}, {"missing/new", -1, ENOENT}, {"file", -1, ENOTDIR}, {"ro/new", -1, EACCES}};
  ASSERT_EQ(mkdir(dir.path("ro").c_str(), 0500), 0);
  for (const auto& c : cases) {
    if (c.error == EACCES && geteuid() == 0) continue;
    errno = 0;
    EXPECT_TRUE(directory_ensure(dir.path(c.name).c_str()) == c.result && (!c.result || errno == c.error)) << c.name << " " << errno;
  }
  struct stat st;
  EXPECT_TRUE(stat(dir.path("new").c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

}  // namespace
