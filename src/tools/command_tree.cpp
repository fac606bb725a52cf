#include "tools/command_tree.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>

#include <hostbase_query.h>

#include "tools/arguments.h"
#include "tools/client_key.h"
#include "tools/command_client.h"
#include "tools/completion.h"
#include "tools/database.h"
#include "tools/event_commands.h"
#include "tools/follow_commands.h"
#include "tools/gateway_commands.h"
#include "tools/json_view.h"
#include "tools/lease_commands.h"
#include "tools/list_commands.h"
#include "tools/printable.h"
#include "tools/report_command.h"
#include "tools/serve_command.h"
#include "tools/settings_commands.h"
#include "tools/status_view.h"
#include "tools/trust_commands.h"
#include "tools/view_commands.h"

namespace {

constexpr const char *footer =
    "Examples:\n"
    "  hbsctl list\n"
    "  hbsctl show 192.168.0.10\n"
    "  hbsctl watch --interval 2\n"
    "  hbsctl trust set site 02:aa:00:00:00:11 --comment \"front door\"\n"
    "  hbsctl event dhcpv4-lease 02:aa:00:00:00:11 192.168.0.11 --host laptop\n"
    "\n"
    "Status: 0 done, 1 nothing changed, not found or differences, 2 wrong usage, 3 the\n"
    "daemon or its database is not there, 4 no answer in time, 5 another failure.";

exit_status exit_of(const daemon_error &error) {
    switch (error.why) {
    case daemon_error::not_there:
        return exit_not_there;
    case daemon_error::no_answer:
        return exit_no_answer;
    case daemon_error::failed:
        return exit_failed;
    }
    return exit_failed;
}

exit_status fail(session &run, exit_status status, const std::string &text) {
    if (run.json)
        run.out << json_text({{"error", text}, {"status", static_cast<int>(status)}}) << '\n';
    run.err << "hbsctl: " << printable(text) << '\n';
    return status;
}

// What may stand where the words that were understood end: commands of the last of them, options of all.
std::vector<std::string> possible_words(const CLI::App &app) {
    std::vector<std::string> words;
    for (const CLI::Option *option : app.get_options())
        if (option->nonpositional())
            words.push_back(option->get_name());
    const std::vector<CLI::App *> chosen = app.get_subcommands();
    const auto below = chosen.empty() ? app.get_subcommands([](const CLI::App *) { return true; })
                                      : std::vector<const CLI::App *>();
    for (const CLI::App *command : below)
        words.push_back(command->get_name());
    for (const CLI::App *command : chosen)
        for (const std::string &word : possible_words(*command))
            words.push_back(word);
    return words;
}

// What the parser says of a word that is no number names it by "NAME = WORD".
std::string conversion_text(const std::string &said) {
    const std::string start = "Could not convert: ";
    const size_t sign = said.find(" = ");
    if (!said.starts_with(start) || sign == std::string::npos)
        return said;
    return said.substr(start.size(), sign - start.size()) + ": '" + said.substr(sign + 3) +
           "' is no number that is possible here";
}

// A word that is no command is what is told, not the command that is missing because of it.
std::string usage_text(const CLI::App &app, const CLI::ParseError &error) {
    const std::vector<std::string> unexpected = app.remaining(true);
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    if (code == CLI::ExitCodes::ConversionError)
        return conversion_text(error.what());
    const bool extra = code == CLI::ExitCodes::RequiredError || code == CLI::ExitCodes::ExtrasError;
    if (unexpected.empty() || !extra)
        return error.what();
    return "'" + unexpected.front() + "' is not expected here" +
           suggestion(unexpected.front(), possible_words(app));
}

// Also what is asked for with --help or --version comes as an "error".
exit_status end_of_parsing(session &run, const CLI::App &app, const CLI::ParseError &error,
                           const std::vector<std::string> &arguments) {
    if (error.get_exit_code() == 0)
        return app.exit(error, run.out, run.err) == 0 ? exit_ok : exit_usage;
    // A line that makes no sense may have ended before its options were looked at.
    run.json = run.json || std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    const exit_status status = fail(run, exit_usage, usage_text(app, error));
    run.err << "Run with --help for more information.\n";
    return status;
}

void build(CLI::App &app, session &run) {
    app.name("hbsctl");
    app.fallthrough();
    app.require_subcommand(1);
    app.set_help_flag(); // first, or every subcommand would make one although few are named
    add_view_commands(&app, run);
    add_status(&app, run);
    add_follow_commands(&app, run);
    add_report(&app, run);
#ifdef HBSCTL_SERVE
    add_serve(&app, run);
#endif
    add_gateway_commands(&app, run);
    add_lease_commands(&app, run);
    add_trust_commands(&app, run);
    add_list_commands(&app, run);
    add_settings_commands(&app, run);
    add_event_commands(&app, run);
    add_help(&app);
    app.set_version_flag("--version", HBSCTL_VERSION);
    app.add_flag("--json", run.json, "Print JSON");
    app.add_flag("--force", run.force, "Send also what cannot be meant");
    add_seconds(&app, "--timeout", run.answer_seconds, 0.01, "Seconds that the daemon may take to answer");
    app.footer(footer); // last, or every subcommand would show it too
}

} // namespace

exit_status run_command_line(session &run, const std::vector<std::string> &arguments) {
    CLI::App app("Looks at the LAN clients that gw_hostbase knows, and talks to the daemon.");
    build(app, run);
    if (!arguments.empty() && arguments.front() == "--complete") {
        for (const std::string &word : completions(app, {arguments.begin() + 1, arguments.end()}))
            run.out << word << '\n';
        return exit_ok;
    }
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
        return run.status;
    } catch (const CLI::ParseError &error) {
        return end_of_parsing(run, app, error, arguments);
    } catch (const database_error &error) {
        return fail(run, status_of(error), error.what());
    } catch (const daemon_error &error) {
        return fail(run, exit_of(error), error.what());
    } catch (const request_error &error) {
        return fail(run, exit_usage, error.what());
    } catch (const run_error &error) {
        return fail(run, error.status, error.what());
    } catch (const std::exception &error) {
        return fail(run, exit_failed, error.what());
    }
}
