#include "tools/serve_command.h"

#include <ostream>

#include "tools/arguments.h"
#include "tools/json_view.h"
#include "tools/live_source.h"
#include "tools/page_server.h"
#include "tools/terminal.h"

namespace {

struct serve_options {
    listen_address where = {"127.0.0.1", usual_port};
    double seconds = 0.5;
};

void announce(session &run, const listen_address &where) {
    if (run.json)
        run.out << json_text({{"url", url_of(where)}}, -1) << std::endl;
    else
        run.out << url_of(where) << std::endl;
}

void serve(session &run, const serve_options &options) {
    const std::chrono::milliseconds pause(static_cast<long>(options.seconds * 1000));
    live_screen signals(false); // before the threads, which leave the signals to it
    live_source source(run);
    source.look();
    const page_server server(options.where, source);
    announce(run, server.address());
    while (signals.wait(pause)) {
        if (server.has_ended())
            throw run_error(exit_failed, "cannot listen on " + url_of(server.address()) + " any more");
        try {
            source.look();
        } catch (const std::runtime_error &) {
            continue; // the daemon may be starting again, and what is lacking come back: what was seen stays
        }
    }
}

void add_listen(CLI::App *command, listen_address &where) {
    const auto store = [&where](const std::string &text) {
        const auto address = parse_listen_address(text);
        if (!address)
            throw CLI::ValidationError("'" + text + "' is no ADDRESS[:PORT]");
        where = *address;
    };
    command
        ->add_option_function<std::string>("--listen", store,
                                           "Where (127.0.0.1:8080); without a port: 8080; port 0: any. "
                                           "Others than this machine see all with 0.0.0.0")
        ->type_name("ADDRESS[:PORT]");
}

} // namespace

void add_serve(CLI::App *app, session &run) {
    add_command<serve_options>(
        app, "serve", "Show a live page in a browser, until Ctrl-C",
        [](CLI::App *command, serve_options &options) {
            add_listen(command, options.where);
            add_seconds(command, "--interval", options.seconds, 0.1, "Seconds between two looks");
        },
        [&run](const serve_options &options) { serve(run, options); });
}
