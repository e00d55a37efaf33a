// Shared set-up of the fuzz targets: the graphics library without a system
// driver, the log sent to /dev/null, a scratch directory for inputs that the
// program reads by file name, and the command line those readers look at.
#pragma once
#include <allegro.h>
#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "../scratch.h"
#include "platform/datafile.h"
#include "platform/utf8.h"
#include "services/argument.h"
#include "services/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fuzz {

// The scratch directory of this process, removed at exit.
inline const std::string& dir() {
  static const TempDir d;
  return d.dir;
}

inline std::string path(const char* name) { return dir() + "/" + name; }

// Writes bytes to a file of the scratch directory; its path.
inline std::string write(const char* name, const void* data, size_t size) {
  const std::string p = path(name);
  FILE* f = fopen(p.c_str(), "wb");
  if (!f || (size && fwrite(data, 1, size, f) != size)) abort();
  return fclose(f), p;
}
inline std::string write(const char* name, const std::string& text) { return write(name, text.data(), text.size()); }

// Closes every descriptor of this process open on path.
inline void close_descriptors_of(const std::string& path) {
  DIR* d = opendir("/proc/self/fd");
  if (!d) return;
  std::vector<int> fds;
  while (const dirent* e = readdir(d)) {
    char target[4096];
    const std::string link = std::string("/proc/self/fd/") + e->d_name;
    const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
    if (n > 0 && std::string(target, static_cast<size_t>(n)) == path) fds.push_back(atoi(e->d_name));
  }
  closedir(d);
  for (int fd : fds) close(fd);
}

// Installs the command line: the program path in the scratch directory,
// then the option words. The strings live until the next call.
inline void args(const std::vector<std::string>& words) {
  static std::vector<std::string> kept;
  static std::vector<const char*> argv;
  kept = {path("ixmod")}, argv.clear();
  kept.insert(kept.end(), words.begin(), words.end());
  for (const std::string& s : kept) argv.push_back(s.c_str());
  argument_init(static_cast<int>(argv.size()), argv.data());
}

// Once per process: the library without a system driver and the log to
// /dev/null (the messages are still formatted).
inline void start() {
  static const bool done = [] {
    utf8_install(), set_uformat(U_UTF8);
    if (install_allegro(SYSTEM_NONE, &errno, atexit) != 0) abort();
    args({"-log=/dev/null"}), log_init();
    // Resources come from no datafile, so names go to the files.
    datafile_resource(path("none.dat").c_str());
    return true;
  }();
  (void)done;
}

// The input as a C string, as the readers see one line: cut at the first NUL.
inline std::string text(const uint8_t* data, size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size).c_str();
}

// A picture "a.bmp", a sound "a.wav" and a film "a.fli" of two frames in
// the scratch directory, for the seeds that name real files.
inline void assets() {
  static const bool done = [] {
    start();
    BITMAP* b = create_bitmap_ex(8, 4, 4);
    PALETTE pal;
    clear_to_color(b, 1), get_palette(pal);
    if (save_bitmap(path("a.bmp").c_str(), b, pal) != 0) abort();
    destroy_bitmap(b);
    // 8 samples of 8-bit mono PCM at 8000 Hz.
    static const unsigned char kWav[] = {'R', 'I', 'F', 'F', 44, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',
                                         16, 0, 0, 0, 1, 0, 1, 0, 0x40, 0x1f, 0, 0, 0x40, 0x1f, 0, 0, 1, 0, 8, 0,
                                         'd', 'a', 't', 'a', 8, 0, 0, 0, 128, 200, 255, 200, 128, 50, 0, 50};
    return write("a.wav", kWav, sizeof kWav), write("a.fli", "2 30 0.5 0.5\na.bmp\na.bmp\n"), true;
  }();
  (void)done;
}

}  // namespace fuzz

// The set-up runs before the first input, so that what it keeps for the
// whole run is not taken for a leak of that input.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::assets();
  return 0;
}
