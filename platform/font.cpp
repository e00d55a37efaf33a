#include "platform/font.h"

#include <allegro.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/alleg.h"
#include "services/log.h"

namespace {

struct Glyph {
  FT_UInt index = 0;
  int left = 0;     // from the pen to the first column
  int top = 0;      // from the baseline up to the first row
  int width = 0;
  int rows = 0;
  int advance = 0;  // whole pixels
  std::vector<unsigned char> cover;  // width * rows, 0..255
};

struct SizeCache {
  int ascender = 0;   // pixels above the baseline
  int descender = 0;  // pixels below the baseline, >= 0
  std::unordered_map<uint32_t, Glyph> glyphs;
};

}  // namespace

struct ALFONT_FONT {
  FT_Face face = nullptr;
  int size = 0;
  std::map<int, SizeCache> sizes;
  SizeCache* current = nullptr;
  ALFONT_FONT* prev = nullptr;
  ALFONT_FONT* next = nullptr;
};

namespace {

FT_Library library_ = nullptr;
ALFONT_FONT* loaded_ = nullptr;  // every font not yet destroyed
ALFONT_FONT* arial_ = nullptr;
ALFONT_FONT* courier_ = nullptr;

constexpr int kBufferSize = 1000;

int floor26(FT_Pos v) { return static_cast<int>(v >= 0 ? v / 64 : -((-v + 63) / 64)); }
int ceil26(FT_Pos v) { return -floor26(-v); }

// Decodes one character and advances p; invalid UTF-8 bytes are Latin-1.
uint32_t next_char(const unsigned char*& p) {
  const unsigned char c = *p++;
  int extra;
  uint32_t cp, min;
  if (c < 0x80) return c;
  if (c >= 0xc2 && c <= 0xdf) {
    extra = 1, cp = c & 0x1f, min = 0x80;
  } else if (c >= 0xe0 && c <= 0xef) {
    extra = 2, cp = c & 0x0f, min = 0x800;
  } else if (c >= 0xf0 && c <= 0xf4) {
    extra = 3, cp = c & 0x07, min = 0x10000;
  } else {
    return c;
  }
  for (int i = 0; i < extra; ++i) {
    if ((p[i] & 0xc0) != 0x80) return c;
    cp = (cp << 6) | (p[i] & 0x3f);
  }
  if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return c;
  p += extra;
  return cp;
}

// The cached glyph of cp at the current size; null for characters that take
// no space or when FreeType cannot render the glyph.
const Glyph* glyph(ALFONT_FONT* f, uint32_t cp) {
  if (cp < 0x20 || cp == 0x7f) return nullptr;
  auto found = f->current->glyphs.find(cp);
  if (found != f->current->glyphs.end()) return &found->second;
  Glyph& g = f->current->glyphs[cp];
  g.index = FT_Get_Char_Index(f->face, cp);
  if (FT_Load_Glyph(f->face, g.index, FT_LOAD_DEFAULT) != 0) return &g;
  FT_GlyphSlot slot = f->face->glyph;
  g.advance = static_cast<int>((slot->advance.x + 32) >> 6);
  if (FT_Render_Glyph(slot, FT_RENDER_MODE_NORMAL) != 0) return &g;
  const FT_Bitmap& b = slot->bitmap;
  if (b.pixel_mode != FT_PIXEL_MODE_GRAY && b.pixel_mode != FT_PIXEL_MODE_MONO) return &g;
  g.left = slot->bitmap_left;
  g.top = slot->bitmap_top;
  g.width = static_cast<int>(b.width);
  g.rows = static_cast<int>(b.rows);
  g.cover.resize(static_cast<size_t>(g.width) * g.rows);
  const int pitch = b.pitch < 0 ? -b.pitch : b.pitch;
  for (int r = 0; r < g.rows; ++r) {
    const unsigned char* src = b.buffer + static_cast<size_t>(b.pitch < 0 ? g.rows - 1 - r : r) * pitch;
    unsigned char* dst = &g.cover[static_cast<size_t>(r) * g.width];
    for (int c = 0; c < g.width; ++c) {
      if (b.pixel_mode == FT_PIXEL_MODE_GRAY)
        dst[c] = static_cast<unsigned char>(src[c] * 255 / (b.num_grays > 1 ? b.num_grays - 1 : 1));
      else
        dst[c] = (src[c >> 3] & (0x80 >> (c & 7))) ? 255 : 0;
    }
  }
  return &g;
}

bool usable(const ALFONT_FONT* f) { return f && f->face && f->current; }

// Calls place(glyph, pen_x) for every glyph of text and returns the length.
template <typename Place>
int layout(ALFONT_FONT* f, const char* text, Place place) {
  if (!usable(f) || !text) return 0;
  const bool kerning = FT_HAS_KERNING(f->face);
  FT_UInt prev = 0;
  int pen = 0;
  for (auto p = reinterpret_cast<const unsigned char*>(text); *p;) {
    const Glyph* g = glyph(f, next_char(p));
    if (!g) continue;
    FT_Vector delta;
    if (kerning && prev && g->index &&
        FT_Get_Kerning(f->face, prev, g->index, FT_KERNING_DEFAULT, &delta) == 0)
      pen += floor26(delta.x + 32);
    place(*g, pen);
    pen += g->advance;
    prev = g->index;
  }
  return pen;
}

int get_pixel(BITMAP* bmp, int depth, int x, int y) {
  switch (depth) {
    case 15: return _getpixel15(bmp, x, y);
    case 16: return _getpixel16(bmp, x, y);
    case 24: return _getpixel24(bmp, x, y);
    case 32: return _getpixel32(bmp, x, y);
    default: return _getpixel(bmp, x, y);
  }
}

void put_pixel(BITMAP* bmp, int depth, int x, int y, int color) {
  switch (depth) {
    case 15: _putpixel15(bmp, x, y, color); break;
    case 16: _putpixel16(bmp, x, y, color); break;
    case 24: _putpixel24(bmp, x, y, color); break;
    case 32: _putpixel32(bmp, x, y, color); break;
    default: _putpixel(bmp, x, y, color); break;
  }
}

void draw(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color, bool aa) {
  if (!bmp || !usable(f) || !text) return;
  const int depth = bitmap_color_depth(bmp);
  if (depth == 8) aa = false;
  int cl, ct, cr, cb;  // inclusive
  get_clip_rect(bmp, &cl, &ct, &cr, &cb);
  cl = MAX(cl, 0), ct = MAX(ct, 0), cr = MIN(cr, bmp->w - 1), cb = MIN(cb, bmp->h - 1);
  if (cl > cr || ct > cb) return;
  const int sr = getr_depth(depth, color), sg = getg_depth(depth, color), sb = getb_depth(depth, color);
  const int baseline = y + f->current->ascender;
  acquire_bitmap(bmp);
  layout(f, text, [&](const Glyph& g, int pen) {
    const int gx = x + pen + g.left, gy = baseline - g.top;
    const int r0 = MAX(0, ct - gy), r1 = MIN(g.rows, cb - gy + 1);
    const int c0 = MAX(0, cl - gx), c1 = MIN(g.width, cr - gx + 1);
    for (int r = r0; r < r1; ++r) {
      const unsigned char* cover = &g.cover[static_cast<size_t>(r) * g.width];
      for (int c = c0; c < c1; ++c) {
        const int a = cover[c];
        if (!aa) {
          if (a >= 128) put_pixel(bmp, depth, gx + c, gy + r, color);
        } else if (a == 255) {
          put_pixel(bmp, depth, gx + c, gy + r, color);
        } else if (a) {
          const int d = get_pixel(bmp, depth, gx + c, gy + r);
          const int dr = getr_depth(depth, d), dg = getg_depth(depth, d), db = getb_depth(depth, d);
          put_pixel(bmp, depth, gx + c, gy + r,
                    makecol_depth(depth, (sr * a + dr * (255 - a) + 127) / 255,
                                  (sg * a + dg * (255 - a) + 127) / 255, (sb * a + db * (255 - a) + 127) / 255));
        }
      }
    }
  });
  release_bitmap(bmp);
}

// Copies text into a caller's buffer of kBufferSize bytes.
void copy_out(char* buffer, const std::string& text) {
  if (buffer) snprintf(buffer, kBufferSize, "%s", text.c_str());
}

bool same_name(const FcChar8* a, const FcChar8* b) { return FcStrCmpIgnoreCase(a, b) == 0; }

bool starts_with(const FcChar8* text, const std::string& prefix) {
  const size_t n = prefix.size();
  return n && strlen(reinterpret_cast<const char*>(text)) >= n &&
         strncasecmp(reinterpret_cast<const char*>(text), prefix.c_str(), n) == 0;
}

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash == 0 ? 1 : slash);
}

// The first configured font directory that exists.
std::string configured_font_dir(FcConfig* config) {
  std::string dir;
  FcStrList* dirs = FcConfigGetFontDirs(config);
  if (!dirs) return dir;
  struct stat st;
  while (FcChar8* d = FcStrListNext(dirs)) {
    if (stat(reinterpret_cast<const char*>(d), &st) == 0 && S_ISDIR(st.st_mode)) {
      dir = reinterpret_cast<const char*>(d);
      break;
    }
  }
  FcStrListDone(dirs);
  return dir;
}

bool is_file(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string font_path(const char* dir, const char* file) {
  if (strchr(file, '/')) return file;
  return std::string(dir) + "/" + file;
}

ALFONT_FONT* load_face(const char* warning, const std::string& path, int size) {
  ALFONT_FONT* f = alfont_load_font(path.c_str());
  if (!f)
    alleg_warning(warning, path.c_str());
  else
    alfont_set_font_size(f, size);
  return f;
}

std::string arial_path_, courier_path_;

void release_faces() {
  alfont_destroy_font(arial_);
  alfont_destroy_font(courier_);
  arial_ = courier_ = nullptr;
}

int draw_text(BITMAP* bmp, const char* text, int face, int x, int y, int r, int g, int b, bool centre) {
  if (!bmp || !text) return 0;
  const int color = makecol_depth(bitmap_color_depth(bmp), r, g, b);
  ALFONT_FONT* f = alleg_font_handle(face);
  if (!f) {
    if (centre)
      textout_centre_ex(bmp, font, text, x, y, color, -1);
    else
      textout_ex(bmp, font, text, x, y, color, -1);
    return 0;
  }
  const bool aa = !(alleg_gfx_mode() == 8 && bmp != getscreen());
  if (centre)
    aa ? alfont_textout_centre_aa(bmp, f, text, x, y, color) : alfont_textout_centre(bmp, f, text, x, y, color);
  else
    aa ? alfont_textout_aa(bmp, f, text, x, y, color) : alfont_textout(bmp, f, text, x, y, color);
  return 0;
}

// Fills the outputs from fontconfig's best match for face_name; -1 when that
// match is the face asked for.
int match_font(FcConfig* config, const char* face_name, char* display_name, char* file_name, char* font_dir) {
  FcPattern* pattern = FcNameParse(reinterpret_cast<const FcChar8*>(face_name));
  if (!pattern) return 0;
  FcChar8* family = nullptr;
  const std::string wanted =
      FcPatternGetString(pattern, FC_FAMILY, 0, &family) == FcResultMatch ? reinterpret_cast<char*>(family) : "";
  FcConfigSubstitute(config, pattern, FcMatchPattern);
  FcDefaultSubstitute(pattern);
  FcResult result;
  FcPattern* match = FcFontMatch(config, pattern, &result);
  FcChar8* file = nullptr;
  int found = 0;
  if (match && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
    const std::string path = reinterpret_cast<char*>(file);
    copy_out(font_dir, folder_of(path));
    // Found: one of the font's family names begins with the name asked for,
    // or is an alias that configuration binds as strongly as the name itself
    // (not a weak generic fallback).
    FcChar8* found_family = nullptr;
    for (int i = 0; !found_family && FcPatternGetString(match, FC_FAMILY, i, &family) == FcResultMatch; ++i) {
      if (starts_with(family, wanted)) found_family = family;
      FcValue v;
      FcValueBinding binding;
      for (int j = 0; !found_family && FcPatternGetWithBinding(pattern, FC_FAMILY, j, &v, &binding) == FcResultMatch;
           ++j)
        if (v.type == FcTypeString && binding != FcValueBindingWeak && same_name(v.u.s, family)) found_family = family;
    }
    if (found_family) {
      std::string display = reinterpret_cast<char*>(found_family);
      FcChar8* style = nullptr;
      if (FcPatternGetString(match, FC_STYLE, 0, &style) == FcResultMatch)
        display += std::string(" ") + reinterpret_cast<char*>(style);
      copy_out(display_name, display);
      copy_out(file_name, path.substr(path.rfind('/') + 1));
      found = -1;
    }
  }
  if (match) FcPatternDestroy(match);
  FcPatternDestroy(pattern);
  return found;
}

}  // namespace

int alfont_init() {
  if (library_) return 0;
  return FT_Init_FreeType(&library_) == 0 ? 0 : (library_ = nullptr, -1);
}

void alfont_exit() {
  if (!library_) return;
  for (ALFONT_FONT* f = loaded_; f; f = f->next) {
    if (f->face) FT_Done_Face(f->face);
    f->face = nullptr;
    f->current = nullptr;
    f->sizes.clear();
  }
  FT_Done_FreeType(library_);
  library_ = nullptr;
}

ALFONT_FONT* alfont_load_font(const char* path) {
  if (!library_ || !path || !*path) return nullptr;
  FT_Face face;
  if (FT_New_Face(library_, path, 0, &face) != 0) return nullptr;
  FT_Select_Charmap(face, FT_ENCODING_UNICODE);
  auto* f = new ALFONT_FONT;
  f->face = face;
  alfont_set_font_size(f, 16);
  if (!f->current) {
    FT_Done_Face(face);
    delete f;
    return nullptr;
  }
  f->next = loaded_;
  if (loaded_) loaded_->prev = f;
  loaded_ = f;
  return f;
}

void alfont_destroy_font(ALFONT_FONT* f) {
  if (!f) return;
  if (f->prev) f->prev->next = f->next;
  if (f->next) f->next->prev = f->prev;
  if (loaded_ == f) loaded_ = f->next;
  if (f->face) FT_Done_Face(f->face);
  delete f;
}

void alfont_set_font_size(ALFONT_FONT* f, int px) {
  if (!f || !f->face || px <= 0) return;
  if (FT_Set_Pixel_Sizes(f->face, 0, static_cast<FT_UInt>(px)) != 0) {
    if (f->current) FT_Set_Pixel_Sizes(f->face, 0, static_cast<FT_UInt>(f->size));
    return;
  }
  auto [it, added] = f->sizes.try_emplace(px);
  if (added) {
    const FT_Size_Metrics& m = f->face->size->metrics;
    it->second.ascender = ceil26(m.ascender);
    it->second.descender = ceil26(-m.descender);
  }
  f->size = px;
  f->current = &it->second;
}

void alfont_textout(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color) {
  draw(bmp, f, text, x, y, color, false);
}

void alfont_textout_aa(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color) {
  draw(bmp, f, text, x, y, color, true);
}

void alfont_textout_centre(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color) {
  draw(bmp, f, text, x - alfont_text_length(f, text) / 2, y, color, false);
}

void alfont_textout_centre_aa(BITMAP* bmp, ALFONT_FONT* f, const char* text, int x, int y, int color) {
  draw(bmp, f, text, x - alfont_text_length(f, text) / 2, y, color, true);
}

int alfont_text_length(ALFONT_FONT* f, const char* text) {
  return layout(f, text, [](const Glyph&, int) {});
}

int alfont_text_height(ALFONT_FONT* f) {
  return usable(f) ? f->current->ascender + f->current->descender : 0;
}

int GetFontFile(const char* face_name, char* display_name, char* file_name, char* font_dir) {
  copy_out(display_name, "");
  copy_out(file_name, "");
  copy_out(font_dir, "");
  // A configuration of our own, released again: the library's global one
  // would stay allocated for the life of the process.
  FcConfig* config = FcInitLoadConfigAndFonts();
  if (!config) return 0;
  const int found = face_name && *face_name ? match_font(config, face_name, display_name, file_name, font_dir) : 0;
  if (font_dir && !*font_dir) copy_out(font_dir, configured_font_dir(config));
  FcConfigDestroy(config);
  return found;
}

int alleg_textout(BITMAP* bmp, const char* text, int face, int x, int y, int r, int g, int b) {
  return draw_text(bmp, text, face, x, y, r, g, b, false);
}

int alleg_textout_centre(BITMAP* bmp, const char* text, int face, int x, int y, int r, int g, int b) {
  return draw_text(bmp, text, face, x, y, r, g, b, true);
}

int alleg_text_length(const char* text, int face) {
  if (!text) return 0;
  ALFONT_FONT* f = alleg_font_handle(face);
  return f ? alfont_text_length(f, text) : text_length(font, text);
}

int alleg_text_height(int face) {
  ALFONT_FONT* f = alleg_font_handle(face);
  return f ? alfont_text_height(f) : text_height(font);
}

int alleg_fonts_init() {
  release_faces();
  if (alfont_init() != 0) {
    alleg_warning("Error while initializing alfont");
    return -1;
  }
  char display[kBufferSize], file[kBufferSize], dir[kBufferSize];
  GetFontFile("Arial", display, file, dir);
  arial_path_ = font_path(dir, file);
  arial_ = load_face("unable to load arial custom font", arial_path_, 30);

  GetFontFile("courier new", display, file, dir);
  std::string path = font_path(dir, "courbd.ttf");
  if (!is_file(path)) {
    GetFontFile("Courier New:bold", display, file, dir);
    path = font_path(dir, file);
  }
  courier_path_ = path;
  courier_ = load_face("unable to load courier custom font:", path, 20);
  return 0;
}

void alleg_fonts_exit() {
  release_faces();
  alfont_exit();
}

const char* alleg_font_file(int face) {
  if (face == 1 && arial_) return arial_path_.c_str();
  if (face == 2 && courier_) return courier_path_.c_str();
  return nullptr;
}

ALFONT_FONT* alleg_font_handle(int face) {
  if (face == 1) return arial_;
  if (face == 2) return courier_;
  return nullptr;
}
