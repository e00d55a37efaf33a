// The word stimulus: a short text, one or more lines, rendered once in
// prepare() into a bitmap of exactly its size and from then on shown and
// erased like any picture.
#pragma once
#include <string>

#include "visual/bmp.h"

class wort : public bmp {
 public:
  // text is required; it is stored as given (no conversion).
  wort(unsigned nummer, const char* text, const char* uv, unsigned trigger, int kritisch, long t0, long t1,
       double relx, double rely);
  // Attribute "string=..." (up to the next ";", at most 199 characters) and
  // those of bmp.
  wort(const char* line, int& err);

  // "string=": stores the text with the umlauts of a Latin-1 file moved to
  // the positions the bitmap fonts keep them at ("{|}~[\]"), and "#" turned
  // into a line feed. A second "string=" replaces the first.
  int set(const char* attr) override;
  long pstime() const override;
  // Renders text in face 1, white on colour 0, then saves the background.
  int prepare() override;
  ~wort() override;

  char* text = nullptr;
};

stim* _wort(const char* line);

// The text as it is drawn and measured in face 1: unchanged for a bitmap
// font; for a TrueType face the seven umlaut positions become the umlauts
// themselves (UTF-8), since that face has "{" where the bitmap font has "ä".
std::string wort_drawn(const char* text);
