// The sound output's arithmetic on a fake device: where a voice due at a
// moment lands in the stream, how voices add up, late starts, and the frame
// clock following a device that runs at its own rate.
#include "test_support.h"

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

// A device whose clock runs `ppm` fast: it takes frames from the buffer at
// 44.1 kHz × (1 + ppm) from t0 on, in chunks of `step` frames (its pointer
// is the nearest chunk's end), and holds `held` of them before they leave.
struct fake_device {
  double ppm, held, step = 1;
  double t0 = 5e6;
  double rate() const { return 44100 * (1 + ppm * 1e-6); }
  int64_t taken(double t) const { return static_cast<int64_t>(std::round((t - t0) * rate() / 1e6 / step) * step); }
  double leaves(int64_t f) const { return t0 + (static_cast<double>(f) + held) * 1e6 / rate(); }
};

TEST(Mixer, TheFrameClockKeepsTheDevicesRateThroughNoisyDelayReadings) {
  // The delay a sound server reports wanders (its own estimate, here up to
  // `wander` frames and back over 30 s) while the frames it takes keep
  // their pace; the clock must follow the pace, not the wander, from 2 s on.
  struct Case { double ppm, jitter_us, step, wander, worst_us; } cases[] = {
      {0, 0, 1, 0, 25},      {200, 0, 1, 0, 25},     {200, 150, 1, 0, 40}, {-200, 150, 1, 0, 40},
      {200, 150, 1, 45, 40}, {200, 400, 1, 45, 60},  // and a server taking 4 ms at once, read at any moment:
      {200, 2000, 176, 0, 150}, {200, 2000, 176, 45, 150}};
  for (const Case& c : cases) {
    const fake_device dev{c.ppm, 120, c.step};
    sound_clock clock;
    clock.reset(44100, 88);
    uint32_t seed = 7;
    auto noise = [&] {
      seed = seed * 1664525u + 1013904223u;
      return (seed >> 8) / double(1 << 24);
    };
    double worst = 0;
    for (int k = 0; k < 30000; ++k) {
      const double t = dev.t0 + k * 2000 + c.jitter_us * noise();
      const double drift = c.wander * (1 - std::cos((t - dev.t0) / 30e6 * 2 * M_PI)) / 2;
      const double reported = dev.held + drift + 20 * (noise() - 0.5);
      EXPECT_TRUE(clock.observe(dev.taken(t), t, reported));
      if (k < 1000) continue;
      // A frame 20 ms ahead, as a voice is placed.
      const int64_t f = dev.taken(t) + 882;
      worst = std::max(worst, std::fabs(clock.time_of(f) - dev.leaves(f)));
    }
    const std::string what = std::to_string(c.ppm) + " ppm, jitter " + std::to_string(c.jitter_us) + ", steps of " +
                             std::to_string(c.step) + ", wander " + std::to_string(c.wander);
    EXPECT_TRUE(clock.settled()) << what;
    EXPECT_LT(worst, c.worst_us) << what;
    EXPECT_NEAR(clock.rate(), dev.rate(), 44100 * 3e-6) << what;
    EXPECT_EQ(clock.frame_at(clock.time_of(1234567)), 1234567) << what;
  }
}

TEST(Mixer, TheFrameClockLeavesOutStraysAndFollowsAStreamThatMoved) {
  // After 10 s on a device 200 ppm fast, the device's frames leave `shift`
  // µs later than before for `count` observations (one per 2 ms), or the
  // stream was restarted; then the clock either stays on its line or
  // continues from the new one, with the rate it had.
  struct Case { double shift_us; int count; bool restarted, moved; } cases[] = {
      {30000, 1, false, false},   // one stray observation
      {-8000, 3, false, false},   // a few: a stall, not a move
      {30000, 40, false, true},   // the device ran dry and plays on later
      {-8000, 40, false, true},   // or skipped frames
      {2000, 40, false, true},    // a small move, which the fit would take for a change of rate
      {6000, 1, true, true},      // an underrun: the stream started again
  };
  for (const Case& c : cases) {
    const fake_device dev{200, 0, 1};
    sound_clock clock;
    clock.reset(44100, 88);
    double t = dev.t0;
    for (; t < dev.t0 + 10e6; t += 2000) clock.observe(dev.taken(t), t);
    if (c.restarted) {
      clock.restart();
      const int64_t f = dev.taken(t) + 882;
      EXPECT_NEAR(clock.time_of(f), dev.leaves(f), 50) << "the old line until the first new observation";
    }
    int lines_started = 0;
    for (int k = 0; k < c.count; ++k, t += 2000) lines_started += !clock.observe(dev.taken(t), t + c.shift_us);
    const std::string what = std::to_string(c.shift_us) + " us x " + std::to_string(c.count);
    EXPECT_EQ(lines_started, c.moved && !c.restarted ? 1 : 0) << what;
    const int64_t f = dev.taken(t) + 882;
    EXPECT_NEAR(clock.time_of(f), dev.leaves(f) + (c.moved ? c.shift_us : 0), 50) << what;
    EXPECT_NEAR(clock.time_of(f + 441000) - clock.time_of(f), 10e6 / (1 + 200e-6), 5) << what << ": the rate kept";
  }
}

}  // namespace
