// The session report: statistics, classification and anticipations from a
// block run on the fake clock, the table's rows, the HTML page, start-up.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "fake_clock.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "platform/directory.h"
#include "screens/info.h"
#include "services/report.h"
#include "test_support.h"

namespace {

std::vector<std::string> split(const std::string& text, char sep) {
  std::vector<std::string> out(1);
  for (char c : text)
    if (c == sep) out.emplace_back();
    else out.back() += c;
  return out;
}

size_t occurrences(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1)) ++n;
  return n;
}

// {rts} -> median, mean, sd (NaN: undefined).
struct StatsCase {
  std::vector<long> rts;
  double median, mean, sd;
};
class ReportStats : public ::testing::TestWithParam<StatsCase> {};

TEST_P(ReportStats, MedianMeanSampleSd) {
  const StatsCase& c = GetParam();
  const rt_summary s = rt_summarise(c.rts);
  EXPECT_EQ(s.n, static_cast<int>(c.rts.size()));
  auto same = [](double got, double want) {
    return std::isnan(want) ? std::isnan(got) : std::fabs(got - want) < 1e-9;
  };
  EXPECT_TRUE(same(s.median, c.median)) << s.median;
  EXPECT_TRUE(same(s.mean, c.mean)) << s.mean;
  EXPECT_TRUE(same(s.sd, c.sd)) << s.sd;
}

const double kNaN = std::nan("");
INSTANTIATE_TEST_SUITE_P(Report, ReportStats, ::testing::Values(
    StatsCase{{}, kNaN, kNaN, kNaN},
    StatsCase{{250}, 250, 250, kNaN},                       // one value has no sample SD
    StatsCase{{400, 200, 300}, 300, 300, 100},              // odd count, unsorted input
    StatsCase{{500, 200, 400, 300}, 350, 350, std::sqrt(50000.0 / 3)},  // even count: middle two
    StatsCase{{100, 100, 900}, 100, 1100.0 / 3, std::sqrt(640000.0 / 3)}));

TEST(Report, ClassifiesAsTheBlockDoes) {
  EXPECT_EQ(report_classify(1, 1), report_outcome::correct);
  EXPECT_EQ(report_classify(2, 1), report_outcome::wrong_key);
  EXPECT_EQ(report_classify(-1, 3), report_outcome::wrong_key);  // a reak trial without a wanted key
  EXPECT_EQ(report_classify(0, 4), report_outcome::false_alarm);
  EXPECT_EQ(report_classify(1, 0), report_outcome::omission);
  EXPECT_EQ(report_classify(0, 0), report_outcome::withheld);
}

// Scripted reaction keys on the test clock, as in the run-loop test.
struct Press {
  long at_ms;
  int code;
  bool done;
};
std::vector<Press> presses;
int read_key(int& code) {
  code = 0;
  const long now = fake_clock::test_ms();
  for (Press& p : presses)
    if (!p.done && now >= p.at_ms) {
      p.done = true;
      code = p.code;
      break;
    }
  return 0;
}
int no_key() { return 0; }
void unget_key(int) {}
const tastatur_device kDevice{no_key, unget_key, no_key, nullptr, nullptr};

class ReportBlock : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    taste_reset();
    taste_fake(read_key);
    tastatur_fake(&kDevice);
    info_reset();
    stim_registry_clear();
    stim_register("null", stim_make<stim>);
  }
  void TearDown() override {
    taste_reset();
    tastatur_fake(nullptr);
    stim_registry_clear();
    fake_clock::stop();
  }
};

TEST_F(ReportBlock, APageHasNoRowATrialBlockEndedEarlyKeepsOne) {
  // Blocks as lines: whether the report gets a row for them.
  const struct {
    std::vector<std::string> lines;
    bool row;
  } cases[] = {
      {{"null t0=0 t1=10 kritisch=-1"}, false},                                   // an instruction page
      {{"null t0=0 t1=10 kritisch=-1", "null nummer=1 t0=20 t1=10 kritisch=-1"}, false},
      {{"null t0=0 t1=10 kritisch=-1", "null nummer=1 t0=20 t1=10 kritisch=0"}, true},  // one catch trial
  };
  for (const auto& c : cases) {
    std::vector<std::string> lines = c.lines;
    std::vector<char*> raw;
    for (std::string& l : lines) raw.push_back(l.data());
    int err = 0;
    stimuli block(static_cast<int>(raw.size()), raw.data(), err);
    ASSERT_EQ(err, 0);
    session_report rep;
    block.report(rep, 2);  // not run: a trial block whose run ended before its first trial
    EXPECT_EQ(rep.blocks().size(), c.row ? 1u : 0u) << lines.back();
  }
}

TEST_F(ReportBlock, CountsOutcomesAndAnticipationsOfARun) {
  // Trials 100 ms minreak, 5000 ms maxreak, shown for 50 ms.
  std::vector<std::string> lines = {
      "null nummer=1 t0=100 t1=50 kritisch=1 uv=A;",    // press at minreak (ignored), then correct at 150
      "null nummer=2 t0=6000 t1=50 kritisch=1 uv=A;",   // correct at minreak + 1
      "null nummer=3 t0=12000 t1=50 kritisch=2 uv=B;",  // wrong key
      "null nummer=4 t0=18000 t1=50 kritisch=0 uv=B;",  // false alarm
      "null nummer=5 t0=24000 t1=50 kritisch=1",        // omission, no label
      "null nummer=6 t0=30000 t1=50 kritisch=0 uv=B;",  // an early press, then withheld
      "null nummer=7 t0=36000 t1=50 kritisch=-1 uv=A;", // not evaluated
  };
  std::vector<char*> raw;
  for (std::string& l : lines) raw.push_back(l.data());
  int err = 0;
  stimuli block(static_cast<int>(raw.size()), raw.data(), err);
  ASSERT_EQ(err, 0);
  presses = {{200, 1, false},   {250, 1, false},   {6101, 1, false},
             {12300, 1, false}, {18400, 3, false}, {30050, 2, false}};
  fake_clock::read();
  ASSERT_EQ(block.run(0), 0);

  std::vector<int> early;
  for (int i = 0; i < block.anzahl(); ++i) early.push_back(block.antizipationen(i));
  EXPECT_EQ(early, (std::vector<int>{1, 0, 0, 0, 0, 1, 0}));

  session_report rep;
  block.report(rep, 3);
  ASSERT_EQ(rep.blocks().size(), 1u);
  const session_report::block_rows& b = rep.blocks()[0];
  EXPECT_EQ(b.block, 3);
  ASSERT_EQ(b.labels.size(), 3u);
  // label: trials correct wrong false-alarm omission withheld anticipation | rts
  auto row = [](const std::string& label, const report_counts& c) {
    std::string s = label + ": ";
    for (int v : {c.trials, c.correct, c.wrong_key, c.false_alarm, c.omission, c.withheld, c.anticipation})
      s += std::to_string(v) + " ";
    s += "|";
    for (long rt : c.rts) s += " " + std::to_string(rt);
    return s;
  };
  EXPECT_EQ(row(b.labels[0].first, b.labels[0].second), "A: 2 2 0 0 0 0 1 | 150 101");
  EXPECT_EQ(row(b.labels[1].first, b.labels[1].second), "B: 3 0 1 1 0 1 1 |");
  EXPECT_EQ(row(b.labels[2].first, b.labels[2].second), "-: 1 0 0 0 1 0 0 |");
  EXPECT_EQ(row("*", b.all), "*: 6 2 1 1 1 1 2 | 150 101");

  // A second run starts its counts afresh.
  presses.clear();
  for (int i = 0; i < block.anzahl(); ++i) block.stimulus(i)->reaktion = 0;
  fake_clock::read();
  ASSERT_EQ(block.run(alleg_get_timer()), 0);
  for (int i = 0; i < block.anzahl(); ++i) EXPECT_EQ(block.antizipationen(i), 0) << i;
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
      ""};
  EXPECT_EQ(rows, want);
}

TEST(Report, TsvLabelsKeepTheirRow) {
  session_report rep;
  rep.begin_block(1);
  rep.add("a\tb\nc", report_outcome::correct, 300, false);
  EXPECT_EQ(split(rep.tsv(), '\n')[1], "1\ta b c\t1\t1\t0\t0\t0\t0\t0\t300.0\t300.0\t");
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
  // Labels hoch, tief, the escaped one with correct RTs; "none correct" says so.
  EXPECT_EQ(occurrences(html, "<svg "), 3u);
  EXPECT_NE(html.find("<h3>none correct</h3>\n<p>No correct reactions.</p>"), std::string::npos);
  // Self-contained: no scripts, no links to other files.
  for (const char* bad : {"<script", "src=", "href=", "url(", "<link"})
    EXPECT_EQ(html.find(bad), std::string::npos) << bad;
  // hoch over the session: 300 and 400 (the wrong key's RT is no correct RT).
  EXPECT_NE(html.find("median 350.0 ms"), std::string::npos);
  EXPECT_NE(html.find(">reaction time (ms)<"), std::string::npos);
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
  EXPECT_GE(bars, 5u);
  EXPECT_LE(bars, 25u);
  // One bar per occupied bin: a single value gives one bar, labelled axis.
  const std::string one = rt_histogram_svg({321}, "y");
  EXPECT_EQ(occurrences(one, "class=\"bar\""), 1u);
  EXPECT_NE(one.find(">320<"), std::string::npos);  // the bin's left edge, a round number
  EXPECT_NE(one.find("median 321.0 ms"), std::string::npos);
}

TEST(Report, DirectoryIsMadeOrRefused) {
  TempDir dir;
  EXPECT_EQ(directory_ensure(dir.path("new").c_str()), 0);
  struct stat st;
  ASSERT_EQ(stat(dir.path("new").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  EXPECT_EQ(directory_ensure(dir.path("new").c_str()), 0);  // existing is fine
  errno = 0;
  EXPECT_EQ(directory_ensure(dir.path("missing/new").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  dir.write("file", "x");
  EXPECT_EQ(directory_ensure(dir.path("file").c_str()), -1);
  EXPECT_EQ(errno, ENOTDIR);
  if (geteuid() != 0) {  // root writes everywhere
    ASSERT_EQ(chmod(dir.path("new").c_str(), 0500), 0);
    EXPECT_EQ(directory_ensure(dir.path("new").c_str()), -1);
    EXPECT_EQ(errno, EACCES);
  }
}

TEST(Report, InitWritesNextToNothingWithoutTheOption) {
  TempDir dir;
  {
    LogCapture log;
    ASSERT_EQ(report_init(), 0);
    EXPECT_EQ(report_session(), nullptr);
    EXPECT_EQ(report_write(), 0);
  }
  {
    LogCapture log({"-report=" + dir.path("missing/r")});
    EXPECT_EQ(report_init(), -1);
    EXPECT_TRUE(log.has("report: " + dir.path("missing/r") + ": No such file or directory")) << log.text();
  }
  {
    LogCapture log({"-report=" + dir.path("r")});  // the log is x.log in a directory of its own
    ASSERT_EQ(report_init(), 0);
    ASSERT_NE(report_session(), nullptr);
    report_session()->begin_block(1);
    report_session()->add("a", report_outcome::correct, 300, false);
    ASSERT_EQ(report_write(), 0);
    EXPECT_EQ(split(read_text(dir.path("r/x-report.tsv")), '\n').size(), 4u);
    EXPECT_NE(read_text(dir.path("r/x-report.html")).find("<svg "), std::string::npos);
  }
  report_init();  // back to no report: the arguments are gone
}

}  // namespace
