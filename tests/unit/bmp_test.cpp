// Picture stimuli drawn on a memory bitmap standing in for the screen:
// placement, onset and erasing, masked onset, the preloaded image sets from
// list files and from a resource datafile, and the video-memory set.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "datafile_writer.h"
#include "fake_clock.h"
#include "platform/datafile.h"
#include "platform/display.h"
#include "services/config.h"
#include "services/results.h"
#include "test_support.h"
#include "visual/sbmp.h"
#include "visual/vbmp.h"

namespace {
int rgb(int r, int g, int b) { return makecol_depth(16, r, g, b); }
const int kMask = 0xF81F;  // magenta: transparent in 16 bits

class Picture : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    depth_ = get_color_depth();
    set_color_depth(16);
    screen = create_bitmap(640, 480);
    clear_to_color(screen, grey);
    fake_clock::start();
    display_vsync_reset();
    alleg_refresh_rate(60);
  }
  void TearDown() override {
    sbmp_done();
    vbmp_done();
    bmp_done();
    datafile_resource("#");
    destroy_bitmap(screen);
    screen = nullptr;
    display_vsync_reset();
    fake_clock::stop();
    set_color_depth(depth_);
  }
  // A w x h picture file in the scratch directory: left half left, right half right.
  std::string picture(const std::string& name, int w, int h, int left, int right) {
    BITMAP* b = create_bitmap_ex(24, w, h);
    rectfill(b, 0, 0, w / 2 - 1, h - 1, left);
    rectfill(b, w / 2, 0, w - 1, h - 1, right);
    PALETTE pal;
    get_palette(pal);
    save_bmp(dir.path(name).c_str(), b, pal);
    destroy_bitmap(b);
    return dir.path(name);
  }
  // An 8-bit picture whose palette entry 1 is (r, g, b).
  std::string picture8(const std::string& name, int r, int g, int b) {
    BITMAP* bm = create_bitmap_ex(8, 4, 4);
    clear_to_color(bm, 1);
    PALETTE pal{};
    pal[1] = RGB{static_cast<unsigned char>(r), static_cast<unsigned char>(g), static_cast<unsigned char>(b), 0};
    save_bmp(dir.path(name).c_str(), bm, pal);
    destroy_bitmap(bm);
    return dir.path(name);
  }
  int px(int x, int y) const { return getpixel(screen, x, y); }

  const int grey = rgb(128, 128, 128);
  const int red = makecol_depth(24, 255, 0, 0);
  const int green = makecol_depth(24, 0, 255, 0);
  TempDir dir;
  int depth_ = 8;
};
}  // namespace

TEST_F(Picture, PlacedByRelativePositionDrawnAndErasedWithOneExtraPixel) {
  const std::string p = picture("p.bmp", 100, 50, red, red);
  const struct { const char* attrs; int x, y; } cases[] = {
      {"", 270, 215}, {"x=0", 0, 215}, {"x=1,0", 540, 215}, {"y=1 x=0,25", 135, 430}};
  for (const auto& c : cases) {
    int err = -1;
    bmp b(("datei=" + p + " " + c.attrs).c_str(), err);
    ASSERT_EQ(err, 0);
    ASSERT_EQ(b.prepare(), 0);
    ASSERT_EQ(b.preshow(), 0);
    EXPECT_EQ(std::make_tuple(b.x, b.y), std::make_tuple(c.x, c.y)) << c.attrs;
    ASSERT_EQ(b.show(), 0);
    EXPECT_EQ(std::make_tuple(px(c.x, c.y), px(c.x + 99, c.y + 49), b.shown), std::make_tuple(rgb(255, 0, 0), rgb(255, 0, 0), 1));
    ASSERT_EQ(b.hide(), 0);
    EXPECT_EQ(b.cleanup(), 0);
  }
  // Erased black from (270,215) to (370,265) inclusive.
  EXPECT_EQ(std::make_tuple(px(270, 215), px(370, 265), px(371, 265), px(370, 266)),
            std::make_tuple(0, 0, grey, grey));

  bmp big(0, picture("big.bmp", 800, 500, red, red).c_str(), nullptr, 0, -1, 0, 0, 0.5, 0.5);
  ASSERT_EQ(big.prepare(), 0);
  ASSERT_EQ(big.preshow(), 0);
  EXPECT_EQ(std::make_tuple(big.x, big.y), std::make_tuple(-80, -10));
  EXPECT_EQ(big.cleanup(), 0);

  bmp far(0, p.c_str(), nullptr, 0, -1, 0, 0, 1e300, -1e300);  // off screen, no overflow
  ASSERT_EQ(far.prepare() + far.preshow() + far.show() + far.hide() + far.cleanup(), 0);
}

TEST_F(Picture, NamesResolveNextToTheProgramAndBadFilesFail) {
  picture("rel.bmp", 10, 10, red, red);
  dir.write("bad.bmp", "BM not really a picture");
  dir.write("bad.pcx", std::string(200, '\n'));
  LogCapture log({dir.path("prog")});
  int err;
  bmp rel("datei=rel.bmp", err);
  EXPECT_EQ(rel.prepare(), 0);
  EXPECT_EQ(rel.bitmap->w, 10);
  EXPECT_EQ(rel.cleanup(), 0);
  for (const std::string& name : std::vector<std::string>{"missing.bmp", "bad.bmp", "bad.pcx", std::string(400, 'n')}) {
    bmp b(0, (name[0] == 'n' ? name : dir.path(name)).c_str(), nullptr, 0, -1, 0, 0, 0.5, 0.5);
    EXPECT_EQ(b.prepare(), -1) << name;
    EXPECT_TRUE(log.has(name.substr(0, 100))) << name;
  }
  EXPECT_TRUE(log.has("missing.bmp: No such file or directory\n"));

  // Without a file nothing is drawn, but the stimulus runs.
  bmp none("nummer=1", err);
  EXPECT_EQ(none.prepare() + none.preshow() + none.show(), 0);
  EXPECT_EQ(none.shown, 1);
  EXPECT_EQ(none.hide() + none.cleanup(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(320, 240)), std::make_tuple(grey, grey));
}

TEST_F(Picture, ShowtimeIsTwoFramesOnNewerSystemsOnly) {
  struct unsynced : bmp {
    using bmp::bmp;
    int synced() const override { return 0; }
  };
  int err;
  const struct { const char* version; long bmp_ms, vbmp_ms, unsynced_ms; } cases[] = {
      {"6.1", 1, 1, 1}, {"6.11", 1, 1, 1}, {"10.0", 33, 120, 1}};
  for (const auto& c : cases) {
    LogCapture log({"-cfg=" + dir.write("v.cfg", std::string("os-version = ") + c.version + "\n")});
    config_init();
    EXPECT_EQ(std::make_tuple(bmp("", err).showtime(), vbmp("", err).showtime(), unsynced("", err).showtime()),
              std::make_tuple(c.bmp_ms, c.vbmp_ms, c.unsynced_ms))
        << c.version;
    config_done();
  }
  EXPECT_EQ(std::make_tuple(bmp("", err).pstime(), bmp("", err).hidetime(), vbmp("", err).pstime()),
            std::make_tuple(70L, 6L, 50L));
}

TEST_F(Picture, CleanupOfAnOpenEndedPictureErasesItAndClearscreenTakesPixelOneOne) {
  bmp tiny(0, picture("t.bmp", 2, 2, green, red).c_str(), nullptr, 0, -1, 0, 0, 0.5, 0.5);
  ASSERT_EQ(tiny.prepare(), 0);
  EXPECT_EQ(tiny.clearscreen(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(639, 479)), std::make_tuple(rgb(255, 0, 0), rgb(255, 0, 0)));
  EXPECT_EQ(tiny.cleanup(), 0);

  bmp b(0, picture("c.bmp", 20, 20, green, green).c_str(), nullptr, 0, -1, 0, -1, 0.0, 0.0);
  ASSERT_EQ(b.prepare() + b.preshow() + b.show(), 0);
  EXPECT_EQ(b.cleanup(), 0);  // t1 = -1: hidden first
  EXPECT_EQ(std::make_tuple(px(0, 0), px(15, 5), px(21, 21)), std::make_tuple(0, 0, rgb(255, 0, 0)));
  EXPECT_EQ(b.bitmap, nullptr);
}

TEST_F(Picture, PreloadedPictureOnsetIsMaskedAndOffsetRestoresTheScreen) {
  char* names[] = {const_cast<char*>("")};
  const std::string p = picture("m.bmp", 20, 10, makecol_depth(24, 255, 0, 255), green);
  names[0] = const_cast<char*>(p.c_str());
  LogCapture log;
  ASSERT_EQ(sbmp_init(1, names), 0);
  EXPECT_TRUE(log.has(p + ": not found in ressource"));
  EXPECT_EQ(getpixel(sbmp_bitmap(0), 0, 0), kMask);

  int err;
  sbmp s("index=0 x=0 y=0", err);
  ASSERT_EQ(s.prepare(), 0);
  ASSERT_NE(s.background, nullptr);
  EXPECT_EQ(s.show(), -1);  // no back buffer before preshow
  EXPECT_TRUE(log.has("masked_blit: mask not initialized"));
  sbmp_first();
  ASSERT_EQ(s.preshow(), 0);
  EXPECT_EQ(sbmp_isfirst(), 0);
  clear_to_color(screen, rgb(0, 0, 255));  // not seen: the screen was composed in preshow
  ASSERT_EQ(s.show(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(15, 5)), std::make_tuple(grey, rgb(0, 255, 0)));
  ASSERT_EQ(s.hide(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(15, 5), px(20, 10)), std::make_tuple(grey, grey, rgb(0, 0, 255)));
  BITMAP* borrowed = s.bitmap;
  EXPECT_EQ(s.cleanup(), 0);
  EXPECT_EQ(sbmp_bitmap(0), borrowed);  // the set keeps its picture
}

TEST_F(Picture, ImageSetFromTheListFile) {
  picture8("a.bmp", 63, 0, 0);
  picture8("b.bmp", 0, 63, 0);
  LogCapture log({dir.path("ixmod.exe")});
  dir.write("ixmod.img", "2\r\na.bmp\r\nb.bmp\r\n");
  ASSERT_EQ(sbmp_init(), 0);
  EXPECT_TRUE(log.has("Using " + dir.path("ixmod.img") + " for static images"));
  EXPECT_TRUE(log.has("a.bmp: not found in ressource"));
  EXPECT_EQ(std::make_tuple(sbmp_bitmap(1)->w, sbmp_palette()[1].g, sbmp_palette()[1].r), std::make_tuple(4, 63, 0));
  EXPECT_EQ(sbmp_setonebg(), 0);

  int err;
  for (int i : {2, -1}) {
    sbmp s(("index=" + std::to_string(i)).c_str(), err);
    EXPECT_EQ(s.prepare(), -1);
    EXPECT_TRUE(log.has("sbmp_bitmap: invalid index " + std::to_string(i) + "\n"));
  }

  const struct { std::string list; int result; const char* logged; } lists[] = {
      {"", -1, nullptr},
      {"two a.bmp", -1, nullptr},
      {"3 a.bmp b.bmp", -1, "ixmod.img: Invalid argument"},
      {"1 gone.bmp", -1, "gone.bmp: No such file or directory"},
      {"-4", -1, "sbmp_init/bitmaps[]"},
      {"1 " + std::string(300, 'x'), -1, "xxxxxxxxxx: No such file"},
      {"0", 0, nullptr}};
  for (const auto& l : lists) {
    dir.write("ixmod.img", l.list);
    EXPECT_EQ(sbmp_init(), l.result) << l.list;
    if (l.logged) {
      EXPECT_TRUE(log.has(l.logged)) << l.list;
    }
  }
  sbmp s("index=0", err);
  EXPECT_EQ(s.prepare(), -1);
  EXPECT_TRUE(log.has("sbmp 0: not initialized"));

  sbmp_done();
  EXPECT_EQ(std::make_tuple(sbmp_bitmap(0), sbmp_palette()), std::make_tuple(nullptr, nullptr));
  EXPECT_TRUE(log.has("sbmp not initialized"));
  std::filesystem::remove(dir.path("ixmod.img"));
  EXPECT_EQ(sbmp_init(), -1);
  EXPECT_TRUE(log.has("ixmod.img: No such file or directory"));
}

TEST_F(Picture, ImageSetsFromTheResourceDatafile) {
  datafile_init();
  std::string pal(1024, '\0');  // r, g, b, filler per entry
  pal[4 * 1 + 2] = 40;           // entry 1 blue
  write_datafile(dir.path("res.dat"), {{"ixmod.img", DAT_IMGF, "2\r\nob.pcx\r\nun.pcx"},
                                       {"ob.pcx.bmp", DAT_BITMAP, dat_bitmap8(30, 20, 1)},
                                       {"ob.pcx.pal", DAT_PALETTE, pal},
                                       {"un.pcx.bmp", DAT_BITMAP, dat_bitmap8(10, 40, 1)}});
  datafile_resource(dir.path("res.dat").c_str());
  LogCapture log({dir.path("ixmod"), "-img=/elsewhere/ixmod.img"});
  ASSERT_EQ(sbmp_init(), 0);
  EXPECT_FALSE(log.has("not found in ressource"));
  DATAFILE* p = datafile_object("ob.pcx.pal");
  EXPECT_EQ(memcmp(sbmp_palette(), p->dat, sizeof(PALETTE)), 0);
  EXPECT_EQ(sbmp_palette()[1].b, 40);
  unload_datafile_object(p);
  EXPECT_EQ(std::make_tuple(sbmp_bitmap(0)->w, sbmp_bitmap(1)->h), std::make_tuple(30, 40));

  char* second[] = {const_cast<char*>("un.pcx")};  // no palette object for the first name
  ASSERT_EQ(sbmp_init(1, second), 0);
  EXPECT_EQ(sbmp_palette()[1].b + sbmp_palette()[255].r, 0);

  // The video set takes datafile pictures only together with their palette.
  ASSERT_EQ(vbmp_init(), -1);  // un.pcx has none and is no file
  EXPECT_TRUE(log.has("vbmp_init/graphics card cannot GFX_HW_VRAM_BLIT"));
  EXPECT_TRUE(log.has("ob.pcx.bmp: was loaded into system memory"));
  EXPECT_TRUE(log.has("un.pcx: not found in ressource"));
}

TEST_F(Picture, VideoSetStimulus) {
  LogCapture log;
  int err;
  vbmp v("nummer=3 kritisch=1 index=0 x=0 y=1", err);
  EXPECT_EQ(v.prepare(), -1);
  EXPECT_TRUE(log.has("vbmp: not initialized"));

  const std::string p = picture("v.bmp", 40, 20, red, red);
  char* names[] = {const_cast<char*>(p.c_str())};
  ASSERT_EQ(vbmp_init(1, names), 0);
  EXPECT_TRUE(log.has(p + ": was loaded into system memory"));  // no video memory here
  ASSERT_EQ(v.prepare(), 0);
  ASSERT_EQ(v.show(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 460), px(39, 479), px(40, 479)), std::make_tuple(rgb(255, 0, 0), rgb(255, 0, 0), grey));
  ASSERT_EQ(v.hide(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 460), px(40, 479)), std::make_tuple(0, 0));
  vbmp bad("index=1", err);
  EXPECT_EQ(bad.prepare(), -1);
  EXPECT_TRUE(log.has("vbmp_bitmap: invalid index 1"));

  results_capture(true);
  v.t_show = 100;
  v.t_hide = 400;
  v.t_end = 450;
  v.reaktion = 1;
  v.reakzeit = 321;
  EXPECT_EQ(v.speichern(), 0);
  vbmp("nummer=0", err).speichern();
  ASSERT_EQ(results_captured(), 1);
  EXPECT_STREQ(results_captured_line(0), "    3   100   300    50     1     1     321\n");
  results_capture(false);
}

TEST(PictureFactories, BuildTheirClassesFromAttributes) {
  std::unique_ptr<stim> b(_bmp("x=0,3 datei=a.bmp"));
  std::unique_ptr<stim> s(_sbmp("index=1 y=0,9 kritisch=2"));
  std::unique_ptr<stim> v(_vbmp("index=4 x=0,5"));
  ASSERT_TRUE(b && s && v);
  EXPECT_DOUBLE_EQ(dynamic_cast<bmp&>(*b).relx, 0.3);
  EXPECT_EQ(std::make_tuple(dynamic_cast<sbmp&>(*s).index, dynamic_cast<sbmp&>(*s).rely, s->kritisch),
            std::make_tuple(1, 0.9, 2));
  EXPECT_EQ(std::make_tuple(dynamic_cast<vbmp&>(*v).index, dynamic_cast<vbmp&>(*v).relx), std::make_tuple(4, 0.0));
}
