#include "tools/page.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/random.h>

#include "tools/client_events.h"
#include "tools/client_table.h"
#include "tools/page_template.h"
#include "tools/status_view.h"
#include "tools/time_text.h"

namespace {

json named_clients(const std::vector<hbs_client> &clients) {
    json list = json::array();
    for (const hbs_client &client : clients) {
        list.push_back(client_json(client));
        list.back()["name"] = client_name(client);
    }
    return list;
}

json networks_json(const std::vector<lan_network> &networks) {
    json list = json::array();
    for (const lan_network &network : networks)
        list.push_back({{"network", network.number}, {"address", network_text(network)}});
    return list;
}

// A document inside a page: no letter of it can end the element that it stands in.
std::string data_text(const std::string &document) {
    std::string text;
    for (char letter : document)
        text += letter == '<' ? std::string("\\u003c") : std::string(1, letter);
    return text;
}

// What was put in is not looked at again: it may hold the name of a place itself.
std::string filled(std::string_view text, const std::vector<std::pair<std::string, std::string>> &values) {
    std::string result;
    for (size_t at = text.find("{{"); at != std::string_view::npos; at = text.find("{{")) {
        const size_t end = text.find("}}", at);
        const std::string_view name = text.substr(at + 2, end - at - 2);
        result += text.substr(0, at);
        for (const auto &[place, value] : values)
            if (place == name)
                result += value;
        text.remove_prefix(end + 2);
    }
    return result.append(text);
}

} // namespace

json page_json(const gateway_status &status, const std::vector<hbs_client> &clients,
               const std::vector<lan_network> &networks) {
    const moment now = this_moment();
    return {{"time", zoned_time(now.wall)},
            {"monotonic", now.monotonic},
            {"status", status_json(status)},
            {"networks", networks_json(networks)},
            {"clients", named_clients(clients)}};
}

std::string new_nonce() {
    uint8_t bytes[16] = {};
    if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes)
        throw std::runtime_error(std::string("no random number: ") + strerror(errno));
    std::string text;
    for (uint8_t byte : bytes) {
        char digits[3];
        (void)snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

std::string page_policy(const std::string &nonce, bool live) {
    return "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
           "'; img-src data:; base-uri 'none'; form-action 'none'" + (live ? "; connect-src 'self'" : "");
}

std::string page_html(const std::string &document, const std::string &nonce, bool live) {
    return filled(page_template, {{"data", data_text(document)},
                                  {"policy", page_policy(nonce, live)},
                                  {"nonce", nonce},
                                  {"live", live ? "yes" : "no"}});
}
