#include "tools/status_view.h"

#include <ostream>

#include "tools/client_key.h"
#include "tools/client_table.h"
#include "tools/gateway_status.h"
#include "tools/json_view.h"
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
    return status.uptime ? text + ", for " + duration_text(*status.uptime) : text;
}

const char *mode_word(const gateway_status &status) {
    return !status.routed ? "unknown: no answer" : *status.routed ? "routed" : "bridge";
}

std::string displaced_text(const gateway_status &status) {
    if (!status.next_displaced)
        return "nobody: all are protected";
    const std::string name = client_name(*status.next_displaced);
    return key_of(*status.next_displaced) + (name.empty() ? "" : " (" + name + ")");
}

text_table status_table(const gateway_status &status) {
    text_table table = {{{"WHAT"}, {"HOW", 20}}, {}};
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
    add("displaced next", displaced_text(status));
    return table;
}

json count_json(const head_count &heads) {
    return {{"clients", heads.clients}, {"online", heads.online}};
}

json status_json(const gateway_status &status) {
    json networks = json::array(), pools = json::object();
    for (const auto &[network, heads] : status.networks)
        networks.push_back({{"network", network}, {"clients", heads.clients}, {"online", heads.online}});
    for (const pool_use &pool : status.pools)
        pools[pool.name] = {{"used", pool.used}, {"size", pool.size}};
    return {{"running", status.running},
            {"pid", status.pid > 0 ? json(status.pid) : json(nullptr)},
            {"uptime_seconds", status.uptime ? json(*status.uptime) : json(nullptr)},
            {"mode", status.routed ? json(mode_word(status)) : json(nullptr)},
            {"hbsctl_version", HBSCTL_VERSION},
            {"table", count_json(status.all)},
            {"networks", networks},
            {"pools", pools},
            {"next_displaced", status.next_displaced ? json(key_of(*status.next_displaced)) : json(nullptr)}};
}

void show_status(session &run) {
    const gateway_status status = read_status(run);
    if (run.json)
        run.out << json_text(status_json(status)) << '\n';
    else
        print_table(run, status_table(status));
    warn_when_daemon_is_gone(run);
}

void print_gauge(session &run, const char *name, const char *help) {
    run.out << "# TYPE " << name << " gauge\n# HELP " << name << ' ' << help << '\n';
}

template <typename Groups>
void print_heads(session &run, const char *name, const char *label, const Groups &groups, const char *help) {
    print_gauge(run, name, help);
    for (const auto &[group, heads] : groups) {
        run.out << name << '{' << label << "=\"" << group << "\",state=\"online\"} " << heads.online << '\n'
                << name << '{' << label << "=\"" << group << "\",state=\"offline\"} "
                << heads.clients - heads.online << '\n';
    }
}

void print_pools(session &run, const gateway_status &status) {
    print_gauge(run, "hostbase_pool_used", "Elements of a pool of the database that are in use.");
    for (const pool_use &pool : status.pools)
        run.out << "hostbase_pool_used{pool=\"" << pool.name << "\"} " << pool.used << '\n';
    print_gauge(run, "hostbase_pool_size", "Elements that a pool of the database has.");
    for (const pool_use &pool : status.pools)
        run.out << "hostbase_pool_size{pool=\"" << pool.name << "\"} " << pool.size << '\n';
}

void show_metrics(session &run) {
    const gateway_status status = read_status(run);
    print_gauge(run, "hostbase_up", "Whether the daemon runs.");
    run.out << "hostbase_up " << status.running << '\n';
    if (status.routed) {
        print_gauge(run, "hostbase_routed", "Whether the gateway routes, not bridges.");
        run.out << "hostbase_routed " << *status.routed << '\n';
    }
    if (status.uptime) {
        print_gauge(run, "hostbase_uptime_seconds", "How long the daemon has been running.");
        run.out << "hostbase_uptime_seconds " << static_cast<long>(*status.uptime) << '\n';
    }
    print_heads(run, "hostbase_network_clients", "network", status.networks,
                "Clients of a LAN network, from 0.");
    print_heads(run, "hostbase_adapter_clients", "adapter", status.adapters, "Clients on a kind of adapter.");
    print_pools(run, status);
    run.out << "# EOF\n";
    warn_when_daemon_is_gone(run);
}

} // namespace

void add_status(CLI::App *app, session &run) {
    app->add_subcommand("status", "Show how the daemon and its database are")->callback([&run] {
        show_status(run);
    });
    app->add_subcommand("metrics", "Print numbers in the OpenMetrics text format")->callback([&run] {
        show_metrics(run);
    });
}
