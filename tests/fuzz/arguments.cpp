// The command line: words separated by NUL or newline bytes, then every way
// the program asks for an option, into the program's fixed buffers.
#include <cstring>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  std::vector<std::string> words(1);
  for (size_t i = 0; i < size; ++i)
    if (data[i] == 0 || data[i] == '\n') words.emplace_back();
    else words.back() += static_cast<char>(data[i]);
  std::vector<const char*> argv;
  for (const std::string& w : words) argv.push_back(w.c_str());
  argument_init(static_cast<int>(argv.size()), argv.data());
  static const char* const kKeys[] = {"s", "lst", "cfg", "log", "dict", "locale", "res", "timing", "report", "img",
                                      "snd", "vol", "", "-", "="};
  for (const char* key : kKeys) {
    char buf[255], small[4];
    argument_lookup(key), argument_check(key), argument_value(key), argument_get(key, "def", "Using %s");
    argument_get(key, 7), argument_progname(buf, sizeof buf, key), argument_progname(small, sizeof small, key);
  }
  argument_progname();
  fuzz::args({"-log=/dev/null"});
  return 0;
}
