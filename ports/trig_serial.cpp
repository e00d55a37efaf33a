// The serial trigger port on the tty interface itself (open, termios,
// write): libserialport, which the response box's port uses, looks every
// port up in sysfs first and so refuses pseudo-terminals, on which the tests
// and the benchmark put a fake interface; a trigger port needs nothing of
// it beyond open, raw mode, speed and write.
#include "ports/trig_serial.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "input/serial.h"
#include "services/log.h"

namespace {
int fd_ = -1;
bool exclusive_ = false;  // TIOCEXCL set by this program
int number_ = 0;
std::string device_;

// The bit rates a tty takes by name.
const struct {
  long baud;
  speed_t speed;
} kSpeeds[] = {{1200, B1200},       {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},
               {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},
               {500000, B500000},   {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
               {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {4000000, B4000000}};

// "trig_out/com1: /dev/ttyACM0: <system text>" and a hint.
int report(int error, const char* hint, const char* what = nullptr) {
  char text[600];
  snprintf(text, sizeof text, "trig_out/com%d: %.400s: %s%s", number_, what ? what : device_.c_str(), strerror(error),
           hint);
  alleg_error(static_cast<const char*>(text));
  return -1;
}

// The port could not be opened: the hint for the reasons a lab meets.
int refuse(int error) {
  trig_serial_close();
  return report(error, error == EACCES || error == EPERM ? " (add the user to the dialout group and log in again)"
                       : error == EBUSY || error == EWOULDBLOCK ? " (in use by another program)"
                       : error == ENOENT || error == ENXIO || error == ENODEV ? " (is the interface plugged in?)"
                       : "");
}
}  // namespace

int trig_serial_open(int number, long baud) {
  trig_serial_close();
  number_ = number;
  device_ = serial_device(number);
  speed_t speed = 0;
  for (const auto& s : kSpeeds)
    if (s.baud == baud) speed = s.speed;
  if (speed == 0) {
    char what[40];
    snprintf(what, sizeof what, "%ld bit/s", baud);
    return report(EINVAL, "", what);
  }
  fd_ = open(device_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) return refuse(errno);
  if (!isatty(fd_)) return refuse(ENOTTY);
  // TIOCEXCL keeps other users out but not root; the lock keeps out every
  // program that locks as well.
  if (flock(fd_, LOCK_EX | LOCK_NB) != 0 || ioctl(fd_, TIOCEXCL) != 0) return refuse(errno);
  exclusive_ = true;
  termios t;
  if (tcgetattr(fd_, &t) != 0) return refuse(errno);
  cfmakeraw(&t);
  t.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS | PARENB);
  t.c_cflag |= CLOCAL | CREAD | CS8;
  t.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  if (cfsetispeed(&t, speed) != 0 || cfsetospeed(&t, speed) != 0 || tcsetattr(fd_, TCSANOW, &t) != 0) return refuse(errno);
  tcflush(fd_, TCIOFLUSH);
  static const bool registered = atexit(trig_serial_close) == 0;
  (void)registered;
  return 0;
}

const char* trig_serial_device() { return fd_ >= 0 ? device_.c_str() : ""; }

int trig_serial_put(unsigned char byte) {
  if (fd_ < 0) return report(EBADF, "");
  ssize_t n;
  do n = write(fd_, &byte, 1);
  while (n < 0 && errno == EINTR);
  if (n == 1) return 0;
  const int error = n < 0 ? errno : EIO;
  return report(error, error == EAGAIN ? " (the interface takes no more bytes)" : "");
}

void trig_serial_close() {
  if (fd_ < 0) return;
  if (exclusive_) ioctl(fd_, TIOCNXCL);  // the tty stays exclusive until released otherwise
  exclusive_ = false;
  close(fd_);
  fd_ = -1;
}
