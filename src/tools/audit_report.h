// The audit command.
#pragma once

#include "tools/session.h"

// Prints one line for each difference; the status is 1 when there is one.
void audit(session &run);
