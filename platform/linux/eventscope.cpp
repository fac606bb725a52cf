// Events: what the threads of this platform keep is marked as old by the kernel's own messages.
#include <eventscope.h>

void EVENT_Begin(void) {}

void EVENT_End(void) {}
