// A simulated parallel port for tests: a file in a scratch directory that
// the port layer opens as LPTn when the test passes arg() among its
// arguments (LogCapture({sim.arg()})). The test sets the status register
// as a box or pedal would and reads back what the program wrote.
#pragma once
#include <fcntl.h>
#include <unistd.h>

#include "ports/lpt.h"
#include "test_support.h"

struct SimPort {
  struct write { unsigned long long us; int reg; int value; };
  SimPort(const TempDir& dir, int n) : n(n), path(dir.path("lpt" + std::to_string(n))) {}
  ~SimPort() { lpt_reset(); }
  std::string arg() const { return "-lpt" + std::to_string(n) + "-device=" + path; }
  // Creates the file when the program has not yet (idle levels), then sets
  // one register as another process would.
  void set(int reg, unsigned char v) const {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0666);
    static const unsigned char idle[4] = {0x00, 0x38, 0x00, 0x00};
    if (lseek(fd, 0, SEEK_END) < 4) {
      EXPECT_EQ(pwrite(fd, idle, 4, 0), 4);
    }
    EXPECT_EQ(pwrite(fd, &v, 1, reg), 1);
    close(fd);
  }
  void set_status(unsigned char v) const { set(1, v); }
  int reg(int r) const {
    std::ifstream f(path, std::ios::binary);
    f.seekg(r);
    return f.get();
  }
  // Every write so far, oldest first.
  std::vector<write> trace() const {
    lpt_flush();
    std::vector<write> out;
    std::ifstream f(path + ".trace");
    write w;
    while (f >> w.us >> w.reg >> w.value) out.push_back(w);
    return out;
  }
  // The data register's values in order.
  std::vector<int> data() const {
    std::vector<int> v;
    for (const write& w : trace())
      if (w.reg == 0) v.push_back(w.value);
    return v;
  }
  int n;
  std::string path;
};
