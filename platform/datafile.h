// The program's own datafile object types: "IMGF" text lists that name the
// members of a preloaded set, and "EMF1" enhanced metafiles kept as bytes.
// Resources are fetched by name from the datafile appended to the program.
#pragma once

struct PACKFILE;
struct DATAFILE;

const int DAT_IMGF = 0x494D4746;  // "IMGF"
const int DAT_EMF1 = 0x454D4631;  // "EMF1"

// A list of names: a count, then that many owned strings.
struct imgf_struct {
  explicit imgf_struct(int count_);
  imgf_struct(const imgf_struct&) = delete;
  imgf_struct& operator=(const imgf_struct&) = delete;
  ~imgf_struct();
  // Stores a copy of name at index; callers keep to 0 .. count - 1.
  int set(int index, const char* name);

  int count;
  char** entries;  // null when count is 0
};

// An enhanced metafile in memory: its bytes, owned. Rendering reads them.
struct enhmetafile {
  int size;
  unsigned char* bits;  // null when size is 0
};
// A new handle holding a copy of size bytes; the caller owns it.
enhmetafile* SetEnhMetaFileBits(int size, const void* bits);
// A new handle holding the bytes of a metafile file; null with errno set
// when the file cannot be read.
enhmetafile* GetEnhMetaFileA(const char* file);
void DeleteEnhMetaFile(enhmetafile* h);

// The bytes of an "EMF1" object.
struct emf_struct {
  emf_struct(int size_, const void* data);
  emf_struct(const emf_struct&) = delete;
  emf_struct& operator=(const emf_struct&) = delete;
  ~emf_struct();
  // A new metafile handle from the bytes, owned by the caller; null with
  // the warning "GetEnhMetaFile: empty" when there are none.
  enhmetafile* GetEnhMetaFileA() const;

  int size;
  unsigned char* bits;  // null when size is 0
};

// Loaders and destructors as the datafile reader calls them. A payload
// "IMGF" is lines (CR LF, LF or CR): the count, then one name per line; a
// missing count, a negative count or a missing name gives null.
void* load_imgf(PACKFILE* f, long size);
void destroy_imgf(void* obj);
void* load_emf(PACKFILE* f, long size);
void destroy_emf(void* obj);

// Registers "IMGF" and "EMF1" with the datafile reader; before any object
// is loaded. 0.
int datafile_init();

// The datafile that resources come from: "#" (appended to the program)
// unless a test names another file.
const char* datafile_resource();
void datafile_resource(const char* file);
// The object of that name from the resource datafile, null when absent;
// release it with unload_datafile_object.
DATAFILE* datafile_object(const char* name);
