// The test's own stimuli and the reaction evaluation stimulus: results
// lines, reaction windows, the preparatory tone as a catch stimulus.
#include <gtest/gtest.h>

#include <memory>

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
  stim* t = _ixmod("pfeil nummer=7 index=0 t0=100 t1=1000 kritisch=1 uv=passt;");
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->maxreak(), 2000);
  EXPECT_EQ(t->with_reaktion(), 1);
  t->reaktion = 1;
  t->reakzeit = 412;
  t->speichern();
  EXPECT_EQ(saved.last(), "    7 passt     1     412\n");  // no kritisch in the line
  const int before = results_captured();
  t->kritisch = 0;
  t->reaktion = 0;
  t->speichern();  // a catch trial without a press saves nothing
  t->kritisch = -1;
  t->reaktion = 1;
  t->speichern();  // nor does an unevaluated one
  EXPECT_EQ(results_captured(), before);
  delete t;
}

TEST(Crossmodal, PreparatoryToneIsAlwaysACatchStimulus) {
  test_allegro();
  Saved saved;
  stim* p = _ixmod_prep("nummer=0 index=0 t0=100 kritisch=1 remax=900 uv=hoch;");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->kritisch, 0);
  EXPECT_EQ(p->maxreak(), 1000);  // remax plus the minimum reaction time
  EXPECT_EQ(std::unique_ptr<stim>(_ixmod_prep("index=1"))->maxreak(), 1000);
  const int before = results_captured();
  p->speichern();
  EXPECT_EQ(results_captured(), before);  // not answered: nothing saved
  EXPECT_FALSE(ixmod_prep_answered());
  p->reaktion = 1;
  p->reakzeit = 300;
  p->falsch();
  EXPECT_TRUE(ixmod_prep_answered());
  p->speichern();  // a false alarm is saved, even for trial number 0
  EXPECT_EQ(saved.last(), "    0  hoch     1     300\n");
  delete p;
}

TEST(Reak, OwnWindowAlwaysEvaluatedAndRecordsTheOutcome) {
  test_allegro();
  stim* r = _reak("reak nummer=5 minreak=0 maxreak=800");
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->minreak(), 0);
  EXPECT_EQ(r->maxreak(), 800);
  EXPECT_EQ(r->kritisch, -1);
  EXPECT_EQ(r->with_reaktion(), 1);  // even with kritisch -1
  unsigned n = 0;
  EXPECT_EQ(r->richtig(), 0);
  EXPECT_EQ(reak_richtig(&n), 1);
  EXPECT_EQ(n, 5u);
  EXPECT_EQ(r->auslassung(), 0);
  EXPECT_EQ(reak_richtig(nullptr), 0);
  delete r;
  // A feedback sound outside the table of sounds fails the line.
  LogCapture log;
  EXPECT_EQ(_reak("reak nummer=6 richtig=1000"), nullptr);
  EXPECT_TRUE(log.has("Volume-Default: Illegal index"));
}

}  // namespace
