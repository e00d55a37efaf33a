// What a session killed with SIGKILL leaves on the disk: the results of
// every block that had ended, and files that are whole (the report and the
// timing trace as they were after some block, never half written).

#include <chrono>
#include <thread>

#include "fixture.h"

using harness::contains;
using harness::lines_with;

namespace {

struct Durable : ProgramTest {
  // Waits (at most 30 s) until ready() holds; false when it never did.
  static bool wait_for(const std::function<bool()>& ready) {
    for (int i = 0; i < 3000; ++i) {
      if (ready()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  void kill_and_read(const harness::Started& p) { kill(p.pid, SIGKILL), finish(p, SIGKILL); }

  // Every line of a tab-separated file has as many cells as its header,
  // and it ends with a whole line.
  static void expect_whole_tsv(const std::string& text) {
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    const size_t n = static_cast<size_t>(std::count(text.begin(), text.begin() + text.find('\n'), '\t')) + 1;
    std::istringstream s(text);
    for (std::string l; std::getline(s, l);)
      EXPECT_EQ(static_cast<size_t>(std::count(l.begin(), l.end(), '\t')) + 1, n) << l;
  }

  // Two short blocks of two omitted trials each, then a long one.
  const std::string kBlocks =
      "reak nummer=1 t0=100 t1=50 kritisch=1 maxreak=300 uv=first;\n"
      "reak nummer=2 t0=500 t1=50 kritisch=1 maxreak=300 uv=first;\n"
      "---\n"
      "reak nummer=3 t0=100 t1=50 kritisch=1 maxreak=300 uv=second;\n"
      "reak nummer=4 t0=500 t1=50 kritisch=1 maxreak=300 uv=second;\n"
      "---\n"
      "reak nummer=5 t0=60000 t1=50 kritisch=1 maxreak=300 uv=third;\n";
};

TEST_F(Durable, KillDuringASessionKeepsEveryBlockThatEnded) {
  dir.write("t.s", kBlocks);
  const harness::Started p = harness::start(dir, args_and({"-timing=timing.tsv"}));
  // Killed as soon as the second block's lines are on the disk, while the
  // third block runs.
  const bool second = wait_for([&] { return dir.exists("results.txt") && contains(dir.read("results.txt"), " second "); });
  kill_and_read(p);
  ASSERT_TRUE(second) << results;
  EXPECT_EQ(lines_with(results, " first ").size(), 2u) << results;
  EXPECT_EQ(lines_with(results, " second ").size(), 2u) << results;
  EXPECT_FALSE(contains(results, "third")) << results;
  EXPECT_EQ(results.back(), '\n');
  // The trace holds the blocks that ended, whole lines only; the log what
  // was said up to their end.
  const std::string timing = dir.read("timing.tsv");
  expect_whole_tsv(timing);
  std::set<std::string> blocks;
  std::istringstream lines(timing);
  for (std::string l; std::getline(lines, l);) blocks.insert(l.substr(0, l.find('\t')));
  EXPECT_TRUE(blocks.count("0") && !blocks.count("2")) << timing;
  EXPECT_TRUE(contains(log, "Running on Linux")) << log;
}

// That an empty file is removed at exit: Crossmodal.XOnTheInstructionPageEndsTheRun.
TEST_F(Durable, KillBeforeTheFirstBlockEndedLeavesAnEmptyFile) {
  dir.write("t.s", "reak nummer=1 t0=60000 t1=50 kritisch=1 maxreak=300 uv=late;\n");
  const harness::Started p = harness::start(dir, args());
  const bool opened = wait_for([&] { return dir.exists("results.txt"); });
  kill_and_read(p);
  ASSERT_TRUE(opened);
  EXPECT_TRUE(dir.exists("results.txt"));
  EXPECT_EQ(results, "");
}

TEST_F(Durable, ReportKilledWhileBeingReplacedIsTheWholeEarlierOne) {
  dir.write("t.s", kBlocks);
  // Each replacement waits a second halfway through its temporary file.
  const harness::Started p = harness::start(dir, args_and({"-report=rep"}), {"IXMOD_TEST_SLOW_REPLACE=1000"});
  // The first block's report is complete once its page is there; the next
  // temporary file is the second block's report being written.
  const bool first = wait_for([&] { return dir.exists("rep/t-report.html"); });
  const bool writing = first && wait_for([&] { return dir.exists("rep/t-report.tsv.tmp"); });
  kill_and_read(p);
  ASSERT_TRUE(writing);
  const std::string tsv = dir.read("rep/t-report.tsv");
  expect_whole_tsv(tsv);
  EXPECT_TRUE(!lines_with(tsv, "1\tfirst\t").empty() && lines_with(tsv, "2\tsecond\t").empty()) << tsv;
  const std::string html = dir.read("rep/t-report.html");
  EXPECT_TRUE(contains(html, "</html>")) << html.substr(html.size() > 200 ? html.size() - 200 : 0);
  // The results of the second block were on the disk before its report.
  EXPECT_EQ(lines_with(results, " second ").size(), 2u) << results;
}

}  // namespace
