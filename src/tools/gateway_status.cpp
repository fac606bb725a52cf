#include "tools/gateway_status.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "base/counters.h"
#include "base/paths.h"
#include "base/plain_file.h"
#include "tools/audit_sources.h"
#include "tools/client_key.h"
#include "tools/command_client.h"
#include "tools/route_mode.h"

namespace {

constexpr uint32_t protecting_flags = HBS_FLAG_ONLINE | HBS_FLAG_STIP4 | HBS_FLAG_STIP6;

// The daemon may be another user's, who started it by hand: whoever it is, it is the one that answers here.
int open_lock_file() {
    return hbs_plain_open(HBS_LOCK_FILE, O_RDONLY, 0);
}

// 0 when nobody holds the lock, or when the holder has no pid here.
pid_t lock_holder() {
    const int fd = open_lock_file();
    if (fd == -1)
        return 0;
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool asked = fcntl(fd, F_GETLK, &lock) == 0;
    close(fd);
    return asked && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

struct count_name {
    hbs_counter counter;
    const char *name, *help;
};

constexpr count_name count_names[] = {
    {HBS_COUNT_DATAGRAMS, "datagrams", "Datagrams taken from the command socket."},
    {HBS_COUNT_AGENT_EVENTS, "agent_events", "Events told to the TR-069 agent."},
    {HBS_COUNT_LOST, "lost_neighbour_events",
     "Neighbour events lost in overruns; the tables were read instead."},
    {HBS_COUNT_WAITS, "waits", "Times that the daemon found a reader in the database."},
    {HBS_COUNT_TAKEOVERS, "takeovers", "Times that a reader did not leave it."}};

// Seconds since the process began: the 22nd word of its stat line, counted behind the name in
// parentheses, is its start in clock ticks since the system's.
std::optional<double> uptime_of(pid_t pid) {
    std::ifstream stat_file(HBS_PROCESSES "/" + std::to_string(pid) + "/stat"),
        uptime_file(HBS_PROCESSES "/uptime");
    std::string line;
    double system_uptime = 0;
    if (!std::getline(stat_file, line) || !(uptime_file >> system_uptime))
        return std::nullopt;
    const size_t behind_name = line.rfind(')');
    std::istringstream words(behind_name == std::string::npos ? "" : line.substr(behind_name + 1));
    std::string word;
    for (int i = 3; i < 22; i++)
        words >> word;
    double ticks = 0;
    if (!(words >> ticks))
        return std::nullopt;
    return system_uptime - ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Leaves out what this user may not read.
void add_counts(gateway_status &status) {
    const int fd = open_lock_file();
    if (fd == -1)
        return;
    hbs_counts counts = {};
    const bool is_whole = read(fd, &counts, sizeof counts) == static_cast<ssize_t>(sizeof counts);
    close(fd);
    if (!is_whole)
        return;
    for (const count_name &one : count_names)
        status.counts.push_back({one.name, one.help, counts.count[one.counter]});
    counts.version[sizeof counts.version - 1] = '\0';
    status.version = counts.version;
}

void count(head_count &counter, const hbs_client &client) {
    counter.clients++;
    counter.online += (client.flags & HBS_FLAG_ONLINE) != 0;
}

// A static lease that was set just now is in the file, and on the client only with the server's next news.
bool is_protected(const hbs_client &client, const std::vector<sighting> &static_leases) {
    const std::string mac = mac_text(client.mac);
    return (client.trust & HBS_TRUST_PROTECTED) != 0 || (client.flags & protecting_flags) != 0 ||
           std::any_of(static_leases.begin(), static_leases.end(),
                       [&](const sighting &lease) { return lease.mac == mac; });
}

bool is_nobody(const hbs_client &client) {
    return key_of(client).empty();
}

} // namespace

std::optional<hbs_client> next_displaced(const std::vector<hbs_client> &clients,
                                         const std::vector<sighting> &static_leases) {
    const hbs_client *next = nullptr;
    int32_t earliest = INT32_MAX; // one of that time is never displaced
    for (const hbs_client &client : clients) {
        const auto since = static_cast<int32_t>(client.online_time);
        if (since >= earliest || is_protected(client, static_leases))
            continue;
        next = &client;
        earliest = since;
    }
    if (next != nullptr)
        return *next;
    const auto nobody = std::find_if(clients.begin(), clients.end(), is_nobody);
    return nobody == clients.end() ? std::nullopt : std::optional(*nobody);
}

gateway_status status_of(const database &db, const std::vector<sighting> &static_leases) {
    gateway_status status;
    for (const hbs_client &client : db.clients) {
        count(status.all, client);
        count(status.networks[client.nwidx], client);
        count(status.adapters[adapter_word(client.adapter_type)], client);
    }
    status.pools = {{"clients", db.clients.size(), HBS_MAX_CLIENTS},
                    {"addresses", db.ip.size(), HBS_MAX_IP_ENTRIES},
                    {"interfaces", db.interfaces.size(), HBS_MAX_IF_ENTRIES},
                    {"dhcp", db.dhcp.size(), HBS_MAX_DHCP_ENTRIES},
                    {"rules", db.rules.size(), HBS_MAX_RULE_ENTRIES},
                    {"primary", db.primary.size(), HBS_MAX_PRI_ENTRIES}};
    status.next_displaced = next_displaced(db.clients, static_leases);
    return status;
}

gateway_status seen_status(const session &run, const database &db) {
    gateway_status status = status_of(db, static_leases());
    status.running = daemon_is_there(run.socket_path);
    if (!status.running)
        return status;
    status.pid = lock_holder();
    add_counts(status);
    status.uptime = status.pid > 0 ? uptime_of(status.pid) : std::nullopt;
    return status;
}

void ask_mode(const session &run, gateway_status &status) {
    try {
        status.routed = is_routed(run.socket_path, run.answer_seconds);
    } catch (const daemon_error &error) { // told as such: the rest is worth showing
        status.hangs = error.why == daemon_error::no_answer;
        status.why_unknown = status.hangs ? "no answer" : error.what();
    }
}

gateway_status read_status(const session &run, const database &db) {
    gateway_status status = seen_status(run, db);
    if (status.running)
        ask_mode(run, status);
    return status;
}
