#include "engine/stimuli.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <new>

#include <allegro.h>

#include "engine/reak.h"
#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/timing.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "platform/alleg.h"
#include "platform/display.h"
#include "platform/font.h"
#include "platform/priority.h"
#include "platform/signals.h"
#include "platform/timer.h"
#include "screens/info.h"
#include "services/config.h"
#include "services/dict.h"
#include "services/log.h"
#include "services/report.h"
#include "sound/wav.h"

namespace {
const int kMaxStimuli = 3000;
// The last stretch before an action's due time is spun without polling. A
// poll may take a tenth of a millisecond and more (the X input pass, the
// display's completion events); one begun just before the due time would
// make the action as late. A key that comes in the stretch is taken by the
// first poll after the action.
const long long kSpinUs = 150;

int next_block_ = 0;
int blocks_run_ = 0;
int* order_ = nullptr;
int order_count_ = 0;
bool exit_registered_ = false;

int fail(int err, const char* text) {
  errno = err;
  alleg_perror(text);
  return -1;
}
}  // namespace

int aktionen_sort(const void* pa, const void* pb) {
  const aktion* a = static_cast<const aktion*>(pa);
  const aktion* b = static_cast<const aktion*>(pb);
  const long da = a->showtime(), db = b->showtime();
  if (da != db) return da < db ? -1 : 1;
  return (a->type > b->type) - (a->type < b->type);
}

stimuli::stimuli()
    : count_(0), stims_(nullptr), kritisch_{}, fang_{}, nicht_kr_{}, last_reacted_(nullptr), last_reaction_time_(0),
      aktionen_(nullptr), n_aktionen_(0), antizipationen_(nullptr), held_{}, n_held_(0) {}

stimuli::stimuli(int n, int& err) : stimuli() { err = _stimuli(n); }
stimuli::stimuli(int n, char** lines, int& err) : stimuli() { err = _stimuli(n, lines); }
stimuli::stimuli(int block, const char* name, int& err) : stimuli() { err = _stimuli(block, name); }
stimuli::stimuli(int& err) : stimuli() { err = _stimuli("dummy"); }

stimuli::~stimuli() {
  for (int i = 0; i < count_; ++i) delete stims_[i];
  delete[] stims_;
  delete[] aktionen_;
  delete[] antizipationen_;
}

int stimuli::_stimuli() {
  count_ = 0;
  stims_ = nullptr;
  return 0;
}

int stimuli::_stimuli(int n) {
  if (n < 0) n = 0;
  stims_ = new (std::nothrow) stim*[n > 0 ? n : 1]();
  if (!stims_) return fail(ENOMEM, "stims*");
  // The run counts into it and must not allocate.
  delete[] antizipationen_;
  antizipationen_ = new (std::nothrow) int[n > 0 ? n : 1]();
  if (!antizipationen_) return fail(ENOMEM, "stims*");
  count_ = n;
  return 0;
}

int stimuli::_stimuli(int n, char** lines) {
  if (_stimuli(n) != 0) return -1;
  for (int i = 0; i < n; ++i) {
    const char* line = lines ? lines[i] : nullptr;
    if (!line || !*line || strcmp(line, "\n") == 0) return fail(EINVAL, line ? line : "---");
    stim* s = _stimulus(line);
    if (!s) {
      alleg_perror(line);
      return -1;
    }
    stims_[i] = s;
  }
  return 0;
}

int stimuli::_stimuli(int block, const char*) {
  const int blocks = stimfile_anzahl();
  if (blocks > 0 && block >= blocks) return fail(ENOMEM, "stimuli/aindex");
  if (block < 0 || block >= blocks) return fail(EACCES, "stimuli*");
  const int n = stimfile_index(block);
  if (n > kMaxStimuli) return fail(ENOMEM, "stimuli/aanzahl");
  if (n == 0) return fail(EACCES, "stimuli*");
  // The stimuli parse their own copies; the store stays untouched.
  char** lines = new (std::nothrow) char*[n]();
  if (!lines) return fail(ENOMEM, "stimuli*");
  int r = 0;
  for (int i = 0; i < n && r == 0; ++i)
    if (!(lines[i] = strdup(stimfile_lines(block, i)))) r = fail(ENOMEM, "stimuli*");
  if (r == 0) r = _stimuli(n, lines);
  for (int i = 0; i < n; ++i) free(lines[i]);
  delete[] lines;
  return r;
}

int stimuli::_stimuli(const char* name) {
  if (next_block_ >= stimfile_anzahl()) return fail(EINVAL, "stimulus index overflow");
  const int block = order_ && next_block_ < order_count_ ? order_[next_block_] : next_block_;
  ++next_block_;
  return _stimuli(block, name);
}

stim* stimuli::stimulus(int i) { return i >= 0 && i < count_ ? stims_[i] : nullptr; }

int stimuli::stimulus(int i, stim* s) {
  if (i < 0 || i >= count_) return -1;
  stims_[i] = s;
  return 0;
}

int stimuli::prepare() {
  for (int i = 0; i < count_; ++i)
    if (stims_[i] && stims_[i]->prepare() != 0) return 1;
  return 0;
}

int stimuli::show() {
  int sum = 0;
  for (int i = 0; i < count_; ++i)
    if (stims_[i]) sum += stims_[i]->show();
  return sum;
}

int stimuli::hide() {
  int sum = 0;
  for (int i = 0; i < count_; ++i)
    if (stims_[i]) sum += stims_[i]->hide();
  return sum;
}

int stimuli::cleanup() {
  int sum = 0;
  for (int i = 0; i < count_; ++i)
    if (stims_[i]) sum += stims_[i]->cleanup();
  return sum;
}

int stimuli::speichern() const {
  int sum = 0;
  for (int i = 0; i < count_; ++i)
    if (stims_[i]) sum += stims_[i]->speichern();
  return sum;
}

void stimuli::info() const {
  for (int i = 0; i < count_; ++i)
    if (stims_[i]) stims_[i]->info();
}

void stimuli::clear_tracking() {
  kritisch_ = fang_ = nicht_kr_ = slot{};
  n_held_ = 0;
  last_reacted_ = nullptr;
  last_reaction_time_ = 0;
  if (antizipationen_)
    for (int i = 0; i < count_; ++i) antizipationen_[i] = 0;
}

int stimuli::build_schedule(long start) {
  delete[] aktionen_;
  n_aktionen_ = 0;
  aktionen_ = new (std::nothrow) aktion[3 * static_cast<size_t>(count_) + 1];
  if (!aktionen_) return fail(ENOMEM, "aktionen*");
  for (int i = 0; i < count_; ++i) {
    stim* s = stims_[i];
    if (!s || s->skip()) continue;
    aktionen_[n_aktionen_++].set(i, aktion::PRESHOW, start + s->t0 - s->pstime(), 0);
    aktionen_[n_aktionen_++].set(i, aktion::SHOW, start + s->t0, s->showtime());
    if (s->t1 != 0 && s->with_trigger() == 0)
      aktionen_[n_aktionen_++].set(i, aktion::HIDE, start + s->t0 + s->t1, s->hidetime());
  }
  qsort(aktionen_, static_cast<size_t>(n_aktionen_), sizeof(aktion), aktionen_sort);
  return 0;
}

const aktion* stimuli::schedule(long start, int& n) {
  n = 0;
  if (!stims_ || build_schedule(start) != 0) return nullptr;
  n = n_aktionen_;
  return aktionen_;
}

int stimuli::run(long start) {
  if (!stims_) {
    errno = EINVAL;
    return -1;
  }
  clear_tracking();
  if (start == -1) start = alleg_get_timer();
  if (count_ > 0 && stims_[0] && stims_[0]->with_trigger() && stims_[0]->wait_trigger(start) != 0) return -1;
  if (build_schedule(start) != 0) return -1;
  if (n_aktionen_ == 0) return 0;
  const int block_no = blocks_run_++;
  timing_reserve(n_aktionen_);

  int r = 0;
  for (int k = 0; k < n_aktionen_ && r == 0; ++k) {
    const aktion& a = aktionen_[k];
    stim* s = stims_[a.index];
    const long due = a.showtime();
    const long slack = a.type == aktion::SHOW ? s->pstime() : 0;
    const bool last_hide = k == n_aktionen_ - 1 && a.type == aktion::HIDE;
    long late = alleg_get_timer() - due;
    const long long spin_from = static_cast<long long>(due - slack) * 1000 - kSpinUs;
    while (slack + late < 0 && static_cast<long long>(alleg_get_utimer()) < spin_from) {
      if (idle() != 0) {
        // Trials not yet reacted to are neither evaluated nor saved.
        for (int j = k; j < n_aktionen_; ++j) {
          stim* u = stims_[aktionen_[j].index];
          if (u->reaktion == 0) u->kritisch = -1;
        }
        return -1;
      }
      const long now = alleg_get_timer();
      if (last_hide && s->fadetime() != 0 && s->reaktion >= 1 && s->t1 >= 1 &&
          now > kritisch_.onset() + s->reakzeit + s->fadetime())
        break;
      late = now - due;
    }
    while (alleg_get_timer() < due) {
    }
    timing_record tr{block_no, s->nummer, &typeid(*s), a.type, static_cast<uint64_t>(due) * 1000u,
                     alleg_get_utimer(), 0, alleg_system_us(), 0, 0, 0};
    const unsigned frame_before = display_last_frame();
    switch (a.type) {
      case aktion::SHOW: {
        late = alleg_get_timer() - due;
        if (late > alleg_toler() && s->t0 != 0) {
          alleg_warning("Sorry, %d ms too late", static_cast<int>(late));
          s->info();
        }
        wav_voice_started();
        stim_show_due(static_cast<uint64_t>(due) * 1000u);
        const int shown = s->show();
        stim_show_due(0);
        if (shown != 0) return -1;
        tr.done_us = alleg_get_utimer();
        tr.voice_us = wav_voice_started();
        if (display_last_frame() != frame_before) tr.frame = display_last_frame();
        slot& sl = s->kritisch > 0 ? kritisch_ : s->kritisch == 0 ? fang_ : nicht_kr_;
        // Presses still held belong to the stimuli shown before.
        if (sl.pending || n_held_ > 0) {
          for (slot* p : {&kritisch_, &fang_, &nicht_kr_}) settle(*p, true);
          if (offer_held() != 0) return -1;
        }
        const long estimate = alleg_get_timer() + s->showtime();
        sl = slot{s, static_cast<unsigned long long>(estimate) * 1000u, a.index, -1, false};
        unsigned long long onset_us = 0;
        const int told = s->onset_us(onset_us);
        if (told == 1) sl.onset_us = onset_us;
        sl.pending = told == 0;
        tr.onset_us = sl.pending ? 0 : sl.onset_us;
        sl.record = timing_add(tr);
        continue;
      }
      case aktion::PRESHOW:
        r = s->preshow();
        tr.done_us = alleg_get_utimer();
        break;
      default:
        r = s->hide();
        tr.done_us = alleg_get_utimer();
        if (display_last_frame() != frame_before) tr.frame = display_last_frame();
        break;
    }
    timing_add(tr);
  }

  // Wait out the open reaction windows; a poll may empty the slot.
  for (slot* sl : {&kritisch_, &fang_}) {
    while (r == 0 && sl->s && sl->s->reaktion == 0 && alleg_get_timer() < sl->onset() + sl->s->maxreak())
      r = idle();
  }
  if (r == 0 && n_held_ > 0) {
    for (slot* sl : {&kritisch_, &fang_, &nicht_kr_}) settle(*sl, true);
    r = offer_held();
  }

  for (int i = 0; i < count_; ++i) {
    stim* s = stims_[i];
    if (!s || !s->with_reaktion()) continue;
    int (stim::*hook)() = nullptr;
    int (*count)() = nullptr;
    switch (report_classify(s->kritisch, s->reaktion)) {
      case report_outcome::correct:
        hook = &stim::richtig;
        count = info_richtig;
        break;
      case report_outcome::wrong_key:
      case report_outcome::false_alarm:
        hook = &stim::falsch;
        count = info_fehler;
        break;
      case report_outcome::omission:
        hook = &stim::auslassung;
        count = info_auslassung;
        break;
      default:
        continue;
    }
    if (r != 0 || (s->*hook)() != 0 || count() != 0) r = 1;
    if (r != 0) break;
  }

  while (wav_playing()) {
  }

  // No block ends while a reaction key is still held.
  const long end = alleg_get_timer() + 100;
  for (;;) {
    int key;
    long now;
    if (taste_buffered(key, now) != 0) return -1;
    long t;
    if (taste_please(t)) return please(t);
    int held = 0;
    if (taste_read(held) != 0) return -1;
    if (held == 0) break;
  }
  while (alleg_get_timer() < end) {
  }
  if (idle() != 0) r = -1;
  return r;
}

void stimuli::settle(slot& sl, bool force) {
  if (!sl.s || !sl.pending) return;
  unsigned long long us = 0;
  if (sl.s->onset_us(us) == 1) {
    sl.onset_us = us;
  } else if (force) {
    alleg_warning("trial %d: onset not told by the display or sound, taken from the call",
                  static_cast<int>(sl.s->nummer));
    us = sl.onset_us;
  } else {
    return;
  }
  sl.pending = false;
  timing_onset(sl.record, us);
}

int stimuli::offer_held() {
  while (n_held_ > 0) {
    int key = held_[0].key;
    const long time = held_[0].time;
    const unsigned long long us = held_[0].time_us;
    for (int i = 1; i < n_held_; ++i) held_[i - 1] = held_[i];
    --n_held_;
    if (idle_mit_reak(key, time, us) || idle_ohne_reak(key, time, us) || idle_nicht_kr(key, time, us)) return -1;
  }
  return 0;
}

bool stimuli::settle_all(long now) {
  bool pending = false;
  for (slot* sl : {&kritisch_, &fang_, &nicht_kr_}) {
    settle(*sl, false);
    // Two frames late at the most; an onset not told by then never will be.
    if (sl->pending && now > sl->onset() + 250) settle(*sl, true);
    pending = pending || sl->pending;
  }
  return pending;
}

long reaction_ms(long time, long onset, unsigned long long time_us, unsigned long long onset_us) {
  if (time_us == 0 || onset_us == 0) return time - onset;
  const long long d = static_cast<long long>(time_us - onset_us);
  return static_cast<long>(d >= 0 ? (d + 500) / 1000 : -((-d + 499) / 1000));
}

int stimuli::offer(slot& sl, int& key, long time, unsigned long long time_us) {
  if (!sl.s) return 0;
  stim* s = sl.s;
  if (sl.pending) return s->idle();
  const long rt = reaction_ms(time, sl.onset(), time_us, sl.onset_us);
  if (rt > s->maxreak()) {
    sl = slot{};
    return 0;
  }
  if (key == 0) return s->idle();
  if (rt <= s->minreak() && antizipationen_) ++antizipationen_[sl.index];
  if (rt > s->minreak() && s->reaktion == 0) {
    s->reaktion = key;
    s->reakzeit = rt;
    s->reaktion_trigger();
    last_reacted_ = s;
    last_reaction_time_ = alleg_get_timer();
    key = 0;
  }
  return s->idle();
}

int stimuli::antizipationen(int i) const {
  return antizipationen_ && i >= 0 && i < count_ ? antizipationen_[i] : 0;
}

void stimuli::report(session_report& rep, int block) const {
  // A page (instruction, feedback) has no trials and no row.
  bool trials = false;
  for (int i = 0; i < count_ && !trials; ++i) trials = stims_[i] && stims_[i]->with_reaktion();
  if (!trials) return;
  rep.begin_block(block);
  for (int i = 0; i < count_; ++i) {
    const stim* s = stims_[i];
    if (!s || !s->with_reaktion()) continue;
    rep.add(s->uv, report_classify(s->kritisch, s->reaktion), s->reakzeit, antizipationen(i) > 0);
  }
}

int stimuli::idle_mit_reak(int& key, long time, unsigned long long time_us) {
  return offer(kritisch_, key, time, time_us);
}
int stimuli::idle_ohne_reak(int& key, long time, unsigned long long time_us) {
  return offer(fang_, key, time, time_us);
}
int stimuli::idle_nicht_kr(int& key, long time, unsigned long long time_us) {
  return offer(nicht_kr_, key, time, time_us);
}

int stimuli::idle() {
  int key = 0;
  long time = 0;
  if (taste_buffered(key, time) != 0) return -1;
  const unsigned long long us = taste_time_us();
  // A press is compared with the onsets once they are all known, in the
  // order the presses came.
  if (settle_all(alleg_get_timer()) || n_held_ > 0) {
    if (key != 0 && n_held_ < kHeld) held_[n_held_++] = press{key, time, us};
    key = 0;
    if (!settle_all(alleg_get_timer()) && offer_held() != 0) return -1;
  }
  if (idle_mit_reak(key, time, us) || idle_ohne_reak(key, time, us) || idle_nicht_kr(key, time, us)) return -1;
  long t;
  if (taste_please(t)) return please(t);
  if (const int sig = signals_stop_once()) {
    alleg_message("stopped (signal %d)", sig);
    return please(time);
  }
  if (const int k = tastatur_key()) {
    const int c = k & 0xff;
    if (c == 's' || c == 'S') {
      alleg_message("stopped (s pressed)");
      return please(time);
    }
    // A reaction key goes back to the key layer; any other key has no
    // reader during a block, and kept it would fill the key buffer.
    if (tastatur_is_reaction(k)) tastatur_unget(k);
  }
  return 0;
}

int stimuli::stopped() {
  alleg_timer_stop();
  alleg_normal();
  alleg_wait_real(100);
  tastatur_clear();
  for (;;) {
    if (const int sig = signals_stop()) {
      alleg_message("exit (signal %d)", sig);
      alleg_timer_cont();
      return -1;
    }
    if (const int k = tastatur_key()) {
      const int c = k & 0xff;
      if (c == 'c' || c == 'C') {
        alleg_message("continuing (c pressed)");
        alleg_high();
        alleg_timer_cont();
        return 0;
      }
      if (c == 'x' || c == 'X') {
        alleg_message("exit (x pressed)");
        alleg_timer_cont();
        return -1;
      }
      continue;
    }
    const int b = tastatur_buttons();
    if (b & 1) {
      alleg_message("exit (left button pressed)");
      while (tastatur_buttons()) alleg_wait_real(1);
      alleg_timer_cont();
      return -1;
    }
    if (b & 2) {
      alleg_message("continuing (right button pressed again)");
      while (tastatur_buttons()) alleg_wait_real(1);
      alleg_high();
      alleg_timer_cont();
      return 0;
    }
    alleg_wait_real(1);
  }
}

namespace {
// A rectangle of the drawing area saved before the dialogue covers it.
struct saved_area {
  BITMAP* copy = nullptr;
  int x = 0, y = 0;
  void save(BITMAP* from, int x_, int y_, int w, int h) {
    x = x_;
    y = y_;
    copy = create_bitmap(w, h);
    if (copy) blit(from, copy, x, y, 0, 0, w, h);
  }
  void restore(BITMAP* to) {
    if (copy) blit(copy, to, 0, 0, x, y, copy->w, copy->h);
  }
  ~saved_area() {
    if (copy) destroy_bitmap(copy);
  }
};

// Draws a dictionary text centred at (x, y) and logs it; -1 when it is missing.
int dialogue_text(BITMAP* bmp, int index, int x, int y) {
  const Chapter* dict = stimuli_dict();
  char text[200];
  if (!dict) {
    alleg_error("dict: item invalid");
    return -1;
  }
  if (dict->get(index, sizeof text, text) != 0) return -1;
  alleg_message(static_cast<const char*>(text));
  if (bmp) alleg_textout_centre(bmp, text, 1, x, y, 255, 255, 255);
  return 0;
}
// A dialogue that cannot be shown or is left with an exit ends the block;
// the clock must run again, or the block's final waits on it would never end.
int end_block() {
  alleg_timer_cont();
  return -1;
}
}  // namespace

int stimuli::please(long) {
  alleg_timer_stop();
  PALETTE pal;
  get_palette(pal);
  BITMAP* scr = screen ? getscreen() : nullptr;
  const int W = scr ? scr->w : 0, H = scr ? scr->h : 0;
  BITMAP* release = stimuli_pleaserelease_image();
  BITMAP* interrupt = stimuli_interrupt_image();
  saved_area text_area, release_area, interrupt_area;

  if (!release || !interrupt) {
    if (scr) {
      text_area.save(scr, W / 2 - 300, H - 100, 600, 100);
      rectfill(scr, W / 2 - 300, H - 100, W / 2 + 299, H - 1, 0);
    }
    set_palette(default_palette);
    if (dialogue_text(scr, 0, W / 2, H - 60) != 0) return end_block();
  } else if (scr) {
    const int x = (W - release->w) / 2, y = (3 * H / 2 - release->h) / 2;
    release_area.save(scr, x, y, release->w, release->h);
    blit(release, scr, 0, 0, x, y, release->w, release->h);
  }
  reak_please(1);
  if (!interrupt) {
    if (dialogue_text(scr, 1, W / 2, H - 30) != 0) return end_block();
  } else if (scr) {
    const int x = (W - interrupt->w) / 2, y = H - interrupt->h;
    interrupt_area.save(scr, x, y, interrupt->w, interrupt->h);
    blit(interrupt, scr, 0, 0, x, y, interrupt->w, interrupt->h);
  }
  display_flush();

  const int r = stopped();
  if (last_reacted_) {
    if (last_reacted_->kritisch != 0 || last_reacted_->reaktion != 0) {
      alleg_message("key blocked in trial number %d", static_cast<int>(last_reacted_->nummer));
      alleg_message("eliminating this trial");
    }
    last_reacted_->nummer = 0;
  }
  // The clock stays stopped from the dialogue's start until its screen is
  // restored and the participant had a second to get ready.
  if (r != 0) return end_block();
  if (scr) {
    interrupt_area.restore(scr);
    release_area.restore(scr);
    text_area.restore(scr);
  }
  set_palette(pal);
  display_flush();
  alleg_wait_real(1000);
  alleg_timer_cont();
  return 0;
}

void zufallsfolge(int n, int* out) {
  if (n <= 0 || !out) return;
  for (int i = 0; i < n; ++i) out[i] = ~rand();
  for (int k = 0; k < n; ++k) {
    int best = -1;
    for (int i = 0; i < n; ++i)
      if (out[i] < 3000000 && (best < 0 || out[i] < out[best])) best = i;
    if (best < 0) break;
    out[best] = k;
  }
}

int stimuli_zufall_init() {
  const int blocks = stimfile_anzahl();
  int* order = new (std::nothrow) int[blocks > 0 ? blocks : 1];
  if (!order) {
    errno = ENOMEM;
    return -1;
  }
  order[0] = 0;
  if (blocks > 1) {
    zufallsfolge(blocks - 1, order + 1);
    for (int i = 1; i < blocks; ++i) order[i] += 1;
  }
  delete[] order_;
  order_ = order;
  order_count_ = blocks;
  if (!exit_registered_) {
    atexit(stimuli_exit);
    exit_registered_ = true;
  }
  return 0;
}

void stimuli_exit() {
  delete[] order_;
  order_ = nullptr;
  order_count_ = 0;
  alleg_message("stimuli finished (2nd time)");
  alleg_logflush();
}

int zufall_init() {
  const int seed = config_int("random seed", 0);
  srand(seed ? static_cast<unsigned>(seed) : static_cast<unsigned>(clock()));
  return 0;
}

void stimuli_reset_order() {
  next_block_ = 0;
  delete[] order_;
  order_ = nullptr;
  order_count_ = 0;
}
