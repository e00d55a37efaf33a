#include "platform/datafile.h"

#include <allegro.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "services/log.h"

namespace {
std::string resource_ = "#";

// The payload's lines as the packfile line reader splits them: CR LF, LF or
// CR ends a line; after the last line end there is no further line.
std::vector<std::string> payload_lines(const char* data, long size) {
  std::vector<std::string> lines;
  long i = 0;
  while (i < size) {
    long end = i;
    while (end < size && data[end] != '\r' && data[end] != '\n') ++end;
    lines.emplace_back(data + i, static_cast<size_t>(end - i));
    if (end < size && data[end] == '\r') {
      ++end;
      if (end < size && data[end] == '\n') ++end;
    } else if (end < size) {
      ++end;
    }
    i = end;
  }
  return lines;
}

// Reads size bytes into data (zero-filled); the number read.
long read_payload(PACKFILE* f, long size, std::vector<char>& data) {
  data.assign(static_cast<size_t>(size), 0);
  const long n = pack_fread(data.data(), size, f);
  return n > 0 ? n : 0;
}

unsigned char* copy_bytes(int size, const void* data) {
  if (size <= 0 || !data) return nullptr;
  unsigned char* bits = static_cast<unsigned char*>(malloc(static_cast<size_t>(size)));
  if (bits) memcpy(bits, data, static_cast<size_t>(size));
  return bits;
}
}  // namespace

imgf_struct::imgf_struct(int count_) : count(count_), entries(nullptr) {
  if (count > 0) entries = static_cast<char**>(calloc(static_cast<size_t>(count), sizeof(char*)));
}

imgf_struct::~imgf_struct() {
  for (int i = 0; entries && i < count; ++i) free(entries[i]);
  free(entries);
}

int imgf_struct::set(int index, const char* name) {
  if (index < 0 && count <= index) {
    alleg_error("imgfstruct::set: invalid index %d", index);
    return -1;
  }
  entries[index] = strdup(name ? name : "");
  return 0;
}

void* load_imgf(PACKFILE* f, long size) {
  if (!f || size <= 0 || size > INT_MAX) return nullptr;
  std::vector<char> data;
  const long n = read_payload(f, size, data);
  const std::vector<std::string> lines = payload_lines(data.data(), n);
  if (lines.empty()) return nullptr;
  int count = -1;
  sscanf(lines[0].c_str(), "%d", &count);
  if (count < 0) return nullptr;
  if (static_cast<size_t>(count) > lines.size() - 1) return nullptr;
  imgf_struct* list = new imgf_struct(count);
  if (count > 0 && !list->entries) {
    delete list;
    return nullptr;
  }
  for (int i = 0; i < count; ++i) list->set(i, lines[static_cast<size_t>(i) + 1].c_str());
  return list;
}

void destroy_imgf(void* obj) { delete static_cast<imgf_struct*>(obj); }

enhmetafile* SetEnhMetaFileBits(int size, const void* bits) {
  if (size > 0 && !bits) {
    errno = EINVAL;
    return nullptr;
  }
  enhmetafile* h = new enhmetafile{size > 0 ? size : 0, copy_bytes(size, bits)};
  if (h->size > 0 && !h->bits) {
    delete h;
    errno = ENOMEM;
    return nullptr;
  }
  return h;
}

enhmetafile* GetEnhMetaFileA(const char* file) {
  FILE* f = file ? file_open(file, "rb") : nullptr;
  if (!f) {
    if (!file) errno = EINVAL;
    return nullptr;
  }
  std::vector<unsigned char> bytes;
  unsigned char buf[4096];
  size_t n;
  bool too_big = false;
  while (!too_big && (n = fread(buf, 1, sizeof buf, f)) > 0) {
    bytes.insert(bytes.end(), buf, buf + n);
    too_big = bytes.size() > static_cast<size_t>(INT_MAX);
  }
  const bool failed = ferror(f) != 0;
  fclose(f);
  if (failed || too_big) {
    errno = failed ? EIO : EFBIG;
    return nullptr;
  }
  return SetEnhMetaFileBits(static_cast<int>(bytes.size()), bytes.data());
}

void DeleteEnhMetaFile(enhmetafile* h) {
  if (!h) return;
  free(h->bits);
  delete h;
}

emf_struct::emf_struct(int size_, const void* data) : size(size_), bits(copy_bytes(size_, data)) {}

emf_struct::~emf_struct() { free(bits); }

enhmetafile* emf_struct::GetEnhMetaFileA() const {
  if (size <= 0 || !bits) {
    alleg_warning("GetEnhMetaFile: empty");
    return nullptr;
  }
  return SetEnhMetaFileBits(size, bits);
}

void* load_emf(PACKFILE* f, long size) {
  if (!f || size <= 0 || size > INT_MAX) return nullptr;
  std::vector<char> data;
  if (read_payload(f, size, data) == 0) return nullptr;
  // A short read still makes an object of the full size; the rest is zero.
  emf_struct* e = new emf_struct(static_cast<int>(size), data.data());
  if (!e->bits) {
    delete e;
    return nullptr;
  }
  return e;
}

void destroy_emf(void* obj) { delete static_cast<emf_struct*>(obj); }

int datafile_init() {
  register_datafile_object(DAT_IMGF, load_imgf, destroy_imgf);
  register_datafile_object(DAT_EMF1, load_emf, destroy_emf);
  return 0;
}

const char* datafile_resource() { return resource_.c_str(); }
void datafile_resource(const char* file) { resource_ = file ? file : "#"; }

DATAFILE* datafile_object(const char* name) {
  if (!name) return nullptr;
  return load_datafile_object(resource_.c_str(), name);
}
