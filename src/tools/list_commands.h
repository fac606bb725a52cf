// mac-filter and rule: the white and the black list.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_list_commands(CLI::App *app, session &run);
