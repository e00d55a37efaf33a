// The shape stimulus on a memory bitmap standing in for an 800 x 600 drawing
// area: figure geometry, colours, outline against solid and hatched fill,
// size presets, onset and erasing, and the reported failures.

#include "test_support.h"
#include "visual/shape.h"

namespace {
struct Shape : ::testing::Test {
  void TearDown() override { shape_done(); }
  std::unique_ptr<shape> make(const std::string& attrs) {
    stim* s = _shape(attrs.c_str());
    EXPECT_NE(s, nullptr) << attrs;
    return std::unique_ptr<shape>(static_cast<shape*>(s));
  }
  // make(attrs), prepared for onset.
  std::unique_ptr<shape> prepared(const std::string& attrs) {
    auto s = make(attrs);
    EXPECT_TRUE(s->preshow() == 0 && s->bitmap) << attrs;
    return s;
  }
  int at(BITMAP* b, int x, int y) { return b ? getpixel(b, x, y) : -1; }

  const int black = rgb(0, 0, 0), grey = rgb(128, 128, 128);
  const int colours[6] = {rgb(64, 64, 255),  rgb(64, 255, 64),  rgb(255, 64, 64),
                          rgb(255, 64, 255), rgb(255, 255, 64), rgb(255, 255, 255)};
  MemoryScreen memory{16, 800, 600, 60, black};
};
}  // namespace

// Default radius 0.05 on 800 x 600: a 160 x 160 bitmap, r = 30, centre (80, 80).
// Per figure a point on the outline, one just outside and one inked only when filled.
TEST_F(Shape, FiguresOutlinedAndSolid) {
  const struct { int form, ex, ey, ox, oy, ix, iy; } figures[] = {  // edge, outside, inside
      {0, 109, 80, 112, 80, 80, 80},   {1, 111, 111, 112, 80, 52, 52}, {2, 20, 110, 142, 80, 25, 55},
      {3, 80, 49, 60, 55, 80, 90},     {4, 140, 80, 135, 105, 120, 80}, {5, 80, 35, 100, 100, 120, 90},
      {6, 140, 80, 110, 60, 50, 85}};
  for (const auto& f : figures)
    for (int filled : {0, 2}) {
      const int c = colours[f.form % 6];
      auto s = prepared("shape=" + std::to_string(f.form) + " filled=" + std::to_string(filled) +
                        " color=" + std::to_string(f.form % 6));
      ASSERT_TRUE(s->bitmap);
      EXPECT_EQ(std::make_tuple(s->bitmap->w, s->bitmap->h, at(s->bitmap, 0, 0), at(s->bitmap, f.ex, f.ey),
                                at(s->bitmap, f.ox, f.oy), at(s->bitmap, f.ix, f.iy)),
                std::make_tuple(160, 160, grey, c, grey, filled ? c : grey))
          << "form " << f.form << " filled " << filled;
    }
}

TEST_F(Shape, OnsetPlacesTheFigureCentredAndOffsetErasesOnePixelMore) {
  auto s = prepared("filled=2 color=2");
  EXPECT_EQ(at(screen, 400, 300), black);  // nothing before onset
  ASSERT_EQ(s->show(), 0);
  EXPECT_EQ(std::make_tuple(at(screen, 320, 220), at(screen, 479, 379), at(screen, 319, 220),
                            at(screen, 480, 379), at(screen, 430, 300)),
            std::make_tuple(grey, grey, black, black, colours[2]));
  ASSERT_EQ(s->hide(), 0);
  EXPECT_EQ(s->bitmap, nullptr);
  EXPECT_EQ(std::make_tuple(at(screen, 400, 300), at(screen, 480, 380), at(screen, 481, 380),
                            at(screen, 480, 381), at(screen, 319, 219)),
            std::make_tuple(grey, grey, black, black, black));
  // Without a figure, onset and offset draw nothing.
  clear_to_color(screen, black);
  EXPECT_EQ(s->show() | s->hide(), 0);
  EXPECT_EQ(at(screen, 320, 220), black);
}

// A preset is looked up for the figure chosen so far, when "size=" is read.
TEST_F(Shape, SizePresetsAreReadWithTheFigureChosenSoFar) {
  const std::vector<std::tuple<const char*, int, float>> cases = {
      {"size=1 shape=3", 3, 0.055f}, {"shape=3 size=1", 3, 0.069f},  {"shape=3 size=1 shape=5", 5, 0.069f},
      {"size=2 radius=0.3", 0, 0.3f}, {"radius=0.3 size=0", 0, 0.019f}, {"shape=9 size=1", 9, 0.05f},
      {"size=3", 0, 0.05f},          {"size=-1", 0, 0.05f},          {"shape=263", 7, 0.05f},
  };
  for (const auto& [attrs, form, radius] : cases) {
    auto s = make(attrs);
    EXPECT_EQ(s->form, form) << attrs;
    EXPECT_FLOAT_EQ(s->radius, radius) << attrs;
  }
}

TEST_F(Shape, HatchingNeedsThePattern) {
  LogCapture log;
  auto s = make("shape=1 filled=1");
  EXPECT_EQ(s->preshow(), -1);
  EXPECT_TRUE(log.has("xhatch pattern not loaded.") && s->bitmap);  // the bitmap is kept until offset
  EXPECT_TRUE(s->hide() == 0 && !s->bitmap);

  // With the pattern only its diagonals (tiled from 0,0) take the colour; solid drawing follows.
  ASSERT_EQ(shape_init(0, 0, 128), 0);
  ASSERT_EQ(s->preshow(), 0);
  EXPECT_EQ(std::make_tuple(at(s->bitmap, 80, 80), at(s->bitmap, 81, 80), at(s->bitmap, 83, 84),
                            at(s->bitmap, 86, 84), at(s->bitmap, 120, 120)),
            std::make_tuple(colours[0], grey, colours[0], grey, grey));
  EXPECT_EQ(at(prepared("shape=1 filled=2")->bitmap, 81, 80), colours[0]);
}

TEST_F(Shape, InitSetsTheBackgroundFromItsLastValue) {
  ASSERT_EQ(shape_init(10, 20, 200), 0);
  auto s = prepared("");
  EXPECT_EQ(at(s->bitmap, 0, 0), rgb(200, 128, 128));
  ASSERT_EQ(s->show() | s->hide(), 0);
  EXPECT_EQ(at(screen, 400, 300), rgb(200, 128, 128));
}

TEST_F(Shape, InvalidColourUnknownFigureAndImpossibleSizesAreReported) {
  LogCapture log;
  for (const auto& [attrs, report] : std::vector<std::pair<const char*, const char*>>{
           {"color=6", "shape: invalid color index: 6"}, {"shape=1 color=-1 filled=2", "shape: invalid color index: -1"}})
    EXPECT_TRUE(_shape(attrs) == nullptr && log.has(report)) << attrs;
  EXPECT_EQ(make("color=0")->color + make("color=5")->color, 5);
  EXPECT_EQ(make("shape=7")->preshow(), -1);
  EXPECT_TRUE(log.has("shape 7: unknown shape"));
  for (const char* attrs : {"radius=0", "radius=-0.1", "radius=1e30", "radius=nan"}) {
    auto s = make(attrs);
    EXPECT_TRUE(s->preshow() == -1 && !s->bitmap) << attrs;
  }
  EXPECT_TRUE(log.has("shape: could not create bitmap"));
}

TEST_F(Shape, DrawingFunctionsTakeTheCentreAndHeightFromTheirArguments) {
  BITMAP* b = create_bitmap(200, 100);
  clear_to_color(b, black);
  const int c = colours[5];  // white; r = 600 x 0.01 = 6 about (50, 25)
  ASSERT_EQ(shape__quadrat(b, 1, 0.01, 255, 255, 255, 0.25, 0.25), 0);
  EXPECT_EQ(std::make_tuple(at(b, 50, 25), at(b, 56, 25), at(b, 58, 25), at(b, 44, 19)),
            std::make_tuple(c, c, black, c));
  EXPECT_EQ(shape__circle(nullptr, 0, 0.05, 0, 0, 0, 0.5, 0.5), -1);
  EXPECT_EQ(shape__kreuz(b, 1, 1e300, 1, 2, 3, 0.5, 0.5), 0);  // out of range: safe
  destroy_bitmap(b);
}
