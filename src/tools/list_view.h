// The list command.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/client_selection.h"
#include "tools/session.h"

// The options that say which clients are shown, and in which order.
void add_selection(CLI::App *command, client_selection &which);

void add_list(CLI::App *app, session &run);
