#include "tools/audit_report.h"

#include <ostream>

#include "tools/audit_sources.h"
#include "tools/database.h"
#include "tools/gateway_status.h"
#include "tools/json_view.h"
#include "tools/printable.h"

namespace {

void print_json(session &run, const std::vector<difference> &differences) {
    json list = json::array();
    for (const difference &one : differences) {
        list.push_back({{"known_to", one.known_to},
                        {"mac", one.mac.empty() ? json(nullptr) : json(one.mac)},
                        {"address", one.address},
                        {"text", one.text}});
    }
    run.out << json_text({{"differences", list}}) << '\n';
}

// A table with clients is that of routed mode, whatever else could be asked.
void tell_bridge_mode(session &run, const database &db) {
    if (db.clients.empty() && read_status(run, db).routed == std::optional(false))
        run.err << "hbsctl: the gateway is in bridge mode, in which it has no clients\n";
}

} // namespace

void audit(session &run) {
    const std::vector<sighting> neighbours = kernel_neighbours();
    const lease_knowledge leases = dhcp_leases();
    const database db = read_database();
    const std::vector<difference> differences = compare(db.clients, neighbours, leases);
    if (run.json)
        print_json(run, differences);
    else if (differences.empty())
        run.out << "no differences\n";
    for (size_t i = 0; i < differences.size() && !run.json; i++)
        run.out << printable(differences[i].text) << '\n';
    tell_bridge_mode(run, db);
    run.status = differences.empty() ? exit_ok : exit_negative;
}
