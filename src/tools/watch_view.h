// What the live table shows of all its rows, and what its keys do.
#pragma once

#include <string>
#include <vector>

#include "tools/change_marks.h"
#include "tools/client_selection.h"

struct watch_state {
    client_selection which;
    std::string search;  // only rows with this text; empty: all
    bool typing = false; // the search text is being typed
    size_t top = 0;      // rows above the first that is shown
};

// The keys that were typed: a character each, or a whole escape sequence.
std::vector<std::string> keys_of(const std::string &bytes);

// Does what the key means; `page` rows are shown. Returns false when it ends the view.
bool press(watch_state &state, const std::string &key, size_t page);

// The rows that are wanted and hold the search text, in order.
std::vector<marked_client> wanted_rows(const std::vector<marked_client> &clients, const watch_state &state);

// How many rows fit between the titles and the last line.
size_t rows_that_fit(size_t height);

// Titles, the rows from state.top on, and a last line that tells how many more there are above and below, and
// the keys. As many lines as there are rows on the screen, or fewer; state.top is moved to where rows are.
std::vector<std::string> fitted(const std::string &title, const std::vector<std::string> &table,
                                watch_state &state, size_t height, int width);
