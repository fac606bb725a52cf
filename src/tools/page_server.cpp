#include "tools/page_server.h"

#include <atomic>

#include "tools/http_server.h"
#include "tools/page.h"

namespace {

using httplib::Request;
using httplib::Response;

constexpr unsigned most_followers = 16;
constexpr size_t other_workers = 8; // so that a page is served while that many follow
constexpr std::chrono::seconds followers_patience(15);
constexpr const char *followed_path = "/events";
constexpr const char *nothing_allowed = "default-src 'none'; frame-ancestors 'none'";

struct followed {
    uint64_t version = 0;
};

void refuse(Response &response, int status, const std::string &text) {
    response.status = status;
    response.set_content(text + "\n", "text/plain; charset=utf-8");
}

// Without the library's SO_REUSEPORT, by which a second server could take half of the connections.
void set_socket_options(int socket_fd) {
    const int on = 1;
    (void)setsockopt(socket_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

// What comes before any page: who asks by a stranger's name, or wants to change something, is told so.
httplib::Server::HandlerResponse look_at_request(const Request &request, Response &response) {
    response.set_header("Content-Security-Policy", nothing_allowed);
    if (!is_trusted_host(request.get_header_value("Host"))) {
        refuse(response, 403, "Ask for this page by its IP address or as localhost.");
        return httplib::Server::HandlerResponse::Handled;
    }
    if (request.method != "GET" && request.method != "HEAD") {
        response.set_header("Allow", "GET, HEAD");
        refuse(response, 405, "Nothing can be changed here.");
        return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
}

// What a program reads that would not see that nothing is looked at any more.
void give_text(live_source &source, std::string live_texts::*text, const char *kind, Response &response) {
    const live_texts texts = source.newest();
    if (texts.failure.empty())
        response.set_content(texts.*text, kind);
    else
        refuse(response, 503, texts.failure);
}

void give_page(live_source &source, Response &response) {
    const std::string nonce = new_nonce();
    response.headers.erase("Content-Security-Policy");
    response.set_header("Content-Security-Policy", page_policy(nonce, true) + "; frame-ancestors 'none'");
    response.set_content(page_html(source.newest().page, nonce, true), "text/html; charset=utf-8");
}

// One event with each news, and a remark now and then, by which a peer that has gone is found out.
bool give_event(live_source &source, followed &state, httplib::DataSink &sink) {
    const live_texts texts = source.newest(state.version, followers_patience);
    if (source.has_ended()) {
        sink.done();
        return true;
    }
    const bool news = texts.version != state.version;
    state.version = texts.version;
    const std::string text = news ? "data: " + texts.page + "\n\n" : ": still here\n\n";
    return sink.write(text.data(), text.size());
}

} // namespace

struct page_server::parts {
    parts(const listen_address &address, live_source &what, const http_bounds &bounds)
        : source(what), where(address), server(bounds, followed_path) {}

    live_source &source;
    listen_address where;
    std::atomic<unsigned> followers = 0;
    http_server server; // its threads use the rest

    void give_events(Response &response) {
        if (++followers > most_followers) {
            --followers;
            refuse(response, 503, "Too many follow already.");
            return;
        }
        auto state = std::make_shared<followed>();
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, state](size_t, httplib::DataSink &sink) { return give_event(source, *state, sink); },
            [this](bool) { --followers; });
    }

    void add_pages() {
        server.Get(
            "/", [this](const Request &, Response &response) { give_page(source, response); });
        server.Get(
            followed_path, [this](const Request &, Response &response) { give_events(response); });
        server.Get(
            "/clients.json",
            [this](const Request &, Response &response) {
                give_text(source, &live_texts::clients, "application/json", response);
            });
        server.Get("/metrics", [this](const Request &, Response &response) {
            give_text(source, &live_texts::metrics,
                      "application/openmetrics-text; version=1.0.0; charset=utf-8", response);
        });
    }

    void set_up() {
        server.set_socket_options(set_socket_options);
        server.set_payload_max_length(0);
        server.set_default_headers({{"X-Content-Type-Options", "nosniff"},
                                    {"Cache-Control", "no-store"},
                                    {"Referrer-Policy", "no-referrer"},
                                    {"Cross-Origin-Resource-Policy", "same-origin"}});
        server.set_pre_routing_handler(look_at_request);
        add_pages();
    }
};

page_server::page_server(const listen_address &where, live_source &source, const http_bounds &bounds)
    : parts_(std::make_unique<parts>(where, source, bounds)) {
    parts &own = *parts_;
    own.set_up();
    const bool any = where.port == 0;
    if (any)
        own.where.port = own.server.bind_to_any_port(where.host);
    if (own.where.port < 0 || (!any && !own.server.bind_to_port(where.host, where.port)))
        throw run_error(exit_failed,
                        "cannot listen on " + url_of(where) + ": is the address this machine's, and free?");
    own.server.start(most_followers + other_workers);
}

page_server::~page_server() {
    parts_->source.end();
}

bool page_server::has_ended() const {
    return parts_->server.has_ended();
}

const listen_address &page_server::address() const {
    return parts_->where;
}
