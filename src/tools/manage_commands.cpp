#include "tools/manage_commands.h"

#include <istream>
#include <optional>
#include <ostream>

#include "tools/arguments.h"
#include "tools/database.h"

namespace {

struct internal_arguments {
    mac_bytes mac = {};
    ip_address address;
};

struct trust_arguments {
    uint32_t action = 0;
    trust_target target;
    std::string comment;
};

struct filter_arguments {
    uint32_t list = 0;
    filter_request request;
};

struct comment_arguments {
    std::string client;
    std::optional<std::string> comment, host;
};

const word_choices list_choices = {{"white", HBS_LIST_WHITE}, {"black", HBS_LIST_BLACK}};

CLI::App *add_group(CLI::App *app, const char *name, const char *help) {
    CLI::App *group = app->add_subcommand(name, help);
    group->require_subcommand(1);
    return group;
}

void add_mode(CLI::App *app, session &run) {
    add_command<uint32_t>(
        app, "mode", "Switch to bridge mode (no clients are kept) or to routed mode",
        [](CLI::App *command, uint32_t &routed) {
            add_choice(command, "mode", routed, {{"bridge", 0}, {"routed", 1}}, "The mode to switch to");
        },
        [&run](uint32_t routed) {
            run_command(run, "mode", HBS_CMD_SET_ROUTE_MODE, request_route_mode(routed != 0));
        });
}

void add_static_lease(CLI::App *app, session &run) {
    CLI::App *group = add_group(app, "static-lease", "Give a device a fixed address, or take it away");
    add_command<static_lease>(
        group, "set", "Give a device a fixed address",
        [](CLI::App *command, static_lease &lease) {
            add_mac(command, "mac", lease.mac, "The device");
            add_ip(command, "address", lease.address, "The address it is to have");
            command->add_option("--network", lease.network, "LAN network, from 0")->capture_default_str();
            command->add_option("--comment", lease.comment, "Comment to keep with the client");
            command->add_option("--host", lease.host, "Host name");
        },
        [&run](const static_lease &lease) {
            run_command(run, "static-lease set", HBS_CMD_SET_STATIC_LEASE, request_set_static_lease(lease));
        });
    add_command<ip_address>(
        group, "clear", "Take a fixed address away",
        [](CLI::App *command, ip_address &address) { add_ip(command, "address", address, "The address"); },
        [&run](const ip_address &address) {
            run_command(run, "static-lease clear", HBS_CMD_CLR_STATIC_LEASE,
                        request_clear_static_lease(address));
        });
}

void add_internal_lease(CLI::App *app, session &run) {
    CLI::App *group = add_group(app, "internal-lease", "Fixed addresses of the gateway's own devices");
    add_command<internal_arguments>(
        group, "set", "Reserve an address in network 0 without making a client",
        [](CLI::App *command, internal_arguments &arguments) {
            add_mac(command, "mac", arguments.mac, "The device");
            add_ip(command, "address", arguments.address, "The address it is to have");
        },
        [&run](const internal_arguments &arguments) {
            run_command(run, "internal-lease set", HBS_CMD_SET_INTERNAL_LEASE,
                        request_set_internal_lease(arguments.mac, arguments.address));
        });
}

void add_trust_arguments(CLI::App *command, trust_arguments &arguments) {
    add_choice(command, "kind", arguments.action, {{"site", 1}, {"service", 2}}, "What it is trusted for");
    add_target(command, "client", arguments.target, "MAC, IPv4 or IPv6 address of the device");
}

void add_trust(CLI::App *app, session &run) {
    CLI::App *group = add_group(app, "trust", "Trust a device, or no longer");
    add_command<trust_arguments>(
        group, "set", "Trust a device",
        [](CLI::App *command, trust_arguments &arguments) {
            add_trust_arguments(command, arguments);
            command->add_option("--comment", arguments.comment, "Comment to keep with the client");
        },
        [&run](const trust_arguments &arguments) {
            run_command(run, "trust set", HBS_CMD_SET_TRUSTED,
                        request_trust(HBS_CMD_SET_TRUSTED, static_cast<uint8_t>(arguments.action),
                                      arguments.target, arguments.comment));
        });
    add_command<trust_arguments>(group, "clear", "No longer trust a device", add_trust_arguments,
                                 [&run](const trust_arguments &arguments) {
                                     run_command(run, "trust clear", HBS_CMD_CLR_TRUSTED,
                                                 request_trust(HBS_CMD_CLR_TRUSTED,
                                                               static_cast<uint8_t>(arguments.action),
                                                               arguments.target, ""));
                                 });
}

void add_list_and_mac(CLI::App *command, filter_arguments &arguments) {
    add_choice(command, "list", arguments.list, list_choices, "The list");
    add_mac(command, "mac", arguments.request.mac, "The device");
}

void add_rule_option(CLI::App *command, filter_arguments &arguments) {
    add_rule(command, "--rule", arguments.request.rule,
             "The rule, as in its file; the first value is hexadecimal");
}

void add_filter_texts(CLI::App *command, filter_arguments &arguments) {
    filter_request &request = arguments.request;
    add_rule_option(command, arguments);
    command->add_option("--filter-word", request.filter_word, "Filter word to keep with the client");
    command->add_option("--comment", request.comment, "Comment to keep with the client");
    command->add_option("--description", request.description, "Description of the rule");
    command->add_option("--keywords", request.keywords, "Keyword list");
    command->add_option("--domains", request.domains, "Domain list");
}

datagram filter_message(const filter_arguments &arguments, hbs_code code) {
    filter_request request = arguments.request;
    request.code = code;
    request.list = static_cast<uint8_t>(arguments.list);
    return request_filter(request);
}

void add_mac_filter(CLI::App *app, session &run) {
    CLI::App *group = add_group(app, "mac-filter", "Put a device on the white or black list, or take it off");
    const auto send = [&run](const char *name, hbs_code code) {
        return [&run, name, code](const filter_arguments &arguments) {
            run_command(run, name, code, filter_message(arguments, code));
        };
    };
    add_command<filter_arguments>(
        group, "set", "Put a device on a list",
        [](CLI::App *command, filter_arguments &arguments) {
            add_list_and_mac(command, arguments);
            add_filter_texts(command, arguments);
        },
        send("mac-filter set", HBS_CMD_SET_MACFILTER));
    add_command<filter_arguments>(
        group, "clear", "Take one rule of a device off a list",
        [](CLI::App *command, filter_arguments &arguments) {
            add_list_and_mac(command, arguments);
            add_rule_option(command, arguments);
        },
        send("mac-filter clear", HBS_CMD_CLR_MACFILTER));
    add_command<filter_arguments>(
        group, "modify", "Move a rule from one device to another",
        [](CLI::App *command, filter_arguments &arguments) {
            add_list_and_mac(command, arguments);
            add_mac(command, "new-mac", arguments.request.new_mac, "The device that gets the rule");
            add_filter_texts(command, arguments);
        },
        send("mac-filter modify", HBS_CMD_MOD_MACFILTER));
}

// For a client that it does not know the daemon repeats the answer of the command before, which says
// nothing: so it is not asked.
std::vector<hbs_client> known_clients(const std::string &key) {
    std::vector<hbs_client> found = matching_clients(read_database(), key);
    if (found.empty())
        throw run_error(exit_negative, "no client has the MAC, address or name '" + key + "'");
    return found;
}

void add_rule_commands(CLI::App *app, session &run) {
    CLI::App *group = add_group(app, "rule", "Set or clear one rule of a client by its instance");
    const auto declare = [](CLI::App *command, filter_arguments &arguments) {
        add_list_and_mac(command, arguments);
        add_rule(command, "rule", arguments.request.rule,
                 "The rule, as in its file; the first value is hexadecimal");
        command->add_option("--instance", arguments.request.rule_word,
                            "Instance of the rule, see 'hbsctl rules'");
    };
    const auto send = [&run](const char *name, hbs_code code) {
        return [&run, name, code](const filter_arguments &arguments) {
            (void)known_clients(mac_text(arguments.request.mac.data()));
            run_command(run, name, code, filter_message(arguments, code));
        };
    };
    add_command<filter_arguments>(group, "set", "Add or replace a rule", declare,
                                  send("rule set", HBS_CMD_SET_RULE_TOD));
    add_command<filter_arguments>(group, "clear", "Remove a rule", declare,
                                  send("rule clear", HBS_CMD_CLR_RULE_TOD));
}

ip_address address_of(const hbs_client &client) {
    const std::string ipv4 = ipv4_text(client.ipv4);
    const std::string ipv6 = ipv6_text(client.ipv6);
    const auto address = parse_ip(!ipv4.empty() ? ipv4 : !ipv6.empty() ? ipv6 : ipv6_text(client.ll));
    if (!address)
        throw run_error(exit_negative, "the client has no address, by which its comment is set");
    return *address;
}

// The daemon always sets both texts: what is not given keeps its value.
void set_comment(session &run, const comment_arguments &arguments) {
    const std::vector<hbs_client> found = known_clients(arguments.client);
    if (found.size() > 1)
        throw run_error(exit_negative, "more than one client has that name: use a MAC or an address");
    const hbs_client &client = found.front();
    const datagram message = request_comment_host(parse_ip(arguments.client).value_or(address_of(client)),
                                                  arguments.comment.value_or(field_text(client.comment)),
                                                  arguments.host.value_or(field_text(client.host)));
    run_command(run, "comment", HBS_CMD_SET_COMMENT_HOST, message);
}

void add_comment(CLI::App *app, session &run) {
    add_command<comment_arguments>(
        app, "comment", "Set the comment and the host name of a client",
        [](CLI::App *command, comment_arguments &arguments) {
            command->add_option("client", arguments.client, "Its MAC, one of its addresses, or its name")
                ->required();
            command->add_option("text", arguments.comment,
                                "The comment; empty removes it, none given keeps it");
            command->add_option("--host", arguments.host,
                                "The host name; empty removes it, none given keeps it");
        },
        [&run](const comment_arguments &arguments) { set_comment(run, arguments); });
}

void confirm_reset(session &run) {
    run.err
        << "This deletes the remembered clients, their rules and their trust for good. Type yes to go on: "
        << std::flush;
    std::string line;
    std::getline(run.in, line);
    if (line != "yes")
        throw run_error(exit_negative, "nothing was changed");
}

void add_reset(CLI::App *app, session &run) {
    CLI::App *reset =
        app->add_subcommand("reset-defaults", "Delete everything that was remembered of clients");
    reset->add_flag("--yes", run.yes, "Do not ask");
    reset->callback([&run] {
        if (!run.yes)
            confirm_reset(run);
        run_command(run, "reset-defaults", HBS_CMD_RESET_DEFAULTS, request_plain(HBS_CMD_RESET_DEFAULTS));
    });
}

} // namespace

void add_manage_commands(CLI::App *app, session &run) {
    add_mode(app, run);
    add_static_lease(app, run);
    add_internal_lease(app, run);
    add_trust(app, run);
    add_mac_filter(app, run);
    add_rule_commands(app, run);
    add_comment(app, run);
    add_reset(app, run);
    app->add_subcommand("dump", "Have the daemon write the whole database to its log")->callback([&run] {
        run_command(run, "dump", HBS_CMD_DUMP, request_plain(HBS_CMD_DUMP));
    });
}
