// The word stimulus: the attribute and its conversion of umlauts and line
// breaks, and the rendered bitmap compared with the text layer drawing the
// same text directly.
#include "visual/wort.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/font.h"
#include "test_support.h"

namespace {
const std::string kGruen = "Gr\xfcn";  // Latin-1, as a stimulus file writes it

std::vector<int> pixels(BITMAP* b, int y0 = 0, int h = -1) {
  std::vector<int> out;
  for (int y = y0; y < (h < 0 ? b->h : y0 + h); ++y)
    for (int x = 0; x < b->w; ++x) out.push_back(getpixel(b, x, y));
  return out;
}

// What the text layer draws for text in face 1 on a w x h bitmap of colour 0.
std::vector<int> layer(const std::string& text, int w, int h) {
  BITMAP* b = create_bitmap(w, h);
  clear_to_color(b, 0);
  alleg_textout(b, text.c_str(), 1, 0, 0, 255, 255, 255);
  std::vector<int> out = pixels(b);
  destroy_bitmap(b);
  return out;
}

std::unique_ptr<wort> word(const std::string& line) {
  int err = -1;
  auto w = std::make_unique<wort>(line.c_str(), err);
  EXPECT_EQ(err, 0) << line;
  return w;
}

class WortPicture : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    set_color_depth(32);
    ASSERT_EQ(alleg_fonts_init(), 0);
    ASSERT_TRUE(alleg_font_handle(1));
  }
  void TearDown() override {
    alleg_fonts_exit();
    bmp_done();
    set_color_depth(8);
  }
  // The word of line, prepared.
  std::unique_ptr<wort> rendered(const std::string& line) {
    auto w = word(line);
    EXPECT_EQ(w->prepare(), 0) << line;
    EXPECT_TRUE(w->bitmap) << line;
    return w;
  }
};
}  // namespace

TEST(WortAttribute, ConvertsUmlautsAndLineBreaksAndCutsAt199) {
  const struct {
    std::string attr, stored;
  } cases[] = {
      {"string=\xe4", "{"},
      {"string=\xf6", "|"},
      {"string=\xfc", "}"},
      {"string=\xdf", "~"},
      {"string=\xc4", "["},
      {"string=\xd6", "\\"},
      {"string=\xdc", "]"},
      {"string=a#b#", "a\nb\n"},
      {"string=\xc4rger \xfc" "ber Stra\xdf" "e#\xd6l", "[rger }ber Stra~e\n\\l"},  // every occurrence
      {"string=" + kGruen + ";x=0.2", "Gr}n"},                                        // up to the ";"
      {"string=zwei\nZeilen", "zwei"},                                                // or the line end
      {"string=caf\xe9 gr\xc3\xbcn {x}", "caf\xe9 gr\xc3\xbcn {x}"},                  // other bytes stay
      {"string=" + std::string(300, 'a'), std::string(199, 'a')},
      {"string=" + std::string(300, '\xe4'), std::string(199, '{')},
  };
  for (const auto& c : cases) {
    wort w(1, "alt", nullptr, 0, -1, 0, 0, 0.5, 0.5);
    EXPECT_EQ(w.set(c.attr.c_str()), 0);
    ASSERT_TRUE(w.text);
    EXPECT_EQ(std::string(w.text), c.stored) << c.attr;
    EXPECT_DOUBLE_EQ(w.relx, 0.5) << c.attr;  // the rest of the token is not read
  }
}

TEST(WortAttribute, LinesFactoryAndFallThrough) {
  auto w = word("nummer=4 string=" + kGruen + "; x=0,2 string=\xe4" "tsch y=0.7");
  EXPECT_EQ(std::string(w->text), "{tsch");  // the second replaces the first
  EXPECT_EQ(w->nummer, 4u);
  EXPECT_DOUBLE_EQ(w->relx, 0.2);
  EXPECT_DOUBLE_EQ(w->rely, 0.7);
  EXPECT_FALSE(w->datei);
  EXPECT_EQ(w->pstime(), 110);
  EXPECT_TRUE(w->synced() && !w->masked());

  w = word("string=" + kGruen + ";x=0.2");
  EXPECT_EQ(std::string(w->text), "Gr}n");
  EXPECT_DOUBLE_EQ(w->relx, 0.5);

  // "string=" with nothing behind it reads nothing: the base classes get it.
  w = word("string= x=0.3 string=;y=1");
  EXPECT_FALSE(w->text);
  EXPECT_DOUBLE_EQ(w->relx, 0.3);
  wort kept(1, "Wort", nullptr, 0, -1, 0, 0, 0.5, 0.5);
  EXPECT_EQ(kept.set("string="), 0);
  EXPECT_EQ(kept.set("y=0,25"), 0);
  EXPECT_EQ(std::string(kept.text), "Wort");
  EXPECT_DOUBLE_EQ(kept.rely, 0.25);

  std::unique_ptr<stim> made(_wort("string=Wort x=1"));
  auto* as_word = dynamic_cast<wort*>(made.get());
  ASSERT_TRUE(as_word && as_word->text);
  EXPECT_EQ(std::string(as_word->text), "Wort");
  EXPECT_DOUBLE_EQ(as_word->relx, 1);
}

TEST_F(WortPicture, BitmapHasTheTextSizeWhiteOnColourZero) {
  const int white = makecol32(255, 255, 255), line = alleg_text_height(1);
  const struct {
    std::string line;
    std::vector<std::string> drawn;  // line by line as the layer draws them
  } cases[] = {
      {"string=Wort", {"Wort"}},
      {"string=jWq x=0.1", {"jWq"}},
      {"string=Zwei#Zeilen", {"Zwei", "Zeilen"}},
      {"string=ii#WWWW#i", {"ii", "WWWW", "i"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    auto w = rendered(c.line);
    ASSERT_TRUE(w->bitmap);
    int width = 0;
    for (const std::string& l : c.drawn) width = std::max(width, alleg_text_length(l.c_str(), 1));
    EXPECT_EQ(w->bitmap->w, width);
    EXPECT_EQ(w->bitmap->h, line * static_cast<int>(c.drawn.size()));
    ASSERT_TRUE(w->background);  // the background was prepared for this size
    EXPECT_TRUE(w->background->w == w->bitmap->w && w->background->h == w->bitmap->h);
    EXPECT_EQ(memcmp(w->palette, default_palette, sizeof(PALETTE)), 0);

    int lit = 0, whites = 0;
    for (int p : pixels(w->bitmap)) {
      lit += p != 0, whites += p == white;
      EXPECT_TRUE(getr32(p) == getg32(p) && getg32(p) == getb32(p)) << std::hex << p;  // grey levels only
    }
    EXPECT_GT(whites, 10 * static_cast<int>(c.drawn.size()));
    EXPECT_LT(lit, w->bitmap->w * w->bitmap->h / 2);
    for (size_t i = 0; i < c.drawn.size(); ++i)  // every line at its own height
      EXPECT_TRUE(pixels(w->bitmap, static_cast<int>(i) * line, line) == layer(c.drawn[i], width, line)) << i;
  }
}

TEST_F(WortPicture, UmlautsAreDrawnAsUmlauts) {
  const struct {
    std::string line, utf8;
  } cases[] = {
      {"string=\xe4", "\xc3\xa4"},
      {"string=" + kGruen, "Gr\xc3\xbcn"},
      {"string=\xc4\xd6\xdc\xdf\xf6", "\xc3\x84\xc3\x96\xc3\x9c\xc3\x9f\xc3\xb6"},
      {"string=\xe4\xb0\xbb", "\xc3\xa4\xc2\xb0\xc2\xbb"},  // Latin-1 bytes after an umlaut keep their own glyphs
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    auto w = rendered(c.line);
    ASSERT_TRUE(w->bitmap);
    EXPECT_EQ(w->bitmap->w, alleg_text_length(c.utf8.c_str(), 1));
    EXPECT_TRUE(pixels(w->bitmap) == layer(c.utf8, w->bitmap->w, w->bitmap->h));
  }
  // "ä" through the word is the layer's Latin-1 0xE4, not the "{" it is stored as.
  auto a = rendered("string=\xe4");
  const int h = a->bitmap->h, wide = 2 * h;
  BITMAP* framed = create_bitmap(wide, h);
  clear_to_color(framed, 0);
  blit(a->bitmap, framed, 0, 0, 0, 0, a->bitmap->w, h);
  EXPECT_TRUE(pixels(framed) == layer("\xe4", wide, h));
  EXPECT_FALSE(pixels(framed) == layer("{", wide, h));
  destroy_bitmap(framed);

  // Without the TrueType face the bitmap font draws the stored text itself.
  alleg_fonts_exit();
  auto plain = rendered("string=Gr\xfcn#\xe4");
  EXPECT_EQ(plain->bitmap->w, text_length(font, "Gr}n"));
  EXPECT_EQ(plain->bitmap->h, 2 * text_height(font));
  BITMAP* b = create_bitmap(plain->bitmap->w, plain->bitmap->h);
  clear_to_color(b, 0);
  textout_ex(b, font, "Gr}n", 0, 0, makecol32(255, 255, 255), -1);
  textout_ex(b, font, "{", 0, text_height(font), makecol32(255, 255, 255), -1);
  EXPECT_TRUE(pixels(plain->bitmap) == pixels(b));
  destroy_bitmap(b);
}

TEST_F(WortPicture, MissingOrEmptyTextIsAnError) {
  LogCapture log;
  const struct {
    std::unique_ptr<wort> w;
    const char* report;
  } cases[] = {
      {word("string= x=0.2"), "wort: empty string\n"},
      {word(""), "wort: empty string\n"},
      {std::make_unique<wort>(1, "", nullptr, 0, -1, 0, 0, 0.5, 0.5), "wort: could not create bitmap\n"},
      {word("string=#"), "wort: could not create bitmap\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.w->prepare(), -1) << c.report;
    EXPECT_TRUE(!c.w->bitmap && !c.w->background) << c.report;
    EXPECT_TRUE(log.has(c.report)) << c.report;
  }
  auto again = word("string=Wort");
  ASSERT_EQ(again->prepare(), 0);
  EXPECT_EQ(again->prepare(), 0);  // a second prepare replaces the bitmap
  EXPECT_EQ(again->cleanup(), 0);
  EXPECT_FALSE(again->bitmap);
}
