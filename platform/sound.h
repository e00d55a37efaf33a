// The program's own sound output on ALSA: a stream with a short period,
// written by a thread of its own at the highest priority the process has,
// the mixer of its voices (sound/mixer) and the clock that tells when each
// frame leaves the device. A voice started for a show starts at the frame
// that leaves the device one fixed latency after the show's due time, so
// that every sound keeps the same distance from its schedule.
#pragma once
#include <cstdint>

struct SAMPLE;

// Opens "sound-device" (default "default") with a period of
// "sound-period-us" and a buffer of "sound-buffer-us", starts the output thread, measures the latency and
// logs device, rate, period, buffer and latency. -1 with the reason in
// `reason` when there is no device or it cannot be opened or run.
int sound_open(char* reason, int size);
// Stops the thread and closes the device; the log gets the underruns.
void sound_close();
bool sound_running();
// From a show's due time to the moment its voice's first sample leaves the
// device (µs).
unsigned long long sound_latency_us();
// The open stream's frame rate (Hz), period and buffer (ms).
unsigned sound_rate();
double sound_period_ms();
double sound_buffer_ms();
// Underruns of the device since the stream was opened.
unsigned long sound_underruns();

// Voices for the sound stimuli (see wav_voice_ops in sound/wav.h).
int sound_allocate(const SAMPLE* s);
void sound_set_volume(int voice, int volume);
// Starts the voice for a show due at due_us (test clock; 0: at once);
// 0 when it starts on time, else how many µs later it starts.
long sound_start(int voice, unsigned long long due_us);
void sound_stop(int voice);
void sound_deallocate(int voice);
void sound_release(int voice);
// The voice's place in its sample as heard now; -1 when it is silent.
int sound_position(int voice);
// When the first sample of the voice's last start leaves the device (test
// clock, µs); 0 when the stream cannot tell.
unsigned long long sound_onset(int voice);
// Stops the voices that play s, before s is freed.
void sound_forget(const SAMPLE* s);
