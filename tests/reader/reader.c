/* A reader as other programs of the gateway are, in C and with nothing but the library: all clients, or those
 * with the addresses that are given, as `hbsctl list --json` prints them, with the fields that tests look at.
 * Dates are plain.
 */
#include <arpa/inet.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include <hostbase_query.h>

typedef struct word {
    uint32_t bit;
    const char *text;
} word;

static const word flag_words[] = {{HBS_FLAG_ASSOC, "ASSOC"},   {HBS_FLAG_REACH, "REACH"},
                                  {HBS_FLAG_DYNIP4, "DYNIP4"}, {HBS_FLAG_STIP4, "STIP4"},
                                  {HBS_FLAG_USRIP4, "USRIP4"}, {HBS_FLAG_DYNIP6, "DYNIP6"},
                                  {HBS_FLAG_STIP6, "STIP6"},   {HBS_FLAG_USRIP6, "USRIP6"},
                                  {HBS_FLAG_ONLINE, "ONLINE"}, {0, NULL}};
static const word trust_words[] = {{HBS_TRUST_SITE, "T-SITE"}, {HBS_TRUST_SERV, "T-SERV"},
                                   {HBS_TRUST_WHITE, "WHITE"}, {HBS_TRUST_BLACK, "BLACK"},
                                   {HBS_TRUST_USER, "USER"},   {0, NULL}};

static bool is_zero(const uint8_t *bytes, size_t size) {
    for (size_t i = 0; i < size; i++)
        if (bytes[i] != 0)
            return false;
    return true;
}

/* Bytes of the character that a text begins with, 1 where it is none of UTF-8. */
static int character(const char *text) {
    const unsigned char lead = (unsigned char)*text;
    const int size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc2 ? 2 : 1;
    for (int i = 1; i < size; i++)
        if (((unsigned char)text[i] & 0xc0) != 0x80)
            return 1;
    return size;
}

/* What is no UTF-8 is shown as if it were Latin-1, so that what is printed is always JSON. */
static void put_text(const char *name, const char *text) {
    printf(", \"%s\": \"", name);
    for (int size; *text != '\0'; text += size) {
        const unsigned char byte = (unsigned char)*text;
        size = character(text);
        if (size == 1 && (byte < 0x20 || byte == '"' || byte == '\\' || byte > 0x7e))
            printf("\\u%04x", byte);
        else
            (void)fwrite(text, 1, (size_t)size, stdout);
    }
    putchar('"');
}

static void put_text_or_null(const char *name, bool there, const char *text) {
    if (there)
        put_text(name, text);
    else
        printf(", \"%s\": null", name);
}

static void put_number(const char *name, uint32_t number) {
    printf(", \"%s\": %lu", name, (unsigned long)number);
}

static void put_bool(const char *name, bool value) {
    printf(", \"%s\": %s", name, value ? "true" : "false");
}

static void put_words(const char *name, const word *words, uint32_t bits) {
    const char *between = "";
    printf(", \"%s\": [", name);
    for (; words->text != NULL; words++) {
        if ((bits & words->bit) == 0)
            continue;
        printf("%s\"%s\"", between, words->text);
        between = ", ";
    }
    putchar(']');
}

static void put_address(const char *name, int family, const uint8_t *bytes) {
    char text[INET6_ADDRSTRLEN] = "";
    (void)inet_ntop(family, bytes, text, sizeof text);
    put_text_or_null(name, !is_zero(bytes, family == AF_INET ? 4 : 16), text);
}

static void put_date(const char *name, const uint8_t date[HBS_DATE_SIZE]) {
    char text[64];
    snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", date[0] * 256u + date[1], date[2], date[3],
             date[4], date[5], date[6]);
    put_text_or_null(name, !is_zero(date, HBS_DATE_SIZE), text);
}

static void put_mac(const uint8_t mac[HBS_MAC_SIZE]) {
    if (is_zero(mac, HBS_MAC_SIZE))
        printf("{\"mac\": null");
    else
        printf("{\"mac\": \"%02x:%02x:%02x:%02x:%02x:%02x\"", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

static const char *adapter_word(uint32_t type) {
    switch (type) {
    case HBS_ADAPTER_ETHERNET:
        return "ethernet";
    case HBS_ADAPTER_USB:
        return "usb";
    case HBS_ADAPTER_MOCA:
        return "moca";
    case HBS_ADAPTER_WIFI:
        return "wifi";
    default:
        return "unknown";
    }
}

static void put_presence(const hbs_client *client) {
    put_text("adapter", adapter_word(client->adapter_type));
    put_number("network", client->nwidx);
    put_bool("online", (client->flags & HBS_FLAG_ONLINE) != 0);
    put_bool("reachable", (client->flags & HBS_FLAG_REACH) != 0);
    put_bool("associated", (client->flags & HBS_FLAG_ASSOC) != 0);
    put_words("flags", flag_words, client->flags);
    put_words("trust", trust_words, client->trust);
    put_date("lease_end", client->lease_end);
    put_date("lease_v6_end", client->lease_v6_end);
    put_number("client_id", client->client_id);
    put_number("lease_start_uptime", client->lease_start_uptime);
}

static void put_attachment(const hbs_client *client) {
    char number[16];
    snprintf(number, sizeof number, "%u", client->wifi_index + 1u);
    printf(", \"ssid\": %s", client->adapter_type == HBS_ADAPTER_WIFI ? number : "null");
    snprintf(number, sizeof number, "%u", client->switch_port);
    printf(", \"switch_port\": %s", client->adapter_type == HBS_ADAPTER_ETHERNET ? number : "null");
    put_text("ifname", client->ifname);
    printf(", \"wifi_link_info\": [");
    for (int i = 0; i < HBS_LINK_FIGURES; i++)
        printf("%s%lu", i == 0 ? "" : ", ", (unsigned long)client->wifi_link_info[i]);
    putchar(']');
}

static void put_texts(const hbs_client *client) {
    put_text("host", client->host);
    put_text("device_name", client->device_name);
    put_text("comment", client->comment);
    put_text("oui", client->oui);
    put_text("serial_number", client->serial_number);
    put_text("product_class", client->product_class);
    put_text("description", client->description);
    put_text("keyword_list", client->keyword_list);
    put_text("domain_list", client->domain_list);
    put_text("lease_file", client->lease_file);
    put_text("lease_file6", client->lease_file6);
    printf(", \"mac_filter\": %ld", (long)client->mac_filter);
}

static void put_client(const hbs_client *client, bool first) {
    if (!first)
        printf(",\n");
    put_mac(client->mac);
    put_address("ipv4", AF_INET, client->ipv4);
    put_address("ipv6", AF_INET6, client->ipv6);
    put_address("ll", AF_INET6, client->ll);
    put_texts(client);
    put_presence(client);
    put_attachment(client);
    putchar('}');
}

static int failure(const char *what, int result) {
    fprintf(stderr, "hbs_reader: %s: %s\n", what, hostbase_strerror(result));
    return EXIT_FAILURE;
}

static int find(const char *text, bool first) {
    hbs_client client;
    uint8_t address[16];
    const bool is_ipv4 = inet_pton(AF_INET, text, address) == 1;
    if (!is_ipv4 && inet_pton(AF_INET6, text, address) != 1)
        return failure(text, HOSTBASE_BAD_ARGUMENT);
    const int result =
        is_ipv4 ? hostbase_find_by_ipv4(address, &client) : hostbase_find_by_ipv6(address, &client);
    if (result != HOSTBASE_OK)
        return failure(text, result);
    put_client(&client, first);
    return EXIT_SUCCESS;
}

static int list(void) {
    static hbs_client clients[HBS_MAX_CLIENTS];
    size_t count = 0;
    const int result = hostbase_get_clients(clients, HBS_MAX_CLIENTS, &count);
    if (result != HOSTBASE_OK)
        return failure("all clients", result);
    for (size_t i = 0; i < count; i++)
        put_client(&clients[i], i == 0);
    return EXIT_SUCCESS;
}

int main(int count, char **words) {
    printf("{\"clients\": [");
    int status = count == 1 ? list() : EXIT_SUCCESS;
    for (int i = 1; i < count && status == EXIT_SUCCESS; i++)
        status = find(words[i], i == 1);
    printf("]}\n");
    return status;
}
