#include "events/device_lists.h"

#include <cstring>

#include <hbs_msg.h>

#include "base/log.h"
#include "base/text.h"
#include "events/user_setting.h"
#include "files/client_file.h"
#include "files/rule_files.h"
#include "store/clients.h"
#include "store/publish.h"
#include "store/rule_index.h"

namespace {

// A comment may be left out; the other texts come with every request, and empty ones replace too.
void copy_filter_texts(hbs_client *client, const hbs_filter_request *request) {
    if (request->comment[0] != '\0') {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : comment is %s", request->comment);
        hbs_copy_text(client->comment, sizeof client->comment, request->comment);
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : description is %s", request->description);
    hbs_copy_text(client->description, sizeof client->description, request->description);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : keyword_list is %s", request->keyword_list);
    hbs_copy_text(client->keyword_list, sizeof client->keyword_list, request->keyword_list);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_mac_filter : domain_list is %s", request->domain_list);
    hbs_copy_text(client->domain_list, sizeof client->domain_list, request->domain_list);
    client->mac_filter = static_cast<int32_t>(request->filter_word);
}

hbs_rule rule_of(const hbs_filter_request *request) {
    hbs_rule rule;
    memcpy(rule.value, request->value, sizeof rule.value);
    return rule;
}

// A number that is no list means the white one to the rule commands: kept.
const char *rule_file_of(uint8_t list) {
    return list == HBS_LIST_BLACK ? hbs_rule_file_of(list) : hbs_rule_file_of(HBS_LIST_WHITE);
}

void leave_list(hbs_client *client, uint8_t list) {
    if (list == HBS_LIST_WHITE) {
        hbs_clear_flags(client, HBS_TRUST_WHITE, 0);
        return;
    }
    hbs_clear_flags(client, HBS_TRUST_BLACK, 0);
    memset(client->keyword_list, 0, sizeof client->keyword_list);
    memset(client->description, 0, sizeof client->description);
    memset(client->domain_list, 0, sizeof client->domain_list);
    client->mac_filter = 0;
}

} // namespace

int hbs_api_set_mac_filter(const hbs_filter_request *request) {
    hbs_client *client = hbs_find_or_add_named(request->mac);
    if (client == nullptr)
        return -1;
    copy_filter_texts(client, request);
    const char *path = hbs_rule_file_of(request->type);
    if (path == nullptr)
        return -1;
    if (request->type == HBS_LIST_WHITE) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_whitelist");
        hbs_set_flags(client, HBS_TRUST_WHITE, 0);
    } else {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_api_set_blacklist");
        hbs_set_flags(client, HBS_TRUST_BLACK, 0);
    }
    hbs_publish_setting(client);
    const hbs_rule rule = rule_of(request);
    (void)hbs_nv_update_client_white_rules(path, request->mac, &rule);
    const uint32_t *v = request->value;
    const uint32_t parameters[7] = {v[0], v[1], v[2], client->dbpos, v[3], v[4], v[5]};
    hbs_file_update_rule_idx(request->type, request->mac, parameters);
    return 0;
}

int hbs_api_clr_mac_filter(const hbs_filter_request *request) {
    const char *path = hbs_rule_file_of(request->type);
    if (path == nullptr)
        return -1;
    bool rules_left = false;
    const hbs_rule rule = rule_of(request);
    (void)hbs_nv_clear_client_rules(path, request->mac, &rule, &rules_left);
    const uint32_t *v = request->value;
    hbs_file_remove_rule_idx(request->type, request->mac, v[0], v[1], v[2]);
    hbs_client *client = hbs_find_by_mac(request->mac);
    if (client == nullptr)
        return 0;
    if (!rules_left)
        leave_list(client, request->type);
    hbs_shm_commit(client);
    hbs_nv_update_client(client);
    return 0;
}

bool hbs_api_clr_rule(const hbs_filter_request *request) {
    if (hbs_find_by_mac(request->mac) == nullptr)
        return false;
    const hbs_rule rule = rule_of(request);
    bool rules_left = false;
    (void)hbs_nv_clear_client_rules(rule_file_of(request->type), request->mac, &rule, &rules_left);
    const uint32_t *v = request->value;
    hbs_file_remove_rule_idx(request->type, request->mac, v[0], v[1], v[2]);
    return true;
}

bool hbs_api_set_rule(const hbs_filter_request *request) {
    const hbs_client *client = hbs_find_by_mac(request->mac);
    if (client == nullptr)
        return false;
    const hbs_rule rule = rule_of(request);
    (void)hbs_nv_update_client_white_rules(rule_file_of(request->type), request->mac, &rule);
    const uint32_t *v = request->value;
    const uint32_t parameters[7] = {v[0], v[1], v[2], client->dbpos, v[3], v[4], v[5]};
    hbs_file_update_rule_tr69_tod(request->type, request->mac, parameters, request->rule_word);
    return true;
}
