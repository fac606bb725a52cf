#include "tools/session.h"

#include <ostream>

#include "tools/answers.h"
#include "tools/command_client.h"
#include "tools/json_view.h"

void run_command(session &run, const std::string &name, hbs_code code, const datagram &message) {
    const int32_t answer = send_command(message, run.socket_path, run.answer_seconds);
    const answer_meaning meaning = meaning_of(code, answer);
    if (run.json) {
        run.out << json_text({{"command", name},
                              {"code", static_cast<int>(code)},
                              {"answer", answer},
                              {"accepted", meaning.accepted},
                              {"text", meaning.text}})
                << '\n';
    } else {
        (meaning.accepted ? run.out : run.err) << name << ": " << meaning.text << '\n';
    }
    run.status = meaning.accepted ? exit_ok : exit_negative;
}

void run_event(session &run, const std::string &name, hbs_code code, const datagram &message) {
    send_event(message, run.socket_path);
    if (run.json)
        run.out << json_text({{"event", name}, {"code", static_cast<int>(code)}, {"sent", true}}) << '\n';
    else
        run.out << name << ": sent\n";
}
