/* Prints a line for each client of the gateway: its state, its IPv4 address and its name.
 *
 *   cc -o reader reader.c $(pkg-config --cflags --libs hbs_query)
 */
#include <arpa/inet.h>
#include <ctype.h>
#include <stdio.h>

#include <hostbase_query.h>

/* Names come from the devices themselves: nothing of them may steer the terminal. */
static void print_name(const char *name)
{
    for (; *name != '\0'; name++)
        putchar(isgraph((unsigned char)*name) ? *name : '?');
}

static void print_client(const hbs_client *client)
{
    char address[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, client->ipv4, address, sizeof address);
    printf("%-8s%-16s", client->flags & HBS_FLAG_ONLINE ? "online" : "offline", address);
    print_name(client->host);
    putchar('\n');
}

int main(void)
{
    static hbs_client clients[HBS_MAX_CLIENTS];
    size_t count = 0;
    const int result = hostbase_get_clients(clients, HBS_MAX_CLIENTS, &count);
    if (result != HOSTBASE_OK) {
        fprintf(stderr, "%s\n", hostbase_strerror(result));
        return 1;
    }
    for (size_t i = 0; i < count; i++)
        print_client(&clients[i]);
    return 0;
}
