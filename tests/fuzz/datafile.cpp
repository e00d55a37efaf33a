// The loaders of the program's own datafile objects. The first byte picks
// "IMGF" (a name list) or "EMF1" (metafile bytes); the next two give the
// size the datafile claims, which may differ from the bytes that follow.
#include "fuzz_support.h"
#include "platform/datafile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  if (size < 3) return 0;
  const bool imgf = data[0] & 1;
  const long claimed = (static_cast<long>(data[1]) << 8 | data[2]) - (data[0] & 2 ? 0 : 256);
  PACKFILE* f = pack_fopen(fuzz::write("t.dat", data + 3, size - 3).c_str(), "r");
  if (!f) return 0;
  if (imgf) {
    if (void* list = load_imgf(f, claimed)) {
      const imgf_struct* l = static_cast<const imgf_struct*>(list);
      for (int i = 0; i < l->count; ++i) (void)strlen(l->entries[i]);
      destroy_imgf(list);
    }
  } else if (void* obj = load_emf(f, claimed)) {
    const emf_struct* e = static_cast<const emf_struct*>(obj);
    if (enhmetafile* h = e->GetEnhMetaFileA()) DeleteEnhMetaFile(h);
    destroy_emf(obj);
  }
  pack_fclose(f);
  return 0;
}
