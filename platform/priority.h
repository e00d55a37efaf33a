// Process priority classes, as the test names them: 256 real-time, 128 high,
// 32 normal, 64 idle. On Linux: SCHED_FIFO (+ mlockall), nice -10, nice 0,
// nice 19, applied to every thread of the process, the 1 ms timer thread
// included. Refusals are logged as warnings, never fatal. Going down is
// only done as far as an unprivileged process can come back up.
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
// Lowers the priority while the program is switched away, only as far as
// it can be raised again: nice 19 (idle) where the nice limit or
// CAP_SYS_NICE allows going back, else SCHED_BATCH at the nice value in
// force (which an ordinary user may always leave), and not at all from
// real-time without the limits to return; the log says which.
void alleg_low();
enum prio_lowering { LOWER_IDLE, LOWER_BATCH, LOWER_NONE };
// The choice for the class in force, RLIMIT_NICE and RLIMIT_RTPRIO (soft
// limits) and whether the process has CAP_SYS_NICE.
prio_lowering alleg_lowering(unsigned cls, unsigned long long nice_limit, unsigned long long rtprio_limit,
                             bool cap_nice);
// The class alleg_high asks for (starts as real-time).
unsigned alleg_prio_class();
void alleg_prio_class(unsigned cls);
// The class in force, read back from the scheduler.
unsigned alleg_get_prio();

unsigned MySetThreadExecutionState(unsigned flags);
