// Ending the test from outside: SIGTERM, SIGINT and SIGHUP (a shutdown, a
// Ctrl-C, a closed terminal) ask the test to stop as the experimenter's "x"
// does, so that the running block is saved and the log and results are
// written. A second such signal ends the process at once, as the graphics
// library does with any fatal signal.
#pragma once

// Catches the three signals; after the graphics library is started, whose
// handlers the second signal falls back to.
void signals_install();
// The signal that asked the test to stop, or 0.
int signals_stop();
// The same, but only at its first call after the request; 0 after that. A
// block stops once for it, as for one press of its pause key.
int signals_stop_once();
// Forgets a request (tests).
void signals_reset();
