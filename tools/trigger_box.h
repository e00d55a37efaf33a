// A fake serial trigger interface for tests and the benchmark: a
// pseudo-terminal whose slave side the program opens as its COM port
// (arg(1) gives "-com1-device=/dev/pts/N"), and whose master side a thread
// reads, stamping every byte with CLOCK_MONOTONIC as it arrives.
#pragma once
#include <poll.h>
#include <pthread.h>
#include <pty.h>
#include <sys/file.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class trigger_box {
 public:
  struct byte_at {
    unsigned long long us;  // CLOCK_MONOTONIC
    int value;
  };

  trigger_box() {
    char name[128] = "";
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) return;
    path_ = name;
    termios t;
    if (tcgetattr(slave_, &t) == 0) {
      cfmakeraw(&t);
      tcsetattr(slave_, TCSANOW, &t);
    }
    reader_ = std::thread([this] { read_all(); });
    // Stamped as promptly as the machine allows: real-time where permitted.
    sched_param sp{};
    sp.sched_priority = 10;
    pthread_setschedparam(reader_.native_handle(), SCHED_FIFO, &sp);
  }
  ~trigger_box() {
    stop_ = true;
    if (reader_.joinable()) reader_.join();
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
  }
  trigger_box(const trigger_box&) = delete;
  trigger_box& operator=(const trigger_box&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string arg(int com) const { return "-com" + std::to_string(com) + "-device=" + path_; }
  // Keeps the port as another program that locks it would.
  bool hold() { return flock(slave_, LOCK_EX | LOCK_NB) == 0; }

  // The bytes received so far, once there are at least n or after
  // timeout_ms.
  std::vector<byte_at> received(size_t n = 0, int timeout_ms = 2000) {
    for (int waited = 0;; ++waited) {
      {
        std::lock_guard<std::mutex> l(mutex_);
        if (bytes_.size() >= n || waited >= timeout_ms) return bytes_;
      }
      usleep(1000);
    }
  }
  void clear() {
    std::lock_guard<std::mutex> l(mutex_);
    bytes_.clear();
  }

  static unsigned long long now_us() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<unsigned long long>(ts.tv_sec) * 1000000ull + static_cast<unsigned long long>(ts.tv_nsec) / 1000;
  }

 private:
  void read_all() {
    pollfd p{master_, POLLIN, 0};
    while (!stop_) {
      if (poll(&p, 1, 20) <= 0 || !(p.revents & POLLIN)) continue;
      unsigned char b[256];
      const ssize_t n = read(master_, b, sizeof b);
      const unsigned long long t = now_us();
      std::lock_guard<std::mutex> l(mutex_);
      for (ssize_t i = 0; i < n; ++i) bytes_.push_back({t, b[i]});
    }
  }

  int master_ = -1, slave_ = -1;
  std::string path_;
  std::thread reader_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<byte_at> bytes_;
};
