#include "tools/carry_out.h"

#include <ostream>

#include "tools/answers.h"
#include "tools/command_client.h"
#include "tools/json_view.h"
#include "tools/printable.h"

namespace {

objection to_bridge_mode(const look &now) {
    return now.routed ? std::nullopt : objection("the gateway is in bridge mode, in which it ignores this");
}

json changes_json(const std::vector<change> &changes) {
    const auto or_null = [](const std::string &text) { return text.empty() ? json(nullptr) : json(text); };
    json list = json::array();
    for (const change &one : changes)
        list.push_back({{"what", one.what}, {"old", or_null(one.before)}, {"new", or_null(one.after)}});
    return list;
}

void print_json(session &run, const std::string &name, const std::vector<change> &changes,
                const std::string &remark) {
    run.out << json_text({{"command", name},
                          {"changed", !changes.empty()},
                          {"changes", changes_json(changes)},
                          {"text", remark}})
            << '\n';
}

} // namespace

look look_first(const session &run) {
    return look_around(run.socket_path, run.answer_seconds);
}

void heed(const session &run, const std::string &name, const objection &why_not) {
    if (why_not && !run.force) {
        throw run_error(exit_negative,
                        name + ": nothing changed: " + *why_not + " (--force sends it all the same)");
    }
}

void print_outcome(session &run, const std::string &name, const std::vector<change> &changes,
                   const std::string &remark) {
    run.status = changes.empty() ? exit_negative : exit_ok;
    if (run.json) {
        print_json(run, name, changes, remark);
        return;
    }
    for (const change &one : changes)
        run.out << printable(change_text(one)) << '\n';
    if (changes.empty())
        run.err << "hbsctl: " << name << ": nothing changed" << (remark.empty() ? "" : ": ") << remark
                << '\n';
    else if (!remark.empty())
        run.out << remark << '\n';
}

void carry_out(session &run, const look &before, const command_plan &plan) {
    heed(run, plan.name, first_of({to_bridge_mode(before), plan.why_not}));
    const std::vector<fact> known = plan.facts(before);
    const int32_t answer = send_command(plan.message, run.socket_path, run.answer_seconds);
    const answer_meaning meaning = meaning_of(plan.code, answer);
    const std::vector<change> changes = changes_between(known, plan.facts(look_first(run)));
    print_outcome(run, plan.name, changes, meaning.accepted ? "" : meaning.text);
    if (!meaning.accepted)
        run.status = exit_negative;
}

void carry_out_blindly(session &run, const std::string &name, hbs_code code, const datagram &message) {
    const answer_meaning meaning =
        meaning_of(code, send_command(message, run.socket_path, run.answer_seconds));
    if (run.json)
        run.out << json_text({{"command", name}, {"accepted", meaning.accepted}, {"text", meaning.text}})
                << '\n';
    else
        (meaning.accepted ? run.out : run.err)
            << (meaning.accepted ? "" : "hbsctl: ") << name << ": " << meaning.text << '\n';
    run.status = meaning.accepted ? exit_ok : exit_negative;
}

void tell_event(session &run, const std::string &name, hbs_code code, const datagram &message,
                const objection &why_not) {
    heed(run, name, why_not);
    send_event(message, run.socket_path);
    if (run.json)
        run.out << json_text({{"event", name}, {"code", static_cast<int>(code)}, {"sent", true}}) << '\n';
    else
        run.out << name << ": sent\n";
}
