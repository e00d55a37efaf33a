// A dictionary: one text per line, read 199 characters at a time; then
// every text fetched into buffers of the sizes the program uses.
#include "fuzz_support.h"
#include "services/dict.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  const std::string path = fuzz::write("t.dict", data, size);
  Chapter c(path.c_str());
  if (c.load() != 0) return 0;
  char buf[1000];
  for (int i = -1; i <= c.count(); ++i)
    for (int n : {1, 2, 200, 1000}) c.get(i, n, buf);
  return 0;
}
