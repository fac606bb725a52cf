// The status and metrics commands.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_status(CLI::App *app, session &run);
