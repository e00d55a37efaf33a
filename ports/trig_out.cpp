#include "ports/trig_out.h"

// No trigger port is opened yet: nothing is valid and nothing is sent.
int trig_out_valid() { return 0; }
int trig_out_send(unsigned char) { return 0; }
