#include "engine/reak.h"

namespace {
int please_ = 0;
}

void reak_please(int flag) { please_ = flag; }
int reak_getplease() { return please_; }
