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

step step_of_list(const look &now, const device_settings &device, hbs_code code, uint8_t list,
                  const rule_values &rule, const objection &why_not) {
    filter_request request;
    request.code = code;
    request.list = list;
    request.mac = device.mac;
    request.rule = rule;
    request.comment = device.comment.value_or("");
    put_texts(request, device.texts, now);
    return {code, request_filter(request), first_of({to_device(device.mac), why_not})};
}

bool is_reserved(const look &now, const device_settings &device, const ip_address &address) {
    return std::any_of(
        now.files.leases.begin(), now.files.leases.end(),
        [&](const sighting &lease) {
            return lease.mac == text_of(device) && lease.address == ip_text(address);
        });
}

void add_leases(std::vector<step> &steps, const look &now, const device_settings &device) {
    if (device.static_lease) {
        const static_lease lease = {device.lease_network, *device.static_lease, device.mac,
                                    device.comment.value_or(""), device.host.value_or("")};
        steps.push_back(
            {HBS_CMD_SET_STATIC_LEASE, request_set_static_lease(lease), to_static_lease(now, lease)});
    }
    if (device.internal_lease && !is_reserved(now, device, *device.internal_lease))
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

// Texts alone go with a list that the device is on already.
device_settings with_list(const look &now, device_settings device) {
    for (const uint8_t list : {HBS_LIST_WHITE, HBS_LIST_BLACK})
        if (!is_on_list(device) && is_any_given(device.texts) && is_marked(now, device.mac, list))
            device.lists = {list};
    return device;
}

bool is_named(const device_settings &device, uint8_t list) {
    return std::find(device.lists.begin(), device.lists.end(), list) != device.lists.end();
}

// A device is put on a list with each of its rules there, or with none that it does not have yet. Rules of a
// list on which it is not to be are set alone.
void add_lists(std::vector<step> &steps, const look &now, const device_settings &device) {
    for (const auto &[list, rule] : device.rules) {
        const bool on_list = is_named(device, list) || is_marked(now, device.mac, list);
        steps.push_back(step_of_list(now, device, on_list ? HBS_CMD_SET_MACFILTER : HBS_CMD_SET_RULE_TOD,
                                     list, rule, on_list ? std::nullopt : to_rule(rule)));
    }
    for (uint8_t list : device.lists) {
        const bool has_rule = std::any_of(device.rules.begin(), device.rules.end(),
                                          [&](const auto &one) { return one.first == list; });
        const bool is_done = is_marked(now, device.mac, list) && !is_any_given(device.texts);
        if (!has_rule && !is_done)
            steps.push_back(step_of_list(now, device, HBS_CMD_SET_MACFILTER, list,
                                         first_rule(now, device.mac, list).value_or(rule_values{}),
                                         to_adding_rule(now, device.mac, list)));
    }
}

std::vector<step> steps_of(const look &now, const device_settings &device) {
    std::vector<step> steps;
    add_leases(steps, now, device);
    add_trust(steps, device);
    add_lists(steps, now, with_list(now, device));
    return steps;
}

// A comment and a host name are set by an address: what else was set may have made the client first.
std::vector<step> text_steps_of(const look &now, const device_settings &device) {
    const std::vector<hbs_client> found = matching_clients(now.db, text_of(device));
    if (found.empty() || (!device.comment && !device.host))
        return {};
    const hbs_client &client = found.front();
    const auto address = address_to_tell(now.db, client);
    if (!address || to_shared(now.db, *address) || has_texts(client, device.comment, device.host))
        return {};
    return {{HBS_CMD_SET_COMMENT_HOST,
             request_comment_host(*address, device.comment.value_or(field_text(client.comment)),
                                  device.host.value_or(field_text(client.host))),
             std::nullopt}};
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
bool is_told(const json &wanted, const json &got) {
    if (!wanted.is_array())
        return wanted == got;
    return std::all_of(wanted.begin(), wanted.end(),
                       [&](const json &one) { return std::find(got.begin(), got.end(), one) != got.end(); });
}

// A fixed address is there whichever way it was set: the file of static leases tells both alike.
std::vector<std::string> keys_that_tell(const std::string &name) {
    const std::vector<std::string> leases = {"static_lease", "internal_lease"};
    return std::find(leases.begin(), leases.end(), name) == leases.end() ? std::vector{name} : leases;
}

bool is_there(const std::string &name, const json &wanted, const json &got) {
    const std::vector<std::string> keys = keys_that_tell(name);
    return (is_nothing(wanted) && !got.contains(name)) ||
           std::any_of(keys.begin(), keys.end(), [&](const std::string &key) {
               return got.contains(key) && is_told(wanted, got[key]);
           });
}

// What says of whom, or only of which network a new client is, is no setting that could be missing.
bool is_key(const std::string &name) {
    return name == "mac" || name == "network";
}

// Why a text or a rule could not be set, after a colon.
std::string why_missing(const look &now, const device_settings &device, const std::string &name) {
    const std::vector<hbs_client> found = matching_clients(now.db, text_of(device));
    if (name == "rules" && found.empty())
        return ": the device is no client here; import again when it is";
    if (name != "comment" && name != "host")
        return "";
    const auto address = found.empty() ? std::nullopt : address_to_tell(now.db, found.front());
    if (!address)
        return ": it needs an address, which the device does not have here; import again when it is there";
    const objection shared = to_shared(now.db, *address);
    return shared ? ": " + *shared : "";
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
            if (!is_key(name) && !is_there(name, value, got))
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

// The address that a device is to have, one way or the other.
std::vector<std::string> fixed_addresses(const device_settings &device) {
    std::vector<std::string> addresses;
    for (const auto &address : {device.static_lease, device.internal_lease})
        if (address)
            addresses.push_back(ip_text(*address));
    return addresses;
}

objection to_twice_given(const std::vector<device_settings> &devices, const device_settings &device) {
    for (const std::string &address : fixed_addresses(device))
        for (const device_settings &other : devices)
            if (const auto theirs = fixed_addresses(other);
                other.mac != device.mac && std::find(theirs.begin(), theirs.end(), address) != theirs.end())
                return address + " is given to " + text_of(other) + " as well";
    return std::nullopt;
}

// All that is sent, but for the texts that need an address. Throws when anything cannot be meant.
std::vector<step> all_steps(const session &run, const look &now,
                            const std::vector<device_settings> &devices) {
    std::vector<step> all;
    for (const device_settings &device : devices) {
        const std::string name = "import: " + text_of(device);
        // Its texts are sent last, to the address that the device has by then: here only their lengths count.
        (void)request_comment_host(ip_address{}, device.comment.value_or(""), device.host.value_or(""));
        heed(run, name,
             first_of({to_device(device.mac), to_twice_given(devices, device), to_list_texts(now, device)}));
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

void send_all(const session &run, const std::vector<step> &steps,
              const std::vector<device_settings> &devices) {
    send_steps(run, steps);
    const look between = look_first(run);
    for (const device_settings &device : devices)
        send_steps(run, text_steps_of(between, device));
}

// Of an import that broke off. The daemon is not asked any more: only the database and the files are.
void tell_what_was_done(session &run, const look &before, const std::vector<device_settings> &devices) {
    look now = before;
    try {
        now.files = read_settings_files();
        now.db = read_database();
    } catch (const std::exception &) {
        run.err << "hbsctl: import: broke off, and what it did cannot be read\n";
        return;
    }
    print_outcome(run, "import", changes_between(facts_of(before, devices), facts_of(now, devices)),
                  "broke off");
}

void import_settings(session &run, const std::string &path) {
    const std::vector<device_settings> devices = parse_settings(content_of(run, path));
    const look before = look_first(run);
    heed(run, "import", to_missing_clients(before));
    const std::vector<step> steps = all_steps(run, before, devices);
    try {
        send_all(run, steps, devices);
    } catch (const std::exception &) {
        tell_what_was_done(run, before, devices);
        throw;
    }
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
