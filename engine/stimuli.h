// One block of trials: the stimuli built from one block of the stimulus
// file, their collective operations, and the time-sorted action list that
// run() walks against the test clock.
#pragma once

class stim;
class session_report;

// One scheduled action: due at time - correction on the test clock (ms).
struct aktion {
  enum { PRESHOW = 1, SHOW = 2, HIDE = 3 };
  int index;
  int type;
  long time;
  long correction;
  void set(int index_, int type_, long time_, long correction_) {
    index = index_;
    type = type_;
    time = time_;
    correction = correction_;
  }
  long showtime() const { return time - correction; }
};

// Earlier due time first; at equal due times preshow, then show, then hide.
int aktionen_sort(const void* a, const void* b);

// A reaction time in whole ms: the press's and the onset's microsecond times
// apart, rounded (half a ms up); from the whole-ms times where either is not
// known in microseconds.
long reaction_ms(long time, long onset, unsigned long long time_us, unsigned long long onset_us);

class stimuli {
 public:
  stimuli();
  stimuli(int n, int& err);
  stimuli(int n, char** lines, int& err);
  stimuli(int block, const char* name, int& err);
  explicit stimuli(int& err);
  stimuli(const stimuli&) = delete;
  stimuli& operator=(const stimuli&) = delete;
  virtual ~stimuli();

  int _stimuli();
  int _stimuli(int n);
  int _stimuli(int n, char** lines);
  int _stimuli(int block, const char* name);
  int _stimuli(const char* name);

  virtual int prepare();
  virtual int show();
  virtual int hide();
  virtual int cleanup();
  virtual int speichern() const;
  virtual int run(long start);
  virtual int idle();
  virtual int stopped();
  virtual int please(long t);
  virtual int idle_mit_reak(int& key, long time, unsigned long long time_us);
  virtual int idle_ohne_reak(int& key, long time, unsigned long long time_us);
  virtual int idle_nicht_kr(int& key, long time, unsigned long long time_us);
  virtual void info() const;

  stim* stimulus(int i);
  int stimulus(int i, stim* s);
  int anzahl() const { return count_; }

  // The schedule run() would walk from start (ms), sorted; n receives its
  // length. The array is owned by the block until the next call.
  const aktion* schedule(long start, int& n);

  // Presses of a reaction key that trial i's reaction slot was offered at or
  // before its minreak in the last run (ignored by the run, counted here).
  int antizipationen(int i) const;
  // Adds the trials the last run evaluated, classified as run() classifies
  // them, to rep as block number block. A block without any stimulus that
  // takes a reaction (an instruction or feedback page) adds nothing.
  void report(session_report& rep, int block) const;

 protected:
  // A tracked trial: the last shown stimulus of its kind, its onset and its
  // index in the block. Where the display or the sound stream tells the
  // onset only after show() returned, it is pending until then: onset holds
  // the call's own estimate, and presses wait in the block's queue.
  struct slot {
    stim* s;
    unsigned long long onset_us;  // on the test clock
    int index;
    int record;  // its show in the timing trace, -1 for none
    bool pending;
    long onset() const { return static_cast<long>(onset_us / 1000); }
  };
  int offer(slot& sl, int& key, long time, unsigned long long time_us);
  void clear_tracking();
  int build_schedule(long start);
  // Takes a pending onset once known; force takes the estimate instead.
  void settle(slot& sl, bool force);
  // Settles what it can and says whether any slot is still pending.
  bool settle_all(long now);
  // Offers the held presses in their order; -1 when a stimulus failed.
  int offer_held();

  int count_;
  stim** stims_;
  slot kritisch_;
  slot fang_;
  slot nicht_kr_;
  stim* last_reacted_;
  long last_reaction_time_;
  aktion* aktionen_;
  int n_aktionen_;
  int* antizipationen_;  // per stimulus, sized with the block
  // A press that came while an onset was pending, offered once it is known.
  struct press {
    int key;
    long time;
    unsigned long long time_us;
  };
  static const int kHeld = 16;
  press held_[kHeld];
  int n_held_;
};

int stimuli_zufall_init();
void stimuli_exit();
void zufallsfolge(int n, int* out);
int zufall_init();
// Puts the next-block index and the permutation back to their start (tests).
void stimuli_reset_order();
