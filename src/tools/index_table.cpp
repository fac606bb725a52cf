#include "tools/index_table.h"

#include <arpa/inet.h>
#include <cstdio>

#include "tools/client_table.h"
#include "tools/words.h"

namespace {

std::string key_text(const uint32_t *words, uint32_t count) {
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < count; i++)
        texts.push_back(std::to_string(words[i]));
    return joined(texts, ".");
}

std::string client_text(const database &db, uint32_t dbpos) {
    const hbs_client *client = client_at(db, dbpos);
    if (client == nullptr)
        return "none at " + std::to_string(dbpos);
    const std::string mac = mac_text(client->mac);
    return mac.empty() ? "client " + std::to_string(client->client_id) : mac;
}

std::string name_text(const database &db, uint32_t dbpos) {
    const hbs_client *client = client_at(db, dbpos);
    return client == nullptr ? "" : client_name(*client);
}

std::string octets_text(const uint32_t *words, uint32_t size) {
    uint8_t bytes[16] = {};
    for (uint32_t i = 0; i < size; i++)
        bytes[i] = static_cast<uint8_t>(words[i]);
    char text[INET6_ADDRSTRLEN] = "";
    return inet_ntop(size == 4 ? AF_INET : AF_INET6, bytes, text, sizeof text);
}

// The rule's first value is written in hexadecimal, as in the rule files.
std::string rule_cell(const hbs_rule_entry &rule) {
    char key[16];
    snprintf(key, sizeof key, "%x", rule.p[0]);
    return key + (" " + std::to_string(rule.p[1])) + " " + std::to_string(rule.p[2]);
}

} // namespace

std::string key_address(const hbs_ip_entry &entry, bool has_length) {
    const uint32_t head = has_length ? 3 : 2;
    if (entry.key[1] == HBS_KEY_IPV4 && entry.count == 7)
        return octets_text(entry.key + head, 4);
    return entry.key[1] == HBS_KEY_IPV6 && entry.count == 19 ? octets_text(entry.key + head, 16) : "";
}

uint32_t rule_instance(const hbs_rule_entry &rule) {
    return rule.count >= 2 ? rule.key[1] : 0;
}

text_table ip_table(const database &db, const std::vector<hbs_ip_entry> &entries, bool has_length) {
    text_table table = {{{"NET"}, {"ADDRESS", 12}, {"CLIENT"}, {"NAME", 8, 1}}, {}};
    for (const hbs_ip_entry &entry : entries) {
        const std::string address = key_address(entry, has_length);
        table.rows.push_back({{std::to_string(entry.key[0] - HBS_NETWORK_KEY)},
                              {address.empty() ? key_text(entry.key, entry.count) : address},
                              {client_text(db, entry.dbpos)},
                              {name_text(db, entry.dbpos)}});
    }
    return table;
}

text_table interface_table(const database &db) {
    text_table table = {{{"NET"}, {"INSTANCE"}, {"CLIENT"}, {"NAME", 8, 1}}, {}};
    for (const hbs_if_entry &entry : db.interfaces) {
        table.rows.push_back({{std::to_string(entry.key[0] - HBS_NETWORK_KEY)},
                              {std::to_string(entry.key[1])},
                              {client_text(db, entry.dbpos)},
                              {name_text(db, entry.dbpos)}});
    }
    return table;
}

text_table primary_table(const database &db) {
    text_table table = {{{"INSTANCE"}, {"CLIENT"}, {"NAME", 8, 1}}, {}};
    for (const hbs_pri_entry &entry : db.primary) {
        table.rows.push_back(
            {{std::to_string(entry.key[0])}, {client_text(db, entry.dbpos)}, {name_text(db, entry.dbpos)}});
    }
    return table;
}

text_table rule_table(const database &db) {
    text_table table = {{{"INSTANCE"}, {"LIST"}, {"MAC"}, {"RULE"}, {"CLIENT AT", 0, 2}, {"MORE", 0, 1}}, {}};
    for (const hbs_rule_entry &rule : db.rules) {
        table.rows.push_back({{std::to_string(rule_instance(rule))},
                              {list_word(rule.type)},
                              {mac_text(rule.mac)},
                              {rule_cell(rule)},
                              {std::to_string(rule.p[3])},
                              {key_text(rule.p + 4, 3)}});
    }
    return table;
}
