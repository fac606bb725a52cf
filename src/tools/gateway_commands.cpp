#include "tools/gateway_commands.h"

#include <istream>
#include <ostream>

#include "tools/arguments.h"
#include "tools/carry_out.h"
#include "tools/command_client.h"

namespace {

enum class without_terminal { goes_ahead, needs_yes };

std::string counted(size_t count, const char *one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::string count_text(size_t count) {
    return count == 0 ? "" : std::to_string(count);
}

// Says what will happen and, where a person can answer, asks.
void confirm(session &run, const std::string &name, const std::string &what, without_terminal rule) {
    run.err << what << '\n';
    if (run.yes || (!run.can_ask && rule == without_terminal::goes_ahead))
        return;
    if (!run.can_ask)
        throw run_error(exit_negative,
                        name + ": nothing changed: where nobody can be asked, --yes is needed");
    run.err << "Type yes to go on: " << std::flush;
    std::string line;
    if (!std::getline(run.in, line))
        run.err << '\n'; // the question stands on a line that nobody ended
    if (line != "yes")
        throw run_error(exit_negative, name + ": nothing changed");
}

// --- mode
// ----------------------------------------------------------------------------------------------------

std::string mode_word(const look &now) {
    return now.routed ? "routed" : "bridge";
}

std::vector<fact> mode_facts(const look &now) {
    return {{"mode", mode_word(now)}, {"clients in the table", std::to_string(now.db.clients.size())}};
}

std::string bridge_announcement(const look &before) {
    return "Bridge mode takes all " + counted(before.db.clients.size(), "client") + " out of the table; " +
           counted(before.files.remembered, "remembered client") + " will come back with routed mode.";
}

void set_mode(session &run, bool routed) {
    const look before = look_first(run);
    if (before.routed && !routed)
        confirm(run, "mode", bridge_announcement(before), without_terminal::goes_ahead);
    (void)send_command(request_route_mode(routed), run.socket_path, run.answer_seconds);
    const look after = look_first(run);
    if (before.routed == after.routed) // clients may come and go meanwhile
        print_outcome(run, "mode", {}, "the mode is " + mode_word(after));
    else
        print_outcome(run, "mode", changes_between(mode_facts(before), mode_facts(after)));
}

// --- reset-defaults
// ------------------------------------------------------------------------------------------

std::vector<fact> remembered_facts(const look &now) {
    return {{"remembered clients", count_text(now.files.remembered)},
            {"remembered rules", count_text(now.files.rules.size())},
            {"remembered trusted devices", count_text(now.files.trusted)}};
}

// The DHCP servers' files are not the daemon's to delete.
std::string staying_leases(const look &now, const char *before, const char *after) {
    const size_t count = now.files.leases.size();
    return count == 0 ? ""
                      : before + counted(count, "static lease") + (count == 1 ? " stays" : " stay") + after;
}

std::string reset_announcement(const look &before) {
    return "This deletes for good what is remembered of " + counted(before.files.remembered, "client") +
           ", " + counted(before.files.rules.size(), "rule") + " and " +
           counted(before.files.trusted, "trusted device") + "." + staying_leases(before, " ", ".");
}

std::string remark_on_rest(const look &now) {
    return "what was set of the " + counted(now.db.clients.size(), "client") +
           " in the table stays until gw_hostbase starts again" + staying_leases(now, "; ", "");
}

// The answer tells of the last file only, which may not have been there: the files themselves are looked at.
void reset(session &run) {
    const look before = look_first(run);
    confirm(run, "reset-defaults", reset_announcement(before), without_terminal::needs_yes);
    (void)send_command(request_plain(HBS_CMD_RESET_DEFAULTS), run.socket_path, run.answer_seconds);
    const look after = look_first(run);
    const std::vector<fact> left = remembered_facts(after);
    const std::vector<change> changes = changes_between(remembered_facts(before), left);
    const bool all_gone = changes_between({}, left).empty();
    const std::string rest = remark_on_rest(after);
    print_outcome(run, "reset-defaults", changes,
                  !all_gone         ? "not everything could be deleted; " + rest
                  : changes.empty() ? "nothing was remembered; " + rest
                                    : rest);
    run.status = all_gone ? exit_ok : exit_negative;
}

void add_yes(CLI::App *command, session &run) {
    command->add_flag("--yes", run.yes, "Do not ask");
}

} // namespace

void add_gateway_commands(CLI::App *app, session &run) {
    add_command<uint32_t>(
        app, "mode", "Switch to bridge mode (no clients are kept) or to routed mode",
        [&run](CLI::App *command, uint32_t &routed) {
            add_choice(command, "mode", routed, {{"bridge", 0}, {"routed", 1}}, "The mode to switch to");
            add_yes(command, run);
        },
        [&run](uint32_t routed) { set_mode(run, routed != 0); });
    add_plain(
        app, "reset-defaults", "Delete everything that was remembered of clients", [&run] { reset(run); },
        [&run](CLI::App *command) { add_yes(command, run); });
    add_plain(app, "dump", "Have the daemon write the whole database to its log",
              [&run] { carry_out_blindly(run, "dump", HBS_CMD_DUMP, request_plain(HBS_CMD_DUMP)); });
}
