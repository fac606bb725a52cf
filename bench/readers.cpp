// The reader library's calls beside the least that they could cost. The daemon runs, with all its clients.
#include <benchmark/benchmark.h>

#include <hbs_msg.h>
#include <hostbase_query.h>

#include "common.h"

namespace {

hbs_client clients[HBS_MAX_CLIENTS];
hbs_client copies[HBS_MAX_CLIENTS];

size_t all_clients() {
    size_t count = 0;
    if (hostbase_get_clients(clients, HBS_MAX_CLIENTS, &count) != HOSTBASE_OK)
        fail("hostbase_get_clients");
    return count;
}

void memcpy_of_all(benchmark::State &state) {
    const size_t count = all_clients();
    for (auto each : state) {
        memcpy(copies, clients, count * sizeof *clients);
        benchmark::ClobberMemory();
    }
}

void copy_of_all(benchmark::State &state) {
    size_t count = 0;
    for (auto each : state)
        if (hostbase_get_clients(copies, HBS_MAX_CLIENTS, &count) != HOSTBASE_OK)
            state.SkipWithError("hostbase_get_clients");
}

void look_up_of_a_mac(benchmark::State &state) {
    const size_t count = all_clients();
    hbs_client found;
    size_t next = 0;
    for (auto each : state)
        if (hostbase_find_by_mac(clients[next++ % count].mac, &found) != HOSTBASE_OK)
            state.SkipWithError("hostbase_find_by_mac");
}

// What a question to the daemon would cost at least: HBS_BENCH_ECHO names the socket of who only answers.
void echo(benchmark::State &state) {
    const sockaddr_un to = unix_address(getenv("HBS_BENCH_ECHO"));
    const int fd = datagram_socket("/tmp/hbs_bench_readers");
    char text[64] = {};
    for (auto each : state)
        if (sendto(fd, text, sizeof text, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) < 0 ||
            recv(fd, text, sizeof text, 0) < 0)
            state.SkipWithError("echo");
    (void)close(fd);
}

} // namespace

BENCHMARK(memcpy_of_all);
BENCHMARK(copy_of_all);
BENCHMARK(look_up_of_a_mac);
BENCHMARK(echo)->UseRealTime();
