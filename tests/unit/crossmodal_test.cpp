// The test's own stimuli and the reaction evaluation stimulus: results
// lines, reaction windows, the preparatory tone as a catch stimulus.

#include "driver/ixmod.h"
#include "engine/reak.h"
#include "services/results.h"
#include "test_support.h"

namespace {

struct Saved {
  Saved() { results_capture(true); }
  ~Saved() { results_capture(false); }
  std::string last() const {
    return results_captured() ? results_captured_line(results_captured() - 1) : std::string();
  }
};

TEST(Crossmodal, TrialLinesAndWindows) {
  test_allegro();
  Saved saved;
  std::unique_ptr<stim> t(_ixmod("pfeil nummer=7 index=0 t0=100 t1=1000 kritisch=1 uv=passt;"));
  ASSERT_NE(t, nullptr);
  EXPECT_TRUE(t->maxreak() == 2000 && t->with_reaktion() == 1) << t->maxreak();
  t->reaktion = 1, t->reakzeit = 412;
  t->speichern();
  EXPECT_EQ(saved.last(), "    7 passt     1     412\n");  // no kritisch in the line
  const int before = results_captured();
  // Neither a catch trial without a press nor an unevaluated one saves anything.
  for (auto [kritisch, reaktion] : {std::pair{0, 0}, {-1, 1}}) t->kritisch = kritisch, t->reaktion = reaktion, t->speichern();
  EXPECT_EQ(results_captured(), before);
}

TEST(Crossmodal, PreparatoryToneIsAlwaysACatchStimulus) {
  test_allegro();
  Saved saved;
  std::unique_ptr<stim> p(_ixmod_prep("nummer=0 index=0 t0=100 kritisch=1 remax=900 uv=hoch;"));
  ASSERT_NE(p, nullptr);
  // remax plus the minimum reaction time, the same without remax
  EXPECT_TRUE(p->kritisch == 0 && p->maxreak() == 1000 && std::unique_ptr<stim>(_ixmod_prep("index=1"))->maxreak() == 1000);
  const int before = results_captured();
  p->speichern();
  EXPECT_TRUE(results_captured() == before && !ixmod_prep_answered());  // not answered: nothing saved
  p->reaktion = 1, p->reakzeit = 300;
  p->falsch();
  EXPECT_TRUE(ixmod_prep_answered());
  p->speichern();  // a false alarm is saved, even for trial number 0
  EXPECT_EQ(saved.last(), "    0  hoch     1     300\n");
}

TEST(Reak, OwnWindowAlwaysEvaluatedAndRecordsTheOutcome) {
  test_allegro();
  std::unique_ptr<stim> r(_reak("reak nummer=5 minreak=0 maxreak=800"));
  ASSERT_NE(r, nullptr);
  // evaluated even with kritisch -1
  EXPECT_TRUE(r->minreak() == 0 && r->maxreak() == 800 && r->kritisch == -1 && r->with_reaktion() == 1);
  unsigned n = 0;
  EXPECT_TRUE(r->richtig() == 0 && reak_richtig(&n) == 1 && n == 5u);
  EXPECT_TRUE(r->auslassung() == 0 && reak_richtig(nullptr) == 0);
  r.reset();
  // A feedback sound outside the table of sounds fails the line.
  LogCapture log;
  EXPECT_EQ(_reak("reak nummer=6 richtig=1000"), nullptr);
  EXPECT_TRUE(log.has("Volume-Default: Illegal index"));
}

}  // namespace
