// trust and comment.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_trust_commands(CLI::App *app, session &run);
