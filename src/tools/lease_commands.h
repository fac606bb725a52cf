// static-lease and internal-lease.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_lease_commands(CLI::App *app, session &run);
