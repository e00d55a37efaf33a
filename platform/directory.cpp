#include "platform/directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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

bool file_there(const char* path) {
  struct stat st;
  return path && stat(path, &st) == 0 && !S_ISDIR(st.st_mode);
}
