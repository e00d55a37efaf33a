// A trigger interface on a serial port (USB-to-TTL trigger boxes show up as
// /dev/ttyACM* or /dev/ttyUSB*): the host writes one byte and the interface
// puts it on its eight TTL lines, until the next byte or for a pulse it
// times itself. One such port at most.
#pragma once

// Opens COMn (its device from "com%d-device") raw, 8 data bits, no parity,
// one stop bit, no flow control, at baud bit/s, exclusively (TIOCEXCL and
// an flock, so that a second program cannot share it). 0, or -1 logged as
// "trig_out/com<n>: <device>: <reason>".
int trig_serial_open(int number, long baud);
// The device path of the open port ("" when none).
const char* trig_serial_device();
// Hands one byte to the driver without waiting for it to leave the host
// (the port is non-blocking: a full output buffer is a failure, not a
// wait). 0, or -1 logged.
int trig_serial_put(unsigned char byte);
void trig_serial_close();
