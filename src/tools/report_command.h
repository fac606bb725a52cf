// The report command.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_report(CLI::App *app, session &run);
