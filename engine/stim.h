// The base of every stimulus: one line of the stimulus file becomes one stim.
// It holds what every trial has in common, parses the line's key=value
// attributes and writes the base results line. The block drives stimuli only
// through the virtual operations, declared here in their fixed slot order.
#pragma once
#include <cstdint>

long stim_minreak();
void stim_minreak(long ms);
long stim_maxreak();
void stim_maxreak(long ms);
// The due time (test clock, µs) of the show action the block is carrying
// out, 0 outside one. A stimulus whose onset a device places (a sound
// voice) places it from here, not from the moment show() was called.
unsigned long long stim_show_due();
void stim_show_due(unsigned long long us);

class stim {
 public:
  stim();
  stim(unsigned nummer, const char* datei, const char* uv, unsigned trigger, int kritisch, long t0, long t1);
  stim(const char* line, int& err);
  stim(const stim&) = delete;
  stim& operator=(const stim&) = delete;

  // Tokenises line and offers every token to set(); 0, the first non-zero
  // result of set(), or -1 for a "uv="/"extra=" value that cannot be read.
  int _stim(const char* line);

  virtual int set(const char* token);
  virtual long pstime() const;
  virtual long showtime() const;
  virtual long fadetime() const;
  virtual long hidetime() const;
  virtual int skip();
  virtual int prepare();
  virtual int cleanup();
  virtual int preshow();
  virtual int show();
  virtual int playing() const;
  virtual int hide();
  virtual int richtig();
  virtual int falsch();
  virtual int auslassung();
  virtual int speichern() const;
  virtual int idle();
  virtual int send_trigger() const;
  virtual int reaktion_trigger() const;
  virtual int send_trigger(unsigned char v) const;
  virtual int with_trigger() const;
  virtual int wait_trigger(long& t);
  virtual int with_reaktion() const;
  virtual long minreak() const;
  virtual long maxreak() const;
  virtual void info() const;
  virtual ~stim();
  // The onset of the last show() where it becomes known only after the call
  // returned (a picture's stamp from the display, the moment a sound's first
  // sample leaves the device): 1 with it in µs of the test clock, 0 while it
  // is not yet known, -1 when the onset is the call's return plus showtime().
  virtual int onset_us(unsigned long long& us) const;

  uint32_t nummer;
  char* datei;
  char* uv;
  uint32_t trigger;
  int32_t kritisch;
  int32_t reaktion;
  long t0;
  long t1;
  long reakzeit;
  int shown;
};

// Replaces field by a heap copy of text (null stays null).
void stim_assign(char*& field, const char* text);

// The body of every stimulus type's factory: a T from the attribute text
// through its (text, error flag) constructor; null when the flag is set.
template <class T>
stim* stim_make(const char* attributes) {
  int err = 0;
  stim* s = new T(attributes, err);
  if (err) {
    delete s;
    return nullptr;
  }
  return s;
}
