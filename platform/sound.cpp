#include "platform/sound.h"

#include <alsa/asoundlib.h>
#include <dirent.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/timer.h"
#include "services/config.h"
#include "services/log.h"
#include "sound/mixer.h"

namespace {
const unsigned kRate = 44100;
const int kDefaultPeriodUs = 2000;
const int kDefaultBufferUs = 20000;
// The latency is the largest write-ahead seen while the stream settles, plus
// this margin for the thread's wake-up and the show call's own lateness.
const double kMarginUs = 500;
// The device must have played this long, within the wake-up time, before
// start-up goes on; the write-ahead is measured on until the first voice
// starts.
const int kPlayedMs = 100, kWakeMs = 3000;
// A device that keeps time of its own plays on until the frame clock has
// its rate and the device's latency (about 0.6 s), at most this long.
const int kSettleMs = 2000;
// An observation of the device's delay that took longer than this (the
// thread was preempted inside the call) is not used.
const double kSlowCallUs = 300;

snd_pcm_t* pcm_ = nullptr;
sound_mixer mixer_;
sound_clock clock_;
sound_lock clock_lock_;
std::thread thread_;
std::atomic<bool> quit_{false}, running_{false};
std::atomic<unsigned long> underruns_{0};
unsigned long reported_underruns_ = 0;
std::atomic<long long> max_ahead_us_{0};
unsigned rate_ = kRate;
snd_pcm_uframes_t period_ = 0, buffer_ = 0;
bool paced_ = true;
double latency_us_ = 0;
unsigned long long onset_[sound_mixer::kVoices];
bool exit_handler_ = false;

// What the output thread got as priority, for the log.
std::atomic<int> policy_{SCHED_OTHER}, priority_{0};
// Threads the device's plugin started (a sound server's client): the
// stream waits on them, so they run at the output thread's priority.
std::vector<pid_t> device_threads_;

// ALSA's own messages go to the log; those raised on the output thread wait
// for the main thread.
std::thread::id main_thread_;
std::mutex alsa_lock_;
std::vector<std::string> alsa_pending_;

double now_us() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1e6 + ts.tv_nsec / 1e3;
}

void alsa_message(const char* file, int line, const char* function, int err, const char* fmt, ...) {
  char text[300];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(text, sizeof text, fmt, ap);
  va_end(ap);
  char all[500];
  snprintf(all, sizeof all, "ALSA lib %s:%d:(%s) %s%s%s", file ? file : "?", line, function ? function : "?", text,
           err ? ": " : "", err ? snd_strerror(err) : "");
  if (std::this_thread::get_id() == main_thread_) {
    alleg_warning(all);
  } else {
    std::lock_guard<std::mutex> g(alsa_lock_);
    if (alsa_pending_.size() < 20) alsa_pending_.push_back(all);
  }
}

// On the main thread: what the output thread could not log itself.
void report() {
  std::vector<std::string> pending;
  {
    std::lock_guard<std::mutex> g(alsa_lock_);
    pending.swap(alsa_pending_);
  }
  for (const std::string& s : pending) alleg_warning(s.c_str());
  const unsigned long n = underruns_.load();
  if (n != reported_underruns_) {
    alleg_warning("sound: underrun (%d so far): the device ran out of frames", static_cast<int>(n));
    reported_underruns_ = n;
  }
}

int fail(char* reason, int size, const char* what, int err) {
  snprintf(reason, static_cast<size_t>(size), "%s: %s", what, snd_strerror(err));
  if (pcm_) snd_pcm_close(pcm_);
  pcm_ = nullptr;
  return -1;
}

std::vector<pid_t> threads() {
  std::vector<pid_t> tids;
  if (DIR* d = opendir("/proc/self/task")) {
    while (dirent* e = readdir(d))
      if (const pid_t tid = static_cast<pid_t>(atoi(e->d_name))) tids.push_back(tid);
    closedir(d);
  }
  std::sort(tids.begin(), tids.end());
  return tids;
}

void raise_device_threads() {
  for (pid_t tid : device_threads_) {
    if (policy_ == SCHED_FIFO) {
      sched_param sp{};
      sp.sched_priority = priority_;
      sched_setscheduler(tid, SCHED_FIFO, &sp);
    } else {
      setpriority(PRIO_PROCESS, static_cast<id_t>(tid), priority_);
    }
  }
}

// The output thread takes the highest priority the process may have: the
// top real-time priority where allowed, else the lowest nice value. The
// priority classes of the program are set for every thread of the process;
// the thread takes its own back when one of them replaced it.
void raise_priority() {
  sched_param sp{};
  const int top = sched_get_priority_max(SCHED_FIFO);
  rlimit rl{};
  int limit = top;
  if (getrlimit(RLIMIT_RTPRIO, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY && geteuid() != 0)
    limit = std::min<int>(top, static_cast<int>(rl.rlim_cur));
  sp.sched_priority = limit;
  if (limit > 0 && pthread_setschedparam(pthread_self(), SCHED_FIFO, &sp) == 0) {
    policy_ = SCHED_FIFO;
    priority_ = limit;
    raise_device_threads();
    return;
  }
  const id_t tid = static_cast<id_t>(syscall(SYS_gettid));
  int lowest = -20;
  if (getrlimit(RLIMIT_NICE, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY && geteuid() != 0)
    lowest = 20 - static_cast<int>(rl.rlim_cur);
  errno = 0;
  const int now = getpriority(PRIO_PROCESS, tid);
  if (errno == 0 && lowest < now) setpriority(PRIO_PROCESS, tid, lowest);
  policy_ = SCHED_OTHER;
  priority_ = getpriority(PRIO_PROCESS, tid);
  raise_device_threads();
}

void keep_priority() {
  if (policy_ == SCHED_FIFO ? sched_getscheduler(0) != SCHED_FIFO
                            : getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid))) > priority_)
    raise_priority();
}

// Observations still to leave out after the stream started again: the
// device's first delays then are not yet its own.
int settling_ = 0;
const int kSettlingPeriods = 25;
// The device was found dry at the last observation; it counts as dry only
// once it has played (a sound server reports no delay until it starts).
bool dry_ = false;
bool played_ = false;

void recover(int err) {
  if (err == -EPIPE || err == -ESTRPIPE) ++underruns_;
  settling_ = kSettlingPeriods;
  played_ = false;
  if (snd_pcm_recover(pcm_, err, 1) < 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  // The frames queued were dropped: where the stream's frames are is learnt
  // again (the device's rate stays what it was).
  std::lock_guard<sound_lock> g(clock_lock_);
  clock_.restart();
  if (!paced_) clock_.observe(mixer_.next(), now_us());
}

// The device's pointer at a moment: how many frames it has taken from the
// buffer, and how many of those it still holds (its delay beyond the
// buffer's content).
void observe_device() {
  if (snd_pcm_state(pcm_) != SND_PCM_STATE_RUNNING) return;
  snd_pcm_sframes_t avail = 0, delay = 0;
  const double before = now_us();
  const int r = snd_pcm_avail_delay(pcm_, &avail, &delay);
  const double after = now_us();
  if (r < 0 || avail < 0 || static_cast<snd_pcm_uframes_t>(avail) > buffer_) return;
  if (delay <= 0 && !played_) return;
  if (delay <= 0) {
    // The device ran dry (the thread was held up for longer than the
    // buffer lasts): it plays the stream on later than before.
    if (!dry_) {
      ++underruns_;
      std::lock_guard<sound_lock> g(clock_lock_);
      clock_.restart();
    }
    dry_ = true;
    return;
  }
  dry_ = false;
  played_ = true;
  if (after - before > kSlowCallUs) return;
  if (settling_ > 0) {
    --settling_;
    return;
  }
  const int64_t queued = static_cast<int64_t>(buffer_) - avail;
  std::lock_guard<sound_lock> g(clock_lock_);
  // Off the line for a while: the stream moved all the same. While the
  // clock settles at start-up that is its own first fit, not the device.
  const bool settled = clock_.settled();
  if (!clock_.observe(mixer_.next() - queued, (before + after) / 2, static_cast<double>(delay - queued)) && settled)
    ++underruns_;
}

// The device is open without blocking: a write it cannot take yet waits
// for room, a short while at a time, so that the thread can always stop.
void write_frames(const int16_t* data, snd_pcm_uframes_t frames) {
  while (frames > 0 && !quit_) {
    const snd_pcm_sframes_t n = snd_pcm_writei(pcm_, data, frames);
    if (n == -EAGAIN) {
      snd_pcm_wait(pcm_, 10);
      continue;
    }
    if (n < 0) {
      recover(static_cast<int>(n));
      continue;
    }
    data += 2 * n;
    frames -= static_cast<snd_pcm_uframes_t>(n);
  }
}

// The write-ahead counts once the clock has settled: before, its line is
// still a guess.
void note_ahead() {
  double t;
  {
    std::lock_guard<sound_lock> g(clock_lock_);
    if (paced_ ? !clock_.settled() : !clock_.ready()) return;
    t = clock_.time_of(mixer_.next());
  }
  const long long ahead = std::llround(t - now_us());
  long long seen = max_ahead_us_.load();
  while (ahead > seen && !max_ahead_us_.compare_exchange_weak(seen, ahead)) {
  }
}

void mix_and_write(std::vector<int16_t>& buf) {
  mixer_.mix(buf.data(), static_cast<unsigned>(period_));
  note_ahead();
  write_frames(buf.data(), period_);
}

// Mixes and writes as many periods as the device has room for; a device
// that keeps no time of its own (a file) is paced by CLOCK_MONOTONIC. The
// device's signal that it has room may come late (a sound server's), so
// the thread also looks every period.
void output_loop() {
  raise_priority();
  std::vector<int16_t> buf(2 * period_);
  const int wait_ms = std::max(1, static_cast<int>(period_ * 1000 / rate_));
  for (long n = 1; !quit_; ++n) {
    if (n % 64 == 0) keep_priority();
    if (!paced_) {
      double due;
      {
        std::lock_guard<sound_lock> g(clock_lock_);
        due = clock_.time_of(mixer_.next() - static_cast<int64_t>(buffer_));
      }
      timespec ts;
      ts.tv_sec = static_cast<time_t>(due / 1e6);
      ts.tv_nsec = std::clamp(static_cast<long>((due - ts.tv_sec * 1e6) * 1e3), 0L, 999999999L);
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
      mix_and_write(buf);
      continue;
    }
    const int w = snd_pcm_wait(pcm_, wait_ms);
    if (w < 0) {
      recover(w);
      continue;
    }
    const snd_pcm_sframes_t avail = snd_pcm_avail_update(pcm_);
    if (avail < 0 || static_cast<snd_pcm_uframes_t>(avail) > buffer_) {
      recover(avail < 0 ? static_cast<int>(avail) : -EPIPE);
      continue;
    }
    if (static_cast<snd_pcm_uframes_t>(avail) < period_) {
      // Woken before there is room (a plugin's signal may come early): sleep
      // until there should be, never spinning at this priority, which
      // would starve the device's own threads.
      const long us = std::max(200L, static_cast<long>((period_ - avail) * 1000000 / rate_));
      std::this_thread::sleep_for(std::chrono::microseconds(us));
      continue;
    }
    observe_device();
    for (snd_pcm_uframes_t k = static_cast<snd_pcm_uframes_t>(avail) / period_; k > 0 && !quit_; --k)
      mix_and_write(buf);
  }
}

int set_params(const char* device, unsigned period_us, unsigned buffer_us, char* reason, int size) {
  snd_pcm_hw_params_t* hw;
  snd_pcm_hw_params_alloca(&hw);
  int err;
  unsigned rate = kRate;
  snd_pcm_uframes_t period = std::max<snd_pcm_uframes_t>(16, kRate * static_cast<unsigned long>(period_us) / 1000000);
  snd_pcm_uframes_t buffer =
      std::max<snd_pcm_uframes_t>(2 * period, kRate * static_cast<unsigned long>(buffer_us) / 1000000);
  if ((err = snd_pcm_hw_params_any(pcm_, hw)) < 0 ||
      (err = snd_pcm_hw_params_set_access(pcm_, hw, SND_PCM_ACCESS_RW_INTERLEAVED)) < 0 ||
      (err = snd_pcm_hw_params_set_format(pcm_, hw, SND_PCM_FORMAT_S16_LE)) < 0 ||
      (err = snd_pcm_hw_params_set_channels(pcm_, hw, 2)) < 0 ||
      (err = snd_pcm_hw_params_set_rate_near(pcm_, hw, &rate, nullptr)) < 0 ||
      (err = snd_pcm_hw_params_set_period_size_near(pcm_, hw, &period, nullptr)) < 0 ||
      (err = snd_pcm_hw_params_set_buffer_size_near(pcm_, hw, &buffer)) < 0 || (err = snd_pcm_hw_params(pcm_, hw)) < 0)
    return fail(reason, size, device, err);
  snd_pcm_hw_params_get_period_size(hw, &period, nullptr);
  snd_pcm_hw_params_get_buffer_size(hw, &buffer);
  snd_pcm_sw_params_t* sw;
  snd_pcm_sw_params_alloca(&sw);
  // The device does not stop when it runs dry: it plays silence (what it
  // has played is cleared) and its pointer runs on, so that a sound server
  // keeps the same stream and the clock sees where it went on. Past the
  // buffer's end (a card's pointer) the stream is started again.
  snd_pcm_uframes_t boundary = 0;
  if ((err = snd_pcm_sw_params_current(pcm_, sw)) < 0 || (err = snd_pcm_sw_params_get_boundary(sw, &boundary)) < 0 ||
      (err = snd_pcm_sw_params_set_stop_threshold(pcm_, sw, boundary)) < 0 ||
      (err = snd_pcm_sw_params_set_silence_threshold(pcm_, sw, 0)) < 0 ||
      (err = snd_pcm_sw_params_set_silence_size(pcm_, sw, boundary)) < 0 ||
      (err = snd_pcm_sw_params_set_start_threshold(pcm_, sw, buffer)) < 0 ||
      (err = snd_pcm_sw_params_set_avail_min(pcm_, sw, period)) < 0 || (err = snd_pcm_sw_params(pcm_, sw)) < 0)
    return fail(reason, size, device, err);
  rate_ = rate;
  period_ = period;
  buffer_ = buffer;
  return 0;
}

// Fills the buffer, which starts the device, and finds out whether it
// plays at its own pace: a device that took the whole buffer at once and
// holds nothing (the file device) keeps no time.
int prime(const char* device, char* reason, int size) {
  std::vector<int16_t> silence(2 * buffer_);
  mixer_.mix(silence.data(), static_cast<unsigned>(buffer_));
  const double start = now_us();
  const snd_pcm_sframes_t n = snd_pcm_writei(pcm_, silence.data(), buffer_);
  if (n < 0) return fail(reason, size, device, static_cast<int>(n));
  // What it did not take yet follows once it has room.
  if (static_cast<snd_pcm_uframes_t>(n) < buffer_) {
    quit_ = false;
    write_frames(silence.data() + 2 * n, buffer_ - static_cast<snd_pcm_uframes_t>(n));
  }
  snd_pcm_sframes_t delay = 0;
  const snd_pcm_sframes_t avail = snd_pcm_avail_update(pcm_);
  if (snd_pcm_delay(pcm_, &delay) < 0) delay = 0;
  paced_ = !(avail >= static_cast<snd_pcm_sframes_t>(buffer_) && delay <= 0);
  if (!paced_) {
    std::lock_guard<sound_lock> g(clock_lock_);
    clock_.observe(0, start);
  }
  return 0;
}
}  // namespace

int sound_open(char* reason, int size) {
  if (pcm_) return 0;
  main_thread_ = std::this_thread::get_id();
  snd_lib_error_set_handler(alsa_message);
  const char* device = config_string("sound-device", "default");
  int period_us = config_int("sound-period-us", kDefaultPeriodUs);
  if (period_us < 250 || period_us > 100000) {
    alleg_warning("sound-period-us %d is outside 250..100000: using %d", period_us, kDefaultPeriodUs);
    period_us = kDefaultPeriodUs;
  }
  int buffer_us = config_int("sound-buffer-us", kDefaultBufferUs);
  if (buffer_us < 2 * period_us || buffer_us > 1000000) {
    alleg_warning("sound-buffer-us %d is outside two periods..1000000: using %d", buffer_us,
                  std::max(kDefaultBufferUs, 2 * period_us));
    buffer_us = std::max(kDefaultBufferUs, 2 * period_us);
  }
  const std::vector<pid_t> before_open = threads();
  const int err = snd_pcm_open(&pcm_, device, SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
  device_threads_.clear();
  const std::vector<pid_t> after_open = threads();
  std::set_difference(after_open.begin(), after_open.end(), before_open.begin(), before_open.end(),
                      std::back_inserter(device_threads_));
  if (err < 0) {
    pcm_ = nullptr;
    return fail(reason, size, device, err);
  }
  if (set_params(device, static_cast<unsigned>(period_us), static_cast<unsigned>(buffer_us), reason, size) != 0)
    return -1;
  mixer_.reset(rate_);
  clock_.reset(rate_, static_cast<unsigned>(period_));
  if (prime(device, reason, size) != 0) return -1;

  quit_ = false;
  max_ahead_us_ = 0;
  thread_ = std::thread(output_loop);
  // A sound server may take a while to wake its output.
  const int64_t before = mixer_.next();
  bool ready = false;
  for (int waited = 0; waited < kWakeMs && !ready; waited += 10) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::lock_guard<sound_lock> g(clock_lock_);
    ready = clock_.ready() && mixer_.next() - before >= static_cast<int64_t>(rate_) * kPlayedMs / 1000;
  }
  if (!ready) {
    sound_close();
    snprintf(reason, static_cast<size_t>(size), "%s: the device does not play", device);
    return -1;
  }
  for (int waited = 0; paced_ && waited < kSettleMs; waited += 10) {
    {
      std::lock_guard<sound_lock> g(clock_lock_);
      if (clock_.settled()) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  latency_us_ = 0;
  running_ = true;
  if (!exit_handler_) exit_handler_ = atexit(sound_close) == 0;

  char text[400];
  snprintf(text, sizeof text,
           "sound: device %s, %u Hz, 16-bit stereo, period %lu frames (%.2f ms), buffer %lu frames (%.2f ms), %s",
           device, rate_, static_cast<unsigned long>(period_), period_ * 1e3 / rate_,
           static_cast<unsigned long>(buffer_), buffer_ * 1e3 / rate_,
           paced_ ? "paced by the device" : "paced by the system clock (the device keeps no time)");
  alleg_message(text);
  snprintf(text, sizeof text, "sound: output thread at %s %d", policy_ == SCHED_FIFO ? "SCHED_FIFO" : "nice",
           priority_.load());
  alleg_message(text);
  report();
  return 0;
}

void sound_close() {
  if (thread_.joinable()) {
    quit_ = true;
    thread_.join();
  }
  running_ = false;
  if (pcm_) {
    snd_pcm_drop(pcm_);
    snd_pcm_close(pcm_);
    pcm_ = nullptr;
    report();
    if (latency_us_ > 0 && max_ahead_us_.load() > latency_us_)
      alleg_warning("sound: the write-ahead reached %d us, over the latency taken (%d us): later voices started late",
                    static_cast<int>(max_ahead_us_.load()), static_cast<int>(latency_us_));
  }
}

bool sound_running() { return running_; }

unsigned long long sound_latency_us() {
  if (running_ && latency_us_ == 0) {
    const double ahead = static_cast<double>(max_ahead_us_.load());
    latency_us_ = std::ceil((ahead + kMarginUs) / 100) * 100;
    double rate, held;
    {
      std::lock_guard<sound_lock> g(clock_lock_);
      rate = clock_.rate();
      held = clock_.held();
    }
    char text[300];
    snprintf(text, sizeof text,
             "sound: latency %.2f ms measured (largest write-ahead %.2f ms): a voice starts this long after its due "
             "time; device clock %+.0f ppm, %.2f ms held beyond the buffer",
             latency_us_ / 1e3, ahead / 1e3, (rate / rate_ - 1) * 1e6, held * 1e3 / rate_);
    alleg_message(text);
  }
  return static_cast<unsigned long long>(latency_us_);
}
unsigned long sound_underruns() { return underruns_; }
unsigned sound_rate() { return rate_; }
double sound_period_ms() { return period_ * 1e3 / rate_; }
double sound_buffer_ms() { return buffer_ * 1e3 / rate_; }

int sound_allocate(const SAMPLE* s) { return mixer_.allocate(s); }
void sound_set_volume(int voice, int volume) { mixer_.set_volume(voice, volume); }
void sound_stop(int voice) { mixer_.stop(voice); }
void sound_deallocate(int voice) { mixer_.deallocate(voice); }
void sound_release(int voice) { mixer_.release(voice); }
void sound_forget(const SAMPLE* s) { mixer_.forget(s); }

long sound_start(int voice, unsigned long long due_us) {
  if (voice < 0 || voice >= sound_mixer::kVoices) return 0;
  onset_[voice] = 0;
  if (!running_) {
    mixer_.start(voice, 0);
    return 0;
  }
  report();
  // The frame leaving the device one latency after the due time.
  const double latency = static_cast<double>(sound_latency_us());
  const double wanted = due_us ? static_cast<double>(alleg_system_us_at(due_us)) + latency : 0;
  int64_t frame = 0;
  if (due_us) {
    std::lock_guard<sound_lock> g(clock_lock_);
    frame = clock_.frame_at(wanted);
  }
  const int64_t got = mixer_.start(voice, frame);
  double t;
  {
    std::lock_guard<sound_lock> g(clock_lock_);
    t = clock_.time_of(got);
  }
  onset_[voice] = alleg_utimer_at(static_cast<unsigned long long>(std::llround(t)));
  const double late = t - wanted;
  return due_us && late > 1e6 / rate_ ? static_cast<long>(late) : 0;
}

int sound_position(int voice) {
  if (!running_) return -1;
  int64_t heard;
  {
    std::lock_guard<sound_lock> g(clock_lock_);
    heard = clock_.frame_at(now_us());
  }
  return mixer_.position(voice, heard);
}

unsigned long long sound_onset(int voice) {
  return voice >= 0 && voice < sound_mixer::kVoices ? onset_[voice] : 0;
}
