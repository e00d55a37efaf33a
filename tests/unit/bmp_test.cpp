// Picture stimuli drawn on a memory bitmap standing in for the screen:
// placement, onset and erasing, masked onset, the preloaded image sets from
// list files and from a resource datafile, and the video-memory set.

#include "datafile_writer.h"
#include "platform/datafile.h"
#include "services/config.h"
#include "test_support.h"
#include "visual/fli.h"
#include "visual/sbmp.h"
#include "visual/vbmp.h"

namespace {
struct Picture : ::testing::Test {
  void TearDown() override { sbmp_done(), vbmp_done(), bmp_done(), datafile_resource("#"); }
  // A w x h picture file: left half left, right half right, or in 8 bits all
  // of palette entry 1 = (0, g, 0) when g >= 0.
  std::string picture(const std::string& name, int w, int h, int left, int right, int g = -1) {
    BITMAP* b = create_bitmap_ex(g < 0 ? 16 : 8, w, h);
    clear_to_color(b, g < 0 ? right : 1);
    if (g < 0) rectfill(b, 0, 0, w / 2 - 1, h - 1, left);
    RGB pal[PAL_SIZE] = {{}, {0, static_cast<unsigned char>(g), 0, 0}};
    save_bmp(dir.path(name).c_str(), b, pal);
    destroy_bitmap(b);
    return dir.path(name);
  }
  int px(int x, int y) const { return getpixel(screen, x, y); }

  const int grey = rgb(128, 128, 128), red = rgb(255, 0, 0), green = rgb(0, 255, 0), blue = rgb(0, 0, 255);
  MemoryScreen memory{16, 640, 480, 60, grey};
  TempDir dir;
  int err = 0;
};
}  // namespace

TEST_F(Picture, PlacementOnsetErasingAndMissingPictures) {
  for (auto [room, rel, offset] : std::vector<std::tuple<int, double, int>>{{-3, 0.5, -1}, {100, -1e300, -(1 << 24)}})
    EXPECT_EQ(bmp_place(room, rel), offset) << room << " " << rel;
  const std::string p = picture("p.bmp", 100, 50, red, red);
  for (auto [attrs, x, y] : std::vector<std::tuple<const char*, int, int>>{{"", 270, 215}, {"y=1 x=0,25", 135, 430}}) {
    bmp b(("datei=" + p + " " + attrs).c_str(), err);
    ASSERT_FALSE(err || b.prepare() || b.preshow() || b.show());
    EXPECT_EQ(std::make_tuple(b.x, b.y, px(x, y), px(x + 99, y + 49), b.shown), std::make_tuple(x, y, red, red, 1));
    EXPECT_FALSE(b.hide() || b.cleanup());
  }
  EXPECT_EQ(std::make_tuple(px(270, 215), px(370, 265), px(371, 265), px(370, 266)), std::make_tuple(0, 0, grey, grey));

  // Missing pictures are reported; no picture draws nothing.
  dir.write("bad.bmp", "BM not really a picture");
  LogCapture log;
  for (const std::string& name : {dir.path("missing.bmp"), dir.path("bad.bmp"), std::string(400, 'n')}) {
    EXPECT_EQ(bmp(0, name.c_str(), nullptr, 0, -1, 0, 0, 0.5, 0.5).prepare(), -1) << name;
    EXPECT_TRUE(log.has(name.substr(0, 100) + (name[0] == 'n' ? "" : ": No such file or directory\n"))) << name;
  }
  bmp none("nummer=1", err);
  EXPECT_FALSE(none.prepare() || none.preshow() || none.show() || !none.shown || none.hide() || none.cleanup());
  EXPECT_EQ(px(0, 0), grey);

  // t1 = -1: cleanup erases first; clearscreen takes the colour of pixel (1,1).
  bmp open(0, picture("c.bmp", 2, 2, green, red).c_str(), nullptr, 0, -1, 0, -1, 0.0, 0.0);
  ASSERT_FALSE(open.prepare() || open.preshow() || open.show() || open.clearscreen());
  EXPECT_EQ(std::make_tuple(px(0, 0), px(639, 479)), std::make_tuple(red, red));
  EXPECT_EQ(open.cleanup(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(2, 2), px(3, 3), open.bitmap), std::make_tuple(0, 0, red, nullptr));
}

// A BMP that ends before its last row is refused by every loader: picture
// stimulus, the preloaded sets' files, film frames.
TEST_F(Picture, ABmpShorterThanItsHeaderSaysIsRefusedByEveryLoader) {
  const std::string bytes = read_text(picture("whole.bmp", 40, 30, red, blue));
  std::string cut = dir.write("cut.bmp", bytes.substr(0, bytes.size() - 600));
  char* names[] = {cut.data()};
  flistruct film;
  EXPECT_EQ(std::make_tuple(bmp(0, names[0], nullptr, 0, -1, 0, 0, 0.5, 0.5).prepare(), sbmp_init(1, names),
                            vbmp_init(1, names), film.prepare(dir.write("film.txt", "1 25 0 0\n" + cut).c_str())),
            std::make_tuple(-1, -1, -1, -1));
}

TEST_F(Picture, PreloadedSetMaskedOnsetAndTheListFile) {
  const std::string p = picture("m.bmp", 20, 10, rgb(255, 0, 255), green);
  char* names[] = {const_cast<char*>(p.c_str())};
  LogCapture log({dir.path("ixmod.exe")});
  ASSERT_TRUE(sbmp_init(1, names) == 0 && log.has(p + ": not found in ressource"));
  sbmp s("index=0 x=0 y=0", err);
  ASSERT_EQ(s.prepare(), 0);
  EXPECT_TRUE(s.show() == -1 && log.has("masked_blit: mask not initialized"));  // no back buffer before preshow
  ASSERT_EQ(s.preshow(), 0);
  clear_to_color(screen, blue);  // not seen: the screen was composed in preshow
  ASSERT_EQ(s.show(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(15, 5)), std::make_tuple(grey, green));
  ASSERT_EQ(s.hide(), 0);
  EXPECT_EQ(std::make_tuple(px(0, 0), px(15, 5), px(20, 10)), std::make_tuple(grey, grey, blue));
  EXPECT_EQ(s.cleanup(), 0);  // the set keeps its picture

  // The set from the list file.
  picture("a.bmp", 4, 4, 0, 0, 20);
  picture("b.bmp", 4, 4, 0, 0, 63);
  for (auto [list, result, logged] : std::vector<std::tuple<std::string, int, std::string>>{
           {"two a.bmp", -1, ""},
           {"3 a.bmp b.bmp", -1, "ixmod.img: Invalid argument"},
           {"1 gone.bmp", -1, "gone.bmp: No such file or directory"},
           {"-4", -1, "sbmp_init/bitmaps[]"},
           {"1 " + std::string(300, 'x'), -1, "xxxxxxxxxx: No such file"},
           {"2\r\na.bmp\r\nb.bmp\r\n", 0, "Using " + dir.path("ixmod.img") + " for static images"}}) {
    dir.write("ixmod.img", list);
    EXPECT_TRUE(sbmp_init() == result && log.has(logged)) << list;
  }
  EXPECT_EQ(std::make_tuple(sbmp_bitmap(1)->w, sbmp_palette()[1].g, sbmp_setonebg()), std::make_tuple(4, 63, 0));

  // Only the first preloaded picture after an instruction page sets the palette.
  sbmp f("index=0", err);
  for (bool first : {false, true}) {
    bmp_set_palette(black_palette);
    first ? sbmp_first() : sbmp_next();
    ASSERT_FALSE(f.prepare() || f.preshow());
    EXPECT_EQ(std::make_tuple(palette_color[1], sbmp_isfirst()), std::make_tuple(first ? green : 0, 0));
  }
  for (const std::string i : {"2", "-1"})
    EXPECT_TRUE(sbmp(("index=" + i).c_str(), err).prepare() == -1 && log.has("sbmp_bitmap: invalid index " + i + "\n"));
  sbmp_done();
  EXPECT_TRUE(!sbmp_bitmap(0) && !sbmp_palette() && log.has("sbmp not initialized"));
  std::filesystem::remove(dir.path("ixmod.img"));
  EXPECT_TRUE(sbmp_init() == -1 && log.has("ixmod.img: No such file or directory"));
}

TEST_F(Picture, ImageSetsFromTheResourceDatafile) {
  datafile_init();
  const std::string pal = std::string(6, '\0') + '\x28' + std::string(1017, '\0');  // entry 1 blue 40
  write_datafile(dir.path("res.dat"), {{"ixmod.img", DAT_IMGF, "2\r\nob.pcx\r\nun.pcx"},
                                       {"ob.pcx.bmp", DAT_BITMAP, dat_bitmap8(30, 20, 1)},
                                       {"ob.pcx.pal", DAT_PALETTE, pal},
                                       {"un.pcx.bmp", DAT_BITMAP, dat_bitmap8(10, 40, 1)}});
  datafile_resource(dir.path("res.dat").c_str());
  LogCapture log({dir.path("ixmod"), "-img=/elsewhere/ixmod.img"});
  ASSERT_TRUE(sbmp_init() == 0 && !log.has("not found in ressource"));
  EXPECT_EQ(std::make_tuple(sbmp_palette()[1].b, sbmp_bitmap(0)->w, sbmp_bitmap(1)->h), std::make_tuple(40, 30, 40));
  char* second[] = {const_cast<char*>("un.pcx")};  // no palette object for the first name
  ASSERT_EQ(sbmp_init(1, second), 0);
  EXPECT_EQ(sbmp_palette()[1].b, 0);

  // The video set takes datafile pictures only together with their palette.
  ASSERT_EQ(vbmp_init(), -1);  // un.pcx has none and is no file
  EXPECT_TRUE(log.has("vbmp_init/graphics card cannot GFX_HW_VRAM_BLIT") &&
              log.has("ob.pcx.bmp: was loaded into system memory") && log.has("un.pcx: not found in ressource"));
  const std::string p = picture("v.bmp", 40, 20, red, red);
  char* names[] = {const_cast<char*>(p.c_str())};
  ASSERT_EQ(vbmp_init(1, names), 0);
  vbmp v("index=0 x=0 y=1", err);
  ASSERT_FALSE(v.prepare() || v.show());
  EXPECT_EQ(std::make_tuple(px(0, 460), px(39, 479), px(40, 479)), std::make_tuple(red, red, grey));
  EXPECT_FALSE(v.hide() || px(0, 460) || px(40, 479));
  EXPECT_TRUE(vbmp("index=1", err).prepare() == -1 && log.has("vbmp_bitmap: invalid index 1"));
}
