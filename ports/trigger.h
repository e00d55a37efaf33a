// Waiting for an external start signal before a block goes on: the space
// bar, the second reaction key, or the response box's acknowledge line; the
// wait can show its progress on the screen.
#pragma once

enum _trigger_type { TRIGGER_NONE = 0, TRIGGER_SPACE = 1, TRIGGER_KEY2 = 2, TRIGGER_ACK = 3 };

// Reads "trigger-input" (default "space") and "trigger-show" (default "yes").
int trigger_init();
int trigger_init(const char* input, const char* show);
int trigger_init(_trigger_type type, int show);
_trigger_type trigger_type();

// Waits for the trigger, at most ms (0: no timeout); 0 when it came or the
// wait is over, -1 when stopped or on an error.
int trigger_wait(long ms);
// The acknowledge line is read by polling the response box, which sets its
// port's data lines high at every poll: on the trigger output's port
// (output_lpt, 0 for LPT1, -1 none) the recorder sees 255 for the whole
// wait. Warns when the two share a port; 1 then, else 0.
int trigger_shares_port(int output_lpt);
// Shows state 0 (waiting), 1 (got it) or 2 (failed) when showing is on.
void trigger_info(int state);
