// Sends what the daemon lives from, as fast as it is taken.
//
//   datagrams SOCKET FILE SIZE COUNT ASK   datagrams of SIZE bytes from FILE in turn, COUNT in all, then ASK
//   is asked:
//                                          prints the nanoseconds until that was answered
//   ask SOCKET FILE SIZE COUNT             asks COUNT times, one after the other: prints the nanoseconds of
//   each neighbours SOCKET INTERFACE HOSTS COUNT BURST RATE ASK
//                                          COUNT changes of neighbours .20, .21, ... in turn; after BURST of
//                                          them it waits until everybody has taken all; at most RATE a
//                                          second, 0 = as fast as the kernel makes them: prints the
//                                          nanoseconds until ASK was answered
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <thread>

#include "common.h"

namespace {

const std::string own_path = "/tmp/hbs_bench_drive";

void send_to(int fd, const sockaddr_un &to, const std::string &datagram) {
    if (sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) <
        0)
        fail("sendto");
}

void ask(int fd, const sockaddr_un &to, const std::string &question) {
    char answer[64];
    send_to(fd, to, question);
    if (recv(fd, answer, sizeof answer, 0) < 0)
        fail("recv");
}

int datagrams(char **words) {
    const sockaddr_un to = unix_address(words[0]);
    const auto pieces = pieces_of(whole_file(words[1]), strtoul(words[2], nullptr, 10));
    const unsigned long count = strtoul(words[3], nullptr, 10);
    const std::string question = whole_file(words[4]);
    const int events = datagram_socket("");
    const int questions = datagram_socket(own_path);
    const int64_t start = now_ns();
    for (unsigned long i = 0; i < count; i++)
        send_to(events, to, pieces[i % pieces.size()]);
    ask(questions, to, question);
    printf("%lld\n", static_cast<long long>(now_ns() - start));
    return 0;
}

int ask_often(char **words) {
    const sockaddr_un to = unix_address(words[0]);
    const auto pieces = pieces_of(whole_file(words[1]), strtoul(words[2], nullptr, 10));
    std::vector<int64_t> times(strtoul(words[3], nullptr, 10));
    const int fd = datagram_socket(own_path);
    for (size_t i = 0; i < times.size(); i++) {
        const int64_t start = now_ns();
        ask(fd, to, pieces[i % pieces.size()]);
        times[i] = now_ns() - start;
    }
    for (int64_t time : times)
        printf("%lld\n", static_cast<long long>(time));
    return 0;
}

struct neighbour_request {
    nlmsghdr head;
    ndmsg body;
    rtattr address_head;
    uint8_t address[4];
    rtattr mac_head;
    uint8_t mac[8]; // two bytes of padding
};

neighbour_request request_of(unsigned ifindex, unsigned host, uint16_t state) {
    neighbour_request request = {};
    request.head = {sizeof request, RTM_NEWNEIGH, NLM_F_REQUEST | NLM_F_CREATE | NLM_F_REPLACE, 0, 0};
    request.body.ndm_family = AF_INET;
    request.body.ndm_ifindex = static_cast<int>(ifindex);
    request.body.ndm_state = state;
    request.address_head = {RTA_LENGTH(4), NDA_DST};
    const uint8_t address[4] = {192, 168, 0, static_cast<uint8_t>(20 + host)};
    memcpy(request.address, address, sizeof address);
    request.mac_head = {RTA_LENGTH(6), NDA_LLADDR};
    const uint8_t mac[6] = {2, 0xcc, 0, 0, 0, static_cast<uint8_t>(host)};
    memcpy(request.mac, mac, sizeof mac);
    return request;
}

// Bytes that wait with those who listen to neighbours.
unsigned long waiting_bytes() {
    unsigned long waiting = 0;
    for (const std::string &line : lines_of(whole_file("/proc/net/netlink"))) {
        unsigned family = 0, groups = 0, bytes = 0;
        if (sscanf(line.c_str(), "%*s %u %*s %x %u", &family, &groups, &bytes) == 3 &&
            family == NETLINK_ROUTE && (groups & RTMGRP_NEIGH) != 0)
            waiting += bytes;
    }
    return waiting;
}

void wait_until_taken() {
    while (waiting_bytes() > 0)
        std::this_thread::sleep_for(std::chrono::microseconds(50));
}

int neighbours(char **words) {
    const sockaddr_un to = unix_address(words[0]);
    const unsigned ifindex = if_nametoindex(words[1]);
    const unsigned hosts = static_cast<unsigned>(strtoul(words[2], nullptr, 10));
    const unsigned long count = strtoul(words[3], nullptr, 10), burst = strtoul(words[4], nullptr, 10),
                        rate = strtoul(words[5], nullptr, 10);
    const std::string question = whole_file(words[6]);
    const int questions = datagram_socket(own_path);
    const int kernel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    unsigned round = 0; // every change is one: each round has the other state, and the last one is stale
    const int64_t start = now_ns();
    for (unsigned long i = 0; i < count; i++) {
        if (i % hosts == 0)
            round++;
        const auto request =
            request_of(ifindex, static_cast<unsigned>(i % hosts), round % 2 ? NUD_REACHABLE : NUD_STALE);
        if (send(kernel, &request, sizeof request, 0) < 0)
            fail("neighbour");
        if ((i + 1) % burst == 0)
            wait_until_taken();
        while (rate > 0 &&
               now_ns() - start < static_cast<int64_t>(i) * 1000000000 / static_cast<int64_t>(rate))
            std::this_thread::yield();
    }
    wait_until_taken();
    ask(questions, to, question);
    printf("%lld\n", static_cast<long long>(now_ns() - start));
    return 0;
}

} // namespace

int main(int count, char **words) {
    const std::string_view what = count > 1 ? words[1] : "";
    if (what == "datagrams" && count == 7)
        return datagrams(words + 2);
    if (what == "ask" && count == 6)
        return ask_often(words + 2);
    if (what == "neighbours" && count == 9)
        return neighbours(words + 2);
    fprintf(stderr, "hbs_bench_drive: see the head of bench/drive.cpp\n");
    return 2;
}
