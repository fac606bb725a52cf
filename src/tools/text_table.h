// Aligned tables of text that fit the terminal.
#pragma once

#include <string>
#include <vector>

enum class style { plain, good, faint, warning, fresh, changed };

struct table_cell {
    std::string text; // any bytes: they are made printable when the table is drawn
    style look = style::plain;
};

struct table_column {
    std::string title;
    int narrowest = 0;  // cells that the column may be cut down to; 0 = never cut
    int drop_order = 0; // when room is short, the highest goes first; 0 = never dropped
};

struct text_table {
    std::vector<table_column> columns;
    std::vector<std::vector<table_cell>> rows; // one cell per column
};

// How to draw: `width` cells at most (0 = as wide as it takes), with colours or without.
struct drawing {
    int width = 0;
    bool colour = false;
    bool cut = false; // at the width, also what is never cut otherwise
};

// Title line and one line per row, without line ends. Columns that are empty in every row are left
// out when they may be dropped.
std::vector<std::string> draw_table(const text_table &table, const drawing &how);

// The columns that are drawn, by their place in the table.
std::vector<size_t> shown_columns(const text_table &table, const drawing &how);

// The text with the style's colour when `colour`, alone otherwise.
std::string styled(const std::string &text, style look, bool colour);
