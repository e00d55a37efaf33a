// The word stimulus: the attribute and its conversion of umlauts and line
// breaks, and the rendered bitmap compared with the text layer drawing the
// same text directly.
#include "visual/wort.h"

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

struct WortPicture : ::testing::Test {
  void SetUp() override {
    test_allegro(), set_color_depth(32);
    ASSERT_TRUE(alleg_fonts_init() == 0 && alleg_font_handle(1));  // the TrueType face
  }
  void TearDown() override { alleg_fonts_exit(), bmp_done(), set_color_depth(8); }
  std::unique_ptr<wort> rendered(const std::string& line) {  // the word of line, prepared
    auto w = word(line);
    EXPECT_EQ(w->prepare(), 0) << line;
    return w;
  }
};
}  // namespace

TEST(WortAttribute, ConvertsUmlautsAndLineBreaksAndCutsAt199) {
  const std::pair<std::string, std::string> cases[] = {
      {"string=\xe4\xf6\xfc\xdf\xc4\xd6\xdc" "a#b#\xe4", "{|}~[\\]a\nb\n{"},  // every occurrence
      {"string=" + kGruen + ";x=0.2", "Gr}n"},                              // up to the ";"
      {"string=zwei\nZeilen", "zwei"},                                      // or the line end
      {"string=caf\xe9 gr\xc3\xbcn {x}", "caf\xe9 gr\xc3\xbcn {x}"},        // other bytes stay
      {"string=" + std::string(300, '\xe4'), std::string(199, '{')},
  };
  for (const auto& [attr, stored] : cases) {
    wort w(1, "alt", nullptr, 0, -1, 0, 0, 0.5, 0.5);
    EXPECT_EQ(w.set(attr.c_str()), 0);
    EXPECT_EQ(std::string(w.text ? w.text : "(none)"), stored) << attr;
    EXPECT_DOUBLE_EQ(w.relx, 0.5) << attr;  // the rest of the token is not read
  }
}

TEST(WortAttribute, LinesFactoryAndFallThrough) {
  auto w = word("nummer=4 string=" + kGruen + ";x=0.2 string=\xe4" "tsch y=0.7");
  EXPECT_EQ(std::string(w->text), "{tsch");  // the second replaces the first
  EXPECT_EQ(std::make_tuple(w->nummer, w->relx, w->rely), std::make_tuple(4u, 0.5, 0.7));

  // "string=" with nothing behind it reads nothing: the base classes get it.
  w = word("string= x=0.3 string=;y=1");
  EXPECT_TRUE(!w->text && w->relx == 0.3);

  std::unique_ptr<stim> made(_wort("string=Wort x=1"));
  auto* as_word = dynamic_cast<wort*>(made.get());
  EXPECT_TRUE(as_word && as_word->text && std::string(as_word->text) == "Wort" && as_word->relx == 1);
}

// Each line as the layer draws it; the umlauts as UTF-8, Latin-1 bytes after
// them keeping their own glyphs.
TEST_F(WortPicture, BitmapHasTheTextSizeAndTheLayersPixels) {
  const int line = alleg_text_height(1);
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"string=jWq", {"jWq"}}, {"string=ii#WWWW", {"ii", "WWWW"}}, {"string=" + kGruen, {"Gr\xc3\xbcn"}},
      {"string=\xc4\xd6\xdc\xdf\xf6#\xe4\xb0\xbb",
       {"\xc3\x84\xc3\x96\xc3\x9c\xc3\x9f\xc3\xb6", "\xc3\xa4\xc2\xb0\xc2\xbb"}},
  };
  for (const auto& [attr, drawn] : cases) {
    SCOPED_TRACE(attr);
    auto w = rendered(attr);
    ASSERT_TRUE(w->bitmap && w->background);
    int width = 0, height = line * int(drawn.size());
    for (const std::string& l : drawn) width = std::max(width, alleg_text_length(l.c_str(), 1));
    EXPECT_EQ(std::make_tuple(w->bitmap->w, w->bitmap->h, w->background->w, w->background->h),
              std::make_tuple(width, height, width, height));
    for (size_t i = 0; i < drawn.size(); ++i)  // every line at its own height
      EXPECT_TRUE(pixels(w->bitmap, int(i) * line, line) == layer(drawn[i], width, line)) << i;
  }
  // Without the TrueType face the bitmap font draws the stored text itself.
  alleg_fonts_exit();
  auto plain = rendered("string=Gr\xfcn#\xe4");
  ASSERT_TRUE(plain->bitmap);
  EXPECT_EQ(std::make_tuple(plain->bitmap->w, plain->bitmap->h),
            std::make_tuple(text_length(font, "Gr}n"), 2 * text_height(font)));
}

TEST_F(WortPicture, MissingOrEmptyTextIsAnError) {
  LogCapture log;
  const std::pair<std::unique_ptr<wort>, const char*> cases[] = {
      {word("string= x=0.2"), "wort: empty string\n"},
      {word("string=#"), "wort: could not create bitmap\n"},
  };
  for (const auto& [w, report] : cases) {
    EXPECT_EQ(w->prepare(), -1) << report;
    EXPECT_TRUE(!w->bitmap && !w->background && log.has(report)) << report;
  }
}
