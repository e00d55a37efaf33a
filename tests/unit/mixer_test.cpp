// The sound output's arithmetic on a fake device: where a voice due at a
// moment lands in the stream, how voices add up, late starts, and the frame
// clock following a device that runs at its own rate.
#include <allegro.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "sound/mixer.h"

namespace {

// A sample of `frames` frames, every one holding the same value(s) (signed;
// stored unsigned as Allegro keeps them).
struct test_sample {
  test_sample(int bits, bool stereo, int freq, unsigned long frames, int left, int right = 0)
      : s{bits, stereo, freq, 128, frames, 0, 0, 0, nullptr}, data(frames * (stereo ? 2 : 1)) {
    for (size_t i = 0; i < data.size(); ++i) {
      const int v = stereo && i % 2 ? right : left;
      if (bits == 8) reinterpret_cast<uint8_t*>(data.data())[i] = static_cast<uint8_t>(128 + v);
      else data[i] = static_cast<uint16_t>(32768 + v);
    }
    s.data = data.data();
  }
  SAMPLE s;
  std::vector<uint16_t> data;  // 8-bit values packed in its first bytes
};

std::vector<int16_t> mix(sound_mixer& m, unsigned frames) {
  std::vector<int16_t> out(2 * frames);
  m.mix(out.data(), frames);
  return out;
}

size_t first_sound(const std::vector<int16_t>& out) {
  for (size_t i = 0; i < out.size(); ++i)
    if (out[i] != 0) return i / 2;
  return out.size();
}

TEST(Mixer, AVoiceDueAtAMomentStartsOnTheFrameThatLeavesTheDeviceThen) {
  // The device plays frame 0 at 1 s; a voice is due 10 ms and a bit later.
  struct Case { double due_us; int64_t frame; } cases[] = {{1e6 + 10000, 441}, {1e6 + 10010, 442}, {1e6 + 22.675737, 1}, {1e6 + 20000, 882}};
  for (const Case& c : cases) {
    sound_clock clock;
    clock.reset(44100, 88), clock.observe(0, 1e6);
    sound_mixer m(44100);
    test_sample tone(16, false, 44100, 100, 10000);
    const int v = m.allocate(&tone.s);
    EXPECT_EQ(m.start(v, clock.frame_at(c.due_us)), c.frame) << c.due_us;
    const std::vector<int16_t> out = mix(m, 2000);
    EXPECT_EQ(first_sound(out), static_cast<size_t>(c.frame)) << c.due_us;
    EXPECT_GE(clock.time_of(c.frame), c.due_us - 1e-3);
    EXPECT_LT(clock.time_of(c.frame), c.due_us + 1e6 / 44100);
  }
}

TEST(Mixer, VoicesAddUpAtHalfTheirVolumeOnEachSideAndClip) {
  // bits, stereo, the sample's values, volume, voices, what comes out
  struct Case { int bits; bool stereo; int left, right, volume, voices, out_left, out_right; } cases[] = {
      // centred: half on each side; two overlapping voices add up, and clip on both sides of zero
      {16, false, 20000, 0, 255, 1, 10000, 10000}, {16, false, 20000, 0, 255, 2, 20000, 20000},
      {16, false, 20000, 0, 255, 4, 32767, 32767}, {16, false, -20000, 0, 255, 4, -32768, -32768},
      {16, false, 20000, 0, 51, 1, 2000, 2000}, {16, false, 20000, 0, 0, 1, 0, 0},  // volume 51 and 0 of 255
      {16, true, 30000, -30000, 255, 1, 15000, -15000},
      {8, false, 100, 0, 255, 1, 12800, 12800}, {8, true, 127, -128, 255, 2, 32512, -32768}};  // 8 bit scaled to 16
  for (const Case& c : cases) {
    sound_mixer m(44100);
    test_sample s(c.bits, c.stereo, 44100, 50, c.left, c.right);
    for (int i = 0; i < c.voices; ++i) {
      const int v = m.allocate(&s.s);
      m.set_volume(v, c.volume), m.start(v, 0);
    }
    const std::vector<int16_t> out = mix(m, 60);
    const std::string what = std::to_string(c.bits) + (c.stereo ? " stereo " : " mono ") + std::to_string(c.voices);
    EXPECT_EQ(out[0], c.out_left) << what;
    EXPECT_EQ(out[1], c.out_right) << what;
    EXPECT_EQ(out[2 * 50], 0) << what << ": silent after the sample's end";
  }
}

TEST(Mixer, ALateVoiceStartsAtOnceAndTheVoiceEndsWhenHeardToItsEnd) {
  sound_mixer m(44100);
  test_sample half_rate(16, false, 22050, 100, 1000);
  mix(m, 500);  // frames 0..499 are gone to the device
  const int v = m.allocate(&half_rate.s);
  EXPECT_EQ(m.start(v, 300), 500);
  const std::vector<int16_t> out = mix(m, 400);
  EXPECT_EQ(first_sound(out), 0u);
  // 100 frames at half the stream's rate last 200 stream frames.
  EXPECT_EQ(m.end(v), 700);
  struct Case { int64_t heard; int position; } cases[] = {{499, 0}, {500, 0}, {600, 50}, {699, 99}, {700, -1}};
  for (const Case& c : cases) EXPECT_EQ(m.position(v, c.heard), c.position) << c.heard;
  m.forget(&half_rate.s);
  EXPECT_EQ(m.position(v, 600), -1);
  m.release(v);
  EXPECT_NE(m.allocate(&half_rate.s), -1);
}

TEST(Mixer, TheFrameClockFollowsTheDevicesOwnRate) {
  // A device whose frames leave at 44.1 kHz × (1 + ppm), observed once a
  // period with the thread's wake-up jitter, over 30 s; and a sound server
  // that runs 1000 ppm fast for its first 5 s and at the given rate after.
  struct Case { double ppm, jitter_us, first_ppm; } cases[] = {{0, 0, 0}, {200, 0, 200}, {200, 150, 200}, {-200, 150, -200}, {700, 200, 1000}};
  for (const Case& c : cases) {
    const double rate = 44100 * (1 + c.ppm * 1e-6), first_rate = 44100 * (1 + c.first_ppm * 1e-6);
    const double t0 = 5e6;
    // Frames left by t, and the moment frame f leaves.
    auto left = [&](double t) { return t < t0 + 5e6 ? (t - t0) * first_rate / 1e6 : 5 * first_rate + (t - t0 - 5e6) * rate / 1e6; };
    auto moment = [&](double f) { return f < 5 * first_rate ? t0 + f * 1e6 / first_rate : t0 + 5e6 + (f - 5 * first_rate) * 1e6 / rate; };
    sound_clock clock;
    clock.reset(44100, 88);
    uint32_t seed = 7;
    double worst = 0;
    for (int k = 0; k < 15000; ++k) {
      seed = seed * 1664525u + 1013904223u;
      const double t = t0 + k * 2000 + c.jitter_us * (seed >> 8) / double(1 << 24);
      const int64_t leaving = static_cast<int64_t>(left(t));
      clock.observe(leaving, t);
      if (k < 5000) continue;
      // A frame 10 ms ahead, as a voice is placed.
      const int64_t f = leaving + 441;
      worst = std::max(worst, std::fabs(clock.time_of(f) - moment(static_cast<double>(f))));
    }
    EXPECT_LT(worst, 25) << c.ppm << " ppm, jitter " << c.jitter_us << ", at first " << c.first_ppm;
    EXPECT_NEAR(clock.rate(), rate, 44100 * 5e-6) << c.ppm;
  }
}

TEST(Mixer, TheFrameClockStartsAgainAfterTheStreamBroke) {
  sound_clock clock;
  clock.reset(44100, 88);
  for (int k = 0; k < 100; ++k) EXPECT_TRUE(clock.observe(88 * k, 1e6 + k * 1995.46));
  // An underrun: the same frame leaves 30 ms later than the line says.
  const double late = clock.time_of(8800) + 30000;
  EXPECT_FALSE(clock.observe(8800, late));
  EXPECT_DOUBLE_EQ(clock.time_of(8800), late);
  EXPECT_NEAR(clock.time_of(8800 + 441), late + 10000, 1);
}

}  // namespace
