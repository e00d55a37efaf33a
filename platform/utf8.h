// The UTF-8 text format of the graphics library, made safe for any bytes.
// File names, configuration lines and texts come from files a lab writes,
// often in another encoding; the library's own decoder can read past the
// end of such a string or loop on it. This codec decodes well-formed
// sequences exactly as the library does and reads every other byte as one
// character '^', so a string is never read past its terminator.
#pragma once

int utf8_getc(const char* s);
int utf8_getx(char** s);
int utf8_setc(char* s, int c);
// Bytes of the character at s: what utf8_getx steps over.
int utf8_width(const char* s);
// Bytes that utf8_setc writes for c.
int utf8_cwidth(int c);
int utf8_isok(int c);

// Installs the codec as the library's UTF-8 format (before set_uformat).
void utf8_install();
