#include "screens/null.h"

null::null(unsigned id, const char* text, unsigned trigger_, int key, long a, long b)
    : stim(id, nullptr, text, trigger_, key, a, b) {}

null::null(const char* line, int& err) : stim(line, err) {}

null::~null() = default;

stim* _null(const char* attributes) {
  int err = 0;
  stim* s = new null(attributes, err);
  if (err) {
    delete s;
    return nullptr;
  }
  return s;
}
