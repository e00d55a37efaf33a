#include "ports/trigger.h"

#include "services/log.h"

// No trigger input is configured yet: the wait fails as with input "none"
// and no delay.
int trigger_wait(long) {
  alleg_error("no trigger and no delay");
  return -1;
}
