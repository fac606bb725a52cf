/* Readers and askers of a storm, each a process that says that it has begun when it has had what it wants
 * once, goes on until it is told to end, waits for what it has just asked for, and then prints its figures.
 *
 *   reader copies          copies all clients again and again, and checks each copy: what one lease told is there whole
 *   reader ask             asks the daemon a question every few milliseconds
 *   reader presence MAC    tells of a lease, and looks until a reader sees it
 *
 * A lease of the storm bears its number in four fields, a client that is remembered its comment in one more. */
#define _GNU_SOURCE
#include <errno.h>
#include <hbs_msg.h>
#include <hostbase_query.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static volatile sig_atomic_t ended;

static void end(int number) {
    (void)number;
    ended = 1;
}

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void rest(long milliseconds) {
    struct timespec time = {0, milliseconds * 1000000L};
    nanosleep(&time, NULL);
}

/* Once it has had what it wants: who waits for a place among the records must have it before the storm. */
static void tell_begun(long good) {
    static int told;
    if (told || good == 0)
        return;
    told = 1;
    puts("begun");
    fflush(stdout);
}

static int is_of_lease(const hbs_client *client) {
    return client->host[0] == '#';
}

static int is_remembered(const hbs_client *client) {
    return strncmp(client->comment, "kept ", 5) == 0;
}

static int is_whole(const hbs_client *client) {
    if (is_remembered(client))
        return strcmp(client->comment, client->host) == 0 || strcmp(client->comment, client->description) == 0;
    return !is_of_lease(client) ||
           (strcmp(client->host, client->serial_number) == 0 && strcmp(client->host, client->product_class) == 0 &&
            strcmp(client->host, client->device_name) == 0);
}

static int is_twice(const hbs_client *clients, size_t at) {
    static const uint8_t none[6];
    int found = 0;
    for (size_t i = 0; i < at; i++)
        found += memcmp(clients[at].mac, clients[i].mac, 6) == 0 && memcmp(clients[at].mac, none, 6) != 0;
    return found;
}

static int copies(void) {
    static hbs_client clients[HBS_MAX_CLIENTS];
    long good = 0, missed = 0, failures = 0, checked = 0, torn = 0, twice = 0;
    double worst = 0;
    while (!ended) {
        size_t count = 0;
        double began = now();
        int result = hostbase_get_clients(clients, HBS_MAX_CLIENTS, &count);
        double took = now() - began;
        worst = took > worst ? took : worst;
        good += result == HOSTBASE_OK;
        tell_begun(good);
        missed += result == HOSTBASE_UNSTABLE || result == HOSTBASE_BUSY;
        failures += result != HOSTBASE_OK && result != HOSTBASE_UNSTABLE && result != HOSTBASE_BUSY;
        for (size_t i = 0; result == HOSTBASE_OK && i < count; i++) {
            checked += is_of_lease(&clients[i]) || is_remembered(&clients[i]);
            torn += !is_whole(&clients[i]);
            twice += is_twice(clients, i);
        }
    }
    printf("{\"good\": %ld, \"missed\": %ld, \"failures\": %ld, \"checked\": %ld, \"torn\": %ld, \"twice\": %ld, "
           "\"worst\": %.6f}\n", good, missed, failures, checked, torn, twice, worst);
    return 0;
}

static int bound_socket(void) {
    struct sockaddr_un own = {.sun_family = AF_UNIX};
    snprintf(own.sun_path, sizeof own.sun_path, "/var/tmp/stress.%d", (int)getpid());
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0 || bind(fd, (struct sockaddr *)&own, sizeof own) != 0)
        exit(2);
    struct timeval patience = {60, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return fd;
}

static int tell(int fd, const void *data, size_t size) {
    struct sockaddr_un to = {.sun_family = AF_UNIX};
    strcpy(to.sun_path, HBS_SOCKET_PATH);
    return sendto(fd, data, size, 0, (struct sockaddr *)&to, sizeof to) == (ssize_t)size;
}

/* Also when the end comes in the middle of it. */
static int hear(int fd, void *data, size_t size) {
    ssize_t got;
    do
        got = recv(fd, data, size, 0);
    while (got < 0 && errno == EINTR);
    return got == (ssize_t)size;
}

static int ask(void) {
    hbs_msg_filter question = {.code = HBS_CMD_CLR_RULE_TOD, .type = 1, .mac = {2, 0xff, 0xff, 0xff, 0xff, 0xff}};
    long good = 0, unanswered = 0;
    double worst = 0;
    int fd = bound_socket();
    while (!ended) {
        int32_t answer;
        double began = now();
        int told = tell(fd, &question, sizeof question);
        int answered = told && hear(fd, &answer, sizeof answer);
        double took = now() - began;
        worst = took > worst ? took : worst;
        good += answered;
        tell_begun(good);
        unanswered += !answered && (told || !ended);
        rest(5);
    }
    printf("{\"good\": %ld, \"unanswered\": %ld, \"worst\": %.6f}\n", good, unanswered, worst);
    return 0;
}

static int is_seen(const hbs_msg_dhcpv4 *lease) {
    hbs_client client;
    return hostbase_find_by_mac(lease->mac, &client) == HOSTBASE_OK && strcmp(client.host, lease->host) == 0;
}

static int presence(const char *text) {
    hbs_msg_dhcpv4 lease = {.code = HBS_EVENT_DHCPV4_LEASE, .dynamic = 1, .seconds = 86400, .ipv4 = {192, 168, 0, 250},
                            .nwidx = HBS_UNKNOWN_U32, .adapter_type = HBS_UNKNOWN_U32};
    sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &lease.mac[0], &lease.mac[1], &lease.mac[2], &lease.mac[3],
           &lease.mac[4], &lease.mac[5]);
    long told = 0, good = 0, failures = 0, unseen = 0;
    double worst = 0;
    int fd = bound_socket();
    while (!ended) {
        snprintf(lease.host, sizeof lease.host, "seen-%ld", told++);
        double began = now();
        if (!tell(fd, &lease, sizeof lease)) {
            failures += !ended;
            rest(5);
            continue;
        }
        while (now() - began < 60 && !is_seen(&lease)) {}
        double took = now() - began;
        int seen = is_seen(&lease);
        good += seen;
        tell_begun(good);
        unseen += took >= 60;
        worst = took > worst && seen ? took : worst;
        rest(5);
    }
    printf("{\"good\": %ld, \"failures\": %ld, \"unseen\": %ld, \"worst\": %.6f}\n", good, failures, unseen, worst);
    return 0;
}

int main(int count, char **words) {
    struct sigaction action = {.sa_handler = end}; /* what waits is interrupted */
    sigaction(SIGTERM, &action, NULL);
    if (count > 1 && strcmp(words[1], "copies") == 0)
        return copies();
    if (count > 1 && strcmp(words[1], "ask") == 0)
        return ask();
    return count > 2 && strcmp(words[1], "presence") == 0 ? presence(words[2]) : 2;
}
