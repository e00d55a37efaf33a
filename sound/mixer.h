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

// Frames of the stream against CLOCK_MONOTONIC (µs). Once a period the
// device tells how many frames it has taken from the buffer (its pointer)
// and how many of those it still holds (its own latency beyond the
// buffer). The pointer moves at the device's own rate, which a crystal or a
// sound server's timer keeps for minutes, but in steps and with the
// thread's wake-up jitter; a straight line fitted to it by least squares
// over a long horizon (older observations weighing less, a time constant
// of 20 s) averages that away. A sound server's latency estimate wanders
// by a millisecond over a minute while its pointer keeps the line, so the
// latency is measured while a stretch of the stream settles and then held.
// The frame leaving the device is the one taken that latency earlier.
class sound_clock {
 public:
  // rate: the stream's nominal frames per second; period: frames between
  // two observations.
  void reset(double rate, unsigned period);
  // The stream started again, or the device ran dry and plays it on later:
  // where its frames are is learnt anew, the device's rate is kept.
  void restart();
  // At t_us the device had taken `taken` frames of the stream and held
  // `held` of them still. An observation far off the line is left out;
  // several in a row, for some tens of milliseconds, mean that the stream
  // moved (the device ran dry unreported): the clock then starts a new
  // stretch from them with the rate it had, and returns false.
  bool observe(int64_t taken, double t_us, double held = 0);
  bool ready() const { return n_ > 0; }
  // The rate is fitted and the latency measured.
  bool settled() const { return n_ > 0 && lag_n_ < 0 && sloped_; }
  // When frame leaves the device; the first frame leaving at or after t_us.
  double time_of(int64_t frame) const;
  int64_t frame_at(double t_us) const;
  // The device's rate as measured (frames per second of CLOCK_MONOTONIC).
  double rate() const { return 1e6 / (nominal_us_ + slope_); }
  // Frames the device holds beyond its buffer, as measured.
  double held() const { return lag_; }

 private:
  void new_stretch();
  void fit();
  // When the device takes frame + x (x may be fractional).
  double taken_at(int64_t frame, double x = 0) const;
  double nominal_us_ = 1e6 / 44100;
  double memory_frames_ = 20 * 44100.0;
  double off_us_ = 1500;
  double scatter_ = 0;  // mean square distance of the observations from the line
  long n_ = 0;  // observations in the current stretch
  // Around the newest observation: x = frame - f0_, y = t - t0_ - x·nominal.
  int64_t f0_ = 0;
  double t0_ = 0;
  double s0_ = 0, sx_ = 0, sxx_ = 0, sy_ = 0, sxy_ = 0;
  // What earlier stretches tell of the slope (centred sums) and their weight.
  double cxx_old_ = 0, cxy_old_ = 0, w_old_ = 0;
  double offset_ = 0, slope_ = 0;  // the fitted line: y = offset + slope·x
  bool sloped_ = false;            // the slope is fitted, not nominal
  // The device's latency beyond the buffer (frames), averaged over the
  // first frames of the stretch, then held.
  double lag_ = 0, lag_sum_ = 0;
  long lag_n_ = 0;
  int64_t stretch_from_ = 0;
  // Observations off the line in a row, since this frame.
  long off_n_ = 0;
  int64_t off_from_ = 0;
  bool fresh_ = false;  // the stretch began where the stream moved
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
