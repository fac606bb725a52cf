// Files that others find whole or not at all.
#pragma once

#include <string>

// Replaces the file, with a new one of the usual mode. Throws std::runtime_error, and leaves the old one
// then. What is there and no plain file, as a terminal or a pipe, is written to.
void write_whole_file(const std::string &path, const std::string &text);

// Throws std::runtime_error.
std::string read_whole_file(const std::string &path);
