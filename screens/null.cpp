#include "screens/null.h"

null::null(unsigned id, const char* text, unsigned trigger_, int key, long a, long b)
    : stim(id, nullptr, text, trigger_, key, a, b) {}

null::null(const char* line, int& err) : stim(line, err) {}

null::~null() = default;

stim* _null(const char* attributes) { return stim_make<null>(attributes); }
