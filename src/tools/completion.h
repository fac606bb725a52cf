// What a shell offers to complete a command line with.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// The words that may stand in the place of the last one and begin like it: commands, options and, where a
// client is named, the clients of the live table. Runs nothing.
std::vector<std::string> completions(CLI::App &app, const std::vector<std::string> &words);
