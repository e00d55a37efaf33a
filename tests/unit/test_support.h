// Shared fixtures: the scratch directory, an argument vector that outlives the
// services borrowing it, and the log captured into a file. It brings the
// standard headers the unit tests use (some through the scratch directory's), so
// they name only the modules they test.
#pragma once
#include <allegro.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <utility>

#include "../scratch.h"
#include "fake_clock.h"
#include "platform/display.h"
#include "platform/utf8.h"
#include "services/argument.h"
#include "services/log.h"

// Starts the graphics library without a system driver, once per process,
// with the program's text format.
inline void test_allegro() {
  static const int ok = [] {
    utf8_install();
    set_uformat(U_UTF8);
    return install_allegro(SYSTEM_NONE, &errno, atexit);
  }();
  ASSERT_EQ(ok, 0);
}

// A w x h memory bitmap at the given depth, filled with colour, stands in for
// the screen, on the test clock with a retrace simulated at hz; all undone at
// destruction.
struct MemoryScreen {
  MemoryScreen(int depth, int w, int h, int hz, int colour = 0) {
    test_allegro(), set_color_depth(depth);
    screen = create_bitmap(w, h);
    clear_to_color(screen, colour);
    fake_clock::start(), display_vsync_reset(), alleg_refresh_rate(hz);
  }
  ~MemoryScreen() {
    destroy_bitmap(screen);
    screen = nullptr;
    display_vsync_reset(), fake_clock::stop(), set_color_depth(8);
  }
};

// A colour of the 16-bit memory screens.
inline int rgb(int r, int g, int b) { return makecol_depth(16, r, g, b); }

// The first of the scripted keys, taken from them; 0 when none is left.
inline int take_key(std::vector<int>& keys) {
  const int k = keys.empty() ? 0 : keys.front();
  return keys.erase(keys.begin(), keys.begin() + !keys.empty()), k;
}

// Installs words as the argument vector; "prog" goes first unless the first
// word is a program path (no leading dash).
struct Args {
  explicit Args(std::vector<std::string> w) : words(std::move(w)) {
    if (words.empty() || words[0][0] == '-') words.insert(words.begin(), "prog");
    for (const std::string& s : words) argv.push_back(s.c_str());
    argument_init(static_cast<int>(argv.size()), argv.data());
  }
  ~Args() { argument_init(0, nullptr); }
  std::vector<std::string> words;
  std::vector<const char*> argv;
};

// The log goes to a file in its own directory (option "log" joins the extra
// words) until destruction; has() flushes and searches it.
struct LogCapture {
  explicit LogCapture(std::vector<std::string> extra = {}) {
    const bool named = !extra.empty() && extra[0][0] != '-';
    extra.insert(extra.begin() + (named ? 1 : 0), "-log=" + dir.path("x.log"));
    args = std::make_unique<Args>(std::move(extra));
    log_init();
  }
  ~LogCapture() { log_done(); }  // before the arguments and the directory go
  std::string text() const {
    alleg_logflush();
    return read_text(dir.path("x.log"));
  }
  bool has(const std::string& s) const { return text().find(s) != std::string::npos; }
  TempDir dir;
  std::unique_ptr<Args> args;
};
