// The export and import commands.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_settings_commands(CLI::App *app, session &run);
