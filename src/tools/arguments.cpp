#include "tools/arguments.h"

#include "tools/client_key.h"

namespace {

// Adds an argument that `parse` turns into an optional value.
template <typename Value, typename Parse>
CLI::Option *add_parsed(CLI::App *command, const std::string &name, Value &target, Parse parse,
                        const char *type, const std::string &help) {
    const auto store = [&target, parse, type](const std::string &text) {
        const auto value = parse(text);
        if (!value)
            throw CLI::ValidationError("'" + text + "' is no " + type);
        target = *value;
    };
    CLI::Option *option = command->add_option_function<std::string>(name, store, help)->type_name(type);
    return name[0] == '-' ? option : option->required();
}

// "0.1", "3600".
std::string short_text(double number) {
    char text[32];
    (void)snprintf(text, sizeof text, "%.10g", number);
    return text;
}

template <typename Bytes>
std::optional<Bytes> of_family(const std::string &text, uint16_t family, Bytes ip_address::*field) {
    const auto address = parse_ip(text);
    return address && address->family == family ? std::optional((*address).*field) : std::nullopt;
}

} // namespace

CLI::Option *add_ip(CLI::App *command, const std::string &name, ip_address &target, const std::string &help) {
    return add_parsed(command, name, target, parse_ip, "IP address", help);
}

CLI::Option *add_ipv4(CLI::App *command, const std::string &name, ipv4_bytes &target,
                      const std::string &help) {
    const auto parse = [](const std::string &text) {
        return of_family(text, HBS_FAMILY_IPV4, &ip_address::ipv4);
    };
    return add_parsed(command, name, target, parse, "IPv4 address", help);
}

CLI::Option *add_ipv6(CLI::App *command, const std::string &name, ipv6_bytes &target,
                      const std::string &help) {
    const auto parse = [](const std::string &text) {
        return of_family(text, HBS_FAMILY_IPV6, &ip_address::ipv6);
    };
    return add_parsed(command, name, target, parse, "IPv6 address", help);
}

CLI::Option *add_rule(CLI::App *command, const std::string &name, std::optional<rule_values> &target,
                      const std::string &help) {
    const auto parse = [](const std::string &text) -> std::optional<rule_values> {
        try {
            return parse_rule(text);
        } catch (const request_error &) {
            return std::nullopt;
        }
    };
    return add_parsed(command, name, target, parse, "HEX,N,N[,N,N,N]", help);
}

CLI::Option *add_client(CLI::App *command, std::string &target, const std::string &name,
                        const std::string &help) {
    const auto can_be_meant = [](const std::string &text) {
        const bool none = text.empty() || parse_mac(text) == mac_bytes{};
        return none ? "'" + text + "' is no client" : std::string();
    };
    return command->add_option(name, target, help)
        ->check(CLI::Validator(can_be_meant, ""))
        ->type_name("CLIENT")
        ->required();
}

CLI::Option *add_choice(CLI::App *command, const std::string &name, uint32_t &target,
                        const word_choices &choices, const std::string &help) {
    std::vector<std::string> words;
    for (const auto &[word, number] : choices)
        words.push_back(word);
    const auto parse = [choices](const std::string &text) -> std::optional<uint32_t> {
        for (const auto &[word, number] : choices)
            if (word == text)
                return number;
        return std::nullopt;
    };
    const auto store = [&target, parse, words](const std::string &text) {
        const auto number = parse(text);
        if (!number) {
            throw CLI::ValidationError(none_of_text(text, words));
        }
        target = *number;
    };
    CLI::Option *option =
        command->add_option_function<std::string>(name, store, help)->type_name(joined(words, "|"));
    return name[0] == '-' ? option : option->required();
}

CLI::Option *add_seconds(CLI::App *command, const std::string &name, double &target, double least,
                         const std::string &help, double most) {
    const auto in_range = [least, most](const std::string &text) {
        double seconds = 0;
        // Written so that what is not a number at all ("nan") is refused as well.
        const bool fits = CLI::detail::lexical_cast(text, seconds) && seconds >= least && seconds <= most;
        return fits ? std::string() : "'" + text + "' is no number of seconds that is possible here";
    };
    return command->add_option(name, target, help)
        ->check(CLI::Validator(in_range, "FLOAT in [" + short_text(least) + " - " + short_text(most) + "]"))
        ->type_name("SECONDS")
        ->capture_default_str();
}

CLI::Option *add_duration(CLI::App *command, const std::string &name, double &target,
                          const std::string &help) {
    return add_parsed(command, name, target, parse_duration, "time (such as 90s, 10m, 2h, 1d)", help)
        ->type_name("TIME");
}

void add_help(CLI::App *command) {
    command->set_help_flag("-h,--help", "Print this help message and exit");
}

void add_group(CLI::App *parent, const std::string &name, const std::string &help,
               const std::function<void(CLI::App *)> &add) {
    const auto group = std::make_shared<late_command>(parent, name, help);
    group->require_subcommand(1);
    group->declare_by([at = group.get(), add] { add(at); });
    parent->add_subcommand(group);
}

void add_plain(CLI::App *parent, const std::string &name, const std::string &help, std::function<void()> run,
               const std::function<void(CLI::App *)> &add) {
    const auto command = std::make_shared<late_command>(parent, name, help);
    command->declare_by([at = command.get(), add] { add(at); });
    command->callback(std::move(run));
    parent->add_subcommand(command);
}
