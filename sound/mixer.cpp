#include "sound/mixer.h"

#include <allegro.h>

#include <algorithm>
#include <cmath>

namespace {
// The time constant of the fit (s).
const double kMemoryS = 20;
// An observation this far off the line (µs, or three quarters of a period,
// or four times the observations' own scatter where that is more) is left
// out; observations off it for this long (s) and this many in a row start
// a new stretch. A step the fit took in would bend its slope.
const double kOffUs = 1500;
const double kOffSd = 4, kScatterKeep = 0.99;
const double kMovedS = 0.04;
const long kMovedN = 4;
// After the stream moved, its observations of this long (s) weigh this
// much less once they are past.
const double kSettleS = 0.2;
const double kForget = 0.01;
// The device's latency beyond the buffer is averaged over this much of a
// stretch (s), then held.
const double kLagS = 0.5;
// The slope is fitted once the observations span this much (s, at the
// nominal rate); before, the nominal rate holds. A real device is within
// 0.1 % of its rate.
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
  off_us_ = std::max(kOffUs, 0.75 * period * nominal_us_);
  scatter_ = 0;
  lag_ = lag_sum_ = 0;
  lag_n_ = 0;
  memory_frames_ = kMemoryS * rate;
  cxx_old_ = cxy_old_ = w_old_ = 0;
  slope_ = offset_ = 0;
  n_ = 0;
  fresh_ = false;
  new_stretch();
}

void sound_clock::restart() {
  new_stretch();
  fresh_ = true;
}

// What the current stretch tells of the slope stays; its offset goes.
void sound_clock::new_stretch() {
  if (n_ > 1) {
    cxx_old_ += sxx_ - sx_ * sx_ / s0_;
    cxy_old_ += sxy_ - sx_ * sy_ / s0_;
    w_old_ += s0_;
  }
  // The old line holds until the first observation of the new stretch.
  n_ = 0;
  s0_ = sx_ = sxx_ = sy_ = sxy_ = 0;
  off_n_ = 0;
}

bool sound_clock::observe(int64_t taken, double t_us, double held) {
  bool on_line = true;
  if (n_ > 0) {
    const double r = t_us - taken_at(taken);
    if (std::fabs(r) <= std::max(off_us_, kOffSd * std::sqrt(scatter_))) {
      off_n_ = 0;
      scatter_ = scatter_ * kScatterKeep + r * r * (1 - kScatterKeep);
    } else {
      if (off_n_++ == 0) off_from_ = taken;
      if (off_n_ < kMovedN || taken - off_from_ < kMovedS / nominal_us_ * 1e6) return true;
      new_stretch();
      on_line = false;
      fresh_ = true;
    }
  }
  // The first observations after the stream moved still catch up with it:
  // once they are past they weigh next to nothing (the line stays where
  // it is and the next observations move it).
  if (fresh_ && n_ > 0 && static_cast<double>(taken - stretch_from_) > kSettleS / nominal_us_ * 1e6) {
    for (double* v : {&s0_, &sx_, &sxx_, &sy_, &sxy_}) *v *= kForget;
    fresh_ = false;
  }
  if (n_ == 0) {
    f0_ = taken;
    t0_ = t_us;
    stretch_from_ = taken;
  }
  // Move the origin to this observation: x' = x - d, and t0 moves by d
  // nominal frames, so that y keeps its value. The older observations weigh
  // less by the frames since.
  const double d = static_cast<double>(taken - f0_);
  sxy_ -= d * sy_;
  sxx_ += d * d * s0_ - 2 * d * sx_;
  sx_ -= d * s0_;
  f0_ = taken;
  t0_ += d * nominal_us_;
  const double keep = d > 0 ? std::exp(-d / memory_frames_) : 1;
  const double y = t_us - t0_;
  s0_ = s0_ * keep + 1;
  sx_ *= keep;
  sxx_ *= keep;
  sy_ = sy_ * keep + y;
  sxy_ *= keep;
  cxx_old_ *= keep;
  cxy_old_ *= keep;
  w_old_ *= keep;
  ++n_;
  if (lag_n_ >= 0) {
    if (static_cast<double>(taken - stretch_from_) <= kLagS / nominal_us_ * 1e6) {
      lag_sum_ += held;
      lag_ = lag_sum_ / static_cast<double>(++lag_n_);
    } else {
      lag_n_ = -1;  // measured: held from now on
    }
  }
  fit();
  return on_line;
}

void sound_clock::fit() {
  const double cxx = sxx_ - sx_ * sx_ / s0_ + cxx_old_, cxy = sxy_ - sx_ * sy_ / s0_ + cxy_old_;
  const double span = 1e6 / nominal_us_ * kSlopeSpanS;
  slope_ = 0;
  sloped_ = cxx > (s0_ + w_old_) * span * span / 12;
  if (sloped_) {
    const double ppm = cxy / cxx / nominal_us_;
    slope_ = std::clamp(ppm, -kMaxSlope, kMaxSlope) * nominal_us_;
  }
  offset_ = (sy_ - slope_ * sx_) / s0_;
}

double sound_clock::taken_at(int64_t frame, double x) const {
  x += static_cast<double>(frame - f0_);
  return t0_ + x * nominal_us_ + offset_ + slope_ * x;
}

double sound_clock::time_of(int64_t frame) const { return taken_at(frame, lag_); }

int64_t sound_clock::frame_at(double t_us) const {
  const double x = (t_us - t0_ - offset_) / (nominal_us_ + slope_) - lag_;
  return f0_ + static_cast<int64_t>(std::ceil(x - 1e-6));
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
