#include "tools/explain.h"

#include <algorithm>
#include <ctime>
#include <ostream>

#include "tools/audit_sources.h"
#include "tools/client_key.h"
#include "tools/client_table.h"
#include "tools/database.h"
#include "tools/explain_sources.h"
#include "tools/view_commands.h"

namespace {

constexpr const char *it_answers = "On line, because it answers: the kernel's neighbour entry is reachable.";
constexpr const char *was_heard_of =
    "On line, because it was heard of and nothing has said since that it left.";
constexpr const char *silent_minutes = "ten minutes";
constexpr unsigned silent_seconds = 30; // without a frame, where traffic says who is present

bool has_flag(const hbs_client &client, uint32_t flag) {
    return (client.flags & flag) != 0;
}

bool is_in_state(const explanation &known, const char *state) {
    return std::any_of(
        known.neighbours.begin(), known.neighbours.end(),
        [state](const neighbour_entry &entry) { return entry.state == state; });
}

// Seconds since it came, or went on or off line last; none when the record tells no such time.
std::optional<uint32_t> presence_age(const explanation &known) {
    const uint32_t since = known.client.online_time;
    return since == 0 || since > known.now ? std::nullopt : std::optional(known.now - since);
}

std::string time_ago(unsigned seconds) {
    if (seconds < 120)
        return std::to_string(seconds) + " s ago";
    if (seconds < 7200)
        return std::to_string(seconds / 60) + " min ago";
    return std::to_string(seconds / 3600) + " h ago";
}

// Of a record whose clock is this machine's.
std::string presence_since(const explanation &known) {
    const auto age = presence_age(known);
    const std::vector<std::string> then = what_came_then(known);
    return age ? time_ago(*age) + (then.empty() ? "" : ", when " + joined(then, ", and ")) : "";
}

// Where traffic says who is present.
std::string by_traffic_verdict(const explanation &known) {
    if (!known.kernel_asked)
        return was_heard_of;
    if (is_in_state(known, "reachable"))
        return it_answers;
    for (const forwarding_entry &entry : known.forwarding)
        if (entry.age < silent_seconds)
            return "On line, because a bridge heard it " + time_ago(entry.age) + ".";
    return "On line, because it is only quiet: it has not been asked for its addresses in vain since it was "
           "heard of.";
}

std::string on_line_verdict(const explanation &known) {
    const hbs_client &client = known.client;
    if (has_flag(client, HBS_FLAG_ASSOC))
        return "On line, because it is associated to Wi-Fi network " + std::to_string(client.wifi_index + 1) +
               ".";
    if (known.router.by_traffic)
        return by_traffic_verdict(known);
    if (has_flag(client, HBS_FLAG_TIMER_ONLINE))
        return std::string("On line, because it fell silent less than ") + silent_minutes +
               " ago and nothing has said since that it left.";
    if (is_in_state(known, "reachable"))
        return it_answers;
    if (has_flag(client, HBS_FLAGS_IP4 | HBS_FLAGS_IP6) && !date_text(client.lease_end).empty())
        return "On line, because it has a lease until " + date_text(client.lease_end) +
               " and nothing has said that it left.";
    return was_heard_of;
}

// As far as what still holds rules it out.
std::string what_ended(const hbs_client &client) {
    std::vector<std::string> parts;
    if (client.adapter_type != HBS_ADAPTER_WIFI)
        parts.push_back("its link");
    if (!has_flag(client, HBS_FLAG_TIMER_LEASE))
        parts.push_back("its lease");
    if (client.adapter_type != HBS_ADAPTER_ETHERNET)
        parts.push_back("its association");
    return joined(parts, ", ") + (parts.empty() ? "" : " or ") + "its answers";
}

std::string off_line_verdict(const explanation &known) {
    const hbs_client &client = known.client;
    for (const forwarding_entry &entry : known.forwarding)
        if (!entry.carrier)
            return "Off line, because its port " + entry.port + " has no link.";
    if (is_in_state(known, "failed") && known.forwarding.empty())
        return "Off line, because it gives no answer and no bridge has heard of it lately.";
    if (!has_flag(client, HBS_FLAGS_ADDR))
        return "Off line, because it has neither a lease nor an address that is known to be its own.";
    if (known.kernel_asked && known.neighbours.empty() && known.forwarding.empty())
        return "Off line, because the kernel knows nothing of it: neither a neighbour nor a bridge's entry.";
    if (is_in_state(known, "incomplete"))
        return "Off line, because the kernel is asking for it just now and no answer has come yet.";
    return "Off line, because " + what_ended(client) + " ended and none has come since.";
}

std::string neighbour_text(const neighbour_entry &entry) {
    return entry.address + " on " + entry.interface + ": " + entry.state + ", changed " + time_ago(entry.age);
}

std::string forwarding_text(const forwarding_entry &entry) {
    return entry.port + " of " + entry.bridge +
           (entry.vlan != 0 ? " in VLAN " + std::to_string(entry.vlan) : "") + ", heard " +
           time_ago(entry.age) + (entry.carrier ? ", the port has link" : ", the port has no link");
}

std::string timers_text(const hbs_client &client) {
    std::vector<std::string> timers;
    if (has_flag(client, HBS_FLAG_TIMER_LEASE))
        timers.push_back("lease");
    if (has_flag(client, HBS_FLAG_TIMER_ONLINE))
        timers.push_back("silence");
    if (has_flag(client, HBS_FLAG_TIMER_DHCPWAIT))
        timers.push_back("waiting for a lease");
    return joined(timers, ", ");
}

std::string lease_text(const sighting &lease) {
    return lease.address + " in " + lease.place;
}

bool is_lease_of(const sighting &lease, const hbs_client &client) {
    return (!lease.mac.empty() && lease.mac == mac_text(client.mac)) ||
           lease.address == ipv4_text(client.ipv4) || lease.address == ipv6_text(client.ipv6);
}

uint32_t seconds_of(clockid_t clock) {
    timespec now = {};
    (void)clock_gettime(clock, &now);
    return static_cast<uint32_t>(now.tv_sec);
}

explanation gather_all(const hbs_client &client) {
    explanation known;
    known.client = client;
    known.router = settings_of_router();
    known.now = seconds_of(CLOCK_MONOTONIC);
    known.uptime = seconds_of(CLOCK_BOOTTIME);
    ask_kernel(known);
    if (known.router.is_router && !known.router.access_points.empty())
        known.stations = stations_now(known.router.access_points, mac_text(client.mac));
    const lease_knowledge leases = dhcp_leases();
    for (const sighting &lease : leases.leases)
        if (is_lease_of(lease, client))
            known.leases.push_back(lease);
    return known;
}

void add_line(text_table &table, const std::string &name, const std::string &value) {
    if (!value.empty())
        table.rows.push_back({{name}, {value}});
}

std::vector<std::string> what_brings_it(const explanation &known) {
    if (known.router.by_traffic && has_flag(known.client, HBS_FLAGS_ADDR))
        return {"A lease, an association, an answer to the kernel's question, or a frame that a bridge hears "
                "brings "
                "it on line."};
    return {"A lease, an association, or an answer to the kernel's question brings it on line."};
}

std::string leaving_text(const explanation &known) {
    return "It leaves its Wi-Fi network: off line " +
           (known.router.is_router
                ? "once it has been at no access point for " + std::to_string(known.router.settle) + " s."
                : std::string("at once."));
}

// What silence does to one that no association holds, and whose silence has not begun; empty = nothing.
std::string silence_text(const explanation &known) {
    if (known.router.by_traffic)
        return "It gives no answer when it is asked for, and has not been heard for " +
               std::to_string(silent_seconds) + " seconds: off line.";
    if (known.client.adapter_type == HBS_ADAPTER_WIFI || has_flag(known.client, HBS_FLAG_TIMER_ONLINE))
        return "";
    return std::string("It falls silent: off line ") + silent_minutes + " later.";
}

// What comes when its silence was timed to the end.
std::string timer_text(const explanation &known) {
    if (known.router.by_traffic)
        return "Its silence lasts: it is asked for its addresses when the timer ends, and stays while it "
               "answers.";
    return "Its silence lasts: off line when the timer ends.";
}

json stations_json(const explanation &known) {
    const auto number_or_null = [](const auto &number) { return number ? json(*number) : json(nullptr); };
    json stations = json::array();
    for (const station_entry &entry : known.stations)
        stations.push_back({{"access_point", entry.device},
                            {"authorized", entry.authorized},
                            {"signal", number_or_null(entry.signal)},
                            {"inactive_milliseconds", number_or_null(entry.inactive)},
                            {"connected_seconds", number_or_null(entry.connected)},
                            {"receive_rate", number_or_null(entry.received)},
                            {"transmit_rate", number_or_null(entry.sent)}});
    return stations;
}

} // namespace

std::vector<std::string> what_came_then(const explanation &known) {
    const uint32_t age = presence_age(known).value_or(UINT32_MAX);
    const auto is_then = [age](uint32_t seconds) {
        return std::max(seconds, age) - std::min(seconds, age) <= 1;
    };
    const bool online = has_flag(known.client, HBS_FLAG_ONLINE);
    std::vector<std::string> events;
    for (const neighbour_entry &entry : known.neighbours)
        if (is_then(entry.age) && entry.state == (online ? "reachable" : "failed"))
            events.push_back("the kernel's entry of " + entry.address + " became " + entry.state);
    if (!online) // what is below brings a client, and takes none off line
        return events;
    for (const station_entry &entry : known.stations)
        if (entry.connected && is_then(*entry.connected))
            events.push_back("it joined the access point " + entry.device);
    if (const uint32_t lease = known.client.lease_start_uptime; lease != 0 && is_then(known.uptime - lease))
        events.push_back("its first lease came");
    return events;
}

std::string verdict(const explanation &known) {
    return has_flag(known.client, HBS_FLAG_ONLINE) ? on_line_verdict(known) : off_line_verdict(known);
}

std::vector<std::string> what_would_change_it(const explanation &known) {
    const hbs_client &client = known.client;
    if (!has_flag(client, HBS_FLAG_ONLINE))
        return what_brings_it(known);
    std::vector<std::string> events;
    if (client.switch_port != 0)
        events.push_back("Port " + std::to_string(client.switch_port) + " loses its link: off line at once.");
    if (has_flag(client, HBS_FLAG_ASSOC) || client.adapter_type == HBS_ADAPTER_WIFI)
        events.push_back(leaving_text(known));
    const std::string silence = has_flag(client, HBS_FLAG_ASSOC) ? "" : silence_text(known);
    if (!silence.empty())
        events.push_back(silence);
    if (has_flag(client, HBS_FLAG_TIMER_ONLINE))
        events.push_back(timer_text(known));
    if (!date_text(client.lease_end).empty())
        events.push_back("Its lease ends at " + date_text(client.lease_end) +
                         ", or it gives the lease back.");
    return events;
}

text_table explanation_table(const explanation &known) {
    text_table table = client_details(known.client);
    for (const neighbour_entry &entry : known.neighbours)
        add_line(table, "neighbour", neighbour_text(entry));
    for (const forwarding_entry &entry : known.forwarding)
        add_line(table, "port", forwarding_text(entry));
    for (const station_entry &entry : known.stations)
        add_line(table, "station", station_text(entry));
    for (const sighting &lease : known.leases)
        add_line(table, "lease file", lease_text(lease));
    add_line(table, "timers", timers_text(known.client));
    add_line(table, "presence since", presence_since(known));
    for (const std::string &event : what_would_change_it(known))
        add_line(table, "next", event);
    return table;
}

json explanation_json(const explanation &known) {
    json neighbours = json::array();
    for (const neighbour_entry &entry : known.neighbours)
        neighbours.push_back({{"address", entry.address},
                              {"state", entry.state},
                              {"interface", entry.interface},
                              {"age", entry.age}});
    json forwarding = json::array();
    for (const forwarding_entry &entry : known.forwarding)
        forwarding.push_back({{"port", entry.port},
                              {"bridge", entry.bridge},
                              {"vlan", entry.vlan},
                              {"age", entry.age},
                              {"carrier", entry.carrier}});
    json leases = json::array();
    for (const sighting &lease : known.leases)
        leases.push_back({{"address", lease.address}, {"file", lease.place}});
    const auto age = presence_age(known);
    return {{"client", client_json(known.client)},
            {"kernel_asked", known.kernel_asked},
            {"neighbours", neighbours},
            {"forwarding", forwarding},
            {"stations", stations_json(known)},
            {"leases", leases},
            {"timers", timers_text(known.client)},
            {"presence_seconds", age ? json(*age) : json(nullptr)},
            {"then", what_came_then(known)},
            {"next", what_would_change_it(known)},
            {"verdict", verdict(known)}};
}

void explain(session &run, const std::string &key) {
    const explanation known = gather_all(one_client(read_database(), key));
    if (run.json) {
        run.out << json_text(explanation_json(known)) << '\n';
    } else {
        print_table(run, explanation_table(known));
        run.out << '\n' << verdict(known) << '\n';
    }
    warn_when_daemon_is_gone(run);
}
