// The serial port of a response box: its keys switch the modem-status input
// lines (CTS, and DSR or RI), powered from the port's own DTR and RTS
// outputs. "COMn" is /dev/ttyS(n-1), or the device in configuration key
// "com%d-device" (for example /dev/ttyUSB0).
#pragma once
#include <string>
#include <vector>

struct sp_port;
struct comport_state;

// One serial port. Failures of an operation on an opened port throw
// std::runtime_error with the message text.
class COMPort {
 public:
  // The values of the classic device-control block.
  enum Parity { NoParity = 0, OddParity = 1, EvenParity = 2, MarkParity = 3, SpaceParity = 4 };
  enum DataBits { Data5 = 5, Data6 = 6, Data7 = 7, Data8 = 8 };
  enum StopBits { OneStopBit = 0, OneAndHalfStopBits = 1, TwoStopBits = 2 };

  // result: 0 opened; -1 the name is not "COM" and a number; 1 the device
  // could not be opened.
  COMPort(const char* name, int& result);
  // Throws when the device does not close.
  ~COMPort() noexcept(false);
  COMPort(const COMPort&) = delete;
  COMPort& operator=(const COMPort&) = delete;

  // The state block from the device / written to the device.
  void getState();
  void setState();

  void setBitRate(unsigned long rate);
  unsigned long bitRate() const;
  void setParity(Parity p);
  Parity parity() const;
  void setDataBits(DataBits bits);
  DataBits dataBits() const;
  void setStopBits(StopBits bits);
  StopBits stopBits() const;

  int SetDTR(bool on);
  int SetRTS(bool on);
  // On: output flow control on CTS, RTS as handshake; off: no hardware
  // flow control, RTS on.
  void setHandshaking(bool on);
  void setxONxOFF(bool on);
  bool isxONxOFF() const;

  // Read timeouts in ms; interval 0xFFFFFFFF with multiplier and constant 0
  // returns at once with what has arrived.
  void setBlockingMode(unsigned long interval, unsigned long multiplier, unsigned long constant);
  // "baud=57600 parity=E data=7 stop=1" and the like.
  void setLineCharacteristics(char* mode);

  char read();
  unsigned long read(void* buffer, unsigned long count);
  void write(char c);
  unsigned long write(const void* buffer, unsigned long count);

  void SetCommBreak();
  void ClearCommBreak();
  unsigned long getMaximumBitRate() const;

  // 0x10 CTS, 0x20 DSR, 0x40 RI, 0x80 DCD.
  unsigned char getModemSignals() const;

 private:
  sp_port* handle_ = nullptr;  // null: no device (or lines taken from the test seam)
  comport_state* dcb_;
};

// The device of COMn: "com%d-device", default /dev/ttyS(n-1).
std::string serial_device(int number);

// The serial devices the system lists (/dev/ttyS0, /dev/ttyUSB0, ...).
std::vector<std::string> serial_devices_found();
// Whether device opens for reading and writing; why not in why.
bool serial_can_open(const std::string& device, std::string& why);

// Opens, configures and probes the program's serial port: 0 or -1.
int serial_init(const char* name);
// The keys as a status byte: 0x10 key 1 (CTS), 0x20 key 2 (DSR, or RI when
// the probe saw RI follow DTR or RTS); all other bits 0.
int serial_read_status(unsigned char& status);
void serial_done();

// Test seam: the device under COMPort. A pseudo-terminal has no modem lines,
// so tests put the lines of a simulated box here. Null restores the device.
struct serial_lines_ops {
  int (*open)(const char* device);  // 0: opened
  void (*close)();
  int (*set_dtr)(bool on);          // 0: done
  int (*set_rts)(bool on);
  int (*signals)(unsigned char& modem);  // modem bits as getModemSignals; 0: done
};
void serial_lines(const serial_lines_ops* ops);
