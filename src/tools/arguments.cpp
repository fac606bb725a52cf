#include "tools/arguments.h"

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

template <typename Bytes>
std::optional<Bytes> of_family(const std::string &text, uint16_t family, Bytes ip_address::*field) {
    const auto address = parse_ip(text);
    return address && address->family == family ? std::optional((*address).*field) : std::nullopt;
}

// Six zero bytes are no MAC: the daemon would refuse, and has no words to say why.
std::optional<mac_bytes> parse_device(const std::string &text) {
    const auto mac = parse_mac(text);
    return mac == mac_bytes{} ? std::nullopt : mac;
}

std::optional<trust_target> parse_target(const std::string &text) {
    if (const auto mac = parse_device(text))
        return trust_target{HBS_SELECT_MAC, *mac, {}};
    const auto address = parse_ip(text);
    if (!address)
        return std::nullopt;
    const bool v4 = address->family == HBS_FAMILY_IPV4;
    return trust_target{static_cast<uint8_t>(v4 ? HBS_SELECT_IPV4 : HBS_SELECT_IPV6), {}, *address};
}

} // namespace

CLI::Option *add_mac(CLI::App *command, const std::string &name, mac_bytes &target, const std::string &help) {
    return add_parsed(command, name, target, parse_device, "MAC address", help);
}

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

CLI::Option *add_rule(CLI::App *command, const std::string &name, rule_values &target,
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

CLI::Option *add_target(CLI::App *command, const std::string &name, trust_target &target,
                        const std::string &help) {
    return add_parsed(command, name, target, parse_target, "MAC or IP address", help);
}

CLI::Option *add_choice(CLI::App *command, const std::string &name, uint32_t &target,
                        const word_choices &choices, const std::string &help) {
    std::string words;
    for (const auto &[word, number] : choices)
        words += (words.empty() ? "" : "|") + word;
    const auto parse = [choices](const std::string &text) -> std::optional<uint32_t> {
        for (const auto &[word, number] : choices)
            if (word == text)
                return number;
        return std::nullopt;
    };
    const auto store = [&target, parse, words](const std::string &text) {
        const auto number = parse(text);
        if (!number) {
            throw CLI::ValidationError("'" + text + "' is none of " + words);
        }
        target = *number;
    };
    CLI::Option *option = command->add_option_function<std::string>(name, store, help)->type_name(words);
    return name[0] == '-' ? option : option->required();
}

CLI::Option *add_seconds(CLI::App *command, const std::string &name, double &target, double least,
                         const std::string &help) {
    constexpr double most = 3600;
    const auto in_range = [least](const std::string &text) {
        double seconds = 0;
        // Written so that what is not a number at all ("nan") is refused as well.
        const bool fits = CLI::detail::lexical_cast(text, seconds) && seconds >= least && seconds <= most;
        return fits ? std::string() : "'" + text + "' is no number of seconds that is possible here";
    };
    return command->add_option(name, target, help)
        ->check(CLI::Validator(in_range, CLI::Range(least, most).get_description()))
        ->type_name("SECONDS")
        ->capture_default_str();
}
