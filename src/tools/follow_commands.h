// The commands that go on looking: events and wait.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_follow_commands(CLI::App *app, session &run);
