// Waiting for an external start trigger before a block.
#pragma once

// Waits for the configured trigger input, at most timeout_ms; 0 on success.
int trigger_wait(long timeout_ms);
