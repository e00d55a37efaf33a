// The foot pedal and the game port: decoding with the ball-only and
// heel-only restrictions, port names, game port addresses, failures, and
// the reaction-key layer reading the pedal.
#include "input/fuss.h"

#include <gtest/gtest.h>

#include "input/game.h"
#include "input/taste.h"
#include "sim_port.h"
#include "test_support.h"

namespace {

class Fuss : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fuss_reset();
    game_init(static_cast<unsigned short>(0));
  }
  void TearDown() override {
    fuss_reset();
    taste_reset();
    game_init(static_cast<unsigned short>(0));
  }
  TempDir dir;
  SimPort lpt2{dir, 2};
};

TEST_F(Fuss, DecodingWithAndWithoutRestrictions) {
  // Codes without a flag, ball-only, heel-only, both flags.
  // Parallel: 0x20 contact 1, 0x08 contact 4, 0x10 ball (clear = pressed),
  // 0x80 heel (set = pressed). Game port, clear = pressed: 0x80 contact 1,
  // 0x10 contact 4, 0x20 ball, 0x40 heel.
  const struct {
    bool game;
    int in, plain, ball, heel, both;
  } kRows[] = {
      {false, 0x38, 0, 0, 0, 0}, {false, 0x18, 1, 0, 0, 0}, {false, 0x30, 4, 0, 0, 0}, {false, 0x28, 2, 2, 0, 0},
      {false, 0xb8, 3, 0, 3, 0}, {false, 0xa8, 9, 2, 3, 0}, {false, 0x00, 1, 2, 0, 0}, {false, 0xa0, 4, 2, 3, 0},
      {true, 0xff, 0, 0, 0, 0},  {true, 0x70, 1, 0, 0, 0},  {true, 0xe0, 4, 0, 0, 0},  {true, 0xd0, 2, 2, 0, 0},
      {true, 0xb0, 3, 0, 3, 0},  {true, 0x90, 9, 2, 3, 0},  {true, 0x00, 1, 2, 3, 0},
  };
  for (const auto& r : kRows) {
    const auto decode = r.game ? fuss_decode_game : fuss_decode_lpt;
    const unsigned char in = static_cast<unsigned char>(r.in);
    EXPECT_EQ(decode(in, 0, 0), r.plain) << r.game << " " << r.in;
    EXPECT_EQ(decode(in, 1, 0), r.ball) << r.game << " " << r.in;
    EXPECT_EQ(decode(in, 0, 1), r.heel) << r.game << " " << r.in;
    EXPECT_EQ(decode(in, 1, 1), r.both) << r.game << " " << r.in;
  }
}

TEST_F(Fuss, PortNamesAndRestrictionsBySubstring) {
  LogCapture log({lpt2.arg(), "-lpt3-device=none", "-game-port=0"});
  const struct {
    const char *port, *only2, *only3;
    int result, ball, heel;  // codes then read from LPT2 with ball, heel pressed
  } kCases[] = {
      {"mylpt2", "no", "no", 0, 2, 3},      {"LPT2", "Ballen", "no", 0, 2, 0}, {"LPT2", "x", "Ferse", 0, 0, 3},
      {"lpt2", "YES", "yes", 0, 0, 0},      {"lpt4", "no", "no", -1, 0, 0},    {"Lpt2", "no", "no", -1, 0, 0},
      {"lpt3", "no", "no", 1, 0, 0},        {"GAME", "no", "no", 1, 0, 0},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(fuss_init(c.port, c.only2, c.only3), c.result) << c.port;
    if (c.result != 0) continue;
    int code = -1;
    lpt2.set_status(0x28);
    EXPECT_EQ(fuss_read(code), 0);
    EXPECT_EQ(code, c.ball) << c.port << " " << c.only2 << " " << c.only3;
    lpt2.set_status(0xb8);
    EXPECT_EQ(fuss_read(code), 0);
    EXPECT_EQ(code, c.heel) << c.port << " " << c.only2 << " " << c.only3;
  }
  EXPECT_TRUE(log.has("lpt4: Invalid argument") && log.has("Lpt2: Invalid argument"));
  EXPECT_TRUE(log.has(": 0: Invalid argument"));  // the game port's address
  EXPECT_EQ(lpt2.data(), std::vector<int>(4, 0));  // the pedal's data lines held low
}

TEST_F(Fuss, GamePortAddressDecimalFirst) {
  LogCapture log;
  const struct {
    const char* text;
    int result;
    unsigned short address;
  } kCases[] = {{"0", -1, 0}, {"513", 0, 513}, {"0x201", 0, 0x201}, {"201", 0, 201}, {"zz", -1, 0}};
  for (const auto& c : kCases) {
    game_init(static_cast<unsigned short>(0));
    EXPECT_EQ(game_init(c.text), c.result) << c.text;
    EXPECT_EQ(game_address(), c.address) << c.text;
  }
  EXPECT_TRUE(log.has("zz: Invalid argument"));
  EXPECT_EQ(game_init(), 0);
  EXPECT_EQ(game_address(), 0x201);
}

TEST_F(Fuss, ReadFailures) {
  LogCapture log;
  int code = 5;
  fuss_init(FUSS_GAME, 0, 0);
  EXPECT_EQ(fuss_read_lpt(code), -1);
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(log.has("fuss/lpt: Invalid argument"));
  code = 5;
  fuss_init(static_cast<_fuss_port>(7), 0, 0);
  EXPECT_EQ(fuss_read(code), -1);
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(log.has("fuss/read: Invalid argument"));
  code = 5;
  fuss_init(FUSS_GAME, 0, 0);
  EXPECT_EQ(fuss_read(code), -1);  // no game port address
  EXPECT_EQ(code, 5);              // a failed read leaves the code
  EXPECT_TRUE(log.has("game_port: Invalid argument"));
  ASSERT_EQ(game_init("0x201"), 0);
  // Without the right to port I/O (root or CAP_SYS_RAWIO) the read is refused.
  if (fuss_read(code) == 0) GTEST_SKIP() << "this process may do port I/O";
  EXPECT_TRUE(log.has("game_port: Permission denied"));
  EXPECT_EQ(code, 5);
}

TEST_F(Fuss, ReactionKeyLayerReadsThePedal) {
  LogCapture log({lpt2.arg(), "-fuss-port=LPT2", "-fuss-only3=ferse"});
  ASSERT_EQ(taste_init(2, TASTE_FUSS, 100, 0), 0);
  int code = -1;
  lpt2.set_status(0xa8);  // both contacts: only the heel counts
  EXPECT_EQ(taste_read(code), 0);
  EXPECT_EQ(code, 3);
}

}  // namespace
