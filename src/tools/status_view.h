// The status and metrics commands.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/gateway_status.h"
#include "tools/json_view.h"
#include "tools/session.h"

json status_json(const gateway_status &status);

void add_status(CLI::App *app, session &run);
