// What the visual stimuli put on the screen, seen from outside: the screen
// is sampled every few milliseconds while the program runs, and each sample
// is judged against the stimulus that the timing trace says was on screen
// then (both clocks are CLOCK_MONOTONIC).

#include "fixture.h"

namespace {
struct Sample {
  long long us, end_us;      // CLOCK_MONOTONIC, start and end of the sampling
  long long clock_us;        // start of the dial's readings (they end at end_us)
  int r, g, b;               // centre pixel
  int fr, fg, fb;            // film corner pixel
  int left_r, right_b;       // metafile: red of the left half, blue of the right
  int word;                  // lit pixels of the middle 160 x 80
  std::vector<int> clock;    // lit pixels round the dial at 0, 15, 30, 45 minutes
};

// When each stimulus's show and hide reached the screen, by trial: the
// timing trace's UST of the frame, else the action's start.
struct Window { long long show = 0, hide = 0; };
std::map<int, Window> windows(const std::string& tsv) {
  std::map<int, Window> w;
  std::istringstream s(tsv);
  for (std::string l; std::getline(s, l);) {
    const std::vector<std::string> c = cells(l);
    if (c.size() >= 15 && (c[3] == "show" || c[3] == "hide")) {
      const long long ust = std::stoll(c[14]);
      (c[3] == "show" ? w[std::stoi(c[1])].show : w[std::stoi(c[1])].hide) = ust ? ust : std::stoll(c[9]);
    }
  }
  return w;
}

bool near(int v, int want) { return std::abs(v - want) <= 12; }
}  // namespace

struct Pictures : ProgramTest {
  harness::X x;
};

TEST_F(Pictures, WordShapesMetafileFilmAndClockAppearAsDrawn) {
  ASSERT_EQ(std::system((std::string(IXMOD_MKFILM) + " " + dir.path() + " 6 4 96").c_str()), 0);
  ASSERT_EQ(std::system((std::string(IXMOD_MKEMF) + " " + dir.path("figure.emf")).c_str()), 0);
  std::string s = "word nummer=1 t0=500 t1=600 string=Ab\n";
  for (int k = 0; k < 7; ++k)
    s += "shape nummer=" + std::to_string(10 + k) + " t0=" + std::to_string(1300 + 500 * k) +
         " t1=400 filled=2 size=2 shape=" + std::to_string(k) + " color=" + std::to_string(k % 6) + "\n";
  s += "emf nummer=20 t0=5000 t1=600 w=0.5 h=0.25 datei=" + dir.path("figure.emf") + "\n";
  s += "fli nummer=21 t0=5800 t1=1200 datei=" + dir.path("film.txt") + "\n";
  s += "clock nummer=22 t0=7200 t1=2100 dauer=4000 radius=0.3\n";
  s += "cbmp nummer=23 index=0 t0=8200 t1=300 y=0.1 moda=5\n";
  dir.write("t.s", s);
  const harness::Started p = harness::start(dir, args_and({"-timing=" + dir.path("timing.tsv")}));
  harness::X::Rect w{0, 0, 0, 0};
  ASSERT_TRUE(x.wait_for_window(640, 480, 10000, &w));
  const int cx = w.x + 512, cy = w.y + 384;

  // The clock face is 230 pixels (0.3 of 768), its ring of radius 69 round
  // the centre; the dot's place at 0, 15, 30 and 45 minutes.
  const int dots[4][2] = {{0, -69}, {69, 0}, {0, 69}, {-69, 0}};
  std::vector<Sample> samples;
  const long long end = harness::steady_ns() + 10500000000LL;
  while (harness::steady_ns() < end) {
    Sample m;
    const long long before = harness::steady_ns();
    x.pixel(cx, cy, m.r, m.g, m.b);
    x.pixel(cx - 47, cy - 47, m.fr, m.fg, m.fb);
    int g, b;
    x.pixel(cx - 96, cy, m.left_r, g, b);
    int r;
    x.pixel(cx + 96, cy, r, g, m.right_b);
    m.word = x.lit(cx - 80, cy - 40, 160, 80);
    m.clock_us = harness::steady_ns() / 1000;
    for (const auto& d : dots) m.clock.push_back(x.lit(cx + d[0] - 12, cy + d[1] - 12, 24, 24));
    // The sampling takes a frame or more where the server is busy
    // presenting; a sample counts for a window only if it lies wholly in it.
    m.us = before / 1000;
    m.end_us = harness::steady_ns() / 1000;
    samples.push_back(m);
    harness::sleep_until_ms(before, 4);  // leave the X server to the program
  }
  const harness::Run run = finish(p);
  ASSERT_EQ(run.status, 0) << log;
  const std::map<int, Window> on = windows(dir.read("timing.tsv"));

  // Each check sees the samples from 40 ms after a show to 40 ms before its hide.
  auto during = [&](int trial, long long from_ms, long long to_ms, const std::function<void(const Sample&, double)>& f,
                    bool dial = false) {
    ASSERT_EQ(on.count(trial), 1u) << trial;
    const Window& wd = on.at(trial);
    int n = 0;
    for (const Sample& m : samples) {
      const double ms = ((dial ? m.clock_us : m.us) - wd.show) / 1000.0, end_ms = (m.end_us - wd.show) / 1000.0;
      if (ms >= from_ms && end_ms <= to_ms && m.end_us < wd.hide - 40000) f(m, ms), ++n;
    }
    EXPECT_GT(n, 3) << "trial " << trial << ": too few samples";
  };

  during(1, 40, 600, [&](const Sample& m, double ms) { EXPECT_GT(m.word, 100) << ms; });
  const int colours[6][3] = {{64, 64, 255}, {64, 255, 64}, {255, 64, 64}, {255, 64, 255}, {255, 255, 64}, {255, 255, 255}};
  for (int k = 0; k < 7; ++k)
    during(10 + k, 40, 400, [&](const Sample& m, double ms) {
      const int* c = colours[k % 6];
      EXPECT_TRUE(near(m.r, c[0]) && near(m.g, c[1]) && near(m.b, c[2]))
          << "shape " << k << " at " << ms << " ms: " << m.r << "," << m.g << "," << m.b;
    });
  during(20, 40, 600, [&](const Sample& m, double ms) {
    EXPECT_GT(m.left_r, 200) << ms;   // the red rectangle's half
    EXPECT_GT(m.right_b, 200) << ms;  // the blue ellipse's half
  });
  // Film at 4 frames per second: the nearest frame to the time elapsed, so
  // frame k from 250k - 125 to 250k + 125 ms, each on a background of its
  // own hue (0: red, 2: green, 4: blue). A loaded suite samples the screen
  // a few times in 50 ms only: the first frame is looked at for 75.
  for (const auto& f : {std::make_pair(0, 0), std::make_pair(2, 1), std::make_pair(4, 2)})
    during(21, f.first ? 250 * f.first - 50 : 40, f.first ? 250 * f.first + 50 : 115, [&](const Sample& m, double ms) {
      const int c[3] = {m.fr, m.fg, m.fb};
      const int want = f.second;
      EXPECT_TRUE(c[want] > c[(want + 1) % 3] + 40 && c[want] > c[(want + 2) % 3] + 40)
          << "frame " << f.first << " at " << ms << " ms: " << m.fr << "," << m.fg << "," << m.fb;
    });
  // The dot goes round in 4 s: near 0, 15 and 30 minutes at 0, 1 and 2 s.
  for (int q = 0; q < 3; ++q)
    during(22, q == 0 ? 40 : 1000 * q - 60, q == 0 ? 120 : 1000 * q + 60, [&](const Sample& m, double ms) {
      for (int other = 0; other < 4; ++other)
        if (other != q) {
          EXPECT_GT(m.clock[q], m.clock[other] + 40) << "quarter " << q << " at " << ms << " ms";
        }
    }, true);
  // The picture shown while the clock ran recorded the dot's place: 1000 ms
  // after the clock's onset is 15 minutes, less the frames the clock stands
  // still while the picture is prepared.
  const std::vector<std::string> rec = harness::lines_with(results, "bmp moda 5 dauer 4000");
  ASSERT_TRUE(rec.size() == 1u && harness::contains(rec[0], "minuten ")) << results;
  EXPECT_NEAR(std::stod(rec[0].substr(rec[0].find("minuten ") + 8)), 14.0, 1.5) << rec[0];
}

TEST_F(Pictures, WheelAnswerRecordsTheChosenPosition) {
  dir.write("t.s", "wheel nummer=1 t0=300 t1=4000 start=10 step=0.5 radius=0.3\n");
  const harness::Started p = harness::start(dir, args());
  ASSERT_TRUE(x.wait_for_window(640, 480, 10000));
  const long long t0 = harness::steady_ns();
  for (long ms : {1500L, 1700L, 1900L}) {
    harness::sleep_until_ms(t0, ms);
    x.press("Right");
  }
  harness::sleep_until_ms(t0, 2100);
  x.press("Left");
  harness::sleep_until_ms(t0, 2500);
  x.press("1");
  const harness::Run run = finish(p);
  ASSERT_EQ(run.status, 0) << log;
  const std::vector<std::string> rec = harness::lines_with(results, "wheel moda 0 richtung 1");
  ASSERT_EQ(rec.size(), 1u) << results;
  EXPECT_TRUE(harness::contains(rec[0], " start 10.0 ") && harness::contains(rec[0], " minuten 11.0")) << rec[0];
}
