#include "tools/watch.h"

#include <ctime>
#include <unistd.h>

#include "tools/change_marks.h"
#include "tools/client_table.h"
#include "tools/command_client.h"
#include "tools/database.h"
#include "tools/json_view.h"
#include "tools/terminal.h"
#include "tools/time_text.h"

namespace {

constexpr std::chrono::seconds marks_last(5);

std::string title(const session &run, const std::string &rest, bool colour) {
    const bool there = daemon_is_there(run.socket_path);
    return zoned_time(time(nullptr)).substr(11, 8) + "  " + rest +
           (there ? "" : "  " + styled("gw_hostbase is not running", style::changed, colour));
}

std::vector<std::string> table_lines(const session &run, const std::vector<hbs_client> &clients,
                                     change_marks &marks) {
    const drawing how = drawing_of(STDOUT_FILENO);
    const auto now = std::chrono::steady_clock::now();
    std::vector<std::string> lines = draw_table(marked_table(marks.update(clients, now)), how);
    lines.insert(lines.begin(), {title(run, client_totals(clients), how.colour), ""});
    if (how.width == 0)
        lines.emplace_back();
    return lines;
}

std::vector<std::string> json_lines(const std::vector<hbs_client> &clients) {
    json document = clients_json(clients);
    document["time"] = zoned_time(time(nullptr));
    return {json_text(document, -1)};
}

// The lines of one look; what went wrong when the database could not be read.
std::vector<std::string> look(const session &run, change_marks &marks) {
    try {
        const database db = read_database();
        return run.json ? json_lines(db.clients) : table_lines(run, db.clients, marks);
    } catch (const database_error &error) {
        return {run.json ? json_text({{"error", error.what()}}, -1) : title(run, error.what(), false)};
    }
}

} // namespace

void watch(session &run, const watch_options &options) {
    (void)read_database();
    change_marks marks(marks_last);
    live_screen screen(!run.json);
    const auto pause = std::chrono::milliseconds(static_cast<long>(options.seconds * 1000));
    for (unsigned i = 1; options.looks == 0 || i <= options.looks; i++) {
        screen.show(look(run, marks));
        if (i == options.looks || !screen.wait(pause))
            return;
    }
}
