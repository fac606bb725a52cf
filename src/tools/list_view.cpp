#include "tools/list_view.h"

#include <ostream>

#include "tools/arguments.h"
#include "tools/client_field.h"
#include "tools/client_key.h"
#include "tools/client_selection.h"
#include "tools/client_table.h"
#include "tools/command_client.h"
#include "tools/json_view.h"
#include "tools/printable.h"
#include "tools/view_commands.h"

namespace {

struct list_options {
    client_selection which;
    std::vector<std::string> columns; // none: the usual ones
    std::string output = "table";
};

const std::vector<std::string> &field_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const client_field &field : client_fields())
            all.emplace_back(field.name);
        return all;
    }();
    return names;
}

// One of some words; another one is answered with those that are near.
CLI::Validator one_of(const std::vector<std::string> &words) {
    const auto check = [words](const std::string &text) {
        const bool known = std::find(words.begin(), words.end(), text) != words.end();
        return known ? std::string() : none_of_text(text, words);
    };
    return CLI::Validator(check, joined(words, "|"));
}

std::vector<client_field> fields_of(const std::vector<std::string> &names) {
    std::vector<client_field> fields;
    for (const std::string &name : names)
        for (const client_field &field : client_fields())
            if (name == field.name)
                fields.push_back(field);
    return fields;
}

std::string title_of(std::string name) {
    for (char &letter : name)
        letter = letter == '-' ? ' ' : static_cast<char>(toupper(static_cast<unsigned char>(letter)));
    return name;
}

text_table field_table(const std::vector<hbs_client> &clients, const std::vector<std::string> &names) {
    const std::vector<client_field> fields = fields_of(names);
    text_table table;
    for (const std::string &name : names)
        table.columns.push_back({title_of(name), 4});
    for (const hbs_client &client : clients) {
        table.rows.emplace_back();
        for (const client_field &field : fields)
            table.rows.back().push_back({field.text(client)});
    }
    return table;
}

void print_csv(session &run, const std::vector<hbs_client> &clients, const std::vector<std::string> &names) {
    const std::vector<client_field> fields = fields_of(names);
    run.out << joined(names, ",") << "\r\n";
    for (const hbs_client &client : clients) {
        for (const client_field &field : fields)
            run.out << (&field == &fields.front() ? "" : ",") << csv_cell(field.text(client));
        run.out << "\r\n";
    }
}

void print_rows(session &run, const std::vector<hbs_client> &clients, const list_options &options) {
    if (options.output == "wide")
        run.how.width = 0;
    const bool usual = options.columns.empty();
    print_table(run, usual ? client_table(clients) : field_table(clients, options.columns));
    run.out << client_totals(clients) << '\n';
}

void list(session &run, const list_options &options) {
    const bool as_json = run.json || options.output == "json";
    if (as_json && !options.columns.empty())
        throw run_error(exit_usage, "--columns is for tables and CSV: JSON has every field");
    const std::vector<hbs_client> clients = selected(read_database().clients, options.which);
    if (as_json)
        run.out << json_text(clients_json(clients)) << '\n';
    else if (options.output == "csv")
        print_csv(run, clients, options.columns.empty() ? field_names() : options.columns);
    else
        print_rows(run, clients, options);
    warn_when_daemon_is_gone(run);
}

} // namespace

void add_selection(CLI::App *command, client_selection &which) {
    command->add_flag("--online", which.online, "Only those on line");
    command->add_flag("--offline", which.offline, "Only those off line");
    command->add_option("--network", which.networks, "Only those of a LAN network, from 0")
        ->type_name("N")
        ->delimiter(',');
    command->add_option("--adapter", which.adapters, "Only those on such an adapter")
        ->check(one_of({"ethernet", "usb", "moca", "wifi", "unknown"}))
        ->delimiter(',');
    command->add_option("--sort", which.sort, "What to sort by")
        ->check(one_of(sort_keys()))
        ->capture_default_str();
    command->add_flag("--reverse", which.reverse, "The other way round");
}

void add_list(CLI::App *app, session &run) {
    add_command<list_options>(
        app, "list", "Show clients, by network and address",
        [](CLI::App *command, list_options &options) {
            add_selection(command, options.which);
            command->add_option("--columns", options.columns, "What to show of each client; not with JSON")
                ->check(one_of(field_names()))
                ->type_name("")
                ->delimiter(',');
            command->add_option("-o,--output", options.output, "Form; wide: not cut to the terminal")
                ->check(one_of({"table", "wide", "json", "csv"}))
                ->capture_default_str();
        },
        [&run](const list_options &options) { list(run, options); });
}
