#include "services/dict.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/directory.h"
#include "services/log.h"
#include "services/textfile.h"

namespace {
const int kLine = 200;
}

Chapter::Chapter(const char* name) : id_(name ? strdup(name) : nullptr), texts_(nullptr), count_(0) {}

Chapter::~Chapter() {
  for (int i = 0; i < count_; ++i) free(texts_[i]);
  free(texts_);
  free(id_);
}

int Chapter::load() {
  if (!id_) errno = ENOENT;
  FILE* f = id_ ? file_open(id_, "r") : nullptr;
  if (!f) {
    alleg_perror(id_);
    return -1;
  }
  char buf[kLine];
  int n = 0;
  while (text_gets(buf, kLine, f)) ++n;
  rewind(f);
  char** texts = static_cast<char**>(calloc(n > 0 ? n : 1, sizeof(char*)));
  int got = 0;
  bool out_of_memory = !texts;
  while (!out_of_memory && got < n && text_gets(buf, kLine, f)) {
    texts[got] = strdup(buf);
    if (!texts[got]) out_of_memory = true;
    else ++got;
  }
  fclose(f);
  if (out_of_memory) {
    for (int i = 0; i < got; ++i) free(texts[i]);
    free(texts);
    errno = ENOMEM;
    alleg_perror(id_);
    return -1;
  }
  for (int i = 0; i < count_; ++i) free(texts_[i]);
  free(texts_);
  texts_ = texts;
  count_ = got;
  return 0;
}

int Chapter::get(int i, int size, char* buf) const {
  if (i < 0 || i >= count_ || !buf || size <= 0) {
    alleg_error("dict: item invalid");
    return -1;
  }
  texts_[i][strcspn(texts_[i], "\n")] = 0;
  strncpy(buf, texts_[i], static_cast<size_t>(size));
  buf[size - 1] = 0;
  return 0;
}
