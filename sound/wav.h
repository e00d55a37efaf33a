// The sound stimulus: a sample loaded from a file and played once, optionally
// on one of eight loudspeakers switched by a relay box on a parallel port.
// The module keeps the test time until which any started sound still plays,
// so that no block ends while a sound is audible.
#pragma once
#include "engine/stim.h"

struct SAMPLE;

enum wav_port_ : int { wav_none = 0, wav_lpt1 = 1, wav_lpt2 = 2, wav_lpt3 = 3 };

class wav : public stim {
 public:
  wav(unsigned nummer, const char* datei, const char* uv, unsigned char trigger, char kritisch, long t0,
      int speaker, int volume);
  wav(const char* line, int& error);

  int set(const char* token) override;
  long pstime() const override;
  long showtime() const override;
  int prepare() override;
  int cleanup() override;
  int preshow() override;
  int show() override;
  void info() const override;
  ~wav() override;
  // Switches the relay box to speaker n (1..8); 0 does nothing.
  virtual int speaker_select(int n);
  // The moment the first sample of the last show leaves the device.
  int onset_us(unsigned long long& us) const override;

  int speaker;
  int volume;
  SAMPLE* sample;

 protected:
  // Starts voice v for the show being carried out: at the frame of its due
  // time, or at once (with a warning naming the trial) when that frame has
  // gone to the device already. Keeps the onset.
  void start_voice(int v);
  // Frees a sample of this stimulus's own, silencing its voices first.
  void free_sample();
  unsigned long long onset_ = 0;  // test clock µs, 0 when not known
};

stim* _wav(const char* line);

// The test time in µs at which the first sample of the last sound stimulus
// shown leaves the device, 0 when none was shown since the last call;
// reading it clears it.
unsigned long long wav_voice_started();
void wav_voice_started(unsigned long long us);

// Reads "speaker-selection" (default "none") and starts the speaker port.
int wav_init();
int wav_init(wav_port_ port);
// The port named by a "speaker-selection" text, -1 when it names none.
int wav_port_of(const char* text);

// True while the test clock is before the playing-until time.
bool wav_playing();
long wav_playing_until();
// Raises the playing-until time to t; never lowers it.
void wav_playing_until(long t);
// Ends the playing-until time now (for callers that cut a block short).
void wav_stop_playing();
void wav_reset();

// Length of a sample in ms (frames × 1000 / rate, truncated); 0 without a rate.
long wav_length_ms(const SAMPLE* s);
// The volume handed to the mixer: -1 means full volume (255); kept in 0..255.
int wav_play_volume(int volume);
// Where a sound file named in a stimulus or list is loaded from: a full path
// as it stands, else the name next to the program file when it exists there,
// else the name as it stands.
void wav_resolve(const char* name, char* path, int size);

// The voice calls of the sound output (platform/sound). Tests put recorders
// in their place; null restores the output's own.
struct wav_voice_ops {
  int (*allocate)(const SAMPLE* s);
  void (*set_volume)(int voice, int vol);
  // Starts the voice for a show due at due_us (test clock; 0: at once);
  // 0 on time, else how many µs late it starts.
  long (*start)(int voice, unsigned long long due_us);
  void (*stop)(int voice);
  void (*deallocate)(int voice);
  // Frees the voice once it has played to its end.
  void (*release)(int voice);
  int (*position)(int voice);
  // When the voice's first sample leaves the device (test clock µs); 0
  // when not known. May be null.
  unsigned long long (*onset)(int voice);
  // Silences the voices that play a sample about to be freed. May be null.
  void (*forget)(const SAMPLE* s);
};
void wav_voices(const wav_voice_ops* ops);
const wav_voice_ops& wav_voices();
