#include "test_support.h"

#include "engine/stim.h"
#include "services/results.h"

namespace {
std::string uv(const stim& s) { return s.uv ? s.uv : "<null>"; }

// Keeps the extra text offered to it; its own key "stop" fails the parse.
struct Extra : stim {
  Extra(const char* line, int& err) { err = _stim(line); }
  int set(const char* token) override {
    if (strncmp(token, "extra=", 6) == 0) extra = token;
    return strcmp(token, "stop") == 0 ? 7 : stim::set(token);
  }
  std::string extra;
};
}  // namespace

TEST(StimParse, KeysAndLabels) {
  int err = -1;
  stim s("  nummer=12 datei=pic.bmp trigger=300 kritisch=2 reaktion=1 t0=250 t1=-1 reakzeit=345 x=1\n", err);
  EXPECT_STREQ(s.datei, "pic.bmp");
  EXPECT_EQ(std::make_tuple(s.nummer, s.trigger, s.kritisch, s.reaktion, s.t0, s.t1, s.reakzeit),
            std::make_tuple(12u, 300u, 2, 1, 250L, -1L, 345L));
  EXPECT_EQ(stim("kritisch=0 kritisch=-1", err).kritisch, -1);
  const std::string name(300, 'n');  // longer than a token: cut, and the parse goes on
  stim l(("datei=" + name + " t0=9 uv=" + name + "; t1=4").c_str(), err);
  EXPECT_EQ(std::make_tuple(strlen(l.datei), uv(l).size(), l.t0, l.t1), std::make_tuple(193u, 196u, 9L, 4L));

  // Labels may hold blanks and run to the ";".
  const struct { const char* line; const char* uv; long t0, t1; } cases[] = {
      {"nummer=1 uv=gross links; t0=500\n", "gross links", 500, 0},
      {"uv=gross;t0=500 t1=20", "gross", 0, 20},  // a key glued to the ";" is no token
      {"t1=9 uv=ein label\n", "ein label", 0, 9},
  };
  for (const auto& c : cases) {
    stim t(c.line, err);
    EXPECT_EQ(std::make_tuple(err, uv(t), t.t0, t.t1), std::make_tuple(0, std::string(c.uv), c.t0, c.t1)) << c.line;
  }
  // An extra text is offered whole, then its later words again; a failing
  // key ends the parse with its result.
  Extra e("extra=x t0=5; t1=7 stop t0=9", err);
  EXPECT_EQ(std::make_tuple(err, e.extra, e.t0, e.t1), std::make_tuple(7, std::string("extra=x t0=5"), 5L, 7L));
}

TEST(StimResults, BaseLineOnlyForEvaluatedTrials) {
  results_capture(true);
  const struct { unsigned nummer; const char* uv; int kritisch, reaktion; } cases[] = {
      {1, nullptr, -1, 3}, {2, nullptr, 0, 0}, {3, "catch", 0, 0}, {4, "frei", -1, 0},
      {5, "frei", -1, 2},  {0, "x", 2, 1},     {7, nullptr, 2, 1}, {8, nullptr, 0, 3}};
  for (const auto& c : cases) {
    stim s(c.nummer, "f.bmp", c.uv, 0, c.kritisch, 0, 0);
    s.reaktion = c.reaktion;
    s.reakzeit = c.reaktion ? 345 : 0;
    EXPECT_EQ(s.speichern(), 0);
  }
  std::string saved;
  for (int i = 0; i < results_captured(); ++i) saved += results_captured_line(i);
  results_capture(false);
  EXPECT_EQ(saved, "    3                 catch   0   0        0\n    5                  frei  -1   2      345\n"
                   "    7   2   1      345\n    8   0   3      345\n");
}
