#include "tools/live_source.h"

#include <sstream>

#include "tools/client_selection.h"
#include "tools/command_client.h"
#include "tools/lan_networks.h"
#include "tools/metrics_view.h"
#include "tools/page.h"

namespace {

// Each question is two lines in the daemon's log. It also tells those who follow that the page is still
// served, and the page how long ago everything was.
constexpr std::chrono::seconds between_questions(60);

std::string metrics_text(const gateway_status &status) {
    std::ostringstream text;
    write_metrics(text, status);
    return text.str();
}

// Nothing has an age at the beginning of all clocks.
constexpr both_moments no_ages = {};

// What is left changes only when something happened.
gateway_status without_uptime(gateway_status status) {
    status.uptime.reset();
    return status;
}

} // namespace

// The mode is what the daemon said last, unless it is time to ask, or another daemon is there by now.
gateway_status live_source::status_now(const database &db) {
    gateway_status status = seen_status(run_, db);
    const std::optional<pid_t> daemon = status.running ? std::optional(status.pid) : std::nullopt;
    if (daemon != asked_ || clock::now() - asked_at_ >= between_questions) {
        if (daemon)
            ask_mode(run_, status);
        routed_ = status.routed;
        asked_ = daemon;
        asked_at_ = clock::now();
        shown_.clear();
    }
    status.routed = routed_;
    return status;
}

void live_source::look() {
    try {
        take_news(read_database());
    } catch (const std::runtime_error &error) {
        const std::lock_guard hold(mutex_);
        texts_.failure = error.what();
        throw;
    }
}

void live_source::take_news(const database &db) {
    const gateway_status status = status_now(db);
    const std::vector<hbs_client> clients = selected(db.clients, {});
    const std::string compared =
        json_text(clients_json(clients, no_ages)) + metrics_text(without_uptime(status));
    const bool news = shown_ != compared;
    const std::string page = news ? json_text(page_json(status, db.clients, lan_networks()), -1) : "";
    shown_ = compared;
    const std::lock_guard hold(mutex_);
    texts_.clients = json_text(clients_json(clients)) + "\n";
    texts_.metrics = metrics_text(status);
    texts_.failure.clear();
    if (!news)
        return;
    texts_.version++;
    texts_.page = page;
    news_.notify_all();
}

live_texts live_source::newest(uint64_t known, std::chrono::milliseconds patience) {
    std::unique_lock hold(mutex_);
    (void)news_.wait_for(hold, patience, [&] { return ended_ || texts_.version != known; });
    return texts_;
}

void live_source::end() {
    const std::lock_guard hold(mutex_);
    ended_ = true;
    news_.notify_all();
}

bool live_source::has_ended() {
    const std::lock_guard hold(mutex_);
    return ended_;
}
