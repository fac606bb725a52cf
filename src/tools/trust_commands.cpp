#include "tools/trust_commands.h"

#include <optional>

#include "tools/arguments.h"
#include "tools/carry_out.h"
#include "tools/client_key.h"

namespace {

struct trust_arguments {
    uint32_t action = 0;
    std::string client;
    std::string comment;
};

struct comment_arguments {
    std::string client;
    std::optional<std::string> comment, host;
};

auto facts_of_client(const std::string &key) {
    return [key](const look &now) { return client_facts(now, key); };
}

trust_target target_of(const std::string &key) {
    if (const auto mac = parse_mac(key))
        return {HBS_SELECT_MAC, *mac, {}};
    const ip_address address = parse_ip(key).value_or(ip_address{});
    const bool v4 = address.family == HBS_FAMILY_IPV4;
    return {static_cast<uint8_t>(v4 ? HBS_SELECT_IPV4 : HBS_SELECT_IPV6), {}, address};
}

// A device that is not known yet becomes a client: its MAC is enough.
void set_trust(session &run, const trust_arguments &arguments) {
    const look before = look_first(run);
    const auto mac = parse_mac(arguments.client);
    const meant_client who = client_meant(run, before, arguments.client);
    const std::string &key = who.key;
    carry_out(run, before,
              {"trust set", HBS_CMD_SET_TRUSTED,
               request_trust(HBS_CMD_SET_TRUSTED, static_cast<uint8_t>(arguments.action), target_of(key),
                             arguments.comment),
               mac ? to_device(*mac) : who.unknown, facts_of_client(key)});
}

void clear_trust(session &run, const trust_arguments &arguments) {
    const look before = look_first(run);
    const meant_client who = client_meant(run, before, arguments.client);
    carry_out(
        run, before,
        {"trust clear", HBS_CMD_CLR_TRUSTED,
         request_trust(HBS_CMD_CLR_TRUSTED, static_cast<uint8_t>(arguments.action), target_of(who.key), ""),
         who.client ? to_clearing_trust(*who.client, arguments.action) : who.unknown,
         facts_of_client(who.key)});
}

// The address that was typed, otherwise one of the client's.
ip_address address_of(const session &run, const look &now, const meant_client &who,
                      const std::string &typed) {
    if (const auto address = parse_ip(typed))
        return *address;
    const auto address = address_to_tell(now.db, who.client.value_or(hbs_client{}));
    if (!address)
        throw nothing_to_send(run,
                              who.unknown.value_or("the client has no address, by which its comment is set"),
                              "an address");
    return *address;
}

// The daemon always sets both texts: what is not given keeps its value.
void set_comment(session &run, const comment_arguments &arguments) {
    if (!arguments.comment && !arguments.host)
        throw run_error(exit_usage, "comment: neither a text nor --host is given: there is nothing to set");
    const look before = look_first(run);
    const meant_client who = client_meant(run, before, arguments.client);
    const hbs_client client = who.client.value_or(hbs_client{});
    const ip_address address = address_of(run, before, who, arguments.client);
    const datagram message =
        request_comment_host(address, arguments.comment.value_or(field_text(client.comment)),
                             arguments.host.value_or(field_text(client.host)));
    if (who.client && !run.force && before.routed && has_texts(client, arguments.comment, arguments.host))
        return print_outcome(run, "comment", {});
    carry_out(run, before,
              {"comment", HBS_CMD_SET_COMMENT_HOST, message,
               first_of({who.unknown, to_shared(before.db, address)}), facts_of_client(who.key)});
}

void add_trust_arguments(CLI::App *command, trust_arguments &arguments) {
    add_choice(command, "kind", arguments.action, {{"site", 1}, {"service", 2}}, "What it is trusted for");
    add_client(command, arguments.client);
}

void add_comment(CLI::App *app, session &run) {
    add_command<comment_arguments>(
        app, "comment", "Set the comment and the host name of a client",
        [](CLI::App *command, comment_arguments &arguments) {
            add_client(command, arguments.client);
            command->add_option("text", arguments.comment,
                                "The comment; empty removes it, none given keeps it");
            command->add_option("--host", arguments.host,
                                "The host name; empty removes it, none given keeps it");
        },
        [&run](const comment_arguments &arguments) { set_comment(run, arguments); });
}

void add_trusts(CLI::App *group, session &run) {
    add_command<trust_arguments>(
        group, "set", "Trust a device",
        [](CLI::App *command, trust_arguments &arguments) {
            add_trust_arguments(command, arguments);
            command->add_option("--comment", arguments.comment, "Comment to keep with the client");
        },
        [&run](const trust_arguments &arguments) { set_trust(run, arguments); });
    add_command<trust_arguments>(group, "clear", "No longer trust a device", add_trust_arguments,
                                 [&run](const trust_arguments &arguments) { clear_trust(run, arguments); });
}

} // namespace

void add_trust_commands(CLI::App *app, session &run) {
    add_group(app, "trust", "Trust a device, or no longer",
              [&run](CLI::App *group) { add_trusts(group, run); });
    add_comment(app, run);
}
