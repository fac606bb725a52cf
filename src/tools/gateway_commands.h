// What concerns the gateway as a whole: mode, reset-defaults, dump.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_gateway_commands(CLI::App *app, session &run);
