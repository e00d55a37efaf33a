#include "services/files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/directory.h"
#include "services/argument.h"
#include "services/log.h"
#include "services/textfile.h"

namespace {
int count_ = 0;
char** names_ = nullptr;
char** paths_ = nullptr;
bool registered_ = false;

// Reads one line of at most size-1 characters and cuts the newline. A longer
// physical line is consumed to its end, so the list stays in step.
bool read_entry(FILE* f, char* buf, int size) {
  if (!text_gets(buf, size, f)) return false;
  char* nl = strchr(buf, '\n');
  if (nl) {
    *nl = 0;
  } else {
    int c;
    while ((c = fgetc(f)) != EOF && c != '\n') {
    }
  }
  return true;
}

void free_list(int n, char** names, char** paths) {
  for (int i = 0; i < n; ++i) {
    if (names) free(names[i]);
    if (paths) free(paths[i]);
  }
  free(names);
  free(paths);
}
}  // namespace

int files_init(int n, char** names, char** paths) {
  files_done();
  count_ = n;
  names_ = names;
  paths_ = paths;
  if (!registered_) {
    atexit(files_done);
    registered_ = true;
  }
  return 0;
}

int files_init() {
  char def[256];
  argument_progname(def, sizeof def, "lst");
  char name[256];
  snprintf(name, sizeof name, "%s", argument_get("lst", def));
  FILE* f = file_open(name, "r");
  if (!f) {
    alleg_perror(name);
    return -1;
  }
  char buf[200];
  if (!text_gets(buf, 100, f)) {
    if (!ferror(f)) errno = EIO;
    alleg_perror(name);
    fclose(f);
    return -1;
  }
  int n;
  if (sscanf(buf, "%d", &n) != 1) {
    alleg_error("files: invalid number of files: %d", -1);
    fclose(f);
    return -1;
  }
  if (n < 1) {
    fclose(f);
    files_done();
    return 0;
  }
  // The count comes from the file: grow the arrays as entries arrive, so a
  // huge count in a short file fails at the missing line, not in malloc.
  char** names = nullptr;
  char** paths = nullptr;
  int have = 0, cap = 0;
  for (int i = 0; i < n; ++i) {
    char name_buf[200] = "", path_buf[200] = "";
    const bool got_name = read_entry(f, name_buf, sizeof name_buf);
    if (!got_name || !read_entry(f, path_buf, sizeof path_buf)) {
      if (!ferror(f)) errno = EIO;
      alleg_perror(got_name ? path_buf : name_buf);
      free_list(have, names, paths);
      fclose(f);
      return -1;
    }
    if (have == cap) {
      cap = cap ? cap * 2 : 16;
      char** more_names = static_cast<char**>(realloc(names, sizeof(char*) * cap));
      if (more_names) names = more_names;
      char** more_paths = more_names ? static_cast<char**>(realloc(paths, sizeof(char*) * cap)) : nullptr;
      if (more_paths) paths = more_paths;
      if (!more_names || !more_paths) {
        errno = ENOMEM;
        alleg_perror("files");
        free_list(have, names, paths);
        fclose(f);
        return -1;
      }
    }
    names[have] = strdup(name_buf);
    paths[have] = strdup(path_buf);
    ++have;
  }
  fclose(f);
  return files_init(have, names, paths);
}

const char* files_get(const char* name) {
  if (!name) return nullptr;
  for (int i = 0; i < count_; ++i)
    if (strcmp(names_[i], name) == 0) return paths_[i];
  alleg_warning("files: unknown file", name);
  return nullptr;
}

int files_info() {
  alleg_message("%d files\n", count_);
  for (int i = 0; i < count_; ++i) alleg_message(names_[i], paths_[i]);
  return 0;
}

void files_done() {
  free_list(count_, names_, paths_);
  count_ = 0;
  names_ = nullptr;
  paths_ = nullptr;
}
