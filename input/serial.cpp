// The serial port on libserialport. The state block keeps the classic
// fields (bit rate, parity, data and stop bits, DTR/RTS control, output flow
// control, timeouts); setState translates them for the Linux tty:
// - RTS/CTS flow control exists only as one pair (CRTSCTS): CTS output flow
//   control takes effect only while RTS is the handshake line, otherwise CTS
//   is just an input line;
// - there is no DSR output flow control nor DTR handshake: DTR is on or off;
// - one and a half stop bits ask for two (the UART gives 1.5 at 5 data bits).
#include "input/serial.h"

#include <libserialport.h>
#include <linux/serial.h>
#include <sys/ioctl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/timer.h"
#include "services/config.h"
#include "services/log.h"

namespace {
const unsigned long kMaxDword = 0xFFFFFFFFul;
const serial_lines_ops* lines_ = nullptr;

// Control field values of the state block.
enum { kOff = 0, kOn = 1, kHandshake = 2, kToggle = 3 };

[[noreturn]] void fail(const char* text) { throw std::runtime_error(text); }
}  // namespace

struct comport_state {
  unsigned long baud = 9600;
  int data_bits = 8;
  int parity = COMPort::NoParity;
  int stop_bits = COMPort::OneStopBit;
  bool cts_flow = false;
  bool dsr_flow = false;
  int dtr_control = kOn;
  int rts_control = kOn;
  bool xon_xoff = false;
  unsigned long rd_interval = 0, rd_multiplier = 0, rd_constant = 0;
  const serial_lines_ops* lines = nullptr;  // the test seam this port was opened on
  bool lines_open = false;
};

COMPort::COMPort(const char* name, int& result) : dcb_(new comport_state) {
  int number = 0;
  if (!name || sscanf(name, "COM%d", &number) != 1) {
    alleg_error(name, "Invalid COM port");
    result = -1;
    return;
  }
  const std::string device = serial_device(number);

  dcb_->lines = lines_;
  if (dcb_->lines) {
    if (dcb_->lines->open(device.c_str()) != 0) {
      result = 1;
      return;
    }
    dcb_->lines_open = true;
  } else {
    sp_port* port = nullptr;
    if (sp_get_port_by_name(device.c_str(), &port) != SP_OK) {
      result = 1;
      return;
    }
    if (sp_open(port, SP_MODE_READ_WRITE) != SP_OK) {
      sp_free_port(port);
      result = 1;
      return;
    }
    handle_ = port;
    // Exclusive, as a communications handle is.
    int fd = -1;
    if (sp_get_port_handle(handle_, &fd) == SP_OK && fd >= 0) ioctl(fd, TIOCEXCL);
  }
  try {
    getState();
    setBlockingMode(0, 0, 0);
    setHandshaking(true);
    dcb_->dtr_control = kOn;
    dcb_->rts_control = kOn;
    setState();
    ClearCommBreak();
  } catch (...) {
    // The destructor does not run for a constructor that throws.
    delete dcb_;
    if (handle_) {
      sp_close(handle_);
      sp_free_port(handle_);
    }
    throw;
  }
  result = 0;
}

COMPort::~COMPort() noexcept(false) {
  const serial_lines_ops* lines = dcb_->lines_open ? dcb_->lines : nullptr;
  delete dcb_;
  if (lines && lines->close) lines->close();
  if (!handle_) return;
  const bool closed = sp_close(handle_) == SP_OK;
  sp_free_port(handle_);
  if (!closed) fail("COMPort: failed to close.");
}

void COMPort::getState() {
  if (dcb_->lines) return;  // the seam has no state of its own
  sp_port_config* c = nullptr;
  if (!handle_ || sp_new_config(&c) != SP_OK) fail("COMPort: could not retrieve serial port state.");
  if (sp_get_config(handle_, c) != SP_OK) {
    sp_free_config(c);
    fail("COMPort: could not retrieve serial port state.");
  }
  int baud = -1, bits = -1, stop = -1;
  sp_parity parity = SP_PARITY_INVALID;
  sp_rts rts = SP_RTS_INVALID;
  sp_cts cts = SP_CTS_INVALID;
  sp_dtr dtr = SP_DTR_INVALID;
  sp_dsr dsr = SP_DSR_INVALID;
  sp_xonxoff xon = SP_XONXOFF_INVALID;
  sp_get_config_baudrate(c, &baud);
  sp_get_config_bits(c, &bits);
  sp_get_config_stopbits(c, &stop);
  sp_get_config_parity(c, &parity);
  sp_get_config_rts(c, &rts);
  sp_get_config_cts(c, &cts);
  sp_get_config_dtr(c, &dtr);
  sp_get_config_dsr(c, &dsr);
  sp_get_config_xon_xoff(c, &xon);
  sp_free_config(c);
  // Values the tty does not express (-1) leave the field as it is.
  if (baud > 0) dcb_->baud = static_cast<unsigned long>(baud);
  if (bits > 0) dcb_->data_bits = bits;
  if (stop == 1 || stop == 2) dcb_->stop_bits = stop == 1 ? OneStopBit : TwoStopBits;
  if (parity >= 0) dcb_->parity = parity;
  if (rts >= 0) dcb_->rts_control = rts == SP_RTS_FLOW_CONTROL ? kHandshake : rts == SP_RTS_ON ? kOn : kOff;
  if (cts >= 0) dcb_->cts_flow = cts == SP_CTS_FLOW_CONTROL;
  if (dtr >= 0) dcb_->dtr_control = dtr == SP_DTR_OFF ? kOff : kOn;
  if (dsr >= 0) dcb_->dsr_flow = dsr == SP_DSR_FLOW_CONTROL;
  if (xon >= 0) dcb_->xon_xoff = xon != SP_XONXOFF_DISABLED;
}

void COMPort::setState() {
  if (dcb_->lines) return;
  const comport_state& s = *dcb_;
  const bool rts_cts = s.cts_flow && s.rts_control == kHandshake;
  sp_port_config* c = nullptr;
  if (!handle_ || sp_new_config(&c) != SP_OK) fail("COMPort: could not modify serial port state.");
  const bool ok = sp_set_config_baudrate(c, static_cast<int>(s.baud)) == SP_OK &&
                  sp_set_config_bits(c, s.data_bits) == SP_OK &&
                  sp_set_config_parity(c, static_cast<sp_parity>(s.parity)) == SP_OK &&
                  sp_set_config_stopbits(c, s.stop_bits == OneStopBit ? 1 : 2) == SP_OK &&
                  sp_set_config_rts(c, rts_cts ? SP_RTS_FLOW_CONTROL : s.rts_control == kOff ? SP_RTS_OFF : SP_RTS_ON) == SP_OK &&
                  sp_set_config_cts(c, rts_cts ? SP_CTS_FLOW_CONTROL : SP_CTS_IGNORE) == SP_OK &&
                  sp_set_config_dtr(c, s.dtr_control == kOff ? SP_DTR_OFF : SP_DTR_ON) == SP_OK &&
                  sp_set_config_dsr(c, SP_DSR_IGNORE) == SP_OK &&
                  sp_set_config_xon_xoff(c, s.xon_xoff ? SP_XONXOFF_INOUT : SP_XONXOFF_DISABLED) == SP_OK &&
                  sp_set_config(handle_, c) == SP_OK;
  sp_free_config(c);
  if (!ok) fail("COMPort: could not modify serial port state.");
}

void COMPort::setBitRate(unsigned long rate) {
  dcb_->baud = rate;
  setState();
}
unsigned long COMPort::bitRate() const { return dcb_->baud; }

void COMPort::setParity(Parity p) {
  dcb_->parity = p;
  setState();
}
COMPort::Parity COMPort::parity() const { return static_cast<Parity>(dcb_->parity); }

void COMPort::setDataBits(DataBits bits) {
  dcb_->data_bits = bits;
  setState();
}
COMPort::DataBits COMPort::dataBits() const { return static_cast<DataBits>(dcb_->data_bits); }

void COMPort::setStopBits(StopBits bits) {
  dcb_->stop_bits = bits;
  setState();
}
COMPort::StopBits COMPort::stopBits() const { return static_cast<StopBits>(dcb_->stop_bits); }

int COMPort::SetDTR(bool on) {
  dcb_->dtr_control = on ? kOn : kOff;
  if (dcb_->lines) return dcb_->lines->set_dtr(on);
  setState();
  return 0;
}

int COMPort::SetRTS(bool on) {
  dcb_->rts_control = on ? kOn : kOff;
  if (dcb_->lines) return dcb_->lines->set_rts(on);
  setState();
  return 0;
}

void COMPort::setHandshaking(bool on) {
  dcb_->cts_flow = on;
  dcb_->dsr_flow = false;
  dcb_->rts_control = on ? kHandshake : kOn;
  setState();
}

void COMPort::setxONxOFF(bool on) {
  dcb_->xon_xoff = on;
  setState();
}
bool COMPort::isxONxOFF() const { return dcb_->xon_xoff; }

void COMPort::setBlockingMode(unsigned long interval, unsigned long multiplier, unsigned long constant) {
  if (!handle_ && !dcb_->lines) fail("COMPort: failed to retrieve timeouts.");
  dcb_->rd_interval = interval;
  dcb_->rd_multiplier = interval == kMaxDword ? 0 : multiplier;
  dcb_->rd_constant = interval == kMaxDword ? 0 : constant;
}

// The words of a mode command: "baud=57600 parity=E data=7 stop=1", also
// "xon=on", "octs=on", "odsr=off", "dtr=on|off|hs", "rts=on|off|hs|tg".
void COMPort::setLineCharacteristics(char* mode) {
  const char* bad = "COMPort: could not set line characteristics.";
  if (!mode) fail(bad);
  comport_state s = *dcb_;
  auto parity_of = [&](char c) {
    static const char kLetters[] = "noems";
    const char* p = strchr(kLetters, c | 0x20);
    if (!c || !p) fail(bad);
    return static_cast<int>(p - kLetters);
  };
  auto stop_of = [&](const char* v) {
    if (strcmp(v, "1") == 0) return static_cast<int>(OneStopBit);
    if (strcmp(v, "1.5") == 0) return static_cast<int>(OneAndHalfStopBits);
    if (strcmp(v, "2") == 0) return static_cast<int>(TwoStopBits);
    fail(bad);
  };
  auto on_off = [&](const char* v) {
    if (strcmp(v, "on") == 0) return true;
    if (strcmp(v, "off") == 0) return false;
    fail(bad);
  };
  unsigned long baud;
  int bits;
  std::string text(mode);
  for (char* word = strtok(&text[0], " \t"); word; word = strtok(nullptr, " \t")) {
    char* eq = strchr(word, '=');
    if (!eq) fail(bad);
    *eq = '\0';
    const char* v = eq + 1;
    if (strcmp(word, "baud") == 0 && sscanf(v, "%lu", &baud) == 1) s.baud = baud;
    else if (strcmp(word, "parity") == 0 && strlen(v) == 1) s.parity = parity_of(v[0]);
    else if (strcmp(word, "data") == 0 && sscanf(v, "%d", &bits) == 1) s.data_bits = bits;
    else if (strcmp(word, "stop") == 0) s.stop_bits = stop_of(v);
    else if (strcmp(word, "xon") == 0) s.xon_xoff = on_off(v);
    else if (strcmp(word, "octs") == 0) s.cts_flow = on_off(v);
    else if (strcmp(word, "odsr") == 0) s.dsr_flow = on_off(v);
    else if (strcmp(word, "dtr") == 0) s.dtr_control = strcmp(v, "hs") == 0 ? kHandshake : on_off(v) ? kOn : kOff;
    else if (strcmp(word, "rts") == 0)
      s.rts_control = strcmp(v, "hs") == 0 ? kHandshake : strcmp(v, "tg") == 0 ? kToggle : on_off(v) ? kOn : kOff;
    else fail(bad);
  }
  if (s.data_bits < 5 || s.data_bits > 8) fail(bad);
  *dcb_ = s;
  try {
    setState();
  } catch (const std::runtime_error&) {
    fail(bad);
  }
}

char COMPort::read() {
  char c = 0;
  read(&c, 1);
  return c;
}

unsigned long COMPort::read(void* buffer, unsigned long count) {
  if (!handle_) fail("COMPort: read failed.");
  const comport_state& s = *dcb_;
  sp_return n;
  if (s.rd_interval == kMaxDword && s.rd_multiplier == 0 && s.rd_constant == 0) {
    n = sp_nonblocking_read(handle_, buffer, count);
  } else {
    // Total timeout as multiplier per byte plus constant; 0 waits for all.
    const unsigned long long total = static_cast<unsigned long long>(s.rd_multiplier) * count + s.rd_constant;
    n = sp_blocking_read(handle_, buffer, count, total > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<unsigned>(total));
  }
  if (n < 0) fail("COMPort: read failed.");
  return static_cast<unsigned long>(n);
}

void COMPort::write(char c) { write(&c, 1); }

unsigned long COMPort::write(const void* buffer, unsigned long count) {
  if (!handle_) fail("COMPort: write failed.");
  const sp_return n = sp_blocking_write(handle_, buffer, count, 0);
  if (n < 0 || static_cast<unsigned long>(n) != count) fail("COMPort: write failed.");
  return count;
}

void COMPort::SetCommBreak() {
  if (dcb_->lines) return;
  if (!handle_) fail("COMPort::SetCommBreak: No handle");
  if (sp_start_break(handle_) != SP_OK) fail("::SetCommBreak: failed");
}

void COMPort::ClearCommBreak() {
  if (dcb_->lines) return;
  if (!handle_) fail("COMPort::ClearCommBreak: No handle");
  if (sp_end_break(handle_) != SP_OK) fail("::ClearCommBreak: failed");
}

// The UART's base rate where the driver tells it; otherwise the highest
// rate a tty can be asked for.
unsigned long COMPort::getMaximumBitRate() const {
  if (dcb_->lines) return 115200;
  int fd = -1;
  if (!handle_ || sp_get_port_handle(handle_, &fd) != SP_OK) fail("COMPort: failed to retrieve port properties.");
  serial_struct ss;
  memset(&ss, 0, sizeof ss);
  if (ioctl(fd, TIOCGSERIAL, &ss) == 0 && ss.baud_base > 0) return static_cast<unsigned long>(ss.baud_base);
  return 4000000;
}

unsigned char COMPort::getModemSignals() const {
  unsigned char m = 0;
  if (dcb_->lines) {
    if (dcb_->lines->signals(m) != 0) fail("COMPort: failed to retrieve modem signals.");
    return m & 0xF0;  // the outputs are never reported
  }
  sp_signal s = static_cast<sp_signal>(0);
  if (!handle_ || sp_get_signals(handle_, &s) != SP_OK) fail("COMPort: failed to retrieve modem signals.");
  if (s & SP_SIG_CTS) m |= 0x10;
  if (s & SP_SIG_DSR) m |= 0x20;
  if (s & SP_SIG_RI) m |= 0x40;
  if (s & SP_SIG_DCD) m |= 0x80;
  return m;
}

std::vector<std::string> serial_devices_found() {
  std::vector<std::string> found;
  sp_port** list = nullptr;
  if (sp_list_ports(&list) != SP_OK) return found;
  for (sp_port** p = list; *p; ++p) found.emplace_back(sp_get_port_name(*p));
  sp_free_port_list(list);
  return found;
}

bool serial_can_open(const std::string& device, std::string& why) {
  sp_port* p = nullptr;
  sp_return r = sp_get_port_by_name(device.c_str(), &p);
  if (r == SP_OK) r = sp_open(p, SP_MODE_READ_WRITE);
  if (r == SP_OK) sp_close(p);
  if (r != SP_OK) {
    char* text = sp_last_error_message();
    why = text ? text : "cannot open";
    sp_free_error_message(text);
  }
  if (p) sp_free_port(p);
  return r == SP_OK;
}

std::string serial_device(int number) {
  char key[32], def[32];
  snprintf(key, sizeof key, "com%d-device", number);
  snprintf(def, sizeof def, "/dev/ttyS%d", number - 1);
  return config_string(key, def);
}

namespace {
COMPort* port_ = nullptr;
bool ri_select_ = false;  // key 2 on RI instead of DSR

unsigned char probe_line(unsigned char m) {
  alleg_message("DTR %d RTS %d CTS %d DCD %d RI %d DSR %d", m & 0x01, m & 0x02, m & 0x10, m & 0x80, m & 0x40, m & 0x20);
  return m;
}

void compare(unsigned char before, unsigned char after, const char* output) {
  char text[40];
  static const struct {
    unsigned char bit;
    const char* name;
  } kLines[] = {{0x40, "RI"}, {0x20, "DSR"}, {0x10, "CTS"}};
  for (const auto& l : kLines) {
    if ((before ^ after) & l.bit) {
      snprintf(text, sizeof text, "%s changed (%s)", l.name, output);
      alleg_message(static_cast<const char*>(text));
    }
  }
}
}  // namespace

namespace {
int open_and_probe(const char* name) {
  serial_done();
  int result = 0;
  port_ = new COMPort(name, result);
  if (result != 0) {
    char text[300];
    snprintf(text, sizeof text, "%.250s not found", name ? name : "(null)");
    alleg_error(static_cast<const char*>(text));
    serial_done();
    return -1;
  }
  port_->setBitRate(57600);
  port_->setParity(COMPort::EvenParity);
  port_->setDataBits(COMPort::Data7);
  port_->setStopBits(COMPort::OneStopBit);

  // Switch each output off and on and watch which input follows it.
  static const struct {
    bool dtr;
    bool on;
    const char* text;
  } kSteps[] = {{true, false, "SetDTR false"}, {true, true, "SetDTR true"}, {false, false, "SetRTS false"}, {false, true, "SetRTS true"}};
  unsigned char m[4];
  for (int i = 0; i < 4; ++i) {
    const int r = kSteps[i].dtr ? port_->SetDTR(kSteps[i].on) : port_->SetRTS(kSteps[i].on);
    alleg_message(kSteps[i].text);
    if (r != 0) {
      serial_done();
      return -1;
    }
    alleg_rest(1);
    m[i] = probe_line(port_->getModemSignals());
  }
  ri_select_ = ((m[0] ^ m[1]) & 0x40) != 0;
  compare(m[0], m[1], "DTR");
  if ((m[2] ^ m[3]) & 0x40) ri_select_ = true;
  compare(m[2], m[3], "RTS");

  static const bool registered = atexit(serial_done) == 0;
  (void)registered;
  return 0;
}
}  // namespace

// The port's failures are reported here, where the program meets the port:
// a failed port ends the reaction device's start-up or reading with -1,
// never the program.
int serial_init(const char* name) {
  try {
    return open_and_probe(name);
  } catch (const std::runtime_error& e) {
    alleg_error(e.what());
    serial_done();
    return -1;
  }
}

int serial_read_status(unsigned char& status) {
  if (!port_) {
    alleg_error("serial_read_status: not initialized");
    return -1;
  }
  unsigned char m;
  try {
    m = port_->getModemSignals();
  } catch (const std::runtime_error& e) {
    alleg_error(e.what());
    return -1;
  }
  status = static_cast<unsigned char>(((m & 0x10) ? 0x10 : 0) | ((m & (ri_select_ ? 0x40 : 0x20)) ? 0x20 : 0));
  return 0;
}

void serial_done() {
  COMPort* p = port_;
  port_ = nullptr;
  try {
    delete p;
  } catch (const std::runtime_error& e) {
    alleg_error(e.what());
  }
}

void serial_lines(const serial_lines_ops* ops) { lines_ = ops; }
