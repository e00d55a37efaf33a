// The onset finder of the sound benchmark on synthetic recordings, and the
// pairing of found tones with scheduled ones.
#include "test_support.h"

#include "tools/onsets.h"

namespace {

const int kRate = 44100;

struct recording {
  int channels;
  std::vector<int16_t> s;
  recording(int ch, size_t frames) : channels(ch), s(frames * static_cast<size_t>(ch), 0) {}
  size_t frames() const { return s.size() / static_cast<size_t>(channels); }
  // A tone on channel c (-1: all) from frame `at` for `len` frames: a square
  // wave, or a sine starting at phase 0.
  recording& tone(size_t at, size_t len, int amp, int c = -1, double sine_hz = 0) {
    for (size_t i = at; i < std::min(frames(), at + len); ++i) {
      const double ph = static_cast<double>(i - at) / kRate;
      const int v = sine_hz > 0 ? static_cast<int>(amp * std::sin(2 * M_PI * sine_hz * ph))
                                : ((i - at) / 22 % 2 ? -amp : amp);
      for (int k = 0; k < channels; ++k)
        if (c < 0 || c == k) s[i * static_cast<size_t>(channels) + static_cast<size_t>(k)] = static_cast<int16_t>(v);
    }
    return *this;
  }
  // Deterministic noise of the given peak over the whole recording.
  recording& noise(int peak) {
    uint32_t x = 12345;
    for (int16_t& v : s) {
      x = x * 1103515245u + 12345u;
      v = static_cast<int16_t>(v + static_cast<int>((x >> 16) % static_cast<uint32_t>(2 * peak + 1)) - peak);
    }
    return *this;
  }
  std::vector<onset> find(onset_levels* l = nullptr) const {
    onset_params p;
    p.rate = kRate, p.channels = channels;
    return find_onsets(s.data(), frames(), p, l);
  }
};

std::vector<size_t> starts(const std::vector<onset>& v) {
  std::vector<size_t> r;
  for (const onset& o : v) r.push_back(o.start);
  return r;
}

// Recordings of square tones (or a sine from phase 0) and the tones found, each
// start and end within `slack` frames after the given ones; the tone level when
// non-zero. A sine crosses half its amplitude a twelfth of a period in, and a
// 1 kHz one crosses zero every 22 frames: the hold keeps it one tone.
TEST(Onsets, TonesFoundFromTheirFirstFrameAfterSilence) {
  struct Tone { size_t at, len; int amp, channel; double sine_hz; };
  const struct { const char* what; int channels; size_t frames; std::vector<Tone> tones; std::vector<onset> found;
                 size_t slack; int tone_level; } cases[] = {
      {"square and sine", 1, kRate, {{10000, 1323, 12000, -1, 0}, {30000, 1323, 12000, -1, 1000}},
       {{10000, 11323}, {30000, 31320}}, 4, 0},
      {"a gap of 10 ms separates, one of 2 ms does not", 1, kRate,
       {{1000, 1323, 12000, -1, 0}, {1000 + 1323 + 441, 1323, 12000, -1, 0}, {20000, 1323, 12000, -1, 0},
        {20000 + 1323 + 88, 1323, 12000, -1, 0}},
       {{1000, 2323}, {2764, 4087}, {20000, 20000 + 2 * 1323 + 88}}, 0, 0},
      {"a click is no tone and leaves the tone level", 1, kRate,
       {{3000, 1323, 8000, -1, 0}, {9000, 20, 32767, -1, 0}, {15000, 1323, 8000, -1, 0}},
       {{3000, 4323}, {15000, 16323}}, 0, 8000},
      {"cut off by the end", 1, 20000, {{5000, 1323, 12000, -1, 0}, {20000 - 132, 1323, 12000, -1, 0}},
       {{5000, 6323}, {20000 - 132, 20000}}, 0, 0},
      {"stereo: either channel counts", 2, kRate,
       {{1000, 1323, 12000, 0, 0}, {8000, 1323, 12000, 1, 0}, {16000, 1323, 12000, -1, 0}},
       {{1000, 2323}, {8000, 9323}, {16000, 17323}}, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    recording r(c.channels, c.frames);
    for (const Tone& t : c.tones) r.tone(t.at, t.len, t.amp, t.channel, t.sine_hz);
    onset_levels l;
    const std::vector<onset> o = r.find(&l);
    ASSERT_EQ(o.size(), c.found.size()) << ::testing::PrintToString(starts(o));
    for (size_t i = 0; i < o.size(); ++i)
      EXPECT_TRUE(o[i].start - c.found[i].start <= c.slack && o[i].end - c.found[i].end <= c.slack)
          << i << ": " << o[i].start << "-" << o[i].end;
    EXPECT_TRUE(!c.tone_level || l.tone == c.tone_level) << l.tone;
  }
  // The same stereo samples read as mono are twice as many frames.
  recording r(2, kRate);
  r.tone(1000, 1323, 12000, 0);
  onset_params mono;
  mono.channels = 1;
  const std::vector<onset> m = find_onsets(r.s.data(), r.s.size(), mono);
  EXPECT_TRUE(!m.empty() && m[0].start == 2000u);
}

TEST(Onsets, NoiseFloorSetsTheSilenceLevelAndMakesNoTones) {
  recording r(2, kRate);
  r.noise(2500).tone(5000, 1323, 12000).tone(20000, 1323, 12000);
  onset_levels l;
  EXPECT_EQ(starts(r.find(&l)), (std::vector<size_t>{5000, 20000}));
  EXPECT_TRUE(l.silence > 2000 && l.silence < 2600 && l.threshold > l.silence) << l.silence << " " << l.threshold;
  // Noise alone, or a recording of silence, holds no tone.
  EXPECT_TRUE(recording(2, kRate).noise(2500).find().empty());
  EXPECT_TRUE(recording(2, kRate).find().empty() && recording(2, 0).find().empty());
}

TEST(Onsets, ASecondToneStartingInsideOneIsFoundWhereTheSumRises) {
  recording r(1, kRate);
  // Tones of 30 ms, the second of each pair 10 ms after the first (in phase,
  // as a mixer placing them on their frames makes them), and lone ones.
  const size_t pairs[] = {2000, 9000, 30000};
  for (size_t at : pairs) r.tone(at, 1323, 8000);
  for (size_t at : pairs) {
    recording second(1, kRate);
    second.tone(at + 441, 1323, 8000);
    for (size_t i = 0; i < r.s.size(); ++i) r.s[i] = static_cast<int16_t>(r.s[i] + second.s[i]);
  }
  r.tone(16000, 1323, 8000).tone(23000, 1323, 8000);
  onset_params p;
  p.channels = 1, p.steps = true;
  EXPECT_EQ(starts(find_onsets(r.s.data(), r.frames(), p)),
            (std::vector<size_t>{2000, 2441, 9000, 9441, 16000, 23000, 30000, 30441}));
  EXPECT_EQ(r.find().size(), 5u) << "without steps a pair is one tone";
}

TEST(OnsetPairing, FindsTheOffsetThroughJitterAndCountsMissingAndExtraTones) {
  const std::vector<double> scheduled{0, 9000, 22000, 31000, 44000, 57000};
  std::vector<double> found;
  const double jitter[] = {30, -200, 150, 0, -90, 400};
  for (size_t i = 0; i < scheduled.size(); ++i) found.push_back(scheduled[i] + 100000 + jitter[i]);
  onset_pairing p = pair_onsets(scheduled, found, 3000);
  EXPECT_TRUE(std::fabs(p.offset - 100000) <= 400 && p.missing == 0 && p.extra == 0) << p.offset;
  for (size_t i = 0; i < scheduled.size(); ++i) EXPECT_EQ(p.found_for[i], static_cast<long>(i));

  // The third tone lost, a click between the fourth and fifth, and a
  // found list in no particular order.
  std::vector<double> f2{found[5], found[0], found[1], found[3], found[4], 100000 + 37000};
  p = pair_onsets(scheduled, f2, 3000);
  EXPECT_TRUE(p.missing == 1 && p.extra == 1 && p.found_for[2] == -1 && p.found_for[5] == 0 && p.found_for[0] == 1);
  EXPECT_EQ(pair_onsets(scheduled, {}, 3000).missing, scheduled.size());
  EXPECT_EQ(pair_onsets({}, found, 3000).extra, found.size());
}

}  // namespace
