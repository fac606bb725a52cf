#include "tools/follow_commands.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <ostream>

#include "tools/arguments.h"
#include "tools/client_events.h"
#include "tools/client_key.h"
#include "tools/command_client.h"
#include "tools/database.h"
#include "tools/json_view.h"
#include "tools/printable.h"
#include "tools/terminal.h"
#include "tools/time_text.h"

namespace {

struct events_options {
    double seconds = 0.5;
    unsigned count = 0; // 0 = until it is interrupted
    double since = 0;   // seconds before the first look
};

struct wait_options {
    std::string client;
    bool online = false, offline = false;
    double seconds = 60;
};

std::chrono::milliseconds milliseconds_of(double seconds) {
    return std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
}

std::string in_quotes(const std::string &text) {
    return text.empty() ? "none" : "'" + printable(text) + "'";
}

std::string event_line(const client_event &event) {
    const std::string who = event.client + (event.name.empty() ? "" : " (" + printable(event.name) + ")");
    return zoned_time(event.when) + " " + who + " " + event.field + ": " + in_quotes(event.before) + " -> " +
           in_quotes(event.after);
}

std::string event_json(const client_event &event) {
    const auto or_null = [](const std::string &text) { return text.empty() ? json(nullptr) : json(text); };
    return json_text({{"time", zoned_time(event.when)},
                      {"client", event.client},
                      {"name", or_null(event.name)},
                      {"field", event.field},
                      {"old", or_null(event.before)},
                      {"new", or_null(event.after)}},
                     -1);
}

// None while the database cannot be read: the daemon may be starting again.
std::optional<std::vector<hbs_client>> clients_now() {
    try {
        return read_database().clients;
    } catch (const database_error &) {
        return std::nullopt;
    }
}

// No more than are `left` to be shown, of which they are taken.
void show_events(const session &run, live_screen &screen, const std::vector<client_event> &events,
                 size_t &left) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < events.size() && left > 0; i++, left--)
        lines.push_back(run.json ? event_json(events[i]) : event_line(events[i]));
    screen.show(lines);
}

// Said once when it goes and once when it comes; the status is that of the last look.
void tell_presence(session &run, bool &there) {
    const bool now = daemon_is_there(run.socket_path);
    if (now != there)
        run.err << (now ? "hbsctl: gw_hostbase is there again\n"
                        : "hbsctl: gw_hostbase is not running: nothing changes until it is there again\n")
                << std::flush;
    there = now;
    run.status = now ? exit_ok : exit_not_there;
}

void follow_events(session &run, const events_options &options) {
    std::vector<hbs_client> known = read_database().clients;
    bool there = true;
    tell_presence(run, there);
    live_screen screen(false);
    size_t left = options.count == 0 ? SIZE_MAX : options.count;
    if (options.since > 0)
        show_events(run, screen, events_since(known, options.since, this_moment()), left);
    while (left > 0 && screen.wait(milliseconds_of(options.seconds))) {
        tell_presence(run, there);
        const auto now = clients_now();
        if (!now)
            continue;
        show_events(run, screen, events_between(known, *now, time(nullptr)), left);
        known = *now;
    }
    heed_write_error(screen);
}

// Whether a client with that MAC, address or name is there, and in the state that is waited for. What a
// daemon that is gone left behind tells nothing. Throws database_error.
bool is_so(const session &run, const wait_options &options) {
    if (!daemon_is_there(run.socket_path))
        return false;
    for (const hbs_client &client : matching_clients(read_database(), options.client)) {
        const bool online = (client.flags & HBS_FLAG_ONLINE) != 0;
        if (options.online == options.offline || online == options.online)
            return true;
    }
    return false;
}

// The same for a daemon that may still have to start.
bool is_so_yet(const session &run, const wait_options &options) {
    try {
        return is_so(run, options);
    } catch (const database_error &) {
        return false;
    }
}

std::string state_text(const wait_options &options) {
    return options.online == options.offline ? "there" : options.online ? "on line" : "off line";
}

run_error too_late(const session &run, const wait_options &options) {
    if (!daemon_is_there(run.socket_path))
        return run_error(exit_not_there, "gw_hostbase is not running");
    (void)is_so(run, options); // tells why the database cannot be read
    return run_error(exit_no_answer, options.client + " is not " + state_text(options) + " in time");
}

void wait_for_client(session &run, const wait_options &options) {
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds pause(200);
    const auto deadline = clock::now() + milliseconds_of(options.seconds);
    live_screen signals(false);
    while (!is_so_yet(run, options)) {
        if (clock::now() >= deadline)
            throw too_late(run, options);
        if (!signals.wait(pause))
            throw run_error(exit_failed, "interrupted");
    }
    if (run.json)
        run.out << json_text({{"client", options.client}, {"state", state_text(options)}}) << '\n';
    else
        run.out << printable(options.client) << " is " << state_text(options) << '\n';
}

} // namespace

void add_follow_commands(CLI::App *app, session &run) {
    add_command<events_options>(
        app, "events", "Print a line for each change of a client, as it happens",
        [](CLI::App *command, events_options &options) {
            add_seconds(command, "--interval", options.seconds, 0.1, "Seconds between two looks");
            command->add_option("--count", options.count, "End after so many (otherwise: Ctrl-C)");
            add_duration(command, "--since", options.since,
                         "Begin with who went on or off line so long ago or later");
        },
        [&run](const events_options &options) { follow_events(run, options); });
    add_command<wait_options>(
        app, "wait", "Wait until a client is there, on line or off line",
        [](CLI::App *command, wait_options &options) {
            add_client(command, options.client);
            CLI::Option *online = command->add_flag("--online", options.online, "Until it is on line");
            command->add_flag("--offline", options.offline, "Until it is off line")->excludes(online);
            add_seconds(command, "--timeout", options.seconds, 0, "Seconds to wait at most", a_year);
        },
        [&run](const wait_options &options) { wait_for_client(run, options); });
}
