// Makes text of unknown origin safe to show: host names come from the devices themselves.
#pragma once

#include <string>
#include <string_view>

// A text for a terminal: control characters, bytes that are not UTF-8 and characters that move or
// hide text become \n, \t, \xNN or \u{NNNN}; a backslash becomes two. Everything else stays.
std::string printable(std::string_view text);

// Terminal cells that a printable text takes.
int display_width(std::string_view text);

// The text cut to `width` cells, the last of them "…" when something was cut off.
std::string cut_to_width(const std::string &text, int width);

// The text without its last character; of bytes that are none, without the last byte.
std::string without_last_character(const std::string &text);

// A JSON document in which control characters and those that move or hide text stand as \uNNNN.
std::string json_printable(std::string_view document);

// A cell of a CSV file: printable, quoted where it has to be, and never taken for a formula.
std::string csv_cell(std::string_view text);
