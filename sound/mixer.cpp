#include "sound/mixer.h"

#include <allegro.h>

#include <algorithm>
#include <cmath>

namespace {
// The time constant of the fit, and how far an observation may lie off the
// line before the line is taken as broken (µs).
const double kMemoryS = 1;
const double kBreakUs = 4000;
// The slope is fitted once the observations span this much (frames of
// 1 s at the nominal rate); before, the nominal rate holds. A real device
// is within 0.1 % of its rate.
const double kSlopeSpanS = 0.5;
const double kMaxSlope = 1e-3;
}  // namespace

sound_lock::sound_lock() {
  pthread_mutexattr_t a;
  pthread_mutexattr_init(&a);
  pthread_mutexattr_setprotocol(&a, PTHREAD_PRIO_INHERIT);
  pthread_mutex_init(&m_, &a);
  pthread_mutexattr_destroy(&a);
}
sound_lock::~sound_lock() { pthread_mutex_destroy(&m_); }

void sound_clock::reset(double rate, unsigned period) {
  nominal_us_ = 1e6 / rate;
  keep_ = 1 - (period ? period : 1) / (kMemoryS * rate);
  n_ = 0;
  s0_ = sx_ = sxx_ = sy_ = sxy_ = 0;
  offset_ = slope_ = 0;
}

bool sound_clock::observe(int64_t frame, double t_us) {
  bool on_line = true;
  if (n_ > 0 && std::fabs(t_us - time_of(frame)) > kBreakUs) {
    n_ = 0;
    s0_ = sx_ = sxx_ = sy_ = sxy_ = 0;
    offset_ = slope_ = 0;
    on_line = false;
  }
  if (n_ == 0) {
    f0_ = frame;
    t0_ = t_us;
  }
  // Move the origin to this observation: x' = x - d, and t0 moves by d
  // nominal frames, so that y keeps its value.
  const double d = static_cast<double>(frame - f0_);
  sxy_ -= d * sy_;
  sxx_ += d * d * s0_ - 2 * d * sx_;
  sx_ -= d * s0_;
  f0_ = frame;
  t0_ += d * nominal_us_;
  const double y = t_us - t0_;
  s0_ = s0_ * keep_ + 1;
  sx_ *= keep_;
  sxx_ *= keep_;
  sy_ = sy_ * keep_ + y;
  sxy_ *= keep_;
  ++n_;
  fit();
  return on_line;
}

void sound_clock::fit() {
  const double mean_x = sx_ / s0_, var_x = sxx_ / s0_ - mean_x * mean_x;
  const double span = 1e6 / nominal_us_ * kSlopeSpanS;
  slope_ = 0;
  if (var_x > span * span / 12) {
    const double ppm = (sxy_ / s0_ - mean_x * sy_ / s0_) / var_x / nominal_us_;
    slope_ = std::clamp(ppm, -kMaxSlope, kMaxSlope) * nominal_us_;
  }
  offset_ = (sy_ - slope_ * sx_) / s0_;
}

double sound_clock::time_of(int64_t frame) const {
  const double x = static_cast<double>(frame - f0_);
  return t0_ + x * nominal_us_ + offset_ + slope_ * x;
}

int64_t sound_clock::frame_at(double t_us) const {
  return f0_ + static_cast<int64_t>(std::ceil((t_us - t0_ - offset_) / (nominal_us_ + slope_) - 1e-6));
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
  std::lock_guard<sound_lock> g(lock_);
  rate_ = rate ? rate : 44100;
  next_ = 0;
  for (voice& v : voices_) v = voice{};
}

int sound_mixer::allocate(const SAMPLE* s) {
  if (!s || !s->data || s->freq <= 0 || (s->bits != 8 && s->bits != 16)) return -1;
  std::lock_guard<sound_lock> g(lock_);
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
  std::lock_guard<sound_lock> g(lock_);
  if (valid(v)) voices_[v] = voice{};
}

void sound_mixer::release(int v) {
  std::lock_guard<sound_lock> g(lock_);
  if (!valid(v)) return;
  if (voices_[v].started) voices_[v].released = true;
  else voices_[v] = voice{};
}

void sound_mixer::set_volume(int v, int volume) {
  std::lock_guard<sound_lock> g(lock_);
  if (valid(v)) voices_[v].volume = std::clamp(volume, 0, 255);
}

int64_t sound_mixer::start(int v, int64_t frame) {
  std::lock_guard<sound_lock> g(lock_);
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
  std::lock_guard<sound_lock> g(lock_);
  if (valid(v)) voices_[v].started = false;
}

int sound_mixer::position(int v, int64_t heard) const {
  std::lock_guard<sound_lock> g(lock_);
  if (!valid(v) || !voices_[v].started) return -1;
  const voice& x = voices_[v];
  if (heard < x.start) return 0;
  if (x.ended && heard >= x.end) return -1;
  const uint64_t at = static_cast<uint64_t>(heard - x.start) * x.step >> 32;
  return static_cast<int>(std::min<uint64_t>(at, x.sample->len));
}

int64_t sound_mixer::end(int v) const {
  std::lock_guard<sound_lock> g(lock_);
  return valid(v) && voices_[v].ended ? voices_[v].end : 0;
}

void sound_mixer::forget(const SAMPLE* s) {
  std::lock_guard<sound_lock> g(lock_);
  for (voice& v : voices_)
    if (v.reserved && v.sample == s) v.started = false;
}

int64_t sound_mixer::next() const {
  std::lock_guard<sound_lock> g(lock_);
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
  std::lock_guard<sound_lock> g(lock_);
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
