// The commands that look: show, watch, indices, rules, audit; list stands by itself.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"
#include "tools/text_table.h"

void add_view_commands(CLI::App *app, session &run);

// A table without rows is not drawn.
void print_table(session &run, const text_table &table);

// A segment outlives its daemon: what it holds is then the past, which is told, also by the status.
void warn_when_daemon_is_gone(session &run);
