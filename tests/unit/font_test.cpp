#include "platform/font.h"

#include <allegro.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <set>
#include <string>
#include <vector>

#include "tests/unit/test_support.h"

namespace {

const char kGroesse[] = "Gr\xc3\xb6\xc3\x9f" "e";  // "Größe" in UTF-8

bool has_mode(const std::string& p, unsigned mode) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 && (st.st_mode & S_IFMT) == mode;
}

// Bounding box (inclusive) and count of the pixels that differ from bg.
struct Ink {
  int x0 = INT_MAX, y0 = INT_MAX, x1 = INT_MIN, y1 = INT_MIN, count = 0;
};

Ink ink(BITMAP* b, int bg) {
  Ink k;
  for (int y = 0; y < b->h; ++y)
    for (int x = 0; x < b->w; ++x)
      if (getpixel(b, x, y) != bg) {
        k.x0 = std::min(k.x0, x), k.x1 = std::max(k.x1, x), k.y0 = std::min(k.y0, y), k.y1 = std::max(k.y1, y);
        ++k.count;
      }
  return k;
}

std::set<int> colours(BITMAP* b) {
  std::set<int> s;
  for (int y = 0; y < b->h; ++y)
    for (int x = 0; x < b->w; ++x) s.insert(getpixel(b, x, y));
  return s;
}

bool same_pixels(BITMAP* a, BITMAP* b) {
  for (int y = 0; y < a->h; ++y)
    for (int x = 0; x < a->w; ++x)
      if (getpixel(a, x, y) != getpixel(b, x, y)) return false;
  return true;
}

// A memory bitmap of the given depth, filled with bg.
struct Canvas {
  BITMAP* bmp;
  int bg;
  Canvas(int depth, int w, int h, int r = 0, int g = 0, int b = 0)
      : bmp(create_bitmap_ex(depth, w, h)), bg(makecol_depth(depth, r, g, b)) {
    clear_to_color(bmp, bg);
  }
  ~Canvas() { destroy_bitmap(bmp); }
};

// GetFontFile with heap buffers of exactly the documented size.
struct Lookup {
  std::vector<char> display = std::vector<char>(1000, 'x'), file = display, dir = display;
  int result;
  explicit Lookup(const char* name) : result(GetFontFile(name, display.data(), file.data(), dir.data())) {}
  std::string path() const { return std::string(dir.data()) + "/" + file.data(); }
};

TEST(FontLookup, NamesAndAliasesResolveToExistingFiles) {
  Lookup arial("Arial"), lower("arial"), courier("courier new"), bold("Courier New:bold");
  ASSERT_EQ(arial.result, -1);
  EXPECT_EQ(std::string(arial.file.data()).find('/'), std::string::npos);
  EXPECT_TRUE(has_mode(arial.path(), S_IFREG)) << arial.path();
  const std::string d = arial.display.data();
  EXPECT_TRUE(d.find("Arial") == 0 || d.find("Liberation Sans") == 0) << d;
  EXPECT_EQ(lower.result, -1);
  EXPECT_EQ(lower.path(), arial.path());
  ASSERT_EQ(courier.result, -1);
  ASSERT_EQ(bold.result, -1);
  EXPECT_TRUE(has_mode(bold.path(), S_IFREG));
  EXPECT_NE(std::string(bold.file.data()), courier.file.data());
  EXPECT_NE(std::string(bold.display.data()).find("Bold"), std::string::npos) << bold.display.data();
  EXPECT_EQ(GetFontFile("Arial", nullptr, nullptr, nullptr), -1);
}

TEST(FontLookup, UnknownEmptyAndOverlongNamesGiveZeroAndADirectory) {
  const std::string overlong(3000, 'A');
  for (const char* name : {"xyzzy-no-such-face", "", static_cast<const char*>(nullptr), overlong.c_str()}) {
    Lookup l(name);
    EXPECT_EQ(l.result, 0);
    EXPECT_STREQ(l.display.data(), "");
    EXPECT_STREQ(l.file.data(), "");
    EXPECT_TRUE(has_mode(l.dir.data(), S_IFDIR)) << l.dir.data();
  }
}

class FontLayer : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    ASSERT_EQ(alfont_init(), 0);
    f_ = alfont_load_font(Lookup("Arial").path().c_str());
    ASSERT_NE(f_, nullptr);
    alfont_set_font_size(f_, 30);
  }
  void TearDown() override {
    alfont_destroy_font(f_);
    alfont_exit();
  }
  ALFONT_FONT* f_ = nullptr;
};

TEST_F(FontLayer, LoadRejectsMissingAndNonFontFiles) {
  TempDir t;
  EXPECT_EQ(alfont_load_font(t.write("x.ttf", "not a font at all").c_str()), nullptr);
  EXPECT_EQ(alfont_load_font(t.path("missing.ttf").c_str()), nullptr);
  EXPECT_EQ(alfont_load_font(nullptr), nullptr);
}

TEST_F(FontLayer, AntiAliasedBlendsOverTheTargetPlainSetsHalfCoveredPixels) {
  for (int depth : {15, 16, 24, 32}) {
    SCOPED_TRACE(depth);
    const int white = makecol_depth(depth, 255, 255, 255);
    Canvas aa(depth, 300, 60), plain(depth, 300, 60);
    alfont_textout_aa(aa.bmp, f_, "Wagon sky", 5, 5, white);
    alfont_textout(plain.bmp, f_, "Wagon sky", 5, 5, white);
    EXPECT_GT(colours(aa.bmp).size(), 4u);
    EXPECT_TRUE(colours(aa.bmp).count(white));
    EXPECT_EQ(colours(plain.bmp), (std::set<int>{aa.bg, white}));
    for (int y = 0; depth == 32 && y < 60; ++y)
      for (int x = 0; x < 300; ++x)
        ASSERT_EQ(getpixel(plain.bmp, x, y) == white, getr32(getpixel(aa.bmp, x, y)) >= 128) << x << "," << y;
  }
  Canvas red(32, 300, 60, 255, 0, 0);
  alfont_textout_aa(red.bmp, f_, "Wagon", 5, 5, makecol32(0, 0, 255));
  int mixed = 0;
  for (int p : colours(red.bmp)) {
    EXPECT_EQ(getr32(p) + getb32(p), 255) << std::hex << p;
    mixed += getr32(p) > 0 && getb32(p) > 0;
  }
  EXPECT_GT(mixed, 0);
  select_palette(default_palette);  // a palette with greys to blend into
  Canvas eight(8, 300, 60);
  alfont_textout_aa(eight.bmp, f_, "Wagon", 5, 5, 15);
  unselect_palette();
  EXPECT_EQ(colours(eight.bmp), (std::set<int>{eight.bg, 15}));
}

TEST_F(FontLayer, SizesScaleAndSwitchingBackRendersTheSame) {
  Canvas first(32, 300, 60), again(32, 300, 60);
  alfont_textout_aa(first.bmp, f_, "Wagon", 0, 0, makecol32(255, 255, 255));
  const int len30 = alfont_text_length(f_, "Wagon"), h30 = alfont_text_height(f_);
  alfont_set_font_size(f_, 12);
  alfont_set_font_size(f_, 0);
  EXPECT_LT(alfont_text_length(f_, "Wagon"), len30 / 2);
  EXPECT_LT(alfont_text_height(f_), h30 / 2);
  alfont_set_font_size(f_, 30);
  EXPECT_EQ(alfont_text_length(f_, "Wagon"), len30);
  alfont_textout_aa(again.bmp, f_, "Wagon", 0, 0, makecol32(255, 255, 255));
  EXPECT_TRUE(same_pixels(first.bmp, again.bmp));
}

TEST_F(FontLayer, DrawingStaysInsideTheClipRectAndTheBitmap) {
  Canvas c(16, 120, 50);
  set_clip_rect(c.bmp, 10, 10, 59, 29);
  alfont_textout_aa(c.bmp, f_, "WWWWWWWW", 0, 0, makecol16(255, 255, 255));
  const Ink k = ink(c.bmp, c.bg);
  ASSERT_GT(k.count, 0);
  EXPECT_TRUE(k.x0 >= 10 && k.x1 <= 59 && k.y0 >= 10 && k.y1 <= 29);
  Canvas edge(32, 100, 50);
  alfont_textout_aa(edge.bmp, f_, "WWW", 95, 0, makecol32(255, 255, 255));
  EXPECT_GE(ink(edge.bmp, edge.bg).x0, 95);  // nothing wraps into the next row
  for (int x : {-40, -10, 100, 119})
    for (int y : {-30, -5, 40, 49}) alfont_textout_aa(edge.bmp, f_, "Wg", x, y, makecol32(255, 0, 0));
}

TEST_F(FontLayer, FontsOutlivingTheLayerAreEmpty) {
  alfont_exit();
  Canvas c(32, 100, 50);
  alfont_textout_aa(c.bmp, f_, "Wagon", 0, 0, makecol32(255, 255, 255));
  EXPECT_EQ(ink(c.bmp, c.bg).count, 0);
  EXPECT_EQ(alfont_text_length(f_, "Wagon") + alfont_text_height(f_), 0);
  EXPECT_EQ(alfont_load_font(Lookup("Arial").path().c_str()), nullptr);
}

class FontText : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    ASSERT_EQ(alleg_fonts_init(), 0);
  }
  void TearDown() override { alleg_fonts_exit(); }
};

TEST_F(FontText, BothFacesLoadAtTheirSizesAndReload) {
  ASSERT_NE(alleg_font_handle(1), nullptr);
  ASSERT_NE(alleg_font_handle(2), nullptr);
  EXPECT_TRUE(alleg_text_height(1) >= 30 && alleg_text_height(1) <= 40) << alleg_text_height(1);
  EXPECT_TRUE(alleg_text_height(2) >= 20 && alleg_text_height(2) <= 28) << alleg_text_height(2);
  EXPECT_EQ(alleg_text_length("iiii", 2), alleg_text_length("WWWW", 2));  // fixed pitch
  EXPECT_LT(alleg_text_length("iiii", 1), alleg_text_length("WWWW", 1));
  ASSERT_EQ(alleg_fonts_init(), 0);
  EXPECT_NE(alleg_font_handle(1), nullptr);
}

TEST_F(FontText, TextStaysInsideItsBox) {
  const std::string text = std::string("Wort ") + kGroesse + " jqy";
  for (int depth : {16, 32})
    for (int face : {1, 2}) {
      SCOPED_TRACE(testing::Message() << depth << " bpp, face " << face);
      Canvas c(depth, 500, 100, 10, 20, 30);
      EXPECT_EQ(alleg_textout(c.bmp, text.c_str(), face, 40, 30, 255, 255, 0), 0);
      const Ink k = ink(c.bmp, c.bg);
      ASSERT_GT(k.count, 50);
      EXPECT_GE(k.x0, 40);
      EXPECT_LT(k.x1, 40 + alleg_text_length(text.c_str(), face));
      EXPECT_GE(k.y0, 30);
      EXPECT_LT(k.y1, 30 + alleg_text_height(face));
      EXPECT_GE(k.y1, 30 + alleg_text_height(face) * 3 / 4);  // descenders
      EXPECT_TRUE(colours(c.bmp).count(makecol_depth(depth, 255, 255, 0)));
    }
}

TEST_F(FontText, CentredTextIsCentredOnX) {
  for (int face : {1, 2, 3}) {
    SCOPED_TRACE(face);
    Canvas c(32, 500, 60), left(32, 500, 60);
    alleg_textout_centre(c.bmp, "Mitte", face, 250, 10, 255, 255, 255);
    const Ink k = ink(c.bmp, c.bg);
    ASSERT_GT(k.count, 0);
    EXPECT_NEAR((k.x0 + k.x1 + 1) / 2.0, 250.0, 2.5);
    alleg_textout(left.bmp, "Mitte", face, 250 - alleg_text_length("Mitte", face) / 2, 10, 255, 255, 255);
    EXPECT_TRUE(same_pixels(c.bmp, left.bmp));
  }
}

TEST_F(FontText, OtherFacesAndMissingHandlesUseTheBitmapFont) {
  EXPECT_EQ(alleg_text_length("Wagon", 3), text_length(font, "Wagon"));
  EXPECT_EQ(alleg_text_height(0), text_height(font));
  EXPECT_NE(alleg_text_length("Wagon", 1), text_length(font, "Wagon"));
  Canvas c(32, 200, 40), after(32, 200, 40);
  alleg_textout(c.bmp, "Wagon", 3, 5, 5, 255, 255, 255);
  EXPECT_EQ(colours(c.bmp), (std::set<int>{c.bg, makecol32(255, 255, 255)}));
  alleg_fonts_exit();
  for (int face : {1, 2}) {
    EXPECT_EQ(alleg_text_length("Wagon", face), text_length(font, "Wagon"));
    EXPECT_EQ(alleg_text_height(face), text_height(font));
  }
  alleg_textout(after.bmp, "Wagon", 1, 5, 5, 255, 255, 255);
  EXPECT_TRUE(same_pixels(c.bmp, after.bmp));
}

TEST_F(FontText, UmlautsRenderAndMeasure) {
  EXPECT_GT(alleg_text_length(kGroesse, 1), alleg_text_length("Grose", 1));
  EXPECT_EQ(alleg_text_length("\xc3\xb6", 1), alleg_text_length("o", 1));
  // A Latin-1 byte that is no UTF-8 stands for its own character.
  EXPECT_EQ(alleg_text_length("Gr\xf6\xdf" "e", 1), alleg_text_length(kGroesse, 1));
  EXPECT_EQ(alleg_text_length("a\nb\tc", 1), alleg_text_length("abc", 1));
  Canvas o(32, 60, 60), oe(32, 60, 60);
  alleg_textout(o.bmp, "o", 1, 5, 5, 255, 255, 255);
  alleg_textout(oe.bmp, "\xc3\xb6", 1, 5, 5, 255, 255, 255);
  const Ink ko = ink(o.bmp, o.bg), koe = ink(oe.bmp, oe.bg);
  EXPECT_LT(koe.y0, ko.y0 - 3);  // the dots above
  EXPECT_EQ(koe.y1, ko.y1);
}

TEST_F(FontText, LongAndNullTexts) {
  const std::string w(2000, 'W');
  EXPECT_EQ(alleg_text_length(w.c_str(), 2), 2000 * alleg_text_length("W", 2));
  Canvas c(32, 300, 40), n(32, 100, 40);
  for (int face : {1, 2, 3}) {
    EXPECT_EQ(alleg_textout(c.bmp, w.c_str(), face, -7, 3, 255, 255, 255), 0);
    EXPECT_EQ(alleg_textout_centre(c.bmp, w.c_str(), face, 150, 3, 255, 255, 255), 0);
    EXPECT_EQ(alleg_textout(n.bmp, nullptr, face, 5, 5, 255, 255, 255), 0);
    EXPECT_EQ(alleg_textout_centre(n.bmp, nullptr, face, 50, 5, 255, 255, 255), 0);
    EXPECT_EQ(alleg_text_length(nullptr, face), 0);
    EXPECT_EQ(alleg_textout(nullptr, "x", face, 5, 5, 255, 255, 255), 0);
  }
  EXPECT_EQ(ink(n.bmp, n.bg).count, 0);
}

}  // namespace
