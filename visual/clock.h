// The clock: a face on which a dot runs round once per revolution time,
// rendered in advance as a film with one frame per display refresh and
// played in step with the retrace. While it runs it is the running clock,
// and the clock-synchronised picture, LED, sound and pen stimuli record at
// their own onsets where its dot stood.
#pragma once
#include <allegro.h>

#include <cstdio>

#include "screens/led.h"
#include "screens/stift.h"
#include "sound/swav.h"
#include "visual/fli.h"
#include "visual/sbmp.h"

class cclock : public fli {
 public:
  cclock(unsigned nummer, int dauer, int richtung, double radius, double tics, double tics2, const char* uv,
         unsigned char trigger, char kritisch, long t0, long t1, double x, double y);
  // Attributes "dauer=%d", "richtung=%d", "radius=%lf", "tics=%lf",
  // "tics2=%lf" and those of fli.
  cclock(const char* line, int& err);

  int set(const char* attr) override;
  long fadetime() const override;
  // Renders one face per refresh of a revolution.
  int prepare() override;
  int cleanup() override;
  // The reaction window ends with the presentation.
  long maxreak() const override;
  ~cclock() override;
  // The running clock from its first frame until its revolution is over
  // (the film came round to its first frame again, or ended): a dial that
  // stands still does not tell the time. Records an answer once.
  int reshow() override;
  // No longer shown, no longer the running clock.
  int hide() override;

  int dauer() const { return dauer_; }
  int richtung() const { return richtung_; }
  double tics() const { return tics_; }
  double tics2() const { return tics2_; }
  long start() const { return start_; }
  int akt() const { return current; }
  // Dial position of the frame on screen in minutes.
  double now() const;

  int dauer_ = 1000;    // ms per revolution
  int richtung_ = 1;    // -1 mirrors the dot (not the scale)
  double radius = 0.1;  // face size as a fraction of the drawing area height
  double tics_ = 2.5;   // minor tick step in minutes
  double tics2_ = 5.0;  // major, numbered tick step in minutes
  long start_ = 0;      // test time of the first frame shown
  long fade_ = 500;

 private:
  bool revolved_ = false;
  void new_fade();
};

stim* _clock(const char* line);

// The running clock, null when none runs.
cclock* clock_running();

// One face: a size x size bitmap in colour 0 with the dot at minutes, the
// ring and, when |tics| >= 0.1, minor ticks and numbered major ticks, all in
// palette colour 2. A step below 0.1 draws no ticks of its kind.
BITMAP* clock_at(double minutes, int size, double tics, double tics2, int richtung);
// The face without the dot, and the dot alone drawn onto a face.
BITMAP* clock_face(int size, double tics, double tics2);
// The face's side in pixels for a radius (a share of the screen height):
// 0 when that is under one pixel or over four screen heights, or not a
// number.
int clock_size(double radius);
void clock_dot(BITMAP* face, double minutes, int richtung);

// The stimuli that record the running clock's position at their onset into
// their condition text: "<kind> moda %d dauer %d richtung %d tics %.1f tics2
// %.1f t0 %ld t0real %ld bildnummer %d minuten %.1f", and the position in
// tenths of a minute as their reaction time. Without a running clock their
// onset fails with "clock is not running...".
// Writes that record into s (reaktion 1, reakzeit the tenths); 0, or -1
// without a running clock.
int clock_record(stim& s, const char* kind, int moda);

template <class Base>
class clocked : public Base {
 public:
  // The base's line constructor, then kritisch 1 and the line parsed again
  // with "moda=%d" (a free modality code for the record).
  clocked(const char* line, int& err, const char* kind) : Base(line, err), kind_(kind) {
    this->kritisch = 1;
    if (err == 0) err = this->_stim(line);
    err = err ? 1 : 0;
  }
  int set(const char* attr) override {
    return attr && sscanf(attr, "moda=%d", &moda) == 1 ? 0 : Base::set(attr);
  }
  int show() override { return Base::show() != 0 ? -1 : clock_record(*this, kind_, moda); }
  int moda = 0;

 private:
  const char* kind_;
};

class cbmp : public clocked<sbmp> {
 public:
  cbmp(const char* line, int& err) : clocked(line, err, "bmp") {}
};
class cled : public clocked<led> {
 public:
  cled(const char* line, int& err) : clocked(line, err, "led") {}
};
class cwav : public clocked<swav> {
 public:
  cwav(const char* line, int& err) : clocked(line, err, "wav") {}
};
class cstift : public clocked<stift> {
 public:
  cstift(const char* line, int& err) : clocked(line, err, "stift") {}
};

stim* _cbmp(const char* line);
stim* _cled(const char* line);
stim* _cwav(const char* line);
stim* _cstift(const char* line);
