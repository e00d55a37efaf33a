#include "screens/pause.h"

pause::pause(unsigned id, long a, long b) : stim(id, nullptr, nullptr, 0, -1, a, b) {}
pause::pause(const char* line, int& err) : stim(line, err) {}
int pause::with_trigger() const { return 1; }
long pause::maxreak() const { return 0; }

stim* _pause(const char* line) { return stim_make<pause>(line); }
