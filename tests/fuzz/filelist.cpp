// The file list: a count, then pairs of lines (logical name, real path).
#include "fuzz_support.h"
#include "services/files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  const std::string lst = fuzz::write("t.lst", data, size);
  fuzz::args({"-log=/dev/null", "-lst=" + lst});
  if (files_init() == 0) {
    files_info();
    // Names as the program asks for them, and one taken from the list itself.
    for (const char* name : {"t.s", "t.log", "", "a"}) files_get(name);
    const std::string first = fuzz::text(data, size);
    files_get(first.c_str());
  }
  files_done();
  return 0;
}
