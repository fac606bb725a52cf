// The commands that look: list, show, watch, indices, rules, audit.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_view_commands(CLI::App *app, session &run);
