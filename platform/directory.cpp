#include "platform/directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

int directory_ensure(const char* dir) {
  if (!dir || !*dir) {
    errno = ENOENT;
    return -1;
  }
  if (mkdir(dir, 0777) != 0) {
    if (errno != EEXIST) return -1;
    struct stat st;
    if (stat(dir, &st) != 0) return -1;
    if (!S_ISDIR(st.st_mode)) {
      errno = ENOTDIR;
      return -1;
    }
  }
  return access(dir, W_OK | X_OK) == 0 ? 0 : -1;
}

FILE* file_open(const char* path, const char* mode) {
  FILE* f = path ? fopen(path, mode) : nullptr;
  if (!f) return nullptr;
  struct stat st;
  if (fstat(fileno(f), &st) == 0 && S_ISDIR(st.st_mode)) {
    fclose(f);
    errno = EISDIR;
    return nullptr;
  }
  return f;
}

bool file_there(const char* path) {
  struct stat st;
  return path && stat(path, &st) == 0 && !S_ISDIR(st.st_mode);
}

void program_path(char* buf, int size, const char* argv0) {
  if (!buf || size <= 0) return;
  const ssize_t n = readlink("/proc/self/exe", buf, static_cast<size_t>(size - 1));
  if (n > 0 && n < size - 1) {
    buf[n] = '\0';
    return;
  }
  snprintf(buf, static_cast<size_t>(size), "%s", argv0 ? argv0 : "");
}
