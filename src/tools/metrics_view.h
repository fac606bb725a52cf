// The status as numbers in the OpenMetrics text format.
#pragma once

#include <iosfwd>

#include "tools/gateway_status.h"

void write_metrics(std::ostream &out, const gateway_status &status);
