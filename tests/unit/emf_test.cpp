// Metafile stimuli on a 1024 x 768 memory bitmap standing in for the screen.
// The test picture comes from ixmod_mkemf: a 2:1 frame, its left half a red
// rectangle, in its right half a blue ellipse touching that half's sides.
#include "visual/emf.h"

#include "datafile_writer.h"
#include "platform/datafile.h"
#include "platform/metafile.h"
#include "platform/timer.h"
#include "test_support.h"

namespace {
struct Emf : ::testing::Test {
  static void SetUpTestSuite() {
    files = new TempDir;
    picture = files->path("t.emf");
    ASSERT_EQ(system((std::string(IXMOD_MKEMF) + " " + picture).c_str()), 0);
  }
  static void TearDownTestSuite() { delete files, files = nullptr; }
  void TearDown() override { semf_done(), bmp_done(), datafile_resource("#"); }
  // 'r', 'b' or '0': which of red, blue or the empty colour 0 the pixel is.
  static char kind(BITMAP* b, int x, int y) {
    const int c = getpixel(b, x, y), d = bitmap_color_depth(b);
    if (c == 0) return '0';
    const int r = getr_depth(d, c), g = getg_depth(d, c), bl = getb_depth(d, c);
    if (r > 200 && g < 40 && bl < 40) return 'r';
    if (bl > 200 && g < 40 && r < 40) return 'b';
    return '?';
  }

  static TempDir* files;
  static std::string picture;
  MemoryScreen memory{32, 1024, 768, 60};
  TempDir dir;
  int err = 0;
};
TempDir* Emf::files = nullptr;
std::string Emf::picture;
using Semf = Emf;
}  // namespace

TEST_F(Emf, EmfSizedFromTheScreenHeightAndShownAsAPicture) {
  emf e(("datei=" + picture + " w=0.5 h=0.25").c_str(), err);
  ASSERT_FALSE(err || e.prepare());
  ASSERT_NE(e.bitmap, nullptr);
  EXPECT_EQ(std::make_tuple(e.bitmap->w, e.bitmap->h, e.masked(), e.synced()), std::make_tuple(384, 192, 0, 1));
  ASSERT_FALSE(e.preshow() || e.show());
  EXPECT_EQ(std::make_tuple(kind(screen, 320 + 96, 288 + 96), kind(screen, 320 + 288, 288 + 96)),
            std::make_tuple('r', 'b'));
  ASSERT_FALSE(e.hide() || e.cleanup());
  EXPECT_EQ(std::make_tuple(e.bitmap, e.metafile, getpixel(screen, 320 + 96, 288 + 96)),
            std::make_tuple(nullptr, nullptr, 0));
  // Prepared twice: the file is read again, nothing leaks.
  EXPECT_FALSE(e.prepare() || e.prepare() || !e.bitmap);

  const std::unique_ptr<stim> made(_emf("w=0.1 h=0.1"));
  EXPECT_TRUE(made && made->prepare() == 0 && !static_cast<emf*>(made.get())->bitmap);  // no file: nothing to draw
}

TEST_F(Emf, EmfFailuresAreLogged) {
  const std::string junk = dir.write("junk.emf", "not a metafile at all, just some words");
  LogCapture log;
  for (auto [line, logged] : std::vector<std::tuple<std::string, std::string>>{
           {"datei=" + picture + " h=0.25", "Metafile, w, h: Invalid argument\n"},
           {"datei=" + picture + " w=0.5 h=0.001", "Metafile, w, h: Invalid argument\n"},
           {"datei=" + picture + " w=-1 h=1", "Metafile, w, h: Invalid argument\n"},
           {"datei=" + dir.path("gone.emf") + " w=1 h=1", dir.path("gone.emf") + ": No such file or directory\n"},
           {"datei=" + junk + " w=0.5 h=0.5", "emf2bmp: Invalid argument\n"}}) {
    emf e(line.c_str(), err);
    EXPECT_TRUE(e.prepare() == -1 && log.has(logged)) << line;
    EXPECT_EQ(e.bitmap, nullptr) << line;
  }

  // The renderer refuses what it cannot read.
  std::string svg;
  std::vector<uint32_t> argb;
  enhmetafile* empty = SetEnhMetaFileBits(0, nullptr);
  EXPECT_TRUE(metafile_svg(empty, svg) == -1 && metafile_raster("<svg", 10, 10, argb) == -1 && argb.empty());
  DeleteEnhMetaFile(empty);
}

TEST_F(Emf, FrameStretchedOntoTheBitmapAtEveryDepth) {
  // Points as fractions of the bitmap and what they show when the frame
  // fills it: the stretched picture, not one that keeps its 2:1 shape.
  const std::vector<std::tuple<double, double, char>> points{
      {0.01, 0.02, 'r'}, {0.45, 0.97, 'r'}, {0.25, 0.5, 'r'},  {0.75, 0.5, 'b'},  {0.75, 0.05, 'b'}, {0.75, 0.95, 'b'},
      {0.53, 0.5, 'b'},  {0.97, 0.5, 'b'},  {0.99, 0.01, '0'}, {0.99, 0.99, '0'}, {0.55, 0.03, '0'}, {0.55, 0.97, '0'}};
  for (auto [depth, w, h] : std::vector<std::tuple<int, int, int>>{{32, 384, 192}, {16, 120, 300}, {24, 61, 17}}) {
    set_color_depth(depth);
    BITMAP* b = emf2bmp(picture.c_str(), w, h);
    ASSERT_NE(b, nullptr) << w << "x" << h;
    EXPECT_EQ(std::make_tuple(b->w, b->h, bitmap_color_depth(b)), std::make_tuple(w, h, depth));
    for (auto [fx, fy, expected] : points) {
      const int x = static_cast<int>(fx * w), y = static_cast<int>(fy * h);
      EXPECT_EQ(kind(b, x, y), expected) << w << "x" << h << " at " << x << "," << y;
    }
    destroy_bitmap(b);
  }
}

// The frame fills the bitmap whatever bounds the header gives: with a margin
// round the figures (bounds as GDI writes them) and unset (0, 0, -1, -1).
TEST_F(Emf, TheFrameNotTheDrawnBoundsFillsTheBitmap) {
  const std::string margin = files->path("margin.emf");
  ASSERT_EQ(system((std::string(IXMOD_MKEMF) + " -margin " + margin).c_str()), 0);
  for (auto [file, bounds, kinds] : std::vector<std::tuple<std::string, std::vector<uint32_t>, std::string>>{
           {picture, {0, 0, ~0u, ~0u}, "rbb"}, {margin, {160, 80, 480, 240}, "0b0"}}) {
    std::string bytes = read_text(file);
    for (size_t i = 0; i < 16; ++i) bytes[8 + i] = static_cast<char>(bounds[i / 4] >> (8 * (i % 4)));
    BITMAP* b = emf2bmp(dir.write("t.emf", bytes).c_str(), 384, 192);
    ASSERT_NE(b, nullptr) << kinds;
    EXPECT_EQ((std::string{kind(b, 48, 96), kind(b, 240, 96), kind(b, 336, 96)}), kinds);
    destroy_bitmap(b);
  }
}

TEST_F(Semf, SetFromFilesListsAndTheDatafile) {
  LogCapture log({dir.path("ixmod")});
  EXPECT_TRUE(!semf_emf(0) && log.has("semf: not initialized\n"));
  EXPECT_EQ(semf_init(-1, nullptr), -1);
  EXPECT_TRUE(!semf_palette(0) && log.has("semf not initialized\n"));

  char* names[] = {const_cast<char*>(picture.c_str())};
  ASSERT_EQ(semf_init(1, names), 0);
  EXPECT_TRUE(log.has(picture + "\n") && log.has("not found in ressource\n"));
  for (int i : {1, -1}) {
    EXPECT_TRUE(semf(("index=" + std::to_string(i)).c_str(), err).prepare() == -1 &&
                log.has("semf_emf: invalid index " + std::to_string(i) + "\n"));
  }
  EXPECT_TRUE(!semf_palette(3) && log.has("semf_emf: invalid index 3\n"));

  // The set keeps its metafile across a stimulus's cleanup; a file named on
  // the line is not what is shown.
  semf s(("index=0 w=0.25 h=0.5 datei=" + dir.path("gone.emf")).c_str(), err);
  enhmetafile* shared = semf_emf(0);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(s.prepare(), 0) << round;
    EXPECT_EQ(std::make_tuple(s.bitmap->w, s.bitmap->h, s.masked(), kind(s.bitmap, 10, 100)),
              std::make_tuple(192, 384, 1, 'r'));
    ASSERT_EQ(s.cleanup(), 0);
    EXPECT_EQ(std::make_tuple(s.metafile, semf_emf(0)), std::make_tuple(nullptr, shared));
  }
  const std::unique_ptr<stim> made(_semf("index=0 w=0.1 h=0.1"));
  EXPECT_TRUE(made && made->prepare() == 0 && made->cleanup() == 0);

  // The list file next to the program.
  for (auto [list, result, logged] : std::vector<std::tuple<std::string, int, std::string>>{
           {"2\r\n" + picture + "\r\ngone.emf\r\n", -1, "gone.emf: No such file or directory\n"},
           {"1 " + picture, 0, "Using " + dir.path("ixmod.mf") + " for static metafiles"}}) {
    dir.write("ixmod.mf", list);
    EXPECT_TRUE(semf_init() == result && log.has(logged)) << list;
  }
  EXPECT_NE(semf_emf(0), nullptr);

  // Metafile objects of the resource datafile, listed by an "IMGF" object.
  datafile_init();
  const std::string bytes = read_text(picture);
  write_datafile(
      dir.path("res.dat"),
      {{"ixmod.mf", DAT_IMGF, "2\r\nA.EMF\r\nB.EMF"}, {"A.EMF", DAT_EMF1, bytes}, {"B.EMF", DAT_EMF1, bytes}});
  datafile_resource(dir.path("res.dat").c_str());
  LogCapture quiet({dir.path("ixmod"), "-mf=/elsewhere/ixmod.mf"});
  ASSERT_EQ(semf_init(), 0);
  EXPECT_FALSE(quiet.has("not found in ressource"));
  semf second("index=1 w=0.5 h=0.25", err);
  ASSERT_EQ(second.prepare(), 0);
  EXPECT_EQ(std::make_tuple(kind(second.bitmap, 96, 96), kind(second.bitmap, 288, 96)), std::make_tuple('r', 'b'));
}
