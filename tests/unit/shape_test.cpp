// The shape stimulus on a memory bitmap standing in for an 800 x 600 drawing
// area: figure geometry, colours, outline against solid and hatched fill,
// size presets, onset and erasing, and the reported failures.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "fake_clock.h"
#include "platform/display.h"
#include "test_support.h"
#include "visual/shape.h"

namespace {
int rgb(int r, int g, int b) { return makecol_depth(16, r, g, b); }

class Shape : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    set_color_depth(16);
    screen = create_bitmap(800, 600);
    clear_to_color(screen, black);
    fake_clock::start();
    display_vsync_reset();
    alleg_refresh_rate(60);
  }
  void TearDown() override {
    shape_done();
    destroy_bitmap(screen);
    screen = nullptr;
    display_vsync_reset();
    fake_clock::stop();
    set_color_depth(8);
  }
  std::unique_ptr<shape> make(const std::string& attrs) {
    stim* s = _shape(attrs.c_str());
    EXPECT_NE(s, nullptr) << attrs;
    return std::unique_ptr<shape>(static_cast<shape*>(s));
  }

  const int black = rgb(0, 0, 0), grey = rgb(128, 128, 128);
  const int colours[6] = {rgb(64, 64, 255),  rgb(64, 255, 64),  rgb(255, 64, 64),
                          rgb(255, 64, 255), rgb(255, 255, 64), rgb(255, 255, 255)};
};

struct Probe {
  int x, y;
  bool outline;  // figure colour also when only outlined
  bool solid;    // figure colour when filled solid
};
}  // namespace

// Default radius 0.05 on 800 x 600: a 160 x 160 bitmap, r = 30, centre (80, 80).
TEST_F(Shape, FiguresOutlinedAndSolid) {
  const std::vector<std::pair<int, std::vector<Probe>>> figures = {
      {0, {{110, 80, true, true}, {109, 80, true, true}, {112, 80, false, false}, {80, 112, false, false},
           {80, 80, false, true}, {80, 50, true, true}}},
      {1, {{110, 80, true, true}, {111, 111, true, true}, {112, 80, false, false}, {80, 112, false, false},
           {80, 80, false, true}, {52, 52, false, true}}},
      {2, {{140, 80, true, true}, {20, 110, true, true}, {142, 80, false, false}, {80, 112, false, false},
           {80, 80, false, true}, {25, 55, false, true}}},
      {3, {{80, 49, true, true}, {80, 110, true, true}, {80, 47, false, false}, {80, 112, false, false},
           {80, 90, false, true}, {60, 55, false, false}}},
      {4, {{140, 80, true, true}, {80, 110, true, true}, {142, 80, false, false}, {80, 112, false, false},
           {120, 80, false, true}, {135, 105, false, false}}},
      {5, {{125, 80, true, true}, {80, 35, true, true}, {127, 80, false, false}, {100, 100, false, false},
           {80, 80, false, true}, {120, 90, false, true}}},
      {6, {{140, 80, true, true}, {80, 50, true, true}, {142, 80, false, false}, {110, 60, false, false},
           {80, 80, false, true}, {50, 85, false, true}}},
  };
  for (const auto& [form, probes] : figures)
    for (int filled : {0, 2, 3}) {
      const int c = colours[form % 6];
      auto s = make("shape=" + std::to_string(form) + " filled=" + std::to_string(filled) +
                    " color=" + std::to_string(form % 6));
      ASSERT_EQ(s->preshow(), 0) << form;
      ASSERT_NE(s->bitmap, nullptr);
      EXPECT_EQ(std::make_tuple(s->bitmap->w, s->bitmap->h, getpixel(s->bitmap, 0, 0)),
                std::make_tuple(160, 160, grey));
      for (const Probe& p : probes)
        EXPECT_EQ(getpixel(s->bitmap, p.x, p.y), (filled ? p.solid : p.outline) ? c : grey)
            << "form " << form << " filled " << filled << " at " << p.x << "," << p.y;
    }
}

TEST_F(Shape, OnsetPlacesTheFigureCentredAndOffsetErasesOnePixelMore) {
  auto s = make("filled=2 color=2 nummer=7");
  EXPECT_EQ(std::make_tuple(s->nummer, s->pstime()), std::make_tuple(7u, 200L));
  ASSERT_EQ(s->preshow(), 0);
  EXPECT_EQ(getpixel(screen, 400, 300), black);  // nothing before onset
  ASSERT_EQ(s->show(), 0);
  EXPECT_EQ(s->shown, 1);
  EXPECT_EQ(std::make_tuple(getpixel(screen, 320, 220), getpixel(screen, 479, 379), getpixel(screen, 319, 220),
                            getpixel(screen, 480, 379), getpixel(screen, 400, 300), getpixel(screen, 430, 300)),
            std::make_tuple(grey, grey, black, black, colours[2], colours[2]));
  ASSERT_EQ(s->hide(), 0);
  EXPECT_EQ(std::make_tuple(s->bitmap, s->shown), std::make_tuple(nullptr, 0));
  EXPECT_EQ(std::make_tuple(getpixel(screen, 400, 300), getpixel(screen, 480, 380), getpixel(screen, 481, 380),
                            getpixel(screen, 480, 381), getpixel(screen, 319, 219)),
            std::make_tuple(grey, grey, black, black, black));
  // A second onset draws afresh; without a figure, onset and offset draw nothing.
  ASSERT_EQ(s->preshow(), 0);
  ASSERT_EQ(s->show(), 0);
  EXPECT_EQ(getpixel(screen, 400, 300), colours[2]);
  ASSERT_EQ(s->hide(), 0);
  clear_to_color(screen, black);
  EXPECT_EQ(s->show() | s->hide(), 0);
  EXPECT_EQ(getpixel(screen, 320, 220), black);
}

TEST_F(Shape, SizePresetsAreReadWithTheFigureChosenSoFar) {
  const std::vector<std::tuple<const char*, int, float>> cases = {
      {"", 0, 0.05f},
      {"size=1", 0, 0.055f},
      {"size=1 shape=3", 3, 0.055f},
      {"shape=3 size=1", 3, 0.069f},
      {"shape=3 size=1 shape=5", 5, 0.069f},
      {"shape=6 size=2", 6, 0.12f},
      {"shape=2 size=0", 2, 0.013f},
      {"shape=4 size=2", 4, 0.094f},
      {"shape=5 size=0", 5, 0.017f},
      {"shape=1 size=1", 1, 0.05f},
      {"size=2 radius=0.3", 0, 0.3f},
      {"radius=0.3 size=0", 0, 0.019f},
      {"shape=9 size=1", 9, 0.05f},
      {"size=3", 0, 0.05f},
      {"size=-1", 0, 0.05f},
      {"shape=263", 7, 0.05f},
  };
  for (const auto& [attrs, form, radius] : cases) {
    auto s = make(attrs);
    EXPECT_EQ(s->form, form) << attrs;
    EXPECT_FLOAT_EQ(s->radius, radius) << attrs;
  }
  // The preset sets the bitmap size: 0.129 x 800 x 4 = 412.8.
  auto s = make("size=2");
  ASSERT_EQ(s->preshow(), 0);
  EXPECT_EQ(s->bitmap->w, 412);
}

TEST_F(Shape, InvalidColourRejectsTheLine) {
  LogCapture log;
  for (const char* attrs : {"color=6", "color=-1", "shape=1 color=99 filled=2"})
    EXPECT_EQ(_shape(attrs), nullptr) << attrs;
  EXPECT_TRUE(log.has("shape: invalid color index: 6"));
  EXPECT_TRUE(log.has("shape: invalid color index: -1"));
  EXPECT_TRUE(log.has("shape: invalid color index: 99"));
  for (int c = 0; c < 6; ++c) EXPECT_EQ(make("color=" + std::to_string(c))->color, c);
}

TEST_F(Shape, HatchingNeedsThePattern) {
  LogCapture log;
  auto s = make("shape=1 filled=1");
  EXPECT_EQ(s->preshow(), -1);
  EXPECT_TRUE(log.has("xhatch pattern not loaded."));
  EXPECT_NE(s->bitmap, nullptr);  // kept until offset
  EXPECT_EQ(s->hide(), 0);
  EXPECT_EQ(s->bitmap, nullptr);

  // With the pattern only its diagonals (tiled from 0,0) take the colour.
  ASSERT_EQ(shape_init(0, 0, 128), 0);
  ASSERT_EQ(s->preshow(), 0);
  const int c = colours[0];
  for (auto [x, y, inked] : std::vector<std::tuple<int, int, bool>>{
           {80, 80, true}, {81, 80, false}, {83, 84, true}, {85, 85, true}, {86, 84, false}, {60, 67, true},
           {110, 80, true}, {120, 120, false}}) {
    EXPECT_EQ(getpixel(s->bitmap, x, y), inked ? c : grey) << x << "," << y;
  }
  // Drawing is solid again afterwards.
  auto solid = make("shape=1 filled=2");
  ASSERT_EQ(solid->preshow(), 0);
  EXPECT_EQ(getpixel(solid->bitmap, 81, 80), c);
}

TEST_F(Shape, InitSetsTheBackgroundFromItsLastValue) {
  ASSERT_EQ(shape_init(10, 20, 200), 0);
  auto s = make("");
  ASSERT_EQ(s->preshow(), 0);
  EXPECT_EQ(getpixel(s->bitmap, 0, 0), rgb(200, 128, 128));
  ASSERT_EQ(s->show(), 0);
  ASSERT_EQ(s->hide(), 0);
  EXPECT_EQ(getpixel(screen, 400, 300), rgb(200, 128, 128));
}

TEST_F(Shape, UnknownFigureAndImpossibleSizesAreReported) {
  LogCapture log;
  auto unknown = make("shape=7");
  EXPECT_EQ(unknown->preshow(), -1);
  EXPECT_TRUE(log.has("shape 7: unknown shape"));
  EXPECT_EQ(unknown->hide(), 0);
  for (const char* attrs : {"radius=0", "radius=-0.1", "radius=1e30", "radius=nan"}) {
    auto s = make(attrs);
    EXPECT_EQ(s->preshow(), -1) << attrs;
    EXPECT_EQ(s->bitmap, nullptr) << attrs;
  }
  EXPECT_TRUE(log.has("shape: could not create bitmap"));
}

TEST_F(Shape, DrawingFunctionsTakeTheCentreAndHeightFromTheirArguments) {
  BITMAP* b = create_bitmap(200, 100);
  clear_to_color(b, black);
  const int c = rgb(255, 255, 255);
  // r = 600 x 0.01 = 6 about (50, 25).
  ASSERT_EQ(shape__quadrat(b, 1, 0.01, 255, 255, 255, 0.25, 0.25), 0);
  EXPECT_EQ(std::make_tuple(getpixel(b, 50, 25), getpixel(b, 56, 25), getpixel(b, 58, 25), getpixel(b, 44, 19)),
            std::make_tuple(c, c, black, c));
  EXPECT_EQ(shape__circle(nullptr, 0, 0.05, 0, 0, 0, 0.5, 0.5), -1);
  // Out-of-range sizes draw nothing visible but stay safe.
  EXPECT_EQ(shape__kreuz(b, 1, 1e300, 1, 2, 3, 0.5, 0.5), 0);
  destroy_bitmap(b);
}
