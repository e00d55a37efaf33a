// Trigger output on a parallel port: one pulse with the trigger byte at each
// onset. Without a configured port nothing is sent.
#pragma once

int trig_out_valid();
int trig_out_send(unsigned char value);
