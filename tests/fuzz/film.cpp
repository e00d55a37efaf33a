// A film description: "count rate wfrac hfrac", then one frame picture per
// line, resolved beside the description ("a.bmp" exists there).
#include "fuzz_support.h"
#include "visual/fli.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::assets();
  const std::string path = fuzz::write("t.fli", data, size);
  flistruct film;
  if (film.prepare(path.c_str()) == 0) {
    film.width();
    film.height();
    for (int i = -1; i <= film.anzahl(); ++i) film.bild(i);
  }
  return 0;
}
