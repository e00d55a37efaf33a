// Films, the clock, the clock-synchronised stimuli and the wheel on a memory
// bitmap standing in for an 800 x 600 drawing area. The retrace is simulated
// at 1000 Hz, so a reshow lands within a millisecond of the time set.

#include "input/tastatur.h"
#include "sim_port.h"
#include "test_support.h"
#include "visual/clock.h"
#include "visual/sfli.h"
#include "visual/wheel.h"

namespace {
int frame_colour(int i) { return rgb(20 * i, 100, 255 - 20 * i); }

template <class T>
std::unique_ptr<T> make(stim* (*factory)(const char*), const std::string& attrs) {
  stim* s = factory(attrs.c_str());
  EXPECT_NE(s, nullptr) << attrs;
  return std::unique_ptr<T>(static_cast<T*>(s));
}

struct Film : ::testing::Test {
  void SetUp() override { set_palette(default_palette); }
  void TearDown() override { sfli_done(), tastatur_fake(nullptr); }
  // A description file of n frames of 40 x 30 pixels, frame i all frame_colour(i).
  std::string film(int n, const std::string& first_line) {
    std::string text = first_line + "\n";
    for (int i = 0; i < n; ++i) {
      BITMAP* b = create_bitmap(40, 30);
      clear_to_color(b, frame_colour(i));
      const std::string name = "f" + std::to_string(i) + ".bmp";
      save_bmp(dir.path(name).c_str(), b, nullptr);
      destroy_bitmap(b);
      text += name + "\n";
    }
    return dir.write("film.txt", text);
  }
  // Puts the test clock `elapsed` ms after the film's onset, one retrace
  // before, and reshows.
  int reshow_at(fli& f, long elapsed) {
    f.t_frame = f.t_start = alleg_get_timer() - elapsed + 1;
    return f.reshow();
  }
  int at(int x, int y) { return getpixel(screen, x, y); }
  MemoryScreen memory{16, 800, 600, 1000, rgb(128, 128, 128)};
  TempDir dir;
};
}  // namespace

TEST_F(Film, FrameFollowsElapsedTimeAndRepeatEndsOnFirstFrame) {
  auto f = make<fli>(_fli, "datei=" + film(10, "10 25 0 0") + " x=0 y=0");
  ASSERT_EQ(f->prepare(), 0);
  ASSERT_EQ(f->show(), 0);
  EXPECT_EQ(at(5, 5), frame_colour(0));
  // 25 fps: 40 ms a frame; halves round up (2.5 -> 3).
  const struct { long elapsed; int frame; } steps[] = {{19, 0}, {20, 1}, {99, 2}, {101, 3}, {360, 9}};
  for (const auto& s : steps) {
    EXPECT_EQ(reshow_at(*f, s.elapsed), 0);
    EXPECT_EQ(f->current, s.frame) << s.elapsed;
    EXPECT_EQ(at(39, 29), frame_colour(s.frame)) << s.elapsed;
  }
  // Past the end: repeat 2 shows frame 0 twice, then the film hides itself.
  f->repeat = 2;
  for (int left : {1, 0}) {
    EXPECT_TRUE(reshow_at(*f, 400) == 0 && f->current == 0 && f->repeat == left) << f->current << " " << f->repeat;
    f->current = 9;
  }
  EXPECT_TRUE(reshow_at(*f, 400) == 0 && !f->shown && at(5, 5) == rgb(0, 0, 0) && at(41, 31) == rgb(128, 128, 128));
  EXPECT_EQ(f->cleanup(), 0);
}

TEST_F(Film, MissedFramesWarnedOnlyForEvaluatedUnansweredFilms) {
  const std::string file = film(10, "10 25 0 0");
  LogCapture log;
  auto f = make<fli>(_fli, "datei=" + file + " nummer=7 kritisch=1");
  ASSERT_EQ(f->prepare(), 0);
  ASSERT_EQ(f->show(), 0);
  f->current = 4;
  reshow_at(*f, 240);  // 4 -> 6: a jump of two is not reported
  f->current = 4;
  reshow_at(*f, 320);  // 4 -> 8
  f->current = 2, f->reaktion = 1;
  reshow_at(*f, 320);  // answered: silent
  const std::string text = log.text();
  for (int k : {5, 6, 7}) EXPECT_NE(text.find("fli trial 7: missed frame " + std::to_string(k) + "/10"), std::string::npos);
  for (int k : {3, 4, 8}) EXPECT_EQ(text.find("missed frame " + std::to_string(k) + "/"), std::string::npos) << k;
}

TEST_F(Film, DescriptionFileChecksAndScaling) {
  const struct { const char* first; const char* message; } bad[] = {
      {"", "film.txt"},          {"0 25 0 0", "film.txt: anzahl==0?"}, {"2 0 0 0", "film.txt: freq==0?"},
      {"2 25", "film.txt: x<0"}, {"2 25 0 -1", "film.txt: y<0"},       {"2 25 2 0", "film.txt: x>1"},
      {"2 25 0 1.5", "film.txt: y>1"}, {"2 -25 0 0", "film.txt: freq<0?"},
      {"2147483647 25 0 0", "film.txt: Invalid argument"}};  // fails at the first missing frame line
  for (const auto& b : bad) {
    LogCapture log;
    flistruct fs;
    EXPECT_EQ(fs.prepare(film(2, b.first).c_str()), -1) << b.first;
    EXPECT_TRUE(log.has(b.message)) << b.first << "\n" << log.text();
  }
  {  // a frame line missing, then a frame picture missing
    LogCapture log;
    flistruct fs;
    const std::string file = film(1, "2 25 0 0");
    EXPECT_EQ(fs.prepare(file.c_str()), -1);
    dir.write("film.txt", "1 25 0 0\nnothere.bmp\n");
    EXPECT_TRUE(fs.prepare(file.c_str()) == -1 && log.has("nothere.bmp"));
    EXPECT_TRUE(fs.bild(1) == nullptr && log.has("flistruct::bild: invalid index 1"));
  }
  const struct { const char* first; int w, h; } sizes[] = {{"2 25 0.5 0.25", 400, 150}, {"2 25 0 0.5", 40, 30}};
  for (const auto& s : sizes) {
    flistruct fs;
    ASSERT_EQ(fs.prepare(film(2, s.first).c_str()), 0);
    EXPECT_TRUE(fs.width() == s.w && fs.height() == s.h && getpixel(fs.bild(1), s.w - 1, s.h - 1) == frame_colour(1))
        << s.first;
  }
}

TEST_F(Film, FixationMarkBlinksForThreeFrames) {
  auto f = make<fli>(_fli, "datei=" + film(10, "10 25 0 0") + " x=1 y=0 fix=1 blink=5");
  ASSERT_EQ(f->prepare(), 0);
  ASSERT_EQ(f->show(), 0);
  const int cx = 760 + 20, cy = 15, white = rgb(255, 255, 255), black = rgb(0, 0, 0);
  for (int frame : {4, 5, 6, 7, 8}) {
    reshow_at(*f, frame * 40);
    const bool blinking = frame >= 5 && frame <= 7;
    EXPECT_EQ(at(cx, cy), blinking ? black : white) << frame;
    EXPECT_EQ(at(cx + 2, cy + 2), black) << frame;
    EXPECT_EQ(at(cx + 3, cy + 3), frame_colour(frame)) << frame;
  }
  f->hide();  // the mark outlives the film
  EXPECT_EQ(at(cx, cy), white);
  EXPECT_EQ(at(cx - 10, cy), black);
}

TEST_F(Film, PreloadedFilmsAreBorrowed) {
  LogCapture log;
  auto s = make<sfli>(_sfli, "index=1");
  EXPECT_EQ(s->prepare(), -1);
  EXPECT_TRUE(log.has("sfli/index out of range: 1"));
  std::string name = film(3, "3 25 0 0");
  char* names[2] = {name.data(), name.data()};
  ASSERT_EQ(sfli_init(2, names), 0);
  ASSERT_EQ(s->prepare(), 0);
  ASSERT_EQ(s->show(), 0);
  EXPECT_EQ(s->cleanup(), 0);
  ASSERT_EQ(s->prepare(), 0);  // the set's film survived the clean-up
  EXPECT_EQ(s->film->anzahl(), 3);
  auto named = make<sfli>(_sfli, "index=0 datei=" + film(5, "5 25 0 0"));  // the set's film all the same
  EXPECT_TRUE(named->prepare() == 0 && named->film->anzahl() == 3 && named->cleanup() == 0);
  named.reset();
  EXPECT_TRUE(s->prepare() == 0 && s->film->anzahl() == 3);
}

// ---- clock ----

struct ClockFace : Film {
  void SetUp() override { Film::SetUp(), alleg_refresh_rate(60); }
  int ink() const { return rgb(0, 168, 0); }  // palette colour 2 of the default palette
};

TEST_F(ClockFace, FramesPerRevolutionAndDialPosition) {
  const struct { int dauer, frames; } cases[] = {{1000, 60}, {2000, 120}, {3000, 180}};
  for (const auto& c : cases) {
    auto k = make<cclock>(_clock, "dauer=" + std::to_string(c.dauer) + " t1=3000");
    ASSERT_EQ(k->prepare(), 0);
    // 600 x 0.1 wide; a quarter round is 15 minutes
    EXPECT_TRUE(k->film->anzahl() == c.frames && k->film->width() == 60 && k->maxreak() == 3000) << c.dauer;
    k->current = c.frames / 4;
    EXPECT_DOUBLE_EQ(k->now(), 15.0);
    EXPECT_TRUE(k->fadetime() >= c.dauer / 2 && k->fadetime() < c.dauer / 2 + c.dauer) << k->fadetime();
    EXPECT_TRUE(k->cleanup() == 0 && clock_running() == nullptr);
  }
}

TEST_F(ClockFace, SizesThatCannotBeDrawnAreRefused) {
  // 600 lines: radius 4 is the largest face; 1 GB of frames the most memory.
  const struct { const char* attributes; const char* error; } cases[] = {
      {"radius=1e300", "clock: dauer, radius: Invalid argument"},
      {"radius=nan", "clock: dauer, radius: Invalid argument"},
      {"radius=4.01", "clock: dauer, radius: Invalid argument"},
      {"dauer=2147483647", "clock: dauer, radius: Cannot allocate memory"},
      {"radius=4 dauer=1000", "clock: dauer, radius: Cannot allocate memory"},
  };
  for (const auto& c : cases) {
    LogCapture log;
    auto k = make<cclock>(_clock, c.attributes);
    EXPECT_EQ(k->prepare(), -1) << c.attributes;
    EXPECT_TRUE(log.has(c.error)) << c.attributes << "\n" << log.text();
  }
  LogCapture log;
  auto w = make<cwheel>(_wheel, "radius=1e300");
  EXPECT_EQ(w->prepare(), -1);
  EXPECT_TRUE(log.has("wheel: radius: Invalid argument")) << log.text();
}

TEST_F(ClockFace, FaceDotDirectionAndTicks) {
  // size 360: c = 180, ring radius 108, dot radius 10. A point 6 pixels
  // inside the dot towards the centre is off the ring; so is its mirror.
  const struct { double minutes; int richtung, x, y; } dots[] = {
      {0, 1, 180, 78}, {15, 1, 282, 180}, {15, -1, 78, 180}, {30, 1, 180, 282}};
  for (const auto& d : dots) {
    BITMAP* b = clock_at(d.minutes, 360, 2.5, 5.0, d.richtung);
    EXPECT_EQ(getpixel(b, d.x, d.y), ink()) << d.minutes << " " << d.richtung;
    EXPECT_EQ(getpixel(b, 360 - d.x, 360 - d.y), rgb(0, 0, 0)) << d.minutes << " " << d.richtung;
    destroy_bitmap(b);
  }
  // Outer ends of the minor tick at 2.5 minutes (0.65c) and the major one at
  // 5 (0.70c), and the label "0" above 12 o'clock; a step below 0.1 in
  // magnitude draws none of them.
  const struct { double tics; bool drawn; } scales[] = {{2.5, true}, {0.05, false}, {-0.05, false}};
  for (const auto& s : scales) {
    BITMAP* b = clock_at(30, 360, s.tics, 5.0, 1);
    EXPECT_EQ(getpixel(b, 210, 67) == ink(), s.drawn) << s.tics;
    EXPECT_EQ(getpixel(b, 242, 71) == ink(), s.drawn) << s.tics;
    int label = 0;
    for (int y = 20; y < 45; ++y)
      for (int x = 170; x < 195; ++x) label += getpixel(b, x, y) == ink();
    EXPECT_EQ(label > 0, s.drawn) << s.tics;
    destroy_bitmap(b);
  }
}

TEST_F(ClockFace, AnswerRecordedOnceAndSynchronisedStimuliRecordPosition) {
  SimPort sim(dir, 1);
  LogCapture log({sim.arg()});
  ASSERT_EQ(led_init(led_lpt1, led_static, 0), 0);
  ASSERT_EQ(stift_init(stift_lpt1), 0);
  auto c = make<cbmp>(_cbmp, "t0=700");
  EXPECT_TRUE(c->kritisch == 1 && c->show() == -1 && log.has("clock is not running..."));

  auto k = make<cclock>(_clock, "dauer=1000 t0=200 kritisch=1 tics=2.5 repeat=-1");
  ASSERT_EQ(k->prepare(), 0);
  ASSERT_EQ(k->show(), 0);
  reshow_at(*k, 500);
  EXPECT_EQ(clock_running(), k.get());
  k->current = 30;  // of 60

  const struct { stim* (*factory)(const char*); const char* kind; } kinds[] = {
      {_cbmp, "bmp"}, {_cled, "led"}, {_cstift, "stift"}};
  for (const auto& kind : kinds) {
    auto s = make<stim>(kind.factory, "t0=700 moda=3");
    ASSERT_EQ(s->show(), 0) << kind.kind;
    EXPECT_TRUE(s->reaktion == 1 && s->reakzeit == 300) << s->reakzeit;
    const std::string uv = s->uv ? s->uv : "";
    const std::string head = std::string(kind.kind) + " moda 3 dauer 1000 richtung 1 tics 2.5 tics2 5.0 t0 500 t0real ";
    EXPECT_EQ(uv.rfind(head, 0), 0u) << uv;
    EXPECT_NE(uv.find(" bildnummer 30 minuten 30.0"), std::string::npos) << uv;
    s->hide();
  }

  k->reaktion = 1, k->reakzeit = 2345;
  k->reshow();
  ASSERT_NE(k->uv, nullptr);
  const std::string first = k->uv;
  EXPECT_EQ(first.rfind("null moda 0 dauer 1000 richtung 1 tics 2.5 tics2 5.0 t0 345 t0real 2345 bildnummer ", 0), 0u);
  k->reakzeit = 999;
  reshow_at(*k, 700);
  EXPECT_EQ(first, k->uv);

  reshow_at(*k, 1100);  // round once, the dial stands on its first frame: no time is told
  EXPECT_TRUE(k->shown && !clock_running());
  k->cleanup();
  EXPECT_EQ(c->show(), -1);  // after the clock's clean-up
  led_reset_state(), stift_reset();
}

// ---- wheel ----

namespace {
int arrows = 0, pointer_x = 0, pointer_y = 0, buttons = 0;
const tastatur_device kDevice{[] { return 0; }, [](int) {}, [] { return buttons; },
                              [](int& x, int& y) {
                                x = pointer_x, y = pointer_y;
                                return 1;
                              },
                              [] { return std::exchange(arrows, 0); }};
}  // namespace

struct Wheel : ClockFace {
  void SetUp() override { ClockFace::SetUp(), arrows = pointer_x = pointer_y = buttons = 0, tastatur_fake(&kDevice); }
};

TEST_F(Wheel, PointerAngleGivesDialMinutes) {
  auto w = make<cwheel>(_wheel, "start=0");
  const struct { int dx, dy, richtung; double minutes; } cases[] = {
      {0, -50, 1, 0}, {50, 0, 1, 15}, {0, 50, 1, 30}, {-50, 0, 1, 45}, {50, 0, -1, 45}, {-50, -50, 1, 52.5}};
  for (const auto& c : cases) {
    w->richtung = c.richtung;
    EXPECT_DOUBLE_EQ(w->minutes_at(c.dx, c.dy), c.minutes) << c.dx << "," << c.dy;
  }
}

TEST_F(Wheel, KeysAndMouseMoveTheMarkerAndAnAnswerIsRecordedOnce) {
  auto w = make<cwheel>(_wheel, "start=0 radius=0.6 moda=4 t1=4000");
  EXPECT_TRUE(w->kritisch == 1 && w->with_reaktion() == 0 && w->maxreak() == 4000);
  ASSERT_EQ(w->prepare(), 0);  // 360 x 360 at (220, 120), centre (400, 300)
  ASSERT_EQ(w->show(), 0);
  EXPECT_EQ(at(400, 300 - 108), ink());  // marker at 0

  arrows = -1;  // two presses left, one right
  reshow_at(*w, 100);
  EXPECT_DOUBLE_EQ(w->position(), 59.5);

  pointer_x = 600, pointer_y = 300;  // to the right of the centre
  reshow_at(*w, 200);
  EXPECT_DOUBLE_EQ(w->position(), 15.0);
  EXPECT_EQ(at(400 + 108, 300), ink());
  EXPECT_EQ(at(400, 300 - 108 + 9), rgb(0, 0, 0));  // the old marker is gone

  buttons = 1;
  reshow_at(*w, 300);
  ASSERT_TRUE(w->uv && w->reaktion == 1);
  const std::string uv = w->uv;
  EXPECT_EQ(uv.rfind("wheel moda 4 richtung 1 tics 2.5 tics2 5.0 start 0.0 t0real ", 0), 0u) << uv;
  EXPECT_NE(uv.find(" minuten 15.0"), std::string::npos) << uv;

  arrows = 1;  // confirmed: no more moves
  pointer_x = 400, pointer_y = 500;
  reshow_at(*w, 400);
  EXPECT_DOUBLE_EQ(w->position(), 15.0);
  EXPECT_EQ(uv, w->uv);
}
