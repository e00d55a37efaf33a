// The loaders of the program's own datafile objects. The first byte picks
// "IMGF" (a name list) or "EMF1" (metafile bytes); the next two give the
// size the datafile claims, which may differ from the bytes that follow.
#include "fuzz_support.h"
#include "platform/datafile.h"

namespace {
// A read-only PACKFILE over the input bytes.
struct memory {
  const uint8_t* data;
  size_t size, at;
};

int mem_getc(void* u) {
  memory* m = static_cast<memory*>(u);
  return m->at < m->size ? m->data[m->at++] : EOF;
}
long mem_fread(void* p, long n, void* u) {
  memory* m = static_cast<memory*>(u);
  long k = 0;
  for (; k < n && m->at < m->size; ++k) static_cast<uint8_t*>(p)[k] = m->data[m->at++];
  return k;
}
int mem_ungetc(int c, void* u) {
  memory* m = static_cast<memory*>(u);
  if (m->at == 0) return EOF;
  --m->at;
  return c;
}
int mem_fseek(void* u, int offset) {
  memory* m = static_cast<memory*>(u);
  if (offset < 0 || static_cast<size_t>(offset) > m->size - m->at) return -1;
  m->at += static_cast<size_t>(offset);
  return 0;
}
int mem_feof(void* u) {
  const memory* m = static_cast<const memory*>(u);
  return m->at >= m->size;
}
int mem_close(void*) { return 0; }
int mem_putc(int, void*) { return EOF; }
long mem_fwrite(const void*, long, void*) { return 0; }
int mem_ferror(void*) { return 0; }

PACKFILE_VTABLE kMemory = {mem_close, mem_getc, mem_ungetc, mem_fread, mem_putc, mem_fwrite, mem_fseek,
                           mem_feof,  mem_ferror};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::start();
  if (size < 3) return 0;
  const bool imgf = data[0] & 1;
  const long claimed = (static_cast<long>(data[1]) << 8 | data[2]) - (data[0] & 2 ? 0 : 256);
  memory m{data + 3, size - 3, 0};
  PACKFILE* f = pack_fopen_vtable(&kMemory, &m);
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
