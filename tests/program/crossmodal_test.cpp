// The crossmodal test as a whole: instruction page, a block of tones and
// arrows answered through XTEST, the feedback page, the results file, the
// picture on the screen and the tones in the recorded sound.

#include "fixture.h"

using harness::contains;

namespace {

// The tones in the recording (signed 16-bit stereo, 44.1 kHz) in the order
// they sound: where each begins (ms) and its frequency.
struct tone { double at_ms, hz; };
std::vector<tone> tones(const std::string& raw) {
  const size_t frames = raw.size() / 4;
  auto left = [&](size_t i) {
    return static_cast<int16_t>(static_cast<uint8_t>(raw[4 * i]) | static_cast<uint8_t>(raw[4 * i + 1]) << 8);
  };
  std::vector<tone> found;
  size_t start = 0, last = 0;
  bool in = false;
  auto close = [&] {
    int crossings = 0;
    for (size_t j = start + 1; j <= last; ++j) crossings += (left(j - 1) < 0) != (left(j) < 0);
    found.push_back({start * 1000.0 / 44100, crossings / 2.0 / (static_cast<double>(last - start) / 44100.0)});
  };
  for (size_t i = 0; i < frames; ++i) {
    if (std::abs(left(i)) > 2000) start = in ? start : i, in = true, last = i;
    else if (in && i - last > 441) in = false, close();
  }
  if (in) close();
  return found;
}

struct Crossmodal : ProgramTest {
  void SetUp() override {
    ProgramTest::SetUp();
    dir.write("t.lst", std::string("1\nanwde.bmp\n") + IXMOD_RESOURCES + "/anwde.bmp\n");
    dir.write("t.s",
              "instr datei=anw.bmp\n"
              "---\n"
              "prep nummer=1 index=0 t0=500 uv=hoch;\n"
              "pfeil nummer=1 index=0 t0=1500 t1=1000 kritisch=1 uv=passt;\n"
              "prep nummer=2 index=1 t0=3500 uv=tief;\n"
              "pfeil nummer=2 index=0 t0=4500 t1=1000 kritisch=0 uv=anders;\n"
              "prep nummer=3 index=1 t0=6500 uv=tief;\n"
              "pfeil nummer=3 index=1 t0=7500 t1=1000 kritisch=1 uv=passt;\n"
              "---\n"
              "info extra=Danke.;\n");
  }
  std::vector<std::string> args_de() { return args_and({"-locale=de", "-timing=timing.tsv"}); }
  // The onsets the program recorded for its sounds (ms of the test clock).
  std::vector<double> sound_onsets() {
    std::vector<double> onsets;
    for (const auto& c : timing_shows(dir.read("timing.tsv")))
      if (c.size() > 10 && c[10] != "0") onsets.push_back(std::stod(c[10]) / 1000);
    return onsets;
  }
  harness::X x;
};

TEST_F(Crossmodal, ASessionIsShownHeardAnsweredAndCounted) {
  const harness::Started p = harness::start(dir, args_de());
  harness::X::Rect w{0, 0, 0, 0};
  ASSERT_TRUE(x.wait_for_window(640, 480, 10000, &w));
  const long long t0 = harness::steady_ns();
  harness::sleep_until_ms(t0, 600);
  EXPECT_GT(x.lit(w.x + 100, w.y + 200, 824, 360), 5000);  // the instruction page
  harness::sleep_until_ms(t0, 1500);
  EXPECT_GT(x.lit(w.x + 100, w.y + 200, 824, 360), 5000);  // it waits for a key
  x.press("space");
  // The first arrow, centred, 1.5 s into the block; the rest of the screen
  // dark. The times after are taken from its appearance, not from the key:
  // a loaded machine may take a while to start the block.
  const long long b = harness::steady_ns();
  while (x.lit(w.x + 487, w.y + 300, 50, 180) <= 6000 && harness::steady_ns() < b + 6000000000LL)
    harness::sleep_until_ms(harness::steady_ns(), 5);
  const long long a = harness::steady_ns();
  EXPECT_GT(x.lit(w.x + 487, w.y + 300, 50, 180), 6000);
  EXPECT_EQ(x.lit(w.x, w.y, 300, 768), 0);
  harness::sleep_until_ms(a, 500);
  x.press("1");  // correct
  harness::sleep_until_ms(a, 1300);
  EXPECT_EQ(x.lit(w.x, w.y, w.w, w.h), 0);  // hidden after its second
  harness::sleep_until_ms(a, 6500);
  x.press("1");  // correct
  harness::sleep_until_ms(a, 10000);
  x.press("space");  // the feedback page
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 0) << log;
  EXPECT_TRUE(contains(log, "Block: 0 - Richtige: 2 - Fehler: 0 - Auslassungen: 0")) << log;
  // Catch trials without a press save nothing.
  const std::vector<Saved> saved = saved_lines(results);
  ASSERT_EQ(saved.size(), 2u) << results;
  for (const int i : {0, 1})
    EXPECT_TRUE(saved[i].nummer == 1 + 2 * i && saved[i].uv == "passt" && saved[i].reaktion == 1) << results;
  // High, low, low, as far apart as the onsets the program recorded, which
  // are 3 s apart as scheduled unless a sound was reported late.
  const std::vector<tone> f = tones(dir.read("sound.raw"));
  ASSERT_EQ(f.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(f[i].hz, i ? 500 : 1000, i ? 40 : 60) << i;
  const std::vector<double> on = sound_onsets();
  ASSERT_EQ(on.size(), 3u) << dir.read("timing.tsv");
  for (size_t i = 1; i < 3; ++i) {
    EXPECT_NEAR(f[i].at_ms - f[i - 1].at_ms, on[i] - on[i - 1], 1) << i;
    EXPECT_TRUE(contains(log, "late, started at once") || std::fabs(on[i] - on[i - 1] - 3000) <= 1) << i << ": " << on[i] - on[i - 1];
  }
}

TEST_F(Crossmodal, XOnTheInstructionPageEndsTheRun) {
  const harness::Started p = harness::start(dir, args_de());
  ASSERT_TRUE(x.wait_for_window(640, 480));
  harness::sleep_until_ms(harness::steady_ns(), 600);
  x.press("x");
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(log, "x pressed") && !contains(log, "Block: 0")) << log;
  // Nothing was saved: the results file is removed again.
  EXPECT_TRUE(contains(log, "No results. removing file: results.txt")) << log;
  EXPECT_FALSE(dir.exists("results.txt"));
}

}  // namespace
