#include "services/textfile.h"

#include <cstring>

char* text_gets(char* buf, int size, FILE* f) {
  if (!fgets(buf, size, f)) return nullptr;
  const size_t n = strlen(buf);
  if (n >= 2 && buf[n - 2] == '\r' && buf[n - 1] == '\n') {
    buf[n - 2] = '\n';
    buf[n - 1] = 0;
  } else if (n == static_cast<size_t>(size) - 1 && buf[n - 1] == '\r') {
    // The "\r\n" was split by the buffer: take the newline now.
    const int c = fgetc(f);
    if (c == '\n') buf[n - 1] = '\n';
    else if (c != EOF) ungetc(c, f);
  }
  return buf;
}
