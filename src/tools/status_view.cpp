#include "tools/status_view.h"

#include <algorithm>
#include <ostream>

#include "tools/arguments.h"
#include "tools/client_key.h"
#include "tools/client_table.h"
#include "tools/metrics_view.h"
#include "tools/time_text.h"
#include "tools/view_commands.h"

namespace {

std::string count_text(const head_count &heads) {
    return std::to_string(heads.clients) + (heads.clients == 1 ? " client, " : " clients, ") +
           std::to_string(heads.online) + " on line";
}

std::string daemon_text(const gateway_status &status) {
    if (!status.running)
        return "not running";
    std::string text = "running";
    if (status.pid > 0)
        text += ", pid " + std::to_string(status.pid);
    if (!status.version.empty())
        text += ", version " + status.version;
    return status.uptime ? text + ", for " + duration_text(*status.uptime) : text;
}

std::string mode_word(const gateway_status &status) {
    return !status.routed ? "unknown: " + status.why_unknown : *status.routed ? "routed" : "bridge";
}

std::string displaced_text(const gateway_status &status) {
    if (!status.next_displaced)
        return status.all.clients == 0 ? "nobody is there" : "nobody: all are protected";
    const std::string name = client_name(*status.next_displaced), key = key_of(*status.next_displaced);
    return (key.empty() ? "a record without MAC and address" : key) + (name.empty() ? "" : " (" + name + ")");
}

std::string spaced(std::string name) {
    std::replace(name.begin(), name.end(), '_', ' ');
    return name;
}

text_table status_table(const gateway_status &status) {
    text_table table = {{{"WHAT"}, {"HOW"}}, {}};
    const auto add = [&](const std::string &what, const std::string &how) {
        table.rows.push_back({{what, style::faint}, {how}});
    };
    add("gw_hostbase", daemon_text(status));
    if (status.running)
        add("mode", mode_word(status));
    add("hbsctl", HBSCTL_VERSION);
    add("table", count_text(status.all));
    for (const auto &[network, heads] : status.networks)
        add("network " + std::to_string(network), count_text(heads));
    for (const pool_use &pool : status.pools)
        add(std::string("room for ") + pool.name,
            std::to_string(pool.used) + " of " + std::to_string(pool.size) + " in use");
    for (const daemon_count &one : status.counts)
        add(spaced(one.name), std::to_string(one.value));
    add("displaced next", displaced_text(status));
    return table;
}

json count_json(const head_count &heads) {
    return {{"clients", heads.clients}, {"online", heads.online}};
}

// Whether it is gone, hangs or may not be asked, which the status tells as well.
void warn_of_trouble(session &run, const gateway_status &status) {
    warn_when_daemon_is_gone(run);
    if (run.status != exit_ok || status.why_unknown.empty())
        return;
    run.err << "hbsctl: " << (status.hangs ? "gw_hostbase did not answer in time" : status.why_unknown)
            << '\n';
    run.status = status.hangs ? exit_no_answer : exit_failed;
}

void show_status(session &run) {
    const gateway_status status = read_status(run, read_database());
    if (run.json)
        run.out << json_text(status_json(status)) << '\n';
    else
        print_table(run, status_table(status));
    warn_of_trouble(run, status);
}

void show_metrics(session &run) {
    const gateway_status status = read_status(run, read_database());
    write_metrics(run.out, status);
    warn_of_trouble(run, status);
}

} // namespace

json status_json(const gateway_status &status) {
    json networks = json::array(), pools = json::object(), counts = json::object();
    for (const auto &[network, heads] : status.networks)
        networks.push_back({{"network", network}, {"clients", heads.clients}, {"online", heads.online}});
    for (const pool_use &pool : status.pools)
        pools[pool.name] = {{"used", pool.used}, {"size", pool.size}};
    for (const daemon_count &one : status.counts)
        counts[one.name] = one.value;
    return {{"running", status.running},
            {"pid", status.pid > 0 ? json(status.pid) : json(nullptr)},
            {"uptime_seconds", status.uptime ? json(*status.uptime) : json(nullptr)},
            {"mode", status.routed ? json(mode_word(status)) : json(nullptr)},
            {"version", status.version.empty() ? json(nullptr) : json(status.version)},
            {"hbsctl_version", HBSCTL_VERSION},
            {"table", count_json(status.all)},
            {"networks", networks},
            {"pools", pools},
            {"counts", status.counts.empty() ? json(nullptr) : counts},
            {"next_displaced", status.next_displaced ? json(key_of(*status.next_displaced)) : json(nullptr)}};
}

void add_status(CLI::App *app, session &run) {
    add_plain(
        app, "status", "Show how the daemon and its database are", [&run] { show_status(run); });
    add_plain(app, "metrics", "Print numbers in the OpenMetrics text format", [&run] { show_metrics(run); });
}
