// What the benchmark's and the soak's sessions share: CLOCK_MONOTONIC in
// µs, whether a pixel of the root window is lit (the arrow's shaft covers
// the screen's centre in both directions), and a file read whole.
#pragma once
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <time.h>

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

inline std::string read_file(const std::string& name) {
  std::ifstream f(name);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}
