/* A reader as other programs of the gateway are: one line for each client, its MAC, addresses and host name.
 */
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

#include <hostbase_query.h>

static void show(const hbs_client *client) {
    char ipv4[INET_ADDRSTRLEN], ipv6[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET, client->ipv4, ipv4, sizeof ipv4);
    inet_ntop(AF_INET6, client->ll, ipv6, sizeof ipv6);
    for (int i = 0; i < 6; i++)
        printf("%s%02x", i == 0 ? "" : ":", client->mac[i]);
    printf(" %s %s %s\n", ipv4, ipv6, client->host);
}

int main(int count, char **words) {
    for (int i = 1; i < count; i++) {
        hbs_client client;
        uint8_t address[4];
        inet_pton(AF_INET, words[i], address);
        int result = hostbase_find_by_ipv4(address, &client);
        if (result != HOSTBASE_OK) {
            fprintf(stderr, "%s: %s\n", words[i], hostbase_strerror(result));
            return EXIT_FAILURE;
        }
        show(&client);
    }
    return EXIT_SUCCESS;
}
