#include "tools/report_command.h"

#include <ostream>

#include "tools/arguments.h"
#include "tools/json_view.h"
#include "tools/page.h"
#include "tools/printable.h"
#include "tools/view_commands.h"
#include "tools/whole_file.h"

namespace {

constexpr const char *standard_output = "-";

void report(session &run, const std::string &path) {
    const database db = read_database();
    const std::string document = json_text(page_json(read_status(run, db), db.clients, lan_networks()), -1);
    const std::string page = page_html(document, new_nonce(), false);
    if (path == standard_output)
        run.out << page;
    else
        write_whole_file(path, page);
    if (path != standard_output && run.json)
        run.out << json_text({{"report", path}, {"clients", db.clients.size()}}) << '\n';
    else if (path != standard_output)
        run.out << "report of " << db.clients.size() << (db.clients.size() == 1 ? " client: " : " clients: ")
                << printable(path) << '\n';
    warn_when_daemon_is_gone(run);
}

} // namespace

void add_report(CLI::App *app, session &run) {
    add_command<std::string>(
        app, "report", "Write one page that shows the LAN as a picture and a table",
        [](CLI::App *command, std::string &path) {
            command->add_option("--html", path, "The file to write; -: standard output")
                ->type_name("FILE")
                ->required();
        },
        [&run](const std::string &path) { report(run, path); });
}
