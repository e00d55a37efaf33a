// The foot pedal and the game port: decoding with the ball-only and
// heel-only restrictions, port names, game port addresses, failures, and
// the reaction-key layer reading the pedal.
#include "input/fuss.h"

#include "input/game.h"
#include "input/taste.h"
#include "sim_port.h"
#include "test_support.h"

namespace {

struct Fuss : ::testing::Test {
  void SetUp() override { test_allegro(), fuss_reset(), game_init(static_cast<unsigned short>(0)); }
  void TearDown() override { fuss_reset(), taste_reset(), game_init(static_cast<unsigned short>(0)); }
  TempDir dir;
  SimPort lpt2{dir, 2};
};

TEST_F(Fuss, DecodingWithAndWithoutRestrictions) {
  // Codes without a flag, ball-only, heel-only, both flags.
  // Parallel: 0x20 contact 1, 0x08 contact 4, 0x10 ball (clear = pressed),
  // 0x80 heel (set = pressed). Game port, clear = pressed: 0x80 contact 1,
  // 0x10 contact 4, 0x20 ball, 0x40 heel.
  const struct { bool game; unsigned char in; int codes[4]; } kRows[] = {
      {0, 0x38, {0, 0, 0, 0}}, {0, 0x28, {2, 2, 0, 0}}, {0, 0xb8, {3, 0, 3, 0}}, {0, 0xa8, {9, 2, 3, 0}},
      {0, 0xa0, {4, 2, 3, 0}}, {0, 0x00, {1, 2, 0, 0}}, {1, 0xff, {0, 0, 0, 0}}, {1, 0xd0, {2, 2, 0, 0}},
      {1, 0xb0, {3, 0, 3, 0}}, {1, 0x90, {9, 2, 3, 0}}, {1, 0x80, {4, 2, 3, 0}}, {1, 0x00, {1, 2, 3, 0}}};
  for (const auto& r : kRows)
    for (int flags = 0; flags < 4; ++flags)
      EXPECT_EQ((r.game ? fuss_decode_game : fuss_decode_lpt)(r.in, flags & 1, flags >> 1), r.codes[flags])
          << r.game << " " << +r.in << " " << flags;
}

TEST_F(Fuss, PortsRestrictionsAndFailures) {
  LogCapture log({lpt2.arg(), "-lpt3-device=none", "-game-port=0", "-fuss-port=LPT2", "-fuss-only3=ferse"});
  // Port names and restrictions by substring.
  lpt2.set_status(0xa8);  // ball and heel pressed
  const struct { const char *port, *only2, *only3; int result, code; } kCases[] = {
      {"mylpt2", "no", "no", 0, 9}, {"LPT2", "Ballen", "no", 0, 2}, {"LPT2", "x", "Ferse", 0, 3},
      {"lpt2", "YES", "yes", 0, 0}, {"Lpt2", "no", "no", -1, 0},    {"lpt3", "no", "no", 1, 0},
      {"GAME", "no", "no", 1, 0}};
  for (const auto& c : kCases) {
    int code = -1;
    ASSERT_EQ(fuss_init(c.port, c.only2, c.only3), c.result) << c.port;
    if (c.result != 0) continue;
    EXPECT_EQ(std::make_tuple(fuss_read(code), code), std::make_tuple(0, c.code)) << c.port << c.only2 << c.only3;
  }
  EXPECT_TRUE(log.has("Lpt2: Invalid argument") && log.has(": 0: Invalid argument"));  // the game port's address
  // The pedal's data lines held low; the trace keeps one of the repeated writes.
  EXPECT_EQ(lpt2.data(), std::vector<int>{0});
  // The game port's address: decimal first.
  for (const auto& a : {std::make_pair("0", 0), std::make_pair("0x201", 0x201), std::make_pair("201", 201)})
    EXPECT_TRUE(game_init(a.first) == (a.second ? 0 : -1) && game_address() == a.second) << a.first;
  game_init(static_cast<unsigned short>(0));
  const struct { _fuss_port port; int (*read)(int&); int code; const char* text; } kFailures[] = {
      {FUSS_GAME, fuss_read_lpt, 0, "fuss/lpt: Invalid argument"},
      {static_cast<_fuss_port>(7), fuss_read, 0, "fuss/read: Invalid argument"},
      {FUSS_GAME, fuss_read, 5, "game_port: Invalid argument"}};  // no address; a failed read leaves the code
  for (const auto& c : kFailures) {
    int code = 5;
    fuss_init(c.port, 0, 0);
    EXPECT_EQ(std::make_tuple(c.read(code), code), std::make_tuple(-1, c.code)) << c.text;
    EXPECT_TRUE(log.has(c.text)) << c.text;
  }
  ASSERT_EQ(taste_init(2, TASTE_FUSS, 100, 0), 0);  // both contacts: only the heel counts
  int code = -1;
  EXPECT_EQ(std::make_tuple(taste_read(code), code), std::make_tuple(0, 3));
  // Without the right to port I/O (root or CAP_SYS_RAWIO) the read is refused.
  fuss_init(FUSS_GAME, 0, 0);
  ASSERT_EQ(game_init("0x201"), 0);
  code = 5;
  if (fuss_read(code) == 0) GTEST_SKIP() << "this process may do port I/O";
  EXPECT_TRUE(log.has("game_port: Permission denied"));
  EXPECT_EQ(code, 5);
}

}  // namespace
