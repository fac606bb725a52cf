#include "tools/client_events.h"

#include <algorithm>
#include <optional>

#include "tools/client_field.h"
#include "tools/client_key.h"
#include "tools/client_table.h"

namespace {

constexpr const char *existence = "client";

const hbs_client *same_client(const std::vector<hbs_client> &clients, const hbs_client &wanted) {
    const std::string mac = mac_text(wanted.mac);
    const auto found = std::find_if(clients.begin(), clients.end(), [&](const hbs_client &one) {
        return mac_text(one.mac) == mac && (!mac.empty() || one.client_id == wanted.client_id);
    });
    return found == clients.end() ? nullptr : &*found;
}

void add_changes(std::vector<client_event> &events, const hbs_client &before, const hbs_client &after,
                 time_t when) {
    for (const client_field &field : client_fields()) {
        if (!field.event)
            continue;
        const std::string old_text = field.text(before), new_text = field.text(after);
        if (old_text != new_text)
            events.push_back({when, key_of(after), client_name(after), field.name, old_text, new_text});
    }
}

} // namespace

std::vector<client_event> events_since(const std::vector<hbs_client> &clients, double seconds,
                                       const moment &now) {
    std::vector<client_event> events;
    for (const hbs_client &client : clients) {
        const auto age = age_of(client.online_time, now);
        const bool online = (client.flags & HBS_FLAG_ONLINE) != 0;
        if (age && *age < seconds)
            events.push_back({now.wall - *age, key_of(client), client_name(client), "state", "",
                              online ? "online" : "offline"});
    }
    std::stable_sort(events.begin(), events.end(), [](const client_event &left, const client_event &right) {
        return left.when < right.when;
    });
    return events;
}

std::vector<client_event> events_between(const std::vector<hbs_client> &before,
                                         const std::vector<hbs_client> &after, time_t when) {
    std::vector<client_event> events;
    for (const hbs_client &client : before)
        if (same_client(after, client) == nullptr)
            events.push_back({when, key_of(client), client_name(client), existence, "there", ""});
    for (const hbs_client &client : after) {
        const hbs_client *known = same_client(before, client);
        if (known == nullptr)
            events.push_back({when, key_of(client), client_name(client), existence, "", "there"});
        // What a new client brings with it are changes, too: of a record in which nothing stands.
        add_changes(events, known == nullptr ? hbs_client{} : *known, client, when);
    }
    return events;
}
