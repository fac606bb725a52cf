#include "tools/text_table.h"

#include <algorithm>

#include "tools/printable.h"

namespace {

constexpr int gap = 2; // cells between two columns

struct placed_column {
    size_t index; // in the table
    int natural;  // cells that its widest cell takes
    int width;    // cells that it gets
};

int smallest(const text_table &table, const placed_column &column) {
    const int narrowest = table.columns[column.index].narrowest;
    return narrowest == 0 ? column.natural : std::min(narrowest, column.natural);
}

bool is_empty(const text_table &table, size_t index) {
    return std::all_of(
        table.rows.begin(), table.rows.end(), [&](const auto &row) { return row[index].text.empty(); });
}

std::vector<placed_column> place_all(const text_table &table) {
    std::vector<placed_column> placed;
    for (size_t i = 0; i < table.columns.size(); i++) {
        if (table.columns[i].drop_order > 0 && is_empty(table, i))
            continue;
        int natural = display_width(table.columns[i].title);
        for (const auto &row : table.rows)
            natural = std::max(natural, display_width(printable(row[i].text)));
        placed.push_back({i, natural, natural});
    }
    return placed;
}

int least_total(const text_table &table, const std::vector<placed_column> &placed) {
    int total = -gap;
    for (const placed_column &column : placed)
        total += smallest(table, column) + gap;
    return total;
}

void drop_until_it_fits(const text_table &table, std::vector<placed_column> &placed, int width) {
    const auto order = [&](const placed_column &column) { return table.columns[column.index].drop_order; };
    while (least_total(table, placed) > width) {
        auto first = std::max_element(placed.begin(), placed.end(),
                                      [&](const auto &a, const auto &b) { return order(a) < order(b); });
        if (first == placed.end() || order(*first) == 0)
            return;
        placed.erase(first);
    }
}

// Every column gets its least; what is left goes to those that want more, from the left.
void share_out(const text_table &table, std::vector<placed_column> &placed, int width) {
    int left = std::max(0, width - least_total(table, placed));
    for (placed_column &column : placed) {
        const int least = smallest(table, column);
        const int more = std::min(left, column.natural - least);
        column.width = least + more;
        left -= more;
    }
}

// What lies beyond the edge is left out.
void cut_at_edge(std::vector<placed_column> &placed, int width) {
    for (placed_column &column : placed) {
        column.width = std::clamp(width, 0, column.width);
        width -= column.width + gap;
    }
    std::erase_if(placed, [](const placed_column &column) { return column.width == 0; });
}

std::vector<placed_column> place(const text_table &table, const drawing &how) {
    std::vector<placed_column> placed = place_all(table);
    if (how.width > 0) {
        drop_until_it_fits(table, placed, how.width);
        share_out(table, placed, how.width);
        if (how.cut)
            cut_at_edge(placed, how.width);
    }
    return placed;
}

void append_cell(std::string &line, const std::string &text, style look, int width, bool last, bool colour) {
    const std::string shown = cut_to_width(text, width);
    line += styled(shown, look, colour);
    if (!last) {
        const int blanks = width - display_width(shown) + gap;
        line.append(static_cast<size_t>(blanks), ' ');
    }
}

std::string title_line(const text_table &table, const std::vector<placed_column> &placed, bool colour) {
    std::string line;
    for (const placed_column &column : placed) {
        append_cell(line, table.columns[column.index].title, style::faint, column.width,
                    &column == &placed.back(), colour);
    }
    return line;
}

} // namespace

std::string styled(const std::string &text, style look, bool colour) {
    constexpr const char *codes[] = {"", "\033[32m", "\033[2m", "\033[33m", "\033[1;32m", "\033[1;33m"};
    if (!colour || look == style::plain || text.empty())
        return text;
    return codes[static_cast<size_t>(look)] + text + "\033[0m";
}

std::vector<size_t> shown_columns(const text_table &table, const drawing &how) {
    std::vector<size_t> columns;
    for (const placed_column &column : place(table, how))
        columns.push_back(column.index);
    return columns;
}

std::vector<std::string> draw_table(const text_table &table, const drawing &how) {
    const std::vector<placed_column> placed = place(table, how);
    std::vector<std::string> lines = {title_line(table, placed, how.colour)};
    for (const auto &row : table.rows) {
        std::string line;
        for (const placed_column &column : placed) {
            const table_cell &cell = row[column.index];
            append_cell(line, printable(cell.text), cell.look, column.width, &column == &placed.back(),
                        how.colour);
        }
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return lines;
}
