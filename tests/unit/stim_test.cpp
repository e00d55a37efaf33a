#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "services/results.h"
#include "tests/unit/test_support.h"

namespace {
// Records every token offered to set(); "stop" fails the parse.
struct Recorder : stim {
  Recorder(const char* line, int& err) { err = _stim(line); }
  int set(const char* token) override {
    tokens.emplace_back(token);
    return tokens.back() == "stop" ? 7 : stim::set(token);
  }
  std::vector<std::string> tokens;
};
std::string uv(const stim& s) { return s.uv ? s.uv : "<null>"; }
}  // namespace

TEST(StimParse, Keys) {
  int err = -1;
  stim s("  nummer=12 datei=pic.bmp trigger=300 kritisch=2 reaktion=1 t0=250 t1=-1 reakzeit=345 x=1\n", err);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(s.nummer, 12u);
  EXPECT_STREQ(s.datei, "pic.bmp");
  EXPECT_EQ(s.trigger, 300u);
  EXPECT_EQ(s.kritisch, 2);
  EXPECT_EQ(s.reaktion, 1);
  EXPECT_EQ(s.t0, 250);
  EXPECT_EQ(s.t1, -1);
  EXPECT_EQ(s.reakzeit, 345);
  EXPECT_EQ(stim("kritisch=0 kritisch=-1", err).kritisch, -1);

  const std::string name(300, 'n');  // longer than a token: cut, and the parse goes on
  stim l(("datei=" + name + " t0=9 uv=" + name + "; t1=4").c_str(), err);
  EXPECT_EQ(std::string(l.datei), name.substr(0, 193));
  EXPECT_EQ(uv(l), name.substr(0, 196));
  EXPECT_EQ(l.t0 + l.t1, 13);

  Recorder r("t0=1 stop t1=2", err);
  EXPECT_EQ(err, 7);
  EXPECT_EQ(r.t1, 0);
}

TEST(StimParse, LabelsRunToTheSemicolon) {
  int err = -1;
  Recorder a("nummer=1 uv=gross links; t0=500\n", err);
  EXPECT_EQ(uv(a), "gross links");
  EXPECT_EQ(a.t0, 500);
  EXPECT_EQ(a.tokens, (std::vector<std::string>{"nummer=1", "uv=gross links", "links;", "t0=500"}));
  // A key glued behind the ";" is never a token of its own.
  stim b("uv=gross links;t0=500", err);
  EXPECT_EQ(uv(b), "gross links");
  EXPECT_EQ(b.t0, 0);
  stim c("uv=gross;t0=500 t1=20", err);
  EXPECT_EQ(uv(c), "gross");
  EXPECT_EQ(c.t0 + c.t1, 20);
  EXPECT_EQ(uv(stim("t1=9 uv=ein label\n", err)), "ein label");
  // The later words of an extra text are offered again: a key there counts.
  Recorder e("extra=x t0=5; t1=7", err);
  EXPECT_EQ(e.tokens.front(), "extra=x t0=5");
  EXPECT_EQ(e.t0 + e.t1, 12);
}

TEST(StimResults, BaseLineOnlyForEvaluatedTrials) {
  results_capture(true);
  struct Case {
    unsigned nummer;
    const char* uv;
    int kritisch, reaktion;
  } cases[] = {{1, nullptr, -1, 3}, {2, nullptr, 0, 0}, {3, "catch", 0, 0}, {4, "frei", -1, 0},
               {5, "frei", -1, 2},  {0, "x", 2, 1},     {7, nullptr, 2, 1}, {8, nullptr, 0, 3}};
  for (const Case& c : cases) {
    stim s(c.nummer, "f.bmp", c.uv, 0, c.kritisch, 0, 0);
    s.reaktion = c.reaktion;
    s.reakzeit = c.reaktion ? 345 : 0;
    EXPECT_EQ(s.speichern(), 0);
  }
  ASSERT_EQ(results_captured(), 4);
  EXPECT_STREQ(results_captured_line(0), "    3                 catch   0   0        0\n");
  EXPECT_STREQ(results_captured_line(1), "    5                  frei  -1   2      345\n");
  EXPECT_STREQ(results_captured_line(2), "    7   2   1      345\n");
  EXPECT_STREQ(results_captured_line(3), "    8   0   3      345\n");
  results_capture(false);
}

namespace {
std::string seen;  // the text the last factory got
int tag = 0;       // which factory built it
stim* make(const char* text, int t) {
  seen = text;
  tag = t;
  int err = 0;
  return t > 0 ? new stim(text, err) : nullptr;
}
int build(const char* line) {
  tag = 0;
  stim* s = _stimulus(line);
  const int built = s ? tag : 0;
  delete s;
  return built;
}
}  // namespace

TEST(Registry, LatestRecordFirstThenEarlierThenDefault) {
  LogCapture log;
  stim_registry_clear();
  EXPECT_EQ(build("bmp datei=a.bmp"), 0);
  EXPECT_TRUE(log.has("error: 0: nothing registered: Invalid argument\n"));
  stim_register("bmp", [](const char* a) { return make(a, 1); });
  stim_register("bmp", [](const char* a) { return make(a, 2); });
  EXPECT_EQ(build("bmp   datei=a.bmp t0=5\n"), 2);
  EXPECT_EQ(seen, "datei=a.bmp t0=5\n");
  stim_factory failing = [](const char* a) { return make(a, -1); };
  stim_register("bmp", failing);
  EXPECT_EQ(build("bmp t0=1"), 2);  // a failing record lets earlier ones try
  EXPECT_EQ(build("BMP t0=1"), 0);
  EXPECT_TRUE(log.has("error: 0: BMP t0=1: Invalid argument\n"));
  stim_register("wav", failing);
  stim_default([](const char* a) { return make(a, 99); });
  EXPECT_EQ(build("wav t0=1"), 99);  // retried whole as a default stimulus
  EXPECT_EQ(seen, "wav t0=1");
  EXPECT_EQ(build("pause\n"), 99);  // no blank: the whole line goes to the default
  EXPECT_EQ(seen, "pause\n");
  stim_registry_clear();
}

namespace {
std::vector<int> read_blocks(const std::string& text) {
  FILE* f = tmpfile();
  fwrite(text.data(), 1, text.size(), f);
  rewind(f);
  stimfile_read(f, "test.s");
  fclose(f);
  std::vector<int> sizes;
  for (int b = 0; b < stimfile_anzahl(); ++b) sizes.push_back(stimfile_index(b));
  return sizes;
}
}  // namespace

TEST(StimFile, SeparatorsAndPieces) {
  using V = std::vector<int>;
  LogCapture log;
  EXPECT_EQ(read_blocks("null t0=1\nnull t0=2\n\nnull t0=3\n---\nnull t0=4\nnull t0=5"), (V{2, 1, 2}));
  EXPECT_STREQ(stimfile_lines(0, 1), "null t0=2\n");
  EXPECT_EQ(read_blocks("null t0=1\nnull\nabcde\nabcd\nabcde\n"), (V{1, 1, 1}));  // 6 chars make a line
  EXPECT_EQ(read_blocks("null t0=1\n\n\nnull t0=2\n"), V{1});  // two separators end the file
  EXPECT_FALSE(log.has("empty stimulus file"));
  EXPECT_EQ(read_blocks("\nnull t0=1\n"), V{});
  EXPECT_TRUE(log.has("warning: 0: empty stimulus file: test.s\n"));
  const std::string piece(999, 'x');
  EXPECT_EQ(read_blocks(piece + piece + "yyyyy\n"), V{3});
  EXPECT_EQ(std::string(stimfile_lines(0, 0)), piece);
  EXPECT_EQ(read_blocks(piece + "zzz\nnull t0=1\n"), (V{1, 1}));  // a short tail separates
  // A file saved on Windows reads the same: "null\r\n" is a short line too.
  EXPECT_EQ(read_blocks("null t0=1\r\nnull\r\nnull t0=2\r\n"), (V{1, 1}));
  EXPECT_STREQ(stimfile_lines(1, 0), "null t0=2\n");
  stimfile_done();
}
