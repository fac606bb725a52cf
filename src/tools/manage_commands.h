// The commands that change something on a user's behalf.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_manage_commands(CLI::App *app, session &run);
