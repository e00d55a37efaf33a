// The response box: port names in their fixed order, the start-up check of
// keys and polling speed, decoding on both kinds of port, the acknowledge
// line, and the reaction-key layer reading the box.
#include "input/vok.h"

#include "input/taste.h"
#include "serial_box.h"
#include "services/config.h"
#include "sim_port.h"
#include "test_support.h"

namespace {

struct Vok : serial_box::Test {
  void TearDown() override { config_done(), vok_reset(), taste_reset(), serial_box::Test::TearDown(); }
  TempDir dir;
  SimPort lpt1{dir, 1}, lpt2{dir, 2};
};

TEST_F(Vok, StartUpByNameKeysAndPollingSpeed) {
  LogCapture log({lpt1.arg(), lpt2.arg(), "-lpt3-device=none"});
  // Names select by the first spelling found. port: vok_port() afterwards;
  // opened: the serial device opened, or the report.
  const struct { const char* name; int result, port; const char* opened; } kCases[] = {
      {"LPT2", 0, 1, ""}, {"lpt10", 0, 0, ""}, {"COM10", 0, 10, "/dev/ttyS9"}, {"COM3", 0, 12, "/dev/ttyS2"},
      {"Lpt2", -1, 12, "Lpt2: Invalid argument"}, {"LPT3", 1, 12, "lpt/set_port: Invalid argument"},
      {"com10", 1, 12, "com10: Invalid COM port"}};
  for (const auto& c : kCases) {
    const int result = vok_init(2, c.name, 3, 0);
    EXPECT_EQ(std::make_tuple(result, vok_port()), std::make_tuple(c.result, c.port)) << c.name;
    EXPECT_TRUE(c.opened[0] == '/' ? box.opened == c.opened : log.has(c.opened)) << c.name;
  }
  EXPECT_EQ(lpt1.data(), std::vector<int>(2, 0xff));  // data lines high for the keys (a poll's repeats untraced)
  // Start-up refuses pressed keys and slow polling.
  for (const unsigned char status : {0x28, 0x18, 0x30}) {  // key 3 is not checked
    lpt1.set_status(status);
    const int no = status != 0x30;
    EXPECT_EQ(std::make_tuple(vok_init(3, VOK_LPT1, 3), vok_init(3, "lpt1", 3, 0)), std::make_tuple(-no, no))
        << +status;
  }
  box.slow_ms = 5;  // one reading of the serial lines takes 5 ms
  for (const long maxpoll : {4, 10, 0, -1}) EXPECT_EQ(vok_init(2, "COM1", maxpoll, 0), maxpoll == 4 ? 1 : 0) << maxpoll;
  EXPECT_TRUE(log.has(": vok/port: Key 1 or Key 2 pressed/Keys not connected.: Invalid argument") &&
              log.has("vok/port: Polling too slow, please check serial port driver.: Input/output error"));
  // The reaction-key layer starts the configured box; "maxpoll" 0 switches the check off.
  LogCapture cfg({"-cfg=" + dir.write("x.cfg", "maxpoll = 0\n"), "-vok-port=COM2"});
  ASSERT_EQ(config_init(), 0);
  ASSERT_EQ(taste_init(2, TASTE_VOK, 100, 0), 0);
  box.key2 = true;
  int code = 0;
  EXPECT_EQ(std::make_tuple(vok_port(), taste_read(code), code), std::make_tuple(VOK_COM1 + 1, 0, 2));
  EXPECT_EQ(taste_init(2, TASTE_VOK, 100, 0), 1);  // a key held at start-up
}

TEST_F(Vok, DecodingOfBothKindsOfPort) {
  const struct { bool serial; int status, keys, code, result; } kCases[] = {
      // parallel: key 1 tested first; other bits do not count
      {false, 0x28, 2, 1, 0}, {false, 0x18, 2, 2, 0}, {false, 0x18, 1, 1, 0}, {false, 0x08, 2, 1, 0},
      {false, 0x30, 3, 3, 0}, {false, 0x30, 2, 0, 0}, {false, 0x38, 3, 0, 0}, {false, 0x00, 0, 0, 0},
      {false, 0xe7, 3, 1, 0},
      // serial: key 2 tested first, no key 3; with one key, both lines clear is an error
      {true, 0x20, 2, 1, 0}, {true, 0x10, 2, 2, 0}, {true, 0x10, 1, 1, 0}, {true, 0x00, 2, 2, 0},
      {true, 0x00, 1, 0, -1}, {true, 0x00, 0, 0, -1}, {true, 0x30, 3, 0, 0}};
  for (const auto& c : kCases) {
    int code = 77;
    const int result = vok_decode(c.serial, static_cast<unsigned char>(c.status), c.keys, code);
    EXPECT_EQ(std::make_pair(result, code), std::make_pair(c.result, c.code))
        << c.serial << " " << c.status << " " << c.keys;
  }
}

TEST_F(Vok, ReadingsAndTheAcknowledgeLine) {
  LogCapture log({lpt1.arg()});
  ASSERT_EQ(vok_init(3, "LPT1", 3, 0), 0);
  lpt1.set_status(0x70);  // key 3 down, which only a parallel box has; the line high
  int code = -1, ack = -1;
  EXPECT_EQ(std::make_tuple(vok_read(code), vok_ack_noinvert(ack), code, ack), std::make_tuple(0, 0, 3, 1));
  ASSERT_EQ(vok_init(1, "COM1", 3, 0), 0);
  box.key1 = box.key2 = true;
  EXPECT_EQ(std::make_tuple(vok_read(code), code), std::make_tuple(-1, 0));
  // COM21..COM30 are read by vok_read alone; other numbers by nothing.
  box.key1 = false;
  vok_init(2, static_cast<_vok_port>(35), 0);
  EXPECT_EQ(std::make_tuple(vok_read(code), vok_ack_noinvert(ack), code), std::make_tuple(0, -1, 2));
  vok_init(2, static_cast<_vok_port>(60), 0);
  EXPECT_EQ(vok_read(code), -1);
  serial_done();
  vok_init(2, VOK_COM1, 0);
  code = 5;
  EXPECT_EQ(std::make_tuple(vok_read(code), code), std::make_tuple(-1, 5));  // a read error leaves the code
  EXPECT_TRUE(log.has("vok/port: Both keys pressed/Keys not connected: Invalid argument") &&
              log.has("vok/port: Invalid argument"));
}

}  // namespace
