// Register access to the parallel ports LPT1..LPT10 (index 0..9). Each port
// answers at a base address; data at base + 0, status at base + 1, control at
// base + 2, second control at base + 3. Address 0 marks a port that is not
// defined on this machine. How a port is reached is chosen per port by the
// configuration key "lpt%d-device": a port of the operating system (ppdev),
// a hexadecimal I/O address (direct I/O), or a regular file (a simulated
// port whose writes are traced). All functions return 0 or -1 (errno EINVAL).
#pragma once

// Name (substring "lpt1".."lpt10" or upper case, first match wins) to index.
int lpt_init(const char* name, int value, int mode);
// Writes value to the data lines of port index: the idle level of the caller.
int lpt_init(int index, int value, int mode);
// Licence check of the build: this build is the full version.
int lpt_init(int mode);
void lpt_done();

unsigned short lpt_get_address(int index);
// Whether port index is left to "auto" on a machine that has no parallel
// port at all. Such a port is undefined; outputs that merely default to it
// are switched off by the start-up in one line instead of each reporting it.
int lpt_absent(int index);
// How port index is reached, opening it if it was not yet: "ppdev",
// "direct I/O" or "simulated"; null when it cannot be opened or is not
// defined.
const char* lpt_access(int index);
int lpt_read_port(int index, unsigned char& value);
int lpt_set_port(int index, unsigned char value);
int lpt_get_control(int index, unsigned char& value);
int lpt_set_control(int index, unsigned char value);
int lpt_get_control2(int index, unsigned char& value);
int lpt_set_control2(int index, unsigned char value);
int lpt_get_irq(int index, int& irq);

// The ring of received trigger values: the oldest value, 0 when empty.
long lpt_get_trigger();
int lpt_trigger_write_count();
// Producer side of the ring (no producer runs in this program; tests).
void lpt_put_trigger(long value);

// One byte from / to an I/O address: a port opened through a device or a
// simulated file answers at its own addresses, any other address is real
// port I/O (permission asked once per address; refused: reads 0xFF, writes
// are dropped, and the refusal is logged).
int inportb(int port);
void outportb(unsigned short port, unsigned char value);

// Writes out what the simulated ports have traced so far.
void lpt_flush();
// Closes every opened port and forgets the received triggers (tests).
void lpt_reset();
