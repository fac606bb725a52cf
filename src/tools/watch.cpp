#include "tools/watch.h"

#include <ctime>
#include <unistd.h>

#include "tools/change_marks.h"
#include "tools/client_table.h"
#include "tools/command_client.h"
#include "tools/database.h"
#include "tools/json_view.h"
#include "tools/printable.h"
#include "tools/terminal.h"
#include "tools/time_text.h"
#include "tools/watch_view.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::chrono::seconds marks_last(5);

// What one look at the database found.
struct view {
    std::vector<hbs_client> clients; // in order
    std::vector<marked_client> marked;
    std::string error; // why the database could not be read; empty: it could
    exit_status status = exit_ok;
};

drawing drawing_on_screen() {
    drawing how = drawing_of(STDOUT_FILENO);
    how.cut = true;
    return how;
}

view look_now(const session &run, const watch_state &state, change_marks &marks) {
    view now;
    now.status = daemon_is_there(run.socket_path) ? exit_ok : exit_not_there;
    try {
        now.clients = read_database().clients;
        const std::vector<size_t> columns =
            shown_client_columns(selected(now.clients, state.which), drawing_on_screen());
        now.marked = marks.update(now.clients, clock_type::now(), columns);
    } catch (const database_error &error) {
        now.error = error.what();
        now.status = status_of(error);
    }
    return now;
}

// On one line of the screen, with the colour only where there is room for all of it.
std::string title(const view &now, const std::vector<marked_client> &rows, const drawing &how) {
    const std::string time = zoned_time(::time(nullptr)).substr(11, 8) + "  ";
    const std::string shown =
        rows.size() < now.marked.size() ? "  " + std::to_string(rows.size()) + " shown" : "";
    const std::string text = time + (now.error.empty() ? client_totals(now.clients) + shown : now.error);
    const std::string gone =
        now.error.empty() && now.status == exit_not_there ? "  gw_hostbase is not running" : "";
    const bool fits = how.width == 0 || display_width(text + gone) <= how.width;
    return fits ? text + styled(gone, style::changed, how.colour) : cut_to_width(text + gone, how.width);
}

std::vector<std::string> table_lines(const view &now, watch_state &state, size_t height) {
    const drawing how = drawing_on_screen();
    const std::vector<marked_client> rows = wanted_rows(now.marked, state);
    const std::vector<std::string> table = draw_table(marked_table(rows), how);
    if (height > 0)
        return fitted(title(now, rows, how), table, state, height, how.width);
    std::vector<std::string> lines = {title(now, rows, how), ""};
    lines.insert(lines.end(), table.begin(), table.end());
    lines.emplace_back();
    return lines;
}

std::vector<std::string> json_lines(const view &now, const watch_state &state) {
    if (!now.error.empty())
        return {json_text({{"error", now.error}, {"status", static_cast<int>(now.status)}}, -1)};
    json document = clients_json(selected(now.clients, state.which));
    document["time"] = zoned_time(time(nullptr));
    return {json_text(document, -1)};
}

// Until the next look is due. Returns false when the view is to end.
bool stay(const session &run, live_screen &screen, const view &now, watch_state &state,
          clock_type::time_point until) {
    while (clock_type::now() < until) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - clock_type::now());
        if (!screen.wait(left))
            return false;
        for (const std::string &key : keys_of(screen.typed()))
            if (!press(state, key, rows_that_fit(screen.height())))
                return false;
        if (!run.json && screen.height() > 0)
            screen.show(table_lines(now, state, screen.height()));
    }
    return true;
}

} // namespace

void watch(session &run, const watch_options &options) {
    (void)read_database();
    change_marks marks(marks_last);
    watch_state state;
    state.which = options.which;
    live_screen screen(!run.json);
    const auto pause = std::chrono::milliseconds(static_cast<long>(options.seconds * 1000));
    for (unsigned i = 1; options.looks == 0 || i <= options.looks; i++) {
        const view now = look_now(run, state, marks);
        run.status = now.status;
        screen.show(run.json ? json_lines(now, state) : table_lines(now, state, screen.height()));
        if (i == options.looks || !stay(run, screen, now, state, clock_type::now() + pause))
            break;
    }
    heed_write_error(screen);
}
