#include "tools/change_marks.h"

#include <algorithm>
#include <cstddef>

#include "tools/client_table.h"
#include "tools/words.h"

namespace {

std::string mark_key(const hbs_client &client) {
    const std::string mac = mac_text(client.mac);
    return mac.empty() ? "#" + std::to_string(client.client_id) : mac;
}

const char *mark_sign(mark what) {
    switch (what) {
    case mark::none:
        return "";
    case mark::fresh:
        return "+";
    case mark::changed:
        return "*";
    case mark::gone:
        return "-";
    }
    return "";
}

style mark_style(mark what) {
    switch (what) {
    case mark::none:
        return style::plain;
    case mark::fresh:
        return style::fresh;
    case mark::changed:
        return style::changed;
    case mark::gone:
        return style::faint;
    }
    return style::plain;
}

} // namespace

bool client_changed(const hbs_client &before, const hbs_client &now, const std::vector<size_t> &columns) {
    const std::vector<table_cell> left = client_row(before), right = client_row(now);
    return std::any_of(columns.begin(), columns.end(),
                       [&](size_t column) { return left[column].text != right[column].text; });
}

std::vector<size_t> shown_client_columns(const std::vector<hbs_client> &clients, const drawing &how) {
    std::vector<marked_client> marked;
    marked.reserve(clients.size());
    for (const hbs_client &client : clients)
        marked.push_back({client, mark::none});
    std::vector<size_t> columns = shown_columns(marked_table(marked), how);
    std::erase(columns, size_t{0}); // the mark itself
    for (size_t &column : columns)
        column--;
    return columns;
}

void change_marks::mark_gone(const std::vector<hbs_client> &clients, time_point now) {
    for (auto entry = known_.begin(); entry != known_.end();) {
        known &one = entry->second;
        const bool present = std::any_of(clients.begin(), clients.end(), [&](const hbs_client &client) {
            return mark_key(client) == entry->first;
        });
        if (!present && one.what != mark::gone) {
            one.what = mark::gone;
            one.since = now;
        }
        const bool forget = !present && now - one.since >= lasting_;
        entry = forget ? known_.erase(entry) : std::next(entry);
    }
}

std::vector<marked_client> change_marks::update(const std::vector<hbs_client> &clients, time_point now,
                                                const std::vector<size_t> &columns) {
    std::vector<marked_client> result;
    for (const hbs_client &client : clients) {
        const auto [entry, added] =
            known_.try_emplace(mark_key(client), known{client, first_ ? mark::none : mark::fresh, now});
        known &one = entry->second;
        if (one.what == mark::gone)
            one = {client, mark::fresh, now};
        else if (!added && client_changed(one.client, client, columns))
            one = {client, mark::changed, now};
        else if (now - one.since >= lasting_)
            one.what = mark::none;
        one.client = client;
        result.push_back({client, one.what});
    }
    mark_gone(clients, now);
    for (const auto &[key, one] : known_)
        if (one.what == mark::gone)
            result.push_back({one.client, mark::gone});
    first_ = false;
    return result;
}

text_table marked_table(const std::vector<marked_client> &clients) {
    text_table table = {client_columns(), {}};
    table.columns.insert(table.columns.begin(), {" "});
    for (const marked_client &one : clients) {
        std::vector<table_cell> row = client_row(one.client);
        row.insert(row.begin(), {mark_sign(one.what), mark_style(one.what)});
        if (one.what != mark::none)
            for (table_cell &cell : row)
                cell.look = mark_style(one.what);
        table.rows.push_back(row);
    }
    return table;
}
