// Writes the sources of the program's resource datafile into one directory:
// arrow pictures with their palette, tones, locale pictures, the bitmap font
// grid and the list files, plus manifest.txt with one line per datafile object
// ("TYPE NAME FILE") for resources/mkdat.sh.
//
// usage: ixmod_resgen OUTDIR
#define ALLEGRO_NO_MAGIC_MAIN
#include <allegro.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kRate = 44100;
constexpr double kPi = 3.14159265358979323846;

std::string out_dir;
FILE* manifest = nullptr;

int fail(const std::string& what) {
  fprintf(stderr, "ixmod_resgen: %s\n", what.c_str());
  return -1;
}

std::string out_path(const std::string& file) { return out_dir + "/" + file; }

void add_object(const char* type, const std::string& name, const std::string& file) {
  fprintf(manifest, "%s %s %s\n", type, name.c_str(), file.c_str());
}

// --- sound -----------------------------------------------------------------

int write_wav(const std::string& file, const std::vector<int16_t>& pcm) {
  FILE* f = fopen(out_path(file).c_str(), "wb");
  if (!f) return fail("cannot write " + file);
  auto u32 = [f](uint32_t v) { for (int i = 0; i < 4; ++i) fputc((v >> (8 * i)) & 0xff, f); };
  auto u16 = [f](uint16_t v) { fputc(v & 0xff, f); fputc(v >> 8, f); };
  const uint32_t bytes = static_cast<uint32_t>(pcm.size() * 2);
  fwrite("RIFF", 1, 4, f);
  u32(36 + bytes);
  fwrite("WAVEfmt ", 1, 8, f);
  u32(16);
  u16(1);  // PCM
  u16(1);  // mono
  u32(kRate);
  u32(kRate * 2);
  u16(2);
  u16(16);
  fwrite("data", 1, 4, f);
  u32(bytes);
  for (int16_t s : pcm) u16(static_cast<uint16_t>(s));
  if (fclose(f) != 0) return fail("cannot write " + file);
  return 0;
}

// A sine tone with raised-cosine ramps at both ends, so that neither onset
// nor offset clicks.
std::vector<int16_t> tone(double hz, int length_ms, int ramp_ms, double amplitude) {
  const int n = kRate * length_ms / 1000, ramp = kRate * ramp_ms / 1000;
  std::vector<int16_t> pcm(n);
  for (int i = 0; i < n; ++i) {
    double gain = amplitude;
    const int edge = std::min(i, n - 1 - i);
    if (edge < ramp) gain *= 0.5 - 0.5 * std::cos(kPi * edge / ramp);
    pcm[i] = static_cast<int16_t>(std::lround(32767.0 * gain * std::sin(2.0 * kPi * hz * i / kRate)));
  }
  return pcm;
}

// --- arrows ----------------------------------------------------------------

constexpr int kArrowW = 160, kArrowH = 240;

// The upward arrow: a head from the tip down to y 100, a shaft below it.
bool in_arrow(double x, double y) {
  if (y >= 100.0 && y <= 230.0) return x >= 55.0 && x <= 105.0;
  if (y < 10.0 || y > 100.0) return false;
  const double half = (y - 10.0) * 70.0 / 90.0;
  return x >= 80.0 - half && x <= 80.0 + half;
}

// Two files per arrow: an 8-bit PCX on a grey-scale palette (index =
// brightness, 0 black), which the program can also load as a file and whose
// palette becomes the set's, and the same picture in true colour for the
// datafile, so that its colours do not depend on the palette in force when
// the program loads it.
int write_arrow(const std::string& file, bool up, PALETTE pal) {
  BITMAP* bmp = create_bitmap_ex(8, kArrowW, kArrowH);
  BITMAP* rgb = create_bitmap_ex(24, kArrowW, kArrowH);
  if (!bmp || !rgb) return fail("out of memory");
  constexpr int kSub = 4;
  for (int y = 0; y < kArrowH; ++y) {
    for (int x = 0; x < kArrowW; ++x) {
      int hits = 0;
      for (int sy = 0; sy < kSub; ++sy)
        for (int sx = 0; sx < kSub; ++sx) {
          const double py = y + (sy + 0.5) / kSub, px = x + (sx + 0.5) / kSub;
          hits += in_arrow(px, up ? py : kArrowH - py);
        }
      const int v = hits * 255 / (kSub * kSub);
      putpixel(bmp, x, y, v);
      putpixel(rgb, x, y, makecol24(v, v, v));
    }
  }
  const int r = save_pcx(out_path(file).c_str(), bmp, pal) | save_bmp(out_path(file + ".bmp").c_str(), rgb, nullptr);
  destroy_bitmap(bmp);
  destroy_bitmap(rgb);
  return r == 0 ? 0 : fail("cannot write " + file);
}

// --- text ------------------------------------------------------------------

std::u32string utf32(const char* s) {
  std::u32string out;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(s); *p;) {
    char32_t c = *p++;
    int extra = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : c >= 0xc0 ? 1 : 0;
    if (extra) c &= 0x3f >> extra;
    for (; extra > 0 && (*p & 0xc0) == 0x80; --extra) c = (c << 6) | (*p++ & 0x3f);
    out += c;
  }
  return out;
}

class Face {
 public:
  ~Face() {
    if (face_) FT_Done_Face(face_);
    if (lib_) FT_Done_FreeType(lib_);
  }

  int open(const char* pattern) {
    const std::string file = match(pattern);
    if (file.empty()) return fail(std::string("no font for ") + pattern + " (fonts-liberation)");
    if (FT_Init_FreeType(&lib_) || FT_New_Face(lib_, file.c_str(), 0, &face_))
      return fail("cannot open " + file);
    return 0;
  }

  void size(int px) { FT_Set_Pixel_Sizes(face_, 0, px); }
  int ascender() const { return static_cast<int>((face_->size->metrics.ascender + 63) >> 6); }
  int descender() const { return static_cast<int>((-face_->size->metrics.descender + 63) >> 6); }

  // Renders c (anti-aliased or one bit per pixel) into the face's glyph slot.
  FT_GlyphSlot glyph(char32_t c, bool mono) {
    const FT_Int32 flags = FT_LOAD_RENDER | (mono ? FT_LOAD_TARGET_MONO : FT_LOAD_DEFAULT);
    if (FT_Load_Char(face_, c, flags)) return nullptr;
    return face_->glyph;
  }

  int advance(char32_t c) {
    FT_GlyphSlot g = glyph(c, false);
    return g ? static_cast<int>(g->advance.x >> 6) : 0;
  }

  int width(const std::u32string& text) {
    int w = 0;
    for (char32_t c : text) w += advance(c);
    return w;
  }

 private:
  static std::string match(const char* pattern) {
    std::string file;
    FcPattern* pat = FcNameParse(reinterpret_cast<const FcChar8*>(pattern));
    if (!pat) return file;
    FcConfigSubstitute(nullptr, pat, FcMatchPattern);
    FcDefaultSubstitute(pat);
    FcResult result;
    FcPattern* found = FcFontMatch(nullptr, pat, &result);
    FcChar8* family = nullptr;
    FcChar8* path = nullptr;
    if (found && FcPatternGetString(found, FC_FAMILY, 0, &family) == FcResultMatch &&
        std::string(reinterpret_cast<char*>(family)) == "Liberation Sans" &&
        FcPatternGetString(found, FC_FILE, 0, &path) == FcResultMatch)
      file = reinterpret_cast<char*>(path);
    if (found) FcPatternDestroy(found);
    FcPatternDestroy(pat);
    return file;
  }

  FT_Library lib_ = nullptr;
  FT_Face face_ = nullptr;
};

// One line of white anti-aliased text, centred on a black true-colour
// picture; the size shrinks from px until the line fits.
// White text on black, each line ("\n" separates them) centred; the size
// shrinks until the widest line fits.
int write_text_picture(Face& face, const std::string& file, int w, int h, int px, const char* text_utf8) {
  std::vector<std::u32string> lines(1);
  for (char32_t c : utf32(text_utf8)) {
    if (c == U'\n') lines.emplace_back();
    else lines.back() += c;
  }
  auto widest = [&] {
    int m = 0;
    for (const auto& l : lines) m = std::max(m, face.width(l));
    return m;
  };
  for (face.size(px); widest() > w - 40 && px > 8;) face.size(--px);
  BITMAP* bmp = create_bitmap_ex(24, w, h);
  if (!bmp) return fail("out of memory");
  clear_to_color(bmp, makecol24(0, 0, 0));
  const int line_h = face.ascender() + face.descender() + px / 3;
  const int top = (h - static_cast<int>(lines.size()) * line_h) / 2;
  for (size_t i = 0; i < lines.size(); ++i) {
    const int baseline = top + static_cast<int>(i) * line_h + face.ascender();
    int pen = (w - face.width(lines[i])) / 2;
    for (char32_t c : lines[i]) {
      FT_GlyphSlot g = face.glyph(c, false);
      if (!g) continue;
      const FT_Bitmap& b = g->bitmap;
      for (unsigned row = 0; row < b.rows; ++row)
        for (unsigned col = 0; col < b.width; ++col) {
          const int v = b.buffer[row * b.pitch + col];
          if (v) putpixel(bmp, pen + g->bitmap_left + col, baseline - g->bitmap_top + row, makecol24(v, v, v));
        }
      pen += static_cast<int>(g->advance.x >> 6);
    }
  }
  const int r = save_bmp(out_path(file).c_str(), bmp, nullptr);
  destroy_bitmap(bmp);
  return r == 0 ? 0 : fail("cannot write " + file);
}

// --- bitmap font -------------------------------------------------------------

// The character a cell of the bitmap font shows: Latin-1, except that the
// seven positions of the German national ASCII variant carry the umlauts.
char32_t font_char(int code) {
  switch (code) {
    case 0x5b: return U'\u00c4';
    case 0x5c: return U'\u00d6';
    case 0x5d: return U'\u00dc';
    case 0x7b: return U'\u00e4';
    case 0x7c: return U'\u00f6';
    case 0x7d: return U'\u00fc';
    case 0x7e: return U'\u00df';
    default: return code >= 0x7f && code < 0xa0 ? 0 : static_cast<char32_t>(code);
  }
}

// A grid picture in the layout Allegro's bitmap font importer reads: every
// glyph is a cell framed by colour 255 (frames shared between neighbours),
// glyph pixels 1 on background 0, the first cell being the space. Glyphs are
// one bit deep, so the font is a monochrome Allegro font drawn in any colour.
int write_font_grid(Face& face, const std::string& file, int px, int first, int last) {
  constexpr int kPerRow = 16;
  struct Cell {
    int x = 0, y = 0, w = 1;  // frame corner, glyph width
    std::vector<uint8_t> bits;  // w * height
  };
  face.size(px);
  const int asc = face.ascender(), height = asc + face.descender();
  std::vector<Cell> cells;
  int x = 0, y = 0, width = 0;
  for (int code = first; code <= last; ++code) {
    Cell cell;
    const char32_t c = font_char(code);
    FT_GlyphSlot g = c ? face.glyph(c, true) : nullptr;
    if (g) {
      const FT_Bitmap& b = g->bitmap;
      const int adv = static_cast<int>((g->advance.x + 32) >> 6);
      const int shift = std::max(0, -g->bitmap_left);
      cell.w = std::max({1, adv, g->bitmap_left + static_cast<int>(b.width)}) + shift;
      cell.bits.assign(cell.w * height, 0);
      for (unsigned row = 0; row < b.rows; ++row) {
        const int cy = asc - g->bitmap_top + static_cast<int>(row);
        if (cy < 0 || cy >= height) continue;
        for (unsigned col = 0; col < b.width; ++col)
          if (b.buffer[row * b.pitch + col / 8] & (0x80 >> (col % 8)))
            cell.bits[cy * cell.w + shift + g->bitmap_left + col] = 1;
      }
    } else {
      cell.bits.assign(height, 0);
    }
    if (code > first && (code - first) % kPerRow == 0) {
      x = 0;
      y += height + 1;
    }
    cell.x = x;
    cell.y = y;
    x += cell.w + 1;
    width = std::max(width, x + 1);
    cells.push_back(std::move(cell));
  }
  BITMAP* bmp = create_bitmap_ex(8, width + 1, y + height + 2);
  if (!bmp) return fail("out of memory");
  clear_to_color(bmp, 255);
  for (const Cell& cell : cells)
    for (int row = 0; row < height; ++row)
      for (int col = 0; col < cell.w; ++col)
        putpixel(bmp, cell.x + 1 + col, cell.y + 1 + row, cell.bits[row * cell.w + col]);
  PALETTE pal;
  for (int i = 0; i < 256; ++i) pal[i] = RGB{0, 0, 0, 0};
  pal[1] = RGB{63, 63, 63, 0};
  pal[255] = RGB{63, 63, 0, 0};
  const int r = save_pcx(out_path(file).c_str(), bmp, pal);
  destroy_bitmap(bmp);
  return r == 0 ? 0 : fail("cannot write " + file);
}

// --- lists -------------------------------------------------------------------

// Count, then one name a line, CR LF line ends: readable both as an "IMGF"
// datafile object and as a list file next to the program.
int write_list(const std::string& file, const std::vector<std::string>& names) {
  FILE* f = fopen(out_path(file).c_str(), "wb");
  if (!f) return fail("cannot write " + file);
  fprintf(f, "%d\r\n", static_cast<int>(names.size()));
  for (const auto& n : names) fprintf(f, "%s\r\n", n.c_str());
  if (fclose(f) != 0) return fail("cannot write " + file);
  add_object("IMGF", file, file);
  return 0;
}

struct LocaleTexts {
  const char* locale;
  const char* noresponse;
  const char* pleaserelease;
  const char* interrupt;
  const char* instruction;  // the test's instruction page, a file "anw<locale>.bmp"
};

const LocaleTexts kLocales[] = {
    {"de", "Keine Reaktion \u2013 bitte drücken Sie die Taste.", "Bitte lassen Sie die Taste los.",
     "Der Test wurde unterbrochen.",
     "Sie hören einen hohen oder tiefen Ton,\ndann sehen Sie einen Pfeil nach oben oder unten.\n\n"
     "Drücken Sie die Taste 1, wenn Ton und Pfeil zusammenpassen:\nhoher Ton und Pfeil nach oben, "
     "tiefer Ton und Pfeil nach unten.\nSonst drücken Sie nicht.\n\nWeiter mit einer beliebigen Taste."},
    {"en", "No response \u2013 please press the key.", "Please release the key.", "The test was interrupted.",
     "You will hear a high or a low tone,\nthen see an arrow pointing up or down.\n\n"
     "Press key 1 when tone and arrow match:\nhigh tone and arrow up, low tone and arrow down.\n"
     "Otherwise do not press.\n\nPress any key to begin."},
};

int generate() {
  // Arrows: picture 0 points up, picture 1 down; one palette for both.
  PALETTE pal;
  for (int i = 0; i < 256; ++i) pal[i] = RGB{static_cast<unsigned char>(i >> 2), static_cast<unsigned char>(i >> 2),
                                             static_cast<unsigned char>(i >> 2), 0};
  const std::string arrows[2] = {"pfeil-ob.pcx", "pfeil-un.pcx"};
  for (int i = 0; i < 2; ++i) {
    if (write_arrow(arrows[i], i == 0, pal) != 0) return -1;
    add_object("PAL", arrows[i] + ".pal", arrows[i]);
    add_object("BMP", arrows[i] + ".bmp", arrows[i] + ".bmp");
  }
  if (write_list("ixmod.img", {arrows[0], arrows[1]}) != 0) return -1;

  // Preparatory tones and the silence that keeps a voice busy.
  struct Sound {
    const char* name;
    std::vector<int16_t> pcm;
  };
  const Sound sounds[] = {
      {"ixmod-hoch.wav", tone(1000.0, 200, 10, 0.5)},
      {"ixmod-tief.wav", tone(500.0, 200, 10, 0.5)},
      {"stille.wav", std::vector<int16_t>(kRate, 0)},
  };
  std::vector<std::string> sound_names;
  for (const Sound& s : sounds) {
    if (write_wav(s.name, s.pcm) != 0) return -1;
    add_object("SAMP", s.name, s.name);
    sound_names.push_back(s.name);
  }
  if (write_list("ixmod.snd", sound_names) != 0) return -1;
  if (write_list("ixmod.mf", {}) != 0) return -1;

  Face regular;
  if (regular.open("Liberation Sans:style=Regular") != 0) return -1;
  if (write_font_grid(regular, "arial.pcx", 20, 0x20, 0xff) != 0) return -1;
  add_object("FONT", "ARIAL_PCX", "arial.pcx");

  Face bold;
  if (bold.open("Liberation Sans:style=Bold") != 0) return -1;
  for (const LocaleTexts& l : kLocales) {
    const std::string loc = l.locale;
    const std::pair<std::string, const char*> pictures[] = {{"noresponse-" + loc + ".bmp", l.noresponse},
                                                            {"pleaserelease-" + loc + ".bmp", l.pleaserelease},
                                                            {"interrupt-" + loc + ".bmp", l.interrupt}};
    for (const auto& [name, text] : pictures) {
      if (write_text_picture(bold, name, 640, 80, 34, text) != 0) return -1;
      add_object("BMP", name, name);
    }
    // Instruction pages are loaded as files, not from the datafile.
    if (write_text_picture(regular, "anw" + loc + ".bmp", 1024, 768, 30, l.instruction) != 0) return -1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
    return 2;
  }
  out_dir = argv[1];
  if (install_allegro(SYSTEM_NONE, &errno, atexit) != 0) {
    fail("install_allegro");
    return 1;
  }
  manifest = fopen(out_path("manifest.txt").c_str(), "w");
  int r = manifest ? generate() : fail("cannot write manifest.txt");
  if (manifest && fclose(manifest) != 0) r = -1;
  FcFini();
  allegro_exit();
  return r == 0 ? 0 : 1;
}
