#include "visual/wort.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/font.h"
#include "services/log.h"

// Two things the stored text leaves open are settled here.
//
// Umlauts: the stored text carries ä, ö, ü, ß, Ä, Ö, Ü at "{|}~[\]", where
// the bitmap fonts of the datafile have them. Face 1 is normally a TrueType
// face, which has the ASCII glyphs there; so for drawing (and measuring, the
// two must agree) with a TrueType face the seven positions are mapped back to
// the umlauts. They are written as UTF-8 rather than as single Latin-1 bytes:
// the text layer would read a lone 0xE4 as Latin-1 too, but 0xE4 followed by
// two bytes of 0x80..0xBF (say "°»" from a Latin-1 file) would form one
// three-byte character and lose all three. Other Latin-1 bytes pass through
// and are still read as Latin-1 by the layer. Without a TrueType face the
// text is drawn as stored.
//
// Line feeds ("#" in the file): the text layer does not break lines, so each
// line is measured and drawn on its own, one face-1 line height below the
// previous. The bitmap is as wide as the widest line and lines x height
// high; a single line has exactly the size of the measured text.

namespace {
const int kFace = 1;
const size_t kText = 200;

// Latin-1 umlaut and the position it takes in the stored text.
struct Umlaut {
  char latin1, stored;
  const char* utf8;
};
const Umlaut kUmlauts[] = {
    {'\xe4', '{', "\xc3\xa4"}, {'\xf6', '|', "\xc3\xb6"},  {'\xfc', '}', "\xc3\xbc"}, {'\xdf', '~', "\xc3\x9f"},
    {'\xc4', '[', "\xc3\x84"}, {'\xd6', '\\', "\xc3\x96"}, {'\xdc', ']', "\xc3\x9c"},
};

void convert(char* s) {
  for (const Umlaut& u : kUmlauts)
    for (char* p = s; *p; ++p)
      if (*p == u.latin1) *p = u.stored;
  for (char* p = s; *p; ++p)
    if (*p == '#') *p = '\n';
}

std::vector<std::string> lines_of(const std::string& s) {
  std::vector<std::string> lines(1);
  for (char c : s) {
    if (c == '\n')
      lines.emplace_back();
    else
      lines.back().push_back(c);
  }
  return lines;
}
}  // namespace

std::string wort_drawn(const char* text) {
  std::string out;
  if (!text) return out;
  const bool truetype = alleg_font_handle(kFace) != nullptr;
  for (const char* p = text; *p; ++p) {
    const char* mapped = nullptr;
    if (truetype)
      for (const Umlaut& u : kUmlauts)
        if (*p == u.stored) mapped = u.utf8;
    if (mapped)
      out.append(mapped);
    else
      out.push_back(*p);
  }
  return out;
}

wort::wort(unsigned nummer_, const char* text_, const char* uv_, unsigned trigger_, int kritisch_, long t0_, long t1_,
           double relx_, double rely_)
    : bmp(nummer_, nullptr, uv_, trigger_, kritisch_, t0_, t1_, relx_, rely_) {
  stim_assign(text, text_);
}

// The base constructors parse the line while the object is not yet a wort;
// parsing once more here reaches the "string=" attribute.
wort::wort(const char* line, int& err) : bmp(line, err) {
  if (err == 0) err = _stim(line) ? 1 : 0;
}

wort::~wort() { stim_assign(text, nullptr); }

int wort::set(const char* attr) {
  if (!attr) return 0;
  char value[kText];
  if (sscanf(attr, "string=%199[^;\n]", value) == 1) {
    convert(value);
    stim_assign(text, value);
    return 0;
  }
  return bmp::set(attr);
}

long wort::pstime() const { return 110; }

int wort::prepare() {
  if (bitmap) destroy_bitmap(bitmap);  // a second prepare without cleanup
  bitmap = nullptr;
  if (bmp::prepare() != 0) return -1;
  if (!text) {
    alleg_error("wort: empty string");
    return -1;
  }
  const std::vector<std::string> lines = lines_of(wort_drawn(text));
  const int line_h = alleg_text_height(kFace);
  int w = 0;
  for (const std::string& l : lines) w = std::max(w, alleg_text_length(l.c_str(), kFace));
  const int h = line_h * static_cast<int>(lines.size());
  if (bitmap) destroy_bitmap(bitmap);  // a datei= of the line, loaded as for a picture
  bitmap = w > 0 && h > 0 ? create_bitmap(w, h) : nullptr;
  if (!bitmap) {
    alleg_error("wort: could not create bitmap");
    return -1;
  }
  memcpy(palette, default_palette, sizeof(PALETTE));
  clear_to_color(bitmap, 0);
  for (size_t i = 0; i < lines.size(); ++i)
    alleg_textout(bitmap, lines[i].c_str(), kFace, 0, static_cast<int>(i) * line_h, 255, 255, 255);
  return bg_prepare();
}

stim* _wort(const char* line) { return stim_make<wort>(line); }
