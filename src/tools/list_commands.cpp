#include "tools/list_commands.h"

#include <optional>

#include "tools/arguments.h"
#include "tools/carry_out.h"
#include "tools/client_key.h"
#include "tools/list_texts.h"

namespace {

struct filter_arguments {
    uint32_t list = 0;
    std::string client, new_client;
    std::optional<rule_values> rule;
    list_texts texts;
    filter_request request;
};

using why_not = objection (*)(const look &before, const filter_request &request, bool rule_given);

struct list_command {
    const char *name;
    hbs_code code;
    bool needs_client; // the daemon does nothing for a device that is no client
    why_not object;
};

constexpr list_command filter_set = {
    "mac-filter set", HBS_CMD_SET_MACFILTER, false,
    [](const look &now, const filter_request &request, bool rule_given) {
        return first_of({to_device(request.mac),
                         rule_given ? std::nullopt : to_adding_rule(now, request.mac, request.list)});
    }};
constexpr list_command filter_clear = {"mac-filter clear", HBS_CMD_CLR_MACFILTER, false,
                                       [](const look &now, const filter_request &request, bool rule_given) {
                                           const objection wrong = to_clearing_rule(now, request);
                                           return wrong && !rule_given
                                                      ? to_unnamed_rule(now, request, "taken off")
                                                      : wrong;
                                       }};
constexpr list_command filter_modify = {"mac-filter modify", HBS_CMD_MOD_MACFILTER, false, to_moving_rule};
constexpr list_command rule_set = {"rule set", HBS_CMD_SET_RULE_TOD, true,
                                   [](const look &now, const filter_request &request, bool) {
                                       return first_of({to_rule(request.rule), to_instance(now, request)});
                                   }};
constexpr list_command rule_clear = {
    "rule clear", HBS_CMD_CLR_RULE_TOD, true,
    [](const look &now, const filter_request &request, bool) { return to_clearing_rule(now, request); }};

auto facts_of_devices(const filter_request &request) {
    return [mac = mac_text(request.mac.data()), new_mac = mac_text(request.new_mac.data())](const look &now) {
        std::vector<fact> facts = client_facts(now, mac) + rule_facts(now, mac);
        return new_mac.empty() ? facts : facts + client_facts(now, new_mac) + rule_facts(now, new_mac);
    };
}

void run_list_command(session &run, const list_command &command, const filter_arguments &arguments) {
    const look before = look_first(run);
    filter_request request = arguments.request;
    request.code = command.code;
    request.list = static_cast<uint8_t>(arguments.list);
    request.mac = device_of(run, before, arguments.client);
    const auto there =
        command.code == HBS_CMD_SET_MACFILTER ? first_rule(before, request.mac, request.list) : std::nullopt;
    request.rule = arguments.rule.value_or(there.value_or(rule_values{}));
    if (!arguments.new_client.empty())
        request.new_mac = device_of(run, before, arguments.new_client);
    put_texts(request, arguments.texts, before);
    const objection unknown =
        command.needs_client ? client_meant(run, before, mac_text(request.mac.data())).unknown : std::nullopt;
    carry_out(run, before,
              {command.name, command.code, request_filter(request),
               first_of({unknown, command.object(before, request, arguments.rule.has_value())}),
               facts_of_devices(request)});
}

void add_list_and_client(CLI::App *command, filter_arguments &arguments) {
    add_choice(command, "list", arguments.list, {{"white", HBS_LIST_WHITE}, {"black", HBS_LIST_BLACK}},
               "The list");
    add_client(command, arguments.client);
}

void add_rule_option(CLI::App *command, filter_arguments &arguments) {
    add_rule(command, "--rule", arguments.rule, "The rule, as in its file; the first value is hexadecimal");
}

void add_filter_texts(CLI::App *command, filter_arguments &arguments) {
    list_texts &texts = arguments.texts;
    add_rule_option(command, arguments);
    command->add_option("--filter-word", texts.filter_word, "Filter word; what is not given stays as it is");
    command->add_option("--comment", arguments.request.comment, "Comment to keep with the client");
    command->add_option("--description", texts.description, "Description of the rule; empty removes it");
    command->add_option("--keywords", texts.keywords, "Keyword list; empty removes it");
    command->add_option("--domains", texts.domains, "Domain list; empty removes it");
}

void add_filter_arguments(CLI::App *command, filter_arguments &arguments) {
    add_list_and_client(command, arguments);
    add_filter_texts(command, arguments);
}

void add_clear_arguments(CLI::App *command, filter_arguments &arguments) {
    add_list_and_client(command, arguments);
    add_rule_option(command, arguments);
}

void add_modify_arguments(CLI::App *command, filter_arguments &arguments) {
    add_list_and_client(command, arguments);
    add_client(command, arguments.new_client, "new-client", "The device that gets the rule");
    add_filter_texts(command, arguments);
}

void add_rule_arguments(CLI::App *command, filter_arguments &arguments) {
    add_list_and_client(command, arguments);
    add_rule(command, "rule", arguments.rule, "The rule, as in its file; the first value is hexadecimal");
    command->add_option("--instance", arguments.request.rule_word,
                        "Instance of the rule, see 'hbsctl rules'");
}

auto runner(session &run, const list_command &command) {
    return [&run, &command](const filter_arguments &arguments) { run_list_command(run, command, arguments); };
}

void add_filter_commands(CLI::App *filter, session &run) {
    add_command<filter_arguments>(filter, "set", "Put a device on a list", add_filter_arguments,
                                  runner(run, filter_set));
    add_command<filter_arguments>(filter, "clear", "Take one rule of a device off a list",
                                  add_clear_arguments, runner(run, filter_clear));
    add_command<filter_arguments>(filter, "modify", "Move a rule from one device to another",
                                  add_modify_arguments, runner(run, filter_modify));
}

void add_rule_commands(CLI::App *rule, session &run) {
    add_command<filter_arguments>(rule, "set", "Add or replace a rule", add_rule_arguments,
                                  runner(run, rule_set));
    add_command<filter_arguments>(rule, "clear", "Remove a rule", add_rule_arguments,
                                  runner(run, rule_clear));
}

} // namespace

void add_list_commands(CLI::App *app, session &run) {
    add_group(
        app, "mac-filter", "Put a device on the white or black list, or take it off",
        [&run](CLI::App *filter) { add_filter_commands(filter, run); });
    add_group(app, "rule", "Set or clear one rule of a client by its instance",
              [&run](CLI::App *rule) { add_rule_commands(rule, run); });
}
