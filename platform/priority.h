// Process priority classes, as the test names them: 256 real-time, 128 high,
// 32 normal, 64 idle. On Linux: SCHED_FIFO (+ mlockall), nice -10, nice 0,
// nice 19, applied to every thread of the process, the 1 ms timer thread
// included. Refusals are logged as warnings, never fatal.
#pragma once

enum : unsigned {
  REALTIME_PRIORITY_CLASS = 256,
  HIGH_PRIORITY_CLASS = 128,
  NORMAL_PRIORITY_CLASS = 32,
  IDLE_PRIORITY_CLASS = 64,
};

int alleg_prio(unsigned cls);
bool alleg_is_prio(unsigned cls);
int alleg_high();
void alleg_noreal();
bool alleg_is_high();
void alleg_normal();
bool alleg_is_normal();
void alleg_low();
// The class alleg_high asks for (starts as real-time).
unsigned alleg_prio_class();
void alleg_prio_class(unsigned cls);
// The class in force, read back from the scheduler.
unsigned alleg_get_prio();

unsigned MySetThreadExecutionState(unsigned flags);
