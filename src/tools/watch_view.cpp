#include "tools/watch_view.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "tools/client_table.h"
#include "tools/printable.h"

namespace {

constexpr size_t frame_lines = 3; // title, names of the columns, last line
constexpr size_t to_the_end = SIZE_MAX / 2;

std::string lower(std::string text) {
    for (char &letter : text)
        letter = static_cast<char>(tolower(static_cast<unsigned char>(letter)));
    return text;
}

bool matches(const hbs_client &client, const std::string &search) {
    const std::vector<table_cell> row = client_row(client);
    return std::any_of(row.begin(), row.end(), [&](const table_cell &cell) {
        return lower(cell.text).find(lower(search)) != std::string::npos;
    });
}

// Up to the first letter or '~' behind "ESC [" or "ESC O".
size_t length_of_key(const std::string &bytes, size_t at) {
    const bool sequence =
        bytes[at] == '\033' && at + 1 < bytes.size() && (bytes[at + 1] == '[' || bytes[at + 1] == 'O');
    if (!sequence)
        return 1;
    size_t end = at + 2;
    while (end < bytes.size() && isalpha(static_cast<unsigned char>(bytes[end])) == 0 && bytes[end] != '~')
        end++;
    return std::min(end + 1, bytes.size()) - at;
}

void move_up(watch_state &state, size_t rows) {
    state.top -= std::min(state.top, rows);
}

struct movement {
    const char *key;
    bool down;
    size_t pages; // 0: one row
};

constexpr movement movements[] = {{"\033[A", false, 0},
                                  {"k", false, 0},
                                  {"\033[B", true, 0},
                                  {"j", true, 0},
                                  {"\033[5~", false, 1},
                                  {"\033[6~", true, 1},
                                  {" ", true, 1},
                                  {"\033[H", false, to_the_end},
                                  {"g", false, to_the_end},
                                  {"\033[1~", false, to_the_end},
                                  {"\033[F", true, to_the_end},
                                  {"\033[4~", true, to_the_end},
                                  {"G", true, to_the_end}};

void move(watch_state &state, const std::string &key, size_t page) {
    for (const movement &one : movements) {
        if (key != one.key)
            continue;
        const size_t rows = one.pages == 0 ? 1 : one.pages == 1 ? page : to_the_end;
        if (one.down)
            state.top += rows;
        else
            move_up(state, rows);
    }
}

void next_sort(client_selection &which) {
    const std::vector<std::string> &keys = sort_keys();
    const auto now = std::find(keys.begin(), keys.end(), which.sort);
    which.sort = now == keys.end() || std::next(now) == keys.end() ? keys.front() : *std::next(now);
}

// All, those on line, those off line, all.
void next_state(client_selection &which) {
    const bool all = which.online == which.offline;
    which.offline = which.online && !all;
    which.online = all;
}

void type(watch_state &state, const std::string &key) {
    if (key == "\r" || key == "\n") {
        state.typing = false;
    } else if (key == "\033") {
        state.typing = false;
        state.search.clear();
    } else if (key == "\x7f" || key == "\b") {
        state.search = without_last_character(state.search);
    } else if (key.size() == 1 && static_cast<unsigned char>(key[0]) >= ' ') {
        state.search += key;
    }
}

std::string hidden_text(size_t above, size_t below) {
    std::string text = above > 0 ? std::to_string(above) + " above, " : "";
    return text + (below > 0 ? "+" + std::to_string(below) + " more" : above > 0 ? "the end" : "all");
}

std::string last_line(const watch_state &state, size_t above, size_t below) {
    if (state.typing)
        return "/" + printable(state.search) + "_";
    const std::string search = state.search.empty() ? "" : "  /" + printable(state.search);
    const char *heads = state.which.online == state.which.offline ? "all"
                        : state.which.online                      ? "on line"
                                                                  : "off line";
    return hidden_text(above, below) + search + "  [s]ort: " + state.which.sort +
           (state.which.reverse ? ", reverse" : "") + "  [r]everse  [o]: " + heads + "  [/] search  [q]uit";
}

} // namespace

std::vector<std::string> keys_of(const std::string &bytes) {
    std::vector<std::string> keys;
    for (size_t at = 0; at < bytes.size(); at += keys.back().size())
        keys.push_back(bytes.substr(at, length_of_key(bytes, at)));
    return keys;
}

bool press(watch_state &state, const std::string &key, size_t page) {
    if (state.typing) {
        type(state, key);
        return true;
    }
    move(state, key, page);
    if (key == "s")
        next_sort(state.which);
    if (key == "r")
        state.which.reverse = !state.which.reverse;
    if (key == "o")
        next_state(state.which);
    if (key == "\033")
        state.search.clear();
    state.typing = key == "/";
    return key != "q";
}

std::vector<marked_client> wanted_rows(const std::vector<marked_client> &clients, const watch_state &state) {
    std::vector<marked_client> rows;
    std::copy_if(
        clients.begin(), clients.end(), std::back_inserter(rows),
        [&](const marked_client &one) {
            return is_wanted(one.client, state.which) && matches(one.client, state.search);
        });
    std::stable_sort(rows.begin(), rows.end(), [&](const marked_client &left, const marked_client &right) {
        return comes_before(left.client, right.client, state.which);
    });
    return rows;
}

size_t rows_that_fit(size_t height) {
    return height > frame_lines ? height - frame_lines : 1;
}

std::vector<std::string> fitted(const std::string &title, const std::vector<std::string> &table,
                                watch_state &state, size_t height, int width) {
    const size_t rows = table.size() - 1, room = rows_that_fit(height);
    state.top = std::min(state.top, rows > room ? rows - room : 0);
    const size_t end = std::min(rows, state.top + room);
    std::vector<std::string> lines = {title, table[0]};
    for (size_t row = state.top; row < end; row++)
        lines.push_back(table[row + 1]);
    lines.push_back(cut_to_width(last_line(state, state.top, rows - end), width));
    return lines;
}
