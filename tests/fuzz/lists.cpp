// The list files of the preloaded sets: a count, then that many names. The
// first byte picks the list: sounds, images or films; the rest is the file.
// The scratch directory holds "a.wav", "a.bmp" and a film "a.fli" of two
// frames, so a list can name members that load.
#include "fuzz_support.h"
#include "sound/swav.h"
#include "visual/sbmp.h"
#include "visual/sfli.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::assets();
  if (size == 0) return 0;
  const std::string list = fuzz::write("t.list", data + 1, size - 1);
  switch (data[0] % 3) {
    case 0: {
      FILE* f = fopen(list.c_str(), "r");
      int n = 0;
      char** names = nullptr;
      if (f && swav_read_list(f, n, names) == 0) {
        swav_init(n, names);
        for (int i = 0; i < n; ++i) free(names[i]);
        free(names);
      }
      if (f) fclose(f);
      swav_done();
      break;
    }
    case 1:
      fuzz::args({"-log=/dev/null", "-img=" + list});
      sbmp_init();
      sbmp_done();
      // The program keeps the image list open for the whole run; here the
      // descriptor goes after each input, or the inputs would use them up.
      fuzz::close_descriptors_of(list);
      break;
    default:
      fuzz::args({"-log=/dev/null", "-fl=" + list});
      sfli_init();
      sfli_done();
      break;
  }
  return 0;
}
