// The response box: port names in their fixed order, the start-up check of
// keys and polling speed, decoding on both kinds of port, the acknowledge
// line, and the reaction-key layer reading the box.
#include "input/vok.h"

#include <gtest/gtest.h>

#include <string>

#include "input/taste.h"
#include "serial_box.h"
#include "services/config.h"
#include "sim_port.h"
#include "test_support.h"

namespace {

class Vok : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    serial_box::install();
    vok_reset();
  }
  void TearDown() override {
    config_done();
    vok_reset();
    taste_reset();
    serial_box::uninstall();
    fake_clock::stop();
  }
  serial_box::state& box = serial_box::box();
  TempDir dir;
  SimPort lpt1{dir, 1}, lpt2{dir, 2};
};

TEST_F(Vok, NamesSelectByTheFirstSpellingFound) {
  LogCapture log({lpt1.arg(), lpt2.arg(), "-lpt3-device=none"});
  const struct {
    const char* name;
    int result, port;     // port: vok_port() afterwards
    const char* opened;  // serial device opened, or the report
  } kCases[] = {
      {"LPT2", 0, 1, ""}, {"lpt10", 0, 0, ""}, {"box-on-LPT1", 0, 0, ""},
      {"COM10", 0, 10, "/dev/ttyS9"},  // COM1's number, COM10 opened
      {"COM3", 0, 12, "/dev/ttyS2"}, {"xyz", -1, 12, "xyz: Invalid argument"}, {"Lpt2", -1, 12, "Lpt2: Invalid argument"},
      {"com10", 1, 12, "com10: Invalid COM port"},  // com1 found, the name opened as written
      {"\\\\.\\COM12", 1, 12, "\\\\.\\COM12: Invalid COM port"}, {"LPT3", 1, 12, "lpt/set_port: Invalid argument"},
  };
  for (const auto& c : kCases) {
    box.opened.clear();
    EXPECT_EQ(vok_init(2, c.name, 3, 0), c.result) << c.name;
    EXPECT_EQ(vok_port(), c.port) << c.name;
    EXPECT_TRUE(c.opened[0] == '/' ? box.opened == c.opened : log.has(c.opened)) << c.name;
  }
  EXPECT_EQ(lpt1.data(), std::vector<int>(6, 0xff));  // data lines high for the keys
}

TEST_F(Vok, StartUpRefusesPressedKeysAndSlowPolling) {
  LogCapture log({lpt1.arg()});
  for (unsigned char status : {0x28, 0x18, 0x00}) {
    lpt1.set_status(status);
    EXPECT_EQ(vok_init(2, VOK_LPT1, 3), -1) << int(status);
    EXPECT_EQ(vok_init(2, "lpt1", 3, 0), 1) << int(status);
  }
  EXPECT_TRUE(log.has("error: 0: vok/port: Key 1 or Key 2 pressed/Keys not connected.: Invalid argument"));
  lpt1.set_status(0x30);  // key 3 is not checked
  EXPECT_EQ(vok_init(3, VOK_LPT1, 3), 0);

  box.slow_ms = 5;  // one reading of the serial lines takes 5 ms
  for (const long maxpoll : {3, 4, 10, 0, -1}) {
    const int expected = maxpoll == 3 || maxpoll == 4 ? 1 : 0;
    EXPECT_EQ(vok_init(2, "COM1", maxpoll, 0), expected) << maxpoll;
  }
  EXPECT_TRUE(log.has("vok/port: Polling too slow, please check serial port driver.: Input/output error"));
  // "maxpoll" from the configuration switches the check off.
  LogCapture cfg({"-cfg=" + dir.write("x.cfg", "maxpoll = 0\n"), "-vok-port=COM2"});
  ASSERT_EQ(config_init(), 0);
  EXPECT_EQ(vok_init(2, 0), 0);
  EXPECT_EQ(vok_port(), 11);
  LogCapture defaults({lpt1.arg()});
  config_done();
  EXPECT_EQ(vok_init(3, 0), 0);
  EXPECT_TRUE(defaults.has("Using the default 3 for maxpoll") && defaults.has("Using the default lpt1 for vok-port"));
}

TEST_F(Vok, DecodingOfBothKindsOfPort) {
  const struct {
    bool serial;
    int status, keys, code, result;
  } kCases[] = {
      // parallel: key 1 tested first
      {false, 0x38, 3, 0, 0}, {false, 0x28, 2, 1, 0}, {false, 0x18, 2, 2, 0}, {false, 0x18, 1, 1, 0},
      {false, 0x08, 2, 1, 0}, {false, 0x30, 3, 3, 0}, {false, 0x30, 2, 0, 0}, {false, 0x00, 0, 0, 0},
      {false, 0xf8, 1, 0, 0}, {false, 0xe7, 3, 1, 0},
      // serial: key 2 tested first; with one key, both lines clear is an error
      {true, 0x30, 2, 0, 0}, {true, 0x20, 2, 1, 0}, {true, 0x10, 2, 2, 0}, {true, 0x10, 1, 1, 0},
      {true, 0x00, 2, 2, 0}, {true, 0x00, 1, 0, -1}, {true, 0x00, 0, 0, -1}, {true, 0x38, 3, 0, 0},
  };
  for (const auto& c : kCases) {
    int code = 77;
    EXPECT_EQ(vok_decode(c.serial, static_cast<unsigned char>(c.status), c.keys, code), c.result)
        << c.serial << " " << c.status << " " << c.keys;
    EXPECT_EQ(code, c.code) << c.serial << " " << c.status << " " << c.keys;
  }
}

TEST_F(Vok, ReadingsAndTheAcknowledgeLine) {
  LogCapture log({lpt1.arg()});
  ASSERT_EQ(vok_init(2, "LPT1", 3, 0), 0);
  int code = -1, ack = -1;
  const struct {
    unsigned char status;
    int code, ack;
  } kReadings[] = {{0x08, 1, 0}, {0x78, 0, 1}, {0x58, 2, 1}};
  for (const auto& r : kReadings) {
    lpt1.set_status(r.status);
    EXPECT_EQ(vok_read(code) + vok_ack_noinvert(ack), 0);
    EXPECT_EQ(code, r.code) << int(r.status);
    EXPECT_EQ(ack, r.ack) << int(r.status);
  }
  ASSERT_EQ(vok_init(1, "COM1", 3, 0), 0);
  box.key1 = box.key2 = true;
  EXPECT_EQ(vok_read(code), -1);
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(log.has("vok/port: Both keys pressed/Keys not connected: Invalid argument"));
  // COM21..COM30 are read by vok_read alone; other numbers by nothing.
  box.key1 = false;
  vok_init(2, static_cast<_vok_port>(35), 0);
  EXPECT_EQ(vok_read(code), 0);
  EXPECT_EQ(code, 2);
  EXPECT_EQ(vok_ack_noinvert(ack), -1);
  vok_init(2, static_cast<_vok_port>(60), 0);
  code = 5;
  EXPECT_EQ(vok_read(code), -1);
  EXPECT_TRUE(log.has("vok/port: Invalid argument"));
  serial_done();
  vok_init(2, VOK_COM1, 0);
  EXPECT_EQ(vok_read(code), -1);  // a read error leaves the code
  EXPECT_EQ(code, 5);
}

TEST_F(Vok, ReactionKeyLayerReadsTheBox) {
  LogCapture log({lpt2.arg(), "-vok-port=LPT2"});
  ASSERT_EQ(taste_init(2, TASTE_VOK, 100, 0), 0);
  lpt2.set_status(0x18);
  int code = 0;
  EXPECT_EQ(taste_read(code), 0);
  EXPECT_EQ(code, 2);
  EXPECT_EQ(taste_init(2, TASTE_VOK, 100, 0), 1);  // a key held at start-up
}

}  // namespace
