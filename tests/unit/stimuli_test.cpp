#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "screens/null.h"
#include "tests/unit/test_support.h"

namespace {
struct Block : ::testing::Test {
  void SetUp() override {
    stim_registry_clear();
    stim_register("null", _null);
    stimuli_reset_order();
  }
  void TearDown() override {
    stimfile_done();
    stim_registry_clear();
    stimuli_reset_order();
  }
  static void store(const std::string& text) {
    FILE* f = tmpfile();
    fwrite(text.data(), 1, text.size(), f);
    rewind(f);
    stimfile_read(f, "test.s");
    fclose(f);
  }
  LogCapture log;
};
}  // namespace

TEST_F(Block, FromLines) {
  char l0[] = "null nummer=1\n", l1[] = "null nummer=2 t0=500\n";
  char* good[] = {l0, l1};
  int err = -1;
  stimuli b(2, good, err);
  EXPECT_EQ(err, 0);
  ASSERT_EQ(b.anzahl(), 2);
  EXPECT_EQ(b.stimulus(1)->t0, 500);
  EXPECT_EQ(b.stimulus(2), nullptr);
  char empty[] = "", newline[] = "\n", unknown[] = "bmp datei=a.bmp\n";
  for (char* bad : {static_cast<char*>(nullptr), empty, newline, unknown}) {
    char* refused[] = {l0, bad};
    stimuli r(2, refused, err);
    EXPECT_EQ(err, -1);
  }
  EXPECT_TRUE(log.has("error: 0: ---: Invalid argument\n"));
}

TEST_F(Block, FromTheStore) {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += "null nummer=1\n";
  store(text + "\n" + text + "null nummer=2\n\nnull nummer=3\n");
  int err = -1;
  stimuli first(err);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(first.anzahl(), 3000);
  stimuli too_big(err);
  EXPECT_EQ(err, -1);
  EXPECT_TRUE(log.has("error: 0: stimuli/aanzahl: Cannot allocate memory\n"));
  stimuli last(err);
  ASSERT_EQ(err, 0);
  EXPECT_EQ(last.stimulus(0)->nummer, 3u);
  stimuli beyond(err);
  EXPECT_EQ(err, -1);
  EXPECT_TRUE(log.has("error: 0: stimulus index overflow: Invalid argument\n"));
  stimuli(3, "dummy", err);
  EXPECT_TRUE(log.has("error: 0: stimuli/aindex: Cannot allocate memory\n"));
  stimuli_reset_order();
  stimuli again(err);
  EXPECT_EQ(again.anzahl(), 3000);
}

TEST(Zufallsfolge, RanksTheRandomValuesFromLargest) {
  const int n = 40;
  srand(17);
  std::vector<int> values(n), expected(n), out(n, -7);
  for (int& v : values) v = rand();
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) expected[i] += values[j] > values[i] || (values[j] == values[i] && j < i);
  srand(17);
  zufallsfolge(n, out.data());
  EXPECT_EQ(out, expected);
}

namespace {
// A stimulus with settable corrections that counts its hooks.
struct Timed : stim {
  Timed(long t0_, long t1_, long ps = 0, long sh = 0, long hd = 0)
      : stim(1, nullptr, nullptr, 0, -1, t0_, t1_), ps_(ps), sh_(sh), hd_(hd) {}
  long pstime() const override { return ps_; }
  long showtime() const override { return sh_; }
  long hidetime() const override { return hd_; }
  int skip() override { return skip_; }
  int with_trigger() const override { return trigger_; }
  int prepare() override { return ++prepared, fail_prepare; }
  int cleanup() override { return ++cleaned; }
  long ps_, sh_, hd_;
  int skip_ = 0, trigger_ = 0, fail_prepare = 0, prepared = 0, cleaned = 0;
};

// The schedule as "index:type@due" words.
std::string plan(stimuli& b, long start, std::initializer_list<Timed*> list = {}) {
  int i = 0, n = 0;
  for (Timed* t : list) b.stimulus(i++, t);
  const aktion* a = b.schedule(start, n);
  std::string out;
  for (int k = 0; k < n; ++k)
    out += std::to_string(a[k].index) + ":" + std::to_string(a[k].type) + "@" + std::to_string(a[k].showtime()) + " ";
  return out;
}
}  // namespace

TEST(Schedule, SortedByDueTimeThenPreshowShowHide) {
  // Among actions of one type and one due time the order is open: [01].
  int err = -1;
  stimuli same(2, err);
  EXPECT_TRUE(std::regex_match(plan(same, 1000, {new Timed(100, 50), new Timed(100, 50)}),
                               std::regex("([01]:1@1100 ){2}([01]:2@1100 ){2}([01]:3@1150 ){2}")));
  // At 1090 the preshow of 1, the shows of 0 and 1 and the hide of 2 meet;
  // a stimulus with t1 = 0 is never hidden.
  stimuli b(3, err);
  const std::string p = plan(b, 1000, {new Timed(100, 200, 30, 10, 5), new Timed(90, 0), new Timed(40, 50)});
  EXPECT_TRUE(std::regex_match(p, std::regex("2:1@1040 2:2@1040 0:1@1070 1:1@1090 ([01]:2@1090 ){2}2:3@1090 0:3@1295 ")))
      << p;
}

TEST(Schedule, SkippedAndTriggeredStimuli) {
  int err = -1;
  stimuli b(3, err);
  Timed *skipped = new Timed(0, 100), *triggered = new Timed(0, 100), *plain = new Timed(20, 100);
  skipped->skip_ = triggered->trigger_ = 1;
  EXPECT_EQ(plan(b, 0, {skipped, triggered, plain}), "1:1@0 1:2@0 2:1@20 2:2@20 2:3@120 ");
  // The skipped stimulus still takes part in the block's other operations.
  EXPECT_EQ(b.prepare(), 0);
  EXPECT_EQ(skipped->prepared, 1);
  triggered->fail_prepare = 1;
  EXPECT_EQ(b.prepare(), 1);
  EXPECT_EQ(plain->prepared, 1);
  EXPECT_EQ(b.cleanup(), 3);
  triggered->skip_ = plain->skip_ = 1;
  EXPECT_EQ(plan(b, 0), "");
  int n = -1;
  EXPECT_EQ(stimuli().schedule(0, n), nullptr);
}
