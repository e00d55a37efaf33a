#include "platform/font.h"

#include <climits>

#include "tests/unit/test_support.h"

namespace {

const char kGroesse[] = "Gr\xc3\xb6\xc3\x9f" "e";  // "Größe" in UTF-8

// A memory bitmap of the given depth, filled with bg. scan() reads back once
// what was drawn: the box (inclusive) and count of the pixels other than bg,
// every pixel and every colour.
struct Canvas {
  BITMAP* bmp;
  int bg, x0 = INT_MAX, y0 = INT_MAX, x1 = INT_MIN, y1 = INT_MIN, count = 0;
  std::vector<int> pixels;
  std::set<int> colours;
  Canvas(int depth, int w, int h, int r = 0, int g = 0, int b = 0)
      : bmp(create_bitmap_ex(depth, w, h)), bg(makecol_depth(depth, r, g, b)) { clear_to_color(bmp, bg); }
  ~Canvas() { destroy_bitmap(bmp); }
  Canvas& scan() {
    for (int y = 0; y < bmp->h; ++y)
      for (int x = 0; x < bmp->w; ++x) {
        const int p = getpixel(bmp, x, y);
        pixels.push_back(p), colours.insert(p);
        if (p != bg) x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y), ++count;
      }
    return *this;
  }
};

struct Fonts : ::testing::Test {
  void SetUp() override { test_allegro(); ASSERT_EQ(alleg_fonts_init(), 0); }
  void TearDown() override { alleg_fonts_exit(); }
};

TEST(FontLookup, AliasesFindAFileUnknownNamesNone) {
  char display[1000], file[1000], dir[1000];
  ASSERT_EQ(GetFontFile("Arial", display, file, dir), -1);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::string(dir) + "/" + file)) << dir << "/" << file;
  EXPECT_EQ(GetFontFile("Arial", nullptr, nullptr, nullptr), -1);
  for (const char* name : {"xyzzy-no-such-face", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(GetFontFile(name, display, file, dir), 0);
    EXPECT_EQ(std::string(display) + file, "");
  }
}

TEST_F(Fonts, FacesOneAndTwoLoadOthersUseTheBitmapFont) {
  ASSERT_EQ(alleg_fonts_init(), 0);  // a second start reloads both faces
  ASSERT_TRUE(alleg_font_handle(1) && alleg_font_handle(2));
  EXPECT_TRUE(alleg_text_height(1) >= 30 && alleg_text_height(1) <= 40) << alleg_text_height(1);
  EXPECT_TRUE(alleg_text_height(2) >= 20 && alleg_text_height(2) <= 28) << alleg_text_height(2);
  EXPECT_EQ(alleg_text_length("iiii", 2), alleg_text_length("WWWW", 2));  // fixed pitch
  EXPECT_LT(alleg_text_length("iiii", 1), alleg_text_length("WWWW", 1));

  Canvas other(32, 200, 40), unloaded(32, 200, 40);  // face 3 and unloaded faces: the bitmap font
  alleg_textout(other.bmp, "Wagon", 3, 5, 5, 255, 255, 255);
  alleg_fonts_exit();
  EXPECT_EQ(alleg_text_length("Wagon", 1), text_length(font, "Wagon"));
  EXPECT_EQ(alleg_text_height(2), text_height(font));
  alleg_textout(unloaded.bmp, "Wagon", 1, 5, 5, 255, 255, 255);
  EXPECT_EQ(other.scan().colours, (std::set<int>{other.bg, makecol32(255, 255, 255)}));
  EXPECT_TRUE(other.pixels == unloaded.scan().pixels);
}

TEST_F(Fonts, TextStaysInsideItsBoxAndCentredTextIsCentred) {
  const std::string text = std::string("Wort ") + kGroesse + " jqy";
  for (int face : {1, 2}) {
    SCOPED_TRACE(face);
    Canvas c(32, 500, 100, 10, 20, 30);
    alleg_textout(c.bmp, text.c_str(), face, 40, 30, 255, 255, 0);
    ASSERT_GT(c.scan().count, 50);
    EXPECT_TRUE(c.x0 >= 40 && c.x1 < 40 + alleg_text_length(text.c_str(), face)) << c.x0 << ".." << c.x1;
    EXPECT_TRUE(c.y0 >= 30 && c.y1 < 30 + alleg_text_height(face)) << c.y0 << ".." << c.y1;
    EXPECT_GE(c.y1, 30 + alleg_text_height(face) * 3 / 4);  // descenders
    EXPECT_TRUE(c.colours.count(makecol32(255, 255, 0)));
  }
  for (int face : {1, 2, 3}) {
    Canvas c(32, 500, 60), left(32, 500, 60);
    alleg_textout_centre(c.bmp, "Mitte", face, 250, 10, 255, 255, 255);
    ASSERT_GT(c.scan().count, 0);
    EXPECT_NEAR((c.x0 + c.x1 + 1) / 2.0, 250.0, 2.5) << face;
    alleg_textout(left.bmp, "Mitte", face, 250 - alleg_text_length("Mitte", face) / 2, 10, 255, 255, 255);
    EXPECT_TRUE(c.pixels == left.scan().pixels) << face;
  }
}

TEST_F(Fonts, AntiAliasedBlendsIntoTheTargetPlainSetsHalfCoveredPixels) {
  ALFONT_FONT* f = alleg_font_handle(1);
  select_palette(default_palette);  // 8-bit white needs a palette that has it
  for (int depth : {8, 15, 16, 24, 32}) {
    const int white = makecol_depth(depth, 255, 255, 255);
    Canvas aa(depth, 300, 60), plain(depth, 300, 60);
    alfont_textout_aa(aa.bmp, f, "Wagon sky", 5, 5, white);
    alfont_textout(plain.bmp, f, "Wagon sky", 5, 5, white);
    EXPECT_EQ(plain.scan().colours, (std::set<int>{plain.bg, white})) << depth;
    EXPECT_EQ(aa.scan().colours.size() > 4, depth != 8) << depth;  // 8-bit targets get the plain form
    for (size_t i = 0; depth == 32 && i < aa.pixels.size(); ++i)
      ASSERT_EQ(plain.pixels[i] == white, getr32(aa.pixels[i]) >= 128) << i;
  }
  unselect_palette();
  Canvas red(32, 300, 60, 255, 0, 0);
  alfont_textout_aa(red.bmp, f, "Wagon", 5, 5, makecol32(0, 0, 255));
  const std::set<int>& mix = red.scan().colours;
  EXPECT_TRUE(std::all_of(mix.begin(), mix.end(), [](int p) { return getr32(p) + getb32(p) == 255; }));
  EXPECT_TRUE(std::any_of(mix.begin(), mix.end(), [](int p) { return getr32(p) > 0 && getb32(p) > 0; }));
}

TEST_F(Fonts, UmlautsLongAndNullTexts) {
  EXPECT_GT(alleg_text_length(kGroesse, 1), alleg_text_length("Grose", 1));
  EXPECT_EQ(alleg_text_length("\xc3\xb6", 1), alleg_text_length("o", 1));
  // A Latin-1 byte that is no UTF-8 stands for its own character.
  EXPECT_EQ(alleg_text_length("Gr\xf6\xdf" "e", 1), alleg_text_length(kGroesse, 1));
  EXPECT_EQ(alleg_text_length("a\nb\tc", 1), alleg_text_length("abc", 1));
  Canvas o(32, 60, 60), oe(32, 60, 60);
  alleg_textout(o.bmp, "o", 1, 5, 5, 255, 255, 255);
  alleg_textout(oe.bmp, "\xc3\xb6", 1, 5, 5, 255, 255, 255);
  EXPECT_LT(oe.scan().y0, o.scan().y0 - 3);  // the dots above
  EXPECT_EQ(oe.y1, o.y1);

  const std::string w(2000, 'W');
  EXPECT_EQ(alleg_text_length(w.c_str(), 2), 2000 * alleg_text_length("W", 2));
  Canvas c(32, 300, 40), n(32, 100, 40);
  for (int face : {1, 2, 3}) {
    EXPECT_EQ(alleg_textout(c.bmp, w.c_str(), face, -7, 3, 255, 255, 255), 0);
    EXPECT_EQ(alleg_textout_centre(c.bmp, w.c_str(), face, 150, 3, 255, 255, 255), 0);
    EXPECT_EQ(alleg_textout(n.bmp, nullptr, face, 5, 5, 255, 255, 255), 0);
    EXPECT_EQ(alleg_text_length(nullptr, face) + alleg_textout(nullptr, "x", face, 5, 5, 255, 255, 255), 0);
  }
  // Null texts drew nothing; text cut at the right edge does not wrap into the next row.
  alleg_textout(n.bmp, "WWW", 1, 95, 0, 255, 255, 255);
  EXPECT_GE(n.scan().x0, 95);
}

}  // namespace
