// Runs the real program on a private Xvfb display with its files in a fresh
// temporary directory. One Xvfb per test process; everything started is
// stopped again, also when a test fails.
#pragma once
#include <string>
#include <vector>

namespace harness {

// The X display of this test process (":N"), started on first use.
const std::string& display();

struct Run {
  int status = -1;   // exit status (0..255), or -1 when killed by a signal
  int signal = 0;     // the signal that ended it, if any
  bool timed_out = false;
  std::string out, err;  // standard output and error
};

class Dir {
 public:
  Dir();
  ~Dir();
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  void write(const std::string& name, const std::string& text) const;
  std::string read(const std::string& name) const;
  bool exists(const std::string& name) const;

 private:
  std::string path_;
};

// Runs the program with args in dir (its working directory). env entries
// "NAME=value" are added; "DISPLAY=" unsets the display.
Run run(const Dir& dir, const std::vector<std::string>& args, int timeout_s = 30,
        const std::vector<std::string>& env = {});

// The lines of text that contain needle.
std::vector<std::string> lines_with(const std::string& text, const std::string& needle);
bool contains(const std::string& text, const std::string& needle);

}  // namespace harness
