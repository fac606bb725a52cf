// The commands that tell the daemon of an event, as the gateway's other programs do.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_event_commands(CLI::App *app, session &run);
