#include "events/comment.h"

#include <sys/socket.h>

#include "base/text.h"
#include "events/user_setting.h"
#include "store/clients.h"

int hbs_api_set_comment_host(hbs_client *client, const char *comment, const char *host) {
    if (client == nullptr)
        return -1;
    if (comment[0] == '\0' && host[0] == '\0')
        hbs_clear_flags(client, HBS_TRUST_USER, 0);
    else
        hbs_set_flags(client, HBS_TRUST_USER, 0);
    hbs_copy_text(client->comment, sizeof client->comment, comment);
    hbs_copy_text(client->host, sizeof client->host, host);
    hbs_publish_setting(client);
    return 0;
}

bool hbs_handle_comment_host(int family, const uint8_t *address, const char *comment, const char *host) {
    hbs_client *client = family == AF_INET ? hbs_find_by_ipv4(address) : hbs_find_by_ipv6(address);
    return hbs_api_set_comment_host(client, comment, host) == 0;
}
