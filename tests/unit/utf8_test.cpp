// The graphics library's UTF-8 format: well-formed text as before, any other
// bytes one '^' each, and no string read past its end.

#include "test_support.h"

namespace {

TEST(Utf8, DecodesWellFormedAndStepsOneByteOverMalformed) {
  const struct { const char* bytes; int code, width; } cases[] = {
      {"A", 'A', 1},
      {"\xC3\xA4", 0xE4, 2},                  // ä
      {"\xE2\x82\xAC", 0x20AC, 3},            // €
      {"\xF0\x9D\x84\x9E", 0x1D11E, 4},       // a musical symbol
      {"\xFD\xBF\xBF\xBF\xBF\xBF", 0x7FFFFFFF, 6},
      {"\x92", '^', 1},                       // a continuation byte alone
      {"\xFF\x92", '^', 1},                   // no character starts with 0xFF
      {"\xE4" "bc", '^', 1},                  // Latin-1 ä before ASCII
      {"\xF0\x9D", '^', 1},                   // cut short by the terminator
      {"\xFD\x92\x92\x92\x92", '^', 1},       // cut short by the terminator
  };
  for (const auto& c : cases) {
    char* p = const_cast<char*>(c.bytes);
    const int got = utf8_getx(&p);
    EXPECT_TRUE(utf8_getc(c.bytes) == c.code && utf8_width(c.bytes) == c.width && got == c.code && p - c.bytes == c.width)
        << c.bytes;
  }
}

TEST(Utf8, EncodesWhatItDecodes) {
  for (int code : {0x41, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x1FFFFF, 0x200000, 0x3FFFFFF, 0x4000000,
                   0x7FFFFFFF}) {
    char buf[8] = {};
    const int n = utf8_setc(buf, code);
    EXPECT_EQ(std::make_tuple(utf8_cwidth(code), utf8_width(buf), utf8_getc(buf)), std::make_tuple(n, n, code)) << code;
  }
}

TEST(Utf8, LibraryStringsOfAnyBytesEndAtTheirTerminator) {
  test_allegro();
  // Well-formed text counts as characters; each stray byte counts as one.
  EXPECT_EQ(ustrlen("Gr\xC3\xBC\xC3\x9F" "e"), 5);
  EXPECT_EQ(ustrlen("Gr\xFC\xDF" "e"), 5);
  // A string ending inside a sequence; the bytes behind its end are marked
  // so that reading them would show.
  const std::string stored = std::string("ab\xFD\x92\x92") + '\0' + "\x92\x92\x92" + "xyz";
  EXPECT_EQ(ustrlen(stored.c_str()), 5);
  char copy[64];
  ustrzcpy(copy, sizeof copy, stored.c_str());
  EXPECT_EQ(std::string(copy), "ab^^^");  // a copy holds what was read
  // A file name of such bytes goes through the path functions.
  char path[300];
  canonicalize_filename(path, "/tmp/\xFD\x92\x92/a.bmp", sizeof path);
  EXPECT_STREQ(get_filename(path), "a.bmp");
}

}  // namespace
