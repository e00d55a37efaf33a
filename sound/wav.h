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

  int speaker;
  int volume;
  SAMPLE* sample;
};

stim* _wav(const char* line);

// The test time in µs at which the last sound stimulus started its voice,
// 0 when none did since the last call; reading it clears it.
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

// The sound library's voice calls, which need a sound driver. Tests put
// recorders in their place; null restores the library's own.
struct wav_voice_ops {
  int (*play)(const SAMPLE* s, int vol, int pan, int freq, int loop);
  int (*allocate)(const SAMPLE* s);
  void (*set_volume)(int voice, int vol);
  void (*start)(int voice);
  void (*stop)(int voice);
  void (*deallocate)(int voice);
  // Frees the voice once it has played to its end.
  void (*release)(int voice);
  int (*position)(int voice);
};
void wav_voices(const wav_voice_ops* ops);
const wav_voice_ops& wav_voices();
