// The arithmetic of the program's own sound output, apart from any device:
// the clock that tells when a frame of the stream leaves the device, and the
// mixer that adds the voices into the stream from the frame each is due at.
// The output thread (platform/sound) feeds both; tests feed them a fake
// device.
#pragma once
#include <pthread.h>

#include <cstdint>
#include <mutex>

struct SAMPLE;

// A mutex that lends its holder the priority of a thread waiting for it, so
// that the output thread never waits for the main thread while something
// else runs (priority inheritance). Usable with std::lock_guard.
class sound_lock {
 public:
  sound_lock();
  ~sound_lock();
  sound_lock(const sound_lock&) = delete;
  sound_lock& operator=(const sound_lock&) = delete;
  void lock() { pthread_mutex_lock(&m_); }
  void unlock() { pthread_mutex_unlock(&m_); }

 private:
  pthread_mutex_t m_;
};

// Frames of the stream against CLOCK_MONOTONIC (µs), from one observation
// per period of the frame leaving the device at a moment. The observations
// jitter (scheduling, the device's pointer steps, a sound server's estimate
// that it corrects only now and then); a straight line fitted to them by
// least squares, the older ones weighing less (a time constant of 1 s),
// follows the device's own rate and averages the jitter away, so that a
// frame's moment is known to a few µs once some seconds have passed.
class sound_clock {
 public:
  // rate: the stream's nominal frames per second; period: frames between
  // two observations.
  void reset(double rate, unsigned period);
  // Frame `frame` was leaving the device at t_us. Returns false when the
  // observation was far off the line (the stream was broken, an underrun):
  // the clock then starts again from it.
  bool observe(int64_t frame, double t_us);
  bool ready() const { return n_ > 0; }
  // When frame leaves the device; the first frame leaving at or after t_us.
  double time_of(int64_t frame) const;
  int64_t frame_at(double t_us) const;
  // The device's rate as measured (frames per second of CLOCK_MONOTONIC).
  double rate() const { return 1e6 / (nominal_us_ + slope_); }

 private:
  void fit();
  double nominal_us_ = 1e6 / 44100;
  double keep_ = 1;  // weight kept by the older observations at each new one
  long n_ = 0;
  // Around the newest observation: x = frame - f0_, y = t - t0_ - x·nominal.
  int64_t f0_ = 0;
  double t0_ = 0;
  double s0_ = 0, sx_ = 0, sxx_ = 0, sy_ = 0, sxy_ = 0;
  double offset_ = 0, slope_ = 0;  // the fitted line: y = offset + slope·x
};

// Voices of Allegro SAMPLEs (8 or 16 bit, mono or stereo, any rate) mixed
// into 16-bit stereo at the stream's rate. Frame numbers count the stream
// from its start. Every operation may be called from any thread.
class sound_mixer {
 public:
  static const int kVoices = 64;
  explicit sound_mixer(unsigned rate = 44100);
  // A new stream at rate: every voice freed, frame 0 next.
  void reset(unsigned rate);

  // A free voice for s, reserved until deallocated or released; -1 when
  // all are taken.
  int allocate(const SAMPLE* s);
  void deallocate(int voice);
  // Frees the voice once it has played to its end (at once when idle).
  void release(int voice);
  void set_volume(int voice, int volume);
  // Starts the voice at `frame`, or at the first frame not yet mixed when
  // that one was mixed already; returns the frame it starts at.
  int64_t start(int voice, int64_t frame);
  void stop(int voice);
  // Where the voice is in its sample while `heard` is the frame leaving the
  // device: 0 before it starts, -1 when it is not playing or has been heard
  // to its end.
  int position(int voice, int64_t heard) const;
  // The stream frame after the voice's last sample; 0 while not known.
  int64_t end(int voice) const;
  // Stops every voice that plays s (before s is freed).
  void forget(const SAMPLE* s);
  // The first frame not yet mixed.
  int64_t next() const;
  // Mixes the next `frames` frames into out (interleaved left, right).
  void mix(int16_t* out, unsigned frames);

 private:
  struct voice {
    const SAMPLE* sample = nullptr;
    bool reserved = false, started = false, released = false, ended = false;
    int volume = 255;
    int64_t start = 0;  // stream frame of its first sample
    int64_t end = 0;    // stream frame after its last, once mixed to it (ended)
    uint64_t pos = 0;   // place in the sample, 32.32 fixed point
    uint64_t step = 0;  // sample frames per stream frame, 32.32
  };
  bool valid(int v) const { return v >= 0 && v < kVoices && voices_[v].reserved; }
  void mix_voice(voice& v, int32_t* acc, unsigned frames);

  mutable sound_lock lock_;
  unsigned rate_;
  int64_t next_ = 0;
  voice voices_[kVoices];
};

// One sample frame of s as signed 16-bit left and right (Allegro keeps
// sample data unsigned; an 8-bit value is scaled up, mono goes to both).
void sound_frame(const SAMPLE* s, unsigned long i, int& left, int& right);
