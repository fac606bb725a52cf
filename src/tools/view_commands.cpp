#include "tools/view_commands.h"

#include <ostream>

#include "tools/arguments.h"
#include "tools/audit_report.h"
#include "tools/client_key.h"
#include "tools/client_table.h"
#include "tools/command_client.h"
#include "tools/database.h"
#include "tools/explain.h"
#include "tools/index_table.h"
#include "tools/json_view.h"
#include "tools/list_view.h"
#include "tools/watch.h"

namespace {

struct no_arguments {};

void add_nothing(CLI::App *, no_arguments &) {}

void show(session &run, const std::string &key) {
    const std::vector<hbs_client> found = known_clients(read_database(), key);
    if (run.json)
        run.out << json_text(clients_json(found)) << '\n';
    for (size_t i = 0; i < found.size() && !run.json; i++) {
        run.out << (i > 0 ? "\n" : "");
        print_table(run, client_details(found[i]));
    }
    warn_when_daemon_is_gone(run);
}

void print_section(session &run, const char *title, const text_table &table) {
    run.out << styled(title, style::fresh, run.how.colour) << " (" << table.rows.size() << ")\n";
    print_table(run, table);
    run.out << '\n';
}

void print_sections(session &run, const database &db) {
    print_section(run, "Addresses", ip_table(db, db.ip, true));
    print_section(run, "Interfaces", interface_table(db));
    print_section(run, "Addresses given by DHCP", ip_table(db, db.dhcp, false));
    print_section(run, "Primary", primary_table(db));
}

void indices(session &run) {
    const database db = read_database();
    if (run.json)
        run.out << json_text(indices_json(db)) << '\n';
    else
        print_sections(run, db);
    warn_when_daemon_is_gone(run);
}

void rules(session &run) {
    const database db = read_database();
    if (run.json) {
        run.out << json_text(rules_json(db)) << '\n';
    } else {
        print_table(run, rule_table(db));
        run.out << db.rules.size() << (db.rules.size() == 1 ? " rule" : " rules") << '\n';
    }
    warn_when_daemon_is_gone(run);
}

} // namespace

void print_table(session &run, const text_table &table) {
    if (table.rows.empty())
        return;
    for (const std::string &line : draw_table(table, run.how))
        run.out << line << '\n';
}

void warn_when_daemon_is_gone(session &run) {
    if (!daemon_is_there(run.socket_path)) {
        run.err << "hbsctl: gw_hostbase is not running: this is what it left behind\n";
        run.status = exit_not_there;
    }
}

static void add_key(CLI::App *command, std::string &key) {
    command->add_option("client", key, "Its MAC, one of its addresses, or its name")
        ->type_name("CLIENT")
        ->required();
}

void add_view_commands(CLI::App *app, session &run) {
    add_list(app, run);
    add_command<std::string>(
        app, "show", "Show everything about a client", add_key,
        [&run](const std::string &key) { show(run, key); });
    add_command<std::string>(
        app, "explain", "Say why a client counts as on line or off line, and all that is known of it",
        add_key, [&run](const std::string &key) { explain(run, key); });
    add_command<watch_options>(
        app, "watch", "Show all clients live (+ new, * changed, - gone)",
        [](CLI::App *command, watch_options &options) {
            add_seconds(command, "--interval", options.seconds, 0.1, "Seconds between two looks");
            command->add_option("--count", options.looks, "End after this many looks (otherwise: Ctrl-C)");
            add_selection(command, options.which);
        },
        [&run](const watch_options &options) { watch(run, options); });
    add_command<no_arguments>(
        app, "indices", "Show the index lists, each in its order", add_nothing,
        [&run](const no_arguments &) { indices(run); });
    add_command<no_arguments>(app, "rules", "Show the white-list and black-list rules", add_nothing,
                              [&run](const no_arguments &) { rules(run); });
    add_command<no_arguments>(app, "audit", "Compare the clients with the kernel and the DHCP servers",
                              add_nothing, [&run](const no_arguments &) {
                                  audit(run);
                                  warn_when_daemon_is_gone(run);
                              });
}
