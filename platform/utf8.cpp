#include "platform/utf8.h"

#include <allegro.h>

namespace {
const int kBad = '^';

// Length that the lead byte announces: 1 for ASCII, 2..6 for a lead byte,
// 0 for a byte that cannot start a character (a continuation byte, 0xFE,
// 0xFF).
int announced(unsigned char c) {
  if (c < 0x80) return 1;
  if (c < 0xC0) return 0;
  if (c < 0xE0) return 2;
  if (c < 0xF0) return 3;
  if (c < 0xF8) return 4;
  if (c < 0xFC) return 5;
  if (c < 0xFE) return 6;
  return 0;
}

// Decodes the character at s; its byte count goes to width.
int decode(const unsigned char* s, int& width) {
  const int n = announced(s[0]);
  width = 1;
  if (n == 1) return s[0];
  if (n == 0) return kBad;
  int c = s[0] & (0x7F >> n);
  for (int i = 1; i < n; ++i) {
    // A terminator is no continuation byte, so this never passes the end.
    if ((s[i] & 0xC0) != 0x80) return kBad;
    c = (c << 6) | (s[i] & 0x3F);
  }
  width = n;
  return c;
}
}  // namespace

int utf8_getc(const char* s) {
  int width;
  return decode(reinterpret_cast<const unsigned char*>(s), width);
}

int utf8_getx(char** s) {
  int width;
  const int c = decode(reinterpret_cast<const unsigned char*>(*s), width);
  *s += width;
  return c;
}

int utf8_width(const char* s) {
  int width;
  decode(reinterpret_cast<const unsigned char*>(s), width);
  return width;
}

int utf8_cwidth(int c) {
  const unsigned u = static_cast<unsigned>(c);
  if (u < 0x80) return 1;
  if (u < 0x800) return 2;
  if (u < 0x10000) return 3;
  if (u < 0x200000) return 4;
  if (u < 0x4000000) return 5;
  return 6;
}

int utf8_setc(char* s, int c) {
  const unsigned u = static_cast<unsigned>(c) & 0x7FFFFFFF;
  const int n = utf8_cwidth(static_cast<int>(u));
  if (n == 1) {
    s[0] = static_cast<char>(u);
    return 1;
  }
  static const unsigned char kLead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  for (int i = n - 1; i > 0; --i) s[i] = static_cast<char>(0x80 | ((u >> (6 * (n - 1 - i))) & 0x3F));
  s[0] = static_cast<char>(kLead[n] | (u >> (6 * (n - 1))));
  return n;
}

int utf8_isok(int) { return 1; }

void utf8_install() { register_uformat(U_UTF8, utf8_getc, utf8_getx, utf8_setc, utf8_width, utf8_cwidth, utf8_isok, 6); }
