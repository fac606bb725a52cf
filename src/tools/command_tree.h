// Parses a command line and runs it.
#pragma once

#include <string>
#include <vector>

#include "tools/session.h"

// `arguments` are those after the program's name. Every failure ends as a line on run.err (with --json
// as an "error" object on run.out too) and as the status that is returned.
exit_status run_command_line(session &run, const std::vector<std::string> &arguments);
