// The bare programs that the daemon is compared with: what its work costs when nothing is known or decided.
//
//   serve SOCKET WORK...        answers each datagram whose sender can be answered; does WORK for every other
//   neighbours SOCKET WORK...   the same, and WORK for every neighbour message of the kernel
//                               WORK: pairs of files; the lines of the first are written to the end of the
//                               second, with one write each
//   edit FILE COUNT             COUNT times: reads the file, changes one line, writes it beside, makes sure
//   that it is on
//                               the disk, renames it: prints the nanoseconds of each
//   split FILE... [-- WORK...]  reads the files and splits them into words, does WORK once: prints the
//   nanoseconds of the
//                               processor
#include <ctime>
#include <fcntl.h>
#include <poll.h>

#include "base/netlink.h"
#include "common.h"

namespace {

struct output {
    std::vector<std::string> lines;
    int fd;
};

std::vector<output> outputs_of(char **words, int count) {
    std::vector<output> outputs;
    for (int i = 0; i + 1 < count; i += 2)
        outputs.push_back({lines_of(whole_file(words[i])),
                           open(words[i + 1], O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)});
    return outputs;
}

void write_all(const std::vector<output> &outputs) {
    for (const output &each : outputs)
        for (const std::string &line : each.lines)
            if (write(each.fd, line.data(), line.size()) < 0)
                fail("write");
}

void serve_one(int fd, const std::vector<output> &outputs) {
    char buffer[4096];
    sockaddr_un sender = {};
    socklen_t length = sizeof sender;
    if (recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&sender), &length) < 0)
        fail("recvfrom");
    if (length <= sizeof sender.sun_family) {
        write_all(outputs);
        return;
    }
    const int32_t answer = -1;
    (void)sendto(fd, &answer, sizeof answer, 0, reinterpret_cast<sockaddr *>(&sender), length);
}

int serve(char **words, int count) {
    const int fd = datagram_socket(words[0]);
    const auto outputs = outputs_of(words + 1, count - 1);
    for (;;)
        serve_one(fd, outputs);
}

void take_neighbour(hbs_netlink_bytes message, void *outputs) {
    hbs_neighbour neighbour;
    if (hbs_netlink_neighbour(message, &neighbour) && neighbour.attributes[NDA_DST].data != nullptr)
        write_all(*static_cast<const std::vector<output> *>(outputs));
}

int serve_neighbours(char **words, int count) {
    const int fd = datagram_socket(words[0]);
    auto outputs = outputs_of(words + 1, count - 1);
    const int kernel = hbs_netlink_open();
    const int room = 1 << 20;
    (void)setsockopt(kernel, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    if (!hbs_netlink_bind(kernel, RTMGRP_NEIGH))
        fail("netlink");
    static char buffer[65536];
    pollfd ready[2] = {{kernel, POLLIN, 0}, {fd, POLLIN, 0}};
    while (poll(ready, 2, -1) > 0) {
        if (ready[0].revents == 0) {
            serve_one(fd, outputs);
            continue;
        }
        const ssize_t length = hbs_netlink_receive(kernel, buffer, sizeof buffer, 0);
        if (length > 0)
            (void)hbs_netlink_walk({reinterpret_cast<const uint8_t *>(buffer), static_cast<size_t>(length)},
                                   take_neighbour, &outputs);
    }
    return 1;
}

void edit_once(const std::string &path) {
    auto lines = lines_of(whole_file(path));
    lines[lines.size() / 2].front() ^= 1;
    const std::string beside = path + ".beside";
    const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    std::string text;
    for (const std::string &line : lines)
        text += line;
    if (fd < 0 || write(fd, text.data(), text.size()) < 0 || fsync(fd) != 0 || close(fd) != 0 ||
        rename(beside.c_str(), path.c_str()) != 0)
        fail(path.c_str());
    const int folder = open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0 || fsync(folder) != 0 || close(folder) != 0)
        fail("folder");
}

int edit(char **words) {
    for (unsigned long left = strtoul(words[1], nullptr, 10); left > 0; left--) {
        const int64_t start = now_ns();
        edit_once(words[0]);
        printf("%lld\n", static_cast<long long>(now_ns() - start));
    }
    return 0;
}

int64_t processor_ns() {
    timespec now = {};
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

int split(char **words, int count) {
    int files = 0;
    while (files < count && strcmp(words[files], "--") != 0)
        files++;
    const auto outputs = outputs_of(words + files + 1, count - files - 1);
    const int64_t start = processor_ns();
    size_t found = 0;
    for (int i = 0; i < files; i++) {
        const std::string text = whole_file(words[i]);
        for (size_t at = text.find_first_not_of(" \n"); at != std::string::npos;
             at = text.find_first_not_of(" \n", at)) {
            at = text.find_first_of(" \n", at);
            found++;
        }
    }
    write_all(outputs);
    const int64_t taken = processor_ns() - start;
    fprintf(stderr, "%zu words\n", found);
    printf("%lld\n", static_cast<long long>(taken));
    return 0;
}

} // namespace

int main(int count, char **words) {
    const std::string_view what = count > 2 ? words[1] : "";
    if (what == "serve")
        return serve(words + 2, count - 2);
    if (what == "neighbours")
        return serve_neighbours(words + 2, count - 2);
    if (what == "edit" && count == 4)
        return edit(words + 2);
    if (what == "split")
        return split(words + 2, count - 2);
    fprintf(stderr, "hbs_bench_bare: see the head of bench/bare.cpp\n");
    return 2;
}
