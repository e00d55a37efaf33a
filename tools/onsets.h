// Finds where tones begin in a recording of 16-bit interleaved samples.
// The envelope of a frame is its largest magnitude over the channels. The
// silence level is taken from the quiet part of the recording (a low
// percentile of 1 ms block peaks), the tone level from the loud blocks, and
// a tone begins at the first frame above the midpoint of the two. It ends when
// the envelope stays below a lower threshold for the hold time, so that the
// zero crossings inside a tone do not split it.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cmath>
#include <cstdlib>
#include <vector>

struct onset_params {
  int rate = 44100;
  int channels = 2;
  double hold_ms = 5;      // quiet time that ends a tone
  double min_tone_ms = 1;  // shorter bursts are clicks, not tones
  // Tones must stand this far above the silence level (in sample units);
  // below it the recording is taken as silent throughout.
  int min_contrast = 500;
  // A second tone that starts while one sounds: the envelope rising above
  // one and a half tone levels begins a tone (once per sounding stretch).
  bool steps = false;
};

struct onset {
  size_t start;  // first frame above the threshold
  size_t end;    // one past the last loud frame
};

struct onset_levels {
  int silence = 0;  // typical peak of a quiet 1 ms block
  int tone = 0;     // typical peak of a loud 1 ms block
  int threshold = 0;
};

inline int onset_envelope(const int16_t* samples, size_t frame, int channels) {
  int m = 0;
  for (int c = 0; c < channels; ++c) m = std::max(m, std::abs(static_cast<int>(samples[frame * channels + c])));
  return m;
}

inline onset_levels onset_levels_of(const int16_t* samples, size_t frames, const onset_params& p) {
  onset_levels l;
  const size_t block = std::max<size_t>(1, static_cast<size_t>(p.rate / 1000));
  std::vector<int> peaks;
  for (size_t i = 0; i < frames; i += block) {
    int peak = 0;
    for (size_t j = i; j < std::min(frames, i + block); ++j) peak = std::max(peak, onset_envelope(samples, j, p.channels));
    peaks.push_back(peak);
  }
  if (peaks.empty()) return l;
  std::sort(peaks.begin(), peaks.end());
  // Tones may fill up to four fifths of the recording before the silence
  // level is mistaken. The tone level is the median peak of the blocks well
  // above it, so that a click or a clipped burst does not raise it.
  l.silence = peaks[peaks.size() / 5];
  const auto loud = std::upper_bound(peaks.begin(), peaks.end(), l.silence + p.min_contrast);
  l.tone = loud == peaks.end() ? peaks.back() : *(loud + (peaks.end() - loud) / 2);
  l.threshold = l.silence + (l.tone - l.silence) / 2;
  return l;
}

inline std::vector<onset> find_onsets(const int16_t* samples, size_t frames, const onset_params& p,
                                      onset_levels* levels = nullptr) {
  std::vector<onset> found;
  const onset_levels l = onset_levels_of(samples, frames, p);
  if (levels) *levels = l;
  if (l.tone - l.silence < p.min_contrast) return found;
  const int low = l.silence + (l.tone - l.silence) / 4;
  const size_t hold = static_cast<size_t>(p.hold_ms * p.rate / 1000);
  const size_t min_len = static_cast<size_t>(p.min_tone_ms * p.rate / 1000);
  const int step = l.tone + (l.tone - l.silence) / 2;
  bool in = false, stepped = false;
  size_t start = 0, last_loud = 0;
  for (size_t i = 0; i < frames; ++i) {
    const int e = onset_envelope(samples, i, p.channels);
    if (!in) {
      if (e > l.threshold) {
        in = true;
        stepped = false;
        start = last_loud = i;
      }
      continue;
    }
    if (p.steps && !stepped && e > step) {
      found.push_back({start, i});
      start = i;
      stepped = true;
    }
    if (e > low) last_loud = i;
    if (i - last_loud >= hold) {
      if (last_loud + 1 - start >= min_len) found.push_back({start, last_loud + 1});
      in = false;
    }
  }
  // A tone still sounding where the recording ends counts from its start.
  if (in && last_loud + 1 - start >= min_len) found.push_back({start, last_loud + 1});
  return found;
}

// Pairs tones found in a recording with the tones scheduled. Both are
// positions in frames, the scheduled ones on their own origin: the offset
// between the two is the one that lets most scheduled tones find a found
// one within the tolerance (of the offsets that do, the one with the
// smallest sum of distances). Each scheduled tone then takes the nearest
// found tone within the tolerance that no other took.
struct onset_pairing {
  double offset = 0;            // found - scheduled, as chosen
  std::vector<long> found_for;  // per scheduled tone: index of its found tone, or -1
  size_t missing = 0;           // scheduled tones with none found
  size_t extra = 0;             // found tones that belong to none scheduled
};

inline onset_pairing pair_onsets(const std::vector<double>& scheduled, const std::vector<double>& found,
                                 double tolerance) {
  onset_pairing best;
  best.found_for.assign(scheduled.size(), -1);
  best.missing = scheduled.size();
  best.extra = found.size();
  if (scheduled.empty() || found.empty()) return best;
  std::vector<double> sorted = found;
  std::sort(sorted.begin(), sorted.end());
  auto nearest = [&](double x) {
    auto it = std::lower_bound(sorted.begin(), sorted.end(), x);
    double d = 1e300;
    if (it != sorted.end()) d = *it - x;
    if (it != sorted.begin()) d = std::min(d, x - *(it - 1));
    return d;
  };
  size_t best_hits = 0;
  double best_sum = 0;
  for (double f : found)
    for (double s : scheduled) {
      const double offset = f - s;
      size_t hits = 0;
      double sum = 0;
      for (double x : scheduled) {
        const double d = nearest(x + offset);
        if (d <= tolerance) {
          ++hits;
          sum += d;
        }
      }
      if (hits > best_hits || (hits == best_hits && sum < best_sum)) {
        best_hits = hits;
        best_sum = sum;
        best.offset = offset;
      }
    }
  std::vector<bool> taken(found.size(), false);
  best.missing = 0;
  for (size_t i = 0; i < scheduled.size(); ++i) {
    long pick = -1;
    double d = tolerance;
    for (size_t j = 0; j < found.size(); ++j) {
      const double dj = std::abs(found[j] - (scheduled[i] + best.offset));
      if (!taken[j] && dj <= d) {
        d = dj;
        pick = static_cast<long>(j);
      }
    }
    best.found_for[i] = pick;
    if (pick >= 0)
      taken[static_cast<size_t>(pick)] = true;
    else
      ++best.missing;
  }
  best.extra = static_cast<size_t>(std::count(taken.begin(), taken.end(), false));
  return best;
}
