#include "tools/metrics_view.h"

#include <ostream>

namespace {

void print_gauge(std::ostream &out, const char *name, const char *help) {
    out << "# TYPE " << name << " gauge\n# HELP " << name << ' ' << help << '\n';
}

template <typename Groups>
void print_heads(std::ostream &out, const char *name, const char *label, const Groups &groups,
                 const char *help) {
    print_gauge(out, name, help);
    for (const auto &[group, heads] : groups) {
        out << name << '{' << label << "=\"" << group << "\",state=\"online\"} " << heads.online << '\n'
            << name << '{' << label << "=\"" << group << "\",state=\"offline\"} "
            << heads.clients - heads.online << '\n';
    }
}

void print_pools(std::ostream &out, const gateway_status &status) {
    print_gauge(out, "hostbase_pool_used", "Elements of a pool of the database that are in use.");
    for (const pool_use &pool : status.pools)
        out << "hostbase_pool_used{pool=\"" << pool.name << "\"} " << pool.used << '\n';
    print_gauge(out, "hostbase_pool_size", "Elements that a pool of the database has.");
    for (const pool_use &pool : status.pools)
        out << "hostbase_pool_size{pool=\"" << pool.name << "\"} " << pool.size << '\n';
}

void print_counts(std::ostream &out, const gateway_status &status) {
    for (const daemon_count &one : status.counts)
        out << "# TYPE hostbase_" << one.name << " counter\n# HELP hostbase_" << one.name << ' ' << one.help
            << "\nhostbase_" << one.name << "_total " << one.value << '\n';
}

} // namespace

void write_metrics(std::ostream &out, const gateway_status &status) {
    print_gauge(out, "hostbase_up", "Whether the daemon runs.");
    out << "hostbase_up " << status.running << '\n';
    if (!status.version.empty())
        out << "# TYPE hostbase_build info\n# HELP hostbase_build The daemon's "
               "version.\nhostbase_build_info{version=\""
            << status.version << "\"} 1\n";
    if (status.routed) {
        print_gauge(out, "hostbase_routed", "Whether the gateway routes, not bridges.");
        out << "hostbase_routed " << *status.routed << '\n';
    }
    if (status.uptime) {
        print_gauge(out, "hostbase_uptime_seconds", "How long the daemon has been running.");
        out << "hostbase_uptime_seconds " << static_cast<long>(*status.uptime) << '\n';
    }
    print_heads(out, "hostbase_network_clients", "network", status.networks,
                "Clients of a LAN network, from 0.");
    print_heads(out, "hostbase_adapter_clients", "adapter", status.adapters, "Clients on a kind of adapter.");
    print_pools(out, status);
    print_counts(out, status);
    out << "# EOF\n";
}
