// Runs the real program on a private Xvfb display with its files in a fresh
// temporary directory. One Xvfb per test process; everything started is
// stopped again, also when a test fails.
#pragma once
#include <string>
#include <vector>

#include "../scratch.h"

namespace harness {

// The X display of this test process (":N"), started on first use.
const std::string& display();

struct Run {
  int status = -1;   // exit status (0..255), or -1 when killed by a signal
  int signal = 0;     // the signal that ended it, if any
  bool timed_out = false;
  std::string out, err;  // standard output and error
};

// The program's working and home directory: its ALSA default device
// records into sound.raw, paced by nothing.
struct Dir : TempDir {
  Dir();
};

// Starts the program with args in dir (its working directory); finish()
// waits for it. env entries "NAME=value" are added; "DISPLAY=" unsets the
// display.
struct Started { int pid; std::string out_path, err_path; };
// argv0 replaces the program's path as its first argument (as a shell that
// found it through PATH gives its bare name).
Started start(const Dir& dir, const std::vector<std::string>& args, const std::vector<std::string>& env = {},
              const char* argv0 = nullptr);
Run finish(const Started& p, int timeout_s = 30);

// The lines of text that contain needle.
std::vector<std::string> lines_with(const std::string& text, const std::string& needle);
bool contains(const std::string& text, const std::string& needle);

}  // namespace harness

namespace harness {

// The test's own connection to the display of display().
class X {
 public:
  X();
  ~X();
  // Waits (at most timeout_ms) until a viewable window of at least w x h
  // exists; true when one appeared. Its place on the screen goes to *at.
  struct Rect { int x, y, w, h; };
  bool wait_for_window(int w, int h, int timeout_ms = 10000, Rect* at = nullptr);
  // Presses and releases a key (an X keysym name such as "1", "s", "x").
  void press(const char* key);
  // Red, green and blue (0-255) of the screen pixel at x, y.
  void pixel(int x, int y, int& r, int& g, int& b);
  // Count of non-black pixels in a rectangle of the screen.
  int lit(int x, int y, int w, int h);

 private:
  void* dpy_;
};

// Sleeps until ms after the given steady-clock start.
void sleep_until_ms(long long start_ns, long ms);
long long steady_ns();

}  // namespace harness
