// What the benchmark's and the soak's sessions share: CLOCK_MONOTONIC in
// µs, whether a pixel of the root window is lit (the arrow's shaft covers
// the screen's centre in both directions), when it came on, and a file
// read whole; and where the program under test is.
#pragma once
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

#include <fstream>
#include <sstream>
#include <string>

inline long long mono_us() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<long long>(t.tv_sec) * 1000000ll + t.tv_nsec / 1000;
}

inline bool arrow_shown(Display* d, int x, int y) {
  XImage* img = XGetImage(d, DefaultRootWindow(d), x, y, 1, 1, AllPlanes, ZPixmap);
  if (!img) return false;
  const bool on = XGetPixel(img, 0, 0) != 0;
  XDestroyImage(img);
  return on;
}

// Readings of one pixel of the root window, a short pause apart (the X
// server has one thread, shared with the program it serves). A reading
// samples the pixel at about the middle of its round trip, so a pixel that
// came on did so between the last reading that found it off and the first
// that found it on: the midpoint of the two is taken.
struct pixel_watch {
  int x = 0, y = 0;
  bool on = false;
  long long last_mid_us = 0;
  double round_trip_us = 0;  // of the latest reading
  // true when the pixel came on at this reading, at the moment `at_us`.
  bool came_on(Display* d, long long& at_us) {
    const long long asked = mono_us();
    const bool now_on = arrow_shown(d, x, y);
    const long long t = mono_us();
    round_trip_us = static_cast<double>(t - asked);
    const long long mid = asked + (t - asked) / 2;
    const bool came = now_on && !on && last_mid_us != 0;
    if (came) at_us = (last_mid_us + mid) / 2;
    on = now_on;
    last_mid_us = mid;
    timespec pause{0, 200000};
    nanosleep(&pause, nullptr);
    return came;
  }
};

// The program under test: named by -program=, else build/ixmod beside
// this tool (empty when neither can be told).
inline std::string program_beside_self(const std::string& named) {
  if (!named.empty()) return named;
  char self[4096];
  const ssize_t len = readlink("/proc/self/exe", self, sizeof self - 1);
  if (len <= 0) return "";
  self[len] = 0;
  return std::string(self, static_cast<size_t>(strrchr(self, '/') - self)) + "/ixmod";
}

inline std::string read_file(const std::string& name) {
  std::ifstream f(name);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}
