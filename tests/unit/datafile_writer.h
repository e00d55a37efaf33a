// Writes a small unpacked datafile of named objects, as the resource
// datafile is built, so tests can point resource lookups at it.
#pragma once
#include "test_support.h"

struct dat_object { std::string name; int type; std::string bytes; };

inline void write_datafile(const std::string& path, const std::vector<dat_object>& objects) {
  PACKFILE* f = pack_fopen(path.c_str(), F_WRITE_NOPACK);
  pack_mputl(DAT_MAGIC, f);
  pack_mputl(static_cast<long>(objects.size()), f);
  for (const dat_object& o : objects) {  // a name property, then the type, stored and unpacked size, the bytes
    const long name = static_cast<long>(o.name.size()), size = static_cast<long>(o.bytes.size());
    pack_mputl(DAT_PROPERTY, f), pack_mputl(DAT_NAME, f), pack_mputl(name, f), pack_fwrite(o.name.data(), name, f);
    pack_mputl(o.type, f), pack_mputl(size, f), pack_mputl(size, f), pack_fwrite(o.bytes.data(), size, f);
  }
  pack_fclose(f);
}

// An 8-bit "BMP " object of w x h pixels, all of index c.
inline std::string dat_bitmap8(int w, int h, unsigned char c) {
  std::string s;
  for (int v : {8, w, h}) s += static_cast<char>(v >> 8), s += static_cast<char>(v & 0xff);
  return s + std::string(static_cast<size_t>(w * h), static_cast<char>(c));
}
