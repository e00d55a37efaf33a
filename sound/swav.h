// Preloaded sounds: a numbered table of samples loaded once at start-up (from
// the program's appended datafile or from files) and played from memory on a
// voice reserved before onset, so that onset is one voice start; a table of
// default volumes by sound number; and a silent sample kept playing on a voice
// of its own for the whole run.
#pragma once
#include <cstdio>

#include "sound/wav.h"

// Finds the sound list (option "snd", default the program path with
// extension "snd"; first as an object of the appended datafile, then as a
// file), loads the table and then the volume table: 0, 1 when either failed,
// -1 when the list cannot be read.
int swav_init();
// Loads n samples by name, starts the silence voice, registers swav_done.
int swav_init(int n, char** names);
// Frees every sample of the table, the array, and what the list file left.
void swav_done();
// Entry i of the table; null (with an error in the log) when there is none.
SAMPLE* swav_get(int i);
int swav_count();

// Loads the volume file (option "vol", default the program path with
// extension "vol", mapped through the file list); a missing file leaves
// every volume at 255.
int volume_init();
// The default volume of sound i (0..999); -1 with an error outside.
int volume_default(int i);

// Reads a sound list: a count, then that many names of at most 199
// characters; n and names (heap copies) on success.
int swav_read_list(FILE* f, int& n, char**& names);

class swav : public wav {
 public:
  swav(unsigned nummer, int index, const char* uv, unsigned trigger, int kritisch, long t0, int speaker,
       int volume);
  swav(const char* line, int& error);

  int set(const char* token) override;
  long pstime() const override;
  long showtime() const override;
  int prepare() override;
  int cleanup() override;
  int preshow() override;
  int show() override;
  int playing() const override;
  int hide() override;
  ~swav() override;

  int index;
  int voice;
};

stim* _swav(const char* line);
