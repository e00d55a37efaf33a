#include "harness.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace harness {
namespace {

pid_t xvfb_pid = 0;

void stop_xvfb() {
  if (xvfb_pid > 0) {
    kill(xvfb_pid, SIGTERM);
    waitpid(xvfb_pid, nullptr, 0);
    xvfb_pid = 0;
  }
}

std::string start_xvfb() {
  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe");
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    close(fds[0]);
    const int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, 1);
    dup2(devnull, 2);
    const std::string fd = std::to_string(fds[1]);
    execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1024x768x16", "-nolisten", "tcp",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  xvfb_pid = pid;
  atexit(stop_xvfb);
  std::string number;
  char c;
  while (read(fds[0], &c, 1) == 1 && c != '\n') number += c;
  close(fds[0]);
  if (number.empty()) throw std::runtime_error("Xvfb did not start");
  return ":" + number;
}

}  // namespace

const std::string& display() {
  static const std::string d = start_xvfb();
  return d;
}

Dir::Dir() {
  write(".asoundrc", "pcm.!default { type file slave.pcm \"null\" file \"" + path("sound.raw") +
                         "\" format \"raw\" }\n");
}

Started start(const Dir& dir, const std::vector<std::string>& args, const std::vector<std::string>& env,
              const char* argv0) {
  const std::string disp = display();
  const std::string out_path = dir.path(".stdout"), err_path = dir.path(".stderr");
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(dir.path().c_str()) != 0) _exit(127);
    const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(out, 1);
    dup2(err, 2);
    setenv("DISPLAY", disp.c_str(), 1);
    setenv("HOME", dir.path().c_str(), 1);
    // In a sanitizer build the program keeps every memory check, but not the
    // leak check at exit: what it reports there are the sound library's
    // allocations and those of a driver module unloaded before the check.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    const std::string path = std::string(IXMOD_TEST_BIN) + ":" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);
    for (const std::string& e : env) {
      const size_t eq = e.find('=');
      if (eq == e.size() - 1) unsetenv(e.substr(0, eq).c_str());
      else putenv(strdup(e.c_str()));
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(argv0 ? argv0 : IXMOD_BINARY));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(IXMOD_BINARY, argv.data());
    _exit(127);
  }
  return Started{pid, out_path, err_path};
}

Run finish(const Started& p, int timeout_s) {
  const pid_t pid = p.pid;
  Run r;
  int wstatus = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout_s);
  for (;;) {
    const pid_t done = waitpid(pid, &wstatus, WNOHANG);
    if (done == pid) break;
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &wstatus, 0);
      r.timed_out = true;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
  r.signal = WIFSIGNALED(wstatus) ? WTERMSIG(wstatus) : 0;
  r.out = read_text(p.out_path);
  r.err = read_text(p.err_path);
  return r;
}

std::vector<std::string> lines_with(const std::string& text, const std::string& needle) {
  std::vector<std::string> found;
  std::istringstream s(text);
  for (std::string line; std::getline(s, line);)
    if (line.find(needle) != std::string::npos) found.push_back(line);
  return found;
}

bool contains(const std::string& text, const std::string& needle) { return text.find(needle) != std::string::npos; }

}  // namespace harness

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>

namespace harness {

X::X() {
  dpy_ = XOpenDisplay(display().c_str());
  if (!dpy_) throw std::runtime_error("cannot open " + display());
}

X::~X() { XCloseDisplay(static_cast<Display*>(dpy_)); }

namespace {
// The smallest viewable window of at least w x h in the tree below parent.
bool find_window(Display* d, Window parent, int w, int h, Window& best, int& best_area) {
  Window root_ret, parent_ret;
  Window* children = nullptr;
  unsigned n = 0;
  if (!XQueryTree(d, parent, &root_ret, &parent_ret, &children, &n)) return false;
  for (unsigned i = 0; i < n; ++i) {
    XWindowAttributes a;
    if (!XGetWindowAttributes(d, children[i], &a) || a.map_state != IsViewable || a.width < w || a.height < h)
      continue;
    if (a.width * a.height <= best_area) {
      best = children[i];
      best_area = a.width * a.height;
    }
    find_window(d, children[i], w, h, best, best_area);
  }
  if (children) XFree(children);
  return best_area < (1 << 30);
}
}  // namespace

bool X::wait_for_window(int w, int h, int timeout_ms, Rect* at) {
  Display* d = static_cast<Display*>(dpy_);
  const long long end = steady_ns() + timeout_ms * 1000000ll;
  while (steady_ns() < end) {
    Window best = 0;
    int area = 1 << 30;
    if (find_window(d, DefaultRootWindow(d), w, h, best, area)) {
      XWindowAttributes a;
      XGetWindowAttributes(d, best, &a);
      Window child;
      int rx = 0, ry = 0;
      XTranslateCoordinates(d, best, DefaultRootWindow(d), 0, 0, &rx, &ry, &child);
      if (at) *at = Rect{rx, ry, a.width, a.height};
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

void X::press(const char* key) {
  Display* d = static_cast<Display*>(dpy_);
  const KeyCode code = XKeysymToKeycode(d, XStringToKeysym(key));
  XTestFakeKeyEvent(d, code, True, CurrentTime);
  XTestFakeKeyEvent(d, code, False, CurrentTime);
  XFlush(d);
}

namespace {
// A rectangle of the screen; null when it cannot be read.
XImage* grab(Display* d, int x, int y, int w, int h) {
  return XGetImage(d, DefaultRootWindow(d), x, y, static_cast<unsigned>(w), static_cast<unsigned>(h), AllPlanes,
                   ZPixmap);
}
}  // namespace

void X::pixel(int x, int y, int& r, int& g, int& b) {
  Display* d = static_cast<Display*>(dpy_);
  XImage* img = grab(d, x, y, 1, 1);
  r = g = b = 0;
  if (!img) return;
  XColor c;
  c.pixel = XGetPixel(img, 0, 0);
  XDestroyImage(img);
  XQueryColor(d, DefaultColormap(d, DefaultScreen(d)), &c);
  r = c.red >> 8, g = c.green >> 8, b = c.blue >> 8;
}

int X::lit(int x, int y, int w, int h) {
  XImage* img = grab(static_cast<Display*>(dpy_), x, y, w, h);
  if (!img) return 0;
  int n = 0;
  for (int j = 0; j < h; ++j)
    for (int i = 0; i < w; ++i)
      if (XGetPixel(img, i, j) != 0) ++n;
  XDestroyImage(img);
  return n;
}

long long steady_ns() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void sleep_until_ms(long long start_ns, long ms) {
  const long long target = start_ns + ms * 1000000ll;
  const long long now = steady_ns();
  if (target > now) std::this_thread::sleep_for(std::chrono::nanoseconds(target - now));
}

}  // namespace harness
