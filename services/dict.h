// A localised text table: one text per line of a plain file, addressed by
// line number from 0. Lines are read 199 characters at a time, so a longer
// physical line counts as several texts.
#pragma once

class Chapter {
 public:
  explicit Chapter(const char* name);
  ~Chapter();
  Chapter(const Chapter&) = delete;
  Chapter& operator=(const Chapter&) = delete;

  const char* id() const { return id_; }
  int load();
  // Copies text i, cut at its newline, into buf (at most size-1 characters).
  int get(int i, int size, char* buf) const;
  int count() const { return count_; }

 private:
  char* id_;
  char** texts_;
  int count_;
};
