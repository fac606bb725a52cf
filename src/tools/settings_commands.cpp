#include "tools/settings_commands.h"

#include <algorithm>
#include <iterator>
#include <ostream>

#include "tools/arguments.h"
#include "tools/carry_out.h"
#include "tools/client_key.h"
#include "tools/command_client.h"
#include "tools/printable.h"
#include "tools/user_settings.h"
#include "tools/whole_file.h"

namespace {

constexpr const char *standard_stream = "-";

std::string text_of(const device_settings &device) {
    return mac_text(device.mac.data());
}

objection to_missing_clients(const look &now) {
    return now.routed ? std::nullopt : objection("the gateway is in bridge mode, in which it has no clients");
}

// --- export

void export_settings(session &run, const std::string &path) {
    const look now = look_first(run);
    heed(run, "export", to_missing_clients(now));
    const std::string text = json_text(settings_json(settings_of(now))) + "\n";
    if (path == standard_stream)
        run.out << text;
    else
        write_whole_file(path, text);
    const auto nameless =
        std::count_if(now.db.clients.begin(), now.db.clients.end(), [](const hbs_client &client) {
            return mac_text(client.mac).empty() && (client.trust & HBS_TRUST_REMEMBERED) != 0;
        });
    if (nameless > 0)
        run.err << "hbsctl: left out: " << nameless << " with settings but without a MAC\n";
}

// --- import

// One datagram, and why it cannot be meant.
struct step {
    hbs_code code;
    datagram message;
    objection why_not;
};

filter_request filter_of(const look &now, const device_settings &device, uint8_t list,
                         const rule_values &rule) {
    filter_request request;
    request.code = HBS_CMD_SET_MACFILTER;
    request.list = list;
    request.mac = device.mac;
    request.rule = rule;
    request.comment = device.comment.value_or("");
    put_texts(request, device.texts, now.db);
    return request;
}

void add_leases(std::vector<step> &steps, const look &now, const device_settings &device) {
    if (device.static_lease) {
        const static_lease lease = {device.lease_network, *device.static_lease, device.mac,
                                    device.comment.value_or(""), device.host.value_or("")};
        steps.push_back(
            {HBS_CMD_SET_STATIC_LEASE, request_set_static_lease(lease), to_static_lease(now, lease)});
    }
    if (device.internal_lease)
        steps.push_back({HBS_CMD_SET_INTERNAL_LEASE,
                         request_set_internal_lease(device.mac, *device.internal_lease),
                         to_fixed_address(now, device.mac, *device.internal_lease)});
}

void add_trust(std::vector<step> &steps, const device_settings &device) {
    for (uint32_t action : device.trusted_for)
        steps.push_back({HBS_CMD_SET_TRUSTED,
                         request_trust(HBS_CMD_SET_TRUSTED, static_cast<uint8_t>(action),
                                       {HBS_SELECT_MAC, device.mac, {}}, device.comment.value_or("")),
                         to_device(device.mac)});
}

// Texts alone go with a list, and with a rule, that the device has already.
device_settings with_list(const look &now, device_settings device) {
    if (is_on_list(device) || !is_any_given(device.texts))
        return device;
    for (const device_settings &there : settings_of(now)) {
        if (there.mac != device.mac)
            continue;
        device.rules.assign(there.rules.begin(), there.rules.begin() + (there.rules.empty() ? 0 : 1));
        device.lists = device.rules.empty() ? there.lists : std::vector{device.rules.front().first};
    }
    return device;
}

// A device is put on a list with each of its rules there, or with none.
void add_lists(std::vector<step> &steps, const look &now, const device_settings &device) {
    for (const auto &[list, rule] : device.rules)
        steps.push_back({HBS_CMD_SET_MACFILTER, request_filter(filter_of(now, device, list, rule)),
                         to_device(device.mac)});
    for (uint8_t list : device.lists) {
        const bool has_rule = std::any_of(device.rules.begin(), device.rules.end(),
                                          [&](const auto &one) { return one.first == list; });
        if (!has_rule)
            steps.push_back({HBS_CMD_SET_MACFILTER, request_filter(filter_of(now, device, list, {})),
                             to_device(device.mac)});
    }
}

std::vector<step> steps_of(const look &now, const device_settings &device) {
    std::vector<step> steps;
    add_leases(steps, now, device);
    add_trust(steps, device);
    add_lists(steps, now, with_list(now, device));
    return steps;
}

std::optional<ip_address> address_of(const hbs_client &client) {
    const std::string ipv4 = ipv4_text(client.ipv4), ipv6 = ipv6_text(client.ipv6);
    return parse_ip(!ipv4.empty() ? ipv4 : !ipv6.empty() ? ipv6 : ipv6_text(client.ll));
}

// A comment and a host name are set by an address: what else was set may have made the client first.
std::vector<step> text_steps_of(const look &now, const device_settings &device) {
    const std::vector<hbs_client> found = matching_clients(now.db, text_of(device));
    if (found.empty() || (!device.comment && !device.host))
        return {};
    const hbs_client &client = found.front();
    const std::string comment = device.comment.value_or(field_text(client.comment));
    const std::string host = device.host.value_or(field_text(client.host));
    const bool marked = !device.host || (client.trust & HBS_TRUST_USER) != 0;
    if (marked && field_text(client.comment) == comment && field_text(client.host) == host)
        return {};
    const auto address = address_of(client);
    if (!address)
        return {};
    return {{HBS_CMD_SET_COMMENT_HOST, request_comment_host(*address, comment, host), std::nullopt}};
}

std::vector<fact> facts_of(const look &now, const std::vector<device_settings> &devices) {
    std::vector<fact> facts;
    for (const device_settings &device : devices) {
        const std::string mac = text_of(device);
        facts = facts + lease_facts(now, mac, "") + client_facts(now, mac) + rule_facts(now, mac);
    }
    return facts;
}

// An empty text that was asked for is one that is not there.
bool is_nothing(const json &wanted) {
    return wanted == "" || wanted == 0;
}

// A list may hold more than was asked for.
bool is_in(const json &wanted, const json &got) {
    if (!wanted.is_array())
        return wanted == got;
    return std::all_of(wanted.begin(), wanted.end(),
                       [&](const json &one) { return std::find(got.begin(), got.end(), one) != got.end(); });
}

// What says of whom, or only of which network a new client is, is no setting that could be missing.
bool is_key(const std::string &name) {
    return name == "mac" || name == "network";
}

// Why a text could not be set, after a colon.
std::string why_missing(const look &now, const device_settings &device, const std::string &name) {
    const std::vector<hbs_client> found = matching_clients(now.db, text_of(device));
    if ((name != "comment" && name != "host") || (!found.empty() && address_of(found.front())))
        return "";
    return ": it needs an address, which the device does not have here; import again when it is there";
}

// What the look afterwards does not show although it was asked for.
std::vector<std::string> missing_in(const look &now, const std::vector<device_settings> &devices) {
    const std::vector<device_settings> there = settings_of(now);
    std::vector<std::string> missing;
    for (const device_settings &device : devices) {
        const auto found = std::find_if(there.begin(), there.end(),
                                        [&](const device_settings &one) { return one.mac == device.mac; });
        const json wanted = settings_json({device})["devices"][0];
        const json got = found == there.end() ? json::object() : settings_json({*found})["devices"][0];
        for (const auto &[name, value] : wanted.items())
            if (!is_key(name) && (got.contains(name) ? !is_in(value, got[name]) : !is_nothing(value)))
                missing.push_back(name + " of " + text_of(device) + why_missing(now, device, name));
    }
    return missing;
}

void send_steps(const session &run, const std::vector<step> &steps) {
    for (const step &one : steps)
        (void)send_command(one.message, run.socket_path, run.answer_seconds);
}

std::string content_of(session &run, const std::string &path) {
    return path == standard_stream ? std::string(std::istreambuf_iterator<char>(run.in), {})
                                   : read_whole_file(path);
}

objection to_list_texts(const look &now, const device_settings &device) {
    return is_any_given(device.texts) && !is_on_list(with_list(now, device))
               ? objection(
                     "its description, keywords, domains and filter word need a list, and it is on none")
               : std::nullopt;
}

// All that is sent, but for the texts that need an address. Throws when anything cannot be meant.
std::vector<step> all_steps(const session &run, const look &now,
                            const std::vector<device_settings> &devices) {
    std::vector<step> all;
    for (const device_settings &device : devices) {
        const std::string name = "import: " + text_of(device);
        // Its texts are sent last, to the address that the device has by then: here only their lengths count.
        (void)request_comment_host(ip_address{}, device.comment.value_or(""), device.host.value_or(""));
        heed(run, name, to_list_texts(now, device));
        for (const step &one : steps_of(now, device)) {
            heed(run, name, one.why_not);
            all.push_back(one);
        }
    }
    return all;
}

void tell_missing(session &run, const look &now, const std::vector<device_settings> &devices) {
    for (const std::string &what : missing_in(now, devices)) {
        run.err << "hbsctl: import: not as in the file: " << what << '\n';
        run.status = exit_negative;
    }
}

void import_settings(session &run, const std::string &path) {
    const std::vector<device_settings> devices = parse_settings(content_of(run, path));
    const look before = look_first(run);
    heed(run, "import", to_missing_clients(before));
    send_steps(run, all_steps(run, before, devices));
    const look between = look_first(run);
    for (const device_settings &device : devices)
        send_steps(run, text_steps_of(between, device));
    const look after = look_first(run);
    print_outcome(run, "import", changes_between(facts_of(before, devices), facts_of(after, devices)));
    tell_missing(run, after, devices);
}

void add_file(CLI::App *command, std::string &path, const char *help) {
    command->add_option("file", path, help)->type_name("FILE")->capture_default_str();
}

} // namespace

void add_settings_commands(CLI::App *app, session &run) {
    add_command<std::string>(
        app, "export", "Write what the user set, as JSON",
        [](CLI::App *command, std::string &path) {
            path = standard_stream;
            add_file(command, path, "The file to write; -: standard output");
        },
        [&run](const std::string &path) { export_settings(run, path); });
    add_command<std::string>(
        app, "import", "Set what was exported; what is not in it stays as it is",
        [](CLI::App *command, std::string &path) {
            path = standard_stream;
            add_file(command, path, "The file to read; -: standard input");
        },
        [&run](const std::string &path) { import_settings(run, path); });
}
