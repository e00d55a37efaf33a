// The volume file: a count, then that many volumes by sound number.
#include "fuzz_support.h"
#include "sound/swav.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  const std::string vol = fuzz::write("t.vol", data, size);
  fuzz::args({"-log=/dev/null", "-vol=" + vol});
  volume_init();
  for (int i = -1; i <= 1000; ++i) volume_default(i);
  return 0;
}
