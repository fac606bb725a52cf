#include "tools/live_source.h"

#include <sstream>

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

} // namespace

// The mode is what the daemon said last, unless it is time to ask, or it came or went since.
gateway_status live_source::status_now(const database &db) {
    const bool running = daemon_is_there(run_.socket_path);
    if (running != answered_.running || clock::now() - asked_ >= between_questions) {
        answered_ = read_status(run_, db);
        asked_ = clock::now();
        shown_.clear();
        return answered_;
    }
    gateway_status status = status_of(db);
    status.running = running;
    status.pid = answered_.pid;
    status.counts = running ? read_counts() : answered_.counts;
    status.routed = answered_.routed;
    return status;
}

void live_source::look() {
    const database db = read_database();
    const gateway_status status = status_now(db);
    const std::string clients = json_text(clients_json(db.clients)) + "\n";
    const std::string metrics = metrics_text(status);
    if (shown_ == clients + metrics)
        return;
    const std::string page = json_text(page_json(status, db.clients, lan_networks()), -1);
    shown_ = clients + metrics;
    const std::lock_guard hold(mutex_);
    texts_ = {texts_.version + 1, page, clients, metrics};
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
