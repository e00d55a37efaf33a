#include "platform/durable.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int write_all(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = ENOSPC;
      return -1;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

// The old file's content onto fd; a file that is not there adds nothing.
int copy_old(const std::string& path, int fd) {
  const int in = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return errno == ENOENT ? 0 : -1;
  static char buf[1 << 16];
  int result = 0;
  for (;;) {
    const ssize_t n = ::read(in, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || (n > 0 && write_all(fd, buf, static_cast<size_t>(n)) != 0)) result = -1;
    if (n <= 0 || result != 0) break;
  }
  const int e = errno;
  close(in);
  errno = e;
  return result;
}

void test_pause() {
  const char* ms = getenv("IXMOD_TEST_SLOW_REPLACE");
  const long v = ms ? strtol(ms, nullptr, 10) : 0;
  if (v <= 0) return;
  timespec t{static_cast<time_t>(v / 1000), (v % 1000) * 1000000L};
  while (nanosleep(&t, &t) != 0 && errno == EINTR) {
  }
}

// The directory entry made by a rename is durable only once the directory
// itself is synced.
void sync_directory(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

int durable_sync(int fd) {
  // A file that cannot be synced (a pipe, a terminal, /dev/null) has
  // nothing to make durable.
  if (fdatasync(fd) != 0 && errno != EINVAL && errno != EROFS) return -1;
  return 0;
}

int durable_sync(FILE* f) {
  if (fflush(f) != 0 || ferror(f)) return -1;
  return durable_sync(fileno(f));
}

int durable_replace(const std::string& path, const std::string& text, bool keep_old) {
  // Something other than a file (a terminal, /dev/null) cannot be renamed
  // over: it gets the text written to it.
  struct stat st;
  if (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    const int result = write_all(fd, text.data(), text.size());
    const int e = errno;
    close(fd);
    errno = e;
    return result;
  }
  const std::string tmp = path + ".tmp";
  const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return -1;
  const size_t half = text.size() / 2;
  int result = keep_old ? copy_old(path, fd) : 0;
  if (result == 0) result = write_all(fd, text.data(), half);
  if (result == 0) test_pause();
  if (result == 0) result = write_all(fd, text.data() + half, text.size() - half);
  if (result == 0) result = durable_sync(fd);
  int e = errno;
  if (close(fd) != 0 && result == 0) {
    result = -1;
    e = errno;
  }
  if (result == 0 && rename(tmp.c_str(), path.c_str()) != 0) {
    result = -1;
    e = errno;
  }
  if (result != 0) {
    unlink(tmp.c_str());
    errno = e;
    return -1;
  }
  sync_directory(path);
  return 0;
}
