// What the thread that listens to the kernel receives, in its order: notifications, losses and the tables
// that are read then. The input is messages; those of several parts share a datagram up to one that has no
// more, and of the type NLMSG_OVERRUN is what the socket could not queue. Who asks for a table gets what
// comes next.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>

#include "base/netlink.h"
#include "daemon/neighbour_monitor.h"
#include "fuzz_netlink.h"
#include "fuzz_soundness.h"

namespace {

hbs_netlink_bytes rest;
uint32_t drops;

// Whether the message that comes next is one that was lost.
bool is_loss_next() {
    hbs_netlink_bytes behind = rest;
    hbs_netlink_message next;
    return hbs_netlink_next(&behind, &next) && next.head.nlmsg_type == NLMSG_OVERRUN;
}

// The next datagram; where lengths no longer fit, all that is left is one.
hbs_netlink_bytes next_datagram() {
    const hbs_netlink_bytes from = rest;
    hbs_netlink_message message;
    do
        if (!hbs_netlink_next(&rest, &message)) {
            rest = {};
            return from;
        }
    while ((message.head.nlmsg_flags & NLM_F_MULTI) != 0 && !is_loss_next());
    return {from.data, from.size - rest.size};
}

// Whether it is told of as an error, too, as on a socket that does not count.
bool take_loss() {
    hbs_netlink_message message;
    (void)hbs_netlink_next(&rest, &message);
    drops++;
    return (message.head.nlmsg_flags & NLM_F_MULTI) != 0;
}

ssize_t fails(int error) {
    errno = error;
    return -1;
}

} // namespace

// What the thread, and who reads a table, ask of their sockets.
extern "C" int bind(int, const sockaddr *, socklen_t) noexcept {
    return 0;
}
extern "C" int setsockopt(int, int, int, const void *, socklen_t) noexcept {
    return 0;
}
extern "C" int getsockopt(int, int, int, void *value, socklen_t *size) noexcept {
    uint32_t information[SK_MEMINFO_VARS] = {};
    information[SK_MEMINFO_DROPS] = drops;
    *size = std::min<socklen_t>(*size, sizeof information);
    memcpy(value, information, *size);
    return 0;
}
extern "C" ssize_t sendto(int, const void *, size_t size, int, const sockaddr *, socklen_t) {
    return static_cast<ssize_t>(size);
}
// The queue is empty where something was lost, so that the tables are read there; nobody waits at the end.
extern "C" int poll(pollfd *, nfds_t, int timeout_ms) {
    return timeout_ms == 0 ? 0 : 1;
}
extern "C" ssize_t recvmsg(int, msghdr *message, int) {
    while (is_loss_next())
        if (take_loss())
            return fails(ENOBUFS);
    if (rest.size == 0)
        return fails(EIO);
    const hbs_netlink_bytes datagram = next_datagram();
    const size_t room = message->msg_iov->iov_len;
    const size_t taken = std::min(room, datagram.size);
    memcpy(message->msg_iov->iov_base, datagram.data, taken);
    message->msg_flags = datagram.size > room ? MSG_TRUNC : 0;
    return static_cast<ssize_t>(taken);
}
// Each input ends with one.
extern "C" void perror(const char *) {}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    fuzz_stop_at_damage();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_begin_with_nobody();
    rest = {data, size};
    drops = 0;
    (void)nl_listen_thread(nullptr);
    fuzz_expect_sound();
    return 0;
}
