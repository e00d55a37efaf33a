#include "sound/mixer.h"

#include <allegro.h>

#include <algorithm>
#include <cmath>

namespace {
// Loop bandwidths (Hz): wide while the clock settles, then narrow.
const double kSettleHz = 4, kTrackHz = 0.5;
const long kSettleObservations = 250;
// An observation this far off the line breaks it (µs).
const double kBreakUs = 4000;

double loop_omega(double hz, unsigned period, double us_per_frame) {
  return 2 * M_PI * hz * period * us_per_frame * 1e-6;
}
}  // namespace

void sound_clock::reset(double rate, unsigned period) {
  nominal_us_ = us_per_frame_ = 1e6 / rate;
  period_ = period ? period : 1;
  ready_ = false;
  count_ = 0;
}

bool sound_clock::observe(int64_t frame, double t_us) {
  if (!ready_) {
    f1_ = frame;
    t1_ = t_us;
    us_per_frame_ = nominal_us_;
    ready_ = true;
    count_ = 1;
    return true;
  }
  const double predicted = time_of(frame);
  const double e = t_us - predicted;
  if (std::fabs(e) > kBreakUs) {
    ready_ = false;
    observe(frame, t_us);
    return false;
  }
  // Adriaensen's DLL: the moment moves by b·e, the period by c·e.
  const double w = loop_omega(count_ < kSettleObservations ? kSettleHz : kTrackHz, period_, nominal_us_);
  const double b = std::sqrt(2.0) * w, c = w * w;
  t1_ = predicted + b * e;
  f1_ = frame;
  us_per_frame_ += c * e / period_;
  // A real device is within 0.5 % of its rate; a loop that strays further
  // is not following one.
  us_per_frame_ = std::clamp(us_per_frame_, nominal_us_ * 0.995, nominal_us_ * 1.005);
  ++count_;
  return true;
}

double sound_clock::time_of(int64_t frame) const {
  return t1_ + static_cast<double>(frame - f1_) * us_per_frame_;
}

int64_t sound_clock::frame_at(double t_us) const {
  return f1_ + static_cast<int64_t>(std::ceil((t_us - t1_) / us_per_frame_ - 1e-6));
}

void sound_frame(const SAMPLE* s, unsigned long i, int& left, int& right) {
  const unsigned long k = s->stereo ? 2 * i : i;
  if (s->bits == 8) {
    const unsigned char* d = static_cast<const unsigned char*>(s->data);
    left = (d[k] - 128) * 256;
    right = s->stereo ? (d[k + 1] - 128) * 256 : left;
  } else {
    const unsigned short* d = static_cast<const unsigned short*>(s->data);
    left = static_cast<int>(d[k]) - 32768;
    right = s->stereo ? static_cast<int>(d[k + 1]) - 32768 : left;
  }
}

sound_mixer::sound_mixer(unsigned rate) : rate_(rate ? rate : 44100) {}

void sound_mixer::reset(unsigned rate) {
  std::lock_guard<std::mutex> g(lock_);
  rate_ = rate ? rate : 44100;
  next_ = 0;
  for (voice& v : voices_) v = voice{};
}

int sound_mixer::allocate(const SAMPLE* s) {
  if (!s || !s->data || s->freq <= 0 || (s->bits != 8 && s->bits != 16)) return -1;
  std::lock_guard<std::mutex> g(lock_);
  for (int i = 0; i < kVoices; ++i) {
    if (voices_[i].reserved) continue;
    voice& v = voices_[i];
    v = voice{};
    v.sample = s;
    v.reserved = true;
    v.step = (static_cast<uint64_t>(s->freq) << 32) / rate_;
    return i;
  }
  return -1;
}

void sound_mixer::deallocate(int v) {
  std::lock_guard<std::mutex> g(lock_);
  if (valid(v)) voices_[v] = voice{};
}

void sound_mixer::release(int v) {
  std::lock_guard<std::mutex> g(lock_);
  if (!valid(v)) return;
  if (voices_[v].started) voices_[v].released = true;
  else voices_[v] = voice{};
}

void sound_mixer::set_volume(int v, int volume) {
  std::lock_guard<std::mutex> g(lock_);
  if (valid(v)) voices_[v].volume = std::clamp(volume, 0, 255);
}

int64_t sound_mixer::start(int v, int64_t frame) {
  std::lock_guard<std::mutex> g(lock_);
  if (!valid(v)) return -1;
  voice& x = voices_[v];
  x.start = std::max(frame, next_);
  x.end = 0;
  x.ended = false;
  x.pos = 0;
  x.started = true;
  return x.start;
}

void sound_mixer::stop(int v) {
  std::lock_guard<std::mutex> g(lock_);
  if (valid(v)) voices_[v].started = false;
}

int sound_mixer::position(int v, int64_t heard) const {
  std::lock_guard<std::mutex> g(lock_);
  if (!valid(v) || !voices_[v].started) return -1;
  const voice& x = voices_[v];
  if (heard < x.start) return 0;
  if (x.ended && heard >= x.end) return -1;
  const uint64_t at = static_cast<uint64_t>(heard - x.start) * x.step >> 32;
  return static_cast<int>(std::min<uint64_t>(at, x.sample->len));
}

int64_t sound_mixer::end(int v) const {
  std::lock_guard<std::mutex> g(lock_);
  return valid(v) && voices_[v].ended ? voices_[v].end : 0;
}

void sound_mixer::forget(const SAMPLE* s) {
  std::lock_guard<std::mutex> g(lock_);
  for (voice& v : voices_)
    if (v.reserved && v.sample == s) v.started = false;
}

int64_t sound_mixer::next() const {
  std::lock_guard<std::mutex> g(lock_);
  return next_;
}

void sound_mixer::mix_voice(voice& v, int32_t* acc, unsigned frames) {
  const int64_t first = std::max<int64_t>(v.start - next_, 0);
  const uint64_t len = static_cast<uint64_t>(v.sample->len) << 32;
  // Centred, as Allegro plays a voice: half of its volume on each side.
  const int32_t scale = v.volume;
  for (int64_t i = first; i < frames; ++i) {
    if (v.pos >= len) {
      v.end = next_ + i;
      v.ended = true;
      break;
    }
    const unsigned long k = static_cast<unsigned long>(v.pos >> 32);
    int l, r;
    sound_frame(v.sample, k, l, r);
    if (v.step != (1ull << 32) && k + 1 < v.sample->len) {
      // Linear interpolation between neighbours when the rates differ.
      int l2, r2;
      sound_frame(v.sample, k + 1, l2, r2);
      const int64_t frac = static_cast<int64_t>((v.pos >> 16) & 0xffff);
      l += static_cast<int>(((l2 - l) * frac) >> 16);
      r += static_cast<int>(((r2 - r) * frac) >> 16);
    }
    acc[2 * i] += l * scale / 510;
    acc[2 * i + 1] += r * scale / 510;
    v.pos += v.step;
  }
  if (v.pos >= len && !v.ended) {
    v.end = next_ + frames;
    v.ended = true;
  }
}

void sound_mixer::mix(int16_t* out, unsigned frames) {
  int32_t acc[2 * 1024];
  std::lock_guard<std::mutex> g(lock_);
  while (frames > 0) {
    const unsigned n = std::min(frames, 1024u);
    std::fill(acc, acc + 2 * n, 0);
    for (voice& v : voices_) {
      if (!v.reserved || !v.started || v.ended || v.start >= next_ + n) continue;
      mix_voice(v, acc, n);
      // A released voice that has played out is free again.
      if (v.ended && v.released) v = voice{};
    }
    for (unsigned i = 0; i < 2 * n; ++i) out[i] = static_cast<int16_t>(std::clamp(acc[i], -32768, 32767));
    out += 2 * n;
    frames -= n;
    next_ += n;
  }
}
