// The list command.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_list(CLI::App *app, session &run);
